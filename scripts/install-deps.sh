#!/usr/bin/env bash
# Installs the Debian packages that YovoLib needs, when any is missing.
#   scripts/install-deps.sh           everything: building, testing, benchmarking, fuzzing
#   scripts/install-deps.sh runtime   only what building the library itself needs
set -euo pipefail

# Building the library alone.
runtime=(
    cmake make ninja-build g++ pkg-config
    qtbase5-dev libqt5sql5-sqlite libqt5sql5-mysql
    zlib1g-dev libcjson-dev libsystemd-dev
)

# Tests, benchmarks, examples, fuzzing and CI.
development=(
    git clang-format dpkg-dev
    clang libclang-rt-14-dev
    libgtest-dev libgmock-dev libbenchmark-dev
    libspdlog-dev libssl-dev libboost-dev
    lldb python3
    nlohmann-json3-dev rapidjson-dev
    php8.2-cli libinih-dev
    nginx openssl libcurl4-openssl-dev
    libsqlite3-dev lintian fakeroot file
    mariadb-server mariadb-client
)

packages=("${runtime[@]}")
if [ "${1:-all}" != "runtime" ]; then
    packages+=("${development[@]}")
fi

missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
    echo "installing: ${missing[*]}"
    SUDO=""
    [ "$(id -u)" -eq 0 ] || SUDO="sudo"
    $SUDO apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq -o Dpkg::Use-Pty=0 \
        --no-install-recommends "${missing[@]}" >/dev/null
fi
