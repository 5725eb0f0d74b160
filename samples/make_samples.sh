#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
#
# Makes the signed packages of this folder, with new keys that it throws away. scripts/install-deps.sh --samples
# installs what it needs: aapt, zipalign, apksigner with Java, openssl and the framework resources.
# usage: make_samples.sh [FOLDER]    FOLDER receives the packages; default: the folder of this script
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
out=$(cd "${1:-$here}" && pwd)
framework=/usr/share/android-framework-res/framework-res.apk
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Bytes prints the raw bytes of hexadecimal digits; the others print hexadecimal digits, little-endian.
Bytes() { printf '%b' "$(sed 's/../\\x&/g' <<<"$1")"; }
Le16() { printf '%02x%02x' $(($1 & 255)) $(($1 >> 8 & 255)); }
Le32() { Le16 "$1"; Le16 $(($1 >> 16)); }
Zeros() { printf '%0*d' $(($1 * 2)) 0; }

Adler32() {  # of the bytes given as hexadecimal digits
  local a=1 b=0 i
  for ((i = 0; i < ${#1}; i += 2)); do
    a=$(((a + 16#${1:i:2}) % 65521))
    b=$(((b + a) % 65521))
  done
  echo $((b << 16 | a))
}

# Prints a DEX file without classes: its header, and a map list that names header and map list.
MakeDex() {
  local map tail digest
  map=$(Le32 2; Le16 0x0000; Le16 0; Le32 1; Le32 0; Le16 0x1000; Le16 0; Le32 1; Le32 112)
  # File size, header size, byte order, link section, map offset, six empty tables, data section.
  tail=$(Le32 140; Le32 112; Le32 0x12345678; Zeros 8; Le32 112; Zeros 48; Le32 28; Le32 112)$map
  digest=$(Bytes "$tail" | openssl dgst -sha1 -r | cut -c1-40)
  Bytes "6465780a30333500$(Le32 "$(Adler32 "$digest$tail")")$digest$tail"
}

# MakeElf CLASS MACHINE: prints the header of a shared object without segments and sections.
MakeElf() {
  local word=$(($1 * 4)) headerSize=$(($1 == 2 ? 64 : 52)) flags=$(($2 == 40 ? 0x05000000 : 0))
  Bytes "7f454c46$(printf %02x "$1")0101$(Zeros 9)$(Le16 3; Le16 "$2"; Le32 1; Zeros $((word * 3))
    Le32 "$flags"; Le16 "$headerSize"; Zeros 10)"
}

MakeKey() {  # MakeKey NAME rsa|ec|dsa
  local kind
  case $2 in
    rsa) kind=(-algorithm RSA -pkeyopt rsa_keygen_bits:2048) ;;
    ec) kind=(-algorithm EC -pkeyopt ec_paramgen_curve:P-256) ;;
    dsa)
      openssl genpkey -quiet -genparam -algorithm DSA -pkeyopt dsa_paramgen_bits:2048 \
        -pkeyopt dsa_paramgen_q_bits:256 -out "$work/$1.params"
      kind=(-paramfile "$work/$1.params")
      ;;
  esac
  openssl genpkey -quiet "${kind[@]}" -out "$work/$1.key"
  openssl pkcs8 -topk8 -nocrypt -in "$work/$1.key" -outform DER -out "$work/$1.pk8"
  openssl req -new -x509 -key "$work/$1.key" -sha256 -days 10000 \
    -subj "/O=Quillon samples/CN=$1" -out "$work/$1.pem"
}

MakeUnsigned() {  # MakeUnsigned PACKAGE MIN_SDK TARGET_SDK: leaves an aligned $work/unsigned.apk
  sed "s/@PACKAGE@/$1/; s/@MIN_SDK@/$2/; s/@TARGET_SDK@/$3/" "$here/AndroidManifest.xml.in" \
    >"$work/AndroidManifest.xml"
  aapt package -f -M "$work/AndroidManifest.xml" -I "$framework" -F "$work/raw.apk"
  (cd "$work/content" && aapt add "$work/raw.apk" classes.dex lib/*/*.so >/dev/null)
  zipalign -f 4 "$work/raw.apk" "$work/unsigned.apk"
}

Sign() {  # Sign NAME KEY SCHEME [OPTION...]: signs $work/unsigned.apk with one scheme only
  local name=$1 key=$2 scheme=$3 v
  shift 3
  local options=(--key "$work/$key.pk8" --cert "$work/$key.pem" --v4-signing-enabled false)
  for v in 1 2 3; do
    options+=("--v$v-signing-enabled" "$([ "$v" = "$scheme" ] && echo true || echo false)")
  done
  apksigner sign "${options[@]}" "$@" --in "$work/unsigned.apk" --out "$out/$name"
  apksigner verify "$out/$name"
  echo "made $name ($(stat -c %s "$out/$name") bytes)"
}

Rotate() {  # Rotate OLD_KEY NEW_KEY [IN_OPTION...]: adds one step to $work/lineage
  local old=$1 new=$2
  shift 2
  apksigner rotate "$@" --out "$work/lineage" --old-signer --key "$work/$old.pk8" \
    --cert "$work/$old.pem" --new-signer --key "$work/$new.pk8" --cert "$work/$new.pem"
}

mkdir -p "$work/content/lib/arm64-v8a" "$work/content/lib/armeabi-v7a"
MakeDex >"$work/content/classes.dex"
MakeElf 2 183 >"$work/content/lib/arm64-v8a/libsample.so"
MakeElf 1 40 >"$work/content/lib/armeabi-v7a/libsample.so"

for key in v1:rsa v1-dsa:dsa v2:rsa v3:ec first:rsa second:ec third:ec; do
  MakeKey "${key%:*}" "${key#*:}"
done

# A JAR signature alone is valid up to target SDK 29. Minimum SDK 24 makes apksigner use SHA-256 digests.
for name in v1 v1-dsa; do
  MakeUnsigned "org.quillon.sample.${name/-/.}" 24 29
  Sign "$name.apk" "$name" 1 --v1-signer-name CERT
done

MakeUnsigned org.quillon.sample.v2 24 30
Sign v2.apk v2 2

# A v3 signature alone is valid from minimum SDK 28 on. Its one signer then covers SDK 28 and later.
MakeUnsigned org.quillon.sample.v3 28 30
Sign v3.apk v3 3

# With v3 alone, apksigner needs the newest key only; v1 and v2 would need the older ones too.
Rotate first second
Rotate second third --in "$work/lineage"
MakeUnsigned org.quillon.sample.rotated 28 30
Sign v3-rotated.apk third 3 --lineage "$work/lineage"
