#!/usr/bin/env bash
# The main job: builds and installs the library, builds the example hosts against the installed
# package, starts the bundled collector on the deployment profile's loopback ports, runs the
# demo host against it (a session of about ten seconds), and prints what the collector received.
# Fails when the demo or the collector failed, or when a request was rejected.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build="${QZ_EXAMPLE_BUILD_DIR:-$root/build-example}"
"$root/tools/install_deps.sh"
QZ_EXAMPLE_BUILD_DIR="$build" "$root/tools/build_hosts.sh"

log="$build/collector.log"
python3 "$root/tools/qzcollector/qzcollector.py" --exit-after 120s >"$log" 2>&1 &
collector=$!
trap 'kill "$collector" 2>/dev/null || true' EXIT
for _ in $(seq 100); do
  grep -q "live view" "$log" && break
  if ! kill -0 "$collector" 2>/dev/null; then
    cat "$log" >&2
    echo "error: the collector did not start (is another one running on its ports?)" >&2
    exit 1
  fi
  sleep 0.1
done

# The demo keeps its machine ids under the build directory, not in the user's home.
echo "== demo_host =="
status=0
XDG_CONFIG_HOME="$build/demo-home/config" XDG_DATA_HOME="$build/demo-home/data" \
  "$build/demo_host/demo_host" || status=$?
kill -INT "$collector"
wait "$collector" || status=$?
trap - EXIT

echo "== what the collector received =="
cat "$log"
summary=$(grep '^summary:' "$log" || true)
if [ "$status" -ne 0 ] || [ -z "$summary" ] || ! grep -q ' 0 rejected' <<<"$summary" ||
   grep -q ' 0 records' <<<"$summary"; then
  echo "error: the session did not reach the collector as it should" >&2
  exit 1
fi
