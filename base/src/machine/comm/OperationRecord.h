#pragma once
#include <atomic>
#include <cstdint>

namespace tolm {

// The communication operation the process is inside, kept for a watchdog on another thread.
// The communication path only stores a few words (relaxed stores and one release store, plain
// moves on common processors); the reader takes a consistent copy by reading the sequence
// number before and after the fields. The sequence is odd inside an operation. The record is
// one per process: only the main thread communicates.
class OperationRecord {
  public:
    struct Snapshot {
        const char* operation = nullptr;
        std::uint64_t bytes = 0;
        int peer = 0;  // negative for a collective or an operation without one peer
        int communicator = 0;
        std::uint64_t sequence = 0;
        bool inside() const { return sequence % 2 == 1; }
    };

    static void enter(const char* operation, std::uint64_t bytes, int peer,
                      int communicator) noexcept {
        _operation.store(operation, std::memory_order_relaxed);
        _bytes.store(bytes, std::memory_order_relaxed);
        _peer.store(peer, std::memory_order_relaxed);
        _communicator.store(communicator, std::memory_order_relaxed);
        _sequence.store(_sequence.load(std::memory_order_relaxed) + 1, std::memory_order_release);
    }
    static void leave() noexcept {
        _sequence.store(_sequence.load(std::memory_order_relaxed) + 1, std::memory_order_release);
    }
    // The current record; `sequence` is even when the process is not inside an operation.
    static Snapshot read() noexcept;

  private:
    static inline std::atomic<const char*> _operation{nullptr};
    static inline std::atomic<std::uint64_t> _bytes{0};
    static inline std::atomic<int> _peer{0};
    static inline std::atomic<int> _communicator{0};
    static inline std::atomic<std::uint64_t> _sequence{0};
};

}  // namespace tolm
