#pragma once
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "machine/comm/CommunicationLocks.h"
#include "machine/comm/CommunicatorBuffers.h"
#include "machine/comm/MessageLimits.h"
#include "machine/comm/MpiCore.h"
#include "machine/core/ExitStatus.h"
#include "neo/Properties.h"
#include "platform/Thread.h"

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
        Tag() : _tag(0) {}
        explicit Tag(int tag);
        int value() const { return _tag; }
        static int upper_bound();

      private:
        int _tag;
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
    static StatisticsRecorder* getStatisticsRecorder() { return _statistics; }

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
    // Collective: a communicator over the same processes whose messages and collectives never
    // match this one's.
    std::unique_ptr<Communicator> duplicate();
    // Ends the whole job with the status's integer value as exit code.
    void abort(const ExitStatus& status);
    static constexpr std::chrono::milliseconds abortGraceTime{200};

    void setMaxBufferSize(std::uint64_t bytes);
    std::uint64_t getMaxBufferSize() const { return _maxBufferSize; }
    bool exceedsMaximumBufferSize(const std::uint64_t& bytes) const {
        return bytes > _maxBufferSize;
    }
    bool exceedsSizeLimits(const std::uint64_t& count, unsigned int elementSize) const {
        return count * elementSize > _maxBufferSize || count > MessageLimits::maxIntCount;
    }

    void enableCommunicationTimer(bool enable) { _timerEnabled = enable; }
    double getCommunicationTime() const { return _communicationTime; }

    // Point-to-point. A peer is a rank of this communicator other than one's own: sending to
    // or receiving from oneself is an InternalError, raised before anything else. Counts are
    // numbers of values of T, passed to MPI as they are (never split), so they must fit its
    // int count. Operations without a tag use the default tag, 0. The non-blocking ones add
    // their request to a stack, completed through wait or test below; their data must stay in
    // place until then.
    template <typename T>
    void send(const T* data, std::uint64_t count, unsigned int dest, Tag tag = _defaultTag) {
        sendBuffer(constBufferOf(data, count), dest, tag);
    }
    template <typename T>
    void send(const T& value, unsigned int dest, Tag tag = _defaultTag) {
        send(&value, 1, dest, tag);
    }
    template <typename T>
    void send(const std::vector<T>& values, unsigned int dest, Tag tag = _defaultTag) {
        send(values.data(), values.size(), dest, tag);
    }
    void send(const std::string& text, unsigned int dest, Tag tag = _defaultTag) {
        send(text.data(), text.size(), dest, tag);
    }
    // Returns once the receiver has started to receive.
    template <typename T>
    void syncSend(const T* data, std::uint64_t count, unsigned int dest, Tag tag = _defaultTag) {
        syncSendBuffer(constBufferOf(data, count), dest, tag);
    }
    template <typename T>
    void syncSend(const T& value, unsigned int dest, Tag tag = _defaultTag) {
        syncSend(&value, 1, dest, tag);
    }
    template <typename T>
    void syncSend(const std::vector<T>& values, unsigned int dest, Tag tag = _defaultTag) {
        syncSend(values.data(), values.size(), dest, tag);
    }
    void syncSend(const std::string& text, unsigned int dest, Tag tag = _defaultTag) {
        syncSend(text.data(), text.size(), dest, tag);
    }
    template <typename T>
    void iSend(const T* data, std::uint64_t count, unsigned int dest,
               MpiCore::RequestStack& requests, Tag tag = _defaultTag) {
        iSendBuffer(constBufferOf(data, count), dest, tag, requests);
    }
    template <typename T>
    void iSend(const std::vector<T>& values, unsigned int dest, MpiCore::RequestStack& requests,
               Tag tag = _defaultTag) {
        iSend(values.data(), values.size(), dest, requests, tag);
    }
    template <typename T>  // a temporary would be gone before the send completes
    void iSend(const std::vector<T>&&, unsigned int, MpiCore::RequestStack&, Tag = {}) = delete;
    template <typename T>
    void iSyncSend(const T* data, std::uint64_t count, unsigned int dest,
                   MpiCore::RequestStack& requests, Tag tag = _defaultTag) {
        iSyncSendBuffer(constBufferOf(data, count), dest, tag, requests);
    }

    template <typename T>
    void recv(T* data, std::uint64_t count, unsigned int source, Tag tag = _defaultTag) {
        recvBuffer(bufferOf(data, count), source, tag);
    }
    template <typename T>
    void recv(T& value, unsigned int source, Tag tag = _defaultTag) {
        recv(&value, 1, source, tag);
    }
    // The vector and the text take the length of the message, which is probed first.
    template <typename T>
    void recv(std::vector<T>& values, unsigned int source, Tag tag = _defaultTag) {
        int from = static_cast<int>(source);
        values.resize(probeToRecv<T>(from, tag));
        recv(values.data(), values.size(), source, tag);
    }
    void recv(std::string& text, unsigned int source, Tag tag = _defaultTag) {
        int from = static_cast<int>(source);
        text.resize(probeToRecv<char>(from, tag));
        recv(text.data(), text.size(), source, tag);
    }
    template <typename T>
    void iRecv(T* data, std::uint64_t count, unsigned int source, MpiCore::RequestStack& requests,
               Tag tag = _defaultTag) {
        iRecvBuffer(bufferOf(data, count), source, tag, requests);
    }
    // Receives `values.size()` values.
    template <typename T>
    void iRecv(std::vector<T>& values, unsigned int source, MpiCore::RequestStack& requests,
               Tag tag = _defaultTag) {
        iRecv(values.data(), values.size(), source, requests, tag);
    }
    // A persistent receive, armed by start() and re-armed after each completion.
    template <typename T>
    void recvInit(T* data, std::uint64_t count, unsigned int source,
                  MpiCore::PersistentRequestStack& requests, Tag tag = _defaultTag) {
        recvInitBuffer(bufferOf(data, count), source, tag, requests);
    }
    // Receives from whichever rank sends first; `source` becomes the sender.
    template <typename T>
    void recvFromAny(T* data, std::uint64_t count, unsigned int& source, Tag tag = _defaultTag) {
        recvFromAnyBuffer(bufferOf(data, count), source, tag);
    }
    template <typename T>
    void recvFromAny(T& value, unsigned int& source, Tag tag = _defaultTag) {
        recvFromAny(&value, 1, source, tag);
    }
    template <typename T>
    void recvFromAny(std::vector<T>& values, unsigned int& source, Tag tag = _defaultTag) {
        int from = MpiCore::ANY_SOURCE;
        values.resize(probe<T>(from, tag));
        source = static_cast<unsigned int>(from);
        recv(values.data(), values.size(), source, tag);
    }
    // The senders are told by wait(requests, sources).
    template <typename T>
    void iRecvFromAny(T* data, std::uint64_t count, MpiCore::RequestStack& requests,
                      Tag tag = _defaultTag) {
        iRecvFromAnyBuffer(bufferOf(data, count), tag, requests);
    }
    // Sends to `dest` and receives from `source` at once, both with `tag`. Sent and received
    // values must be of one MPI type.
    template <typename S, typename R>
    void sendrecv(const S* sendData, std::uint64_t sendCount, unsigned int dest, R* recvData,
                  std::uint64_t recvCount, unsigned int source, Tag tag = _defaultTag) {
        sendrecvBuffer(constBufferOf(sendData, sendCount), dest, bufferOf(recvData, recvCount),
                       source, tag);
    }
    // Receives `recvValues.size()` values.
    template <typename S, typename R>
    void sendrecv(const std::vector<S>& sendValues, unsigned int dest, std::vector<R>& recvValues,
                  unsigned int source, Tag tag = _defaultTag) {
        sendrecv(sendValues.data(), sendValues.size(), dest, recvValues.data(), recvValues.size(),
                 source, tag);
    }

    // Waits for a message from `source` (a rank or MpiCore::ANY_SOURCE) with `tag` (or a Tag of
    // MpiCore::ANY_TAG) without receiving it; then `source` and `tag` are the message's, and
    // the result its length in values of T.
    template <typename T>
    std::uint64_t probe(int& source, Tag& tag) {
        int found = MpiCore::ANY_TAG;
        int count = 0;
        _probe(source, found, tag.value(), MpiDatatype<T>::value, count);
        tag = Tag(found);
        return valuesIn(count, elementsOf<T>(1));
    }
    // As probe when a message is there; false at once otherwise, and nothing changes.
    template <typename T>
    bool iProbe(int& source, Tag& tag, std::uint64_t& count) {
        int found = MpiCore::ANY_TAG;
        int elements = 0;
        if (!_iProbe(source, found, tag.value(), MpiDatatype<T>::value, elements))
            return false;
        tag = Tag(found);
        count = valuesIn(elements, elementsOf<T>(1));
        return true;
    }

    // The request stacks' completions, with the checks of every operation.
    void wait(MpiCore::RequestStack& requests);
    // As wait, and the source rank of each request, in stack order.
    void wait(MpiCore::RequestStack& requests, std::vector<unsigned int>& sources);
    bool test(MpiCore::RequestStack& requests);
    void start(MpiCore::PersistentRequestStack& requests);
    void freeRequest(MpiCore::RequestStack& requests);

    void synchronise();
    // A barrier over a tree of the ranks that polls for spinTime seconds, then sleeps between
    // polls, so that waiting ranks leave the processor to others.
    void noSpinSynchronise(double spinTime);

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

    // Raises when communicating is not allowed here (see the class comment). Inline: every
    // operation asks, and the answer is nearly always that all is well.
    static void checkSerialCriticalLock() {
        if (!CommunicationLocks::allowed())
            CommunicationLocks::reportLockedOut();
    }

    static const char* _oversizedMessageString;
    static const char* _oversizedMessageHint;

  private:
    explicit Communicator(const int& handle);

    void broadcastBuffer(const BufferBase<unsigned int>& buffer, unsigned int root);
    // A broadcast too large for one call, as two of half the size each.
    void broadcastInHalves(const BufferBase<unsigned int>& buffer, unsigned int root);
    // What the statistics record as the peer of a collective.
    static constexpr int collectivePeer = -1;
    // Calls `piece(offset, count)` over the `count` elements per rank, cut in halves until each
    // piece fits one call: the split gathers' and scatter's one rule of cutting.
    template <typename Piece>
    void inFittingPieces(unsigned int count, unsigned int elementSize, const Piece& piece,
                         unsigned int offset = 0) const;
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
    // The same with the communication timer or the statistics recorder on; kept out of line so
    // that the unmeasured call stays small.
    template <typename WrapperCall>
    [[gnu::noinline]] void communicateMeasured(const char* operation, std::uint64_t bytes, int peer,
                                               WrapperCall&& call);

    // Point-to-point: the untyped forms behind the typed ones, and the views these build.
    template <typename T>
    static BufferBase<int> bufferOf(T* data, std::uint64_t count) {
        static_assert(!std::is_pointer_v<T>, "an address means nothing in another process");
        return {data, MessageLimits::toInt(elementsOf<T>(count)), MpiDatatype<T>::value,
                elementSizeOf<T>()};
    }
    template <typename T>
    static ConstBufferBase<int> constBufferOf(const T* data, std::uint64_t count) {
        static_assert(!std::is_pointer_v<T>, "an address means nothing in another process");
        return {data, MessageLimits::toInt(elementsOf<T>(count)), MpiDatatype<T>::value,
                elementSizeOf<T>()};
    }
    // Probes the message a receive from `source` with `tag` would take: source and tag become
    // the message's; returns its length in values of T.
    template <typename T>
    std::uint64_t probeToRecv(int& source, Tag& tag) {
        checkRecvPeer(source);
        return probe<T>(source, tag);
    }
    // A duplicate of this communicator for the library's own point-to-point traffic inside
    // collectives, which no user message can match.
    Communicator& recordChannel();
    // A text sent over the record channel as messages of at most this communicator's buffer
    // limit each; the receiver knows its length.
    void sendInPieces(const std::string& text, unsigned int dest);
    void recvInPieces(std::string& text, std::uint64_t length, unsigned int source);
    void checkSendPeer(unsigned int dest) const {
        if (dest == _myRank)
            refuseSendToSelf();
    }
    void checkRecvPeer(int source) const {
        if (source == static_cast<int>(_myRank))
            refuseRecvFromSelf();
    }
    [[noreturn]] static void refuseSendToSelf();
    [[noreturn]] static void refuseRecvFromSelf();
    void sendBuffer(const ConstBufferBase<int>& buffer, unsigned int dest, Tag tag);
    void syncSendBuffer(const ConstBufferBase<int>& buffer, unsigned int dest, Tag tag);
    void iSendBuffer(const ConstBufferBase<int>& buffer, unsigned int dest, Tag tag,
                     MpiCore::RequestStack& requests);
    void iSyncSendBuffer(const ConstBufferBase<int>& buffer, unsigned int dest, Tag tag,
                         MpiCore::RequestStack& requests);
    void recvBuffer(const BufferBase<int>& buffer, unsigned int source, Tag tag);
    void iRecvBuffer(const BufferBase<int>& buffer, unsigned int source, Tag tag,
                     MpiCore::RequestStack& requests);
    void recvInitBuffer(const BufferBase<int>& buffer, unsigned int source, Tag tag,
                        MpiCore::PersistentRequestStack& requests);
    void recvFromAnyBuffer(const BufferBase<int>& buffer, unsigned int& source, Tag tag);
    void iRecvFromAnyBuffer(const BufferBase<int>& buffer, Tag tag,
                            MpiCore::RequestStack& requests);
    void sendrecvBuffer(const ConstBufferBase<int>& sendbuf, unsigned int dest,
                        const BufferBase<int>& recvbuf, unsigned int source, Tag tag);
    // status: null when the call ignored it.
    static void checkStatus(int err, const QMX_MPI_Status_struct* status);
    void receive(const char* operation, const BufferBase<int>& buffer, int source, Tag tag,
                 QMX_MPI_Status_struct* status);
    void _probe(int& source, int& tag, const int& wantedTag, int datatype, int& count);
    bool _iProbe(int& source, int& tag, const int& wantedTag, int datatype, int& count);
    static std::uint64_t valuesIn(int elements, std::uint64_t elementsPerValue);

    int _handle;
    int _group = 0;
    unsigned int _size = 0;
    unsigned int _myRank = 0;
    std::uint64_t _maxBufferSize = 0;
    std::unique_ptr<Communicator> _recordChannel;
    double _communicationTime = 0.0;
    bool _timerEnabled = false;
    std::string _name;

    static unsigned int _master;
    static const Tag _defaultTag;
    static inline StatisticsRecorder* _statistics = nullptr;
};

}  // namespace tolm

#include "machine/comm/CommunicatorCall.h"
#include "machine/comm/CommunicatorCollectives.h"

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
