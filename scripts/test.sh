#!/usr/bin/env bash
# Installs what is missing, then:
#  1. builds the debug tree and runs the whole test suite;
#  2. builds the sanitizer tree (clang, address and undefined-behaviour sanitizers) and runs
#     the unit tests in it;
#  3. runs each fuzz target briefly on its corpus (TOLM_FUZZ_SECONDS, default 10).
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
tolm_install_packages
tolm_build debug
ctest --preset debug
tolm_build asan
ctest --preset asan
# The topology target is left out until hwloc's crash on damaged XML (fuzz/crashes/) is
# handled before the XML reaches hwloc.
TOLM_FUZZ_TARGETS=${TOLM_FUZZ_TARGETS:-properties options commandreader} \
    "$TOLM_ROOT/scripts/fuzz.sh" "$TOLM_ROOT/build/asan" "${TOLM_FUZZ_SECONDS:-10}"
