#!/bin/sh
# SPDX-License-Identifier: MIT
# Every body of the kernels, and what it is written in, is a header that compiles by itself with the flags of every variant.
# usage: bodies_alone_test.sh <compiler> <root>
compiler=$1
cd "$2" || exit 1
failed=0
count=0
for header in core/kernels/*_body.h core/kernels/simd.h core/kernels/states.h core/kernels/kernel_table.h; do
    for flags in "" "-mavx2 -mfma" "-mavx512f -mavx512vl -mavx512bw -mavx512dq -mfma"; do
        # shellcheck disable=SC2086 # several flags
        echo "#include \"$header\"" | "$compiler" -x c++ -std=c++20 -I. -Wall -Wextra -Wno-unused -Werror -fsyntax-only $flags - ||
            { echo "$header does not compile alone with flags '$flags'"; failed=1; }
        count=$((count + 1))
    done
done
[ "$count" -ge 30 ] || { echo "only $count headers and flags were tried"; failed=1; }
exit $failed
