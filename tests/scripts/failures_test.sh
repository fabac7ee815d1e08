#!/bin/sh
# SPDX-License-Identifier: MIT
# failures_test.sh SOURCES: a check's failed steps are told by the names of their failed tests and the last 40 lines of each.
set -eu
logs=$(mktemp -d)
trap 'rm -rf "$logs"' EXIT

cat >"$logs/steps" <<'END'
format           passed   0:01
test-release     FAILED   0:10
tidy             FAILED   0:20
END
echo 'never shown' >"$logs/format.log"
{
    echo '      Start 12: road_test'
    echo '1/4 Test #12: road_test ..................   Passed    1.00 sec'
    echo '2/4 Test  #3: gate_test ..................***Failed    0.02 sec'
    seq -f 'gate line %g' 1 50
    echo '      Start  4: a_test'
    echo '3/4 Test  #4: disabled_test ..............***Not Run (Disabled)   0.00 sec'
    echo '4/4 Test #14: slow_test.Slow.IsLate ......***Timeout   9.00 sec'
    echo 'slow line'
    echo '50% tests passed, 2 tests failed out of 4'
    echo 'The following tests FAILED:'
} >"$logs/test-release.log"
seq -f 'tidy line %g' 1 41 >"$logs/tidy.log"

{
    printf '\n== test-release: what failed\n  gate_test\n  slow_test.Slow.IsLate\n-- gate_test\n'
    seq -f 'gate line %g' 11 50
    printf -- '-- slow_test.Slow.IsLate\nslow line\n\n== tidy: what failed\n'
    seq -f 'tidy line %g' 2 41
} >"$logs/expected"
"$1/scripts/failures" "$logs" | diff "$logs/expected" -
