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

# Configures the preset release into the folder $1, with the options that follow.
configure() {
    local folder=$1
    shift
    cmake --preset release -B "$folder" "$@" >/dev/null ||
        { echo "check_tidy: $folder could not be configured" >&2; exit 1; }
}

if [[ $# -gt 0 ]]; then
    build=build/release
    [[ -f $build/compile_commands.json ]] || configure $build
    patterns=()
    for file in "$@"; do
        patterns+=("^$(realpath "$file")$")
    done
else
    # The sources of a folder are looked at together, so that headers are read once a folder. Clang does not know
    # all warnings that GCC is told to leave out.
    build=build/tidy
    configure $build -DZMT_UNITY=ON -DZMT_TESTS=OFF -DCMAKE_CXX_FLAGS=-Wno-unknown-warning-option
    patterns=("^$PWD/(src|apps)/.*\\.cpp$" "^$PWD/$build/.*/unity_(src|apps)_.*\\.cxx$")
fi

if ! grep -qE "\"file\": \"$PWD/(src|apps|$build/.*/unity_(src|apps)_)" "$build/compile_commands.json"; then
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
