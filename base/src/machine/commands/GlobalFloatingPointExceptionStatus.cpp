#include "machine/commands/GlobalFloatingPointExceptionStatus.h"

#include "machine/commands/GlobalFloatingPointError.h"
#include "machine/commands/IsolatedFpuContext.h"
#include "neo/SignalHandler.h"
#include "platform/FpuHandling.h"

namespace tolm {

bool GlobalFloatingPointExceptionStatus::statusIsReadable() {
    return !IsolatedFpuContext::isActive() && !SignalHandler::_catchFpeSignals;
}

void GlobalFloatingPointExceptionStatus::TestAndSaveLocalContext(const char* context) {
    if (!statusIsReadable() || FpuHandling::isFpeStatusClear()) return;
    std::string text = FpuHandling::getFpeStatusAsString();
    text += context ? std::string(", context: ") + context
                    : std::string(", the specific cause cannot be identified");
    FpuHandling::clearFpeStatus();
    GlobalFloatingPointError::logError(text);
}

void GlobalFloatingPointExceptionStatus::TestAndSaveLocalContext(const std::string& context) {
    TestAndSaveLocalContext(context.c_str());
}

void GlobalFloatingPointExceptionStatus::AssertNoException(AssertNoFpeAccessKey,
                                                           Communicator* over) {
    if (statusIsReadable() && !FpuHandling::isFpeStatusClear()) {
        GlobalFloatingPointError::logError(FpuHandling::getFpeStatusAsString() +
                                           ", the specific cause cannot be identified");
        FpuHandling::clearFpeStatus();
    }
    GlobalFloatingPointError::assertNoError(over);
}

}  // namespace tolm
