#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
#
# Makes the Debian packages, installs them into a Debian root that has only the base system, uses them there, upgrades
# and removes them. Needs root, mmdebstrap and lintian (scripts/install-deps.sh --long).
# usage: packages.sh
set -euo pipefail
cd "$(dirname "$0")/.."
. tests/debian_root.sh

cmake --preset package
cmake --build --preset package
rm -rf build/package/packages build/package/next
cpack --preset package
lintian --allow-root --fail-on error build/package/packages/*.deb
cpack --preset package -D CPACK_PACKAGE_VERSION=999 -B "$PWD/build/package/next"

MakeRoot ""
InRoot apt-get -qq update
mkdir -p "$root/packages/next"
cp build/package/packages/*.deb samples/v3-rotated.apk samples/v3.apk "$root/packages"
cp build/package/next/*.deb "$root/packages/next"
InRoot dpkg --get-selections >"$work/before"

Install() {  # Install FOLDER
  InRoot env DEBIAN_FRONTEND=noninteractive sh -c "apt-get -qq -y install $1/*.deb" >/dev/null
}
Log "installing"
Install /packages
Log "using"
InRoot quillon verify /packages/v3-rotated.apk | tee "$work/verdict"
grep -q ': verified, v3, org.quillon.sample.rotated, key sha256:' "$work/verdict"
InRoot sh -c 'cd packages && echo code >base.odex && cp base.odex base.vdex &&
  quillon provision --simulate v3.apk base.odex base.vdex && quillon label --simulate base.odex' >"$work/label"
grep -q '^base.odex: verified by the kernel' "$work/label"
Log "upgrading, and removing"
Install /packages/next
[ "$(InRoot dpkg-query --show '*quillon*' libtarnsim | cut -f 2 | sort -u)" = 999 ]
InRoot quillon verify /packages/v3-rotated.apk
InRoot apt-get -qq -y purge quillon libquillon1 libquillon-dev libtarnsim >/dev/null
InRoot apt-get -qq -y autoremove --purge >/dev/null
InRoot dpkg --get-selections | diff "$work/before" -
! find "$root" -xdev \( -name '*quillon*' -o -name '*tarnsim*' \) ! -path '*/packages/*' | grep . || exit 1
