#pragma once
#include "machine/core/ServerHost.h"

namespace tolm {

// The reference server's main loop: reads commands, one JSON object per line, from the file
// given with "-batch FILE" or else from standard input, and writes one JSON response per
// command on standard output; "-check" runs the preflight instead (Preflight). Arguments that
// no start-up step and no server option took are first named in one warning. A failed
// command is answered with its error and the loop goes on; the run's status then holds the
// server-error code.
class BatchServerHost : public ServerHost {
  public:
    ExitStatus run(int argc, char** argv, const Machine::ArgumentMap& consumed) override;
};

}  // namespace tolm
