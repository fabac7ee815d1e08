#!/bin/sh
# SPDX-License-Identifier: MIT
# pages.sh PROGRAM VERSION FOLDER: the program's manual page and completions, into the folder.
set -eu
program=$1 version=$2 folder=$3
name=$(basename "$program")
mkdir -p "$folder"
"$program" --option-table >"$folder/$name.table"
for kind in man bash zsh fish; do
    python3 "$(dirname "$0")/pages.py" $kind "$version" <"$folder/$name.table" >"$folder/$name.$kind"
done
mv "$folder/$name.man" "$folder/$name.1"
