#!/bin/sh
# SPDX-License-Identifier: MIT
# The objects that hold a variant's instructions define nothing but their table and functions of their own, and no weak symbol
# above all: an inline function compiled there could be the copy that the linker keeps for the whole program, and stop it on an
# older processor.
# usage: variants_test.sh <nm> <object>...
nm=$1
shift
[ $# -ge 2 ] || { echo "no objects to look at"; exit 1; }
for object in "$@"; do
    shared=$("$nm" --defined-only --extern-only --demangle "$object" | grep -v ' [DR] quorel::kernels::[a-z0-9]*::table$')
    [ -z "$shared" ] || { echo "$object shares:"; echo "$shared"; exit 1; }
done
