#!/usr/bin/env bash
# Every function the shared library exports must be declared with QZ_EXPORT in the exported
# header and defined in src/api with its body run through Guarded or GuardedVoid, so that no
# exception crosses the interface. Fails with the offending names otherwise.
#   check_exports.sh <libqzdata_report.so | qzdata_report.dll> <exported header> <src/api folder>
#                    [objdump of the DLL's platform]
set -euo pipefail
library=$1 header=$2 api=$3 objdump=${4:-objdump}

if [[ $library == *.dll ]]; then  # the export table of the DLL: every name in it is a function
  exported=$("$objdump" -p "$library" | sed -n '/\[Ordinal\/Name Pointer\] Table/,/^$/p' |
    sed -E -n 's/^[[:space:]]*\[ *[0-9]+\] //p')
  total=$(wc -l <<<"$exported")
else
  exported=$(nm -D --defined-only "$library" | awk '{ print $3 }')
  total=$(nm -D --defined-only "$library" | awk '$2 ~ /^[TW]$/' | wc -l)
fi
names=$(c++filt <<<"$exported" |
  sed -E -n 's/^qzdata_report_kelvo(_internal)?::([A-Za-z0-9_]+)(\[abi:cxx11\])?\(.*/\2/p' | sort -u)
[ -n "$names" ] || { echo "no exported functions found in $library" >&2; exit 1; }

failed=0
for name in $names; do
  if ! grep -q -E "QZ_EXPORT[^;]*[ *&]${name}\(" "$header"; then
    echo "exported but not declared in the exported header: $name" >&2
    failed=1
  fi
  # Each definition of the name at the start of a line, up to the closing brace at the start of
  # a line, must go through a guard.
  bodies=$(awk -v name="$name" '
    $0 ~ "^[A-Za-z].*[ :*&]" name "\\(" && $0 !~ /;$/ { inside = 1; body = "" }
    inside { body = body $0 "\n" }
    inside && /^}/ { inside = 0; print (body ~ /Guarded(Void)?\(/ ? "guarded" : "unguarded") }
  ' "$api"/*.cpp)
  if [ -z "$bodies" ] || grep -q unguarded <<<"$bodies"; then
    echo "exported without a guard in $api: $name" >&2
    failed=1
  fi
done

count=$(wc -w <<<"$names")
echo "checked $count exported names ($total exported functions)"
exit $failed
