#!/bin/sh
# SPDX-License-Identifier: MIT
# version_test.sh PROGRAM VERSION: --version tells the name and the version on its first line, and cites the measurement.
set -eu
told=$("$1" --version)
[ "$(echo "$told" | head -n 1)" = "$(basename "$1") $2" ] || { echo "$told"; exit 1; }
echo "$told" | tr '\n' ' ' | grep -q 'Bill Gardner and Keith Martin, MIT Media Lab, 1994' || { echo "$told"; exit 1; }
