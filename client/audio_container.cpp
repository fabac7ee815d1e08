// SPDX-License-Identifier: MIT
#include "client/audio_container.h"

#include <algorithm>
#include <string>

namespace quorel {

namespace {

// A number of up to eight bytes.
std::uint64_t numberOf(std::string_view bytes, bool bigEndian)
{
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i)
        number = number << 8 | static_cast<unsigned char>(bytes[bigEndian ? i : bytes.size() - 1 - i]);
    return number;
}

// How the chunks of a file look: a name, then a size.
struct Chunks {
    std::size_t first;       // place of the first chunk
    std::size_t nameBytes;   // of which the first four are looked at
    std::size_t sizeBytes;   // of the size
    bool sizeCountsHeader;   // name and size are part of the size
    std::size_t alignment;   // of the next chunk
    bool bigEndian;          // the size
    std::string_view wanted; // the name of the chunk that holds the samples
};

// Programs that do not know the length when they begin write the largest number, the largest signed one or nearly so, or none.
bool isOpen(std::uint64_t size, std::size_t sizeBytes)
{
    if (sizeBytes == 8)
        return size == 0 || size >> 63 != 0;
    return size == 0 || size >= 0xFFFFF000 || (size >= 0x7FFFE000 && size <= 0x80000100);
}

} // namespace

std::optional<Container> containerOf(const platform::InputFile& input)
{
    const std::string head = input.read(0, 40);
    const std::string_view kind = std::string_view(head).substr(0, std::min<std::size_t>(4, head.size()));
    const std::string_view form = head.size() >= 12 ? std::string_view(head).substr(8, 4) : std::string_view();
    if (kind == "fLaC")
        return Container::flac;
    if ((kind == "RIFF" || kind == "RIFX") && form == "WAVE")
        return Container::wav;
    if (kind == "RF64" && form == "WAVE")
        return Container::rf64;
    if (kind == "riff" && head.size() == 40 && head.substr(24, 4) == "wave")
        return Container::w64;
    if (kind == "FORM" && (form == "AIFF" || form == "AIFC"))
        return Container::aiff;
    if (kind == "caff")
        return Container::caf;
    // FLAC may have a tag of another standard in front: ten bytes that end in its size, seven bits each.
    if (kind.starts_with("ID3") && head.size() >= 10) {
        std::size_t size = 10;
        for (std::size_t i = 0; i < 4; ++i)
            size += std::size_t{static_cast<unsigned char>(head[6 + i])} << (7 * (3 - i));
        if (input.read(size, 4) == "fLaC")
            return Container::flac;
    }
    return std::nullopt;
}

std::optional<Container> containerNamed(std::string_view name)
{
    std::string small(name);
    std::transform(small.begin(), small.end(), small.begin(),
                   [](char letter) { return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter; });
    if (small == "wav" || small == "wave")
        return Container::wav;
    if (small == "flac")
        return Container::flac;
    if (small == "w64")
        return Container::w64;
    if (small == "rf64")
        return Container::rf64;
    if (small == "aif" || small == "aiff" || small == "aifc")
        return Container::aiff;
    if (small == "caf")
        return Container::caf;
    return std::nullopt;
}

bool hasUsualSpeakers(Container container) noexcept
{
    return container != Container::aiff && container != Container::caf;
}

std::string bytesOf(std::uint64_t number, std::size_t bytes, bool bigEndian)
{
    std::string text(bytes, '\0');
    for (std::size_t i = 0; i < bytes; ++i)
        text[bigEndian ? bytes - 1 - i : i] = static_cast<char>(number >> (8 * i) & 0xFF);
    return text;
}

std::optional<SampleChunk> samplesOf(const platform::InputFile& input, Container container)
{
    if (container == Container::flac)
        return std::nullopt;
    const Chunks chunks = container == Container::w64    ? Chunks{40, 16, 8, true, 8, false, "data"}
                          : container == Container::aiff ? Chunks{12, 4, 4, false, 2, true, "SSND"}
                          : container == Container::caf  ? Chunks{8, 4, 8, false, 1, true, "data"}
                                                         : Chunks{12, 4, 4, false, 2, input.read(0, 4) == "RIFX", "data"};
    const std::size_t header = chunks.nameBytes + chunks.sizeBytes;
    std::uint64_t longSize = 0; // of the samples, from RF64's own chunk
    std::uint64_t place = chunks.first;
    constexpr int mostChunks = 10000; // a file of nothing but empty chunks ends, too
    for (int i = 0; i < mostChunks; ++i) {
        const std::string start = input.read(place, header);
        if (start.size() < header)
            return std::nullopt;
        const std::string_view name = std::string_view(start).substr(0, 4);
        std::uint64_t size = numberOf(std::string_view(start).substr(chunks.nameBytes), chunks.bigEndian);
        if (chunks.sizeCountsHeader)
            size = size >= header ? size - header : 0;
        if (name == "ds64")
            longSize = numberOf(input.read(place + header + 8, 8), false);
        if (name == chunks.wanted) {
            const bool isLong = container == Container::rf64 && size == 0xFFFFFFFF;
            const std::uint64_t samples = isLong ? longSize : size;
            SampleChunk found{.place = place + header,
                              .told = samples,
                              .wordPlace = place + chunks.nameBytes,
                              .wordBytes = chunks.sizeBytes,
                              .bigEndian = chunks.bigEndian};
            if (isOpen(samples, isLong ? 8 : chunks.sizeBytes))
                found.told.reset();
            // A file without samples tells its own size in front and may have other chunks behind.
            const std::uint64_t all = container == Container::wav ? 8 + numberOf(input.read(4, 4), chunks.bigEndian) : 0;
            found.neverFilledIn = container == Container::wav && samples == 0 && (all <= found.place || all > input.bytes());
            return found;
        }
        const std::uint64_t next = place + header + size;
        if (next < place || next >= input.bytes())
            return std::nullopt;
        place = (next + chunks.alignment - 1) / chunks.alignment * chunks.alignment;
    }
    return std::nullopt;
}

} // namespace quorel
