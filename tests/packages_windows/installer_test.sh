#!/bin/sh
# SPDX-License-Identifier: MIT
# installer_test.sh SOURCE BUILD HOLDER VERSION WORK: the installer for Windows and the zip, signed by a certificate made for the
# test, in a Wine prefix of their own. The registry after removal is the registry before installation: of a bare system, of one
# where an INF has left its two keys without a file, and of one where an earlier module is registered; and an upgrade over a
# module in use leaves the new one in place and restarts nothing.
set -eu
. "$(dirname "$0")/../support/waiting.sh"
source=$1 build=$2 holder=$3 version=$4 work=$5
rm -rf "$work"
mkdir -p "$work"
work=$(cd "$work" && pwd)
export WINEPREFIX="$work/wine" WINEDEBUG=-all
unset DISPLAY
# A prefix as it is without what isn't asked for: neither menus nor another system's run-time libraries.
export WINEDLLOVERRIDES='winemenubuilder.exe,mscoree,mshtml='

fail() {
    echo "$*"
    exit 1
}
finish() {
    touch "$folder/ZELTA.dll.release" 2>/dev/null || :
    wineserver -k || : # of this prefix alone
}
folder="$WINEPREFIX/drive_c/Program Files/ZELTA"
trap finish EXIT
wine=$(command -v wine64 || command -v wine)
windows() {
    timeout 300 "$wine" "$@" </dev/null >"$work/said" 2>&1
}

gone() {
    [ ! -e "$1" ]
}

# The parts of the registry that a setup could write to, but for what Wine itself notes there of its display and its devices.
registry() {
    windows reg query 'HKLM\Software' # the makers
    tr -d '\r' <"$work/said" >"$1"
    windows reg export 'HKLM\Software\Classes' 'C:\classes.reg' /y
    windows reg export 'HKLM\Software\Microsoft\Windows\CurrentVersion' 'C:\windows.reg' /y
    windows reg export 'HKCU\Software' 'C:\user.reg' /y
    for name in classes windows user; do
        iconv -f UTF-16 -t UTF-8 "$WINEPREFIX/drive_c/$name.reg" | tr -d '\r'
    done | awk '/^\[/ { skip = /\\Software\\Wine\\|\\MMDevices|\\Explorer\\/ } !skip' >>"$1"
    [ "$(grep -c '^\[HKEY_LOCAL_MACHINE' "$1")" -gt 100 ] || fail 'the registry could not be read'
}

install() {
    result=0
    windows "$work/out/quorel-$version-setup.exe" /S || result=$?
    [ "$result" -eq "$1" ] || fail "setup gave $result instead of $1: $(cat "$work/said")"
    cmp "$work/module" "$folder/ZELTA.dll"
}

# The uninstaller runs from a copy of itself, so its end is seen by what it leaves.
remove() {
    windows "$folder/uninstall.exe" /S || fail "the uninstaller failed: $(cat "$work/said")"
    waits_for 120 gone "$folder"
}

class='{5B0E3C92-7D14-4F6A-A2C8-19D3E60B7F44}'

# ---- Signed by a certificate of one's own ----
openssl req -x509 -newkey rsa:2048 -nodes -keyout "$work/key.pem" -out "$work/certificate.pem" -days 2 -subj '/CN=QUOREL test' \
    -addext keyUsage=digitalSignature -addext extendedKeyUsage=codeSigning 2>"$work/said" || fail "$(cat "$work/said")"
"$source/packaging/windows/make" "$build" "$version" "$work/out" \
    "$source/packaging/sign $work/certificate.pem $work/key.pem" >"$work/made" 2>&1 || fail "$(cat "$work/made")"
unzip -q "$work/out/quorel-$version-windows-x64.zip" -d "$work/zip"
zipped=$work/zip/quorel-$version-windows-x64
cp "$zipped/ZELTA.dll" "$work/module"
signed() {
    osslsigncode verify -CAfile "$work/certificate.pem" -in "$1" >"$work/verified" 2>&1
}
for file in "$zipped/ZELTA.dll" "$zipped/quorel-control.exe" "$zipped/quorel-panel.exe" "$work/out/quorel-$version-setup.exe"; do
    signed "$file" || fail "$(cat "$work/verified")"
