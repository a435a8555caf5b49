#include "machine/files/OutputFileStream.h"

#include "machine/comm/Communicator.h"
#include "machine/core/Machine.h"

namespace tolm {

OutputFileStream::OutputFileStream() : OutputFileStream(std::make_shared<std::ofstream>()) {}

OutputFileStream::OutputFileStream(const char* name)
    : OutputFileStream(std::make_shared<std::ofstream>(name, std::ios::out)) {}

OutputFileStream::OutputFileStream(std::shared_ptr<std::ofstream> file)
    : OStreamWrapper(*file), _writer(Machine::getPartitionId() == 0), _file(std::move(file)) {}

bool OutputFileStream::open(const char* name) {
    return open(name, std::ios::out | std::ios::binary);
}

bool OutputFileStream::open(const char* name, int mode) {
    if (_writer)
        _file->open(name, static_cast<std::ios::openmode>(mode));
    return is_open();
}

void OutputFileStream::close() {
    if (_writer)
        _file->close();
}

bool OutputFileStream::is_open() const {
    bool open = _writer ? _file->is_open() : true;
    if (Machine::isParallel())
        Machine::globalCommunicator()->broadcast(open, Communicator::masterRank());
    return open;
}

void OutputFileStream::setBroadcastFlag(const bool& value) {
    _broadcast = Machine::isParallel() && value;
}

bool OutputFileStream::answer(bool local) const {
    if (_broadcast)
        Machine::globalCommunicator()->broadcast(local, Communicator::masterRank());
    return local;
}

bool OutputFileStream::good() const {
    return answer(_writer ? OStreamWrapper::good() : true);
}

bool OutputFileStream::bad() const {
    return answer(_writer ? OStreamWrapper::bad() : false);
}

bool OutputFileStream::eof() const {
    return answer(_writer ? OStreamWrapper::eof() : false);
}

bool OutputFileStream::fail() const {
    return answer(_writer ? OStreamWrapper::fail() : false);
}

template <typename T>
OStreamWrapper& OutputFileStream::insert(const T& value) {
    if (_writer)
        OStreamWrapper::operator<<(value);
    return *this;
}

OStreamWrapper& OutputFileStream::operator<<(bool value) {
    return insert(value);
}

OStreamWrapper& OutputFileStream::operator<<(char value) {
    return insert(value);
}

OStreamWrapper& OutputFileStream::operator<<(unsigned char value) {
    return insert(value);
}

OStreamWrapper& OutputFileStream::operator<<(short value) {
    return insert(value);
}

OStreamWrapper& OutputFileStream::operator<<(unsigned short value) {
    return insert(value);
}

OStreamWrapper& OutputFileStream::operator<<(int value) {
    return insert(value);
}

OStreamWrapper& OutputFileStream::operator<<(unsigned int value) {
    return insert(value);
}

OStreamWrapper& OutputFileStream::operator<<(std::int64_t value) {
    return insert(value);
}

OStreamWrapper& OutputFileStream::operator<<(std::uint64_t value) {
    return insert(value);
}

OStreamWrapper& OutputFileStream::operator<<(float value) {
    return insert(value);
}

OStreamWrapper& OutputFileStream::operator<<(double value) {
    return insert(value);
}

OStreamWrapper& OutputFileStream::operator<<(long double value) {
    return insert(value);
}

OStreamWrapper& OutputFileStream::operator<<(const char* text) {
    return insert(text);
}

OStreamWrapper& OutputFileStream::operator<<(const std::string& text) {
    return insert(text);
}

OStreamWrapper& OutputFileStream::operator<<(const void* pointer) {
    return insert(pointer);
}

OStreamWrapper& OutputFileStream::operator<<(std::basic_streambuf<char>* buffer) {
    return insert(buffer);
}

OStreamWrapper& OutputFileStream::operator<<(Manipulator manipulator) {
    return insert(manipulator);
}

OStreamWrapper& OutputFileStream::operator<<(std::ostream& (*manipulator)(std::ostream&)) {
    return insert(manipulator);
}

OStreamWrapper& OutputFileStream::operator<<(std::ios& (*manipulator)(std::ios&)) {
    return insert(manipulator);
}

OStreamWrapper& OutputFileStream::operator<<(std::ios_base& (*manipulator)(std::ios_base&)) {
    return insert(manipulator);
}

OStreamWrapper& OutputFileStream::write(const char* s, std::int64_t n) {
    if (_writer)
        OStreamWrapper::write(s, n);
    return *this;
}

OStreamWrapper& OutputFileStream::put(char c) {
    if (_writer)
        OStreamWrapper::put(c);
    return *this;
}

OStreamWrapper& OutputFileStream::flush() {
    if (_writer)
        OStreamWrapper::flush();
    return *this;
}

OStreamWrapper& OutputFileStream::seekp(std::streampos position) {
    if (_writer)
        OStreamWrapper::seekp(position);
    return *this;
}

OStreamWrapper& OutputFileStream::seekp(std::int64_t offset, int direction) {
    if (_writer)
        OStreamWrapper::seekp(offset, direction);
    return *this;
}

}  // namespace tolm
