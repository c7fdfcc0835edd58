#!/usr/bin/env bash
# Runs the checks of .clang-tidy over src/ and apps/, or over the files named:
#   scripts/check_tidy.sh [FILE.cpp ...]
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

for tool in clang-tidy run-clang-tidy; do
    if ! command -v "$tool" >/dev/null; then
        echo "check_tidy: $tool is missing; run scripts/install_dependencies.sh --checks" >&2
        exit 1
    fi
done

build=build/release
if [[ ! -f $build/compile_commands.json ]]; then
    cmake --preset release >/dev/null || { echo "check_tidy: the release preset could not be configured" >&2; exit 1; }
fi

patterns=("^$PWD/(src|apps)/.*\\.cpp$")
if [[ $# -gt 0 ]]; then
    patterns=()
    for file in "$@"; do
        patterns+=("^$(realpath "$file")$")
    done
fi

if ! grep -qE "\"file\": \"$PWD/(src|apps)/" "$build/compile_commands.json"; then
    echo "check_tidy: no file of src/ or apps/ is part of the build" >&2
    exit 1
fi

log=$(mktemp)
trap 'rm -f "$log"' EXIT
if ! run-clang-tidy -quiet -p "$build" -j "$(nproc)" "${patterns[@]}" >"$log" 2>&1; then
    sed 's/\x1b\[[0-9;]*m//g' "$log" |
        grep -vE '^clang-tidy|warnings? (generated|treated)|^Suppressed|^Use -header-filter|^$' >&2 || true
    echo "check_tidy: some checks failed" >&2
    exit 1
fi
echo "check_tidy: every check passed"
