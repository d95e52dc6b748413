#!/usr/bin/env bash
# Installs the Debian packages the project needs (only those missing), then configures and builds.
# Usage: scripts/setup.sh [build-dir] [extra cmake arguments...]
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$here/build}
shift || true

packages=(
    qtbase5-dev libqt5sql5-sqlite libqt5serialport5-dev qtpositioning5-dev qtdeclarative5-dev
    qtquickcontrols2-5-dev qml-module-qtquick2 qml-module-qtquick-controls2 qml-module-qtquick-layouts
    qml-module-qtgraphicaleffects libqt5svg5-dev libquazip1-qt5-dev libsdl2-dev libxlsxwriter-dev
    zlib1g-dev cmake ninja-build g++ pkg-config xvfb xauth fonts-dejavu-core socat clang clang-format
    dpkg-dev file desktop-file-utils libxml2-utils zip unzip curl
)

missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
    sudo=""
    [ "$(id -u)" -eq 0 ] || sudo="sudo"
    echo "Installing: ${missing[*]}"
    $sudo apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

cmake -S "$here" -B "$build" -G Ninja "$@"
cmake --build "$build"
