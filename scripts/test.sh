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
run=(ctest --preset "$preset" --output-on-failure --parallel 2)
if "${run[@]}"; then
    exit 0
fi
# The leak checker itself may fail when it stops threads that are about to end. What else fails is not tried again.
log="build/$preset/Testing/Temporary/LastTest.log"
failures=$(grep -c '^Test Failed\.' "$log" || true)
if [[ $failures -gt 0 && $failures -eq $(grep -c 'LeakSanitizer has encountered a fatal error' "$log") ]]; then
    echo "test: the leak checker itself failed; its tests run again"
    exec "${run[@]}" --rerun-failed
fi
exit 1
