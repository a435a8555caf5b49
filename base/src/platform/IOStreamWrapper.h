#pragma once
#include <ios>

namespace tolm {

// The state of a wrapped standard stream: the common base of IStreamWrapper and OStreamWrapper.
// Code that holds its streams through these interfaces runs unchanged whether a stream is
// local to the process or shared by the processes of a parallel job (the machine layer's
// InputFileStream and OutputFileStream). A wrapper never owns the stream it wraps.
class IOStreamWrapper {
  public:
    virtual ~IOStreamWrapper();

    virtual bool good() const;
    virtual bool bad() const;
    virtual bool eof() const;
    virtual bool fail() const;
    explicit operator bool() const { return !fail(); }
    bool operator!() const { return fail(); }

    // Asks a shared stream to hand every process what one process reads or finds; a local
    // stream has nobody to share with and ignores it.
    virtual void setBroadcastFlag(const bool& value);

  protected:
    explicit IOStreamWrapper(std::basic_ios<char>& stream) : _ios(&stream) {}
    IOStreamWrapper(const IOStreamWrapper&) = default;
    IOStreamWrapper& operator=(const IOStreamWrapper&) = delete;

  private:
    std::basic_ios<char>* _ios;
};

}  // namespace tolm