done
signed "$zipped/ZELTA.dll"
grep -qi 'page hash' "$work/verified" || fail 'the module has no page hashes'
cp "$zipped/ZELTA.dll" "$work/touched.dll"
printf x | dd of="$work/touched.dll" bs=1 seek=8192 conv=notrunc 2>/dev/null
if signed "$work/touched.dll"; then
    fail 'a changed module is taken for signed'
fi
for file in LICENSE.txt NOTICE.txt windows.html control.html panel.html zelta.inf; do
    [ -s "$zipped/$file" ] || fail "the zip has no $file"
done
if grep -l 'src="[^d]' "$zipped"/*.html; then
    fail 'a page of the zip has a picture elsewhere'
fi

# ---- A bare system, with the engine's list, which Windows has from the beginning ----
windows wineboot -i
windows reg add 'HKCR\AudioEngine\AudioProcessingObjects' /f
install 0
remove # what Wine's own libraries note at their first use is noted now
registry "$work/before"
install 0
signed "$folder/uninstall.exe" || fail "$(cat "$work/verified")"
windows "$folder/quorel-control.exe" --version
grep -q "^quorel-control $version" "$work/said" || fail "$(cat "$work/said")"
registry "$work/installed"
keys=$(diff "$work/before" "$work/installed" | sed -n 's/^[<>] \(\[.*\]\).*/\1/p' | LC_ALL=C sort)
[ "$keys" = "[HKEY_LOCAL_MACHINE\\Software\\Classes\\AudioEngine\\AudioProcessingObjects\\$class]
[HKEY_LOCAL_MACHINE\\Software\\Classes\\CLSID\\$class\\InprocServer32]
[HKEY_LOCAL_MACHINE\\Software\\Classes\\CLSID\\$class]
[HKEY_LOCAL_MACHINE\\Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\ZELTA]" ] || fail "other keys than expected: $keys"
grep -q '^@="C:\\\\Program Files\\\\ZELTA\\\\ZELTA.dll"' "$work/installed" || fail 'the class names another file'

# ---- An upgrade over a module in use ----
"$wine" "$holder" 'C:\Program Files\ZELTA\ZELTA.dll' </dev/null >"$work/holder" 2>&1 &
waits_for 120 grep -q held "$work/holder"
install 194 # 3010, of which a Unix process's result keeps the low byte
registry "$work/upgraded"
cmp "$work/installed" "$work/upgraded"
touch "$folder/ZELTA.dll.release"
wait $!
rm "$folder/ZELTA.dll.release"
install 0
rm -f "$folder"/ns*.tmp # what Windows deletes at its next start
remove
registry "$work/after"
diff "$work/before" "$work/after"

# ---- Where an INF has left its keys, and where another module is registered ----
earlier() {
    printf 'REGEDIT4\r\n\r\n[HKEY_CLASSES_ROOT\\CLSID\\%s]\r\n@="ZELTA"\r\n\r\n' "$class"
    printf '[HKEY_CLASSES_ROOT\\CLSID\\%s\\InprocServer32]\r\n@="C:\\\\earlier\\\\ZELTA.dll"\r\n\r\n' "$class"
    printf '[HKEY_CLASSES_ROOT\\AudioEngine\\AudioProcessingObjects\\%s]\r\n"FriendlyName"="earlier"\r\n' "$class"
}
earlier >"$WINEPREFIX/drive_c/earlier.reg"
windows reg import 'C:\earlier.reg'
install 0
remove
registry "$work/after"
diff "$work/before" "$work/after"

windows reg import 'C:\earlier.reg'
mkdir "$WINEPREFIX/drive_c/earlier"
cp "$build/ZELTA.dll" "$WINEPREFIX/drive_c/earlier"
registry "$work/before"
grep -q 'FriendlyName"="earlier"' "$work/before"
install 0
remove
registry "$work/after"
diff "$work/before" "$work/after"
echo 'installed, upgraded and removed without a trace'
