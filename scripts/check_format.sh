#!/usr/bin/env bash
# Fails when a tracked C++ file is not formatted as .clang-format says.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

if ! command -v clang-format >/dev/null; then
    echo "check_format: clang-format is missing; run scripts/install_dependencies.sh --checks" >&2
    exit 1
fi

mapfile -t files < <(git ls-files -- '*.h' '*.cpp')
if [[ ${#files[@]} -eq 0 ]]; then
    echo "check_format: no tracked C++ file was found" >&2
    exit 1
fi
if ! printf '%s\n' "${files[@]}" | xargs -r -d '\n' -P "$(nproc)" -n 40 clang-format --dry-run -Werror; then
    echo "check_format: some files are not formatted; run clang-format -i on them" >&2
    exit 1
fi
echo "check_format: ${#files[@]} files are formatted"
