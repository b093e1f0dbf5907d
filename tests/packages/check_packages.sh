#!/usr/bin/env bash
# Makes the three Debian packages from a build of the tree, checks them with lintian, installs them
# with apt-get, builds a program against the installed libyovolib-dev with CMake and with
# pkg-config, runs both and the installed daemon and tool, then purges the packages (also when a
# step failed) and checks that nothing of them is left.
#
# check_packages.sh SOURCE_DIR BUILD_DIR WORK_DIR INSTALL_PREFIX GENERATOR MAKE_PROGRAM CXX CPACK
#   BUILD_DIR is the enclosing build. Configured for /usr, it is packed as it is; otherwise a
#   release build of the library and the daemon is made in WORK_DIR for /usr first.
# Exit code 77 (a skip): not root, or a YovoLib package or file is already on the machine.
set -euo pipefail

source_dir="$1"
build_dir="$2"
work="$3"
install_prefix="$4"
generator="$5"
make_program="$6"
cxx="$7"
cpack="$8"

skip() {
    echo "SKIP: $*"
    exit 77
}
fail() {
    echo "FAILED: $*"
    exit 1
}
stage_start=$SECONDS
stage() {
    echo "=== $* (at $((SECONDS - stage_start)) s)"
}

packages=(libyovolib-dev yledgerd libyovolib0)

[ "$(id -u)" -eq 0 ] || skip "installing packages with apt-get needs root"
for tool in apt-get dpkg-deb dpkg-shlibdeps lintian pkg-config; do
    command -v "$tool" >/dev/null || fail "$tool is missing (scripts/install-deps.sh installs it)"
done
multiarch="$(dpkg-architecture -qDEB_HOST_MULTIARCH 2>/dev/null || gcc -print-multiarch)"

# Whatever is there already is someone else's: the test would overwrite it and then purge it.
present="$(dpkg-query -W -f='${Package} ${db:Status-Status}\n' 'libyovolib*' yledgerd 2>/dev/null |
    awk '$2 != "not-installed" { print $1 " (" $2 ")" }' || true)"
[ -z "$present" ] || skip "already installed, not by this test: $present"
for path in /usr/include/yovolib /usr/lib/"$multiarch"/cmake/YovoLib \
    /usr/lib/"$multiarch"/pkgconfig/yovolib.pc /usr/sbin/yledgerd /usr/bin/yledger \
    /etc/yledgerd /lib/systemd/system/yledgerd.service /usr/lib/"$multiarch"/libyovolib.so* \
    /usr/lib/libyovolib.so* /usr/local/lib/libyovolib.so* /usr/local/lib/"$multiarch"/libyovolib.so*; do
    [ ! -e "$path" ] || skip "$path exists and does not come from this test"
done

rm -rf "$work"
mkdir -p "$work"
# apt-get reads local packages as its own unprivileged user.
chmod 755 "$work"

# 1. The packages.
if [ "$install_prefix" = "/usr" ]; then
    stage "packing the enclosing build $build_dir"
    package_build="$build_dir"
else
    stage "the enclosing build installs into $install_prefix: building the packaged targets for /usr"
    package_build="$work/build"
    source "$source_dir/scripts/build-env.sh"
    yovo_release_env
    cmake -S "$source_dir" -B "$package_build" -G "$generator" -DCMAKE_MAKE_PROGRAM="$make_program" \
        -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr \
        -DYOVO_BUILD_TESTS=OFF -DYOVO_BUILD_BENCHMARKS=OFF -DYOVO_BUILD_FUZZERS=OFF \
        -DYOVO_BUILD_EXAMPLES=ON "${yovo_launcher_args[@]}" > "$work/configure.log" 2>&1 ||
        { cat "$work/configure.log"; fail "configuring the package build"; }
    cmake --build "$package_build" -j2 --target yovolib yledgerd yledger > "$work/build.log" 2>&1 ||
        { tail -50 "$work/build.log"; fail "building the packaged targets"; }
fi
"$cpack" --config "$package_build/CPackConfig.cmake" -G DEB -B "$work/deb" > "$work/cpack.log" 2>&1 ||
    { cat "$work/cpack.log"; fail "cpack"; }
debs=()
for package in libyovolib0 libyovolib-dev yledgerd; do
    deb="$(ls "$work"/deb/"${package}"_*.deb 2>/dev/null || true)"
    [ -n "$deb" ] || { cat "$work/cpack.log"; fail "cpack made no package $package"; }
    debs+=("$deb")
    echo "$(basename "$deb"): $(dpkg-deb -f "$deb" Depends)"
