#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need, when missing (needs root).
set -euo pipefail
PACKAGES=(g++ cmake ninja-build googletest libgtest-dev libbenchmark-dev clang libclang-rt-14-dev
          g++-mingw-w64-x86-64-posix wine64 python3 binutils-mingw-w64-x86-64 tshark)
missing=()
for p in "${PACKAGES[@]}"; do
  dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0
if [ "$(id -u)" -ne 0 ]; then
  echo "install-deps.sh: missing packages ${missing[*]}; run as root or install them" >&2
  exit 1
fi
echo "install-deps.sh: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
apt-get install -y -qq "${missing[@]}" >/dev/null
