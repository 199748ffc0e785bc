#!/usr/bin/env bash
# The main job: builds and installs the library, then builds an example host against the
# installed package and runs it.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/tools/install_deps.sh"
exec "$root/tools/run_example.sh"
