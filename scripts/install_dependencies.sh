#!/usr/bin/env bash
# Installs the Debian packages that the build needs and that are missing.
# With --checks also those of check_format.sh and check_tidy.sh.
set -euo pipefail

packages=(
    g++ cmake ninja-build ccache pkg-config
    libeigen3-dev libdeflate-dev zlib1g-dev libjpeg-dev libpng-dev libstb-dev
    libassimp-dev libpugixml-dev libzip-dev
    libfreetype-dev libharfbuzz-dev libfribidi-dev fonts-dejavu-core
    libglew-dev libgl-dev libglu1-mesa-dev libegl-dev libegl-mesa0 libgl1-mesa-dri
    libgdal-dev liburing-dev libcli11-dev nlohmann-json3-dev
    qt6-base-dev libqt6opengl6-dev
    nginx-light libgtest-dev libgmock-dev libbenchmark-dev libgmp-dev libembree-dev xvfb xauth parallel
)
if [[ "${1:-}" == "--checks" ]]; then
    packages+=(git clang-format clang-tidy python3)
elif [[ $# -gt 0 ]]; then
    echo "usage: $0 [--checks]" >&2
    exit 2
fi

if ! command -v dpkg-query >/dev/null; then
    echo "install_dependencies: this is not a Debian system; install by hand: ${packages[*]}" >&2
    exit 1
fi

missing=()
for package in "${packages[@]}"; do
    status=$(dpkg-query -W -f='${Status}' "$package" 2>/dev/null || true)
    [[ "$status" == "install ok installed" ]] || missing+=("$package")
done
if [[ ${#missing[@]} -eq 0 ]]; then
    exit 0
fi

as_root=()
if [[ $EUID -ne 0 ]]; then
    if ! command -v sudo >/dev/null; then
        echo "install_dependencies: run as root or install sudo; missing: ${missing[*]}" >&2
        exit 1
    fi
    as_root=(sudo)
fi

echo "install_dependencies: installing ${missing[*]}"
"${as_root[@]}" apt-get update -q
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends "${missing[@]}"
