#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
#
# Functions for tests in a Debian root of their own, which is removed in the end. Sourced; needs root and mmdebstrap
# (scripts/install-deps.sh --long).

Log() { echo "$(basename "$0" .sh): $*"; }

MakeRoot() {  # MakeRoot [PACKAGE]: makes $root, with Debian's base system and this package
  [ "$(id -u)" -eq 0 ] || { Log "must run as root" >&2; exit 1; }
  work=$(mktemp -d)
  root=$work/root
  trap 'umount "$root/proc" 2>/dev/null || true; rm -rf --one-file-system "$work"' EXIT

  Log "installing Debian's base system $*"
  local sources
  mapfile -t sources < <(find /etc/apt -maxdepth 2 -name '*.list' -o -name '*.sources')
  apt-config dump Acquire::http Acquire::https >"$work/apt.conf"
  mmdebstrap --mode=root --variant=minbase ${1:+--include="$*"} --aptopt="$work/apt.conf" --quiet \
    "$(. /etc/os-release && echo "$VERSION_CODENAME")" "$root" "${sources[@]}"
  mount -t proc proc "$root/proc"
}

InRoot() { chroot "$root" env HOME=/root PATH=/usr/sbin:/usr/bin:/sbin:/bin "$@"; }
