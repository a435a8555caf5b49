#!/usr/bin/env bash
# Runs the reference server's demo job from a build tree: run-demo-job.sh BUILD_DIR
#  1. the demo batch on 4 ranks under each MPI (the default driver and MPICH's);
#  2. a batch of failing commands on 4 ranks: each answer names the lowest failing rank and the
#     server goes on (the job then exits with 1, the server-error code);
#  3. the same demo batch serially.
set -euo pipefail
build=${1:?usage: run-demo-job.sh BUILD_DIR}
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
bin=$build/bin
demo=$root/apps/tolm-server/demo

for driver in platform mpich2; do
    echo "== demo batch on 4 ranks, -mpi $driver"
    "$bin/tolm-mpi-launch" "$driver" 4 "$bin/tolm-server" -mpi "$driver" -batch "$demo/demo.jsonl"
done

echo "== failing commands on 4 ranks (exit code 1 expected)"
status=0
"$bin/tolm-mpi-launch" platform 4 "$bin/tolm-server" -batch "$demo/faults.jsonl" || status=$?
[[ $status -eq 1 ]] || { echo "unexpected exit code $status" >&2; exit 1; }

echo "== demo batch, serial"
"$bin/tolm-server" -s -param demo 1 -batch "$demo/demo.jsonl"
