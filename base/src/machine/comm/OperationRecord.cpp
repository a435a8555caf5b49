#include "machine/comm/OperationRecord.h"

namespace tolm {

OperationRecord::Snapshot OperationRecord::read() noexcept {
    Snapshot copy;
    for (;;) {
        copy.sequence = _sequence.load(std::memory_order_acquire);
        copy.operation = _operation.load(std::memory_order_relaxed);
        copy.bytes = _bytes.load(std::memory_order_relaxed);
        copy.peer = _peer.load(std::memory_order_relaxed);
        copy.communicator = _communicator.load(std::memory_order_relaxed);
        std::atomic_thread_fence(std::memory_order_acquire);
        if (_sequence.load(std::memory_order_relaxed) == copy.sequence)
            return copy;
    }
}

}  // namespace tolm
