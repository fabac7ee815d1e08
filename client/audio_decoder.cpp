// SPDX-License-Identifier: MIT
#include "client/audio_decoder.h"

#include "client/audio_container.h"
#include "speaker/speaker_tables.h"

#include <algorithm>
#include <bit>
#include <numeric>

namespace quorel {

namespace {

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
        return everySpeaker; // 7.1
    default:
        return 0;
    }
}

AudioDecoder::AudioDecoder(std::unique_ptr<platform::InputFile> input, bool allowTruncated) : allowTruncated(allowTruncated)
{
    // Which kind it is decides before a library sees it: a library tries every kind that it knows, and some of their decoders
    // speak to the user.
    const auto container = containerOf(*input);
    if (!container)
        throw std::runtime_error("neither WAV, RF64, W64, FLAC, AIFF nor CAF");
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
    tellRefusal();
    if (!file)
        throw std::runtime_error(reasonOf(nullptr));

    const std::vector<std::uint32_t> speakers = ownSpeakers(file.get(), info.channels);
    for (const std::uint32_t speaker : speakers)
        mask_ |= speaker;
    const bool allNamed = std::popcount(mask_) == info.channels;
    if (info.channels > 2 && !allNamed && !hasUsualSpeakers(*container))
        throw std::runtime_error("it has " + std::to_string(info.channels) + " channels and does not name their speakers");
    if (mask_ == 0)
        mask_ = usualMask(info.channels);
    if (allNamed && !std::is_sorted(speakers.begin(), speakers.end())) {
        order.resize(speakers.size());
        std::iota(order.begin(), order.end(), std::size_t{0});
        std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return speakers[a] < speakers[b]; });
        frame.resize(speakers.size());
    }
}

std::optional<std::uint64_t> AudioDecoder::frames() const noexcept
{
    return info.frames == SF_COUNT_MAX ? std::nullopt : std::optional(static_cast<std::uint64_t>(info.frames));
}

std::uint64_t AudioDecoder::read(float* x, std::uint64_t n)
{
    const auto got = static_cast<std::uint64_t>(sf_readf_float(file.get(), x, static_cast<sf_count_t>(n)));
    position += got;
    tellRefusal();
    if (sf_error(file.get()) != SF_ERR_NO_ERROR)
        breakOff(reasonOf(file.get()));
    else if (got < n && position < frames().value_or(0))
        breakOff("it ends after " + std::to_string(position) + " of " + std::to_string(info.frames) + " frames");
    reorder(x, got);
    return got;
}

// The library takes for the file's end what the system refuses.
void AudioDecoder::tellRefusal() const
{
    if (repaired && !repaired->failure().empty())
        throw std::runtime_error(repaired->failure());
}

void AudioDecoder::breakOff(const std::string& how)
{
    if (!allowTruncated)
        throw Truncated(how);
    if (truncation_.empty())
        truncation_ = how;
}

void AudioDecoder::reorder(float* x, std::uint64_t n)
{
    for (std::uint64_t i = 0; !order.empty() && i < n; ++i) {
        float* place = x + i * order.size();
        std::copy_n(place, order.size(), frame.begin());
        for (std::size_t c = 0; c < order.size(); ++c)
            place[c] = frame[order[c]];
    }
}

} // namespace quorel
