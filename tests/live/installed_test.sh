#!/bin/sh
# SPDX-License-Identifier: MIT
# installed_test.sh PREFIX: hosts find the installed plug-ins, a user's manager the unit, and the autostart file is valid where
# the page says that it lies.
set -eu
LV2_PATH=$1/lib/lv2 lv2ls | sort >"$1/plugins"
printf 'urn:quorel:microphone\nurn:quorel:speaker\n' | diff - "$1/plugins"
for side in speaker microphone; do
    ldd "$1/lib/lv2/quorel-$side.lv2/quorel-$side.so" >"$1/needed"
    ! grep 'not found' "$1/needed"
done
grep -q '^ExecStart=.*/bin/quorel-live$' "$1/lib/systemd/user/quorel-live.service"
desktop-file-validate "$1/share/quorel/autostart/quorel-live.desktop"
