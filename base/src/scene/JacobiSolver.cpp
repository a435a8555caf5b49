#include "scene/JacobiSolver.h"

#include <cmath>

#include "machine/comm/Communicator.h"
#include "machine/comm/RequestStack.h"

namespace tolm {
namespace {

constexpr int edgeTag = 77;

}  // namespace

JacobiSolver::JacobiSolver(std::size_t n, Communicator* communicator)
    : _n(n), _communicator(communicator), _h2(1.0 / double((n + 1) * (n + 1))) {
    const std::size_t ranks = communicator ? communicator->size() : 1;
    const std::size_t rank = communicator ? communicator->myRank() : 0;
    // Rows are shared out as evenly as possible: the first n % ranks strips get one more.
    _rows = n / ranks + (rank < n % ranks ? 1 : 0);
    _firstRow = rank * (n / ranks) + std::min(rank, n % ranks);
    _u.assign((_rows + 2) * (_n + 2), 0.0);
    _next = _u;
}

void JacobiSolver::exchangeEdges() {
    if (!_communicator || _communicator->size() == 1)
        return;
    const unsigned int rank = _communicator->myRank();
    const std::size_t width = _n + 2;
    MpiCore::RequestStack requests;
    if (rank > 0) {
        _communicator->iRecv(&at(0, 0), width, rank - 1, requests, Communicator::Tag(edgeTag));
        _communicator->iSend(&at(1, 0), width, rank - 1, requests, Communicator::Tag(edgeTag));
    }
    if (rank + 1 < _communicator->size()) {
        _communicator->iRecv(&at(_rows + 1, 0), width, rank + 1, requests,
                             Communicator::Tag(edgeTag));
        _communicator->iSend(&at(_rows, 0), width, rank + 1, requests, Communicator::Tag(edgeTag));
    }
    _communicator->wait(requests);
}

void JacobiSolver::sweep() {
    const std::size_t width = _n + 2;
    for (std::size_t row = 1; row <= _rows; ++row) {
        for (std::size_t column = 1; column <= _n; ++column) {
            const std::size_t i = row * width + column;
            _next[i] = 0.25 * (_u[i - 1] + _u[i + 1] + _u[i - width] + _u[i + width] + _h2);
        }
    }
    _u.swap(_next);
    ++_sweeps;
}

double JacobiSolver::residual() {
    exchangeEdges();
    const std::size_t width = _n + 2;
    double sum = 0.0;
    for (std::size_t row = 1; row <= _rows; ++row) {
        for (std::size_t column = 1; column <= _n; ++column) {
            const std::size_t i = row * width + column;
            const double laplace =
                (4 * _u[i] - _u[i - 1] - _u[i + 1] - _u[i - width] - _u[i + width]) / _h2;
            sum += (laplace - 1.0) * (laplace - 1.0);
        }
    }
    if (_communicator)
        _communicator->allReduce(sum, QMX_MPI_SUM);
    return std::sqrt(sum / double(_n * _n));
}

std::vector<double> JacobiSolver::solve(unsigned int iterations, double tolerance,
                                        unsigned int reportEvery) {
    std::vector<double> history;
    for (unsigned int i = 1; i <= iterations; ++i) {
        exchangeEdges();
        sweep();
        if (i % reportEvery != 0 && i != iterations)
            continue;
        history.push_back(residual());
        if (history.back() < tolerance)
            break;
    }
    return history;
}

}  // namespace tolm
