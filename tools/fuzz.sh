#!/usr/bin/env bash
# Builds the libFuzzer targets of tests/fuzz (clang 14) and runs each for SECONDS on a scratch
# copy of its seed corpus, so the corpus in the tree does not grow. Prints per target the number
# of inputs run and whether it found anything (crash, hang, leak, broken property), and exits
# non-zero on any finding; the reproducers stay under <build>/fuzz-runs/<target>/artifacts.
#
#   tools/fuzz.sh [SECONDS]   every target for SECONDS (default 60)
#   tools/fuzz.sh --smoke     every target for a few seconds (CI)
#
# Build folder: $QZ_FUZZ_BUILD_DIR, else <root>/build-fuzz. Parallel build jobs: $QZ_FUZZ_JOBS
# (default 2); targets run at once: $QZ_FUZZ_PARALLEL (default 1).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${QZ_FUZZ_BUILD_DIR:-$root/build-fuzz}
jobs=${QZ_FUZZ_JOBS:-2}

seconds=60
case "${1:-}" in
  "") ;;
  --smoke) seconds=5 ;;
  *[!0-9]* | 0) echo "usage: $0 [SECONDS | --smoke]" >&2; exit 2 ;;
  *) seconds=$1 ;;
esac

"$root/tools/install_deps.sh"
started=$(date +%s)

cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQZ_FUZZ=ON \
      -DCMAKE_C_COMPILER=clang-14 -DCMAKE_CXX_COMPILER=clang++-14 -DQZ_SANITIZE= \
      -DQZ_BUILD_TESTS=OFF -DQZ_BUILD_BENCH=OFF -DQZ_BUILD_EXAMPLES=OFF >/dev/null
cmake --build "$build" --target qz_fuzz_targets -j"$jobs"
built=$(date +%s)

targets=$(sed -n '/^set(QZ_FUZZ_TARGETS/,/)/p' "$root/tests/fuzz/CMakeLists.txt" |
          sed 's/set(QZ_FUZZ_TARGETS//; s/)//' | tr -s ' \n' '\n' | sed '/^$/d')

export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
# fuzz_one TARGET: runs one target and leaves its result line in its work folder.
fuzz_one() {
  local target=$1 work="$build/fuzz-runs/$1" status=0 executions artifacts result
  rm -rf "$work"
  mkdir -p "$work/corpus" "$work/artifacts" "$work/tmp"
  cp "$root/tests/fuzz/corpus/$target/"* "$work/corpus/" 2>/dev/null || true
  TMPDIR="$work/tmp" "$build/tests/fuzz/fuzz_$target" -max_total_time="$seconds" -timeout=25 \
    -rss_limit_mb=2048 -print_final_stats=1 -artifact_prefix="$work/artifacts/" \
    "$work/corpus" >"$work/log" 2>&1 || status=$?
  executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$work/log" | tail -1)
  artifacts=$(find "$work/artifacts" -type f | wc -l)
  if [ "$status" -ne 0 ] || [ "$artifacts" -ne 0 ]; then
    result="FOUND (exit $status; log $work/log; artifacts $work/artifacts)"
  else
    result="nothing found"
  fi
  printf '%-22s %12s  %s\n' "$target" "${executions:-?}" "$result" >"$work/result"
  rm -rf "$work/tmp"
}

# $QZ_FUZZ_PARALLEL targets run at once (default 1).
running=0
for target in $targets; do
  fuzz_one "$target" &
  running=$((running + 1))
  if [ "$running" -ge "${QZ_FUZZ_PARALLEL:-1}" ]; then
    wait -n || true
    running=$((running - 1))
  fi
done
wait
printf '%-22s %12s  %s\n' target executions result
findings=0
for target in $targets; do
  cat "$build/fuzz-runs/$target/result"
  grep -q FOUND "$build/fuzz-runs/$target/result" && findings=$((findings + 1))
done

finished=$(date +%s)
echo "build $((built - started)) s, runs $((finished - built)) s, total $((finished - started)) s"
if [ "$findings" -ne 0 ]; then
  echo "$findings target(s) found something" >&2
  exit 1
fi
