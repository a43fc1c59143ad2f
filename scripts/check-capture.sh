#!/usr/bin/env bash
# Records a demo session (scripts/demo.sh --capture) and checks, with Debian's tshark and the
# shipped dissector, that the capture reproduces what the demo posted: every remote-control
# event's type, action and coordinates in order, and the number of heartbeats written.
#   scripts/check-capture.sh linux|windows
set -euo pipefail
cd "$(dirname "$0")/.."
platform=${1:-linux}
command -v tshark >/dev/null || { echo "check-capture: tshark is not installed" >&2; exit 1; }
out=build/$platform/capture-check
mkdir -p "$out"
rm -f "$out/demo.pcapng"
args=(--capture "$out/demo.pcapng")
[ "$platform" = windows ] && args+=(--windows)
scripts/demo.sh "${args[@]}" > "$out/demo.txt"
tr -d '\r' < "$out/demo.txt" > "$out/demo.lf.txt"

# What was posted: "type action xs ys" per event, in order.
sed -nE 's/^ +posted type=([0-9]+) action=([0-9]+) x=([-0-9,]*) y=([-0-9,]*)$/\1 \2 \3 \4/p' \
  "$out/demo.lf.txt" > "$out/posted.txt"
beats=$(sed -nE 's/^ +heartbeats written in total: ([0-9]+)$/\1/p' "$out/demo.lf.txt")
[ -s "$out/posted.txt" ] && [ -n "$beats" ] || { echo "check-capture: the demo printed no posts"; exit 1; }

# What the capture says, through the dissector.
lua=tools/capture/orbperix.lua
tshark -X lua_script:$lua -r "$out/demo.pcapng" -Y 'orbperix.payload_kind == 1' -T fields \
  -E separator=' ' -E occurrence=a -E aggregator=, \
  -e orbperix.rc.type -e orbperix.rc.action -e orbperix.rc.x -e orbperix.rc.y \
  2>/dev/null | sed -E 's/ +$//; s/  / /g' > "$out/captured.txt"
sed -E 's/ +$//; s/  / /g' "$out/posted.txt" > "$out/posted.norm.txt"
captured_beats=$(tshark -X lua_script:$lua -r "$out/demo.pcapng" -Y 'orbperix.heartbeat' \
  2>/dev/null | wc -l)

status=0
if ! diff -u "$out/posted.norm.txt" "$out/captured.txt"; then
  echo "check-capture: the remote-control events in the capture differ from those posted"
  status=1
fi
if [ "$beats" != "$captured_beats" ]; then
  echo "check-capture: $beats heartbeats written, $captured_beats in the capture"
  status=1
fi
echo "check-capture: $platform: $(wc -l < "$out/captured.txt") events and $captured_beats heartbeats" \
     "decoded by tshark $([ $status -eq 0 ] && echo 'as posted' || echo 'WRONG')"
exit $status
