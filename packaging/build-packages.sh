#!/usr/bin/env bash
# build-packages.sh [DIRECTORY]: builds the Debian packages into DIRECTORY (default: build/packages).
#
# Works on a copy of the sources, so that the tree stays as it is. Needs debhelper and the packages
# that debian/control names; says which are missing.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
directory=${1:-$root/build/packages}

version=$(sed -n 's/^project(kxlinhw VERSION \([0-9.]*\).*/\1/p' "$root/CMakeLists.txt")
packaged=$(dpkg-parsechangelog -l "$root/packaging/debian/changelog" -S Version)
if [[ $packaged != "$version" && $packaged != "$version"[-+~]* ]]; then
    echo "packaging/debian/changelog is of version $packaged, the sources of $version" >&2
    exit 1
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/libkxlinhw" "$directory"
tar -C "$root" --exclude=./build --exclude=./.git -c . | tar -C "$work/libkxlinhw" -x
cp -r "$root/packaging/debian" "$work/libkxlinhw/debian"

export DEB_BUILD_OPTIONS=${DEB_BUILD_OPTIONS:-nocheck parallel=$(nproc)}
(cd "$work/libkxlinhw" && dpkg-buildpackage --build=binary --no-sign)
mv "$work"/*.deb "$work"/*.changes "$work"/*.buildinfo "$directory"
printf '\n'
(cd "$directory" && printf '%s\n' ./*.deb)
