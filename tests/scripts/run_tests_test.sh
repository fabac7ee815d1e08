#!/bin/sh
# SPDX-License-Identifier: MIT
# run_tests_test.sh SOURCES: a test that fails runs once more, and is told where it passes then; what fails twice fails, and more
# than five are too many to be chance. One that stands still has failed.
set -eu
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"
mkdir scripts
cp "$1/scripts/run_tests" scripts
cat >CMakePresets.json <<'END'
{"version": 3, "configurePresets": [{"name": "p", "generator": "Ninja", "binaryDir": "build/p"}],
 "testPresets": [{"name": "p", "configurePreset": "p", "execution": {"jobs": 2}}]}
END
printf '%s\n' 'cmake_minimum_required(VERSION 3.25)' 'project(p LANGUAGES NONE)' 'enable_testing()' 'include(tests.cmake)' >CMakeLists.txt

# outcome TEST...: the exit code of a run with these tests, and what it tells. `once1`, say, fails at its first run alone.
outcome()
{
    rm -rf build unsteady
    mkdir -p build/marks
    for test; do
        case $test in
            steady) words=true ;;
            stands_once) words="mkdir $folder/build/marks/$test && exec sleep 1000; exit 0" ;;
            stands) words='exec sleep 1000' ;;
            once*) words="mkdir $folder/build/marks/$test && exit 1; exit 0" ;;
            never) words=false ;;
        esac
        printf 'add_test(NAME %s COMMAND sh -c "%s")\n' "$test" "$words"
    done >tests.cmake
    cmake --preset p >/dev/null
    scripts/run_tests p "$folder/unsteady" >said 2>&1 && code=0 || code=$?
    echo "$code: $(sort unsteady 2>/dev/null | paste -s -d ,)"
}

expect()
{
    [ "$1" = "$2" ] || { echo "'$2' instead of '$1'"; cat said; exit 1; }
}

expect '0: ' "$(outcome steady)"
export QUOREL_TEST_SECONDS=1
expect '0: p: stands_once' "$(outcome steady stands_once)"
expect '8: ' "$(outcome steady stands)"
unset QUOREL_TEST_SECONDS
expect '0: p: once1,p: once2' "$(outcome steady once1 once2)"
expect '8: ' "$(outcome steady once1 never)"
expect '0: p: once1,p: once2,p: once3,p: once4,p: once5' "$(outcome once1 once2 once3 once4 once5)"
expect '1: ' "$(outcome once1 once2 once3 once4 once5 once6)"
