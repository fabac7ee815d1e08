// SPDX-License-Identifier: MIT
#include "client/audio_file.h"

#include "platform/programs/input_file.h"

#include <array>
#include <bit>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace quorel {

namespace {

// The library's name of each bit of the speaker mask, from bit 0 up. For the first three it has two names each.
constexpr std::array<int, 18> speakerOfBit = {
    SF_CHANNEL_MAP_LEFT,
    SF_CHANNEL_MAP_RIGHT,
    SF_CHANNEL_MAP_CENTER,
    SF_CHANNEL_MAP_LFE,
    SF_CHANNEL_MAP_REAR_LEFT,
    SF_CHANNEL_MAP_REAR_RIGHT,
    SF_CHANNEL_MAP_FRONT_LEFT_OF_CENTER,
    SF_CHANNEL_MAP_FRONT_RIGHT_OF_CENTER,
    SF_CHANNEL_MAP_REAR_CENTER,
    SF_CHANNEL_MAP_SIDE_LEFT,
    SF_CHANNEL_MAP_SIDE_RIGHT,
    SF_CHANNEL_MAP_TOP_CENTER,
    SF_CHANNEL_MAP_TOP_FRONT_LEFT,
    SF_CHANNEL_MAP_TOP_FRONT_CENTER,
    SF_CHANNEL_MAP_TOP_FRONT_RIGHT,
    SF_CHANNEL_MAP_TOP_REAR_LEFT,
    SF_CHANNEL_MAP_TOP_REAR_CENTER,
    SF_CHANNEL_MAP_TOP_REAR_RIGHT,
};

// The mask of a file that names its speakers.
std::optional<std::uint32_t> ownMask(SNDFILE* file, int channels)
{
    std::vector<int> speakers(static_cast<std::size_t>(channels), SF_CHANNEL_MAP_INVALID);
    const int bytes = static_cast<int>(speakers.size() * sizeof(int));
    if (sf_command(file, SFC_GET_CHANNEL_MAP_INFO, speakers.data(), bytes) != SF_TRUE)
        return std::nullopt;

    std::uint32_t mask = 0;
    for (const int speaker : speakers)
        for (std::size_t bit = 0; bit < speakerOfBit.size(); ++bit)
            if (speaker == speakerOfBit[bit])
                mask |= 1U << bit;
    return mask != 0 ? std::optional(mask) : std::nullopt; // a file may say that its channels have no places
}

// The library ends its texts in full stops and line breaks; ours stand inside a line.
std::string reason(SNDFILE* file)
{
    const std::string_view text = sf_strerror(file);
    return std::string(text.substr(0, text.find_last_not_of(" .\n") + 1));
}

int subtype(SampleFormat format)
{
    switch (format) {
    case SampleFormat::pcm24:
        return SF_FORMAT_PCM_24;
    case SampleFormat::pcm16:
        return SF_FORMAT_PCM_16;
    default:
        return SF_FORMAT_FLOAT;
    }
}

// By its first bytes, before a library sees it: a library tries every format that it knows, and some of their decoders speak to
// the user. In other formats the order of the channels is another one as well. FLAC may have a tag of another standard in front:
// ten bytes that end in its size, seven bits each.
bool isWavOrFlac(const platform::InputFile& input)
{
    const std::string head = input.read(0, 12);
    if (head.size() < 12)
        return false;
    if (head.starts_with("ID3")) {
        std::size_t size = 10;
        for (std::size_t i = 0; i < 4; ++i)
            size += std::size_t{static_cast<unsigned char>(head[6 + i])} << (7 * (3 - i));
        return input.read(size, 4) == "fLaC";
    }
    return head.starts_with("fLaC") ||
           ((head.starts_with("RIFF") || head.starts_with("RIFX") || head.starts_with("RF64")) && head.substr(8) == "WAVE");
}

} // namespace

std::uint32_t usualMask(int channels) noexcept
{
    switch (channels) {
    case 1:
        return 0x4; // front centre
    case 2:
        return 0x3; // front left and right
    case 3:
        return 0x7; // and centre
    case 4:
        return 0x33; // front and back pairs
    case 5:
        return 0x37; // and centre
    case 6:
        return 0x3F; // 5.1 with back speakers
    case 7:
        return 0x70F; // 5.1 with side speakers, and back centre
    case 8:
        return 0x63F; // 7.1
    default:
        return 0;
    }
}

