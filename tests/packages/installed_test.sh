#!/bin/sh
# SPDX-License-Identifier: MIT
# installed_test.sh EMBED EMBED_C INSTALLED SOURCES WORK: what the README's program prints is what its form in C prints, built by
# CMake and by pkg-config against both forms of the installed library, and its form in Python.
set -eu
embed=$1 embed_c=$2 installed=$3 sources=$4 work=$5
mkdir -p "$work"
"$embed" >"$work/expected"
[ "$(wc -l <"$work/expected")" -eq 20 ]
grep -qv '^+0.0000  +0.0000$' "$work/expected"

library=$(dirname "$(find "$installed" -name libquorel.so)")
export LD_LIBRARY_PATH="$library" PKG_CONFIG_PATH="$library/pkgconfig"
same() {
    way=$1
    shift
    "$@" >"$work/found"
    diff "$work/expected" "$work/found" || { echo "$way prints something else"; exit 1; }
}

[ "$(pkg-config --modversion quorel)" = "$(sed -n 's/^project(quorel VERSION \([0-9.]*\).*/\1/p' "$sources/../../CMakeLists.txt")" ]
same cmake "$embed_c"
# shellcheck disable=SC2046
cc -Wall -Wextra -Wpedantic -Werror -std=c99 "$sources/main.c" -o "$work/shared" $(pkg-config --cflags --libs quorel)
readelf -d "$work/shared" | grep -q 'NEEDED.*libquorel\.so\.0'
same pkg-config "$work/shared"
# shellcheck disable=SC2046
cc "$sources/main.c" -o "$work/static" -Wl,-Bstatic $(pkg-config --cflags --libs quorel) -Wl,-Bdynamic -lstdc++ -lm
! readelf -d "$work/static" | grep -q libquorel
same static "$work/static"
same python python3 "$sources/embed.py" "$library/libquorel.so.0"
