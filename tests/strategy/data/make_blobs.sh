#!/bin/sh
# Makes the strategy blobs of the tests with openssl, independently of the library's decoder.
#
# A blob is the plain length as 8 decimal digits, then the AES-128-CBC cipher text in lower-case
# hexadecimal. Key and initialisation vector are both the MD5 of the strategy pass string, read
# from the default profile deploy/local.cmake. For each blob NAME the script writes NAME.blob and,
# where the plain text is meaningful, NAME.plain; pass.md5 records the key the blobs were made
# with, so that the tests can tell a build with another profile.
#
# openssl pads with PKCS#7, so a plain text of n bytes gives ((n / 16) + 1) blocks. The receiver
# cuts the deciphered text by the length prefix and never looks at padding; but it expects
# ((n + 15) / 16) blocks, so a plain text whose length is a multiple of 16 must be enciphered
# without padding (-nopad), or the blob's size would be refused.
#
# Run from anywhere: sh tests/strategy/data/make_blobs.sh
set -eu
here=$(cd "$(dirname "$0")" && pwd)
profile="$here/../../../deploy/local.cmake"
pass=$(sed -n 's/^set(QZ_STRATEGY_PASS "\([^"]*\)".*/\1/p' "$profile")
[ -n "$pass" ] || { echo "no QZ_STRATEGY_PASS in $profile" >&2; exit 1; }
key=$(printf '%s' "$pass" | openssl dgst -md5 -r | cut -c1-32)
printf '%s\n' "$key" > "$here/pass.md5"

# s TEXT: a length-prefixed string (2 digits).
s() { printf '%02d%s' "${#1}" "$1"; }

# encipher NAME PLAIN: writes NAME.plain and NAME.blob.
encipher() {
    printf '%s' "$2" > "$here/$1.plain"
    n=$(wc -c < "$here/$1.plain" | tr -d ' ')
    pad=""
    if [ $((n % 16)) -eq 0 ]; then pad="-nopad"; fi
    hex=$(openssl enc -aes-128-cbc -K "$key" -iv "$key" $pad -in "$here/$1.plain" |
          od -An -v -tx1 | tr -d ' \n')
    printf '%08d%s' "$n" "$hex" > "$here/$1.blob"
}

# Fields 1-14: three address lists (the third with an empty entry, which counts but is not
# kept), two sets, two maps with the values 7, -12, 12 (trailing blank) and -5.
lists="03$(s 10.1.1.1)$(s 10.1.1.2)$(s 192.168.100.200)"
lists="$lists""02$(s 10.2.2.1)$(s 10.2.2.2)"
lists="$lists""02$(s '')$(s 10.3.3.1)"
sets12="02$(s actone)$(s acttwo)01$(s alpha)"
maps="02$(s key)007$(s neg)-12""02$(s k1)12 $(s k2)-05"
# Fields 15-20: keep-alive 30 s, timer periods 45 s and 100 s, number 3 with a leading "+".
numbers="00030""00045""+0250""00100""00007""04096"
# Fields 21-28: set 3 with an empty entry, set 5 empty.
longsets="0002$(s set3)$(s '')""0001$(s set4)""0000""0001$(s set6)"

encipher good "$lists$sets12$maps$numbers$longsets""1"

# Ends right after field 28, with another keep-alive: applied, the switch left alone.
encipher no_switch "$lists$sets12$maps""00031""00045""+0250""00100""00007""04096""$longsets"

# A "+" is no digit in a one-byte field: only the switch fails, the rest is applied.
encipher switch_plus "$lists$sets12$maps""00032""00045""+0250""00100""00007""04096""$longsets""+"

# Switch 0 keeps the legacy library running.
encipher switch_zero "$lists$sets12$maps$numbers$longsets""0"

# Every count 0: empties all lists and sets; keep-alive 0.
encipher all_zero "00000000000000""00000""00000""00000""00000""00000""00000""0000000000000000""0"

# A plain length that is a multiple of 16 (the set 2 entry is lengthened to get there).
base="$lists""02$(s actone)$(s acttwo)01$(s alpha)$maps$numbers$longsets""1"
extra=$(( (16 - ${#base} % 16) % 16 ))
alpha=alpha$(printf '%*s' "$extra" '' | tr ' ' x)
encipher exact_blocks "$lists""02$(s actone)$(s acttwo)01$(s "$alpha")$maps$numbers$longsets""1"

# Refused plain texts; each ends with switch 1, so a wrongly applied blob would show.
encipher entry16 "03$(s 10.1.1.1)$(s 10.1.1.2)$(s 192.168.100.200)""02$(s 10.2.2.1)$(s 10.2.2.2)""01$(s 10.100.100.100.1)$sets12$maps$numbers$longsets""1"
encipher number_letter "$lists$sets12$maps""00030""00045""002x0""00100""00007""04096""$longsets""1"
encipher number_blank "$lists$sets12$maps""00 30""00045""+0250""00100""00007""04096""$longsets""1"
encipher count_letter "$lists$sets12$maps$numbers""0002$(s set3)$(s '')""0x01$(s set4)""0000""0001$(s set6)""1"
encipher map_blank "$lists$sets12""02$(s key) 12$(s neg)-12""02$(s k1)12 $(s k2)-05""$numbers$longsets""1"
encipher short "$lists$sets12$maps$numbers""0002$(s set3)03se"

# Outer-layer refusals made from the good blob: n = 0 with nothing behind it, one hex digit
# missing, one too many, and a letter in the length.
printf '00000000' > "$here/zero_length.blob"
good=$(cat "$here/good.blob")
printf '%s' "${good%?}" > "$here/hex_short.blob"
printf '%s0' "$good" > "$here/hex_long.blob"
printf '0000012a%s' "${good#????????}" > "$here/length_letter.blob"
