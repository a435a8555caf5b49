#pragma once
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "machine/CommunicatorBuffers.h"
#include "machine/ExitStatus.h"
#include "machine/MessageLimits.h"
#include "neo/Properties.h"

namespace tolm {

// One MPI communicator of the wrapper library: the only way the system moves data between
// processes. Every operation is checked before it reaches MPI: never to oneself, not while
// parallel work is locked out (serial-critical and performance-critical sections, field loops,
// non-distributed commands), only from the main thread, and never with a message larger than
// the communicator's maximum buffer size or the 32-bit count range.
//
// Errors: failed checks are InternalError, raised before MPI is touched; MPI failures are
// NonRecoverableError ("MPI Error : " and the wrapper's text).
class Communicator {
  public:
    // A message tag: below the wrapper's upper bound, or MpiCore::ANY_TAG when receiving.
    class Tag {
      public:
        Tag() = default;
        explicit Tag(int tag);
        int value() const { return _tag; }
        static int upper_bound();

      private:
        int _tag = 0;
    };

    // Told of every MPI call a communicator makes: the operation's name and byte count before
    // the call, the peer rank after it (-1 for collectives). Statistics are off while no
    // recorder is set.
    class StatisticsRecorder {
      public:
        virtual ~StatisticsRecorder() = default;
        virtual void open(const char* operation, std::uint64_t bytes) = 0;
        virtual void close(int peer) = 0;
    };
    static void setStatisticsRecorder(StatisticsRecorder* recorder) { _statistics = recorder; }

    // The world communicator.
    Communicator();
    virtual ~Communicator();
    Communicator(const Communicator&) = delete;
    Communicator& operator=(const Communicator&) = delete;

    unsigned int size() const { return _size; }
    unsigned int myRank() const { return _myRank; }
    // The processor name of this rank: the host it runs on.
    const std::string& myName() const { return _name; }
    static unsigned int masterRank() { return _master; }
    int handle() const { return _handle; }
    bool operator==(const Communicator& other) const { return _handle == other._handle; }

    // Collective: a communicator over `ranks` (in that order) for the processes among them,
    // an empty pointer for the others.
    std::unique_ptr<Communicator> createCommunicator(const std::vector<unsigned int>& ranks);
    // Collective: the processes that can share memory with this one.
    std::unique_ptr<Communicator> createSharedMemCommunicators();
    // Ends the whole job with the status's integer value as exit code.
    void abort(const ExitStatus& status);
    static constexpr std::chrono::milliseconds abortGraceTime{200};

    void setMaxBufferSize(std::uint64_t bytes);
    std::uint64_t getMaxBufferSize() const { return _maxBufferSize; }
    bool exceedsMaximumBufferSize(const std::uint64_t& bytes) const {
        return bytes > _maxBufferSize;
    }
    bool exceedsSizeLimits(const std::uint64_t& count, unsigned int elementSize) const;

    void enableCommunicationTimer(bool enable) { _timerEnabled = enable; }
    double getCommunicationTime() const { return _communicationTime; }

    void synchronise();

    // Broadcasts from `root` to every rank. A message too large for one MPI call is halved
    // until every piece fits.
    template <typename T>
    void broadcast(T* data, std::uint64_t count, unsigned int root);
    template <typename T>
    void broadcast(T& value, unsigned int root) {
        broadcast(&value, 1, root);
    }
    // The vector's length is broadcast first: the other ranks' vectors take the root's length.
    template <typename T>
    void broadcast(std::vector<T>& values, unsigned int root);
    void broadcast(std::string& text, unsigned int root);
    void broadcast(std::vector<std::string>& texts, unsigned int root);

    // Collectives. Every rank of the communicator calls the same operation in the same order.
    // The fixed-count gather, all-gather and scatter, and the vector forms with unsigned
    // counts, halve a message too large for one MPI call until every piece fits; the received
    // data are the same, byte for byte, as one call would give. The vector forms with
    // unsigned counts need the counts on every rank, since all ranks must split alike.
    using UnsignedCounts = std::vector<unsigned int>;
    using IntCounts = std::vector<int>;
    class CustomReductionBuffer;

