#!/usr/bin/env bash
# Builds the library, installs it into a prefix under the build directory, checks that the shared
# library exports nothing but the interface, and builds the example hosts against the installed
# package (find_package, the public header and the shared library only) into
# <build>/<host>/<host>.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build="${QZ_EXAMPLE_BUILD_DIR:-$root/build-example}"
prefix="$build/install"
jobs=$(nproc 2>/dev/null || echo 2)

cmake -S "$root" -B "$build/library" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
      -DCMAKE_INSTALL_PREFIX="$prefix" -DQZ_BUILD_TESTS=OFF -DQZ_BUILD_BENCH=OFF \
      -DQZ_BUILD_EXAMPLES=OFF >/dev/null
cmake --build "$build/library" -j"$jobs" --target qzdata_report
cmake --install "$build/library" >/dev/null

library=$(find "$prefix" -name 'libqzdata_report.so.*' -type f | head -n 1)
nm -D --defined-only "$library" | c++filt | awk '{ $1 = ""; $2 = ""; sub(/^  /, ""); print }' |
  sort > "$build/exports.txt"
interface='^qzdata_report_kelvo(_internal)?::[A-Za-z0-9_]+(\[abi:cxx11\])?\('
if grep -v -E "$interface" "$build/exports.txt" | grep -q .; then
  echo "error: the library exports more than its interface:" >&2
  grep -v -E "$interface" "$build/exports.txt" >&2
  exit 1
fi
echo "${library#$prefix/}: $(wc -l <"$build/exports.txt") exported functions, all of the interface" \
     "(listed in $build/exports.txt)"

for host in minimal_host demo_host; do
  cmake -S "$root/examples/$host" -B "$build/$host" \
        -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
  cmake --build "$build/$host" -j"$jobs"
done
