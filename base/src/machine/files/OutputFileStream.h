#pragma once
#include <cstdint>
#include <fstream>
#include <memory>
#include <string>

#include "platform/OStreamWrapper.h"

namespace tolm {

// A file output stream for a parallel job in which one process writes the file: every process
// constructs the same stream and makes the same calls on it, and only the writer (the process
// of partition 0) touches the file; on the others every output operation does nothing.
//
// open() and is_open() give every process of a parallel run the master's answer. The state
// queries answer the writer's state on the writer and fixed defaults elsewhere (good() true,
// bad(), eof(), fail() false), unless the broadcast flag is set (setBroadcastFlag; it stays
// clear in a serial run): then every process gets the master's answer. Output itself is never
// broadcast. Every broadcasting call is a collective over the global communicator.
//
// Errors: stream failures are the file stream's own (state bits, and the standard exceptions
// where the caller enabled them).
class OutputFileStream : public OStreamWrapper {
  public:
    OutputFileStream();
    // The copy writes the same file stream; the last copy alive closes it.
    OutputFileStream(const OutputFileStream& other) = default;

    bool open(const char* name) override;
    bool open(const char* name, int mode) override;
    // Closes the writer's file; the others have nothing to close.
    void close() override;
    bool is_open() const override;

    void setBroadcastFlag(const bool& value) override;
    const bool& getBroadcastFlag() const { return _broadcast; }

    bool good() const override;
    bool bad() const override;
    bool eof() const override;
    bool fail() const override;

    OStreamWrapper& operator<<(bool value) override;
    OStreamWrapper& operator<<(char value) override;
    OStreamWrapper& operator<<(unsigned char value) override;
    OStreamWrapper& operator<<(short value) override;
    OStreamWrapper& operator<<(unsigned short value) override;
    OStreamWrapper& operator<<(int value) override;
    OStreamWrapper& operator<<(unsigned int value) override;
    OStreamWrapper& operator<<(std::int64_t value) override;
    OStreamWrapper& operator<<(std::uint64_t value) override;
    OStreamWrapper& operator<<(float value) override;
    OStreamWrapper& operator<<(double value) override;
    OStreamWrapper& operator<<(long double value) override;
    OStreamWrapper& operator<<(const char* text) override;
    OStreamWrapper& operator<<(const std::string& text) override;
    OStreamWrapper& operator<<(const void* pointer) override;
    OStreamWrapper& operator<<(std::basic_streambuf<char>* buffer) override;
    OStreamWrapper& operator<<(Manipulator manipulator) override;
    OStreamWrapper& operator<<(std::ostream& (*manipulator)(std::ostream&)) override;
    OStreamWrapper& operator<<(std::ios& (*manipulator)(std::ios&)) override;
    OStreamWrapper& operator<<(std::ios_base& (*manipulator)(std::ios_base&)) override;

    OStreamWrapper& write(const char* s, std::int64_t n) override;
    OStreamWrapper& put(char c) override;
    OStreamWrapper& flush() override;
    OStreamWrapper& seekp(std::streampos position) override;
    OStreamWrapper& seekp(std::int64_t offset, int direction) override;

  protected:
    // Opens `name` (text mode) on every process, not only on the writer.
    explicit OutputFileStream(const char* name);

  private:
    explicit OutputFileStream(std::shared_ptr<std::ofstream> file);

    template <typename T>
    OStreamWrapper& insert(const T& value);
    // `local`, or the master's answer when the flag is set.
    bool answer(bool local) const;

    bool _writer;
    std::shared_ptr<std::ofstream> _file;
    bool _broadcast = false;
};

}  // namespace tolm
