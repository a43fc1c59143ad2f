#!/usr/bin/env bash
# Installs the library into build/<platform>/install and builds and runs the small consumer
# project of tests/consumer against the installed OrbPerix package, as a host would.
#   scripts/consumer.sh linux|windows
set -euo pipefail
cd "$(dirname "$0")/.."
platform=$1
build=build/$platform
prefix=$PWD/$build/install
rm -rf "$prefix" "$build-consumer"
cmake --install "$build" --prefix "$prefix" >/dev/null
args=(-G Ninja -S tests/consumer -B "$build-consumer" -DOrbPerix_DIR="$prefix/lib/cmake/OrbPerix")
if [ "$platform" = windows ]; then
  args+=(-DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/mingw-w64-x86_64.cmake")
fi
cmake "${args[@]}" >/dev/null
cmake --build "$build-consumer" >/dev/null
if [ "$platform" = windows ]; then
  WINEPREFIX=$PWD/build/windows/wineprefix WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml=" \
    wine "$build-consumer/orbperix_consumer.exe" </dev/null
else
  "$build-consumer/orbperix_consumer"
fi
