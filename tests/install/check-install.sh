#!/usr/bin/env bash
# Checks the installed package against a fresh install of a build tree, with nothing but the
# install (and the system's packages) in reach:
#   check-install.sh consumers BUILD_DIR SOURCE_DIR
#     builds the consumer project twice, with find_package (no flags of its own) and with
#     pkg-config and a plain compiler, and runs the first serially and the second on two
#     ranks under the installed tolm-mpi-launch;
#   check-install.sh headers BUILD_DIR SOURCE_DIR
#     compiles every installed header alone, as <tolm/...>, with the package's pkg-config
#     flags, and fails when one reaches a private dependency (hwloc, libxml2, an MPI's headers).
set -euo pipefail
mode=$1
build=$2
source=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
cmake --install "$build" --prefix "$prefix" >/dev/null
libdir=$prefix/${TOLM_INSTALL_LIBDIR:-lib}
export PKG_CONFIG_PATH=$libdir/pkgconfig
cxx=${CXX:-c++}

fail() {
    echo "$*" >&2
    exit 1
}

# expect_line NAME EXPECTED OUTPUT: OUTPUT must hold EXPECTED as one line (a launcher may add
# lines of its own).
expect_line() {
    grep -qxF "$2" <<<"$3" || fail "$1 answered: $3 (expected $2)"
}

check_consumers() {
    cmake -S "$source/tests/install/consumer" -B "$work/cmake-consumer" -G Ninja \
        -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
    cmake --build "$work/cmake-consumer" >/dev/null
    local answer
    answer=$(printf '%s\n' '{"command":"Echo","from":"cmake"}' '{"command":"RankSum"}' |
        "$work/cmake-consumer/consumer" -s)
    expect_line "find_package consumer" '{"command":"Echo","from":"cmake"}' "$answer"
    expect_line "find_package consumer" '{"sum":1}' "$answer"

    # shellcheck disable=SC2046 # pkg-config's flags are words
    "$cxx" -o "$work/pc-consumer" "$source/tests/install/consumer/main.cpp" \
        $(pkg-config --cflags --libs TolmMachine)
    answer=$(printf '%s\n' '{"command":"Echo","from":"pkg-config"}' '{"command":"RankSum"}' |
        LD_LIBRARY_PATH="$libdir" "$prefix/bin/tolm-mpi-launch" platform 2 \
        "$work/pc-consumer")
    expect_line "pkg-config consumer" '{"command":"Echo","from":"pkg-config"}' "$answer"
    expect_line "pkg-config consumer" '{"sum":3}' "$answer"

    answer=$(echo '{"command":"Echo","from":"server"}' | "$prefix/bin/tolm-server" -s)
    expect_line "installed tolm-server" '{"command":"Echo","from":"server"}' "$answer"
    echo "both consumers and the installed server work"
}

# compile_header HEADER: one translation unit that includes only HEADER (a path below
# include/), compiled with the package's flags; prints the private dependencies it reached.
compile_header() {
    local header=$1 unit
    unit=$work/units/${header//\//_}.cpp
    echo "#include <$header>" >"$unit"
    # shellcheck disable=SC2046
    "$cxx" $(pkg-config --cflags TolmMachine) -Wall -Wextra -Wpedantic -Werror \
        -fsyntax-only "$unit" -MD -MF "$unit.d" ||
        fail "$header does not compile alone against the installed package"
    if grep -qE '/(hwloc|libxml2?|openmpi|mpich)[/.]|/mpi\.h' "$unit.d"; then
        fail "$header includes a private dependency: $(grep -oE '[^ ]*(hwloc|libxml|openmpi|mpich|mpi\.h)[^ ]*' "$unit.d" | head -1)"
    fi
}

check_headers() {
    mkdir "$work/units"
    local headers
    headers=$(cd "$prefix/include" && find tolm -name '*.h' | sort)
    [[ -n $headers ]] || fail "no header was installed"
    export -f compile_header fail
    export work cxx
    xargs -P 2 -I{} bash -c 'compile_header {}' <<<"$headers"
    echo "$(wc -l <<<"$headers") installed headers compile alone"
}

case "$mode" in
    consumers) check_consumers ;;
    headers) check_headers ;;
    *) fail "usage: check-install.sh consumers|headers BUILD_DIR SOURCE_DIR" ;;
esac
