#pragma once
#include "machine/comm/MpiCore.h"
#include "machine/monitor/WallTimer.h"

namespace tolm {

// MPI's wall clock (QMX_MPI_Wtime): the wall clock of timers in a parallel run.
class MpiCore::MpiWallTimer final : public WallTimer {
  public:
    std::unique_ptr<WallTimer> copy() const override;
    double resolution() const override;
    int start() override;
    int stop() override;
    int getElapsedTime(double& dt) const override;

  private:
    double _startTime = 0.0;
};

}  // namespace tolm
