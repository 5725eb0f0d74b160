#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
#
# Runs the README's two commands in a Debian root that has only the base system and git. Tests the last commit, not
# the working tree. Needs root and mmdebstrap (scripts/install-deps.sh --long).
# usage: bare_root.sh
set -euo pipefail
cd "$(dirname "$0")/.."

Log() { echo "bare_root: $*"; }
[ "$(id -u)" -eq 0 ] || { Log "must run as root" >&2; exit 1; }

work=$(mktemp -d)
root=$work/root
trap 'umount "$root/proc" 2>/dev/null || true; rm -rf --one-file-system "$work"' EXIT

Log "installing Debian's base system and git"
mapfile -t sources < <(find /etc/apt -maxdepth 2 -name '*.list' -o -name '*.sources')
apt-config dump Acquire::http Acquire::https >"$work/apt.conf"
mmdebstrap --mode=root --variant=minbase --include=git --aptopt="$work/apt.conf" --quiet \
  "$(. /etc/os-release && echo "$VERSION_CODENAME")" "$root" "${sources[@]}"

Log "cloning the repository"
git clone --quiet --no-hardlinks . "$root/libquillon"
mount -t proc proc "$root/proc"
for command in scripts/demo.sh scripts/test.sh; do
  Log "$command"
  chroot "$root" env -C /libquillon HOME=/root PATH=/usr/sbin:/usr/bin:/sbin:/bin "$command"
done
