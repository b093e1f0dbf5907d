#!/usr/bin/env bash
# Installs what is missing, builds the library and runs examples/quickstart.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build build -j2 --target quickstart
build/examples/quickstart/quickstart
