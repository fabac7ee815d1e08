// SPDX-License-Identifier: MIT
#include "tests/model/speaker_model.h"

#include <algorithm>
#include <cmath>
#include <string>

namespace quorel::model {

namespace {

struct Speaker {
    std::uint32_t bit;
    float left; // gain of the stereo down-mix
    float right;
    std::size_t preDelay; // frames, as requested
};

constexpr std::array<Speaker, speakerCount> speakers{{
    {0x1, 1.0f, 0.0f, 44},     // front left
    {0x2, 0.0f, 1.0f, 40},     // front right
    {0x4, 0.5f, 0.5f, 48},     // front centre
    {0x8, 0.707f, 0.707f, 38}, // low frequency
    {0x10, 0.707f, 0.0f, 51},  // back left
    {0x20, 0.0f, 0.707f, 42},  // back right
    {0x200, 0.707f, 0.0f, 48}, // side left
    {0x400, 0.0f, 0.707f, 44}, // side right
}};

std::vector<std::size_t> speakersOf(std::uint32_t mask, std::size_t channels)
{
    std::vector<std::size_t> present;
    for (std::size_t s = 0; s < speakerCount; ++s)
        if ((mask & speakers[s].bit) != 0)
            present.push_back(s);
    if (present.size() != channels)
        refuse("quorel::SpeakerPath<" + std::to_string(channels) +
               ",float>::SpeakerPath: number of active channels in channelMask does not match "
               "CH_IN");
    return present;
}

std::vector<std::size_t> preDelaysOf(std::uint32_t mask, std::size_t channels)
{
    std::vector<std::size_t> delays;
    for (const std::size_t s : speakersOf(mask, channels))
        delays.push_back(speakers[s].preDelay);
    return delays;
}

constexpr std::size_t inputOverlap = 176; // 169 in whole rows of 16

constexpr float outputGain = 0.8f;

Rows deinterleaved(const float* in, std::size_t n, std::size_t channels)
{
    Rows rows(channels, Signal(n));
    for (std::size_t i = 0; i < n; ++i)
        for (std::size_t c = 0; c < channels; ++c)
            rows[c][i] = in[i * channels + c];
    return rows;
}

} // namespace

// ---------------------------------------------------------------------------

SpeakerModel::SpeakerModel(std::size_t channels, std::uint32_t mask, std::size_t maxFrames, std::uint32_t sampleRate,
                           const SpeakerTables& tables)
    : channels(channels),
      capacity(roundUpTo16(maxFrames)),
      sampleRate(sampleRate),
      input(channels, inputOverlap),
      directCompressor(renderLimiter()),
      room(preDelaysOf(mask, channels), maxFrames, tables.sameSide, tables.crossSide),
      outputCompressor(renderLimiter())
{
    for (const std::size_t s : speakersOf(mask, channels)) {
        leftTaps.push_back(tables.left[s]);
        rightTaps.push_back(tables.right[s]);
        downmixLeft.push_back(speakers[s].left);
        downmixRight.push_back(speakers[s].right);
    }
    for (Cascade& ear : equalizer)
        ear.design(equalizerSections(equalizerTarget));
}

Signal SpeakerModel::process(const RecordFields& fields, const float* in, std::size_t n)
{
    return process(fields, in, n, n);
}

Signal SpeakerModel::process(const RecordFields& fields, const float* in, std::size_t n, std::size_t outFrames)
{
    if (fields.newRecord) {
        record = fields;
        applied = false;
    }
    if (!applied) {
        if (record.blockSequence != lastSequence) {
            translate();
            lastSequence = record.blockSequence;
        }
        applied = true;
    }

    if (sampleRate != 48000) {
        if (n > outFrames)
            refuse("PassThrough: out buffer too small");
        if (n == 0)
            refuseStatus("ippStsSizeErr");
        return Signal(in, in + n * channels);
    }

    const Rows block = deinterleaved(in, n, channels);
    Rows mix;
    Rows side;

    // The surround signal, also in the one block that fades it out.
    if (surround || surroundPrevious) {
        input.slide();
        input.load(block);
        if (n > capacity)
            refuse("Compressor: out buffer too small");
        mix = directCompressor.process(direct());

        if (reverbOn || reverbChanged) {
            side = room.process(block);
            if (reverbChanged) {
                const Ramps ramps(n);
                for (Signal& row : side)
                    row = crossfade(scaled(row, reverbGain), scaled(row, reverbTarget), ramps);
                reverbChanged = false;
                reverbGain = reverbTarget;
            } else {
                for (Signal& row : side)
                    row = scaled(row, reverbGain);
            }
            for (std::size_t ear = 0; ear < 2; ++ear)
                for (std::size_t i = 0; i < n; ++i)
                    mix[ear][i] += side[ear][i];
        }
    }

    // An empty block ends here. Nothing can be faded over no frames: a pending fade or switch
    // waits for the next block.
    if (n == 0)
        return {};

    // The down-mix, also in the one block that fades it out. In a transition the limiter has
    // run over the surround signal before and goes on from there.
    if (!surround || !surroundPrevious) {
        if (n > capacity)
            refuse("ScaleMixer: out buffer too small");
        Rows& target = mix.empty() ? mix : side;
        target = directCompressor.process(downmix(block));
    }

    if (surround != surroundPrevious) {
        const Ramps ramps(n);
        for (std::size_t ear = 0; ear < 2; ++ear)
            mix[ear] = surround ? crossfade(side[ear], mix[ear], ramps) : crossfade(mix[ear], side[ear], ramps);
    }
    surroundPrevious = surround;

    side = outputCompressor.process(equalize(mix));

    if (n > outFrames)
        refuse("PassThrough: out buffer too small");
    Signal out(2 * n);
    for (std::size_t i = 0; i < n; ++i)
        for (std::size_t ear = 0; ear < 2; ++ear)
            out[2 * i + ear] = outputGain * side[ear][i];
    return out;
}

void SpeakerModel::translate()
{
    surround = record.Settings != 0;

    std::array<double, 9> gainsDb{};
    for (std::size_t b = 0; b < 9; ++b)
        gainsDb[b] = record.EQBand[b] / 127.0 * 6.0;
    if (gainsDb != equalizerTarget) {
        equalizerTarget = gainsDb;
        equalizerChanged = true;
    }

    float gain = 0.0f;
    reverbOn = record.Reverb != 0;
    if (reverbOn)
        gain = std::pow(10.0f, (static_cast<float>(record.Reverb) * 27.0f / 255.0f - 18.0f) / 20.0f);
    if (gain != reverbTarget) {
        reverbTarget = gain;
        reverbChanged = true;
    }

    // A refused set is the last thing that happens, and the path tries again at every block.
    if (record.hrtfId != lastHrtfId) {
        takeResponses();
        lastHrtfId = record.hrtfId;
    }
}

void SpeakerModel::takeResponses()
{
    const std::string stage = "quorel::DirectPath<" + std::to_string(channels) + ",float>::set: ";
    if (record.hrtfChannels != channels)
        refuse(stage + "channels must match");
    if (record.hrtfLength != Window::length)
        refuse(stage + "size must match");
    if (record.hrtfData == nullptr)
        refuseStatus("ippStsNullPtrErr");
    for (std::size_t c = 0; c < channels; ++c) {
        leftTaps[c] = tapsFromPacked(record.hrtfData + c * Window::length);
        rightTaps[c] = tapsFromPacked(record.hrtfData + (channels + c) * Window::length);
    }
}

Rows SpeakerModel::direct() const
{
    const std::size_t n = input.block(0).size();
    Rows ears(2, Signal(n, 0.0));
    for (std::size_t c = 0; c < channels; ++c) {
        const Signal left = input.convolve(c, leftTaps[c]);
        const Signal right = input.convolve(c, rightTaps[c]);
        for (std::size_t i = 0; i < n; ++i) {
            ears[0][i] += left[i];
            ears[1][i] += right[i];
        }
    }
    return ears;
}

Rows SpeakerModel::downmix(const Rows& block) const
{
    const std::size_t n = block[0].size();
    Rows stereo(2, Signal(n, 0.0));
    for (std::size_t c = 0; c < channels; ++c)
        for (std::size_t i = 0; i < n; ++i) {
            stereo[0][i] += downmixLeft[c] * block[c][i];
            stereo[1][i] += downmixRight[c] * block[c][i];
        }
    return stereo;
}

Rows SpeakerModel::equalize(const Rows& mix)
{
    Rows current(2);
    for (std::size_t ear = 0; ear < 2; ++ear)
        current[ear] = equalizer[ear].process(mix[ear]);
    if (!equalizerChanged)
        return current;

    // The new curve starts from silence, under its ramp.
    equalizerChanged = false;
    const std::vector<Section> sections = equalizerSections(equalizerTarget);
    for (Cascade& ear : equalizer)
        ear.design(sections);
    const Ramps ramps(mix[0].size());
    Rows faded(2);
    for (std::size_t ear = 0; ear < 2; ++ear)
        faded[ear] = crossfade(current[ear], equalizer[ear].process(mix[ear]), ramps);
    return faded;
}

} // namespace quorel::model
