#!/bin/sh
# Regenerates the cipher vectors of the codec tests with the openssl command-line tool, an
# implementation independent of the code under test. Run from this folder:
#   sh make_vectors.sh
# Output: aes_vectors.txt and des_vectors.txt (one vector a line, fields separated by blanks).
set -eu

tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

hex() { od -An -v -tx1 "$1" | tr -d ' \n'; }

# AES-128-CBC, key and vector both the MD5 of the pass string. The blob is the plain length as
# 8 decimal digits, then the cipher text cut to the length rounded up to 16 (openssl adds a
# PKCS#7 block that the blob format leaves out when the length is already a multiple of 16).
# Line: name pass plain_hex hex_blob base64_blob
aes_vector() {
    printf '%s' "$3" > "$tmp/plain"
    key=$(printf '%s' "$2" | openssl dgst -md5 -r | cut -c1-32)
    n=$(wc -c < "$tmp/plain")
    openssl enc -aes-128-cbc -K "$key" -iv "$key" -in "$tmp/plain" |
        head -c $(( (n + 15) / 16 * 16 )) > "$tmp/cipher"
    length=$(printf '%08d' "$n")
    printf '%s %s %s %s%s %s%s\n' "$1" "$2" "$(hex "$tmp/plain")" \
        "$length" "$(hex "$tmp/cipher")" "$length" "$(openssl base64 -A -in "$tmp/cipher")"
}

# DES-ECB, key = the 8 characters of the key string as bytes. Mode `pad` pads with PKCS#7 as
# the server does; `raw` enciphers the given block-aligned bytes as they are, to reach the
# padding rules with chosen endings.
# Line: name key cipher_base64 expected_plain_hex
des_vector() {  # name key mode plain expected
    printf "$4" > "$tmp/plain"
    printf "$5" > "$tmp/expected"
    printf '%s' "$2" > "$tmp/key"
    if [ "$3" = raw ]; then nopad=-nopad; else nopad=; fi
    openssl enc -des-ecb -provider legacy -provider default $nopad -K "$(hex "$tmp/key")" \
        -in "$tmp/plain" -out "$tmp/cipher"
    printf '%s %s %s %s\n' "$1" "$2" "$(openssl base64 -A -in "$tmp/cipher")" \
        "$(hex "$tmp/expected")"
}

{
    aes_vector short VectorPass 'hello'
    aes_vector exact16 VectorPass '0123456789abcdef'
    aes_vector over16 VectorPass '0123456789abcdefX'
    aes_vector long VectorPass 'strategy|1|2|3|host-a.example|host-b.example|10.0.0.1|10.0.0.2|end'
    aes_vector other_pass AnotherPass 'same plain, other key'
} > aes_vectors.txt

{
    des_vector json 3f9a0c7e pad '{"tzConfig":{"open":1}}' '{"tzConfig":{"open":1}}'
    des_vector full_pad_block 3f9a0c7e pad '01234567' '01234567'
    des_vector three_threes 5b1d77e0 raw 'abcde\003\003\003' 'abcde'
    des_vector mixed_tail 5b1d77e0 raw 'abcde\003\002\003' 'abcde\003\002\003'
    des_vector pad_too_big 5b1d77e0 raw 'abcdefg\011' 'abcdefg\011'
    des_vector high_byte 5b1d77e0 raw 'abcdefg\200' 'abcdefg\200'
} > des_vectors.txt
