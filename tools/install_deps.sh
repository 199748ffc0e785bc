#!/usr/bin/env bash
# Installs the Debian packages that building, testing and running the examples need, when they
# are missing. Idempotent; needs root (or sudo) only when something is missing.
#   --windows  also what the Windows build needs: the MinGW-w64 cross compilers, Wine to run
#              its tests, googletest's sources and dpkg-dev to unpack Debian source packages.
set -euo pipefail

packages=(build-essential cmake pkg-config libjsoncpp-dev libgtest-dev libgmock-dev
          libbenchmark-dev libssl-dev openssl python3-cryptography clang-14 libclang-rt-14-dev
          chromium)
if [ "${1:-}" = "--windows" ]; then
  packages+=(mingw-w64 wine wine64 googletest dpkg-dev ca-certificates)
fi

missing=()
for package in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$package")
  fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

as_root=()
[ "$(id -u)" -eq 0 ] || as_root=(sudo)
export DEBIAN_FRONTEND=noninteractive
"${as_root[@]}" apt-get update -qq
"${as_root[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
