// SPDX-License-Identifier: MIT
#include "client/hrtf_delivery.h"

#include "platform/programs/atomic_file.h"
#include "platform/programs/file_names.h"
#include "platform/programs/process.h"

#include <bit>
#include <filesystem>
#include <fstream>
#include <random>
#include <utility>

namespace quorel {

namespace {

constexpr std::uint32_t mostChannels = 8;
constexpr std::uint32_t countsMask = 0xFF; // of an identity
constexpr float narrowBand = 16000;        // Hz, a rate of microphones alone

std::uint32_t bitOf(std::size_t channels)
{
    return channels >= 1 && channels <= mostChannels ? 1U << (channels - 1) : 0;
}

// The channel counts of a record's deliveries, as bits. Another application's identities say nothing, but the last delivery is
// told beside them.
std::uint32_t deliveredCounts(const SettingsRecord& record)
{
    return record.hrtfId == 0 ? 0 : (record.hrtfId & countsMask) | bitOf(record.hrtfChannels);
}

// Holds the identity of the last delivery, a space and the file's name.
std::filesystem::path memory()
{
    const std::string own = platform::userFolder();
    return own.empty() ? std::filesystem::path() : platform::pathOf(own) / "delivered";
}

// Another than `old`, and most likely none that a path has seen.
std::uint32_t newIdentity(std::uint32_t old, std::uint32_t counts)
{
    std::random_device random;
    for (;;) {
        const auto id = (static_cast<std::uint32_t>(random()) & ~countsMask) | counts;
        if (id != old)
            return id;
    }
}

} // namespace

std::uint32_t layoutOf(std::size_t channels, std::uint32_t activeMask)
{
    if (rowsOf(activeMask).size() == channels)
        return activeMask;
    constexpr auto usual = std::to_array<std::uint32_t>({0, 0x4, 0x3, 0x7, 0x33, 0x37, 0x3F, 0x637, everySpeaker});
    return channels < usual.size() ? usual.at(channels) : 0;
}

bool streaming(const ControlClient& client)
{
    return client.activeFramesPerSecond() > 0;
}

bool microphoneLockedLast(const ControlClient& client)
{
    return streaming(client) && (client.activeFramesPerSecond() == narrowBand || std::popcount(client.activeChannelMask()) <= 1);
}

std::optional<std::uint32_t> renderMask(const ControlClient& client, std::optional<std::uint32_t> told)
{
    if (told)
        return told;
    if (!streaming(client) || microphoneLockedLast(client))
        return std::nullopt;
    return client.activeChannelMask();
}

SpeakersStream speakersStream(const ControlClient& client, std::optional<std::uint32_t> told)
{
    const auto rate = told ? static_cast<float>(hrtfRate) : client.activeFramesPerSecond();
    const auto mask = renderMask(client, told);
    const StreamFit fit = !(rate > 0)                                                     ? StreamFit::none
                          : !mask                                                         ? StreamFit::unknown
                          : *mask == everySpeaker && rate == static_cast<float>(hrtfRate) ? StreamFit::fits
                                                                                          : StreamFit::other;
    return {fit, mask, rate};
}

std::uint32_t deliverSet(ControlClient& client, const FittedSet& set, std::uint32_t channelMask)
{
    std::vector<float> spectra = packSet(set, channelMask);
    std::uint32_t identity = 0;
    client.deliver([&](SettingsRecord& record) {
        const auto counts = deliveredCounts(record);
        const auto channels = rowsOf(channelMask).size();
        identity = newIdentity(record.hrtfId, counts | bitOf(channels));
        record.hrtfLength = spectrumFloats;
        record.hrtfChannels = static_cast<std::uint32_t>(channels);
        record.hrtfId = identity;
        return std::move(spectra);
    });
    return identity;
}

void rememberFile(std::uint32_t identity, const std::string& file)
{
    const std::filesystem::path path = memory();
    if (path.empty())
        throw std::runtime_error("there is no folder for this user's files");
    std::error_code error;
    std::filesystem::create_directories(path.parent_path(), error);
    if (error)
        throw std::runtime_error("cannot make the folder " + platform::textOf(path.parent_path()) + ": " + error.message());
    platform::AtomicFile kept(platform::textOf(path));
    kept.write(std::to_string(identity) + ' ' + platform::textOf(std::filesystem::absolute(platform::pathOf(file))));
    kept.commit();
}

std::string rememberedFile(std::uint32_t identity)
{
    std::ifstream kept(memory(), std::ios::binary);
    std::uint32_t whose = 0;
    std::string file;
    if (!(kept >> whose) || whose != identity || kept.get() != ' ')
        return {};
    std::getline(kept, file, '\0');
    return file;
}

// A new path plays the built-in set while the identity is 0. One that holds a delivered set copies what the share holds when it
// sees the identity change to 0, so the built-in set goes into the share.
std::optional<Clearing> clearSet(ControlClient& client, std::uint32_t channels, std::optional<std::uint32_t> told)
{
    const SettingsRecord now = client.settings();
    if (now.hrtfId == 0 && (channels == 0 || now.hrtfChannels == 0))
        return std::nullopt;

    Clearing clearing;
    std::uint32_t left = 0;
    client.deliver([&](SettingsRecord& record) {
        const auto counts = deliveredCounts(record);
        const std::uint32_t active = told.value_or(client.activeChannelMask());
        const std::size_t streams = rowsOf(active).size();
        const std::size_t cleared = channels != 0 ? channels : (counts & bitOf(streams)) != 0 ? streams : record.hrtfChannels;
        const std::uint32_t mask = layoutOf(cleared, active);
        left = counts & ~bitOf(cleared);
        record.hrtfLength = spectrumFloats;
        record.hrtfChannels = static_cast<std::uint32_t>(rowsOf(mask).size());
        record.hrtfId = 0;
        clearing.channels = record.hrtfChannels;
        return packBuiltInSet(mask);
    });
    for (std::uint32_t count = 1; count <= mostChannels; ++count)
        if ((left & bitOf(count)) != 0)
            clearing.others.push_back(count);
    return clearing;
}

std::optional<std::string> refusalOfSet(const ControlClient& client, std::optional<std::uint32_t> told)
{
    const SettingsRecord record = client.settings();
    if (record.hrtfId != 0 && record.hrtfLength != spectrumFloats)
        return "the delivered set has responses of " + std::to_string(record.hrtfLength) +
               " values instead of 1024: the effect refuses every block; hrtf clear ends this";

    const auto mask = renderMask(client, told);
    const std::size_t streams = rowsOf(mask.value_or(0)).size();
    if (!mask || record.hrtfChannels == streams || record.hrtfChannels == 0)
        return std::nullopt;
    const std::string counts = std::to_string(record.hrtfChannels) + " channels, the stream has " + std::to_string(streams);
    if (record.hrtfId != 0)
        return "the delivered set is for " + counts +
               ": if it is a speaker's, the effect refuses every block; hrtf clear ends this";
    return "the built-in set was brought back for " + counts +
           ": if it is a speaker's and still holds a delivered set, the effect " + "refuses every block; hrtf clear --channels " +
           std::to_string(streams) + " ends this";
}

} // namespace quorel
