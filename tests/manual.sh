#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
#
# Checks the manual pages and completion scripts of a build. Keys are typed into a bash with a terminal; what it
# completes must be the agreed command line.
# usage: manual.sh BUILD    needs mandoc, zsh and fish
set -euo pipefail
sources=$(cd "$(dirname "$0")/.." && pwd)
cd "$1/manual"
mandoc -T lint -W warning libquillon.3 libtarnsim.7 pages/man1/*.1
Settings() { grep -o 'TARNSIM_[A-Z_]*[A-Z]' "$1" | sort -u; }
diff -u --label simulator.md --label libtarnsim.7 <(Settings "$sources/docs/simulator.md") <(Settings libtarnsim.7)
zsh -n pages/zsh/_quillon
fish -n pages/fish/quillon.fish

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp pages/bash/quillon "$work/script"
cd "$work"
touch a:b=c.apk 'two words.apk'
# What is typed, "~" being a tab, and the words that the tool gets.
cat >lines <<'EOF'
v~ --min-s~ 2 t~|verify --min-scheme 2 two words.apk
ver~ --fail-on v2.f~|verify --fail-on v2.further-signers
ver~ --fail-on=key.dsa,v2.f~ a~|verify --fail-on=key.dsa,v2.further-signers a:b=c.apk
verify -qj ~4 --signer t~|verify -qj 4 --signer two words.apk
verify --files-from0=t~|verify --files-from0=two words.apk
label --sim~ t~|label --simulate two words.apk
label --simulate=l~ -- t~|label --simulate=legacy -- two words.apk
task t~|task t
start-~ --ver~|start-provision --ver
--ver~|--version
EOF
{
  echo "PS1=; source ./script; quillon() { echo \"\$*\" >>got; }"
  sed 's/^/quillon /; s/|.*//; s/~/\t/g' lines
  echo exit
} >keys
script -qec 'bash --norc --noprofile -i' /dev/null <keys >screen
sed 's/.*|//' lines | diff -u --label agreed --label completed - got
