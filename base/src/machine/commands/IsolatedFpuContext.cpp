#include "machine/commands/IsolatedFpuContext.h"

#include "platform/FpuHandling.h"

namespace tolm {

IsolatedFpuContext::IsolatedFpuContext() : _statusWasClear(FpuHandling::isFpeStatusClear()) {
    ++_depth;
}

IsolatedFpuContext::~IsolatedFpuContext() {
    --_depth;
    // What was raised before the context stays raised; what the context raised goes.
    if (_statusWasClear) FpuHandling::clearFpeStatus();
}

}  // namespace tolm
