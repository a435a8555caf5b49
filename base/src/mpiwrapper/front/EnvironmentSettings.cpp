#include "mpiwrapper/front/EnvironmentSettings.h"

#include <charconv>
#include <cstdlib>
#include <string_view>

#include "mpiwrapper/qmx_mpi.h"

namespace tolm::mpiwrapper::environment {

namespace {

std::string problem;

bool refuse(const char* variable, std::string_view value, const char* expected) {
    problem =
        std::string(variable) + "=\"" + std::string(value) + "\" is invalid: expected " + expected;
    return false;
}

// "0" or unset gives 0, "1" gives 1.
bool readSwitch(const char* variable, int& flag) {
    const char* text = std::getenv(variable);
    const std::string_view value = text ? text : "0";
    if (value != "0" && value != "1") {
        return refuse(variable, value, "0 or 1");
    }
    flag = value == "1" ? 1 : 0;
    return true;
}

}  // namespace

bool readMaxBufferSize(std::uint64_t& bytes) {
    const char* text = std::getenv(QMX_MPI_MAX_BUFFER_SIZE_ENV);
    if (!text) {
        bytes = QMX_MPI_DEFAULT_MAX_BUFFER_SIZE;
        return true;
    }
    const std::string_view value(text);
    std::uint64_t parsed = 0;
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), parsed);
    // from_chars takes no sign, no blanks and no empty text, so this accepts digits only.
    const bool digitsOnly = error == std::errc() && end == value.data() + value.size();
    if (!digitsOnly || parsed < 1 || parsed > QMX_MPI_DEFAULT_MAX_BUFFER_SIZE) {
        return refuse(QMX_MPI_MAX_BUFFER_SIZE_ENV, value,
                      "a decimal byte count from 1 to 2147479552");
    }
    bytes = parsed;
    return true;
}

bool readCpuBindCollisionTestDisabled(int& flag) {
    return readSwitch(QMX_MPI_DISABLE_CPU_BIND_COLLISION_TEST_ENV, flag);
}

bool readYieldWait(int& flag) {
    return readSwitch(QMX_MPI_YIELD_WAIT_ENV, flag);
}

const std::string& lastProblem() {
    return problem;
}

}  // namespace tolm::mpiwrapper::environment
