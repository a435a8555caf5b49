#pragma once
#include <optional>
#include <string>
#include <vector>

#include "machine/core/Machine.h"

namespace tolm {

// The reference server's own options, besides the machine layer's common options
// (CommonArgvParser), and the texts the server prints about its options:
//
//   -batch FILE          read commands from FILE instead of standard input
//   -check               the preflight (Preflight): report the job's set-up, run no batch
//   -help, --help        the usage text; exit 0 without starting the machine
//   -version, --version  the version and the MPI drivers of the build; exit 0 likewise
//
// The design options ("-passtodesign", "-dmprojectid", "-dmprojectid2", "-dmrunfile" with a
// value, "-dmproject") are the server's too: the machine layer steps over them.
class ServerOptions {
  public:
    ServerOptions() = delete;

    // The text "-help" or "-version" (either spelling, anywhere in argv) asks for; "-help"
    // wins when both are given. Nothing when neither is.
    static std::optional<std::string> informationRequest(int argc, char** argv);
    static std::string usage();
    static std::string versionText();

    // The value of "-batch"; OptionError "Missing -batch arg" when it has none.
    static std::optional<std::string> batchFile(int argc, char** argv);
    static bool isCheck(int argc, char** argv);

    // The entries of argv (from index 1, in order) that neither a start-up step (`consumed`)
    // nor the server took.
    static std::vector<std::string> leftovers(int argc, char** argv,
                                              const Machine::ArgumentMap& consumed);
    // "Warning: unused options: -bogus 3" for leftovers, one line; "" when there are none.
    static std::string leftoverWarning(const std::vector<std::string>& leftovers);

    // One line naming every driver of the build by its "-mpi" value and the MPI it is
    // built against: "MPI drivers of this build: -mpi platform (Open MPI 4.1.4), ...".
    static std::string builtDriversLine();
};

}  // namespace tolm
