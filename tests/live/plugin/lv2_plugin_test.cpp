// SPDX-License-Identifier: MIT
// The LV2 plug-ins: their bundles are valid, a host that calls with one frame gets the offline tools' sound, and ports steer.
#include "client/audio_file.h"
#include "tests/live/plugin/installed_plugin.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <lv2/core/lv2.h>
#include <random>
#include <vector>

namespace quorel {
namespace {

int command(const std::string& line)
{
    return std::system(("LV2_PATH=" QUOREL_LV2_FOLDER ":/usr/lib/lv2 timeout 60 " + line).c_str());
}

void writeNoise(const std::string& path, std::uint32_t channels, std::size_t frames)
{
    std::mt19937 random(1);
    std::vector<float> samples(frames * channels);
    for (float& x : samples)
        x = static_cast<float>(static_cast<std::int32_t>(random())) * 0x1p-33F; // up to a quarter
    const int count = static_cast<int>(channels);
    AudioWriter writer(path, {count, 48000, channels == 8 ? 0x63FU : usualMask(count), SampleFormat::float32}, frames);
    writer.write(samples.data(), frames);
    writer.commit();
}

std::vector<float> samplesOf(const std::string& path, std::size_t frames)
{
    AudioReader reader(path, [] {});
    std::vector<float> samples(frames * static_cast<std::size_t>(reader.channels()));
    EXPECT_EQ(reader.read(samples.data(), frames), frames) << path;
    return samples;
}

TEST(Lv2Plugin, BundlesAreValid)
{
    EXPECT_EQ(command("sord_validate $(find /usr/lib/lv2 -name '*.ttl') " QUOREL_LV2_FOLDER "/*/*.ttl >/dev/null"), 0);
    for (const char* side : {"speaker", "microphone"})
        EXPECT_EQ(command(std::string("lv2_validate " QUOREL_LV2_FOLDER "/quorel-") + side + ".lv2/*.ttl >/dev/null"), 0) << side;
}

// A host that calls with one frame is late by a block less one.
TEST(Lv2Plugin, IsTheOfflineToolLessItsLatency)
{
    struct Case {
        const char* uri;
        std::uint32_t channels;
        std::size_t outputs;
        std::size_t latency;
        const char* settings;
        const char* tool;
    };
    const Case cases[] = {{"urn:quorel:speaker", 8, 2, 255, "-c Settings 1 -c Reverb 120 -c EQBand5 -40",
                           QUOREL_RENDER " --Reverb 120 --EQBand5 -40 --tail 0 --block-size 256"},
                          {"urn:quorel:microphone", 1, 1, 239, "-c MicNR 1 -c micEq 1 -c noiseGate 60",
                           QUOREL_CLEAN " --MicNR 1 --micEq 1 --noiseGate 60 --block-size 240 --no-settle"}};
    constexpr std::size_t frames = 24000;
    for (const Case& side : cases) {
        const Folder folder;
        writeNoise(folder / "in.wav", side.channels, frames);
        ASSERT_EQ(command(std::string("lv2apply -i ") + (folder / "in.wav") + " -o " + (folder / "out.wav") + ' ' +
                          side.settings + ' ' + side.uri),
                  0);
        ASSERT_EQ(command(std::string(side.tool) + ' ' + (folder / "in.wav") + ' ' + (folder / "tool.wav")), 0);
        const std::vector<float> made = samplesOf(folder / "out.wav", frames);
        const std::vector<float> expected = samplesOf(folder / "tool.wav", frames);
        const std::size_t late = side.latency * side.outputs;
        for (std::size_t i = 0; i < late; ++i)
            ASSERT_EQ(made[i], 0.0F) << side.uri << ", sample " << i;
        for (std::size_t i = late; i < made.size(); ++i)
            ASSERT_EQ(made[i], expected[i - late]) << side.uri << ", sample " << i;
    }
}

// By the rule: a slice of 480 adds nothing; 241 is prime, so 256 - gcd(241, 256); 240 - gcd(128, 240).
TEST(Lv2Plugin, TakesALengthThatItsHostPromises)
{
    const auto latencyOf = [](bool microphone, std::int32_t promised) {
        Host host(microphone, {.promised = promised});
        host.run(nullptr, 0); // which breaks no promise
        return host.latency();
    };
    EXPECT_EQ(latencyOf(false, 0), 255);
    EXPECT_EQ(latencyOf(false, 480), 0);
    EXPECT_EQ(latencyOf(false, 857), 255); // a prime above the largest slice
    EXPECT_EQ(latencyOf(true, 0), 239);
    EXPECT_EQ(latencyOf(true, 128), 224);
}

// A promise of 128 frames that is broken by 100: 128 - gcd(100, 128) = 124 frames that were told by nobody before.
TEST(Lv2Plugin, TellsTheLatencyThatACallAddsAtOnce)
{
    Host host(false, {.promised = 128});
    host.run(nullptr, 128);
    EXPECT_EQ(host.latency(), 0);
    host.run(nullptr, 100);
    EXPECT_EQ(host.latency(), 124);
    host.run(nullptr, 128);
    EXPECT_EQ(host.latency(), 124);
}

// Surround off, side left is heard at the left ear alone.
TEST(Lv2Plugin, FollowsItsPortsWhileItRuns)
{
    Host host(false);
    for (std::size_t i = 0; i < 256; ++i)
        host.sound[6 * 256 + i] = i % 64 < 32 ? 0.25F : -0.25F; // side left
    const auto rightEar = [&host] {
        for (int call = 0; call < 20; ++call)
            host.run();
        return *std::max_element(host.made[1].begin(), host.made[1].end());
    };
    EXPECT_EQ(rightEar(), 0.0F);
    host.set("Settings", 1);
    EXPECT_GT(rightEar(), 0.01F);
    host.set("Settings", 0);
    EXPECT_EQ(rightEar(), 0.0F);
}

// ---- hosts that lack something -----------------------------------------------------------------------------------------

// What a host hears of a tone on side left with surround on.
std::vector<float> heard(Host& host)
{
    host.set("Settings", 1);
    for (std::size_t i = 0; i < 256; ++i)
        host.sound[6 * 256 + i] = i % 64 < 32 ? 0.25F : -0.25F; // side left
    for (int call = 0; call < 20; ++call)
        host.run();
    return {host.made[1].begin(), host.made[1].end()};
}

TEST(Lv2Plugin, PlaysWhereAHostOffersNothing)
{
    Host usual(false);
    Host bare(false, {.mapping = false, .worker = false});
    const std::vector<float> expected = heard(usual);
    EXPECT_GT(*std::max_element(expected.begin(), expected.end()), 0.01F);
    EXPECT_EQ(heard(bare), expected);

    Host workless(false, {.worker = false}); // a message has nobody to read the file
    workless.run("head.wav");
    EXPECT_EQ(heard(workless), expected);
}

TEST(Lv2Plugin, PlaysWithPortsThatAreNotConnected)
{
    Host usual(false);
    Host host(false);
    heard(usual);
    heard(host);
    for (std::uint32_t port = host.ports.latency(); port < host.ports.count(); ++port)
        host.descriptor->connect_port(host.handle, port, nullptr);
    EXPECT_EQ(heard(host), heard(usual)); // the settings stay
    Host microphone(true);
    for (std::uint32_t port = microphone.ports.latency(); port < microphone.ports.count(); ++port)
        microphone.descriptor->connect_port(microphone.handle, port, nullptr);
    microphone.run();
}

TEST(Lv2Plugin, HasNoExtensionOrPluginOfAnotherName)
{
    const Host host(false);
    EXPECT_EQ(host.descriptor->extension_data("urn:other"), nullptr);
    EXPECT_EQ(Host(true).descriptor->extension_data, nullptr);
    EXPECT_EQ(pluginsOf(QUOREL_LV2_FOLDER "/quorel-speaker.lv2/quorel-speaker.so")(2), nullptr);
}

} // namespace
} // namespace quorel
