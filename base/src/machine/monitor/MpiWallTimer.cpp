#include "machine/monitor/MpiWallTimer.h"

namespace tolm {

std::unique_ptr<WallTimer> MpiCore::MpiWallTimer::copy() const {
    return std::make_unique<MpiWallTimer>(*this);
}

double MpiCore::MpiWallTimer::resolution() const {
    return QMX_MPI_Wtick();
}

int MpiCore::MpiWallTimer::start() {
    _startTime = QMX_MPI_Wtime();
    if (running)
        return 1;
    running = true;
    return 0;
}

int MpiCore::MpiWallTimer::stop() {
    _startTime = 0.0;
    if (!running)
        return 1;
    running = false;
    return 0;
}

int MpiCore::MpiWallTimer::getElapsedTime(double& dt) const {
    if (!running)
        return 1;
    dt = QMX_MPI_Wtime() - _startTime;
    return 0;
}

}  // namespace tolm
