#pragma once
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "machine/topology/AffinityMask.h"

namespace tolm {

class CpuTopology;
class ThreadBinder;

// How a hybrid operation (HybridMpiThreadOperation) spreads its work over threads: a fixed
// number of workers that `run` hands the same function, each with its own thread index. The
// operation creates its policy when its context asks; the context places the workers on the
// processors of the shared-memory group (setThreadAffinity) when threads are bound, and reads
// the binding report afterwards.
//
// Errors: the first exception a worker's function throws is rethrown by `run` on the calling
// thread, once every worker has finished. One thread calls `run` at a time.
class ThreadPolicyBase {
  public:
    struct Configuration {
        // Workers' thread names start with it (debuggers show at most 15 characters).
        std::string threadName = "hybrid";
    };

    ThreadPolicyBase(unsigned int nThreads, bool bindThreads);
    ThreadPolicyBase(unsigned int nThreads, bool bindThreads, Configuration configuration);
    virtual ~ThreadPolicyBase();
    ThreadPolicyBase(const ThreadPolicyBase&) = delete;
    ThreadPolicyBase& operator=(const ThreadPolicyBase&) = delete;

    unsigned int getNumberThreads() const { return _nThreads; }
    bool bindsThreads() const { return _bindThreads; }
    const Configuration& getConfiguration() const { return _configuration; }

    // Gives every worker an LPU of `processMask`, spread over NUMA nodes and then cores; each
    // binds itself when it starts. Without it, or when the policy does not bind, workers run
    // wherever the process may. Call before the first `run`.
    void setThreadAffinity(const CpuTopology& topology, const AffinityMask& processMask);
    // Runs body(thread) for every thread index 0 .. getNumberThreads() - 1, one per worker, and
    // returns when all have returned.
    virtual void run(const std::function<void(unsigned int thread)>& body) = 0;
    // "thread 0 -> LPU 2, thread 1 -> LPU 3"; a worker not bound (yet) shows "unbound".
    std::string getBindingReport() const;

  protected:
    // Called by worker `thread` on itself, once, before its first function.
    void bindWorker(unsigned int thread);

  private:
    unsigned int _nThreads;
    bool _bindThreads;
    Configuration _configuration;
    std::unique_ptr<ThreadBinder> _binder;
    // Per worker, written by that worker before its first function returns: its LPU, or -1.
    std::vector<int> _boundLpus;
};

}  // namespace tolm
