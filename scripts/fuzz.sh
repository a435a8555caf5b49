#!/usr/bin/env bash
# Runs fuzz targets of a build tree (the "asan" preset builds them) for a bounded time on a
# copy of their corpus: fuzz.sh BUILD_DIR [SECONDS_PER_TARGET] [--keep]
# TOLM_FUZZ_TARGETS chooses the targets (default: all). With --keep, new inputs that reach new
# code are added to fuzz/corpus/ for committing.
set -euo pipefail
build=${1:?usage: fuzz.sh BUILD_DIR [SECONDS] [--keep]}
seconds=${2:-60}
keep=${3:-}
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# The sanitizer runtime is a shared library in this tree; libFuzzer is linked before it.
export ASAN_OPTIONS=detect_leaks=1:verify_asan_link_order=0:intercept_tls_get_addr=0
export LSAN_OPTIONS=suppressions=$root/tests/sanitizers/lsan.supp:print_suppressions=0
for target in ${TOLM_FUZZ_TARGETS:-properties topology options commandreader}; do
    corpus=$root/fuzz/corpus/$target
    [[ $target == commandreader ]] && corpus=$root/fuzz/corpus/commands
    run=$work/$target
    mkdir -p "$run"
    cp -r "$corpus"/. "$run"/
    echo "== $target: ${seconds}s"
    if ! "$build/bin/tolm-fuzz-$target" -max_total_time="$seconds" -timeout=10 \
        -rss_limit_mb=2048 -print_final_stats=1 "$run" >"$work/$target.log" 2>&1; then
        tail -n 40 "$work/$target.log" >&2
        echo "fuzz target $target failed; the input is in the log above" >&2
        exit 1
    fi
    grep -E "^stat::number_of_executed_units" "$work/$target.log" || true
    [[ $keep == --keep ]] && cp -n "$run"/* "$corpus"/ 2>/dev/null || true
done
echo "fuzzing found nothing"
