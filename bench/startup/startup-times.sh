#!/usr/bin/env bash
# Start-up of the machine layer beside bare MPI, under each MPI's launcher:
#   - wall time of a 4-rank tolm-server job with an empty batch beside a 4-rank program that
#     only starts and ends MPI (best and median of ROUNDS runs, rounds alternating);
#   - the host map benchmark on 4 ranks, on one host and on two simulated hosts (each rank in
#     a UTS namespace of its own), which counts hwloc discoveries.
# Usage: tolm-bench-startup BIN_DIR [ROUNDS]   (run by bench/run-all.sh)
set -euo pipefail
bin=$(cd "$1" && pwd)
rounds=${2:-10}
launch=$bin/tolm-mpi-launch
empty=$(mktemp)
trap 'rm -f "$empty"' EXIT

# Milliseconds that the command takes, its output discarded.
wall_ms() {
    local start end
    start=$(date +%s%N)
    "$@" >/dev/null 2>&1 </dev/null
    end=$(date +%s%N)
    echo $(((end - start) / 1000000))
}

# best and median of the numbers given
stats() {
    printf '%s\n' "$@" | sort -n | awk '{ v[NR] = $1 } END { printf "%d %d", v[1], v[int((NR + 1) / 2)] }'
}

for driver in openmpi4 mpich2; do
    server=() bare=()
    for ((round = 0; round < rounds; ++round)); do
        bare+=("$(wall_ms "$launch" "$driver" 4 "$bin/tolm-startup-bare-mpi-$driver")")
        server+=("$(wall_ms "$launch" "$driver" 4 "$bin/tolm-server" -mpi "$driver" -batch "$empty")")
    done
    read -r bare_best bare_median <<<"$(stats "${bare[@]}")"
    read -r server_best server_median <<<"$(stats "${server[@]}")"
    echo "Start-up of 4 ranks under $driver's launcher, $rounds rounds (ms)"
    printf '%-44s %10s %10s %8s\n' "" "best" "median" "ratio"
    printf '%-44s %10d %10d\n' "bare MPI: init and finalize" "$bare_best" "$bare_median"
    awk -v name="tolm-server, empty batch" -v b="$server_best" -v m="$server_median" \
        -v r="$bare_best" 'BEGIN { printf "%-44s %10d %10d %8.2f\n", name, b, m, b / r }'
    echo
    "$launch" "$driver" 4 "$bin/tolm-bench-hostmap-$driver"
    echo
    if "$bin/tolm-simulated-hosts" true 2>/dev/null; then
        "$bin/tolm-simulated-hosts" "$launch" "$driver" 4 \
            "$bin/tolm-simulated-hosts" --as-rank "$bin/tolm-bench-hostmap-$driver"
    else
        echo "(two simulated hosts skipped: unshare --uts is not permitted here)"
    fi
    echo
done
