#!/usr/bin/env bash
# Installs what is missing, configures, builds and runs the whole test suite with ctest.
#   scripts/test.sh                      the release build as a distribution makes it (GCC,
#                                        Debian's hardening flags), in build/
#   scripts/test.sh address,undefined    clang with ASan+UBSan and the fuzz targets, in
#                                        build-address-undefined/ (scripts/fuzz.sh runs them)
#   scripts/test.sh thread               GCC with TSan: the threaded and cross-process tests, in
#                                        build-thread/
# Tests, benchmarks and examples are all required here; warnings are errors.
set -euo pipefail
cd "$(dirname "$0")/.."

stage_start=$SECONDS
scripts/install-deps.sh
echo "test.sh: dependencies ready after $((SECONDS - stage_start)) s"

source scripts/build-env.sh
sanitize="${1:-}"
build_dir="build"
build_target=()
build_type="Release"
ctest_args=(--output-on-failure --timeout 600)
cmake_args=(-DYOVO_WERROR=ON -DYOVO_BUILD_TESTS=ON -DYOVO_BUILD_EXAMPLES=ON)
if [ -z "$sanitize" ]; then
    yovo_release_env
    # Configured for /usr like a distribution's build, so that the Debian packages' test packs
    # this build instead of compiling the library a second time.
    cmake_args+=(-DYOVO_BUILD_BENCHMARKS=ON -DYOVO_BUILD_FUZZERS=OFF -DCMAKE_INSTALL_PREFIX=/usr)
else
    build_dir="build-${sanitize//,/-}"
    build_type="RelWithDebInfo"
    export ASAN_OPTIONS="detect_leaks=0:abort_on_error=1"
    export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
    export TSAN_OPTIONS="suppressions=$PWD/tests/tsan.supp:halt_on_error=1:second_deadlock_stack=1"
    cmake_args+=(-DYOVO_BUILD_BENCHMARKS=OFF -DYOVO_SANITIZE="$sanitize")
    if [ "$sanitize" = "thread" ]; then
        export CC=gcc CXX=g++
        cmake_args+=(-DYOVO_BUILD_FUZZERS=OFF -DYOVO_BUILD_EXAMPLES=OFF)
        ctest_args+=(-L "threads|ipc")
        build_target=(--target threads_ipc_tests)
    else
        # The clang build: it also builds the fuzz targets, which replay their corpora as tests.
        export CC=clang CXX=clang++
        cmake_args+=(-DYOVO_BUILD_FUZZERS=ON)
    fi
fi
cmake_args+=("${yovo_launcher_args[@]}")

stage_start=$SECONDS
cmake -S . -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE="$build_type" "${cmake_args[@]}"
cmake --build "$build_dir" -j"$(nproc)" "${build_target[@]}"
echo "test.sh: $build_dir built in $((SECONDS - stage_start)) s"

stage_start=$SECONDS
cd "$build_dir"
# Most tests wait more than they compute (real time-outs, other processes, servers): twice as many
# run at once as there are cores. One ctest run only: the servers' fixtures belong to the build
# folder, and a second run beside it would start and stop them under the first one's tests.
status=0
ctest "${ctest_args[@]}" -j "$(($(nproc) * 2))" || status=1
echo "test.sh: $build_dir tested in $((SECONDS - stage_start)) s"
exit "$status"
