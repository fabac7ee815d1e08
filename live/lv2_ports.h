// SPDX-License-Identifier: MIT
// The plug-ins' ports, in the one order that the code and the bundles' descriptions share:
//
//   sound in, sound out, latency, one for each setting of the side,
//   the microphone's nine levels, or the speaker's two for messages about the responses' file
#pragma once

#include "client/settings_fields.h"
#include "live/effect_stream.h"

#include <vector>

namespace quorel {

inline constexpr std::uint32_t levelCount = 9;
inline constexpr const char* responsesUri = "urn:quorel:speaker#responses"; // the path property

struct PluginPorts {
    explicit PluginPorts(bool microphone) : kind(microphone ? StreamKind{true, 1, 0x4} : StreamKind{})
    {
        for (const SettingsField& field : settingsFields())
            if (field.effect == (microphone ? Effect::microphone : Effect::speaker))
                settings.push_back(&field);
    }

    const char* uri() const { return kind.microphone ? "urn:quorel:microphone" : "urn:quorel:speaker"; }

    std::uint32_t latency() const { return kind.channels + kind.outputs(); }
    std::uint32_t firstSetting() const { return latency() + 1; }
    std::uint32_t behindSettings() const { return firstSetting() + static_cast<std::uint32_t>(settings.size()); }
    std::uint32_t firstLevel() const { return behindSettings(); }  // the microphone's
    std::uint32_t messagesIn() const { return behindSettings(); }  // the speaker's
    std::uint32_t messagesOut() const { return messagesIn() + 1; } // the speaker's
    std::uint32_t count() const { return behindSettings() + (kind.microphone ? levelCount : 2); }

    StreamKind kind;
    std::vector<const SettingsField*> settings;
};

} // namespace quorel
