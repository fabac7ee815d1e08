#!/bin/sh
# SPDX-License-Identifier: MIT
# abi_test.sh LIBRARY SOURCE [--write]: the shared library offers the functions and types that c_interface/quorel.abi has
# written down, no fewer, no other and no more; --write writes it down anew.
set -eu
library=$1 source=$2
written=$source/c_interface/quorel.abi
look() {
    abidw --headers-dir "$source/c_interface" --drop-private-types --exported-interfaces-only --no-elf-needed --no-show-locs \
        --no-corpus-path --no-comp-dir-path "$library"
}
if [ "${3:-}" = --write ]; then
    look >"$written"
fi
found=$(mktemp)
trap 'rm -f "$found"' EXIT
look >"$found"
abidiff "$written" "$found"
