#!/usr/bin/env bash
# Installs what is missing, builds the library and runs examples/quickstart. The build is the same
# release build that scripts/test.sh makes in build/, so running both builds the library once.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
source scripts/build-env.sh
yovo_release_env
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release -DYOVO_WERROR=ON -DYOVO_BUILD_EXAMPLES=ON \
    "${yovo_launcher_args[@]}"
cmake --build build -j"$(nproc)" --target quickstart
build/examples/quickstart/quickstart
