#!/usr/bin/env bash
# Installs what is missing, builds the debug tree and runs the whole test suite.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
tolm_install_packages
tolm_build debug
ctest --preset debug
