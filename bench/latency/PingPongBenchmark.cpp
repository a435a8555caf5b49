// Latency of 8-byte messages through Communicator, beside the same exchange through the MPI
// wrapper (QMX_MPI_*) and through native MPI, all in the same job; first the cost of a call
// that does not communicate (the rank query), which is the wrapper's table jump alone. Built once
// per MPI; the machine starts MPI through that MPI's driver. Run with 2 ranks: ranks 0 and 1
// exchange, further ranks only join the barriers.
//
// The three sides are timed in short rounds, one after the other, each side taking each place
// in a round in turn. Load elsewhere on the machine only ever adds time, so the table shows
// each side's best round, the ratio of the best rounds, and the median of the ratios within
// each round.
#include <mpi.h>

#include <chrono>
#include <cstdio>
#include <functional>

#include "LatencyBench.h"
#include "machine/comm/Communicator.h"
#include "machine/comm/RequestStack.h"
#include "mpiwrapper/qmx_mpi.h"

namespace tolm::bench {
namespace {

constexpr int rounds = 51;

int rank = 0;
Communicator* world = nullptr;
volatile int sink = 0;  // keeps the rank queries from being optimised away

using Run = std::function<void(long)>;

struct Operation {
    const char* name;
    long iterations;
    Run native;
    Run wrapper;
    Run communicator;
};

double nanosecondsPerIteration(const Run& run, long iterations) {
    MPI_Barrier(MPI_COMM_WORLD);
    const auto start = std::chrono::steady_clock::now();
    run(iterations);
    const auto stop = std::chrono::steady_clock::now();
    return std::chrono::duration<double, std::nano>(stop - start).count() / double(iterations);
}

void nativeCommRank(long iterations) {
    int sum = 0;
    for (long i = 0; i < iterations; ++i) {
        int r = 0;
        MPI_Comm_rank(MPI_COMM_WORLD, &r);
        sum += r;
    }
    sink = sum;
}

void wrapperCommRank(long iterations) {
    int sum = 0;
    for (long i = 0; i < iterations; ++i) {
        int r = 0;
        QMX_MPI_Comm_rank(QMX_MPI_COMM_WORLD, &r);
        sum += r;
    }
    sink = sum;
}

// The communicator keeps its rank: what its users pay for the query.
void communicatorCommRank(long iterations) {
    unsigned int sum = 0;
    for (long i = 0; i < iterations; ++i)
        sum += world->myRank();
    sink = static_cast<int>(sum);
}

// Rank 0 sends 8 bytes to rank 1 and waits for them to come back.
void nativePingPong(long iterations) {
    double value = rank;
    MPI_Status status;
    for (long i = 0; i < iterations && rank < 2; ++i) {
        if (rank == 0) {
            MPI_Send(&value, 1, MPI_DOUBLE, 1, 0, MPI_COMM_WORLD);
            MPI_Recv(&value, 1, MPI_DOUBLE, 1, 0, MPI_COMM_WORLD, &status);
        } else {
            MPI_Recv(&value, 1, MPI_DOUBLE, 0, 0, MPI_COMM_WORLD, &status);
            MPI_Send(&value, 1, MPI_DOUBLE, 0, 0, MPI_COMM_WORLD);
        }
    }
}

void wrapperPingPong(long iterations) {
    double value = rank;
    QMX_MPI_Status_struct status;
    for (long i = 0; i < iterations && rank < 2; ++i) {
        if (rank == 0) {
            QMX_MPI_Send(&value, 1, QMX_MPI_DOUBLE, 1, 0, QMX_MPI_COMM_WORLD);
            QMX_MPI_Recv(&value, 1, QMX_MPI_DOUBLE, 1, 0, QMX_MPI_COMM_WORLD, &status);
        } else {
            QMX_MPI_Recv(&value, 1, QMX_MPI_DOUBLE, 0, 0, QMX_MPI_COMM_WORLD, &status);
            QMX_MPI_Send(&value, 1, QMX_MPI_DOUBLE, 0, 0, QMX_MPI_COMM_WORLD);
        }
    }
}

void communicatorPingPong(long iterations) {
    double value = rank;
    for (long i = 0; i < iterations && rank < 2; ++i) {
        if (rank == 0) {
            world->send(value, 1);
            world->recv(value, 1);
        } else {
            world->recv(value, 0);
            world->send(value, 0);
        }
    }
}

// Ranks 0 and 1 exchange 8 bytes with non-blocking calls: two requests made and completed.
void nativeExchange(long iterations) {
    const int peer = 1 - rank;
    double out = rank;
    double in = 0;
    MPI_Request requests[2];
    MPI_Status statuses[2];
    for (long i = 0; i < iterations && rank < 2; ++i) {
        MPI_Irecv(&in, 1, MPI_DOUBLE, peer, 1, MPI_COMM_WORLD, &requests[0]);
        MPI_Isend(&out, 1, MPI_DOUBLE, peer, 1, MPI_COMM_WORLD, &requests[1]);
        MPI_Waitall(2, requests, statuses);
    }
}

void wrapperExchange(long iterations) {
    const int peer = 1 - rank;
    double out = rank;
    double in = 0;
    int requests[2];
    QMX_MPI_Status_struct statuses[2];
    for (long i = 0; i < iterations && rank < 2; ++i) {
        QMX_MPI_Irecv(&in, 1, QMX_MPI_DOUBLE, peer, 1, QMX_MPI_COMM_WORLD, &requests[0]);
        QMX_MPI_Isend(&out, 1, QMX_MPI_DOUBLE, peer, 1, QMX_MPI_COMM_WORLD, &requests[1]);
        QMX_MPI_Waitall(2, requests, statuses);
    }
}

void communicatorExchange(long iterations) {
    const unsigned int peer = 1 - rank;
    double out = rank;
    double in = 0;
    MpiCore::RequestStack requests;
    const Communicator::Tag tag(1);
    for (long i = 0; i < iterations && rank < 2; ++i) {
        world->iRecv(&in, 1, peer, requests, tag);
        world->iSend(&out, 1, peer, requests, tag);
        world->wait(requests);
    }
}

void measure(const Operation& operation) {
    const Run* sides[] = {&operation.native, &operation.wrapper, &operation.communicator};
    std::vector<double> times[3];
    std::vector<double> ratios;  // Communicator over native, within one round
    for (const Run* side : sides)
        (*side)(operation.iterations / 10);  // warm up every path
    for (int round = 0; round < rounds; ++round) {
        for (int k = 0; k < 3; ++k) {  // each side takes each place in a round in turn
            const int side = (round + k) % 3;
            times[side].push_back(nanosecondsPerIteration(*sides[side], operation.iterations));
        }
        ratios.push_back(times[2].back() / times[0].back());
    }
    if (rank != 0)
        return;
    const double native = best(times[0]);
    const double wrapper = best(times[1]);
    const double communicator = best(times[2]);
    std::printf("%-34s %9.1f %9.1f %9.1f %8.3f %8.3f %8.3f\n", operation.name, native, wrapper,
                communicator, wrapper / native, communicator / native, median(ratios));
}

void printHeader(int size) {
    std::printf("Communicator point-to-point latency: driver %s, %d ranks, %d rounds per side\n",
                TOLM_BENCH_DRIVER, size, rounds);
    std::printf(
        "ns: best round per side; wrp/nat, comm/nat: of the best rounds; median: of per-round "
        "comm/nat ratios\n");
    std::printf("%-34s %9s %9s %9s %8s %8s %8s\n", "operation", "native", "wrapper", "Comm.",
                "wrp/nat", "comm/nat", "median");
}

}  // namespace
}  // namespace tolm::bench

int main(int argc, char** argv) {
    using namespace tolm::bench;
    world = startPairedBenchmark(argc, argv);
    if (!world)
        return 1;
    rank = static_cast<int>(world->myRank());
    if (rank == 0)
        printHeader(static_cast<int>(world->size()));
    const Operation operations[] = {
        {"Comm_rank (no communication)", 200000, nativeCommRank, wrapperCommRank,
         communicatorCommRank},
        {"Ping-pong 8 B (round trip)", 3000, nativePingPong, wrapperPingPong, communicatorPingPong},
        {"iRecv+iSend+wait 8 B (exchange)", 3000, nativeExchange, wrapperExchange,
         communicatorExchange},
    };
    for (const auto& operation : operations)
        measure(operation);
    tolm::Machine::stopCommunicators();
    return 0;
}
