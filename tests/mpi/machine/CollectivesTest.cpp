#include <gtest/gtest.h>

#include <numeric>

#include "CommunicatorTesting.h"
#include "machine/comm/CustomReductionBuffer.h"
#include "machine/comm/RequestStack.h"

namespace tolm {
namespace {

using mpitest::CallCounter;
using mpitest::failureOf;
using mpitest::LoweredLimit;
using mpitest::payload;
using mpitest::rank;
using mpitest::size;
using mpitest::world;

std::vector<int> ownBlock(unsigned int count) {
    std::vector<int> block(count);
    for (unsigned int i = 0; i < count; ++i)
        block[i] = payload(rank(), i);
    return block;
}

// Rank 0's block of `count`, then rank 1's, ...; rank r's block holds count + r * growth.
std::vector<int> everyBlock(unsigned int count, unsigned int growth = 0) {
    std::vector<int> all;
    for (unsigned int r = 0; r < size(); ++r) {
        for (unsigned int i = 0; i < count + r * growth; ++i)
            all.push_back(payload(r, i));
    }
    return all;
}

// Under a limit just below what they need, each collective is split once and still delivers
// every rank's block in place.
TEST(Collectives, SplitGatherAllGatherAndScatterDeliverEveryBlock) {
    constexpr unsigned int count = 5;
    const unsigned int root = size() - 1;
    LoweredLimit limit(std::uint64_t(count) * size() * sizeof(int) - 1);
    CallCounter counter;
    std::vector<int> gathered(rank() == root ? count * size() : 0, -1);
    world().gather(ownBlock(count).data(), count, gathered.data(), root);
    EXPECT_EQ(gathered, rank() == root ? everyBlock(count) : std::vector<int>());

    std::vector<int> all(count * size(), -1);
    world().allGather(ownBlock(count).data(), count, all.data());
    EXPECT_EQ(all, everyBlock(count));

    const auto source = rank() == 0 ? everyBlock(count) : std::vector<int>();
    std::vector<int> mine(count, -1);
    world().scatter(source.data(), count, mine.data(), 0);
    EXPECT_EQ(mine, ownBlock(count));
    EXPECT_EQ(counter.calls, (std::map<std::string, int>{{"Communicator::AllGather", 2},
                                                         {"Communicator::Gather", 2},
                                                         {"Communicator::Scatter", 2}}));
}

// Rank r sends r + 2 values; blocks land in reverse rank order.
struct UnevenBlocks {
    Communicator::UnsignedCounts counts, displacements;
    std::vector<int> expected;

