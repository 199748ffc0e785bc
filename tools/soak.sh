#!/usr/bin/env bash
# The soak runs, too long for the test suite: 8 host threads of 100 000 events each (about 40
# minutes at the delivery pace), then an hour of heartbeats and events against a collector that
# goes down and comes back every three minutes, with private memory and open files sampled each
# minute. Fails when a record is lost or memory or open files grow.
#
#   tools/soak.sh [burst THREADS EVENTS] [steady MINUTES RATE FLAP_SECONDS]
#
# Without arguments both run with the figures above. Builds into the benchmark build directory.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${QZ_BENCH_BUILD_DIR:-$root/build-bench}
"$root/tools/install_deps.sh"
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQZ_BUILD_TESTS=OFF \
      -DQZ_BUILD_BENCH=ON -DQZ_BUILD_EXAMPLES=OFF >/dev/null
cmake --build "$build" -j"$(nproc)" --target qz_soak >/dev/null

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
export HOME=$scratch XDG_CONFIG_HOME=$scratch/config XDG_DATA_HOME=$scratch/data
[ $# -eq 0 ] && set -- burst 8 100000 steady 60 20 180
status=0
while [ $# -gt 0 ]; do
  echo "== qz_soak $1 $2 $3 ${4:-} =="
  case "$1" in
    burst) "$build/bench/qz_soak" burst "$2" "$3" || status=1; shift 3 ;;
    steady) "$build/bench/qz_soak" steady "$2" "$3" "$4" || status=1; shift 4 ;;
    *) echo "unknown run: $1" >&2; exit 2 ;;
  esac
done
exit $status
