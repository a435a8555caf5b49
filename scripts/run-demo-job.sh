#!/usr/bin/env bash
# Runs the reference server's demo job from a build tree: run-demo-job.sh BUILD_DIR
set -euo pipefail
build=${1:?usage: run-demo-job.sh BUILD_DIR}
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
echo "== tolm-server demo job (serial)"
"$build/bin/tolm-server" -s -param demo 1 -batch "$root/apps/tolm-server/demo/demo.jsonl"
