#pragma once
#include <cstddef>
#include <vector>

namespace tolm {

class Communicator;

// A small real parallel solve: Jacobi iterations for -laplace(u) = 1 on the unit square with
// u = 0 on the boundary, on an n x n grid of interior points. The grid's rows are split in
// strips over the ranks of a communicator (or kept whole without one); each iteration
// exchanges the strips' edge rows with the neighbours and measures the global residual with
// an all-reduce.
class JacobiSolver {
  public:
    // `communicator` may be null: a serial solve. Every rank gets at least one row (n must be
    // at least the number of ranks).
    JacobiSolver(std::size_t n, Communicator* communicator);

    // Runs `iterations` sweeps, or fewer once the residual falls below `tolerance`. Returns
    // the residual (root-mean-square of -laplace(u) - 1 over the whole grid) after every
    // `reportEvery` sweeps and after the last.
    std::vector<double> solve(unsigned int iterations, double tolerance, unsigned int reportEvery);

    unsigned int sweepsDone() const { return _sweeps; }
    // This rank's rows: [firstRow, firstRow + rows).
    std::size_t firstRow() const { return _firstRow; }
    std::size_t rows() const { return _rows; }

  private:
    double& at(std::size_t row, std::size_t column) { return _u[row * (_n + 2) + column]; }
    void exchangeEdges();
    void sweep();
    double residual();

    std::size_t _n;
    Communicator* _communicator;
    std::size_t _firstRow = 0;
    std::size_t _rows = 0;
    double _h2;              // squared grid spacing
    std::vector<double> _u;  // this rank's rows plus one ghost row above and below
    std::vector<double> _next;
    unsigned int _sweeps = 0;
};

}  // namespace tolm
