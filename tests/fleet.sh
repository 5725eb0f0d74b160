#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
#
# Runs the recipes of docs/fleet.md over links to the sample packages with two jobs at a time. One job is killed in the
# middle, then the run itself; resumed, every package is judged exactly once. Prints the throughput of one and two jobs.
# usage: fleet.sh BUILD    needs parallel and sqlite3
set -euo pipefail
export LC_ALL=C
tool=$(realpath "$1")/bin/quillon
samples=$(realpath "$(dirname "$0")/../samples")
document=$(realpath "$(dirname "$0")/../docs/fleet.md")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
awk '/^```/ { out = "" } out { print >out } /^```(bash|sql) / { out = $2 }' "$document"
chmod +x quillon-*
PATH=$work/bin:$work:$PATH

Log() { echo "fleet: $*"; }
Fail() { Log "$*" >&2; exit 1; }

mkdir bin packages
cp "$samples"/*.apk .
for ((i = 0; i < 700; i++)); do
  for sample in *.apk; do ln "$sample" "packages/$i '$sample"; done
done
find packages -name '*.apk' -print0 | sort -z >list
count=$(tr -cd '\0' <list | wc -c)

# The tool, but at its third call the job is killed after a part of its work, and at its seventh call the run is.
cat >bin/quillon <<EOF
#!/bin/bash
number=1
until mkdir calls/\$number 2>/dev/null; do number=\$((number + 1)); done
case \$number in
  3) "$tool" "\${@:1:50}"; kill -KILL "\$PPID" ;;
  7) kill -KILL "\$(cat run)" ;;
esac
exec "$tool" "\$@"
EOF
chmod +x bin/quillon
mkdir calls
# parallel replaces this shell, so the process that is killed is the one that was started here.
(echo "$BASHPID" >run && sed -i 's/^parallel /exec parallel /' quillon-fleet && exec quillon-fleet verdicts list --jobs 2) &
! wait $! 2>/dev/null || Fail "the killed run reports success"
done=$(awk -F '\t' '$7 == 0 && $8 == 0' verdicts/jobs.log | wc -l)
jobs=$(((count + 199) / 200))
[ "$done" -gt 0 ] && [ "$done" -lt "$jobs" ] || Fail "$done of $jobs jobs were done before"
sleep 2  # what the killed run started ends by itself
called=(calls/*)
quillon-fleet verdicts list --jobs 2 || Fail "the resumed run failed"
calledSince=(calls/*)
[ $((${#calledSince[@]} - ${#called[@]})) -eq $((jobs - done)) ] || Fail "the resumed run did not do just what was missing"

cat verdicts/*.jsonl | sqlite3 -bail fleet.db '.read load.sql'
sqlite3 fleet.db 'SELECT file FROM verdicts ORDER BY file' | cmp - <(tr '\0' '\n' <list) ||
  Fail "not every package was judged once"
sqlite3 -bail fleet.db '.read questions.sql' >answers
Log "killed with $done of $jobs jobs done; resumed, $count packages are judged once"

rm bin/quillon
ln -s "$tool" bin/quillon
for slots in 1 2; do
  start=$(date +%s%N)
  quillon-fleet "verdicts$slots" list --jobs "$slots"
  Log "$slots at a time: $((count * 1000000000 / ($(date +%s%N) - start))) packages a second"
done