done
chmod 644 "${debs[@]}"
chmod 755 "$work/deb"

# What each package must hold, and where.
contents="$work/contents.txt"
for deb in "${debs[@]}"; do
    dpkg-deb -c "$deb" | awk -v p="$(basename "$deb")" '{ print p, $1, $6 }'
done > "$contents"
expect() {
    grep -q "^$1_[^ ]* [^ ]* \./$2\$" "$contents" || fail "$1 does not hold /$2"
}
expect libyovolib0 "usr/lib/$multiarch/libyovolib.so.0"
expect libyovolib-dev "usr/lib/$multiarch/libyovolib.so"
expect libyovolib-dev "usr/include/yovolib/yovolib.h"
expect libyovolib-dev "usr/lib/$multiarch/cmake/YovoLib/YovoLibConfig.cmake"
expect libyovolib-dev "usr/lib/$multiarch/pkgconfig/yovolib.pc"
expect yledgerd "usr/sbin/yledgerd"
expect yledgerd "usr/bin/yledger"
expect yledgerd "lib/systemd/system/yledgerd.service"
expect yledgerd "etc/yledgerd/yledgerd.ini"
for package in libyovolib0 libyovolib-dev yledgerd; do
    expect "$package" "usr/share/doc/$package/copyright"
done
if grep "^libyovolib0_" "$contents" | grep -v "/$" | grep -v "libyovolib.so.0\|usr/share/doc/"; then
    fail "libyovolib0 holds more than the library"
fi
dpkg-deb -f "${debs[2]}" Depends | grep -q "libyovolib0 (>= " ||
    fail "yledgerd does not depend on libyovolib0"
dpkg-deb -f "${debs[1]}" Depends | grep -q "libyovolib0 (= " ||
    fail "libyovolib-dev does not depend on its libyovolib0"

# 2. lintian: errors fail the test, warnings are shown.
stage "lintian"
lintian_status=0
lintian --fail-on error "${debs[@]}" > "$work/lintian.log" 2>&1 || lintian_status=$?
grep -v "running with root privileges" "$work/lintian.log" || true
[ "$lintian_status" -eq 0 ] || fail "lintian reports errors (exit code $lintian_status)"

# 3. Installed for real. From here on the packages are purged whatever happens.
installed=""
cleanup() {
    local status=$?
    if [ -n "$installed" ]; then
        echo "=== purging ${packages[*]}"
        DEBIAN_FRONTEND=noninteractive apt-get purge -y -q -o Dpkg::Use-Pty=0 "${packages[@]}" \
            > "$work/purge.log" 2>&1 || { cat "$work/purge.log"; echo "FAILED: apt-get purge"; status=1; }
        local left=""
        while read -r _ mode path; do
            path="${path#.}"
            if [ "${mode:0:1}" != "d" ] && { [ -e "$path" ] || [ -L "$path" ]; }; then
                left+=" $path"
            fi
        done < "$contents"
        for path in /usr/include/yovolib /usr/lib/"$multiarch"/cmake/YovoLib /etc/yledgerd \
            /usr/share/doc/libyovolib0 /usr/share/doc/libyovolib-dev /usr/share/doc/yledgerd; do
            [ ! -e "$path" ] || left+=" $path"
        done
        local still
        still="$(dpkg-query -W -f='${Package} ${db:Status-Status}\n' "${packages[@]}" 2>/dev/null |
            awk '$2 != "not-installed"' || true)"
        if [ -n "$left" ]; then
            echo "FAILED: left after the purge:$left"
            status=1
        elif [ -n "$still" ]; then
            echo "FAILED: still known to dpkg: $still"
            status=1
        else
            echo "=== purged; nothing of the packages is left"
        fi
    fi
    exit "$status"
}
trap cleanup EXIT

stage "apt-get install"
installed=yes
DEBIAN_FRONTEND=noninteractive apt-get install -y -q -o Dpkg::Use-Pty=0 --no-install-recommends \
    "${debs[@]}" > "$work/install.log" 2>&1 || { cat "$work/install.log"; fail "apt-get install"; }
for package in "${packages[@]}"; do
    [ "$(dpkg-query -W -f='${db:Status-Status}' "$package")" = "installed" ] ||
        fail "$package is not installed"
done
dpkg-query -W -f='${Conffiles}\n' yledgerd | grep -q "/etc/yledgerd/yledgerd.ini" ||
    fail "/etc/yledgerd/yledgerd.ini is not a conffile"
