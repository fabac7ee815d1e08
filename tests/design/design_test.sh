#!/bin/sh
# SPDX-License-Identifier: MIT
# A design program gives the committed table again, byte for byte, and does so without the processor's wide instructions as
# well: numpy leaves out what the list names, the C library what the tunable names.
# usage: design_test.sh <python> <program> <committed table>
set -e
made=$(mktemp)
trap 'rm -f "$made"' EXIT
"$1" "$2" --out "$made"
cmp "$made" "$3"
: >"$made"
NPY_DISABLE_CPU_FEATURES="SSE41 SSE42 AVX F16C FMA3 AVX2 AVX512F AVX512CD AVX512_SKX" \
    GLIBC_TUNABLES=glibc.cpu.hwcaps=-AVX2,-FMA,-AVX512F \
    "$1" "$2" --out "$made" >/dev/null
cmp "$made" "$3"
