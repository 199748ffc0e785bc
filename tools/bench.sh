#!/usr/bin/env bash
# Builds the benchmarks and runs them all, then prints one table: each measure with its figure,
# the baseline or bound measured or derived in the same run, the ratio, the goal, and whether it
# is met. `--markdown` prints the table as Markdown, headed by the date, the system and the CPU.
#
# The build directory is ${QZ_BENCH_BUILD_DIR:-<root>/build-bench}; the raw output of the last
# run stays in its bench-logs/ folder. HOME and the XDG folders point into a temporary folder,
# so that the library keeps no file in the user's home.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build=${QZ_BENCH_BUILD_DIR:-$root/build-bench}
markdown=false
case "${1:-}" in
  "") ;;
  --markdown) markdown=true ;;
  *) echo "usage: $0 [--markdown]" >&2; exit 2 ;;
esac

logs=$build/bench-logs
mkdir -p "$build"
rm -rf "$logs"
mkdir -p "$logs"

if ! { cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQZ_BUILD_TESTS=OFF \
         -DQZ_BUILD_BENCH=ON -DQZ_BUILD_EXAMPLES=OFF &&
       cmake --build "$build" -j2 --target qz_bench_report qz_bench_delivery qz_bench_host; } \
     >"$logs/build.log" 2>&1; then
  cat "$logs/build.log" >&2
  exit 1
fi
bin=$build/bench

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
# use_home NAME: HOME and the XDG folders in a per-user store of that name, made empty on first
# use; each first-ever run gets one of its own.
use_home() {
  export HOME=$scratch/$1 XDG_CONFIG_HOME=$scratch/$1/config XDG_DATA_HOME=$scratch/$1/data
  mkdir -p "$XDG_CONFIG_HOME" "$XDG_DATA_HOME"
}
use_home host

load_before=$(cut -d' ' -f1 /proc/loadavg)
metrics=$logs/metrics.txt
: >"$metrics"
# run NAME COMMAND...: keeps the output in bench-logs/NAME.{out,err} and collects its metric
# lines, edited by the sed script in $rename when set; a failed run stops the script with its
# error output.
run() {
  local name=$1
  shift
  if ! "$@" >"$logs/$name.out" 2>"$logs/$name.err"; then
    echo "$name failed: $*" >&2
    cat "$logs/$name.err" >&2
    exit 1
  fi
  grep -aoE 'metric [a-z0-9_]+ [-+0-9.e]+' "$logs/$name.out" | sed -e "${rename:-}" \
    >>"$metrics" || true
}

# The idle host with and without the library run side by side: neither costs the other anything
# while idle, and both see the same machine.
run idle-without "$bin/qz_bench_host" idle --without-library &
without=$!
run idle "$bin/qz_bench_host" idle
wait "$without"

# Three processes each: where the library's threads run beside the host's thread, and how late
# the machine ends their sleeps, differ from one to the next.
for i in 1 2 3; do
  run "report-$i" "$bin/qz_bench_report" --benchmark_color=false
done
for i in 1 2 3; do
  run "delivery-$i" "$bin/qz_bench_delivery" --benchmark_color=false
done
for i in 1 2 3; do
  run "queued-$i" "$bin/qz_bench_host" queued 10000
done
# The first records of a host whose machine id is stored (every run after the first), then of
# first-ever runs, which derive the id from the hardware.
for i in 1 2 3 4 5; do
  run "first-record-$i" "$bin/qz_bench_host" first-record
done
for i in 1 2 3; do
  use_home "fresh-$i"
  rename='s/ first_record_ms / first_record_fresh_ms /' \
    run "first-record-fresh-$i" "$bin/qz_bench_host" first-record
done

load_after=$(cut -d' ' -f1 /proc/loadavg)

if $markdown; then
  echo "Benchmarks of $(date -u '+%Y-%m-%d %H:%M UTC')"
  echo
  echo "$(uname -srm), $(grep -m1 'model name' /proc/cpuinfo | sed 's/.*: //'), $(nproc) cores"
  echo
fi

