#!/bin/sh
# SPDX-License-Identifier: MIT
# module_file_test.sh OBJDUMP MODULE: what stands in the finished file of the module. It imports from the system alone, exports
# six names, has the audio thread's sections and the protections, no symbols and no date.
set -eu
objdump=$1 module=$2
failures=0

expect() {
    if [ "$2" != "$3" ]; then
        printf '%s\n  expected: %s\n  found:    %s\n' "$1" "$2" "$3"
        failures=$((failures + 1))
    fi
}

# Its words in alphabetical order, on one line.
sorted() {
    tr ' ' '\n' | sed '/^$/d' | LC_ALL=C sort | tr '\n' ' '
}

exports='DllCanUnloadNow DllGetClassObject DllRegisterServer DllUnregisterServer GetBuildInfo build_guid '
headers=$("$objdump" -p "$module")

flags() {
    "$objdump" -h "$module" | awk -v name="$1" '$2 == name { getline; gsub(/ /, ""); print }'
}

case $module in
*.dll)
    expect imports 'ADVAPI32.dll KERNEL32.dll USER32.dll msvcrt.dll ole32.dll ' \
        "$(echo "$headers" | sed -n 's/.*DLL Name: //p' | sorted)"
    expect exports "$exports" "$(echo "$headers" | sed -n '/Name Pointer. Table/,/^$/s/.*\[ *[0-9]*\] \([A-Za-z_]*\)$/\1/p' | sorted)"
    expect protections 'DYNAMIC_BASE HIGH_ENTROPY_VA NX_COMPAT ' \
        "$(echo "$headers" | sed -n '/^DllCharacteristics/,/^SizeOf/s/^[[:space:]]\+\([A-Z_]*\)$/\1/p' | sorted)"
    expect date 'Thu Jan  1 00:00:00 1970' "$(echo "$headers" | sed -n 's/^Time\/Date[[:space:]]*\([A-Z].*\)/\1/p')"
    expect 'section RT_CODE' CONTENTS,ALLOC,LOAD,READONLY,CODE "$(flags RT_CODE)"
    expect 'section RT_CONST' CONTENTS,ALLOC,LOAD,READONLY,DATA "$(flags RT_CONST)"
    expect 'section .rsrc' CONTENTS,ALLOC,LOAD,READONLY,DATA "$(flags .rsrc)"
    ;;
*)
    expect imports 'libc.so.6 libgcc_s.so.1 libm.so.6 libstdc++.so.6 ' \
        "$(echo "$headers" | sed -n 's/^  NEEDED *//p' | grep -v '^ld-linux' | sorted)"
    expect exports "$exports" "$("$objdump" -T "$module" | awk '/ g / { print $NF }' | sorted)"
    expect stack 'rw-' "$(echo "$headers" | awk '/ STACK / { getline; print $NF }')"
    expect 'section RT_CODE' CONTENTS,ALLOC,LOAD,READONLY,CODE "$(flags RT_CODE)"
    expect 'section RT_CONST' CONTENTS,ALLOC,LOAD,DATA "$(flags RT_CONST)"

    # The loader writes addresses into the table and makes it read-only after that, with all of RELRO.
    place() {
        "$objdump" -h "$module" | awk '$2 == "RT_CONST" { print $4, $3 }'
        echo "$headers" | awk '/ RELRO / { print $5; getline; print $4 }'
    }
    # shellcheck disable=SC2046
    set -- $(place)
    end=$((0x$1 + 0x$2))
    [ $((0x$1)) -ge $(($3)) ] && [ "$end" -le $(($3 + $4)) ] || expect 'RT_CONST within RELRO' yes no
    ;;
esac
expect symbols '' "$("$objdump" -t "$module" | grep -v -e '^$' -e 'file format' -e 'SYMBOL TABLE' -e 'no symbols' || true)"
exit $((failures > 0))