    // `count` elements from each rank; at the root `recv` holds size() x count, rank by rank.
    template <typename T>
    void gather(const T* send, std::uint64_t count, T* recv, unsigned int root);
    // One value from each rank: at the root `recv` becomes size() long, elsewhere empty.
    template <typename T>
    void gather(const T& value, std::vector<T>& recv, unsigned int root);
    template <typename T>
    void allGather(const T* send, std::uint64_t count, T* recv);
    template <typename T>
    void allGather(const T& value, std::vector<T>& recv);
    template <typename T>
    void scatter(const T* send, std::uint64_t count, T* recv, unsigned int root);
    // Rank i's block lands at displacements[i] (default: the blocks one after another).
    template <typename T, typename SizeType>
    void gatherVector(const T* send, SizeType sendCount, T* recv,
                      const std::vector<SizeType>& counts,
                      const std::vector<SizeType>& displacements, unsigned int root);
    template <typename T>
    void allGatherVector(const T* send, unsigned int sendCount, T* recv,
                         const UnsignedCounts& counts, const UnsignedCounts& displacements);
    template <typename T, typename SizeType>
    void scatterVector(const T* send, const std::vector<SizeType>& counts,
                       const std::vector<SizeType>& displacements, T* recv, SizeType recvCount,
                       unsigned int root);
    template <typename T>
    void allToAll(const T* send, std::uint64_t count, T* recv);
    template <typename T>
    void allToAllVector(const T* send, const IntCounts& sendCounts, const IntCounts& sendDispl,
                        T* recv, const IntCounts& recvCounts, const IntCounts& recvDispl);
    // Reduces size() x recvCount elements with `op` and leaves block i on rank i.
    template <typename T>
    void reduceScatter(const T* send, T* recv, std::uint64_t recvCount, int op);
    // In place: `data` holds this rank's values and receives the result (at the root only
    // for reduce). `op` is a QMX_MPI_* operation.
    template <typename T>
    void reduce(T* data, std::uint64_t count, int op, unsigned int root);
    template <typename T>
    void allReduce(T* data, std::uint64_t count, int op);
    template <typename T>
    void allReduce(T& value, int op) {
        allReduce(&value, 1, op);
    }
    template <typename T>
    void scan(T* data, std::uint64_t count, int op);
    // Reductions of user records with a user function, in place.
    void reduce(CustomReductionBuffer& buffer, QMX_MPI_User_function* function, unsigned int root);
    void allReduce(CustomReductionBuffer& buffer, QMX_MPI_User_function* function);
    void scan(CustomReductionBuffer& buffer, QMX_MPI_User_function* function);
    // Every rank receives the union of all ranks' sets.
    void allGather(const std::set<std::string>& mine, std::set<std::string>& all);
    // The root receives every rank's text, in rank order; the others receive nothing.
    void gather(const std::string& mine, std::vector<std::string>& all, unsigned int root);
    // The master receives every rank's record, in rank order; the others receive nothing.
    void gather(const Properties& mine, std::vector<Properties>& all);

    // The same operations on untyped views.
    void gather(const ConstBufferBase<unsigned int>& send, const BufferBase<unsigned int>& recv,
                unsigned int root);
    void allGather(const ConstBufferBase<unsigned int>& send, const BufferBase<unsigned int>& recv);
    void scatter(const ConstBufferBase<unsigned int>& send, const BufferBase<unsigned int>& recv,
                 unsigned int root);
    void gatherVector(const ConstBufferBase<int>& send, const BufferBase<int>& recv,
                      const IntCounts& counts, const IntCounts& displacements, unsigned int root);
    void gatherVector(const ConstBufferBase<unsigned int>& send,
                      const BufferBase<unsigned int>& recv, const UnsignedCounts& counts,
                      const UnsignedCounts& displacements, unsigned int root);
    void allGatherVector(const ConstBufferBase<unsigned int>& send,
                         const BufferBase<unsigned int>& recv, const UnsignedCounts& counts,
                         const UnsignedCounts& displacements);
    void scatterVector(const ConstBufferBase<int>& send, const IntCounts& counts,
                       const IntCounts& displacements, const BufferBase<int>& recv,
                       unsigned int root);
    void scatterVector(const ConstBufferBase<unsigned int>& send, const UnsignedCounts& counts,
                       const UnsignedCounts& displacements, const BufferBase<unsigned int>& recv,
                       unsigned int root);
    void allToAll(const ConstBufferBase<int>& send, const BufferBase<int>& recv);
    void allToAllVector(const ConstBufferBase<int>& send, const IntCounts& sendCounts,
                        const IntCounts& sendDispl, const BufferBase<int>& recv,
                        const IntCounts& recvCounts, const IntCounts& recvDispl);
    void reduceScatter(const ConstBufferBase<int>& send, const BufferBase<int>& recv, int op);
    void _reduce(const BufferBase<int>& buffer, int op, unsigned int root);
    void _allReduce(const BufferBase<int>& buffer, int op);
    void _scan(const BufferBase<int>& buffer, int op);

