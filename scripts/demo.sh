#!/usr/bin/env bash
# Builds (if needed) and runs the demo host against the simulated engine.
#   scripts/demo.sh            Linux build
#   scripts/demo.sh --windows  Windows build, under wine
set -euo pipefail
cd "$(dirname "$0")/.."
preset=linux
[ "${1:-}" = "--windows" ] && preset=windows
scripts/install-deps.sh
[ -f "build/$preset/build.ninja" ] || cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" --target orbperix-demo >/dev/null
if [ "$preset" = windows ]; then
  export WINEPREFIX=$PWD/build/windows/wineprefix WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
  exec wine build/windows/bin/orbperix-demo.exe </dev/null
fi
exec build/linux/bin/orbperix-demo
