#!/usr/bin/env bash
# Builds the library and runs the whole test suite: a plain build, then AddressSanitizer with
# UndefinedBehaviorSanitizer, then ThreadSanitizer; then a short run of every fuzz target; then
# the Windows build (MinGW-w64), whose suite runs under Wine.
# `--quick` runs the plain build only; `--windows` the Windows build only.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/tools/install_deps.sh" --windows

jobs=$(nproc 2>/dev/null || echo 2)
variants=(plain address thread)
[ "${1:-}" = "--quick" ] && variants=(plain)
[ "${1:-}" = "--windows" ] && variants=()

for variant in "${variants[@]}"; do
  dir="$root/build-ci-$variant"
  sanitize=""
  [ "$variant" = plain ] || sanitize="$variant"
  echo "== $variant build =="
  cmake -S "$root" -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQZ_SANITIZE="$sanitize" \
        -DQZ_BUILD_BENCH=OFF -DQZ_WARNINGS_AS_ERRORS=ON >/dev/null
  cmake --build "$dir" -j"$jobs"
  ASAN_OPTIONS=detect_leaks=1 TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1" \
    ctest --test-dir "$dir" --output-on-failure -j"$jobs"
done
[ -n "${1:-}" ] || "$root/tools/fuzz.sh" --smoke
[ "${1:-}" = "--quick" ] && exit 0

echo "== windows build =="
deps=$("$root/tools/windows_deps.sh" | tail -n 1)
dir="$root/build-ci-windows"
cmake -S "$root" -B "$dir" -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchains/mingw-w64.cmake" \
      -DQZ_WINDOWS_DEPS="$deps" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQZ_BUILD_BENCH=OFF \
      -DQZ_WARNINGS_AS_ERRORS=ON >/dev/null
cmake --build "$dir" -j"$jobs"
# Wine on two busy cores now and then makes a timing-bound test late: such a test gets a second
# run.
ctest --test-dir "$dir" --output-on-failure -j"$jobs" --repeat until-pass:2
