// SPDX-License-Identifier: MIT
#include "c_interface/quorel.h"

#include "client/settings_fields.h"
#include "core/signal_path.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <utility>

struct quorel_effect {
    quorel_effect(quorel::SignalPath path, std::uint32_t outputChannels, std::uint32_t maxFrames)
        : path(std::move(path)), outputChannels(outputChannels), maxFrames(maxFrames)
    {
    }

    quorel::SignalPath path;
    std::uint32_t outputChannels;
    std::uint32_t maxFrames;
    char error[QUOREL_TEXT] = ""; // of the last call that failed
};

namespace {

constexpr std::uint32_t effectRate = 48000; // frames per second that the render effect is made for
constexpr std::uint32_t slots = 8;          // samples in its output frame

void tell(char* text, const char* reason) noexcept
{
    if (text == nullptr)
        return;
    const std::size_t length = std::min<std::size_t>(std::strlen(reason), QUOREL_TEXT - 1);
    std::memcpy(text, reason, length);
    text[length] = '\0';
}

quorel_status failed(quorel_effect& effect, quorel_status status, const char* reason) noexcept
{
    tell(effect.error, reason);
    return status;
}

// Calls `body`, and turns what it throws into a status and a text.
template <typename Body>
quorel_status guarded(char* text, Body body) noexcept
{
    try {
        return body();
    } catch (const std::bad_alloc&) {
        tell(text, quorel_status_text(QUOREL_NO_MEMORY));
        return QUOREL_NO_MEMORY;
    } catch (const std::exception& error) {
        tell(text, error.what());
        return QUOREL_REFUSED;
    }
}

template <typename Kind>
quorel_status create(Kind kind, std::uint32_t channels, std::uint32_t mask, std::uint32_t maxFrames, std::uint32_t rate,
                     std::uint32_t outputChannels, quorel_effect** effect, char* why) noexcept
{
    if (effect == nullptr) {
        tell(why, "the pointer to the effect is null");
        return QUOREL_BAD_ARGUMENT;
    }
    *effect = nullptr;
    return guarded(why, [&] {
        // None that is too many becomes negative.
        const auto signedChannels = static_cast<std::int32_t>(std::min(channels, slots + 1));
        *effect = std::make_unique<quorel_effect>(quorel::SignalPath(kind, signedChannels, mask, maxFrames, rate), outputChannels,
                                                  maxFrames)
                      .release();
        return QUOREL_OK;
    });
}

} // namespace

const char* quorel_version()
{
    return QUOREL_VERSION;
}

const char* quorel_status_text(quorel_status status)
{
    switch (status) {
    case QUOREL_OK:
        return "done";
    case QUOREL_BAD_ARGUMENT:
        return "an argument is null or out of its range";
    case QUOREL_UNKNOWN_NAME:
        return "there is no setting of this name";
    case QUOREL_REFUSED:
        return "the effect does not take this stream or this block";
    case QUOREL_NO_LEVELS:
        return "this effect measures no levels";
    case QUOREL_NO_MEMORY:
        return "there is no memory left";
    }
    return "unknown status";
}

quorel_status quorel_create_speaker(uint32_t channels, uint32_t channel_mask, uint32_t max_frames, uint32_t rate,
                                    quorel_effect** effect, char* why)
{
    const std::uint32_t outputChannels = rate == effectRate ? slots : channels;
    return create(quorel::SignalPath::Speaker{}, channels, channel_mask, max_frames, rate, outputChannels, effect, why);
}

quorel_status quorel_create_microphone(uint32_t channels, uint32_t max_frames, uint32_t rate, quorel_effect** effect, char* why)
{
    return create(quorel::SignalPath::Microphone{}, channels, 0, max_frames, rate, channels, effect, why);
}

uint32_t quorel_output_channels(const quorel_effect* effect)
{
    return effect == nullptr ? 0 : effect->outputChannels;
}

quorel_status quorel_process(quorel_effect* effect, const float* in, float* out, uint32_t frames)
{
    if (effect == nullptr)
        return QUOREL_BAD_ARGUMENT;
    if (in == nullptr || out == nullptr)
        return failed(*effect, QUOREL_BAD_ARGUMENT, "a block is null");
    if (frames > effect->maxFrames)
        return failed(*effect, QUOREL_BAD_ARGUMENT, "the block has more frames than the effect was created for");
    return guarded(effect->error, [&] {
        auto* input = const_cast<float*>(in); // which no path writes to, unless it is the output as well
        effect->path->process(input, frames, out, frames);
        return QUOREL_OK;
    });
}

quorel_status quorel_set(quorel_effect* effect, const char* name, int32_t value)
{
    if (effect == nullptr)
        return QUOREL_BAD_ARGUMENT;
    if (name == nullptr)
        return failed(*effect, QUOREL_BAD_ARGUMENT, "the name is null");
    const quorel::SettingsField* field = quorel::settingsField(name);
    if (field == nullptr)
        return failed(*effect, QUOREL_UNKNOWN_NAME, quorel_status_text(QUOREL_UNKNOWN_NAME));
    if (value < field->low || value > field->high)
        return failed(*effect, QUOREL_BAD_ARGUMENT, "the value is out of the setting's range");
    return guarded(effect->error, [&] {
        quorel::SettingsRecord& record = *effect->path->settings();
        quorel::setSetting(record, *field, value);
        ++record.blockSequence; // a render path takes no record with the sequence that it has seen last
        record.applied = 0;
        return QUOREL_OK;
    });
}

quorel_status quorel_get(const quorel_effect* effect, const char* name, int32_t* value)
{
    if (effect == nullptr || name == nullptr || value == nullptr)
        return QUOREL_BAD_ARGUMENT;
    const quorel::SettingsField* field = quorel::settingsField(name);
    if (field == nullptr)
        return QUOREL_UNKNOWN_NAME;
    *value = static_cast<std::int32_t>(quorel::settingOf(*effect->path->settings(), *field));
    return QUOREL_OK;
}

int quorel_setting_at(size_t index, quorel_setting* setting)
{
    const auto fields = quorel::settingsFields();
    if (setting == nullptr || index >= fields.size())
        return 0;
    const quorel::SettingsField& field = fields[index];
    *setting = {field.name, field.meaning, static_cast<std::int32_t>(field.low), static_cast<std::int32_t>(field.high)};
    return 1;
}

quorel_status quorel_levels(quorel_effect* effect, float levels[QUOREL_LEVELS])
{
    if (effect == nullptr)
        return QUOREL_BAD_ARGUMENT;
    if (levels == nullptr)
        return failed(*effect, QUOREL_BAD_ARGUMENT, "the array for the levels is null");
    const float* measured = effect->path->levels();
    if (measured == nullptr)
        return failed(*effect, QUOREL_NO_LEVELS, quorel_status_text(QUOREL_NO_LEVELS));
    std::copy_n(measured, QUOREL_LEVELS, levels);
    return QUOREL_OK;
}

const char* quorel_error(const quorel_effect* effect)
{
    return effect == nullptr ? "" : effect->error;
}

void quorel_destroy(quorel_effect* effect)
{
    delete effect;
}
