#!/usr/bin/env bash
# Installs what is missing, builds the library and runs examples/quickstart, the message demo and
# the ledger demo (yledgerd with "-e" and yledger). The build is the same release build that
# scripts/test.sh makes in build/, so running both builds the library once.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
source scripts/build-env.sh
yovo_release_env
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release -DYOVO_WERROR=ON -DYOVO_BUILD_EXAMPLES=ON \
    "${yovo_launcher_args[@]}"
cmake --build build -j"$(nproc)" --target quickstart message_server message_client \
    yledgerd yledger
build/examples/quickstart/quickstart
examples/messages/demo.sh build/examples/messages
examples/ledger/demo.sh build/examples/ledger
