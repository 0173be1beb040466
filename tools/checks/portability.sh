#!/usr/bin/env bash
# Build the library, kxsim and kxctl with other compilers and libraries, and run the unit tests.
#
#     tools/checks/portability.sh [TOOLCHAIN...]
#
#     clang     clang 14 of this machine
#     debian13  g++ 14, libvirt, Xerces-C, CLI11, fmt and toml++ of Debian 13 (as root: debootstrap)
#
# Without an argument, all of them. Compiles for a fast build, with every warning shown and none fatal.
# Prints one line for each toolchain; what it said is in build/portability/TOOLCHAIN.log. Ends with 1
# when something does not build or a test fails. The Debian root is kept there.
# shellcheck disable=SC2317 # the functions of a toolchain are found by its name
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
place=$root/build/portability
mirror=${KX_MIRROR:-http://deb.debian.org/debian}

packages=(g++ cmake ninja-build pkg-config python3 binutils libboost-dev libcli11-dev nlohmann-json3-dev
          libpci-dev libvirt-dev libxerces-c-dev libfmt-dev libtomlplusplus-dev libkmod-dev libmd-dev
          libsmartcols-dev zlib1g-dev libgtest-dev libgmock-dev)
options=(-G Ninja -DCMAKE_BUILD_TYPE=None -DCMAKE_C_FLAGS=-O0 -DCMAKE_CXX_FLAGS=-O0
         -DCMAKE_UNITY_BUILD=ON -DCMAKE_UNITY_BUILD_BATCH_SIZE=40 -DKXLINHW_JOINED_TESTS=40)
targets=(src/all sim/all tools/all tests/unit/all)

usage() {
    sed -n '2,/^# shellcheck/{/^# shellcheck/d;s/^# \{0,1\}//p}' "${BASH_SOURCE[0]}"
}

# make_root NAME SUITE PACKAGE...: a Debian below build/portability/NAME, with the tree under /source.
make_root() {
    local name=$1 suite=$2
    shift 2
    if ((EUID != 0)); then
        echo "only root can make and enter a Debian root"
        return 1
    fi
    if [[ ! -e $place/$name/usr/bin/apt-get ]]; then
        debootstrap --variant=minbase "$suite" "$place/$name" "$mirror" || return
    fi
    mkdir -p "$place/$name/source" "$place/$name/build"
    cp /etc/resolv.conf "$place/$name/etc/resolv.conf"
    if ! in_root "$name" dpkg-query -W "$@" >/dev/null 2>&1; then
        in_root "$name" sh -c 'apt-get update -qq && DEBIAN_FRONTEND=noninteractive \
            apt-get install -y -qq --no-install-recommends "$@"' - "$@"
    fi
}

in_root() { # NAME COMMAND...
    # shellcheck disable=SC2016 # the inner shell's
    unshare --mount bash -c 'mount --bind "$1" "$2/source" && mount -o remount,ro,bind "$2/source" &&
        mount -t proc proc "$2/proc" && exec env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 \
        HOME=/root chroot "$2" "${@:3}"' - "$root" "$place/$1" "${@:2}"
}

# build SOURCE BUILD [CMAKE-OPTION...] in the words of the toolchain
build() {
    "${in[@]}" cmake -S "$1" -B "$2" "${options[@]}" "${@:3}" &&
        "${in[@]}" cmake --build "$2" -j "${JOBS:-$(nproc)}" --target "${targets[@]}"
}

# The version of the compiler, which is the first field of the answer.
version() {
    "${in[@]}" "$@" --version 2>/dev/null | head -1
}

clang() {
    in=()
    compiler=(clang++-14)
    build "$root" "$place/clang" -DCMAKE_C_COMPILER=clang-14 -DCMAKE_CXX_COMPILER=clang++-14 &&
        ctest --test-dir "$place/clang" -L '^unit$' --output-on-failure &&
        "$place/clang/kxctl" --sim lab card list
}

debian13() {
    in=(in_root debian13)
    compiler=(g++)
    make_root debian13 trixie "${packages[@]}" &&
        build /source /build &&
        "${in[@]}" ctest --test-dir /build -L '^unit$' --output-on-failure &&
        "${in[@]}" env TMPDIR=/tmp /build/kxctl --sim lab card list
}

# The line of a toolchain.
report() { # NAME STATUS
    local log=$place/$1.log
    printf '%s (%s): ' "$1" "$(version "${compiler[@]}" || :)"
    if (($2 != 0)); then
        printf 'fails; the end of %s:\n' "${log#"$root/"}"
        grep -aE 'error:|Error|FAILED|only root' "$log" | head -20 || :
        tail -3 "$log"
        return 1
    fi
    printf 'builds, %d warnings; %d unit test programs pass\n' "$(grep -ac 'warning:' "$log" || :)" \
        "$(grep -acE ' unit_.* Passed ' "$log" || :)"
}

status=0
mkdir -p "$place"
(($# > 0)) || set -- clang debian13
for toolchain in "$@"; do
    case $toolchain in
        clang | debian13) ;;
        *)
            usage >&2
            exit 2
            ;;
    esac
    result=0
    "$toolchain" >"$place/$toolchain.log" 2>&1 </dev/null || result=1
    report "$toolchain" "$result" || status=1
done
exit "$status"
