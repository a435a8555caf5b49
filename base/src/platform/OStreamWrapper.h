#pragma once
#include <cstdint>
#include <ostream>
#include <string>

#include "platform/IOStreamWrapper.h"

namespace tolm {

// Output through a wrapped standard output stream, every operation virtual so that a shared
// stream can decide who writes. The stream behind it is a file: opening and closing are left
// to the concrete wrapper, which knows its file stream.
class OStreamWrapper : public IOStreamWrapper {
  public:
    using Manipulator = OStreamWrapper& (*)(OStreamWrapper&);

    explicit OStreamWrapper(std::ostream& stream) : IOStreamWrapper(stream), _stream(&stream) {}

    // Opens for output in binary mode, or in `mode` (a std::ios_base::openmode).
    virtual bool open(const char* name) = 0;
    virtual bool open(const char* name, int mode) = 0;
    virtual void close() = 0;
    virtual bool is_open() const = 0;

    virtual OStreamWrapper& operator<<(bool value);
    virtual OStreamWrapper& operator<<(char value);
    virtual OStreamWrapper& operator<<(unsigned char value);
    virtual OStreamWrapper& operator<<(short value);
    virtual OStreamWrapper& operator<<(unsigned short value);
    virtual OStreamWrapper& operator<<(int value);
    virtual OStreamWrapper& operator<<(unsigned int value);
    virtual OStreamWrapper& operator<<(std::int64_t value);
    virtual OStreamWrapper& operator<<(std::uint64_t value);
    virtual OStreamWrapper& operator<<(float value);
    virtual OStreamWrapper& operator<<(double value);
    virtual OStreamWrapper& operator<<(long double value);
    virtual OStreamWrapper& operator<<(const char* text);
    virtual OStreamWrapper& operator<<(const std::string& text);
    virtual OStreamWrapper& operator<<(const void* pointer);
    virtual OStreamWrapper& operator<<(std::basic_streambuf<char>* buffer);
    virtual OStreamWrapper& operator<<(Manipulator manipulator);
    virtual OStreamWrapper& operator<<(std::ostream& (*manipulator)(std::ostream&));
    virtual OStreamWrapper& operator<<(std::ios& (*manipulator)(std::ios&));
    virtual OStreamWrapper& operator<<(std::ios_base& (*manipulator)(std::ios_base&));

    virtual OStreamWrapper& write(const char* s, std::int64_t n);
    virtual OStreamWrapper& put(char c);
    virtual OStreamWrapper& flush();
    virtual OStreamWrapper& seekp(std::streampos position);
    // `direction` is a std::ios_base::seekdir.
    virtual OStreamWrapper& seekp(std::int64_t offset, int direction);

  protected:
    OStreamWrapper(const OStreamWrapper&) = default;

  private:
    std::ostream* _stream;
};

}  // namespace tolm
