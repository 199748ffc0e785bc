#!/usr/bin/env bash
# Builds the library and runs the whole test suite: a plain build, then AddressSanitizer with
# UndefinedBehaviorSanitizer, then ThreadSanitizer; then a short run of every fuzz target.
# `--quick` runs the plain build only.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/tools/install_deps.sh"

jobs=$(nproc 2>/dev/null || echo 2)
variants=(plain address thread)
[ "${1:-}" = "--quick" ] && variants=(plain)

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
[ "${1:-}" = "--quick" ] || "$root/tools/fuzz.sh" --smoke
