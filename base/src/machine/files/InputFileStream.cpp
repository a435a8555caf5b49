#include "machine/files/InputFileStream.h"

#include "machine/comm/Communicator.h"
#include "machine/core/Machine.h"
#include "neo/InternalError.h"

namespace tolm {
namespace {

constexpr auto binaryInput = std::ios::in | std::ios::binary;

}  // namespace

InputFileStream::InputFileStream() : InputFileStream(std::make_shared<std::ifstream>()) {}

InputFileStream::InputFileStream(const char* name)
    : InputFileStream(std::make_shared<std::ifstream>(name, binaryInput)) {}

InputFileStream::InputFileStream(std::shared_ptr<std::ifstream> file)
    : IStreamWrapper(*file),
      _file(std::move(file)),
      _reader(Machine::isSerial() || Machine::isMaster()) {}

template <typename T>
void InputFileStream::share(T& value) const {
    Machine::globalCommunicator()->broadcast(value, Communicator::masterRank());
}

void InputFileStream::shareBuffer(char* s, std::int64_t n) const {
    Machine::globalCommunicator()->broadcast(s, std::uint64_t(n), Communicator::masterRank());
}

template <typename T>
T InputFileStream::answer(T local) const {
    if (_broadcast)
        share(local);
    return local;
}

bool InputFileStream::open(const char* name) {
    bool opened = true;
    if (_reader) {
        _file->open(name, binaryInput);
        opened = _file->is_open();
    }
    if (Machine::isParallel())
        share(opened);
    return opened;
}

bool InputFileStream::is_open() const {
    bool open = _reader ? _file->is_open() : true;
    if (Machine::isParallel())
        share(open);
    return open;
}

void InputFileStream::close() {
    if (_reader)
        _file->close();
}

void InputFileStream::setBroadcastFlag(const bool& value) {
    _broadcast = Machine::isParallel() && value;
}

bool InputFileStream::good() const {
    return answer(_reader ? IStreamWrapper::good() : true);
}

bool InputFileStream::bad() const {
    return answer(_reader ? IStreamWrapper::bad() : false);
}

bool InputFileStream::eof() const {
    return answer(_reader ? IStreamWrapper::eof() : true);
}

bool InputFileStream::fail() const {
    return answer(_reader ? IStreamWrapper::fail() : false);
}

template <typename T>
IStreamWrapper& InputFileStream::extract(T& value) {
    if (_reader)
        IStreamWrapper::operator>>(value);
    if (_broadcast)
        share(value);
    return *this;
}

IStreamWrapper& InputFileStream::operator>>(bool& value) {
    return extract(value);
}

IStreamWrapper& InputFileStream::operator>>(char& value) {
    return extract(value);
}

IStreamWrapper& InputFileStream::operator>>(unsigned char& value) {
    return extract(value);
}

IStreamWrapper& InputFileStream::operator>>(short& value) {
    return extract(value);
}

IStreamWrapper& InputFileStream::operator>>(unsigned short& value) {
    return extract(value);
}

IStreamWrapper& InputFileStream::operator>>(int& value) {
    return extract(value);
}

IStreamWrapper& InputFileStream::operator>>(unsigned int& value) {
    return extract(value);
}

IStreamWrapper& InputFileStream::operator>>(std::int64_t& value) {
    return extract(value);
}

IStreamWrapper& InputFileStream::operator>>(std::uint64_t& value) {
    return extract(value);
}

IStreamWrapper& InputFileStream::operator>>(float& value) {
    return extract(value);
}

IStreamWrapper& InputFileStream::operator>>(double& value) {
    return extract(value);
}

// Travels as the wrapper's long double, at its full width on this platform.
IStreamWrapper& InputFileStream::operator>>(long double& value) {
    return extract(value);
}

// The length first (64 bits; above the 32-bit count limit the broadcast of the characters
// raises), then the characters into each receiver's string resized to that length.
IStreamWrapper& InputFileStream::operator>>(std::string& value) {
    return extract(value);
}

template <typename T>
IStreamWrapper& InputFileStream::extractWord(T* word) {
    if (_reader)
        IStreamWrapper::operator>>(word);
    TOLM_ASSERT(!_broadcast, "Not implemented yet");
    return *this;
}

IStreamWrapper& InputFileStream::operator>>(char* word) {
    return extractWord(word);
}

IStreamWrapper& InputFileStream::operator>>(unsigned char* word) {
    return extractWord(word);
}

IStreamWrapper& InputFileStream::operator>>(void*& value) {
    if (_reader)
        IStreamWrapper::operator>>(value);
    return *this;
}

IStreamWrapper& InputFileStream::operator>>(std::basic_streambuf<char>* buffer) {
    if (_reader)
        IStreamWrapper::operator>>(buffer);
    return *this;
}

IStreamWrapper& InputFileStream::read(char* s, std::int64_t n) {
    if (_reader)
        IStreamWrapper::read(s, n);
    if (_broadcast)
        shareBuffer(s, n);
    return *this;
}

int InputFileStream::get() {
    return answer(_reader ? IStreamWrapper::get() : -1);
}

bool InputFileStream::get(char& c) {
    const bool got = _reader ? IStreamWrapper::get(c) : true;
    if (_broadcast)
        share(c);
    return answer(got);
}

// The whole buffer travels, not only the characters the reader stored.
bool InputFileStream::get(char* s, std::int64_t n) {
    const bool got = _reader ? IStreamWrapper::get(s, n) : true;
    if (_broadcast)
        shareBuffer(s, n);
    return answer(got);
}

bool InputFileStream::getline(char* s, std::int64_t n) {
    const bool got = _reader ? IStreamWrapper::getline(s, n) : true;
    if (_broadcast)
        shareBuffer(s, n);
    return answer(got);
}

int InputFileStream::peek() {
    return answer(_reader ? IStreamWrapper::peek() : -1);
}

// Shared as one 64-bit offset: every process, the master too, then holds a position made
// from that offset alone.
std::streampos InputFileStream::tellg() {
    const std::streampos position = _reader ? IStreamWrapper::tellg() : std::streampos(0);
    if (!_broadcast)
        return position;
    return std::streampos(answer(std::int64_t(std::streamoff(position))));
}

std::int64_t InputFileStream::gcount() const {
    return answer(_reader ? IStreamWrapper::gcount() : std::int64_t(0));
}

}  // namespace tolm
