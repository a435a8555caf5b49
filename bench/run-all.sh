#!/usr/bin/env bash
# Runs every benchmark of a build tree (built beforehand; this script builds nothing) under
# the launcher of each MPI with 2 ranks: bench/run-all.sh BUILD_DIR (e.g. build/release).
set -euo pipefail
if [[ $# -ne 1 || ! -d $1/bin ]]; then
    echo "usage: $0 BUILD_DIR (a configured and built tree, e.g. build/release)" >&2
    exit 2
fi
bin=$(cd "$1/bin" && pwd)
launch=$bin/tolm-mpi-launch
[[ -x $launch ]] || { echo "$launch is missing: configure and build $1 first" >&2; exit 2; }

found=0
for driver in openmpi4 mpich2; do
    for benchmark in "$bin"/tolm-bench-*-"$driver"; do
        [[ -x $benchmark ]] || continue
        found=1
        echo "== $(basename "$benchmark")"
        "$launch" "$driver" 2 "$benchmark"
        echo
    done
done
# The file benchmarks run 4 ranks (1 GiB over 4 ranks; 4 readers of one text file).
for driver in openmpi4 mpich2; do if [[ -x $bin/tolm-files-bench-$driver ]]; then found=1; echo "== tolm-files-bench-$driver"; "$launch" "$driver" 4 "$bin/tolm-files-bench-$driver"; echo; fi; done
[[ $found -eq 1 ]] || { echo "no benchmarks in $bin (TOLM_BUILD_BENCH off?)" >&2; exit 1; }
echo "== tolm-bench-startup" && "$bin/tolm-bench-startup" "$bin"
echo && echo "== tolm-bench-solve" && "$bin/tolm-bench-solve" "$bin"
echo && echo "== tolm-bench-monitor" && "$bin/tolm-bench-monitor"
