#!/bin/sh
# SPDX-License-Identifier: MIT
# hardening_test.sh OBJDUMP NM FILE...: each released program and library watches its stack, lies anywhere in memory, never runs
# its data and never writes its code. On Linux it is bound before it starts and read-only behind that, and asks for a shadow stack
# where the processor has one.
# Among them are some that check the lengths of copies and touch each page of a large frame: not every file has such a copy or frame.
set -eu
objdump=$1 nm=$2
shift 2
failures=0 fortified=0 probed=0
for file; do
    expect() {
        what=$1
        shift
        "$@" || { echo "$file: no $what"; failures=$((failures + 1)); }
    }
    says() {
        echo "$1" | grep -q -- "$2"
    }
    silent() {
        ! says "$@"
    }
    headers=$("$objdump" -p "$file")
    case $file in
    *.dll | *.exe)
        expect 'stack protector' grep -aq 'stack smashing detected' "$file" # what its function says: the module has no symbols
        for protection in DYNAMIC_BASE HIGH_ENTROPY_VA NX_COMPAT; do
            expect $protection says "$headers" $protection
        done
        # A section's flags stand on the line below its name.
        expect 'code that nobody writes' silent "$("$objdump" -h "$file" | grep CODE)" 'LOAD, CODE'
        symbols=$("$nm" "$file" 2>/dev/null) || symbols=
        checks=' T __[a-z]*_chk$' probes=
        ;;
    *)
        symbols=$("$objdump" -T "$file")
        expect 'stack protector' says "$symbols" ' __stack_chk_fail$'
        expect 'immediate binding' says "$(readelf -W -d "$file")" 'NOW'
        expect 'read-only relocations' says "$headers" ' RELRO off'
        expect 'stack without code' says "$(echo "$headers" | grep -A 1 ' STACK off')" 'flags rw-'
        expect 'code that nobody writes' silent "$(readelf -W -l "$file")" ' RWE '
        expect 'code that the loader leaves alone' silent "$(readelf -W -d "$file")" TEXTREL
        expect 'free place in memory' says "$(readelf -h "$file")" 'Type: *DYN'
        checks=' __[a-z]*_chk$' probes='orq  *\$0x0,(%rsp)'
        if [ "$(uname -m)" = x86_64 ]; then
            expect 'shadow stack' says "$(readelf -W -n "$file")" SHSTK
        else
            probes=
        fi
        ;;
    esac
    ! says "$symbols" "$checks" || fortified=1
    if [ -z "$probes" ]; then
        probed=1
    elif [ $probed = 0 ] && "$objdump" -d --no-show-raw-insn "$file" | grep -q "$probes"; then
        probed=1
    fi
done
[ $fortified = 1 ] || { echo 'no file checks the lengths of copies'; failures=$((failures + 1)); }
[ $probed = 1 ] || { echo 'no file touches each page of a large frame'; failures=$((failures + 1)); }
exit $((failures > 0))
