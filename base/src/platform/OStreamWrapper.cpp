#include "platform/OStreamWrapper.h"

namespace tolm {

OStreamWrapper& OStreamWrapper::operator<<(bool value) {
    *_stream << value;
    return *this;
}

OStreamWrapper& OStreamWrapper::operator<<(char value) {
    *_stream << value;
    return *this;
}

OStreamWrapper& OStreamWrapper::operator<<(unsigned char value) {
    *_stream << value;
    return *this;
}

OStreamWrapper& OStreamWrapper::operator<<(short value) {
    *_stream << value;
    return *this;
}

OStreamWrapper& OStreamWrapper::operator<<(unsigned short value) {
    *_stream << value;
    return *this;
}

OStreamWrapper& OStreamWrapper::operator<<(int value) {
    *_stream << value;
    return *this;
}

OStreamWrapper& OStreamWrapper::operator<<(unsigned int value) {
    *_stream << value;
    return *this;
}

OStreamWrapper& OStreamWrapper::operator<<(std::int64_t value) {
    *_stream << value;
    return *this;
}

OStreamWrapper& OStreamWrapper::operator<<(std::uint64_t value) {
    *_stream << value;
    return *this;
}

OStreamWrapper& OStreamWrapper::operator<<(float value) {
    *_stream << value;
    return *this;
}

OStreamWrapper& OStreamWrapper::operator<<(double value) {
    *_stream << value;
    return *this;
}

OStreamWrapper& OStreamWrapper::operator<<(long double value) {
    *_stream << value;
    return *this;
}

OStreamWrapper& OStreamWrapper::operator<<(const char* text) {
    *_stream << text;
    return *this;
}

OStreamWrapper& OStreamWrapper::operator<<(const std::string& text) {
    *_stream << text;
    return *this;
}

OStreamWrapper& OStreamWrapper::operator<<(const void* pointer) {
    *_stream << pointer;
    return *this;
}

OStreamWrapper& OStreamWrapper::operator<<(std::basic_streambuf<char>* buffer) {
    *_stream << buffer;
    return *this;
}

OStreamWrapper& OStreamWrapper::operator<<(Manipulator manipulator) {
    return manipulator(*this);
}

OStreamWrapper& OStreamWrapper::operator<<(std::ostream& (*manipulator)(std::ostream&)) {
    *_stream << manipulator;
    return *this;
}

OStreamWrapper& OStreamWrapper::operator<<(std::ios& (*manipulator)(std::ios&)) {
    *_stream << manipulator;
    return *this;
}

OStreamWrapper& OStreamWrapper::operator<<(std::ios_base& (*manipulator)(std::ios_base&)) {
    *_stream << manipulator;
    return *this;
}

OStreamWrapper& OStreamWrapper::write(const char* s, std::int64_t n) {
    _stream->write(s, n);
    return *this;
}

OStreamWrapper& OStreamWrapper::put(char c) {
    _stream->put(c);
    return *this;
}

OStreamWrapper& OStreamWrapper::flush() {
    _stream->flush();
    return *this;
}

OStreamWrapper& OStreamWrapper::seekp(std::streampos position) {
    _stream->seekp(position);
    return *this;
}

OStreamWrapper& OStreamWrapper::seekp(std::int64_t offset, int direction) {
    _stream->seekp(offset, static_cast<std::ios_base::seekdir>(direction));
    return *this;
}

}  // namespace tolm
