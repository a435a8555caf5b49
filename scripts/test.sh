#!/usr/bin/env bash
# Installs what is missing, then:
#  1. builds the debug tree and runs the whole test suite;
#  2. builds the sanitizer tree (clang, address and undefined-behaviour sanitizers) and runs
#     the unit tests in it, then a sample of the MPI tests on both MPIs (preset asan-mpi);
#  3. builds the threaded parts in the thread-sanitizer tree and runs their tests (preset tsan);
#  4. runs each fuzz target briefly on its corpus (TOLM_FUZZ_SECONDS, default 10).
# Each stage reports its wall time.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

# stage NAME COMMAND...: runs one step of the test command and reports its wall time.
stage() {
    local name=$1 start=$SECONDS
    shift
    "$@"
    echo "== $name: $((SECONDS - start)) s"
}

stage packages tolm_install_packages
stage "debug build" tolm_build debug
stage "debug tests" ctest --preset debug
stage "asan build" tolm_build asan
stage "asan unit tests" ctest --preset asan
stage "asan MPI tests" ctest --preset asan-mpi
stage "tsan build" tolm_build tsan
stage "tsan tests" ctest --preset tsan
stage fuzzing "$TOLM_ROOT/scripts/fuzz.sh" "$TOLM_ROOT/build/asan" "${TOLM_FUZZ_SECONDS:-10}"
