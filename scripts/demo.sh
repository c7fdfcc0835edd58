#!/usr/bin/env bash
# Builds the release preset and shows what the command line tool does.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

fail() {
    echo "demo: $*" >&2
    exit 1
}

scripts/install_dependencies.sh || fail "the dependencies could not be installed"
cmake --preset release || fail "the release preset could not be configured"
cmake --build --preset release || fail "the release preset does not build"

zmt=build/release/apps/zmt/zmt
[[ -x "$zmt" ]] || fail "$zmt was not built"
"$zmt" --help
