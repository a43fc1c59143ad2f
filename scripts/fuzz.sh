#!/usr/bin/env bash
# Runs a bounded libFuzzer campaign against the remote-control sender (default) or the
# capture reader of orbperix-inspect.
#
#   scripts/fuzz.sh SECONDS [remote_event|capture_reader]
#
# Configures a clang build with AddressSanitizer and UBSan in build/fuzz (-DORBPERIX_FUZZ=ON),
# builds the fuzzer, and fuzzes a copy of the committed corpus for SECONDS seconds. The
# committed corpus is never modified; new inputs stay in build/fuzz/corpus. A crashing input is
# written to build/fuzz/artifacts/ and the script exits non-zero.
set -euo pipefail

if [ $# -lt 1 ] || [ $# -gt 2 ] || ! [[ $1 =~ ^[0-9]+$ ]] || [ "$1" -eq 0 ] ||
   ! [[ ${2:-remote_event} =~ ^(remote_event|capture_reader)$ ]]; then
  echo "usage: scripts/fuzz.sh SECONDS [remote_event|capture_reader]" >&2
  exit 2
fi
seconds=$1
target=${2:-remote_event}
root=$(cd "$(dirname "$0")/.." && pwd)
build=$root/build/fuzz
CC=${CC_FUZZ:-clang-14}
CXX=${CXX_FUZZ:-clang++-14}

cmake -S "$root" -B "$build" -G Ninja \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_C_COMPILER="$CC" -DCMAKE_CXX_COMPILER="$CXX" \
  -DORBPERIX_FUZZ=ON -DORBPERIX_SANITIZE=address \
  -DCMAKE_CXX_FLAGS="-fsanitize=fuzzer-no-link" >/dev/null
cmake --build "$build" --target "orbperix_${target}_fuzzer"

corpus=$build/corpus/$target
artifacts=$build/artifacts
mkdir -p "$corpus" "$artifacts"
cp -n "$root"/fuzz/corpus/$target/* "$corpus"/ 2>/dev/null || true

export UBSAN_OPTIONS=${UBSAN_OPTIONS:-halt_on_error=1:print_stacktrace=1}
status=0
"$build/bin/orbperix_${target}_fuzzer" \
  -max_total_time="$seconds" -timeout=10 -print_final_stats=1 \
  -artifact_prefix="$artifacts/" "$corpus" || status=$?

if [ $status -ne 0 ]; then
  echo "fuzz.sh: the fuzzer failed (status $status); see $artifacts/" >&2
  exit 1
fi
echo "fuzz.sh: $seconds s without a failure; corpus of $(ls "$corpus" | wc -l) inputs in $corpus"
