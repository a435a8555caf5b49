#!/usr/bin/env bash
# Installs a build tree into a fresh prefix, builds the consumer project against the installed
# package and runs it and the installed server: check-install.sh BUILD_DIR SOURCE_DIR
set -euo pipefail
build=$1
source=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$build" --prefix "$work/prefix" >/dev/null
cmake -S "$source/tests/install/consumer" -B "$work/consumer" -G Ninja \
    -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/consumer" >/dev/null
answer=$(echo '{"command":"Echo","from":"consumer"}' |
    LD_LIBRARY_PATH="$work/prefix/lib" "$work/consumer/consumer" -s)
[[ $answer == '{"command":"Echo","from":"consumer"}' ]] || { echo "consumer answered: $answer"; exit 1; }
answer=$(echo '{"command":"Echo","from":"server"}' | "$work/prefix/bin/tolm-server" -s)
[[ $answer == '{"command":"Echo","from":"server"}' ]] || { echo "server answered: $answer"; exit 1; }
echo "installed package and server work"
