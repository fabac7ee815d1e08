#!/bin/sh
# SPDX-License-Identifier: MIT
# panel_imports_test.sh OBJDUMP PROGRAM: the panel on Windows needs the system's own libraries alone.
set -eu
system='ADVAPI32.dll COMCTL32.dll COMDLG32.dll GDI32.dll KERNEL32.dll SHELL32.dll USER32.dll WINMM.dll msvcrt.dll ole32.dll'
needed=$("$1" -p "$2" | sed -n 's/.*DLL Name: //p')
[ -n "$needed" ] || { echo "$2 imports nothing?" >&2; exit 1; }
foreign=$(for library in $needed; do
    echo " $(echo $system) " | grep -qiF " $library " || echo "$library"
done)
[ -z "$foreign" ] || { echo "$2 needs what the system does not have:" $foreign >&2; exit 1; }
