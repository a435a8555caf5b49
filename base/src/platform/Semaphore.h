#pragma once
#include <chrono>
#include <condition_variable>
#include <mutex>

namespace tolm {

// A counting semaphore whose wait can time out.
class Semaphore {
  public:
    explicit Semaphore(unsigned initialCount = 0) : _count(initialCount) {}

    void post();
    void wait();
    // False when `timeout` passed without a post.
    bool waitFor(std::chrono::duration<double> timeout);

  private:
    std::mutex _mutex;
    std::condition_variable _posted;
    unsigned _count;
};

}  // namespace tolm
