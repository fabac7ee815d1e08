#!/bin/sh
# SPDX-License-Identifier: MIT
# long_test.sh SOURCES: the driver of the long proof counts what its parts reach, goes on where it was stopped, keeps what a
# part failed on, adds another machine's state once, and tells all of it in its report.
set -eu
. "$1/tests/support/waiting.sh"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

fail() {
    echo "$1"
    exit 1
}

# asks FILE EXPRESSION: whether a Python expression about the file's content, x, is true.
asks() {
    python3 -c 'import json, sys; x = json.load(open(sys.argv[1])); assert eval(sys.argv[2]), (sys.argv[2], x)' "$1" "$2"
}

# A part that counts its runs itself, one that hangs until it is killed as long as there is a file `hang`, and one that fails.
cat >parts.json <<END
[{"name": "good", "promise": "it counts", "command": ["sh", "-c", "echo x >>$work/ran; echo 'made 5 blocks'; echo 'made 2 blocks'"],
  "least": 0, "figures": {"blocks": "made (\\\\d+)", "at once": "^made (\\\\d+)"}, "most": ["at once"], "asked": {"blocks": ">= 7"}},
 {"name": "hanging", "promise": "it hangs", "command": ["sh", "-c", "touch $work/hangs; while [ -e $work/hang ]; do sleep 0.1; done; echo 3"],
  "least": 0, "figures": {"turns": "(\\\\d+)"}, "asked": {"turns": ">= 1000000"}},
 {"name": "silent", "promise": "it tells nothing", "command": ["true"], "once": true, "figures": {"said": "(\\\\d+)"}}]
END
cat >failing.json <<END
[{"name": "bad", "promise": "it fails", "command": ["sh", "-c", "echo broken >{failures}/input; echo was {seconds}; exit 3"], "once": true},
 {"name": "mute", "promise": "it was told a figure", "command": ["true"], "once": true, "figures": {"said": "(\\\\d+)"}}]
END
long="$1/scripts/long --place $work/long --jobs 1"

# Stopped in the second part, whose run counts for nothing; the first one's stays.
touch hang
$long --parts parts.json 1 >out 2>err &
driver=$!
waits_for 60 test -e hangs
kill -TERM $driver
! wait $driver || fail 'a stopped run counts as a whole one'
asks long/state.json 'x["parts"]["good"]["runs"] == 1 and x["parts"]["good"]["figures"] == {"blocks": 7, "at once": 5}'
asks long/state.json 'x["parts"]["hanging"]["runs"] == 0'
asks long/report.json '[part["verdict"] for part in x["parts"]] == ["reached", "not run", "not run"]'

# The next run goes on; figures add up, or the greatest of them counts.
rm hang
$long --parts parts.json --only hanging 0.0002 >out 2>err
$long --parts parts.json --only good 0.0002 >out 2>err
asks long/state.json "x['parts']['good']['runs'] == $(wc -l <ran) > 1"
asks long/state.json 'x["parts"]["good"]["figures"]["blocks"] == 7 * x["parts"]["good"]["runs"]'
asks long/state.json 'x["parts"]["good"]["figures"]["at once"] == 5'
asks long/state.json 'x["parts"]["hanging"]["figures"]["turns"] == 3 * x["parts"]["hanging"]["runs"] > 0'
asks long/report.json '[part["verdict"] for part in x["parts"]] == ["reached", "not yet", "not run"]'
grep -q 'good for [01] s: passed' err

