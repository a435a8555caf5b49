#pragma once
#include <chrono>
#include <condition_variable>
#include <mutex>

namespace tolm {

// The body of a long-running worker thread that another thread can ask to stop. The body
// polls `isInterrupted()` or sleeps with `sleepFor`, which returns early on an interrupt.
class InterruptableRunnable {
  public:
    virtual ~InterruptableRunnable() = default;
    virtual void run() = 0;

    void interrupt();
    bool isInterrupted() const;

  protected:
    // Sleeps for `duration`; false when interrupted before it passed.
    bool sleepFor(std::chrono::duration<double> duration);

  private:
    mutable std::mutex _mutex;
    std::condition_variable _wake;
    bool _interrupted = false;
};

}  // namespace tolm
