#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
#
# Installs the Debian packages that are missing: those for building and testing, and more by option.
# usage: install-deps.sh [--samples] [--arm64] [--ci] [--long]
#   --samples   what samples/make_samples.sh needs
#   --arm64     what building and testing for 64-bit Arm needs; makes arm64 a foreign architecture
#   --ci        what the short tier of tests/run_all.sh needs, except arm64
#   --long      what its long tier needs besides
set -euo pipefail

packages=(
  cmake ninja-build g++ pkg-config attr
  android-libandroidfw-dev android-libbase-dev android-libboringssl-dev android-liblog-dev
  android-libutils-dev android-libziparchive-dev
  libcli11-dev libfmt-dev nlohmann-json3-dev
  libbenchmark-dev libgmock-dev libgtest-dev python3-jsonschema
)

foreignArchitecture=
for option in "$@"; do
  case $option in
    --samples)
      packages+=(aapt apksigner zipalign android-framework-res default-jre-headless openssl) ;;
    --arm64)
      foreignArchitecture=arm64
      packages+=(crossbuild-essential-arm64 qemu-user googletest)
      packages+=(android-lib{androidfw,boringssl,log,utils,ziparchive}:arm64) ;;
    --ci)
      packages+=(clang clang-format clang-tidy libclang-rt-dev libc++-dev)
      packages+=(shellcheck golang-go golang-github-google-blueprint-dev)
      packages+=(apksigner default-jre-headless openssl git jq libxml2-utils)
      packages+=(abigail-tools fish mandoc zsh) ;;
    --long)
      packages+=(mmdebstrap apksigner default-jdk-headless libapksig-java jq openssl)
      packages+=(file lintian parallel sqlite3) ;;
    *) sed -n '4,9s/^# //p' "$0" >&2; exit 2 ;;
  esac
done

Fail() {
  echo "install-deps: $*" >&2
  exit 1
}

Installed() { [[ $(dpkg-query -W -f '${db:Status-Status}' "$1" 2>/dev/null) == installed* ]]; }
Available() { [[ $(LC_ALL=C apt-cache policy "$1") == *"Candidate: "[^\(]* ]]; }

command -v apt-get >/dev/null && command -v dpkg-query >/dev/null ||
  Fail "no apt-get here; install the equivalent of these Debian packages: ${packages[*]}"

missing=()
for package in "${packages[@]}"; do
  Installed "$package" || missing+=("$package")
done
[ ${#missing[@]} -ne 0 ] || exit 0

asRoot=()
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || Fail "needs root or sudo to install: ${missing[*]}"
  asRoot=(sudo)
fi

echo "install-deps: installing ${missing[*]}"
[ -z "$foreignArchitecture" ] || "${asRoot[@]}" dpkg --add-architecture "$foreignArchitecture"
"${asRoot[@]}" apt-get -qq update ||
  echo "install-deps: cannot refresh the package lists; using the present ones" >&2
for package in "${missing[@]}"; do
  Available "$package" ||
    Fail "this distribution ($(. /etc/os-release && echo "$PRETTY_NAME")) has no package $package"
done
"${asRoot[@]}" env DEBIAN_FRONTEND=noninteractive \
  apt-get -qq -y --no-install-recommends install "${missing[@]}" >/dev/null ||
  Fail "apt-get could not install: ${missing[*]}"