# Repeated metrics count by their median.
sort -k2,2 -k3,3g "$metrics" | awk -v markdown="$markdown" '
  { values[$2, ++count[$2]] = $3 }
  function m(name,   n) {
    n = count[name]
    if (n == 0) { missing = missing " " name; return 0 }
    return n % 2 ? values[name, (n + 1) / 2] : (values[name, n / 2] + values[name, n / 2 + 1]) / 2
  }
  function verdict(ok) { return ok ? "yes" : "NO" }
  function div(a, b) { return b == 0 ? 0 : a / b }
  function row(a, b, c, d, e, f) { rows[++nrows] = a "\t" b "\t" c "\t" d "\t" e "\t" f }
  # A host call against its baseline. Each process measures both side by side and gives their
  # ratio; the table shows the medians over the processes, of the median and of the least time.
  # The goal counts as met only when both ratios meet it.
  function host_call(label, name,   t, b, tmin, bmin, ratio, ratio_min) {
    t = m(name "_ns"); b = m(name "_baseline_ns")
    tmin = m(name "_min_ns"); bmin = m(name "_baseline_min_ns")
    ratio = m(name "_ratio"); ratio_min = m(name "_min_ratio")
    row(label, sprintf("%.0f ns (min %.0f)", t, tmin),
        sprintf("%.0f ns (min %.0f) map+deque", b, bmin),
        sprintf("%.2fx (min %.2fx)", ratio, ratio_min), "<= 1.20x",
        verdict(ratio <= 1.2 && ratio_min <= 1.2))
  }
  END {
    row("Measure", "Figure", "Baseline / bound", "Ratio / diff", "Goal", "Met")
    host_call("SendCustomEvent, host thread", "send_custom")
    host_call("PostEventWithDur, host thread", "post_dur")
    d = m("delivery_per_second"); db = m("delivery_bound_per_second")
    row("Delivery to loopback collector", sprintf("%.0f rec/s", d),
        sprintf("%.0f rec/s (3 x 1 ms pauses)", db), sprintf("%.1f%%", 100 * div(d, db)), ">= 90%",
        verdict(div(d, db) >= 0.9))
    z = m("sleep_1ms_as_slept_ms")
    row("  one 1 ms pause, as slept", sprintf("%.3f ms", z), "1.000 ms", sprintf("%.2fx", z),
        "-", "-")
    c = m("idle_cpu_percent"); cb = m("idle_cpu_percent_without_library")
    row("Idle CPU, 10 s after start-up", sprintf("%.2f%% of a core", c),
        sprintf("%.2f%% without library", cb), sprintf("%+.2f pt", c - cb), "< 0.3%",
        verdict(c < 0.3))
    r = m("rss_anon_kib"); rb = m("rss_anon_kib_without_library")
    row("Private memory (RssAnon), idle", sprintf("%.2f MiB", r / 1024),
        sprintf("%.2f MiB without library", rb / 1024), sprintf("%+.2f MiB", (r - rb) / 1024),
        "< +2 MiB", verdict(r - rb < 2048))
    q = m("queued_bytes_per_record"); w = m("record_wire_bytes")
    row("Memory per queued record, collector down", sprintf("%.0f B", q),
        sprintf("%.0f B request on the wire", w), sprintf("%.2fx", div(q, w)), "-", "-")
    f = m("first_record_ms")
    row("Run to first record, id stored", sprintf("%.1f ms", f), "-", "-", "< 100 ms",
        verdict(f < 100))
    f = m("first_record_fresh_ms")
    row("Run to first record, first run", sprintf("%.1f ms", f), "-", "-", "< 100 ms",
        verdict(f < 100))

    for (i = 1; i <= nrows; ++i) {
      n = split(rows[i], cell, "\t")
      for (j = 1; j <= n; ++j) if (length(cell[j]) > width[j]) width[j] = length(cell[j])
    }
    for (i = 1; i <= nrows; ++i) {
      n = split(rows[i], cell, "\t")
      line = markdown == "true" ? "|" : ""
      for (j = 1; j <= n; ++j) {
        text = sprintf("%-" width[j] "s", cell[j])
        line = line (markdown == "true" ? " " text " |" : (j > 1 ? "  " : "") text)
      }
      print line
      if (i == 1) {
        line = markdown == "true" ? "|" : ""
        for (j = 1; j <= n; ++j) {
          rule = sprintf("%" width[j] "s", ""); gsub(/ /, "-", rule)
          line = line (markdown == "true" ? " " rule " |" : (j > 1 ? "  " : "") rule)
        }
        print line
      }
    }
    if (missing != "") { print "missing metrics:" missing > "/dev/stderr"; exit 1 }
  }'
echo
echo "Medians of repeated runs. Load average before and after: $load_before, $load_after" \
  "on $(nproc) cores; other work on the machine slows the host calls and the 1 ms pauses."
if ! $markdown; then
  echo "Raw output: $logs"
fi
