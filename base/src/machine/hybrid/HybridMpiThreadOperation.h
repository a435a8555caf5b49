#pragma once
#include <memory>

namespace tolm {

class HybridMachine;
class ThreadPolicyBase;

// An operation that runs, for a while, as one process per shared-memory group with as many
// threads as the group has processes (HybridMpiThreadContext::execute). The context asks it
// for its thread policy, then lets it execute on the reduced machine; inside `execute` the
// policy runs the threads, and only the calling thread communicates (over the machine's
// sparse communicator).
class HybridMpiThreadOperation {
  public:
    virtual ~HybridMpiThreadOperation();

    // The policy for `nThreads` workers, bound when `bindThreads`: a WorkerThreadPolicy
    // unless the operation chooses another.
    virtual std::unique_ptr<ThreadPolicyBase> createThreadPolicy(unsigned int nThreads,
                                                                 bool bindThreads);
    virtual void execute(const HybridMachine& machine) = 0;

  protected:
    // The policy the context made for the execution under way; InternalError outside one.
    ThreadPolicyBase& threadPolicy() const;

  private:
    friend class HybridMpiThreadContext;
    ThreadPolicyBase* _policy = nullptr;
};

}  // namespace tolm
