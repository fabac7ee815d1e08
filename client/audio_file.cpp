// SPDX-License-Identifier: MIT
#include "client/audio_file.h"

#include <algorithm>
#include <array>
#include <bit>
#include <numeric>
#include <string_view>

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

// The bit of each channel's speaker, where the file names them; it may say that its channels have no places. A speaker that has
// none among the bits is left out.
std::vector<std::uint32_t> ownSpeakers(SNDFILE* file, int channels)
{
    std::vector<int> speakers(static_cast<std::size_t>(channels), SF_CHANNEL_MAP_INVALID);
    const int bytes = static_cast<int>(speakers.size() * sizeof(int));
    if (sf_command(file, SFC_GET_CHANNEL_MAP_INFO, speakers.data(), bytes) != SF_TRUE)
        return {};

    std::vector<std::uint32_t> bits;
    for (const int speaker : speakers)
        for (std::size_t bit = 0; bit < speakerOfBit.size(); ++bit)
            if (speaker == speakerOfBit[bit])
                bits.push_back(1U << bit);
    return bits;
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

int kindOf(Container container)
{
    switch (container) {
    case Container::rf64:
        return SF_FORMAT_RF64;
    case Container::w64:
        return SF_FORMAT_W64;
    case Container::flac:
        return SF_FORMAT_FLAC;
    case Container::aiff:
        return SF_FORMAT_AIFF;
    case Container::caf:
        return SF_FORMAT_CAF;
    default:
        return SF_FORMAT_WAV;
    }
}

// What the user is told of.
std::string shown(const std::string& path, const char* stream)
{
    return path == "-" ? stream : path;
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

AudioReader::AudioReader(const std::string& path, const std::function<void()>& wait, bool allowTruncated)
    : path(shown(path, "standard input")), allowTruncated(allowTruncated)
{
    const auto fail = [&](const std::string& why) { throw std::runtime_error("cannot read " + this->path + ": " + why); };

    // Which kind it is decides before a library sees it: a library tries every kind that it knows, and some of their decoders
    // speak to the user.
    auto input = std::make_unique<platform::InputFile>(path, wait);
    const auto container = containerOf(*input);
    if (!container)
        fail("neither WAV, RF64, W64, FLAC, AIFF nor CAF");
    const auto samples = samplesOf(*input, *container);
    const std::uint64_t there = samples ? input->bytes() - samples->place : 0;
    const bool isCut = samples && samples->told.value_or(0) > there;
    const bool neverFilledIn = samples && samples->neverFilledIn && there > 0;
    if (isCut)
        breakOff("it breaks off: " + std::to_string(*samples->told - there) + " bytes that its header tells of are missing");
    if (neverFilledIn)
        breakOff("it breaks off: its header tells of no samples, and " + std::to_string(there) + " bytes follow");
    // The library reads no sample where WAV tells of none, and of CAF no file whose length is open or not there.
    if (neverFilledIn || (container == Container::caf && samples && (isCut || !samples->told))) {
        const std::uint64_t most = samples->wordBytes == 4 ? 0xFFFFFFFF : there;
        repaired = std::make_unique<RepairedInput>(std::move(input), samples->wordPlace,
                                                   bytesOf(std::min(there, most), samples->wordBytes, samples->bigEndian));
        file.reset(repaired->open(info));
    } else {
        file.reset(sf_open_fd(input->release(), SFM_READ, &info, SF_TRUE)); // closes the descriptor, also when it fails
    }
    if (!file)
        fail(reason(nullptr));

    const std::vector<std::uint32_t> speakers = ownSpeakers(file.get(), info.channels);
    for (const std::uint32_t speaker : speakers)
        mask_ |= speaker;
    const bool allNamed = std::popcount(mask_) == info.channels;
    if (info.channels > 2 && !allNamed && !hasUsualSpeakers(*container))
        fail("it has " + std::to_string(info.channels) + " channels and does not name their speakers");
    if (mask_ == 0)
        mask_ = usualMask(info.channels);
    if (allNamed && !std::is_sorted(speakers.begin(), speakers.end())) {
        order.resize(speakers.size());
        std::iota(order.begin(), order.end(), std::size_t{0});
        std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return speakers[a] < speakers[b]; });
        frame.resize(speakers.size());
    }
}

