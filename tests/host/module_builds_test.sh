#!/bin/sh
# SPDX-License-Identifier: MIT
# module_builds_test.sh CMAKE SOURCE MODULE OPTION...: builds the module once more from a copy of its sources elsewhere. With the
# build identifier of MODULE it must be the same byte for byte; without one every build has an identifier of its own.
set -eu
cmake=$1 source=$2 module=$3
shift 3

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/copy"
cp -r "$source/CMakeLists.txt" "$source/cmake" "$source/platform" "$source/core" "$source/stages" "$source/speaker" \
    "$source/microphone" "$source/settings" "$source/client" "$source/c_interface" "$source/host" "$source/live" "$work/copy"
built=$work/build/$(basename "$module")

identifier() {
    tr -c '[:print:]' '\n' <"$1" | sed -n 's/^\$Build guid\$: //p'
}

# build IDENTIFIER OPTION...
build() {
    given=$1
    shift
    "$cmake" -S "$work/copy" -B "$work/build" -D QUOREL_TESTS=OFF -D QUOREL_TOOLS=OFF -D QUOREL_LIVE=OFF "-DQUOREL_BUILD_GUID=$given" "$@" &&
        "$cmake" --build "$work/build" --target quorel_host
} >"$work/log" 2>&1

original=$(identifier "$module")
build "$original" "$@" || { cat "$work/log"; exit 1; }
cmp "$module" "$built"

build '' || { cat "$work/log"; exit 1; }
first=$(identifier "$built")
touch "$work/copy/host/module.cpp"
build '' || { cat "$work/log"; exit 1; }
second=$(identifier "$built")
printf 'given %s, then %s and %s\n' "$original" "$first" "$second"
[ "$original" != "$first" ] && [ "$first" != "$second" ] && [ ${#first} -eq 36 ] && [ ${#second} -eq 36 ]

if build NO-GUID; then
    echo 'an identifier that is no GUID was taken'
    exit 1
fi
