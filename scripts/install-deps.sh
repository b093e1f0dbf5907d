#!/usr/bin/env bash
# Installs the Debian packages that building and testing YovoLib needs, when any is missing.
set -euo pipefail

packages=(
    cmake ninja-build g++ pkg-config git clang-format
    qtbase5-dev libqt5sql5-sqlite libqt5sql5-mysql
    zlib1g-dev libcjson-dev
    libgtest-dev libgmock-dev libbenchmark-dev
    libspdlog-dev libssl-dev libboost-dev
    lldb libsystemd-dev
)

missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
    echo "installing: ${missing[*]}"
    SUDO=""
    [ "$(id -u)" -eq 0 ] || SUDO="sudo"
    $SUDO apt-get update
    DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y --no-install-recommends "${missing[@]}"
fi
