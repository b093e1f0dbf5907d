#!/usr/bin/env bash
# Builds the Debian packages libyovolib0, libyovolib-dev and yledgerd into a folder.
#   scripts/packages.sh [OUTPUT_FOLDER]     default: build-packages/debs
# The build is the release build with Debian's flags, configured for /usr, in build-packages/; it
# compiles the library, yledgerd and yledger only. Install the result as root with
#   apt-get install ./build-packages/debs/*.deb
set -euo pipefail
cd "$(dirname "$0")/.."
output="$(realpath -m "${1:-build-packages/debs}")"

scripts/install-deps.sh runtime
for tool in dpkg-shlibdeps file; do
    command -v "$tool" >/dev/null || {
        echo "packages.sh: $tool is missing (apt-get install dpkg-dev file)" >&2
        exit 1
    }
done

source scripts/build-env.sh
yovo_release_env
cmake -S . -B build-packages -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr \
    -DYOVO_BUILD_TESTS=OFF -DYOVO_BUILD_BENCHMARKS=OFF -DYOVO_BUILD_FUZZERS=OFF \
    -DYOVO_BUILD_EXAMPLES=ON "${yovo_launcher_args[@]}"
cmake --build build-packages -j"$(nproc)" --target yovolib yledgerd yledger

rm -rf build-packages/cpack
cpack --config build-packages/CPackConfig.cmake -G DEB -B build-packages/cpack
mkdir -p "$output"
debs=()
for deb in build-packages/cpack/*.deb; do
    mv -f "$deb" "$output/"
    debs+=("$output/$(basename "$deb")")
done
if command -v lintian >/dev/null; then
    lintian --fail-on error "${debs[@]}"
fi
ls -l "${debs[@]}"
