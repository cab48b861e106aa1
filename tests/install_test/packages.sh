#!/usr/bin/env bash
# Makes the Debian packages of a build and has lintian check them.
# usage: packages.sh BUILD
set -euo pipefail

cd "$1"
rm -rf packages
cpack -B packages >/dev/null
packages=(packages/*.deb)
printf '%s\n' "${packages[@]}"
((${#packages[@]} == 2))
lintian --fail-on error,warning --allow-root "${packages[@]}"
for package in "${packages[@]}"; do dpkg-deb --extract "$package" packages/unpacked; done
library="$(find packages/unpacked -name 'libparamset.so.*.*')"
if readelf --dynamic "$library" | grep -E 'RPATH|RUNPATH'; then
    echo "$library has a path of its own" >&2
    exit 1
fi
