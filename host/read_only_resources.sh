#!/bin/sh
# SPDX-License-Identifier: MIT
# read_only_resources.sh MODULE: the resources of the linked module can be read and not written. The linker for Windows marks their
# section as it marks data, and knows no option against it; so the bit is taken out of the section's head in the file, and out of the
# file's sum, which adds 16-bit words with their carry, and the file's size.
set -eu
module=$1

# number OFFSET SIZE
number() {
    od -A n -t "u$2" -j "$1" -N "$2" "$module" | tr -d ' '
}
header=$(number 60 4)
sections=$((header + 24 + $(number $((header + 20)) 2)))
count=$(number $((header + 6)) 2)
while [ "$count" -gt 0 ]; do
    if [ "$(dd if="$module" bs=1 skip=$sections count=6 2>/dev/null | tr -d '\0')" = .rsrc ]; then
        printf '\100' | dd of="$module" bs=1 seek=$((sections + 39)) conv=notrunc 2>/dev/null # initialised data, read
        sum=$(($(number $((header + 88)) 4) - $(wc -c <"$module")))
        [ "$sum" -ge 32768 ] && sum=$((sum - 32768)) || sum=$((sum + 32767))
        sum=$((sum + $(wc -c <"$module")))
        # shellcheck disable=SC2059
        printf "$(printf '\\%03o' $((sum & 255)) $((sum >> 8 & 255)) $((sum >> 16 & 255)) $((sum >> 24)))" |
            dd of="$module" bs=1 seek=$((header + 88)) conv=notrunc 2>/dev/null
        exit 0
    fi
    sections=$((sections + 40))
    count=$((count - 1))
done
echo "$module has no section .rsrc" >&2
exit 1
