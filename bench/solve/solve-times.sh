#!/usr/bin/env bash
# The demo's Solve (n 128, 200 iterations) through tolm-server on RANKS ranks under each
# MPI's launcher, with and without "-time", in alternating rounds: the Solve's wall time (the
# slowest rank's, as the Solve answers it), best and median of ROUNDS rounds, with
#   - the cost of "-time": median with it over median without, for each MPI;
#   - MPICH beside Open MPI: MPICH's median over Open MPI's (on a host with more ranks than
#     processors both wait yielding, which the server turns on by itself).
# Usage: tolm-bench-solve BIN_DIR [ROUNDS] [RANKS]   (run by bench/run-all.sh)
set -euo pipefail
bin=$(cd "$1" && pwd)
rounds=${2:-9}
ranks=${3:-4}
launch=$bin/tolm-mpi-launch
batch=$(mktemp)
trap 'rm -f "$batch"' EXIT
echo '{"command":"Solve","n":128,"iterations":200,"reportEvery":50}' >"$batch"

# The Solve's wall seconds (max over the ranks) of one job.
solve_seconds() {
    "$launch" "$1" "$ranks" "$bin/tolm-server" -mpi "$1" -batch "$batch" "${@:2}" 2>/dev/null |
        grep -o '"wall":{"max":[0-9.e+-]*' | head -1 | cut -d: -f3
}

# best and median of the numbers given
stats() {
    printf '%s\n' "$@" | sort -g | awk '{ v[NR] = $1 } END { printf "%s %s", v[1], v[int((NR + 1) / 2)] }'
}

declare -A median
echo "Solve (n 128, 200 iterations) on $ranks ranks, $rounds rounds (seconds, slowest rank)"
printf '%-36s %12s %12s %8s\n' "" "best" "median" "ratio"
for driver in openmpi4 mpich2; do
    plain=() timed=()
    for ((round = 0; round < rounds; ++round)); do
        plain+=("$(solve_seconds "$driver")")
        timed+=("$(solve_seconds "$driver" -time)")
    done
    read -r plain_best plain_median <<<"$(stats "${plain[@]}")"
    read -r timed_best timed_median <<<"$(stats "${timed[@]}")"
    median[$driver]=$plain_median
    printf '%-36s %12.6f %12.6f\n' "$driver" "$plain_best" "$plain_median"
    awk -v n="$driver -time" -v b="$timed_best" -v m="$timed_median" -v r="$plain_median" \
        'BEGIN { printf "%-36s %12.6f %12.6f %8.3f\n", n, b, m, m / r }'
done
awk -v m="${median[mpich2]}" -v o="${median[openmpi4]}" \
    'BEGIN { printf "%-36s %12s %12s %8.2f\n", "mpich2 beside openmpi4 (medians)", "", "", m / o }'
