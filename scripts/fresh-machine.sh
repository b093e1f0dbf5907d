#!/usr/bin/env bash
# What a new user sees: builds a minimal Debian 12 root file system holding only git and
# ca-certificates, clones the commit under test into it with ../shared beside it, and runs the
# README's two commands there as root. Any install step that only a developer's machine has makes
# this fail.
#   scripts/fresh-machine.sh          the library alone with only its runtime packages, then
#                                     scripts/quickstart.sh, then scripts/test.sh
#   scripts/fresh-machine.sh --ci     the whole of .ci/run instead, exactly as CI runs it
# Needs root and mmdebstrap (installed when missing). The root is made with the host's apt
# sources and local apt settings, and is unmounted and removed at the end, also after a failure.
set -euo pipefail
cd "$(dirname "$0")/.."
repo="$PWD"
shared="$(cd .. && pwd)/shared"

mode="readme"
case "${1:-}" in
    "") ;;
    --ci) mode="ci" ;;
    *) echo "usage: scripts/fresh-machine.sh [--ci]" >&2; exit 2 ;;
esac

if [ "$(id -u)" -ne 0 ]; then
    echo "fresh-machine: needs root (it builds a root file system and chroots into it)" >&2
    exit 2
fi
if [ ! -d "$shared" ]; then
    echo "fresh-machine: $shared is missing: the project expects ../shared beside it" >&2
    exit 2
fi

step_start=$SECONDS
current="preparing"
step() {
    echo "fresh-machine: $1 took $((SECONDS - step_start)) s"
    step_start=$SECONDS
}

if ! command -v mmdebstrap >/dev/null; then
    apt-get update
    DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends mmdebstrap
fi

commit="$(git rev-parse HEAD)"
root="$(mktemp -d /var/tmp/yovo-fresh.XXXXXX)"
mounted=()

cleanup() {
    local status=$?
    set +e
    if [ "$status" -ne 0 ]; then
        echo "fresh-machine: FAILED while $current (exit $status); the output above says why" >&2
    fi
    # Servers that the tests started inside the root (a database, a web server) must not keep
    # the mounts busy: end every process whose root is this one.
    for link in /proc/[0-9]*/root; do
        if [ "$(readlink "$link" 2>/dev/null)" = "$root" ]; then
            pid="${link#/proc/}"
            kill -9 "${pid%/root}" 2>/dev/null || true
        fi
    done
    for ((i = ${#mounted[@]} - 1; i >= 0; i--)); do
        umount -R "${mounted[$i]}" 2>/dev/null || umount -R -l "${mounted[$i]}" 2>/dev/null || true
    done
    if mount | grep -q " $root/"; then
        echo "fresh-machine: could not unmount everything under $root; leaving it" >&2
    else
        rm -rf "$root" 2>/dev/null || { sleep 2; rm -rf "$root"; }
        [ -e "$root" ] && echo "fresh-machine: could not remove $root" >&2
    fi
    exit "$status"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

# The machine's own apt settings (mirrors, proxies, validity checks) that no package owns travel
# with the host's sources, so the root reaches the registry the way the host does.
apt_settings=()
for f in /etc/apt/apt.conf.d/*; do
    [ -f "$f" ] || continue
    dpkg -S "$f" >/dev/null 2>&1 || apt_settings+=("$f")
done
hooks=()
for f in "${apt_settings[@]}"; do
    hooks+=(--setup-hook="copy-in $f /etc/apt/apt.conf.d/")
done

current="making the root file system"
mmdebstrap --quiet --variant=apt --include=git,ca-certificates "${hooks[@]}" bookworm "$root"
# A machine knows its own name and localhost; the bare root file system has no /etc/hosts.
cp /etc/resolv.conf "$root/etc/resolv.conf"
[ -e "$root/etc/hosts" ] || printf '127.0.0.1 localhost\n::1 localhost ip6-localhost ip6-loopback\n' >"$root/etc/hosts"
step "making the root file system"

current="cloning the commit under test"
mkdir -p "$root/work"
git clone --quiet --no-local "$repo" "$root/work/main"
git -C "$root/work/main" checkout --quiet --detach "$commit"
mkdir -p "$root/work/shared"
cp -a "$shared/." "$root/work/shared/"
step "cloning $commit"

for m in proc sys dev dev/shm; do
    mkdir -p "$root/$m"
    mount --rbind "/$m" "$root/$m"
    mount --make-rslave "$root/$m"
    mounted+=("$root/$m")
done

run_inside() {
    chroot "$root" /usr/bin/env -i HOME=/root PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
        LANG=C.UTF-8 CI="${CI:-}" YOVO_FRESH_ROOT=1 \
        bash -c "cd /work/main && $1" </dev/null
}

if [ "$mode" = "ci" ]; then
    current="running .ci/run"
    run_inside "bash .ci/run"
    step ".ci/run"
else
    # Someone who only wants the library installs the runtime packages and builds it with the
    # plainest commands there are.
    current="building the library alone with only its runtime dependencies"
    run_inside "scripts/install-deps.sh runtime && cmake -S . -B /tmp/lean && cmake --build /tmp/lean -j\$(nproc) >/dev/null && rm -rf /tmp/lean"
    step "the library alone, runtime dependencies only"
    current="running scripts/quickstart.sh"
    run_inside "scripts/quickstart.sh"
    step "scripts/quickstart.sh (the README's first command)"
    current="running scripts/test.sh"
    run_inside "scripts/test.sh"
    step "scripts/test.sh (the README's second command)"
fi
echo "fresh-machine: passed"