SampleFormat formatNamed(const std::string& name)
{
    return name == "pcm16" ? SampleFormat::pcm16 : name == "pcm24" ? SampleFormat::pcm24 : SampleFormat::float32;
}

AudioReader::AudioReader(const std::string& path, const std::function<void()>& wait) : path(path)
{
    const auto fail = [&](const std::string& why) { throw std::runtime_error("cannot read " + path + ": " + why); };

    platform::InputFile input(path, wait);
    if (!isWavOrFlac(input))
        fail("neither WAV nor FLAC");
    file.reset(sf_open_fd(input.release(), SFM_READ, &info, SF_TRUE)); // closes the descriptor, also when it fails
    if (!file)
        fail(reason(nullptr));
    mask_ = ownMask(file.get(), info.channels).value_or(usualMask(info.channels));
}

std::optional<std::uint64_t> AudioReader::frames() const noexcept
{
    return info.frames == SF_COUNT_MAX ? std::nullopt : std::optional(static_cast<std::uint64_t>(info.frames));
}

std::uint64_t AudioReader::read(float* x, std::uint64_t n)
{
    const sf_count_t got = sf_readf_float(file.get(), x, static_cast<sf_count_t>(n));
    if (sf_error(file.get()) != SF_ERR_NO_ERROR)
        throw std::runtime_error("cannot read " + path + ": " + reason(file.get()));
    position += static_cast<std::uint64_t>(got);
    if (static_cast<std::uint64_t>(got) < n && position < frames().value_or(0))
        throw std::runtime_error("cannot read " + path + ": it ends after " + std::to_string(position) + " of " +
                                 std::to_string(info.frames) + " frames");
    return static_cast<std::uint64_t>(got);
}

AudioWriter::AudioWriter(const std::string& path, const Layout& layout, std::optional<std::uint64_t> frames)
    : path(path), destination(path)
{
    constexpr std::uint64_t wavLimit = 0xFFFFFFFF - 4096; // bytes of samples, with room for the other chunks
    const auto frameBytes = static_cast<std::uint64_t>(layout.channels) * sizeof(float);
    const bool fits = frames && *frames <= wavLimit / frameBytes;

    SF_INFO info{};
    info.channels = layout.channels;
    info.samplerate = static_cast<int>(layout.rate);
    info.format = (!fits ? SF_FORMAT_RF64 : layout.channels > 2 ? SF_FORMAT_WAVEX : SF_FORMAT_WAV) | subtype(layout.format);
    file.reset(sf_open_fd(destination.descriptor(), SFM_WRITE, &info, SF_FALSE));
    if (!file)
        fail();

    sf_command(file.get(), SFC_SET_ADD_PEAK_CHUNK, nullptr, SF_FALSE); // it holds the time of day
    sf_command(file.get(), SFC_SET_CLIPPING, nullptr, SF_TRUE);
    if (!fits)
        sf_command(file.get(), SFC_RF64_AUTO_DOWNGRADE, nullptr, SF_TRUE);
    if (layout.channels > 2) {
        std::vector<int> speakers;
        for (std::size_t bit = 0; bit < speakerOfBit.size(); ++bit)
            if ((layout.mask >> bit & 1) != 0)
                speakers.push_back(speakerOfBit[bit]);
        speakers.resize(static_cast<std::size_t>(layout.channels), SF_CHANNEL_MAP_INVALID);
        sf_command(file.get(), SFC_SET_CHANNEL_MAP_INFO, speakers.data(), static_cast<int>(speakers.size() * sizeof(int)));
    }
}

void AudioWriter::write(const float* x, std::uint64_t n)
{
    if (sf_writef_float(file.get(), x, static_cast<sf_count_t>(n)) != static_cast<sf_count_t>(n))
        fail();
}

void AudioWriter::commit()
{
    if (sf_error(file.get()) != SF_ERR_NO_ERROR || sf_close(file.release()) != SF_ERR_NO_ERROR) // the header's last words
        fail();
    destination.commit();
}

void AudioWriter::fail() const
{
    throw std::runtime_error("cannot write " + path + ": " + reason(file.get()));
}

} // namespace quorel
