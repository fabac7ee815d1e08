// SPDX-License-Identifier: MIT
#include "client/audio_file.h"

#include <algorithm>
#include <limits>
#include <string_view>
#include <utility>

namespace quorel {

namespace {

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

SampleFormat formatNamed(const std::string& name)
{
    return name == "pcm16" ? SampleFormat::pcm16 : name == "pcm24" ? SampleFormat::pcm24 : SampleFormat::float32;
}

// ---- What the reading process gives ---------------------------------------------------------------------------------
//
// A head; frames, block by block; and at the end how the file breaks off, or nothing.

constexpr std::size_t blockFrames = 4096;
constexpr std::uint32_t longestText = 4096; // bytes

struct AudioReader::Record {
    enum Kind : std::uint32_t { beginning, samples, end, truncated };

    Kind kind;
    std::uint32_t count; // of bytes; samples: of frames
};

AudioReader::AudioReader(const std::string& path, const std::function<void()>& wait, bool allowTruncated)
    : path(shown(path, "standard input"))
{
    auto input = std::make_unique<platform::InputFile>(path, wait);
    const auto decode = [&](const platform::LimitedSource::Give& give) {
        const auto tell = [&](Record::Kind kind, const void* bytes, std::size_t count) {
            const Record record{kind, static_cast<std::uint32_t>(count)};
            give(&record, sizeof record);
            give(bytes, count);
        };
        try {
            AudioDecoder decoder(std::move(input), allowTruncated);
            const auto channels = static_cast<std::uint32_t>(decoder.channels());
            const Head found{channels, decoder.rate(), decoder.mask(), decoder.frames().has_value(),
                             decoder.frames().value_or(0)};
            tell(Record::beginning, &found, sizeof found);
            std::vector<float> block(blockFrames * channels);
            for (std::uint64_t got = blockFrames; got == blockFrames;) {
                got = decoder.read(block.data(), blockFrames);
                const Record record{Record::samples, static_cast<std::uint32_t>(got)};
                give(&record, sizeof record);
                give(block.data(), got * channels * sizeof(float));
            }
            tell(Record::end, decoder.truncation().data(), decoder.truncation().size());
        } catch (const Truncated& error) {
            const std::string_view how = error.what();
            tell(Record::truncated, how.data(), how.size());
        }
    };
    // Opening a file, or a block of it, takes a thousandth of this.
    constexpr platform::WorkLimits limits = {5, 50, std::uint64_t{1} << 30, std::numeric_limits<std::size_t>::max()};
    try {
        source = std::make_unique<platform::LimitedSource>(decode, limits, wait, input->descriptor());
    } catch (const std::runtime_error& error) {
        fail(error.what());
    }
    next();
    constexpr std::uint32_t mostChannels = 1024; // that the library takes
    constexpr std::uint32_t mostRate = std::numeric_limits<std::int32_t>::max();
    if (head.channels == 0 || head.channels > mostChannels || head.rate == 0 || head.rate > mostRate)
        fail("what reads it answers nonsense");
}

std::optional<std::uint64_t> AudioReader::frames() const noexcept
{
    return head.framesTold != 0 ? std::optional(head.frames) : std::nullopt;
}

std::uint64_t AudioReader::read(float* x, std::uint64_t n)
{
    std::uint64_t done = 0;
    while (done < n && !ended) {
        if (left == 0) {
            next();
            continue;
        }
        const std::uint64_t part = std::min<std::uint64_t>(left, n - done);
        receive(x + done * head.channels, part * head.channels * sizeof(float));
        left -= part;
        done += part;
    }
    return done;
}

// Contents that took the reading process over may answer anything.
void AudioReader::next()
{
    const bool begun = head.channels != 0;
    Record record{};
    receive(&record, sizeof record);
    if (record.kind == Record::beginning && !begun) {
        receive(&head, sizeof head);
    } else if (record.kind == Record::samples && begun) {
        left = record.count;
    } else if ((record.kind == Record::end && begun) || record.kind == Record::truncated) {
        std::string how(std::min(record.count, longestText), '\0');
        receive(how.data(), how.size());
        for (char& letter : how) // it is shown on a terminal
            letter = letter >= ' ' && letter <= '~' ? letter : '?';
        if (record.kind == Record::truncated)
            throw Truncated("cannot read " + path + ": " + how);
        if (!how.empty())
            truncation_ = path + ": " + how;
        ended = true;
    } else {
        fail("what reads it answers nonsense");
    }
}

void AudioReader::receive(void* to, std::size_t bytes)
{
    std::size_t got = 0;
    try {
        got = source->read(to, bytes);
    } catch (const std::runtime_error& error) {
        fail(error.what());
    }
    if (got < bytes)
        fail("what reads it answers nonsense");
}

void AudioReader::fail(const std::string& why) const
{
    throw std::runtime_error("cannot read " + path + ": " + why);
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
    throw std::runtime_error("cannot write " + path + ": " + reasonOf(file.get()));
}

} // namespace quorel
