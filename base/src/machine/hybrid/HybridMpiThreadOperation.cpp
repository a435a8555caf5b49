#include "machine/hybrid/HybridMpiThreadOperation.h"

#include "machine/hybrid/WorkerThreadPolicy.h"
#include "neo/InternalError.h"

namespace tolm {

HybridMpiThreadOperation::~HybridMpiThreadOperation() = default;

std::unique_ptr<ThreadPolicyBase> HybridMpiThreadOperation::createThreadPolicy(
    unsigned int nThreads, bool bindThreads) {
    return std::make_unique<WorkerThreadPolicy>(nThreads, bindThreads);
}

ThreadPolicyBase& HybridMpiThreadOperation::threadPolicy() const {
    TOLM_ASSERT(_policy, "No thread policy outside HybridMpiThreadContext::execute");
    return *_policy;
}

}  // namespace tolm
