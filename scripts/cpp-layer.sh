#!/usr/bin/env bash
# Checks of the header-only C++ layer (include/orbperix/orbperix.hpp) beyond its CTest runs:
#   scripts/cpp-layer.sh linux BUILD_DIR     the header compiled by g++ and clang++ in C++17 and
#                                            C++20 with -Wall -Wextra -Wpedantic -Werror, with
#                                            and without exceptions; the layer test built with
#                                            clang++ against the built library and run; the
#                                            import check of the g++ and clang++ programs
#   scripts/cpp-layer.sh windows BUILD_DIR   the import check of the mingw-built program
# The import check: every symbol the layer's test program takes from the library is an
# orbperix_* C function (no C++ symbol of the library).
set -euo pipefail
cd "$(dirname "$0")/.."
platform=$1 dir=$2
status=0

# import_check PROGRAM: on Linux, the program's undefined symbols that the library defines.
import_check() {
    local program=$1 imported bad
    if [ "$platform" = linux ]; then
        imported=$(comm -12 <(nm -D --undefined-only "$program" | awk '{print $NF}' | sed 's/@.*//' | sort -u) \
                            <(nm -D --defined-only "$dir/bin/libOrbPerixProvider.so" | awk '{print $NF}' | sort -u))
    else
        imported=$(x86_64-w64-mingw32-objdump -p "$program" |
                   awk '/DLL Name:/ {dll = $3} dll == "OrbPerixProvider.dll" && NF == 3 && $2 ~ /^[0-9]+$/ {print $3}')
    fi
    if [ -z "$imported" ]; then
        echo "import check: $program imports nothing from the library (wrong file?)"; status=1; return
    fi
    bad=$(grep -v '^orbperix_' <<<"$imported" || true)
    if [ -n "$bad" ]; then
        echo "import check: $program imports C++ symbols from the library:"; head -n 10 <<<"$bad"; status=1
    else
        echo "import check: $(basename "$program"): $(wc -l <<<"$imported") orbperix_ functions, nothing else"
    fi
}

if [ "$platform" = windows ]; then
    import_check "$dir/bin/orbperix_layer_test.exe"
    exit $status
fi

gtest_include=/usr/src/googletest/googletest/include
includes=(-Iinclude -Isim/engine -Ihostlibs/include -Itests/c -isystem "$gtest_include")
strict=(-Wall -Wextra -Wpedantic -Werror -Wshadow -Wconversion -Wsign-conversion)
# The header alone, and the test program (which instantiates every member) as a syntax check.
for cxx in g++ clang++; do
    for std in c++17 c++20; do
        for exceptions in -fexceptions -fno-exceptions; do
            if ! "$cxx" -std=$std "${strict[@]}" $exceptions -fsyntax-only "${includes[@]}" \
                    tests/cpp/layer_test.cpp -x c++ include/orbperix/orbperix.hpp; then
                echo "compile check: $cxx -std=$std $exceptions FAILED"; status=1
            fi
        done
    done
done
[ $status -eq 0 ] && echo "compile check: g++ and clang++, C++17 and C++20, with and without exceptions: clean"

# The test program built with clang++ against the library built by g++, run from the build's
# bin folder (the library finds the simulated engine beside the executable).
clang_program=$dir/bin/orbperix_layer_test_clang
if clang++ -std=c++17 -O1 "${strict[@]}" "${includes[@]}" tests/cpp/layer_test.cpp -o "$clang_program" \
        -L"$dir/bin" -lOrbPerixProvider -lperixsim -lTraceKit -lorbperix_cast_reference \
        "$dir/lib/libgtest_main.a" "$dir/lib/libgtest.a" -pthread -Wl,-rpath,'$ORIGIN'; then
    if "$clang_program" --gtest_brief=1; then
        echo "clang++ layer test: passed"
    else
        echo "clang++ layer test: FAILED"; status=1
    fi
    import_check "$clang_program"
else
    echo "clang++ build of the layer test FAILED"; status=1
fi
import_check "$dir/bin/orbperix_layer_test"

# The README's example, built with clang++ and run against the simulated engine.
hello=$dir/bin/orbperix_hello
if clang++ -std=c++17 "${strict[@]}" -Iinclude examples/cpp/hello.cpp -o "$hello" \
        -L"$dir/bin" -lOrbPerixProvider -Wl,-rpath,'$ORIGIN' && "$hello"; then
    echo "examples/cpp/hello.cpp: built with clang++ and ran"
else
    echo "examples/cpp/hello.cpp FAILED"; status=1
fi
exit $status
