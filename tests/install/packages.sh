#!/usr/bin/env bash
# packages.sh SOURCE KXCTL [DIRECTORY]: builds the Debian packages (or takes those of DIRECTORY), has
# lintian look at them, installs them into a fresh system, uses them there and removes them without a
# trace. KXCTL is the build tree's, whose answers are the expected ones.
#
# The fresh system needs root, debootstrap, mounts and the package archive of this machine. Where
# one of them is missing the test says so, and counts as skipped when the previous steps succeeded.
set -euo pipefail
source=$1 kxctl=$2 built=${3:-}
export LC_ALL=C DEBIAN_FRONTEND=noninteractive
packages=(libkxlinhw6 libkxlinhw-dev kxctl kxsim)

skip() {
    echo "Not done: $*"
    exit 77
}
begin() { printf '\n== %s (%d s)\n' "$1" "$SECONDS"; }

# Mounts of a separate namespace disappear with it, however the test ends.
if [[ $EUID -eq 0 && -z ${KX_OWN_MOUNTS:-} ]] && unshare --mount true 2>/dev/null; then
    KX_OWN_MOUNTS=1 exec unshare --mount --propagation private "$0" "$@"
fi

work=$(mktemp -d)
root=$work/root
trap 'umount "$root/proc" 2>/dev/null || :; rm -rf --one-file-system "$work"' EXIT

# ---- Building, and what lintian says ----

missing=()
for tool in dpkg-buildpackage dh lintian; do
    command -v "$tool" >/dev/null || missing+=("$tool")
done
if ((${#missing[@]} > 0)); then
    skip "${missing[*]} not installed (debhelper, dpkg-dev, lintian)"
fi

if [[ -z $built ]]; then
    begin "building"
    built=$work/packages
    if ! "$source/packaging/build-packages.sh" "$built" >"$work/build.log" 2>&1; then
        tail -50 "$work/build.log"
        exit 1
    fi
fi
for package in "${packages[@]}"; do
    ls "$built/${package}"_*.deb
done

begin "lintian"
lintian --allow-root --fail-on error "$built"/*.changes

begin "hardening"
for package in libkxlinhw6 kxctl kxsim; do
    dpkg-deb -x "$built/${package}"_*.deb "$work/unpacked"
done
"$source/tests/interface/hardening.sh" fortified "$work"/unpacked/usr/lib/*/libkxlinhw.so.6 \
    "$work"/unpacked/usr/bin/kx{ctl,sim}
"$source/tests/interface/search_paths.sh" "$work/unpacked"
if [[ ! -d $work/unpacked/etc/kestrix-plexo ]]; then
    echo "the packages lack the directory in which the library saves settings"
    exit 1
fi

# ---- A fresh system ----

[[ $EUID -eq 0 ]] || skip "a fresh system needs root"
[[ -n ${KX_OWN_MOUNTS:-} ]] || skip "a fresh system needs the right to mount"
command -v debootstrap >/dev/null || skip "debootstrap is not installed"
codename=$(. /etc/os-release && printf '%s' "${VERSION_CODENAME:-}")
# shellcheck disable=SC2016  # apt's own variables
mirror=$(apt-get indextargets --format '$(REPO_URI) $(RELEASE)' 'Created-By: Packages' |
    awk -v release="$codename" '$2 == release {print $1; exit}')
[[ -n $mirror ]] || skip "apt knows no archive of $codename"

begin "debootstrap of $codename from $mirror"
if ! debootstrap --variant=minbase "$codename" "$root" "$mirror" >"$work/bootstrap.log" 2>&1; then
    tail -5 "$work/bootstrap.log"
    skip "debootstrap failed: the archive cannot be reached, or devices cannot be made"
fi
mount -t proc proc "$root/proc" || skip "/proc cannot be mounted"
cp /etc/resolv.conf "$root/etc/resolv.conf"
mkdir "$root/packages"
for package in "${packages[@]}"; do
    cp "$built/${package}"_*.deb "$root/packages"
done

# in_root COMMAND...: the command in the fresh system, its output only when it fails.
in_root() {
    if ! chroot "$root" "$@" >"$work/output" 2>&1; then
        echo "FAILED: $*"
        cat "$work/output"
        exit 1
    fi
}
apt_install() { in_root apt-get install -y -q --no-install-recommends "$@"; }

# All files, except those that installing and removing any package leaves: lists, logs and caches.
files() {
    find "$root" -xdev \( -path "$root/var/lib/dpkg" -o -path "$root/var/lib/apt" \
        -o -path "$root/var/log" -o -path "$root/var/cache" -o -path "$root/packages" \
        -o -path "$root/tmp" -o -path "$root/etc/ld.so.cache" \) -prune -o -printf '/%P\n' | sort
}

begin "installing what the packages depend on"
in_root apt-get update -q
names=$(printf '%s|' "${packages[@]}")
mapfile -t dependencies < <(
    chroot "$root" sh -c 'apt-get install -s --no-install-recommends /packages/*.deb' |
        awk '/^Inst/ {print $2}' | grep -vxE "${names%|}"
)
apt_install "${dependencies[@]}"
files >"$work/before"

begin "installing the packages"
in_root sh -c 'apt-get install -y -q --no-install-recommends /packages/*.deb'
for service in multi-user.target.wants/kxlinhw-restore sysinit.target.wants/kxlinhw-repair; do
    if [[ ! -L $root/etc/systemd/system/$service.service ]]; then
        echo "$service.service would not run when the host starts"
        exit 1
    fi
done

begin "using them"
for arguments in "card list" "port show 04:00.4 1" "module list"; do
    # Words.
    # shellcheck disable=SC2086
    diff <("$kxctl" --sim lab $arguments) <(chroot "$root" kxctl --sim lab $arguments)
    echo "kxctl --sim lab $arguments: as in the build tree"
done

begin "virtual machines, without libvirt"
if compgen -G "$root/usr/lib/*/libvirt.so.0" >/dev/null; then
    echo "a package depends on libvirt0, which is only recommended"
    exit 1
fi
said=$(chroot "$root" kxctl --sim lab vm list 2>&1) && status=0 || status=$?
if [[ $status != 1 || $said != *"LibVirt connection failure"* ]]; then
    echo "without libvirt0, kxctl vm list ends with $status and says: $said"
    exit 1
fi
echo "without libvirt0: $said"

begin "the example"
diff "$source/examples/list_cards.c" \
    "$root/usr/share/doc/libkxlinhw-dev/examples/list_cards.c"

begin "removing them"
in_root apt-get purge -y -q "${packages[@]}"
files >"$work/after"
if ! diff "$work/before" "$work/after"; then
    echo "removing left (>) or took away (<) files"
    exit 1
fi
begin "done"