grep -q "^ExecStart=/usr/sbin/yledgerd --config /etc/yledgerd/yledgerd.ini" \
    /lib/systemd/system/yledgerd.service || fail "the installed unit does not start /usr/sbin/yledgerd"

# 4. A program built against the installed development package, as a daemon's build would.
stage "CMake consumer"
consumer_src="$source_dir/tests/install/consumer"
env -u LD_LIBRARY_PATH -u CMAKE_PREFIX_PATH cmake -S "$consumer_src" -B "$work/cmake-consumer" \
    -G "$generator" -DCMAKE_MAKE_PROGRAM="$make_program" -DCMAKE_CXX_COMPILER="$cxx" \
    -DCMAKE_BUILD_TYPE=Release > "$work/consumer.log" 2>&1 ||
    { cat "$work/consumer.log"; fail "configuring the CMake consumer"; }
grep -q "^YovoLib_DIR:PATH=/usr/lib/$multiarch/cmake/YovoLib$" "$work/cmake-consumer/CMakeCache.txt" ||
    fail "find_package(YovoLib) did not find the installed package: $(grep YovoLib_DIR "$work/cmake-consumer/CMakeCache.txt")"
cmake --build "$work/cmake-consumer" --target consumer >> "$work/consumer.log" 2>&1 ||
    { cat "$work/consumer.log"; fail "building the CMake consumer"; }
output="$(env -u LD_LIBRARY_PATH "$work/cmake-consumer/consumer" 2>&1)" ||
    fail "the CMake consumer failed: $output"
echo "$output"
grep -q "consumer: ok" <<< "$output" || fail "unexpected output of the CMake consumer"
loaded="$(env -u LD_LIBRARY_PATH ldd "$work/cmake-consumer/consumer" |
    sed -n 's/.*libyovolib\.so\.0 => \([^ ]*\).*/\1/p')"
if [ -z "$loaded" ] ||
    [ "$(realpath "$loaded")" != "$(realpath "/usr/lib/$multiarch/libyovolib.so.0")" ]; then
    fail "the CMake consumer loads ${loaded:-no libyovolib.so.0}, not the installed library"
fi

stage "pkg-config consumer"
flags="$(env -u PKG_CONFIG_PATH pkg-config --cflags --libs yovolib)" || fail "pkg-config yovolib"
echo "pkg-config --cflags --libs yovolib: $flags"
grep -q -- "-I/usr/include/yovolib" <<< "$flags" || fail "no include folder in the pkg-config flags"
grep -q -- "-lyovolib" <<< "$flags" || fail "no -lyovolib in the pkg-config flags"
# Qt's headers refuse code that is not position independent.
# shellcheck disable=SC2086
"$cxx" -std=c++17 -fPIC "$consumer_src/main.cpp" $flags -o "$work/pkg-config-consumer" ||
    fail "building the pkg-config consumer"
output="$(env -u LD_LIBRARY_PATH "$work/pkg-config-consumer" 2>&1)" ||
    fail "the pkg-config consumer failed: $output"
echo "$output"
grep -q "consumer: ok" <<< "$output" || fail "unexpected output of the pkg-config consumer"

# 5. The installed daemon and tool.
stage "yledger and yledgerd"
output="$(/usr/bin/yledger --help 2>&1)" || fail "yledger --help exited with $?: $output"
grep -q "^usage: yledger COMMAND" <<< "$output" || fail "unexpected output of yledger --help: $output"
echo "yledger --help: exit code 0, usage shown"
table="yovo_packages_$$"
cat > "$work/yledgerd.ini" << INI
[network]
ledger.port = 0
[logging]
ledger.log_file = $work/yledgerd.log
[storage]
ledger.database = $work/ledger.db
ledger.shared_table = $table
INI
/usr/sbin/yledgerd -e --config "$work/yledgerd.ini" > "$work/daemon.out" 2>&1 &
daemon=$!
port=""
for _ in $(seq 200); do
    port="$(sed -n 's/.*listening on port \([0-9]*\).*/\1/p' "$work/daemon.out")"
    [ -n "$port" ] && break
    sleep 0.05
done
if [ -z "$port" ]; then
    kill "$daemon" 2>/dev/null || true
    cat "$work/daemon.out"
    fail "the installed yledgerd did not start"
fi
answer="$(/usr/bin/yledger send --port "$port" store 1 'packages\tinstalled' 2>&1)" || {
    kill "$daemon"
    fail "yledger send: $answer"
}
kill -TERM "$daemon"
wait "$daemon" || fail "yledgerd exited with $? after SIGTERM"
echo "installed yledgerd on port $port stored a message; yledger send answered: $answer"

stage "done"