    // Count and displacement arithmetic of the vector forms.
    void getDefaultDisplacements(const UnsignedCounts& counts, UnsignedCounts& displacements) const;
    void addStrideLength(const UnsignedCounts& counts, UnsignedCounts& out,
                         unsigned int stride) const;
    void addStrideLength(const UnsignedCounts& counts, const UnsignedCounts& displacements,
                         UnsignedCounts& outCounts, UnsignedCounts& outDisplacements,
                         unsigned int stride) const;
    void subtractStrideLength(const UnsignedCounts& counts, UnsignedCounts& out,
                              unsigned int stride) const;

    // Raises when communicating is not allowed here (see the class comment).
    static void checkSerialCriticalLock();

    static const char* _oversizedMessageString;
    static const char* _oversizedMessageHint;

  private:
    explicit Communicator(const int& handle);

    void broadcastBuffer(const BufferBase<unsigned int>& buffer, unsigned int root);
    // Pieces of split gathers: `count` elements per rank from element `offset` of each rank's
    // block of `stride` elements.
    void gatherPiece(const ConstBufferBase<unsigned int>& send,
                     const BufferBase<unsigned int>& recv, unsigned int stride, unsigned int offset,
                     unsigned int count, unsigned int root);
    void allGatherPiece(const ConstBufferBase<unsigned int>& send,
                        const BufferBase<unsigned int>& recv, unsigned int stride,
                        unsigned int offset, unsigned int count);
    void scatterPiece(const ConstBufferBase<unsigned int>& send,
                      const BufferBase<unsigned int>& recv, unsigned int stride,
                      unsigned int offset, unsigned int count, unsigned int root);
    // Whether `count` elements per rank, size() ranks in all, fit one call; throws when they do
    // not and cannot be halved any further.
    bool fitsOneCall(std::uint64_t totalCount, unsigned int elementSize, unsigned int count) const;
    template <typename Counts>
    void checkRecvCounts(const Counts& counts) const;
    // Runs `reduction` with a wrapper operation made from `function`, freed afterwards.
    void userReduction(QMX_MPI_User_function* function,
                       const std::function<void(int op)>& reduction);
    // Runs one wrapper call with the checks and bookkeeping every operation shares.
    template <typename WrapperCall>
    void communicate(const char* operation, std::uint64_t bytes, int peer, WrapperCall&& call);

    int _handle;
    int _group = 0;
    unsigned int _size = 0;
    unsigned int _myRank = 0;
    std::uint64_t _maxBufferSize = 0;
    double _communicationTime = 0.0;
    bool _timerEnabled = false;
    std::string _name;

    static unsigned int _master;
    static inline StatisticsRecorder* _statistics = nullptr;
};

}  // namespace tolm

#include "machine/CommunicatorCollectives.h"

namespace tolm {

template <typename T>
void Communicator::broadcast(T* data, std::uint64_t count, unsigned int root) {
    const std::uint64_t elements = elementsOf<T>(count);
    broadcastBuffer(
        {data, MessageLimits::toUnsigned(elements), MpiDatatype<T>::value, elementSizeOf<T>()},
        root);
}

template <typename T>
void Communicator::broadcast(std::vector<T>& values, unsigned int root) {
    std::uint64_t length = values.size();
    broadcast(length, root);
    values.resize(length);
    broadcast(values.data(), length, root);
}

}  // namespace tolm
