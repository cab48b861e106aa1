#!/usr/bin/env bash
# Builds the library as the NDK does, and fails unless it is optimised across its files, can be loaded with
# pages of 16 KiB, and is marked for branch protection.
# usage: build_test.sh SOURCES FOLDER-TO-WORK-IN READELF
set -euo pipefail

sources="$1" build="$2" readelf="$3"
rm -rf "$build"
cmake -S "$sources" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DPARAMSET_TESTS=OFF -DPARAMSET_EXAMPLES=OFF -DPARAMSET_TOOLS=OFF \
    -DCMAKE_TOOLCHAIN_FILE="$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/android.toolchain.cmake"
cmake --build "$build" --target paramset
library="$build/libparamset.so"

object="$(find "$build" -name paramset.cpp.o)"
if [[ "$(head -c 2 "$object")" != BC ]]; then
    echo "$object is no bitcode: the linker cannot optimise across the files" >&2
    exit 1
fi
segments="$("$readelf" --segments --wide "$library" | grep -w LOAD)"
echo "$segments"
if grep -qv ' 0x4000$' <<<"$segments"; then
    echo "$library has a segment that is not aligned to 16 KiB" >&2
    exit 1
fi
if ! "$readelf" --notes "$library" | grep -i 'aarch64 feature: BTI, PAC'; then
    echo "$library has an object that is not compiled with -mbranch-protection=standard" >&2
    exit 1
fi
