# Shared steps of the set-up scripts: install what is missing, configure and build.
# Sourced, not run.
set -euo pipefail

TOLM_ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

tolm_missing_packages() {
    local pkg missing=()
    while read -r pkg; do
        [[ -z "$pkg" || "$pkg" == \#* ]] && continue
        if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed'; then
            missing+=("$pkg")
        fi
    done <"$TOLM_ROOT/scripts/packages.txt"
    echo "${missing[@]:-}"
}

tolm_install_packages() {
    local missing sudo=""
    missing=$(tolm_missing_packages)
    [[ -z "$missing" ]] && return 0
    [[ $(id -u) -ne 0 ]] && sudo="sudo"
    echo "Installing: $missing"
    $sudo apt-get update -qq
    # shellcheck disable=SC2086
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends $missing >/dev/null
}

# tolm_build PRESET: configure (once) and build the tree of that preset.
tolm_build() {
    local preset=$1
    cd "$TOLM_ROOT"
    cmake --preset "$preset" >/dev/null
    cmake --build --preset "$preset"
}
