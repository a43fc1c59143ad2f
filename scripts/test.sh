#!/usr/bin/env bash
# Builds OrbPerixProvider for Linux and Windows and runs every test: natively, under wine, and
# in the Linux sanitizer builds (AddressSanitizer+LeakSanitizer+UBSan, ThreadSanitizer for the
# stress tests), and the allocation-failure sweep (Linux). Installs what is missing on a Debian
# machine first (as root).
#
#   scripts/test.sh            everything
#   scripts/test.sh --no-sanitizers   skip the two sanitizer builds
#
# Prints a summary with each run's counts and exits non-zero on any failure.
set -uo pipefail
cd "$(dirname "$0")/.."
ROOT=$PWD
JOBS=${JOBS:-2}
SANITIZERS=1
for arg in "$@"; do
  case "$arg" in
    --no-sanitizers) SANITIZERS=0 ;;
    *) echo "usage: scripts/test.sh [--no-sanitizers]" >&2; exit 2 ;;
  esac
done

scripts/install-deps.sh || { echo "test.sh: could not install the build dependencies" >&2; exit 1; }

declare -a SUMMARY=()
FAILED=0
TOTAL_PASSED=0
TOTAL_FAILED=0

# run_ctest NAME PRESET [ctest args...]: runs CTest, records "NAME: P passed, F failed".
run_ctest() {
  local name=$1 preset=$2; shift 2
  local log=$ROOT/build/ctest-$name.log
  echo "== [$name] ctest --preset $preset $*"
  ctest --preset "$preset" "$@" > "$log" 2>&1
  # Only what went wrong, and the closing count.
  grep -E '^ *[0-9]+/[0-9]+ Test +#[0-9]+: .*\*\*\*|[0-9]+% tests passed' "$log" || true
  local line total failed
  line=$(grep -E 'tests passed, [0-9]+ tests? failed out of [0-9]+' "$log" | tail -n 1)
  if [ -z "$line" ]; then
    echo "   [$name] no test result (see $log)"
    SUMMARY+=("$name: no result"); FAILED=1; return
  fi
  failed=$(echo "$line" | sed -E 's/.*tests passed, ([0-9]+) tests? failed out of ([0-9]+).*/\1/')
  total=$(echo "$line" | sed -E 's/.*failed out of ([0-9]+).*/\1/')
  local passed=$((total - failed))
  TOTAL_PASSED=$((TOTAL_PASSED + passed)); TOTAL_FAILED=$((TOTAL_FAILED + failed))
  SUMMARY+=("$name: $passed passed, $failed failed")
  [ "$failed" -eq 0 ] || { FAILED=1; grep -A3 -E 'The following tests FAILED' "$log"; }
}

step() {  # step NAME command...: runs a build step, fails the run on error
  local name=$1; shift
  echo "== [$name] $*"
  if ! "$@" > "$ROOT/build/step-$name.log" 2>&1; then
    echo "   [$name] FAILED; last lines of build/step-$name.log:"
    tail -n 40 "$ROOT/build/step-$name.log"
    SUMMARY+=("$name: build step failed"); FAILED=1
    return 1
  fi
}

mkdir -p build
# ---- Linux ----
if step linux-configure cmake --preset linux && step linux-build cmake --build --preset linux -j "$JOBS"; then
  # The allocation sweep runs once, in its own step below, which prints its count.
  run_ctest linux linux -LE alloc
  # Every allocation of the library's own code failed once per scenario (about 10 s).
  if step alloc-sweep build/linux/bin/orbperix_alloc_sweep; then
    ALLOC_LINE=$(grep -E '^[0-9]+ allocation points, all handled$' build/step-alloc-sweep.log)
    if [ -n "$ALLOC_LINE" ]; then
      echo "   $ALLOC_LINE"
      SUMMARY+=("alloc-sweep: $ALLOC_LINE")
    else
      echo "   [alloc-sweep] no count line (see build/step-alloc-sweep.log)"
      SUMMARY+=("alloc-sweep: no count line"); FAILED=1
    fi
  fi
  step linux-exports scripts/check-exports.sh linux build/linux || true
  step linux-cpp-layer scripts/cpp-layer.sh linux build/linux || true
  step linux-consumer scripts/consumer.sh linux || true
  step python-demo python3 examples/python/demo.py --check || true
  step linux-capture scripts/check-capture.sh linux || true
fi

# ---- Windows (mingw-w64, tests under wine) ----
if step windows-configure cmake --preset windows && step windows-build cmake --build --preset windows -j "$JOBS"; then
  run_ctest windows windows
  step windows-exports scripts/check-exports.sh windows build/windows || true
  step windows-cpp-layer scripts/cpp-layer.sh windows build/windows || true
  step windows-version python3 scripts/dll-version.py build/windows/bin/OrbPerixProvider.dll || true
  step windows-consumer scripts/consumer.sh windows || true
  step windows-capture scripts/check-capture.sh windows || true
fi

# ---- Sanitizers (Linux) ----
if [ "$SANITIZERS" -eq 1 ]; then
  if step asan-configure cmake --preset linux-asan && step asan-build cmake --build --preset linux-asan -j "$JOBS"; then
    ASAN_OPTIONS=detect_leaks=1:abort_on_error=0 UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 \
      run_ctest linux-asan linux-asan
  fi
  if step tsan-configure cmake --preset linux-tsan && step tsan-build cmake --build --preset linux-tsan -j "$JOBS" --target orbperix_stress_tests; then
    ORBPERIX_STRESS_SECONDS=30 TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 \
      run_ctest linux-tsan linux-tsan -L stress
  fi
fi

echo
echo "== Summary"
for line in "${SUMMARY[@]}"; do echo "   $line"; done
if [ "$FAILED" -ne 0 ]; then
  echo "test.sh: FAILED"
else
  echo "test.sh: all runs passed"
fi
# The closing count of every run together, as the last line.
echo "Total: $TOTAL_PASSED passed, $TOTAL_FAILED failed"
exit "$FAILED"
