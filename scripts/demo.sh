#!/usr/bin/env bash
# Installs what is missing, builds the release tree and runs the reference server's demo job.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
tolm_install_packages
tolm_build release
"$TOLM_ROOT/scripts/run-demo-job.sh" "$TOLM_ROOT/build/release"
