// SPDX-License-Identifier: MIT
// Both plug-ins as a host's audio thread runs them, for the tests that watch it: calls of many lengths, settings that change from
// call to call, and for the speaker a set of responses that arrives while it runs.
#pragma once

#include "tests/live/plugin/plugin_host.h"

namespace quorel {

class PluginSession {
public:
    PluginSession() : speaker(*lv2_descriptor(0), false, {}), microphone(*lv2_descriptor(1), true, {})
    {
        std::uint32_t state = 1;
        for (PluginHost* host : {&speaker, &microphone})
            for (float& x : host->sound) {
                state = state * 1664525U + 1013904223U;
                x = static_cast<float>(static_cast<std::int32_t>(state)) * 0x1p-33F;
            }
    }

    // enter, leave: called around all that the plug-ins do on the audio thread.
    void watch(void (*enter)(), void (*leave)())
    {
        for (PluginHost* host : {&speaker, &microphone}) {
            host->enter = enter;
            host->leave = leave;
        }
    }

    // Asks for the built-in set, which another thread then brings.
    void order()
    {
        speaker.run("");
        speaker.work();
    }

    static constexpr std::uint32_t blocks = 140; // of a run

    // The set arrives, and many calls follow.
    void run()
    {
        speaker.answer();
        constexpr std::uint32_t lengths[] = {256, 1, 47, 128, 240, 0, 255};
        for (std::uint32_t call = 0; call < blocks / 2; ++call) {
            const std::uint32_t n = lengths[call % std::size(lengths)];
            speaker.set("Settings", static_cast<float>(call % 5 != 0));
            speaker.set("Reverb", static_cast<float>(call % 3 * 90));
            speaker.set("EQBand5", static_cast<float>(call % 60));
            speaker.run(call == 40 ? "" : nullptr, n); // and is asked for once more
            microphone.set("MicNR", static_cast<float>(call % 3 != 0));
            microphone.set("micEq", static_cast<float>(call % 4 % 3));
            microphone.set("noiseGate", static_cast<float>(call % 4 * 50));
            microphone.run(nullptr, n);
        }
    }

    PluginHost speaker;
    PluginHost microphone;
};

} // namespace quorel
