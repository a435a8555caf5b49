#pragma once
#include <condition_variable>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "machine/hybrid/ThreadPolicyBase.h"
#include "platform/Thread.h"

namespace tolm {

// The thread policy of hybrid operations: as many worker threads as the policy's thread count,
// started at the first `run` and kept until the policy goes, so that an operation may run
// several steps without starting threads again. Workers wait on a condition variable between
// steps, and so does the calling thread while they work: no thread spins.
class WorkerThreadPolicy : public ThreadPolicyBase {
  public:
    using ThreadPolicyBase::ThreadPolicyBase;
    ~WorkerThreadPolicy() override;

    void run(const std::function<void(unsigned int thread)>& body) override;

  private:
    void start();
    void work(unsigned int thread);

    std::vector<std::unique_ptr<Thread>> _workers;
    std::mutex _mutex;
    std::condition_variable _changed;
    const std::function<void(unsigned int)>* _body = nullptr;
    unsigned long _step = 0;  // raised for every run; workers run each step once
    unsigned int _busy = 0;   // workers still in the current step
    bool _stopping = false;
    std::exception_ptr _failure;
};

}  // namespace tolm
