#pragma once
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

    // True on the thread that loaded this library: the process's main thread.
    static bool isMain();

  private:
    std::string _name;
    std::thread _thread;
};

}  // namespace tolm
