#!/usr/bin/env bash
# Builds what the Windows build needs and Debian ships no MinGW package of: jsoncpp (linked into
# the DLL) and OpenSSL 3 (loaded at run time by the DLL; the tests use it so that the AES, DES
# and TLS paths run for real under Wine). Both come from Debian's source packages, fetched
# through a private source list made from the system's own, so that the system's apt
# configuration is not touched. Everything goes into a cache folder outside the source tree,
# once per machine; a second run only checks that the results are there.
#
#   tools/windows_deps.sh        prints the cache folder (the prefix of both builds) at the end
#
# Needs the packages of `tools/install_deps.sh --windows` (mingw-w64, dpkg-dev, wine).
set -euo pipefail

cache=${XDG_CACHE_HOME:-$HOME/.cache}/qzdata_report
prefix=$cache/mingw64
jobs=$(nproc 2>/dev/null || echo 2)
host=x86_64-w64-mingw32
root=$(cd "$(dirname "$0")/.." && pwd)
mkdir -p "$cache" "$prefix"

# apt, seeing the system's own Debian sources as deb-src entries in a list of our own.
apt_private() {
  local tool=$1
  shift
  "$tool" -qq -o Dir::Etc::SourceParts="$cache/apt/sources.list.d" \
    -o Dir::Etc::SourceList=/dev/null -o Dir::State::Lists="$cache/apt/lists" \
    -o Dir::Cache="$cache/apt/cache" -o APT::Sandbox::User="$(id -un)" "$@"
}

if [ ! -f "$cache/apt/ready" ]; then
  mkdir -p "$cache/apt/sources.list.d" "$cache/apt/lists/partial" "$cache/apt/cache"
  sources=$cache/apt/sources.list.d
  : >"$sources/debian-src.sources"
  for file in /etc/apt/sources.list.d/*.sources; do
    [ -f "$file" ] && grep -q 'debian' "$file" || continue
    sed -e 's/^Types:.*/Types: deb-src/' "$file" >>"$sources/debian-src.sources"
    echo >>"$sources/debian-src.sources"
  done
  if [ -f /etc/apt/sources.list ]; then
    sed -n -e 's/^deb \(.*debian.*\)/deb-src \1/p' /etc/apt/sources.list >"$sources/debian-src.list"
  fi
  apt_private apt-get update
  touch "$cache/apt/ready"
fi

# Unpacks the source package $1 under $cache/src and prints its folder.
fetch_source() {
  local package=$1 dir
  mkdir -p "$cache/src"
  dir=$(find "$cache/src" -maxdepth 1 -type d -name "$package-*" | head -n 1)
  if [ -z "$dir" ]; then
    # A mirror may lack the newest version's files: the newest that downloads wins.
    for version in $(apt_private apt-cache showsrc "$package" | sed -n 's/^Version: //p' |
      sort -Vr); do
      (cd "$cache/src" && apt_private apt-get source "$package=$version" >/dev/null 2>&1) && break
    done
    dir=$(find "$cache/src" -maxdepth 1 -type d -name "$package-*" | head -n 1)
  fi
  echo "$dir"
}

if [ ! -f "$prefix/lib/libjsoncpp.a" ]; then
  echo "== jsoncpp for $host =="
  src=$(fetch_source libjsoncpp)
  cmake -S "$src" -B "$cache/build-jsoncpp" \
    -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchains/mingw-w64.cmake" -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_INSTALL_PREFIX="$prefix" -DBUILD_SHARED_LIBS=OFF -DBUILD_STATIC_LIBS=ON \
    -DBUILD_OBJECT_LIBS=OFF -DJSONCPP_WITH_TESTS=OFF -DJSONCPP_WITH_POST_BUILD_UNITTEST=OFF \
    -DJSONCPP_WITH_PKGCONFIG_SUPPORT=OFF -DJSONCPP_WITH_CMAKE_PACKAGE=ON \
    -DCMAKE_POSITION_INDEPENDENT_CODE=ON >/dev/null
  cmake --build "$cache/build-jsoncpp" -j"$jobs" >/dev/null
  cmake --install "$cache/build-jsoncpp" >/dev/null
fi

if [ ! -f "$prefix/bin/libcrypto-3-x64.dll" ] || [ ! -f "$prefix/bin/libssl-3-x64.dll" ]; then
  echo "== OpenSSL for $host (several minutes, once per machine) =="
  src=$(fetch_source openssl)
  build=$cache/build-openssl
  rm -rf "$build" && mkdir -p "$build"
  (cd "$build" && "$src/Configure" mingw64 no-tests shared \
    --cross-compile-prefix="$host-" --prefix="$prefix" --libdir=lib >/dev/null)
  make -C "$build" -j"$jobs" build_libs >"$build/build.log" 2>&1 ||
    { tail -n 40 "$build/build.log" >&2; exit 1; }
  # OpenSSL 3.0 knows no "no-docs"; building and installing only the libraries skips them.
  make -C "$build" install_runtime_libs install_dev >/dev/null
fi

echo "$prefix"