# What fails is told, and kept with its input; a part that does not tell its figure fails, and what runs once a commit does.
! $long --parts failing.json 1 >out 2>err || fail 'a failed part is none'
grep -q 'bad once: FAILED (3)' err
grep -q 'mute once: FAILED (does not tell: said)' err
grep -q '| FAILED |' long/report.md
test "$(cat long/failures/bad/input)" = broken
grep -q 'was' long/failures/bad/*.log
asks long/state.json 'x["parts"]["bad"]["runs"] == 1 and x["parts"]["bad"]["failures"][0]["exit"] == 3'
asks long/state.json 'x["parts"]["good"]["runs"] > 1' # other parts' figures stay

# It is not begun again while other parts may run.
echo '[{"name": "soon", "promise": "it passes", "command": ["false"], "least": 0}]' >soon.json
! $long --parts soon.json 0.0003 >out 2>err || fail 'a failed part is none'
asks long/state.json 'x["parts"]["soon"]["runs"] == 1'

# A command that is not there fails like others.
echo '[{"name": "none", "promise": "it is there", "command": ["/no/such/command"], "once": true}]' >none.json
! $long --parts none.json 1 >out 2>err || fail 'a command that is not there is none that passes'
grep -q 'none once: FAILED (127)' err

# A name chooses its part alone, and the beginning of names all that begin so.
echo '[{"name": "live", "promise": "", "command": ["true"], "once": true},
 {"name": "lives", "promise": "", "command": ["true"], "once": true}]' >names.json
$long --parts names.json --only live 1 >out 2>err
grep -q 'live once: passed' err
! grep -q 'lives' err || fail 'another part than the one of that name ran'
$long --parts names.json --only li 1 >out 2>err
grep -q 'lives once: passed' err

# Two parts run beside each other: each of these waits for the other.
cat >pair.json <<END
[{"name": "first", "promise": "it meets", "once": true,
  "command": ["sh", "-c", "touch $work/first; while [ ! -e $work/second ]; do sleep 0.1; done"]},
 {"name": "second", "promise": "it meets", "once": true,
  "command": ["sh", "-c", "touch $work/second; while [ ! -e $work/first ]; do sleep 0.1; done"]}]
END
timeout 60 "$1/scripts/long" --place $work/pair --jobs 2 --parts pair.json 1 >out 2>err || fail 'two parts did not run at once'

# Stopped, both count for nothing, and are asked to end what they have started in sessions of their own.
cat >two.json <<END
[{"name": "open", "promise": "it ends its own", "once": true,
  "command": ["sh", "-c", "trap 'kill \$!; wait; exit 1' TERM; setsid sleep 1000 & echo \$! >$work/child; wait"]},
 {"name": "also", "promise": "it hangs", "once": true, "command": ["sh", "-c", "touch $work/also; sleep 1000"]}]
END
$1/scripts/long --place $work/two --jobs 2 --parts two.json 1 >out 2>err &
driver=$!
waits_for 60 test -s child
waits_for 60 test -e also
kill -TERM $driver
! wait $driver || fail 'a stopped run of two counts as a whole one'
! kill -0 "$(cat child)" 2>err || fail 'a stopped part left something running'
asks two/report.json '[(part["verdict"], part["runs"]) for part in x["parts"]] == [("not run", 0)] * 2'
test -z "$(find two/failures -type f)"

# Another machine's state counts once.
cat >other.json <<'END'
{"id": "other", "merged": [], "parts": {"good": {"seconds": 3600, "runs": 1, "figures": {"blocks": 1000000, "at once": 6}, "commits": ["abc"],
 "failures": [], "last": "passed"}}}
END
before=$(python3 -c 'import json; print(json.load(open("long/state.json"))["parts"]["good"]["figures"]["blocks"])')
$long --parts parts.json --merge other.json >out
asks long/state.json "x['parts']['good']['figures'] == {'blocks': 1000000 + $before, 'at once': 6}"
! $long --parts parts.json --merge other.json >out 2>err || fail 'a state was added twice'
asks long/state.json "x['parts']['good']['figures']['blocks'] == 1000000 + $before"

# The last release's figures stand on their page in place of the ones before, and the state beside it, for another machine.
mkdir -p tree/scripts tree/docs
cp "$1/scripts/long" tree/scripts
printf 'head\n<!-- the report -->\nold\n<!-- its end -->\ntail\n' >tree/docs/reliability.md
tree/scripts/long --place "$work/long" --parts parts.json --publish >out
{ printf 'head\n<!-- the report -->\n' && cat long/report.md && printf '<!-- its end -->\ntail\n'; } >expected.md
cmp expected.md tree/docs/reliability.md
tree/scripts/long --place "$work/next" --parts parts.json --merge tree/docs/reliability.json >out
test "$(grep '^|' long/report.md)" = "$(grep '^|' next/report.md)"
