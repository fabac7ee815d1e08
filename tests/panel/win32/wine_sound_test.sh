#!/bin/sh
# SPDX-License-Identifier: MIT
# wine_sound_test.sh RUN_WINE PLAY PREFIX: the speaker test on Windows, heard. PLAY runs under Wine, whose wave device here is a null
# sink with eight speakers at an audio server of the test's own; each of these must speak in its turn.
set -eu
home=$(mktemp -d)
trap 'rm -rf "$home"' EXIT
HOME=$home XDG_RUNTIME_DIR=$home PIPEWIRE_RUNTIME_DIR=$home XDG_CONFIG_HOME=$home/config XDG_STATE_HOME=$home/state \
    XDG_DATA_HOME=$home/data
export HOME XDG_RUNTIME_DIR PIPEWIRE_RUNTIME_DIR XDG_CONFIG_HOME XDG_STATE_HOME XDG_DATA_HOME
unset DISPLAY WAYLAND_DISPLAY PULSE_SERVER PIPEWIRE_REMOTE DBUS_SESSION_BUS_ADDRESS
mkdir -p "$home/config/pipewire/pipewire.conf.d"
cat >"$home/config/pipewire/pipewire.conf.d/test.conf" <<'CONF'
context.objects = [
  { factory = adapter args = { factory.name = support.null-audio-sink node.name = speakers node.description = "Speakers"
      media.class = Audio/Sink audio.position = "FL,FR,FC,LFE,RL,RR,SL,SR" object.linger = true priority.session = 1000 } }
]
CONF
# A prefix of its own: Wine notes the devices there that it finds. It is made once.
[ -e "$3/system.reg" ] || WINEPREFIX=$3 "$1" wineboot >"$home/boot" 2>&1
cat >"$home/session" <<'SESSION'
set -eu
run_wine=$1 play=$2 WINEPREFIX=$3
export WINEPREFIX
running=
start() {
    "$@" >>"$HOME/log" 2>&1 &
    running="$! $running"
}
trap 'kill $running 2>/dev/null || :; wineserver -k 2>/dev/null || :; wait' EXIT
fail() {
    echo "$1" >&2
    cat "$HOME/log" >&2
    exit 1
}
start pipewire
for _ in $(seq 300); do pw-cli ls Node 2>/dev/null | grep -q '"speakers"' && break; sleep 0.1; done
start pipewire-pulse
# It happens that server and manager wait for each other as the manager starts. That one is killed, and another one started.
for _ in $(seq 6); do
    wireplumber >>"$HOME/log" 2>&1 &
    manager=$!
    timeout 10 sh -c 'until pactl info 2>/dev/null | grep -q "Default Sink: speakers"; do sleep 0.1; done' && break
    kill -KILL $manager
    wait $manager || :
    manager=
done
running="$manager $running"
[ -n "$manager" ] || fail "no audio server"
pw-record --target speakers -P '{ stream.capture.sink=true }' --channels 8 --channel-map FL,FR,FC,LFE,RL,RR,SL,SR \
    --format f32 - >"$HOME/heard" 2>>"$HOME/log" &
running="$! $running"
for _ in $(seq 300); do [ -s "$HOME/heard" ] && break; sleep 0.1; done
timeout 600 "$run_wine" "$play" speakers >"$HOME/said" || fail "the speaker test failed: $(cat "$HOME/said")"
sleep 1 # what is still in the buffers
SESSION
dbus-run-session -- sh "$home/session" "$@"
/usr/bin/python3 "$(dirname "$0")/heard_in_turn.py" <"$home/heard"
