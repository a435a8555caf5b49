#pragma once

namespace tolm {

class Controller;

// "Solve": a Jacobi solve of a Poisson problem over all ranks (see JacobiSolver). Arguments:
// "n" (grid points per side, default 128), "iterations" (default 200), "tolerance" (default
// 0), "reportEvery" (default 20). Answers with the residual history, the sweeps done, each
// rank's strip, and the solve's wall and CPU time statistics over the ranks.
void registerSolveCommand(Controller& controller);

}  // namespace tolm
