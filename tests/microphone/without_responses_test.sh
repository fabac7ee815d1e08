#!/bin/sh
# SPDX-License-Identifier: MIT
# without_responses_test.sh NM CAPTURE RENDER: a program with the capture effect alone carries none of the render effect, whose
# tables of responses are most of its size; the one with the render effect shows by what name they are known.
set -eu
nm=$1 capture=$2 render=$3
render_effect='quorel::(speakerResponses|SpeakerPath)'
"$nm" --demangle "$render" | grep -qE ' [RDB] quorel::speakerResponses$' || { echo "$render: no responses under their name"; exit 1; }
"$nm" --demangle "$capture" | grep -q 'quorel::MicrophonePath' || { echo "$capture: no capture effect"; exit 1; }
if "$nm" --demangle "$capture" | grep -E "$render_effect"; then
    echo "$capture: carries the render effect"
    exit 1
fi
