#!/usr/bin/env bash
# Installs a build into a fresh folder and builds and runs its consumers, by CMake's package and by pkg-config.
# usage: run.sh BUILD VERSION CC CXX [CXXFLAG...]
set -euo pipefail

build="$1" version="$2" cc="$3" cxx="$4"
cxx_flags=("${@:5}")
source="$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")"
work="$build/install_test"
rm -rf "$work"
cmake --install "$build" --prefix "$work/prefix.before" >/dev/null
mv "$work/prefix.before" "$work/prefix" # an installed folder may be moved
libraries="$(dirname "$(find "$work/prefix" -name libparamset.so)")"

configure() {
    cmake -S "$source" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$work/prefix" -DPARAMSET_VERSION="$1" \
        -DCMAKE_C_COMPILER="$cc" -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_CXX_FLAGS="${cxx_flags[*]}"
}

if configure "$((${version%%.*} + 1))" >"$work/refused" 2>&1 || ! grep -q "requested version" "$work/refused"; then
    echo "find_package takes version $version where the next major one is asked for" >&2
    exit 1
fi
configure "${version%.*}" >/dev/null
cmake --build "$work/cmake"

export PKG_CONFIG_PATH="$libraries/pkgconfig"
[[ "$(pkg-config --modversion paramset)" == "$version" ]]
# pkg-config quotes for the shell.
eval "flags=($(pkg-config --cflags --libs paramset))"
"$cc" -std=c11 "$source/consumer.c" "${flags[@]}" "-Wl,-rpath,$libraries" -o "$work/pkgconfig_c"
eval "flags=($(pkg-config --cflags --libs paramset paramset_host))"
"$cxx" "${cxx_flags[@]}" -std=c++17 "$source/consumer.cpp" "${flags[@]}" "-Wl,-rpath,$libraries" -o "$work/pkgconfig_cpp"

unset LD_LIBRARY_PATH
for program in cmake/consumer_c cmake/consumer_cpp pkgconfig_c pkgconfig_cpp; do
    "$work/$program"
    echo "$program runs"
done
