#pragma once
#include <cstdint>
#include <fstream>
#include <memory>
#include <string>

#include "platform/IStreamWrapper.h"

namespace tolm {

// A file input stream for a parallel job in which one process reads the file: every process
// constructs the same stream and makes the same calls on it in the same order, and only the
// reader (the serial process or the master) touches the file.
//
// With the broadcast flag set (setBroadcastFlag; it stays clear in a serial run), every value
// the reader extracts, and every answer of a query, is broadcast from the master over the
// global communicator, so that all processes go on with the same data. With the flag clear,
// the other processes' destinations are left as they were and their queries answer fixed
// defaults: good() true, bad() false, eof() true (where an OutputFileStream answers false, on
// purpose), fail() false, get() and peek() -1, gcount() 0, tellg() 0, and true for get(c),
// get(s, n) and getline(s, n). open() and is_open() always give every process of a parallel
// run the master's answer. Manipulators apply on every process; void* and streambuf
// extraction happen on the reader alone.
//
// Every broadcasting call is a collective: a call made on some processes only leaves the
// others waiting.
//
// Errors: stream failures are the file stream's own (state bits, and the standard exceptions
// where the caller enabled them). InternalError "Not implemented yet" for extraction into a
// character pointer with the flag set; the message-count InternalError of the communicator for
// a string longer than 4294967295 characters.
class InputFileStream : public IStreamWrapper {
  public:
    InputFileStream();
    // Opens `name` (binary) on every process, not only on the reader.
    explicit InputFileStream(const char* name);
    // The copy reads the same file stream; the last copy alive closes it.
    InputFileStream(const InputFileStream& other) = default;

    // Opens `name` (binary) on the reader.
    bool open(const char* name);
    bool is_open() const;
    // Closes the reader's file; the others have nothing to close.
    void close();

    void setBroadcastFlag(const bool& value) override;
    const bool& getBroadcastFlag() const { return _broadcast; }

    bool good() const override;
    bool bad() const override;
    bool eof() const override;
    bool fail() const override;

    using IStreamWrapper::operator>>;
    IStreamWrapper& operator>>(bool& value) override;
    IStreamWrapper& operator>>(char& value) override;
    IStreamWrapper& operator>>(unsigned char& value) override;
    IStreamWrapper& operator>>(short& value) override;
    IStreamWrapper& operator>>(unsigned short& value) override;
    IStreamWrapper& operator>>(int& value) override;
    IStreamWrapper& operator>>(unsigned int& value) override;
    IStreamWrapper& operator>>(std::int64_t& value) override;
    IStreamWrapper& operator>>(std::uint64_t& value) override;
    IStreamWrapper& operator>>(float& value) override;
    IStreamWrapper& operator>>(double& value) override;
    IStreamWrapper& operator>>(long double& value) override;
    IStreamWrapper& operator>>(std::string& value) override;
    IStreamWrapper& operator>>(char* word) override;
    IStreamWrapper& operator>>(unsigned char* word) override;
    IStreamWrapper& operator>>(void*& value) override;
    IStreamWrapper& operator>>(std::basic_streambuf<char>* buffer) override;

    IStreamWrapper& read(char* s, std::int64_t n) override;
    int get() override;
    bool get(char& c) override;
    bool get(char* s, std::int64_t n) override;
    bool getline(char* s, std::int64_t n) override;
    int peek() override;
    std::streampos tellg() override;
    std::int64_t gcount() const override;

  private:
    explicit InputFileStream(std::shared_ptr<std::ifstream> file);

    // The reader extracts into `value`; with the flag set everyone takes the master's value.
    template <typename T>
    IStreamWrapper& extract(T& value);
    template <typename T>
    IStreamWrapper& extractWord(T* word);
    // The master's `value` on every process.
    template <typename T>
    void share(T& value) const;
    void shareBuffer(char* s, std::int64_t n) const;
    // `local` (the reader's answer, or the others' default), the master's when the flag is set.
    template <typename T>
    T answer(T local) const;

    std::shared_ptr<std::ifstream> _file;
    bool _broadcast = false;
    bool _reader;
};

}  // namespace tolm
