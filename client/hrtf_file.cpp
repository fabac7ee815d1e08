// SPDX-License-Identifier: MIT
#include "client/hrtf_file.h"

#include "client/hrtf_sources.h"
#include "platform/programs/file_names.h"
#include "platform/programs/limited_work.h"

#include <cctype>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <iomanip>
#include <sstream>
#include <stdexcept>
#include <string_view>

namespace quorel {

namespace {

[[noreturn]] void fail(const std::string& path, const std::string& reason)
{
    throw std::runtime_error("cannot read " + path + ": " + reason);
}

// ---- What the reading process answers -------------------------------------------------------------------------------
//
// For each speaker and ear: the number of taps and the taps. Then the text of the origin.

constexpr std::size_t mostTaps = 8 * 2 * longestResponse;    // brought to the effect's rate from the lowest one, and delayed
constexpr std::size_t largestAnswer = std::size_t{64} << 20; // bytes

std::string packed(const MeasuredSet& set)
{
    std::string bytes;
    for (const MeasuredPair& pair : set.speakers)
        for (const auto* taps : {&pair.left, &pair.right}) {
            const std::uint64_t count = taps->size();
            bytes.append(reinterpret_cast<const char*>(&count), sizeof count);
            bytes.append(reinterpret_cast<const char*>(taps->data()), taps->size() * sizeof(float));
        }
    return bytes + set.origin;
}

// Contents that took the reader over may answer anything.
MeasuredSet unpacked(std::string_view bytes)
{
    const auto take = [&bytes](void* to, std::size_t size) {
        if (bytes.size() < size)
            throw std::runtime_error("what reads the file answers nonsense");
        std::memcpy(to, bytes.data(), size);
        bytes.remove_prefix(size);
    };
    MeasuredSet set;
    for (MeasuredPair& pair : set.speakers)
        for (auto* taps : {&pair.left, &pair.right}) {
            std::uint64_t count = 0;
            take(&count, sizeof count);
            if (count > mostTaps)
                throw std::runtime_error("what reads the file answers nonsense");
            taps->resize(count);
            if (count > 0)
                take(taps->data(), count * sizeof(float));
        }
    set.origin = bytes;
    for (char& letter : set.origin) // it is shown on a terminal
        letter = letter == '\n' || (letter >= ' ' && letter <= '~') ? letter : '?';
    return set;
}

// ---------------------------------------------------------------------------------------------------------------------

struct ChannelPair {
    std::size_t row; // of `speakerTable`
    std::size_t left;
    std::size_t right;
};

constexpr std::size_t pairChannels = 14;
constexpr std::array<ChannelPair, 7> channelPairs = {
    {{0, 0, 1}, {6, 2, 3}, {4, 4, 5}, {2, 6, 13}, {1, 8, 7}, {7, 10, 9}, {5, 12, 11}}};

MeasuredSet readPairs(const std::string& path)
{
    const Recording recording = readRecording(path, longestResponse + 1);
    const std::size_t channels = recording.channels;
    const std::size_t frames = recording.frames;
    if (channels != pairChannels)
        fail(path, "it has " + std::to_string(channels) + (channels == 1 ? " channel" : " channels") +
                       "; a set of responses has 14, a pair for each speaker");

    if (frames > longestResponse)
        fail(path, "its responses are longer than " + std::to_string(longestResponse) + " frames");
    if (frames == 0)
        fail(path, "it is empty");
    if (frames < shortestResponse)
        fail(path, tooShort(frames));

    MeasuredSet set;
    std::vector<float> response(frames);
    const auto channel = [&](std::size_t c) {
        double energy = 0;
        for (std::size_t i = 0; i < frames; ++i) {
            response[i] = recording.samples[i * channels + c];
            energy += static_cast<double>(response[i]) * static_cast<double>(response[i]);
        }
        return energy;
    };
    for (const ChannelPair& pair : channelPairs) {
        const double left = channel(pair.left);
        set.speakers.at(pair.row).left = atEffectRate(response, 0, recording.rate);
        const double right = channel(pair.right);
        set.speakers.at(pair.row).right = atEffectRate(response, 0, recording.rate);

        // A set in another order is told by a near ear that hears less than the far one.
        const double azimuth = speakerAzimuths.at(pair.row);
        const bool nearLeft = azimuth > 0 && azimuth < 180;
        if (azimuth != 0 && std::isfinite(left) && std::isfinite(right) && (nearLeft ? left < right : right < left))
            fail(path, std::string("its channels are in another order: ") + speakerNames.at(pair.row) +
                           " would be louder at the far ear");
    }
    std::ostringstream text;
    text << "fourteen channels of " << frames << " frames at " << recording.rate << " Hz";
    set.origin = text.str();
    return set;
}

} // namespace

// The delay to the nearest frame: at most 10 microseconds from the file's.
std::vector<float> atEffectRate(const std::vector<float>& taps, double delay, double rate)
{
    std::vector<float> response = rate == hrtfRate ? taps : resampled(taps, rate);
    response.insert(response.begin(), static_cast<std::size_t>(std::lround(delay * hrtfRate / rate)), 0.0F);
    return response;
}

std::string tooShort(std::size_t frames)
{
    return "its responses have " + std::to_string(frames) + (frames == 1 ? " frame" : " frames") +
           ", and that of a head has at least " + std::to_string(shortestResponse);
}

MeasuredSet readHrtfFile(const std::string& path, Equalize equalize, const std::function<void()>& wait)
{
    std::error_code error;
    const auto file = platform::pathOf(path);
    const auto status = std::filesystem::status(file, error);
    if (error)
        fail(path, error.message());
    if (!std::filesystem::is_regular_file(status))
        fail(path, "not a regular file");
    const std::uintmax_t bytes = std::filesystem::file_size(file, error);
    if (error)
        fail(path, error.message());
    if (bytes > largestHrtfFile)
        fail(path, "it has more than " + std::to_string(largestHrtfFile >> 20) + " MiB");

    std::string ending = path.size() >= 5 ? path.substr(path.size() - 5) : "";
    for (char& letter : ending)
        letter = static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
    const auto work = [&] { return packed(ending == ".sofa" ? readSofa(path, equalize) : readPairs(path)); };

    // Twenty times what a large file of the kind takes, and twice what that takes under a sanitizer.
    const auto seconds = static_cast<std::uint32_t>(10 + (bytes >> 23));
    const platform::WorkLimits limits = {seconds, 10 * seconds, std::uint64_t{1} << 30, largestAnswer};
    const std::string answer = [&] {
        try {
            return platform::doLimited(work, limits, wait);
        } catch (const std::runtime_error& reason) {
            const std::string text = reason.what();
            if (text.starts_with("cannot "))
                throw;
            fail(path, text);
        }
    }();
    return unpacked(answer);
}

FittedSet fitFile(const std::string& path, const MeasuredSet& measured, double gainDb)
{
    try {
        return fitSet(measured, gainDb);
    } catch (const std::runtime_error& error) {
        throw std::runtime_error("cannot use " + path + ": " + error.what());
    }
}

ImportedSet importHrtf(const std::string& path, Equalize equalize, double gainDb, const std::function<void()>& wait)
{
    const MeasuredSet measured = readHrtfFile(path, equalize, wait);
    ImportedSet imported{fitFile(path, measured, gainDb), {}};
    std::istringstream lines(measured.origin);
    for (std::string line; std::getline(lines, line);)
        imported.notes.push_back(line);

    std::ostringstream colour;
    colour << std::fixed << std::setprecision(1) << std::showpos
           << "colour against the built-in set, in dB from 63 Hz to 16 kHz:";
    for (const double level : colourOf(imported.set))
        colour << ' ' << level - gainDb;
    imported.notes.push_back(colour.str());
    return imported;
}

} // namespace quorel