std::optional<std::uint64_t> AudioReader::frames() const noexcept
{
    return info.frames == SF_COUNT_MAX ? std::nullopt : std::optional(static_cast<std::uint64_t>(info.frames));
}

std::uint64_t AudioReader::read(float* x, std::uint64_t n)
{
    const auto got = static_cast<std::uint64_t>(sf_readf_float(file.get(), x, static_cast<sf_count_t>(n)));
    position += got;
    if (sf_error(file.get()) != SF_ERR_NO_ERROR)
        breakOff(reason(file.get()));
    else if (got < n && position < frames().value_or(0))
        breakOff("it ends after " + std::to_string(position) + " of " + std::to_string(info.frames) + " frames");
    reorder(x, got);
    return got;
}

void AudioReader::breakOff(const std::string& how)
{
    if (!allowTruncated)
        throw Truncated("cannot read " + path + ": " + how);
    if (truncation_.empty())
        truncation_ = path + ": " + how;
}

void AudioReader::reorder(float* x, std::uint64_t n)
{
    for (std::uint64_t i = 0; !order.empty() && i < n; ++i) {
        float* place = x + i * order.size();
        std::copy_n(place, order.size(), frame.begin());
        for (std::size_t c = 0; c < order.size(); ++c)
            place[c] = frame[order[c]];
    }
}

AudioWriter::AudioWriter(const std::string& path, const Layout& layout, std::optional<std::uint64_t> frames)
    : path(shown(path, "standard output")), channels(static_cast<std::size_t>(layout.channels))
{
    constexpr std::uint64_t shortLimit = 0xFFFFFFFF - 4096; // bytes of samples, with room for the other chunks
    const std::uint64_t frameBytes = channels * sizeof(float);
    const bool fits = frames && *frames <= shortLimit / frameBytes;
    const bool mayGrow = layout.container == Container::wav && !fits;
    if (layout.container == Container::aiff && frames && !fits)
        throw std::runtime_error("cannot write " + this->path + ": AIFF holds at most 4 GiB");
    if (path == "-")
        output.emplace();
    else
        destination.emplace(path);

    SF_INFO info{};
    info.channels = layout.channels;
    info.samplerate = static_cast<int>(layout.rate);
    const bool extensible = layout.container == Container::wav && layout.channels > 2;
    info.format = (mayGrow ? SF_FORMAT_RF64 : extensible ? SF_FORMAT_WAVEX : kindOf(layout.container)) | subtype(layout.format);
    file.reset(sf_open_fd(output ? output->descriptor() : destination->descriptor(), SFM_WRITE, &info, SF_FALSE));
    if (!file)
        fail();
    if (layout.format != SampleFormat::float32)
        rounding.emplace(layout.format == SampleFormat::pcm24 ? 24 : 16, layout.dithered);

    sf_command(file.get(), SFC_SET_ADD_PEAK_CHUNK, nullptr, SF_FALSE); // it holds the time of day
    if (mayGrow)
        sf_command(file.get(), SFC_RF64_AUTO_DOWNGRADE, nullptr, SF_TRUE);
    if (layout.channels > 2) {
        std::vector<int> speakers;
        for (std::size_t bit = 0; bit < speakerOfBit.size(); ++bit)
            if ((layout.mask >> bit & 1) != 0)
                speakers.push_back(speakerOfBit[bit]);
        speakers.resize(channels, SF_CHANNEL_MAP_INVALID);
        sf_command(file.get(), SFC_SET_CHANNEL_MAP_INFO, speakers.data(), static_cast<int>(speakers.size() * sizeof(int)));
    }
}

void AudioWriter::write(const float* x, std::uint64_t n)
{
    const auto frames = static_cast<sf_count_t>(n);
    sf_count_t done = 0;
    if (rounding) {
        integers.resize(n * channels);
        rounding->process(x, integers.data(), integers.size());
        done = sf_writef_int(file.get(), integers.data(), frames);
    } else {
        done = sf_writef_float(file.get(), x, frames);
    }
    if (done != frames)
        fail();
}

void AudioWriter::commit()
{
    if (sf_error(file.get()) != SF_ERR_NO_ERROR || sf_close(file.release()) != SF_ERR_NO_ERROR) // the header's last words
        fail();
    if (output)
        output->commit();
    else
        destination->commit();
}

void AudioWriter::fail() const
{
    throw std::runtime_error("cannot write " + path + ": " + reason(file.get()));
}

} // namespace quorel
