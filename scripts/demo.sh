#!/usr/bin/env bash
# Builds (if needed) and runs the demo host against the simulated engine.
#   scripts/demo.sh                      Linux build
#   scripts/demo.sh --windows            Windows build, under wine
#   scripts/demo.sh --capture FILE       also record the session into FILE (pcapng; open it with
#                                        Wireshark and tools/capture/orbperix.lua, or with
#                                        orbperix-inspect FILE)
set -euo pipefail
preset=linux
capture=
while [ $# -gt 0 ]; do
  case "$1" in
    --windows) preset=windows ;;
    --capture) [ $# -ge 2 ] || { echo "demo.sh: --capture needs a file" >&2; exit 2; }
               capture=$(realpath -m -- "$2"); shift ;;
    *) echo "usage: scripts/demo.sh [--windows] [--capture FILE]" >&2; exit 2 ;;
  esac
  shift
done
cd "$(dirname "$0")/.."
scripts/install-deps.sh
[ -f "build/$preset/build.ninja" ] || cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" --target orbperix-demo >/dev/null
if [ "$preset" = windows ]; then
  export WINEPREFIX=$PWD/build/windows/wineprefix WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
  [ -z "$capture" ] || export ORBPERIX_CAPTURE="$(winepath -w "$capture" 2>/dev/null)"
  exec wine build/windows/bin/orbperix-demo.exe </dev/null
fi
[ -z "$capture" ] || export ORBPERIX_CAPTURE="$capture"
exec build/linux/bin/orbperix-demo
