#!/usr/bin/env bash
# Installs what is missing, configures, builds and runs the whole test suite with ctest.
#   scripts/test.sh                      the plain build in build/
#   scripts/test.sh address,undefined    a sanitizer build in build-address-undefined/
#   scripts/test.sh thread               the thread sanitizer build, threaded and cross-process tests
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh

sanitize="${1:-}"
build_dir="build"
ctest_args=(--output-on-failure -j2)
if [ -n "$sanitize" ]; then
    build_dir="build-${sanitize//,/-}"
    export ASAN_OPTIONS="detect_leaks=0:abort_on_error=1"
    export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
    export TSAN_OPTIONS="suppressions=$PWD/tests/tsan.supp:halt_on_error=1:second_deadlock_stack=1"
    if [ "$sanitize" = "thread" ]; then
        ctest_args+=(-L "threads|ipc")
    fi
fi

cmake -S . -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DYOVO_SANITIZE="$sanitize" -DYOVO_BUILD_BENCHMARKS="$([ -n "$sanitize" ] && echo OFF || echo ON)"
cmake --build "$build_dir" -j2
cd "$build_dir"
ctest "${ctest_args[@]}"
