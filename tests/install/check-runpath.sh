#!/usr/bin/env bash
# Every ELF file of a build tree and of its installation searches only absolute directories or
# directories relative to itself ($ORIGIN) for its libraries: an empty or relative entry of
# RPATH/RUNPATH is read by the loader relative to the current directory, from which a planted
# library would then be loaded. check-runpath.sh BUILD_DIR
set -euo pipefail
build=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$build" --prefix "$work/prefix" >/dev/null

checked=0
failed=0
while IFS= read -r -d '' file; do
    [[ $(head -c 4 "$file" | od -An -c | tr -d ' ') == 177ELF ]] || continue
    checked=$((checked + 1))
    paths=$(readelf -d "$file" | sed -n 's/.*(R[UN]*PATH).*\[\(.*\)\]$/\1/p')
    [[ -n $paths ]] || continue
    IFS=: read -r -a entries <<<"$paths:"  # the ':' keeps a trailing empty entry
    for entry in "${entries[@]}"; do
        if [[ $entry != /* && $entry != '$ORIGIN'* && $entry != '${ORIGIN}'* ]]; then
            echo "$file searches an empty or relative directory: [$paths]"
            failed=1
            break
        fi
    done
done < <(find "$build" "$work/prefix" -type f -print0)
[[ $checked -gt 0 ]] || { echo "no ELF file found under $build"; exit 1; }
[[ $failed -eq 0 ]] || exit 1
echo "$checked ELF files search no empty or relative directory"
