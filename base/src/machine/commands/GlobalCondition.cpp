#include "machine/commands/GlobalCondition.h"

#include "machine/comm/Communicator.h"
#include "machine/core/Machine.h"
#include "machine/core/ParallelPerformanceCritical.h"
#include "neo/InternalError.h"
#include "neo/TolmVersion.h"

namespace tolm {
namespace {

// How many ranks hold the condition.
unsigned int trueRanks(bool condition, Communicator& over) {
    int count = condition ? 1 : 0;
    over.allReduce(count, QMX_MPI_SUM);
    return static_cast<unsigned int>(count);
}

void checkInvariant(bool condition, Communicator& over) {
    if (!Machine::getSingleton().hasDevErrorChecking() ||
        Machine::nProcesses() >= GlobalCondition::invariantCheckLimit) {
        return;
    }
    const Machine::ParallelPerformanceCritical::Exemption exemption;
    const unsigned int trueCount = trueRanks(condition, over);
    TOLM_ASSERT(trueCount == 0 || trueCount == Machine::nProcesses(),
                "Invalid use of ON_ALL_INVARIANT; conditions differ");
}

}  // namespace

GlobalCondition::GlobalCondition(bool condition, ModeEnum mode)
    : _value(computeCollectiveCondition(condition, mode, nullptr)) {}

GlobalCondition::GlobalCondition(bool condition, ModeEnum mode, Communicator& over)
    : _value(computeCollectiveCondition(condition, mode, &over)) {}

bool GlobalCondition::computeCollectiveCondition(bool condition, ModeEnum mode,
                                                 Communicator* over) {
    if (Machine::getSerialCriticalLock() != 0 &&
        (TolmVersion::isDevelopmentVersion() || !Machine::isSerial())) {
        throw InternalError("Coding error: GlobalCondition attempted in a serial-critical code "
                            "section",
                            "! _serialCriticalLock", __FILE__, __LINE__);
    }
    Machine::getSingleton();
    if (Machine::isSerial()) return condition;
    Communicator& processes = over ? *over : *Machine::globalCommunicator();
    switch (mode) {
        case ON_ALL: return trueRanks(condition, processes) == Machine::nProcesses();
        case ON_ANY: return trueRanks(condition, processes) > 0;
        case ON_MASTER: {
            char value = condition ? 1 : 0;
            processes.broadcast(value, Communicator::masterRank());
            return value != 0;
        }
        case ON_ALL_INVARIANT: checkInvariant(condition, processes); return condition;
    }
    TOLM_ASSERT(false, "Unknown GlobalCondition mode " + std::to_string(int(mode)));
    return condition;
}

}  // namespace tolm
