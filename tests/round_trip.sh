#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
#
# Checks that a package signed by apksigner verifies and yields the key that signed it, over kinds of keys, schemes
# and lineages. Of v2 and v3 signatures, one changed bit is refused at both ends of each range that the tool says they
# cover, and changes nothing at both ends of those that nothing covers. With strong keys they have no warning. Needs the
# tool of the optimized build, openssl, python3, and apksigner with its Java.
# usage: round_trip.sh
#
# Not tried, because apksigner refuses to sign so: v1 for SDK levels before 18 by EC keys, and before 21 by DSA keys
# that take a digest longer than SHA-1.
set -euo pipefail
cd "$(dirname "$0")/.."
tool=$PWD/build/release/bin/quillon
type "$tool" apksigner java openssl python3 >/dev/null
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp samples/v2.apk "$work/sample.apk"
cd "$work"
keys=() packages=0 changes=0

Fail() { echo "$row: $*" >&2; exit 1; }
Apksigner() { apksigner -JXX:TieredStopAtLevel=1 -JXX:+UseSerialGC "$@"; }  # starts in half of the time
Byte() { od -An -v -tu1 "-j$1" -N1 signed.apk | tr -d ' '; }  # Byte OFFSET
Ends() {  # Ends WHICH: the ends of the ranges that are covered ("verified"), or that are not ("nothing")
  "$tool" inspect --json signed.apk | python3 -c '
import json, sys
for one in json.load(sys.stdin)["coverage"]:
  if sys.argv[1] in (one["by"], one["checked"]):
    for offset, size in one["ranges"]:
      print(offset, offset + size - 1)' "$1" | tr ' ' '\n' | sort -nu
}

MakeKey() {  # MakeKey NAME GENPKEY_OPTION...
  openssl genpkey "${@:2}" 2>/dev/null | openssl pkcs8 -topk8 -nocrypt -outform DER -out "$1.pk8"
  openssl req -new -x509 -key "$1.pk8" -keyform DER -subj "/CN=$1" -outform DER -out "$1.crt"
  openssl pkey -inform DER -in "$1.pk8" -pubout -outform DER -out "$1.public"
  # The identity is the modulus, the DSA value, or the point without its first two bytes.
  openssl pkey -inform DER -in "$1.pk8" -noout -text_pub | sed -n '/^\(Modulus\|pub\):/,/^[^ ]/s/^  *//p' |
    tr -d ':\n' | sed "s/^00//; $([[ $1 != P* ]] || echo 's/^....//;') s/../\\\\x&/g" >digits
  printf %b "$(<digits)" | openssl dgst -sha256 -r | cut -c1-64 >"$1.identity"
  keys+=("$1")
}

# Expect SCHEMES IDENTITY SIGNERS [OPTION...]: verifies by the last scheme, for 3 by the last signer
Expect() {
  local schemes=$1 identity=$2 signers=$3 options=() offsets version signer json offset which
  row="schemes $*"
  for version in 1 2 3; do
    options+=("--v$version-signing-enabled" "$([[ $schemes == *$version* ]] && echo true || echo false)")
  done
  for signer in $signers; do options+=(--key "$signer.pk8" --cert "$signer.crt" --next-signer); done
  Apksigner sign --in sample.apk --out signed.apk --v4-signing-enabled false --min-sdk-version "${sdk:-28}" \
    "${@:4}" "${options[@]::${#options[@]}-1}"
  json=$("$tool" verify --json signed.apk) || true
  # A signature block whose name ends in EC is not looked for.
  [[ $schemes$identity != 1P* ]] || { [[ $json == *'"isGoodApk":false,'* ]] && return; }
  [[ $json == *'"isGoodApk":true,"scheme":'${schemes: -1},*"\"$(<"$identity.identity")\""* ]] || Fail "$json"

  packages=$((packages + 1))
  [ "$schemes" != 1 ] || return 0
  [ -z "${strict:-}" ] || "$tool" verify -q --strict signed.apk || Fail "it has a warning"
  for which in verified nothing; do
    mapfile -t offsets < <(Ends $which)
    [ ${#offsets[@]} -gt 1 ] || [ $which = nothing ] || Fail "the signature covers nothing"
    rm -f changed-*
    for offset in "${offsets[@]}"; do
      cp signed.apk "changed-$offset"
      printf %b "\\x$(printf %02x $(($(Byte "$offset") ^ 1)))" |
        dd of="changed-$offset" bs=1 seek="$offset" conv=notrunc status=none
    done
    [ ${#offsets[@]} -ne 0 ] || continue
    json=$("$tool" verify --json changed-*) || true
    if [ $which = verified ]; then
      [ "$(grep -c '"isGoodApk":false,' <<<"$json")" = ${#offsets[@]} ] || Fail "a changed bit: $json"
    else
      [ "$(grep -c "\"$(<"$identity.identity")\"" <<<"$json")" = ${#offsets[@]} ] || Fail "an open bit: $json"
    fi
    changes=$((changes + ${#offsets[@]}))
  done
}

for bits in 1024 2048 3072 4096; do MakeKey "RSA$bits" -algorithm RSA -pkeyopt "rsa_keygen_bits:$bits"; done
for bits in 256 384 521; do MakeKey "P$bits" -algorithm EC -pkeyopt "ec_paramgen_curve:P-$bits"; done
for bits in 1024:160 2048:256 3072:256; do
  openssl genpkey -genparam -algorithm DSA -pkeyopt "dsa_paramgen_bits:${bits%:*}" \
    -pkeyopt "dsa_paramgen_q_bits:${bits#*:}" -out parameters 2>/dev/null
  MakeKey "DSA${bits%:*}" -paramfile parameters
done

for key in "${keys[@]}"; do
  [[ $key == RSA1024 || $key == DSA* ]] && isStrong='' || isStrong=yes
  for schemes in 1 2 3 12 123; do strict=$isStrong Expect "$schemes" "$key" "$key"; done
done
Apksigner rotate --out strong --old-signer --key RSA2048.pk8 --cert RSA2048.crt --new-signer --key P256.pk8 --cert P256.crt
for level in 21 24 28; do
  for schemes in 2 3 12 123; do sdk=$level strict=yes Expect "$schemes" P256 P256; done
  sdk=$level strict=yes Expect 123 RSA2048 "RSA2048 P256" --lineage strong
done
for key in RSA2048 DSA1024; do sdk=17 Expect 1 "$key" "$key"; done  # by SHA-1
Expect 2 P256 "P256 RSA2048"
Expect 2 RSA1024 "${keys[*]}"

# A lineage that grows, with a signer of each kind. The oldest key stays the identity.
for i in {1..9}; do
  Apksigner rotate ${from:+--in "$from"} --out "lineage$i" --old-signer --key "${keys[i - 1]}.pk8" \
    --cert "${keys[i - 1]}.crt" --new-signer --key "${keys[i]}.pk8" --cert "${keys[i]}.crt"
  from=lineage$i
  Expect 3 RSA1024 "${keys[i]}" --lineage "$from"
done
Expect 123 RSA1024 "RSA1024 RSA2048" --lineage lineage1
echo "$packages packages, $changes changed bits"
