#!/usr/bin/env bash
# Builds the release preset and runs every test; another preset may be named:
#   scripts/test.sh [release | dev | asan-ubsan | tsan | coverage]
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

preset=${1:-release}

fail() {
    echo "test: $*" >&2
    exit 1
}

scripts/install_dependencies.sh || fail "the dependencies could not be installed"
cmake --preset "$preset" || fail "preset $preset could not be configured"
cmake --build --preset "$preset" || fail "preset $preset does not build"
ctest --preset "$preset" --output-on-failure --parallel 2
