// Cost of the MPI wrapper against the same calls on native MPI, measured in the same job.
// Built once per MPI (the native calls need that MPI's headers); loads the matching driver.
// Run with 2 ranks: rank 0 and 1 exchange messages, further ranks only join the barriers.
// Each operation is timed in short alternating rounds (native, wrapper, native, ...). Load
// elsewhere on the machine only ever adds time, so the table shows each side's best round and
// their ratio, and beside it the median of the ratios of neighbouring rounds. Ranks pin
// themselves to one core each, whatever the launcher does.
#include <mpi.h>
#include <sched.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "mpiwrapper/MpiDriverLoader.h"
#include "mpiwrapper/qmx_mpi.h"

namespace {

constexpr int rounds = 51;

struct Operation {
    const char* name;
    long iterations;
    std::function<void(long)> native;
    std::function<void(long)> wrapper;
};

int rank = 0;
int size = 1;
volatile int sink = 0;  // keeps the compiler from dropping the loops of local calls

double nanosecondsPerIteration(const std::function<void(long)>& run, long iterations) {
    MPI_Barrier(MPI_COMM_WORLD);
    const auto start = std::chrono::steady_clock::now();
    run(iterations);
    const auto stop = std::chrono::steady_clock::now();
    return std::chrono::duration<double, std::nano>(stop - start).count() /
           static_cast<double>(iterations);
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

double best(const std::vector<double>& values) {
    return *std::min_element(values.begin(), values.end());
}

void measure(const Operation& operation) {
    std::vector<double> native;
    std::vector<double> wrapper;
    operation.native(operation.iterations / 10);  // warm up both paths
    operation.wrapper(operation.iterations / 10);
    for (int round = 0; round < rounds; ++round) {
        native.push_back(nanosecondsPerIteration(operation.native, operation.iterations));
        wrapper.push_back(nanosecondsPerIteration(operation.wrapper, operation.iterations));
    }
    std::vector<double> ratios;
    for (int round = 0; round < rounds; ++round) {
        ratios.push_back(wrapper[static_cast<std::size_t>(round)] /
                         native[static_cast<std::size_t>(round)]);
    }
    if (rank == 0) {
        std::printf("%-38s %10.1f %10.1f %8.3f %10.3f\n", operation.name, best(native),
                    best(wrapper), best(wrapper) / best(native), median(ratios));
    }
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

// A call that does no communication: the forwarding cost alone.
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

bool pinToOneCore() {
    const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(static_cast<int>(static_cast<unsigned>(rank) % cores), &set);
    return sched_setaffinity(0, sizeof(set), &set) == 0;
}

bool startMpi(int& argc, char**& argv) {
    using tolm::mpiwrapper::MpiDriverLoader;
    std::string error;
    void* driver = MpiDriverLoader::openForOption(TOLM_BENCH_DRIVER, error);
    if (!driver) {
        std::fprintf(stderr, "Cannot load the %s driver: %s\n", TOLM_BENCH_DRIVER, error.c_str());
        return false;
    }
    if (MpiDriverLoader::initializeWrapper(driver) != QMX_MPI_SUCCESS ||
        QMX_MPI_Init(&argc, &argv) != QMX_MPI_SUCCESS) {
        std::fprintf(stderr, "Cannot start MPI through the %s driver\n", TOLM_BENCH_DRIVER);
        return false;
    }
    return true;
}

void printHeader() {
    char name[QMX_MPI_MAX_MPI_NAME];
    char version[QMX_MPI_MAX_MPI_NAME];
    int length = 0;
    QMX_MPI_Get_mpi_name(name, &length);
    QMX_MPI_Get_mpi_version(version, &length);
    std::printf("MPI wrapper overhead: driver %s (%s %s), %d ranks, %d rounds per side\n",
                TOLM_BENCH_DRIVER, name, version, size, rounds);
    std::printf(
        "ns: best round per side; ratio: of the best rounds; median: of per-round ratios\n");
    std::printf("%-38s %10s %10s %8s %10s\n", "operation", "native ns", "wrapper ns", "ratio",
                "median");
}

}  // namespace

int main(int argc, char** argv) {
    if (!startMpi(argc, argv)) {
        return 1;
    }
    MPI_Comm_rank(MPI_COMM_WORLD, &rank);
    MPI_Comm_size(MPI_COMM_WORLD, &size);
    if (size < 2) {
        std::fprintf(stderr, "Run with at least 2 ranks\n");
        QMX_MPI_Finalize();
        return 1;
    }
    if (!pinToOneCore()) {
        std::fprintf(stderr, "rank %d could not pin itself to a core; figures will be noisy\n",
                     rank);
    }
    if (rank == 0) {
        printHeader();
    }
    const Operation operations[] = {
        {"Comm_rank (no communication)", 200000, nativeCommRank, wrapperCommRank},
        {"Ping-pong 8 B (round trip)", 3000, nativePingPong, wrapperPingPong},
        {"Irecv+Isend+Waitall 8 B (exchange)", 3000, nativeExchange, wrapperExchange},
    };
    for (const auto& operation : operations) {
        measure(operation);
    }
    QMX_MPI_Finalize();
    return 0;
}
