// SPDX-License-Identifier: MIT
#include "speaker/speaker_path.h"

#include "core/dispatch.h"
#include "speaker/built_in.h"
#include "speaker/compressor_tables.h"
#include "speaker/limited_equalizer.h"
#include "speaker/output_frames.h"
#include "stages/pass_through.h"

#include <cmath>

namespace quorel {

namespace {

constexpr std::uint32_t designRate = 48000;    // frames per second for which all constants are tuned
constexpr float outputGain = 0.8F;             // -1.938 dB
constexpr std::uint64_t longestResponse = 169; // taps, the onset counted: the history to keep

// The text names the instantiation: the channel count is a single digit.
template <std::size_t N>
const char* maskText()
{
    static constexpr auto text = [] {
        std::array literal = std::to_array(
            "quorel::SpeakerPath<8,float>::SpeakerPath: number of active channels in channelMask does not match CH_IN");
        literal[20] = static_cast<char>('0' + N);
        return literal;
    }();
    return text.data();
}

// The rows of `speakerTable` that the mask names, in channel order.
template <std::size_t N>
Speakers<N> speakersOf(std::uint32_t channelMask)
{
    Speakers<N> speakers{};
    std::size_t found = 0;
    for (std::size_t row = 0; row < speakerTable.size(); ++row) {
        if ((channelMask & speakerTable[row].bit) == 0)
            continue;
        if (found < N)
            speakers[found] = row;
        ++found;
    }
    if (found != N)
        throw std::invalid_argument(maskText<N>());
    return speakers;
}

template <std::size_t N>
typename ScaleMixer<N>::Gains downmixGains(const Speakers<N>& speakers)
{
    typename ScaleMixer<N>::Gains gains{};
    for (std::size_t c = 0; c < N; ++c) {
        gains[0][c] = speakerTable[speakers[c]].downmixLeft;
        gains[1][c] = speakerTable[speakers[c]].downmixRight;
    }
    return gains;
}

} // namespace

template <std::size_t N>
SpeakerPath<N, float>::SpeakerPath(std::uint32_t channelMask, std::uint32_t maxFrames, std::uint32_t sampleRate)
    : input(transformLength, longestResponse),
      directTime(transformLength, longestResponse),
      inputSpectrum(transformLength),
      sumSpectrum(transformLength),
      mix(maxFrames),
      side(maxFrames),
      downmix(downmixGains(speakersOf<N>(channelMask))),
      fft(transformOrder),
      direct(builtInDirectPath(speakersOf<N>(channelMask))),
      equalizer(builtInEqualizer()),
      fade(maxFrames),
      fdn(builtInRoom(speakersOf<N>(channelMask), maxFrames)),
      directCompressor(renderAttack, renderRelease, renderCurve),
      outputCompressor(renderAttack, renderRelease, renderCurve),
      maxFrames(maxFrames),
      sampleRate(sampleRate)
{
}

template <std::size_t N>
void SpeakerPath<N, float>::process(InterleavedView in, InterleavedView out)
{
    mix.setSize(0);
    side.setSize(0);
    if (record.applied == 0)
        applyRecord();
    if (sampleRate != designRate) {
        copyThrough(in, out);
        return;
    }

    // With nothing to fade behind the room and every step in use the limiters of a long block run beside each other. In a short
    // one they have no time for it. Nor in one that the room may refuse, short or too long: directCompressor is ahead of the room,
    // and has gone on when that fails.
    const bool settled = surround == surroundPrevious && !equalizerTarget.changed && steps_.direct && steps_.equalizer &&
                         steps_.compressor && in.frames >= 2 * busStretch && in.frames <= maxFrames;
    if (settled)
        playSettled(in);
    else
        playInSteps(in);
    if (in.frames != 0)
        writeFrames(side, out, outputGain);
}

template <std::size_t N>
void SpeakerPath<N, float>::playSettled(InterleavedView in)
{
    const bool room = surround && hasRoom();
    if (surround) {
        loadInput(in);
        convolve();
    } else {
        downmix.process(in, mix);
    }
    if (room)
        reverberate();
    const auto bus = surround ? rows(std::as_const(directTime), directTime.overlap()) : rows(std::as_const(mix));
    limitedEqualizer(bus, room, in.frames, directCompressor, equalizer, outputCompressor, mix, side);
}

// Every stage over the whole block in its turn.
template <std::size_t N>
void SpeakerPath<N, float>::playInSteps(InterleavedView in)
{
    if (surround || surroundPrevious) {
        loadInput(in);
        limitDirect();
        if (hasRoom()) {
            reverberate();
            mix += side;
            side.setSize(0);
        }
    }
    if (in.frames == 0)
        return; // there is nothing to fade over, so a pending change waits for the next block

    if (!surround || !surroundPrevious)
        mixDown(in);
    if (surround != surroundPrevious)
        fadeBetweenEffects();
    surroundPrevious = surround;

    equalize();
    if (steps_.compressor)
        outputCompressor.process(side, side);
}

// Turns a new record into the path's parameters. A delivered HRTF set that is refused leaves the record unapplied.
// Required: the same record is then translated, and refused, again at every block.
template <std::size_t N>
void SpeakerPath<N, float>::applyRecord()
{
    if (record.blockSequence != lastSequence) {
        surround = record.Settings != 0;

        std::array<double, 9> gainsDb{};
        for (std::size_t band = 0; band < gainsDb.size(); ++band)
            gainsDb[band] = record.EQBand[band] / 127.0 * 6.0;
        equalizerTarget.request(gainsDb);

        reverbOn = record.Reverb != 0;
        const float levelDb = static_cast<float>(record.Reverb) * 27.0F / 255.0F - 18.0F;
        reverbTarget.request(reverbOn ? std::pow(10.0F, levelDb / 20.0F) : 0.0F);

        if (record.hrtfId != lastHrtfId) {
            direct.set(record);
            lastHrtfId = record.hrtfId;
        }
        lastSequence = record.blockSequence;
    }
    record.applied = 1;
}

// Required: the copy covers N samples a frame for every N, although a processed block covers eight.
template <std::size_t N>
void SpeakerPath<N, float>::copyThrough(InterleavedView in, InterleavedView out) const
{
    if (in.frames > out.frames)
        throw std::invalid_argument("PassThrough: out buffer too small");
    if (in.data != out.data)
        check(ippsMulC_32f(in.data, 1.0F, out.data, length32(in.frames * N)));
}

// The new block behind the end of the previous one, channel by channel.
template <std::size_t N>
void SpeakerPath<N, float>::loadInput(InterleavedView in)
{
    input.slide();
    PassThrough::deinterleave(in, input, input.overlap());
}

// Overlap-save: the product of the spectra is a circular convolution. Its first 176 frames are wrapped and never read; the
// block's frames behind them are whole, since no response reaches further back than the history.
template <std::size_t N>
void SpeakerPath<N, float>::convolve()
{
    fft.Fwd(input, inputSpectrum);
    direct.process(inputSpectrum, sumSpectrum);
    fft.Inv(sumSpectrum, directTime);
    directTime.setSize(directTime.overlap() + input.validFrames());
}

template <std::size_t N>
void SpeakerPath<N, float>::limitDirect()
{
    if (!steps_.direct) {
        mix.clear();
        mix.setSize(input.validFrames());
        return;
    }
    convolve();
    directCompressor.process(directTime, mix);
}

// The room hears the raw input, and goes to `side`.
template <std::size_t N>
void SpeakerPath<N, float>::reverberate()
{
    fdn.process(input, side);
    if (reverbTarget.changed)
        fade.blendGain(side, side, reverbGain, reverbTarget);
    else
        side *= reverbGain;
}

// Required: in a transition directCompressor runs twice in the block, its envelopes going on from the direct signal.
template <std::size_t N>
void SpeakerPath<N, float>::mixDown(InterleavedView in)
{
    auto& target = mix.size() > 0 ? side : mix;
    downmix.process(in, target);
    directCompressor.process(target, target);
}

template <std::size_t N>
void SpeakerPath<N, float>::fadeBetweenEffects()
{
    if (surround)
        fade.blend(side, mix, mix);
    else
        fade.blend(mix, side, mix);
    side.setSize(0);
}

template <std::size_t N>
void SpeakerPath<N, float>::equalize()
{
    if (!steps_.equalizer)
        PassThrough::process(mix, side, 1.0F);
    else if (equalizerTarget.changed)
        fade.blendEqualizer(mix, side, equalizer, equalizerTarget);
    else
        equalizer.process(mix, side);
}

template class SpeakerPath<1, float>;
template class SpeakerPath<2, float>;
template class SpeakerPath<3, float>;
template class SpeakerPath<4, float>;
template class SpeakerPath<5, float>;
template class SpeakerPath<6, float>;
template class SpeakerPath<7, float>;
template class SpeakerPath<8, float>;

SignalPath::SignalPath(Speaker, std::int32_t channels, std::uint32_t channelMask, std::uint32_t maxFrames,
                       std::uint32_t sampleRate)
    : path(build<SpeakerPath>(channels, channelMask, maxFrames, sampleRate))
{
}

} // namespace quorel
