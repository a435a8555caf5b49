#pragma once
#include <exception>
#include <functional>
#include <string>
#include <thread>

namespace tolm {

// A named worker thread that runs one function. The owner must join it (or let the
// destructor do so) before the function's captures go away.
class Thread {
  public:
    explicit Thread(std::string name);
    ~Thread();
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    void start(std::function<void()> body);
    void join();
    bool isRunning() const { return _thread.joinable(); }
    const std::string& name() const { return _name; }

    // True on the thread that loaded this library: the process's main thread. Inline and
    // without a library call (each live thread has its own thread pointer): the communication
    // checks ask it on every call.
    static bool isMain() { return __builtin_thread_pointer() == _mainThreadPointer; }

    // Receives what escapes the body of any Thread, on that thread. Without a handler an
    // escaping exception ends the process (std::terminate), as for std::thread.
    using UncaughtHandler = std::function<void(std::exception_ptr)>;
    static void setUncaughtExceptionHandler(UncaughtHandler handler);

  private:
    // Set while the library's static objects are built, which happens on the main thread when
    // the executable starts (the library is linked, never loaded from a worker thread).
    static inline const void* const _mainThreadPointer = __builtin_thread_pointer();

    std::string _name;
    std::thread _thread;
};

}  // namespace tolm
