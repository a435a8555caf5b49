#pragma once
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "machine/CommunicatorBuffers.h"
#include "machine/ExitStatus.h"
#include "machine/MessageLimits.h"

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

    // Raises when communicating is not allowed here (see the class comment).
    static void checkSerialCriticalLock();

    static const char* _oversizedMessageString;
    static const char* _oversizedMessageHint;

  private:
    explicit Communicator(const int& handle);

    void broadcastBuffer(const BufferBase<unsigned int>& buffer, unsigned int root);
    // Runs one wrapper call with the checks and bookkeeping every operation shares.
    template <typename WrapperCall>
    void communicate(const char* operation, std::uint64_t bytes, int peer, WrapperCall&& call);

    // Temporary, until the collectives arrive: the two that Timer's statistics call, with the
    // collectives' own signatures (TimerReductions.cpp). Delete this block and that file then.
    friend class Timer;
    template <typename T>
    void allReduce(T* data, std::uint64_t count, int op);
    template <typename T>
    void gather(const T* send, std::uint64_t count, T* recv, unsigned int root);

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
