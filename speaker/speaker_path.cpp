#include "speaker/speaker_path.h"

#include "core/pass_through.h"
#include "speaker/speaker_tables.h"

namespace quorel {

namespace {

constexpr std::uint32_t designRate = 48000; // frames per second for which all constants are tuned
constexpr float outputGain = 0.8F;          // -1.938 dB

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

// The gains of the speakers that the mask names, one column for each.
template <std::size_t N>
typename ScaleMixer<N>::Gains downmixGains(std::uint32_t channelMask)
{
    typename ScaleMixer<N>::Gains gains{};
    std::size_t found = 0;
    for (const SpeakerRow& speaker : speakerTable) {
        if ((channelMask & speaker.bit) == 0)
            continue;
        if (found < N) {
            gains[0][found] = speaker.downmixLeft;
            gains[1][found] = speaker.downmixRight;
        }
        ++found;
    }
    if (found != N)
        throw std::invalid_argument(maskText<N>());
    return gains;
}

} // namespace

template <std::size_t N>
SpeakerPath<N, float>::SpeakerPath(std::uint32_t channelMask, std::uint32_t maxFrames, std::uint32_t sampleRate)
    : mix(maxFrames), side(maxFrames), downmix(downmixGains<N>(channelMask)), sampleRate(sampleRate)
{
}

template <std::size_t N>
void SpeakerPath<N, float>::process(InterleavedView in, InterleavedView out)
{
    mix.setSize(0);
    side.setSize(0);
    if (record.applied == 0)
        translateSettings();
    if (sampleRate != designRate) {
        copyThrough(in, out);
        return;
    }
    downmix.process(in, mix);
    PassThrough::process(mix, side, 1.0F);
    PassThrough::process(side, out, outputGain);
}

template <std::size_t N>
void SpeakerPath<N, float>::translateSettings()
{
    if (record.blockSequence != lastSequence)
        lastSequence = record.blockSequence;
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
