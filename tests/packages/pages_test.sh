#!/bin/sh
# SPDX-License-Identifier: MIT
# pages_test.sh PAGES PROGRAM...: the manual pages of the programs are without fault and name every long option of the help, and
# the three shells complete from their files.
set -eu
pages=$1
shift
for program; do
    name=$(basename "$program")
    mandoc -T lint "$pages/$name.1"
    mandoc -T utf8 "$pages/$name.1" | col -b >"$pages/$name.txt"
    options=$("$program" --help | grep -oE '^ +(-[a-z],)?--[A-Za-z-]+[A-Za-z0-9]*' | grep -oE -- '--.*')
    for option in $options; do
        grep -q -e "$option" "$pages/$name.txt" || { echo "$name.1 has no $option"; exit 1; }
    done
done
python3 "$(dirname "$0")/completing.py" "$pages"
