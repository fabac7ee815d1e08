#!/bin/sh
# SPDX-License-Identifier: MIT
# release_tag_test.sh SOURCE VERSION WORK: `scripts/release --tag` tags what it has built, a clean main without such a tag, and
# nothing else. It runs in a repository of the test's own, where whatever builds is replaced by what takes no time.
set -eu
source=$1 version=$2 work=$3
rm -rf "$work"
mkdir -p "$work/commands" "$work/repository/scripts" "$work/repository/debian" "$work/repository/packaging"
cd "$work/repository"
cp "$source/scripts/release" scripts
cp "$source/CMakeLists.txt" .
cp "$source/debian/changelog" debian
cat >scripts/packages <<END
#!/bin/sh
set -eu
[ ! -e "$work/broken" ] || { echo "it does not build"; exit 1; }
mkdir -p "\$1" "$work/tree/quorel-$version/packaging/windows"
printf '#!/bin/sh\ntouch "\$3/quorel.exe" "\$3/quorel.zip"\n' >"$work/tree/quorel-$version/packaging/windows/make"
chmod +x "$work/tree/quorel-$version/packaging/windows/make"
tar -czf "\$1/quorel-$version.tar.gz" -C "$work/tree" "quorel-$version"
touch "\$1/quorel.deb"
END
echo 'print("{}")' >packaging/sbom.py
printf '#!/bin/sh\n' >"$work/commands/cmake"
chmod +x scripts/packages "$work/commands/cmake"
echo /build/ >.gitignore

unset GIT_DIR GIT_INDEX_FILE GIT_WORK_TREE
export PATH="$work/commands:$PATH" HOME="$work" GIT_CONFIG_NOSYSTEM=1
git init -q -b main
git config user.name Tester
git config user.email tester@localhost
git add .
git commit -q -m first

# refused TEXT: no tag is made, and why
refused() {
    if scripts/release --tag >"$work/said" 2>&1; then
        echo "tagged instead of: $1"
        exit 1
    fi
    grep -q -- "$1" "$work/said" || { cat "$work/said"; exit 1; }
    [ -z "$(git tag)" ] || { echo 'there is a tag'; exit 1; }
}

git checkout -q -b other
refused 'the tag is made on main'
git checkout -q main
touch unknown
refused 'the tree is not clean'
rm unknown
sed -i "1s/$version/9.9.9/" debian/changelog
refused "debian/changelog tells another version than $version"
git checkout -q debian/changelog
touch "$work/broken"
refused 'it does not build'
rm "$work/broken"

scripts/release --tag >"$work/said" 2>&1 || { cat "$work/said"; exit 1; }
grep -q "tagged v$version" "$work/said"
[ "$(git tag)" = "v$version" ]
[ "$(git cat-file -t "v$version")" = tag ] # with a name and a date, which `git describe` asks for
[ "$(git rev-parse "v$version^{commit}")" = "$(git rev-parse HEAD)" ]
(cd build/release-artifacts && sha256sum --quiet -c SHA256SUMS)

if scripts/release --tag >"$work/said" 2>&1; then
    echo 'tagged a second time'
    exit 1
fi
grep -q "there is a tag v$version already" "$work/said"
