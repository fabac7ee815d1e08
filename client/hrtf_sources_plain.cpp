// SPDX-License-Identifier: MIT
// Without libraries: plain WAV files at the effect's rate.
#include "client/hrtf_file.h"
#include "client/hrtf_sources.h"
#include "platform/programs/file_names.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string_view>

namespace quorel {

const char* const readableHrtfFiles = "a WAV file of 14 channels at 48000 Hz\n"
                                      "(this build reads no SOFA file and does not resample)";

namespace {

[[noreturn]] void fail(const std::string& path, const std::string& reason)
{
    throw std::runtime_error("cannot read " + path + ": " + reason);
}

// `size` bytes from `place`, little-endian.
std::uint32_t number(std::string_view bytes, std::size_t place, std::size_t size)
{
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < size; ++i)
        value |= std::uint32_t{static_cast<unsigned char>(bytes.at(place + i))} << (8 * i);
    return value;
}

float sample(std::string_view bytes, std::size_t place, std::size_t size, bool isFloat)
{
    const std::uint32_t value = number(bytes, place, size);
    if (isFloat) {
        float x = 0;
        std::memcpy(&x, &value, sizeof x);
        return x;
    }
    // In the upper bits of 32: full scale is 2^31.
    const auto scaled = static_cast<std::int32_t>(value << (32 - 8 * size));
    return static_cast<float>(scaled) / 2147483648.0F;
}

} // namespace

Recording readRecording(const std::string& path, std::size_t frames)
{
    std::ifstream file(platform::pathOf(path), std::ios::binary);
    if (!file)
        fail(path, std::strerror(errno));
    std::string all(std::filesystem::file_size(platform::pathOf(path)), '\0');
    file.read(all.data(), static_cast<std::streamsize>(all.size()));
    all.resize(static_cast<std::size_t>(std::max<std::streamsize>(file.gcount(), 0)));
    const std::string_view bytes = all;
    if (bytes.size() < 12 || bytes.substr(0, 4) != "RIFF" || bytes.substr(8, 4) != "WAVE")
        fail(path, "it is no WAV file; this build reads no other");

    Recording recording;
    std::size_t sampleBytes = 0;
    bool isFloat = false;
    constexpr std::size_t headBytes = 8; // a chunk's name and size
    for (std::size_t place = 12; place + headBytes <= bytes.size();) {
        const std::string_view name = bytes.substr(place, 4);
        const std::size_t size = number(bytes, place + 4, 4);
        const std::string_view chunk = bytes.substr(place + headBytes, size);
        if (name == "fmt ") {
            if (chunk.size() < 16)
                fail(path, "its description breaks off");
            constexpr std::uint32_t extensible = 0xFFFE;
            std::uint32_t tag = number(chunk, 0, 2);
            if (tag == extensible && chunk.size() >= 26)
                tag = number(chunk, 24, 2);
            const std::uint32_t bits = number(chunk, 14, 2);
            isFloat = tag == 3;
            if (!(isFloat && bits == 32) && !(tag == 1 && (bits == 16 || bits == 24 || bits == 32)))
                fail(path, "its samples are neither integers of 16, 24 or 32 bits nor floats of 32");
            sampleBytes = bits / 8;
            recording.channels = number(chunk, 2, 2);
            recording.rate = number(chunk, 4, 4);
            if (recording.channels == 0 || number(chunk, 12, 2) != recording.channels * sampleBytes)
                fail(path, "its frames are not as wide as its channels");
        } else if (name == "data") {
            if (sampleBytes == 0)
                fail(path, "its samples come before their description");
            if (chunk.size() < size)
                fail(path, "it breaks off");
            const std::size_t count = std::min(frames, chunk.size() / (sampleBytes * recording.channels)) * recording.channels;
            for (std::size_t i = 0; i < count; ++i)
                recording.samples.push_back(sample(chunk, i * sampleBytes, sampleBytes, isFloat));
            recording.frames = count / recording.channels;
            return recording;
        }
        place += headBytes + size + size % 2;
    }
    fail(path, "it holds no samples");
}

std::vector<float> resampled(const std::vector<float>&, double rate)
{
    std::ostringstream text;
    text << "the responses are at " << rate << " Hz, and this build does not resample: bring them to 48000 Hz first";
    throw std::runtime_error(text.str());
}

MeasuredSet readSofa(const std::string& path, Equalize)
{
    fail(path, "this build reads no SOFA files, only WAV files of 14 channels");
}

} // namespace quorel
