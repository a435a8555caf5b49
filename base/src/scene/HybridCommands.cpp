#include "scene/HybridCommands.h"

#include <cstdint>
#include <numeric>
#include <optional>
#include <string>
#include <vector>

#include "machine/comm/Communicator.h"
#include "machine/hybrid/HybridMachine.h"
#include "machine/hybrid/HybridMpiThreadContext.h"
#include "machine/hybrid/HybridMpiThreadOperation.h"
#include "machine/core/Machine.h"
#include "machine/hybrid/ShmemWindow.h"
#include "machine/hybrid/ThreadPolicyBase.h"
#include "neo/CheckedField.h"
#include "neo/Controller.h"
#include "neo/Error.h"

namespace tolm {
namespace {

using Value = std::uint64_t;

// Sums `count` values at `values` on the policy's threads, one slice each, and adds the
// groups' sums over the sparse communicator.
class HybridReduction : public HybridMpiThreadOperation {
  public:
    HybridReduction(const Value* values, std::uint64_t count) : _values(values), _count(count) {}

    void execute(const HybridMachine& machine) override {
        ThreadPolicyBase& policy = threadPolicy();
        const unsigned int threads = policy.getNumberThreads();
        std::vector<Value> partial(threads, 0);
        policy.run([&](unsigned int thread) {
            const std::uint64_t first = _count * thread / threads;
            const std::uint64_t last = _count * (thread + 1) / threads;
            partial[thread] = std::accumulate(_values + first, _values + last, Value(0));
        });
        _sum = std::accumulate(partial.begin(), partial.end(), Value(0));
        _threads = threads;
        if (Communicator* sparse = machine.getCommunicator()) {
            sparse->allReduce(_sum, QMX_MPI_SUM);
            _groups = sparse->size();
        }
    }

    Value sum() const { return _sum; }
    unsigned int threads() const { return _threads; }
    unsigned int groups() const { return _groups; }

  private:
    const Value* _values;
    std::uint64_t _count;
    Value _sum = 0;
    unsigned int _threads = 0;
    unsigned int _groups = 1;
};

ShmemScope scopeNamed(const std::string& name) {
    for (const ShmemScope scope : {NUMA_SCOPE, SOCKET_SCOPE, HOST_SCOPE}) {
        if (name == shmemScopeName(scope))
            return scope;
    }
    throw Error("\"scope\" must be numa, socket or host", 1);
}

void fill(Value* values, std::uint64_t n) {
    const Value first = Value(Machine::getPartitionId()) * n + 1;
    std::iota(values, values + n, first);
}

void hybridReduce(const Properties& command, Properties& response) {
    const ShmemScope scope = scopeNamed(command.get<std::string>("scope", "host"));
    const auto n = CheckedField::integer(command, "n", std::uint64_t(1), std::uint64_t(1) << 26,
                                         std::uint64_t(1) << 20);
    std::vector<Value> local;
    std::optional<ShmemWindow<Value>> shared;
    const Value* group = nullptr;
    std::uint64_t count = n;
    if (Machine::isSerial()) {
        local.resize(n);
        fill(local.data(), n);
        group = local.data();
    } else {
        Communicator& comm = Machine::sharedMemCommunicator(scope);
        count = n * comm.size();
        shared.emplace(count, comm);
        fill(shared->data() + n * comm.myRank(), n);
        shared->fence();
        group = shared->data();
    }
    HybridReduction reduction(group, count);
    const double start = Machine::wallTime();
    HybridMpiThreadContext::execute(scope, reduction);
    response.set("sum", reduction.sum());
    response.set("scope", shmemScopeName(scope));
    response.set("groups", reduction.groups());
    response.set("threads", reduction.threads());
    response.set("seconds", Machine::wallTime() - start);
}

}  // namespace

void registerHybridCommands(Controller& controller) {
    controller.registerCommand("HybridReduce", hybridReduce);
}

}  // namespace tolm
