#pragma once
#include <cstdint>
#include <istream>
#include <string>

#include "platform/IOStreamWrapper.h"

namespace tolm {

// Input through a wrapped standard input stream, every operation virtual so that a shared
// stream can decide who reads and who receives. Each operation does what the standard stream
// does; `get(char*, n)` and `getline` answer whether the stream is still good for input.
class IStreamWrapper : public IOStreamWrapper {
  public:
    using Manipulator = IStreamWrapper& (*)(IStreamWrapper&);

    explicit IStreamWrapper(std::istream& stream) : IOStreamWrapper(stream), _stream(&stream) {}

    virtual IStreamWrapper& operator>>(bool& value);
    virtual IStreamWrapper& operator>>(char& value);
    virtual IStreamWrapper& operator>>(unsigned char& value);
    virtual IStreamWrapper& operator>>(short& value);
    virtual IStreamWrapper& operator>>(unsigned short& value);
    virtual IStreamWrapper& operator>>(int& value);
    virtual IStreamWrapper& operator>>(unsigned int& value);
    virtual IStreamWrapper& operator>>(std::int64_t& value);
    virtual IStreamWrapper& operator>>(std::uint64_t& value);
    virtual IStreamWrapper& operator>>(float& value);
    virtual IStreamWrapper& operator>>(double& value);
    virtual IStreamWrapper& operator>>(long double& value);
    virtual IStreamWrapper& operator>>(std::string& value);
    // A word into a character array of unknown size, as the standard library did before
    // C++20; the caller's array must hold the word and its terminator.
    virtual IStreamWrapper& operator>>(char* word);
    virtual IStreamWrapper& operator>>(unsigned char* word);
    virtual IStreamWrapper& operator>>(void*& value);
    virtual IStreamWrapper& operator>>(std::basic_streambuf<char>* buffer);
    virtual IStreamWrapper& operator>>(Manipulator manipulator);
    virtual IStreamWrapper& operator>>(std::istream& (*manipulator)(std::istream&));
    virtual IStreamWrapper& operator>>(std::ios& (*manipulator)(std::ios&));
    virtual IStreamWrapper& operator>>(std::ios_base& (*manipulator)(std::ios_base&));

    virtual IStreamWrapper& read(char* s, std::int64_t n);
    virtual int get();
    virtual bool get(char& c);
    virtual bool get(char* s, std::int64_t n);
    virtual bool getline(char* s, std::int64_t n);
    virtual int peek();
    virtual std::streampos tellg();
    virtual std::int64_t gcount() const;

  protected:
    IStreamWrapper(const IStreamWrapper&) = default;

  private:
    std::istream* _stream;
};

}  // namespace tolm
