#include "platform/IStreamWrapper.h"

#include <string>

namespace tolm {
namespace {

void extractWord(std::istream& in, char* word) {
    std::string extracted;
    in >> extracted;
    extracted.copy(word, extracted.size());
    word[extracted.size()] = '\0';
}

}  // namespace

IStreamWrapper& IStreamWrapper::operator>>(bool& value) {
    *_stream >> value;
    return *this;
}

IStreamWrapper& IStreamWrapper::operator>>(char& value) {
    *_stream >> value;
    return *this;
}

IStreamWrapper& IStreamWrapper::operator>>(unsigned char& value) {
    *_stream >> value;
    return *this;
}

IStreamWrapper& IStreamWrapper::operator>>(short& value) {
    *_stream >> value;
    return *this;
}

IStreamWrapper& IStreamWrapper::operator>>(unsigned short& value) {
    *_stream >> value;
    return *this;
}

IStreamWrapper& IStreamWrapper::operator>>(int& value) {
    *_stream >> value;
    return *this;
}

IStreamWrapper& IStreamWrapper::operator>>(unsigned int& value) {
    *_stream >> value;
    return *this;
}

IStreamWrapper& IStreamWrapper::operator>>(std::int64_t& value) {
    *_stream >> value;
    return *this;
}

IStreamWrapper& IStreamWrapper::operator>>(std::uint64_t& value) {
    *_stream >> value;
    return *this;
}

IStreamWrapper& IStreamWrapper::operator>>(float& value) {
    *_stream >> value;
    return *this;
}

IStreamWrapper& IStreamWrapper::operator>>(double& value) {
    *_stream >> value;
    return *this;
}

IStreamWrapper& IStreamWrapper::operator>>(long double& value) {
    *_stream >> value;
    return *this;
}

IStreamWrapper& IStreamWrapper::operator>>(std::string& value) {
    *_stream >> value;
    return *this;
}

IStreamWrapper& IStreamWrapper::operator>>(char* word) {
    extractWord(*_stream, word);
    return *this;
}

IStreamWrapper& IStreamWrapper::operator>>(unsigned char* word) {
    extractWord(*_stream, reinterpret_cast<char*>(word));
    return *this;
}

IStreamWrapper& IStreamWrapper::operator>>(void*& value) {
    *_stream >> value;
    return *this;
}

IStreamWrapper& IStreamWrapper::operator>>(std::basic_streambuf<char>* buffer) {
    *_stream >> buffer;
    return *this;
}

IStreamWrapper& IStreamWrapper::operator>>(Manipulator manipulator) {
    return manipulator(*this);
}

IStreamWrapper& IStreamWrapper::operator>>(std::istream& (*manipulator)(std::istream&)) {
    *_stream >> manipulator;
    return *this;
}

IStreamWrapper& IStreamWrapper::operator>>(std::ios& (*manipulator)(std::ios&)) {
    *_stream >> manipulator;
    return *this;
}

IStreamWrapper& IStreamWrapper::operator>>(std::ios_base& (*manipulator)(std::ios_base&)) {
    *_stream >> manipulator;
    return *this;
}

IStreamWrapper& IStreamWrapper::read(char* s, std::int64_t n) {
    _stream->read(s, n);
    return *this;
}

int IStreamWrapper::get() {
    return _stream->get();
}

bool IStreamWrapper::get(char& c) {
    return bool(_stream->get(c));
}

bool IStreamWrapper::get(char* s, std::int64_t n) {
    return bool(_stream->get(s, n));
}

bool IStreamWrapper::getline(char* s, std::int64_t n) {
    return bool(_stream->getline(s, n));
}

int IStreamWrapper::peek() {
    return _stream->peek();
}

std::streampos IStreamWrapper::tellg() {
    return _stream->tellg();
}

std::int64_t IStreamWrapper::gcount() const {
    return _stream->gcount();
}

}  // namespace tolm
