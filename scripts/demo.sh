#!/usr/bin/env bash
# Builds the program and renders the sample data into out/.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

fail() {
    echo "demo: $*" >&2
    exit 1
}

scripts/install_dependencies.sh || fail "the dependencies could not be installed"
cmake --preset release || fail "the release preset could not be configured"
cmake --build --preset release --target zmt || fail "the program does not build"

zmt=build/release/apps/zmt/zmt
[[ -x "$zmt" ]] || fail "$zmt was not built"
mkdir -p out

# Name of the picture, then what zmt render is told beyond the sample data.
render() {
    local name=$1
    shift
    echo "demo: out/$name.png"
    "$zmt" render --out "out/$name.png" --stats "out/$name.json" "$@" 2>"out/$name.log" ||
        fail "$(tail -n 1 "out/$name.log")"
    cat "out/$name.json"
}

everest=(--terrain data/everest_srtm3.tif --image data/everest_landsat7_rgb.tif)
render everest_overview "${everest[@]}"
render everest_closeup "${everest[@]}" --view closeup
render everest_closeup_patches "${everest[@]}" --view closeup --patches
render jacksboro_overview --terrain data/jacksboro_srtm3.tif --exaggeration 2

echo "demo: the pictures and their statistics are in out/"
