#!/usr/bin/env bash
# Runs every fuzz target (or the ones named) for the given number of seconds each, on a copy of its
# seed corpus, in the clang ASan+UBSan build (build-address-undefined/, made if missing). Fails on
# the first finding and leaves the input that caused it in build-address-undefined/fuzz/findings/.
#   scripts/fuzz.sh 60                      every target, one minute each (what CI runs)
#   scripts/fuzz.sh 3600 json_reader        one target for an hour
# Targets run two at a time (or YOVO_FUZZ_JOBS at a time).
set -euo pipefail
cd "$(dirname "$0")/.."

seconds="${1:?usage: scripts/fuzz.sh SECONDS [TARGET...]}"
shift
build_dir="build-address-undefined"
jobs="${YOVO_FUZZ_JOBS:-2}"

if [ ! -f "$build_dir/build.ninja" ] || ! grep -q 'YOVO_BUILD_FUZZERS:STRING=ON' "$build_dir/CMakeCache.txt"; then
    scripts/install-deps.sh
    CC=clang CXX=clang++ cmake -S . -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DYOVO_SANITIZE=address,undefined -DYOVO_WERROR=ON -DYOVO_BUILD_FUZZERS=ON >/dev/null
fi

if [ $# -gt 0 ]; then
    targets=("$@")
else
    mapfile -t targets < <(sed -n 's/^yovo_add_fuzzer(\([A-Za-z0-9_]*\).*/\1/p' tests/fuzz/CMakeLists.txt)
fi
if [ ${#targets[@]} -eq 0 ]; then
    echo "fuzz: no targets"
    exit 0
fi
cmake --build "$build_dir" -j2 --target "${targets[@]/#/fuzz_}"

export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1:symbolize=1"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
findings="$PWD/$build_dir/fuzz/findings"
mkdir -p "$findings"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

run_one() {
    local name="$1"
    local corpus="$work/$name"
    mkdir -p "$corpus"
    # New inputs go to the scratch copy; the corpus in the tree is read, never written.
    if "$build_dir/fuzz/fuzz_$name" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
        -artifact_prefix="$findings/$name-" -print_final_stats=1 \
        "$corpus" "tests/fuzz/corpus/$name" >"$work/$name.log" 2>&1; then
        echo "fuzz: $name: no findings in ${seconds}s ($(grep -o 'stat::number_of_executed_units: *[0-9]*' "$work/$name.log" | grep -o '[0-9]*$') runs)"
    else
        echo "fuzz: $name: FINDING"
        tail -n 60 "$work/$name.log"
        return 1
    fi
}

status=0
running=0
for name in "${targets[@]}"; do
    run_one "$name" &
    running=$((running + 1))
    if [ "$running" -ge "$jobs" ]; then
        wait -n || status=1
        running=$((running - 1))
    fi
done
while [ "$running" -gt 0 ]; do
    wait -n || status=1
    running=$((running - 1))
done
if [ "$status" -ne 0 ]; then
    echo "fuzz: findings are in $findings"
fi
exit "$status"
