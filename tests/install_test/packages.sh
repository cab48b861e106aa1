#!/usr/bin/env bash
# Makes the Debian packages of a build and has lintian check them.
# usage: packages.sh BUILD
set -euo pipefail

cd "$1"
rm -rf packages
cpack -B packages >/dev/null
packages=(packages/*.deb)
printf '%s\n' "${packages[@]}"
names=(libparamset-dev libparamset1)
if [[ -x tools/pslog ]]; then names+=(paramset-tools); fi
[[ "$(for package in "${packages[@]}"; do dpkg-deb --field "$package" Package; done)" == "$(printf '%s\n' "${names[@]}")" ]]
lintian --fail-on error,warning --allow-root "${packages[@]}"
for package in "${packages[@]}"; do dpkg-deb --extract "$package" packages/unpacked; done
if [[ -x tools/pslog ]]; then packages/unpacked/usr/bin/pslog --help >/dev/null; fi
library="$(find packages/unpacked -name 'libparamset.so.*.*')"
if readelf --dynamic "$library" | grep -E 'RPATH|RUNPATH'; then
    echo "$library has a path of its own" >&2
    exit 1
fi
