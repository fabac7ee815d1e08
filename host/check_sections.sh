#!/bin/sh
# SPDX-License-Identifier: MIT
# check_sections.sh NM OBJDUMP MODULE OBJECTS: fails unless the audio thread's sections of the linked module, not stripped yet,
# hold what they should and nothing else: RT_CODE the effect's entry, RT_CONST its virtual tables and its table of interfaces.
# OBJECTS is the archive that brings them: a section is larger in the module when anything else got into it.
set -eu
nm=$1 objdump=$2 module=$3 objects=$4

# The sizes of all sections of a name, in hexadecimal digits.
sizes() {
    "$objdump" -h "$1" | awk -v name="$2" '$2 == name { print $3 }'
}

sum() {
    total=0
    for size in $(sizes "$1" "$2"); do
        total=$((total + 0x$size))
    done
    echo "$total"
}

# The symbols within a section of the module, but for the names of sections and the adjustments by which an engine reaches the
# entry: clang puts them beside it, and they are judged below. Where each stands is the compiler's matter: they come in the order
# of their names.
symbols() {
    "$objdump" -h "$module" | awk -v name="$1" '$2 == name { print $4, $3 }' | {
        read -r start size
        "$nm" "$module" | LC_ALL=C sort -k 3 | while read -r address _ symbol; do
            case $symbol in
            '' | RT_* | .* | _ZThn*) ;;
            *) [ $((0x$address)) -ge $((0x$start)) ] && [ $((0x$address)) -lt $((0x$start + 0x$size)) ] && echo "$symbol" ;;
            esac
        done | tr '\n' ' '
    }
}

check() {
    section=$1 expected=$2
    if [ "$(sizes "$module" "$section" | wc -l)" -ne 1 ]; then
        echo "$module: there must be one section $section" >&2
        exit 1
    fi
    found=$(symbols "$section")
    if [ "$found" != "$expected" ]; then
        printf '%s: section %s holds\n  %s\ninstead of\n  %s\n' "$module" "$section" "$found" "$expected" >&2
        exit 1
    fi
    if [ "$(sum "$module" "$section")" -ne "$(sum "$objects" "$section")" ]; then
        echo "$module: section $section holds more than the effect's object gives it" >&2
        exit 1
    fi
}

check RT_CODE '_ZN6quorel6QUOREL10APOProcessEjPP23APO_CONNECTION_PROPERTYjS3_ '
check RT_CONST '_ZN6quorel6QUOREL10interfacesE _ZTVN6quorel6QUORELE '

# An engine calls the entry through an adjustment of the object's address, which must do no more than jump there.
adjustment=$("$nm" "$module" | awk '$3 ~ /^_ZThn[0-9]+_N6quorel6QUOREL10APOProcess/ { print $3; exit }')
entry=${adjustment#_ZThn*_}
turns=$("$objdump" -d --no-show-raw-insn "$module" | awk -v label="<$adjustment>:" '
    $2 == label { inside = 1 }
    /^$/ { inside = 0 }
    inside && $2 ~ /^(j|call|ret)/ { print $2, $NF }')
case $turns in
"jmp <_Z$entry>" | "jmpq <_Z$entry>") ;;
*)
    printf '%s: %s does more than jump to the entry:\n%s\n' "$module" "$adjustment" "$turns" >&2
    exit 1
    ;;
esac