    UnevenBlocks() : counts(size()), displacements(size()) {
        unsigned int offset = 0;
        for (unsigned int r = size(); r-- > 0;) {
            counts[r] = r + 2;
            displacements[r] = offset;
            offset += counts[r];
        }
        expected.assign(offset, -1);
        for (unsigned int r = 0; r < size(); ++r) {
            for (unsigned int i = 0; i < counts[r]; ++i)
                expected[displacements[r] + i] = payload(r, i);
        }
    }
};

TEST(Collectives, SplitVectorGathersKeepTheDisplacements) {
    const UnevenBlocks blocks;
    const auto mine = ownBlock(rank() + 2);
    LoweredLimit limit(blocks.expected.size() * sizeof(int) - 1);
    CallCounter counter;
    std::vector<int> gathered(rank() == 0 ? blocks.expected.size() : 0, -1);
    world().gatherVector(mine.data(), rank() + 2, gathered.data(), blocks.counts,
                         blocks.displacements, 0u);
    if (rank() == 0) {
        EXPECT_EQ(gathered, blocks.expected);
    }

    std::vector<int> all(blocks.expected.size(), -1);
    world().allGatherVector(mine.data(), rank() + 2, all.data(), blocks.counts,
                            blocks.displacements);
    EXPECT_EQ(all, blocks.expected);

    std::vector<int> scattered(rank() + 2, -1);
    world().scatterVector(blocks.expected.data(), blocks.counts, blocks.displacements,
                          scattered.data(), rank() + 2, 0u);
    EXPECT_EQ(scattered, mine);
    EXPECT_EQ(counter.calls["Communicator::GatherVector"], 2);
    EXPECT_EQ(counter.calls["Communicator::AllGatherVector"], size() == 1 ? 0 : 2);
    EXPECT_EQ(counter.calls["Communicator::ScatterVector"], 2);
}

TEST(Collectives, IntCountVectorFormsUseDefaultDisplacements) {
    Communicator::IntCounts counts(size());
    for (unsigned int r = 0; r < size(); ++r)
        counts[r] = int(r) + 1;
    const auto mine = ownBlock(rank() + 1);
    std::vector<int> gathered(rank() == 0 ? size() * (size() + 1) / 2 : 0);
    world().gatherVector(mine.data(), int(rank()) + 1, gathered.data(), counts, {}, 0u);
    if (rank() == 0) {
        EXPECT_EQ(gathered, everyBlock(1, 1));
    }
}

TEST(Collectives, CountArithmetic) {
    if (size() == 3) {
        Communicator::UnsignedCounts displacements;
        world().getDefaultDisplacements({3, 0, 5}, displacements);
        EXPECT_EQ(displacements, (Communicator::UnsignedCounts{0, 3, 3}));
    }
    const Communicator::UnsignedCounts counts(size(), 4);
    Communicator::UnsignedCounts out{42};
    world().addStrideLength(counts, out, 1);
    EXPECT_EQ(out, (Communicator::UnsignedCounts{42})) << "stride 1 leaves the output alone";
    world().addStrideLength(counts, out, 3);
    EXPECT_EQ(out, Communicator::UnsignedCounts(size(), 12));
    world().subtractStrideLength(out, out, 3);
    EXPECT_EQ(out, counts);
}

TEST(Collectives, ReductionsInPlace) {
    std::vector<long> values{long(rank()) + 1, 10 * (long(rank()) + 1)};
    auto all = values;
    world().allReduce(all.data(), all.size(), QMX_MPI_SUM);
    const long n = size();
    EXPECT_EQ(all, (std::vector<long>{n * (n + 1) / 2, 10 * n * (n + 1) / 2}));

    auto reduced = values;
    world().reduce(reduced.data(), reduced.size(), QMX_MPI_MAX, size() - 1);
    if (rank() == size() - 1) {
        EXPECT_EQ(reduced, (std::vector<long>{n, 10 * n}));
    }

    long prefix = long(rank()) + 1;
    world().scan(&prefix, 1, QMX_MPI_SUM);
    EXPECT_EQ(prefix, (long(rank()) + 1) * (long(rank()) + 2) / 2);

    CallCounter counter;
    world().reduce(values.data(), 0, QMX_MPI_SUM, 0);
    world().allReduce(values.data(), 0, QMX_MPI_SUM);
    EXPECT_TRUE(counter.calls.empty()) << "empty reductions make no MPI call";
}

struct Sample {
    double value;
    int rank;
};

int sampleType = QMX_MPI_DATATYPE_NULL;
bool typeSeen = true;

void keepLargest(void* in, void* inout, int* len, int* datatype) {
    typeSeen = typeSeen && *datatype == sampleType;
    auto* incoming = static_cast<Sample*>(in);
    auto* result = static_cast<Sample*>(inout);
    for (int i = 0; i < *len; ++i) {
        if (incoming[i].value > result[i].value)
            result[i] = incoming[i];
    }
}

TEST(Collectives, UserReductionsSeeTheRecordType) {
    Sample sample{double((rank() * 7) % size()), int(rank())};
    Communicator::CustomReductionBuffer buffer(&sample, sizeof(Sample), 1);
    sampleType = buffer.get().type;
    world().allReduce(buffer, keepLargest);
    EXPECT_EQ(sample.value, double(size() - 1));
    EXPECT_EQ((unsigned(sample.rank) * 7) % size(), size() - 1);
    EXPECT_TRUE(typeSeen);
}

TEST(Collectives, ReduceScatterAndItsChecks) {
    std::vector<int> send(2 * size());
    for (unsigned int i = 0; i < send.size(); ++i)
        send[i] = int(i + rank());
    std::vector<int> mine(2);
    world().reduceScatter(send.data(), mine.data(), 2, QMX_MPI_SUM);
    const int rankSum = int(size() * (size() - 1) / 2);
    const int first = int(size() * 2 * rank()) + rankSum;
    EXPECT_EQ(mine, (std::vector<int>{first, first + int(size())}));

    std::vector<int> ints(3 * size());
    std::vector<float> floats(3);
    const ConstBufferBase<int> wrongCount(ints.data(), 3 * int(size()) - 1, QMX_MPI_INT, 4);
    const BufferBase<int> recvInts{ints.data(), 3, QMX_MPI_INT, 4};
    EXPECT_EQ(failureOf([&] { world().reduceScatter(wrongCount, recvInts, QMX_MPI_SUM); }),
              "Communicator::reduceScatter : mismatched counts | "
              "sendbuf.size == SizeType(size())*recvbuf.size");
    const BufferBase<int> recvFloats{floats.data(), 3, QMX_MPI_FLOAT, 4};
    EXPECT_EQ(failureOf([&] { world().reduceScatter(wrongCount, recvFloats, QMX_MPI_SUM); }),
              "Communicator::reduceScatter : mismatched types | sendbuf.type == recvbuf.type");
}

TEST(Collectives, GatherRefusesMismatchedTypes) {
    int value = 0;
    float received[8] = {};
    EXPECT_EQ(failureOf([&] {
                  world().gather(ConstBufferBase<unsigned int>(&value, 1, QMX_MPI_INT, 4),
                                 BufferBase<unsigned int>{received, 1, QMX_MPI_FLOAT, 4}, 0);
              }),
              "Communicator::gather : Mismatch in gather types | sendbuf.type == recvbuf.type");
}

TEST(Collectives, AllToAllExchangesRankDependentBlocks) {
    const std::vector<int> send = ownBlock(size());
    std::vector<int> recv(size(), -1), expected;
    world().allToAll(send.data(), 1, recv.data());
    for (unsigned int r = 0; r < size(); ++r)
        expected.push_back(payload(r, rank()));
    EXPECT_EQ(recv, expected);

    // Blocks land at the receiving displacements, not the sending ones: here in reverse.
    Communicator::IntCounts ones(size(), 1), displs(size()), reversed(size());
    std::iota(displs.begin(), displs.end(), 0);
    std::iota(reversed.rbegin(), reversed.rend(), 0);
    std::vector<int> recvVector(size(), -1);
    world().allToAllVector(send.data(), ones, displs, recvVector.data(), ones, reversed);
    EXPECT_EQ(recvVector, std::vector<int>(recv.rbegin(), recv.rend()));
}

TEST(Collectives, ValuesSetsAndRecordsGatherInRankOrder) {
    std::vector<double> values;
    world().gather(double(rank()) + 0.5, values, 0);
    for (unsigned int r = 0; rank() == 0 && r < size(); ++r)
        EXPECT_EQ(values.at(r), r + 0.5);
    EXPECT_EQ(values.size(), rank() == 0 ? size() : 0u);

    std::set<std::string> mine{"common", "rank " + std::to_string(rank())};
    std::set<std::string> all;
    world().allGather(mine, all);
    EXPECT_EQ(all.size(), size() + 1);
    EXPECT_TRUE(all.contains("common"));
    EXPECT_TRUE(all.contains("rank " + std::to_string(size() - 1)));

    Properties record;
    record.set("rank", rank());
    std::vector<Properties> records;
    world().gather(record, records);
    if (rank() != 0) {
        EXPECT_TRUE(records.empty());
        return;
    }
    ASSERT_EQ(records.size(), size());
    for (unsigned int r = 0; r < size(); ++r)
        EXPECT_EQ(records[r].get<unsigned>("rank"), r);
}

TEST(Collectives, OversizedTotalsAndElementsAreRefused) {
    {
        LoweredLimit limit(4);
        double value = 1.0;
        std::vector<double> all(size());
        EXPECT_NE(failureOf([&] {
                      world().allGather(&value, 1, all.data());
                  }).find("An oversized communication message has been detected.\n"),
                  std::string::npos);
    }
    if (size() < 2)
        return;
    Communicator::UnsignedCounts counts(size(), 0);
    counts[0] = 4294967295u;
    counts[1] = 1;
    char none = 0;
    EXPECT_EQ(failureOf([&] { world().allGatherVector(&none, 0, &none, counts, {}); }),
              "An oversized communication message has been detected.\n"
              "Message count = 4294967296\n"
              "Max count = 4294967295.\n"
              "Oversized messages may imply too few parallel processes are being used. | "
              "total <= 4294967295");
}

// Texts travel in pieces of the lowered limit, to a root that is not the master, past a
// receive from any source with any tag that the user left open: it must still get the user's
// own message, not a piece of a text.
TEST(Collectives, TextsGatherInPiecesPastOpenUserReceives) {
    const unsigned int root = size() - 1;
    const std::string mine = rank() % 2 ? "" : std::string(rank() * 11 + 5, char('a' + rank()));
    int userValue = 0;
    MpiCore::RequestStack requests;
    const bool userMessage = size() > 1;
    if (userMessage && rank() == root)
        world().iRecvFromAny(&userValue, 1, requests, Communicator::Tag(MpiCore::ANY_TAG));
    std::vector<std::string> texts;
    {
        LoweredLimit limit(4 * size());
        world().gather(mine, texts, root);
    }
    if (userMessage && rank() == 0)
        world().send(payload(0, root), root, Communicator::Tag(7));
    if (rank() != root) {
        EXPECT_TRUE(texts.empty());
        return;
    }
    if (userMessage) {
        world().wait(requests);
        EXPECT_EQ(userValue, payload(0, root));
    }
    std::vector<std::string> expected;
    for (unsigned int r = 0; r < size(); ++r)
        expected.push_back(r % 2 ? "" : std::string(r * 11 + 5, char('a' + r)));
    EXPECT_EQ(texts, expected);
}

}  // namespace
}  // namespace tolm
