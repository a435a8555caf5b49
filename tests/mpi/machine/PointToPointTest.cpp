#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "CommunicatorTesting.h"
#include "machine/comm/PersistentRequestStack.h"
#include "machine/comm/RequestStack.h"
#include "machine/core/SerialCritical.h"

namespace tolm {
namespace {

using mpitest::CallCounter;
using mpitest::failureOf;
using mpitest::rank;
using mpitest::size;
using mpitest::world;

unsigned int next() {
    return (rank() + 1) % size();
}
unsigned int previous() {
    return (rank() + size() - 1) % size();
}

// A record that travels as bytes.
struct Sample {
    int rank;
    double value;
    char label;
    bool operator==(const Sample&) const = default;
};

Sample sampleOf(unsigned int r) {
    return {int(r), 0.5 + r, char('a' + r)};
}

std::vector<double> payloadOf(unsigned int r) {
    std::vector<double> values(r + 2);
    for (std::size_t i = 0; i < values.size(); ++i)
        values[i] = r * 1000.0 + double(i);
    return values;
}

const char* const sendToSelf = "Cannot send to self | dest!=_myRank";
const char* const recvFromSelf = "Cannot recv from self | source!=_myRank";

TEST(PointToPoint, SelfIsRefusedBeforeAnythingElse) {
    // Inside a serial-critical section: the self check must still come first.
    Machine::SerialCritical locked;
    const unsigned int me = rank();
    double value = 1.0;
    std::vector<double> values(3, 1.0);
    MpiCore::RequestStack requests;
    MpiCore::PersistentRequestStack persistent;
    EXPECT_EQ(failureOf([&] { world().send(value, me); }), sendToSelf);
    EXPECT_EQ(failureOf([&] { world().syncSend(values, me); }), sendToSelf);
    EXPECT_EQ(failureOf([&] { world().iSend(values, me, requests); }), sendToSelf);
    EXPECT_EQ(failureOf([&] { world().iSyncSend(&value, 1, me, requests); }), sendToSelf);
    EXPECT_EQ(failureOf([&] { world().recv(value, me); }), recvFromSelf);
    EXPECT_EQ(failureOf([&] { world().recv(values, me); }), recvFromSelf) << "probed first";
    EXPECT_EQ(failureOf([&] { world().iRecv(values, me, requests); }), recvFromSelf);
    EXPECT_EQ(failureOf([&] { world().recvInit(&value, 1, me, persistent); }), recvFromSelf);
    const std::string sendrecvSelf =
        "Cannot sendrecv to/from self | dest!=_myRank && source!=_myRank";
    EXPECT_EQ(failureOf([&] { world().sendrecv(&value, 1, me, &value, 1, next()); }), sendrecvSelf);
    EXPECT_EQ(failureOf([&] { world().sendrecv(&value, 1, next(), &value, 1, me); }), sendrecvSelf);
    EXPECT_TRUE(requests.empty());
    EXPECT_TRUE(persistent.empty());
}

TEST(PointToPoint, LockedOutOperationsFailBeforeMpi) {
    Machine::SerialCritical locked;
    const std::string lockedOut = "Parallel is explicitly locked | ! _serialCriticalLock";
    int value = 0;
    unsigned int sender = 0;
    MpiCore::RequestStack requests;
    MpiCore::PersistentRequestStack persistent;
    // Any-source receives have no self check: they stop at the lock, not in MPI.
    EXPECT_EQ(failureOf([&] { world().recvFromAny(value, sender); }), lockedOut);
    EXPECT_EQ(failureOf([&] { world().iRecvFromAny(&value, 1, requests); }), lockedOut);
    int source = MpiCore::ANY_SOURCE;
    Communicator::Tag tag(MpiCore::ANY_TAG);
    EXPECT_EQ(failureOf([&] { world().probe<int>(source, tag); }), lockedOut);
    EXPECT_EQ(failureOf([&] { world().wait(requests); }), lockedOut);
    EXPECT_EQ(failureOf([&] { world().test(requests); }), lockedOut);
    EXPECT_EQ(failureOf([&] { world().start(persistent); }), lockedOut);
    EXPECT_EQ(failureOf([&] { world().freeRequest(requests); }), lockedOut);
    EXPECT_EQ(failureOf([&] { world().noSpinSynchronise(0.0); }), lockedOut);
    EXPECT_EQ(failureOf([&] { world().synchronise(); }), lockedOut);
    EXPECT_TRUE(requests.empty());
}

TEST(PointToPoint, SendrecvChecksTypesBeforePeers) {
    int whole = 0;
    double real = 0.0;
    const unsigned int me = rank();
    EXPECT_EQ(failureOf([&] { world().sendrecv(&whole, 1, me, &real, 1, me); }),
              "Communicator::sendrecv | sendbuf.type == recvbuf.type");
}

TEST(PointToPoint, TagsOutsideTheWrapperBoundsAreRefused) {
    const std::string outOfBounds =
        "out_of_bounds Communicator Tag | tag < upper_bound() || tag == MpiCore::ANY_TAG";
    const int bound = Communicator::Tag::upper_bound();
    EXPECT_EQ(failureOf([&] { Communicator::Tag{bound}; }), outOfBounds);
    EXPECT_EQ(Communicator::Tag(MpiCore::ANY_TAG).value(), MpiCore::ANY_TAG);

    // The largest tag carries a message, and a probe for any tag reports it.
    if (size() == 1)
        return;
    const Communicator::Tag largest(bound - 1);
    const int sent = int(rank()) * 3 + 1;
    world().send(sent, next(), largest);
    int source = int(previous());
    Communicator::Tag tag(MpiCore::ANY_TAG);
    EXPECT_EQ(world().probe<int>(source, tag), 1u);
    EXPECT_EQ(tag.value(), bound - 1);
    int received = -1;
    world().recv(received, previous(), tag);
    EXPECT_EQ(received, int(previous()) * 3 + 1);
}

TEST(PointToPoint, OversizedCountsAreRefusedBeforeMpi) {
    // Records travel as bytes: 2^28 records are more bytes than an int counts.
    const Sample* nowhere = nullptr;
    EXPECT_EQ(failureOf([&] { world().send(nowhere, std::uint64_t(1) << 28, next()); }),
              "Invalid integer cast.\n"
              "An oversized message size or displacement has been detected.\n"
              "Oversized messages may imply too few parallel processes are being used.\n"
              "Actual value = " +
                  std::to_string(std::uint64_t(sizeof(Sample)) << 28) +
                  "\n"
                  "Max value = 2147483647 | false");
}

// Rank 0 starts a chain around the ring; every other rank receives from its predecessor
// before it sends, so even synchronous sends cannot deadlock.
void aroundTheRing(const std::function<void()>& sendToNext,
                   const std::function<void()>& receiveFromPrevious) {
    if (rank() == 0) {
        sendToNext();
        receiveFromPrevious();
    } else {
        receiveFromPrevious();
        sendToNext();
    }
}

TEST(PointToPoint, BlockingMessagesOfEveryKindTravelARing) {
    if (size() == 1)
        GTEST_SKIP() << "needs two ranks";
    std::vector<double> values;
    std::string text;
    Sample sample{};
    long scalar = 0;
    std::vector<Sample> samples;
    CallCounter counter;
    aroundTheRing(
        [] {
            world().send(payloadOf(rank()), next());
            world().syncSend(std::string("from rank ") + std::to_string(rank()), next());
            world().send(sampleOf(rank()), next(), Communicator::Tag(5));
            world().syncSend(long(rank()) - 40, next(), Communicator::Tag(6));
            const std::vector<Sample> many{sampleOf(rank()), sampleOf(rank() + 10)};
            world().syncSend(many, next());
        },
        [&] {
            world().recv(values, previous());
            world().recv(text, previous());
            world().recv(sample, previous(), Communicator::Tag(5));
            world().recv(&scalar, 1, previous(), Communicator::Tag(6));
            world().recv(samples, previous());
        });
    EXPECT_EQ(values, payloadOf(previous()));
    EXPECT_EQ(text, "from rank " + std::to_string(previous()));
    EXPECT_EQ(sample, sampleOf(previous()));
    EXPECT_EQ(scalar, long(previous()) - 40);
    EXPECT_EQ(samples, (std::vector<Sample>{sampleOf(previous()), sampleOf(previous() + 10)}));
    EXPECT_EQ(counter.calls["Communicator::Send"], 5) << "synchronous sends are recorded as sends";
    EXPECT_EQ(counter.calls["Communicator::Recv"], 5);
}

TEST(PointToPoint, NonBlockingRingThroughRequestStacks) {
    if (size() == 1)
        GTEST_SKIP() << "needs two ranks";
    const std::vector<double> outgoing = payloadOf(rank());
    std::vector<double> incoming(payloadOf(previous()).size(), -1.0);
    int syncOut = int(rank()) + 100;
    int syncIn = -1;
    MpiCore::RequestStack requests;
    CallCounter counter;
    world().iRecv(incoming, previous(), requests, Communicator::Tag(11));
    world().iRecv(&syncIn, 1, previous(), requests, Communicator::Tag(12));
    world().iSend(outgoing, next(), requests, Communicator::Tag(11));
    world().iSyncSend(&syncOut, 1, next(), requests, Communicator::Tag(12));
    EXPECT_EQ(requests.size(), 4u);
    std::vector<unsigned int> sources{99};  // replaced, not added to
    world().wait(requests, sources);
    EXPECT_TRUE(requests.empty());
    ASSERT_EQ(sources.size(), 4u);
    EXPECT_EQ(sources[0], previous());
    EXPECT_EQ(sources[1], previous());
    EXPECT_EQ(incoming, payloadOf(previous()));
    EXPECT_EQ(syncIn, int(previous()) + 100);
    EXPECT_EQ(counter.calls, (std::map<std::string, int>{{"Communicator::iRecv", 2},
                                                         {"Communicator::iSend", 2},
                                                         {"Communicator::Wait", 1}}));
    EXPECT_EQ(counter.bytes["Communicator::iSend"], outgoing.size() * sizeof(double) + 4);
}

TEST(PointToPoint, AnySourceReceivesReportTheTrueSender) {
    if (size() == 1)
        GTEST_SKIP() << "needs two ranks";
    const Communicator::Tag blocking(21), vectors(22), nonBlocking(23);
    if (rank() != 0) {
        world().send(int(rank()) * 10 + 1, 0, blocking);
        world().send(payloadOf(rank()), 0, vectors);
        world().send(int(rank()) * 10 + 3, 0, nonBlocking);
        return;
    }
    std::set<unsigned int> senders;
    for (unsigned int i = 1; i < size(); ++i) {
        int value = -1;
        unsigned int sender = 99;
        world().recvFromAny(value, sender, blocking);
        EXPECT_EQ(value, int(sender) * 10 + 1);
        senders.insert(sender);
        std::vector<double> values;
        world().recvFromAny(values, sender, vectors);
        EXPECT_EQ(values, payloadOf(sender));
    }
    EXPECT_EQ(senders.size(), size() - 1);
    EXPECT_EQ(senders.count(0), 0u);

    std::vector<int> values(size() - 1, -1);
    MpiCore::RequestStack requests;
    for (int& value : values)
        world().iRecvFromAny(&value, 1, requests, nonBlocking);
    std::vector<unsigned int> sources;
    world().wait(requests, sources);
    ASSERT_EQ(sources.size(), values.size());
    for (std::size_t i = 0; i < values.size(); ++i)
        EXPECT_EQ(values[i], int(sources[i]) * 10 + 3) << "request " << i;
}

TEST(PointToPoint, PersistentReceivesAreStartedAgainEachRound) {
    if (size() == 1)
        GTEST_SKIP() << "needs two ranks";
    int received = -1;
    MpiCore::PersistentRequestStack receives;
    CallCounter counter;
    world().recvInit(&received, 1, previous(), receives, Communicator::Tag(31));
    for (int round = 0; round < 3; ++round) {
        world().start(receives);
        world().send(int(rank()) * 100 + round, next(), Communicator::Tag(31));
        world().wait(receives);
        ASSERT_EQ(receives.size(), 1u) << "the request stays for the next round";
        EXPECT_EQ(received, int(previous()) * 100 + round);
    }
    EXPECT_EQ(counter.calls, (std::map<std::string, int>{{"Communicator::Send", 3},
                                                         {"Communicator::Start", 3},
                                                         {"Communicator::Wait", 3},
                                                         {"Communicator::recvInit", 1}}));
    EXPECT_EQ(counter.bytes["Communicator::recvInit"], 4u);
    world().freeRequest(receives);
    EXPECT_TRUE(receives.empty());
}

TEST(PointToPoint, ProbesMeasureMessagesInTheReceivingType) {
    int source = MpiCore::ANY_SOURCE;
    Communicator::Tag tag(49);
    std::uint64_t count = 77;
    EXPECT_FALSE(world().iProbe<double>(source, tag, count)) << "nothing is sent with tag 49";
    EXPECT_EQ(source, MpiCore::ANY_SOURCE);
    EXPECT_EQ(tag.value(), 49);
    EXPECT_EQ(count, 77u);
    if (size() == 1)
        return;

    const std::vector<Sample> outgoing(rank() + 1, sampleOf(rank()));
    world().send(outgoing, next(), Communicator::Tag(41));
    world().send(std::string("12345"), next(), Communicator::Tag(42));
    tag = Communicator::Tag(41);
    while (!world().iProbe<Sample>(source, tag, count)) {
    }
    EXPECT_EQ(source, int(previous()));
    EXPECT_EQ(count, previous() + 1);
    EXPECT_EQ(world().probe<char>(source, tag), (previous() + 1) * sizeof(Sample));
    std::vector<Sample> incoming;
    world().recv(incoming, previous(), tag);
    EXPECT_EQ(incoming, std::vector<Sample>(previous() + 1, sampleOf(previous())));

    Communicator::Tag odd(42);
    EXPECT_EQ(failureOf([&] { world().probe<int>(source, odd); }),
              "Probed message is not a whole number of values of the receiving type | "
              "elements >= 0 && std::uint64_t(elements) % elementsPerValue == 0");
    std::string text;
    world().recv(text, previous(), odd);
    EXPECT_EQ(text, "12345");
}

TEST(PointToPoint, SendrecvShiftsARing) {
    if (size() == 1)
        GTEST_SKIP() << "needs two ranks";
    std::vector<double> incoming(payloadOf(previous()).size());
    CallCounter counter;
    world().sendrecv(payloadOf(rank()), next(), incoming, previous());
    EXPECT_EQ(incoming, payloadOf(previous()));
    // Different C++ types of one MPI type are fine.
    const long long out = rank() * 7;
    long long in = -1;
    world().sendrecv(&out, 1, previous(), &in, 1, next(), Communicator::Tag(51));
    EXPECT_EQ(in, next() * 7);
    EXPECT_EQ(counter.calls, (std::map<std::string, int>{{"Communicator::SendRecv", 2}}));
}

}  // namespace
}  // namespace tolm
