// SPDX-License-Identifier: MIT
#include "panel/response_import.h"

#include "tests/panel/built_in_wav.h"
#include "tests/panel/own_folders.h"
#include "tests/panel/running_effect.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <random>

namespace quorel {
namespace {

class ResponseImportTest : public RunningEffect {
protected:
    std::string file(const std::string& name, const std::string& contents) const
    {
        const auto path = std::filesystem::temp_directory_path() / (std::to_string(std::random_device()()) + name);
        std::ofstream(path, std::ios::binary) << contents;
        return path.string();
    }

    ImportReport imported(const std::string& path, std::optional<std::uint32_t> told = std::nullopt)
    {
        std::atomic<bool> ended = false;
        ResponseImport import([&] { ended = true; });
        EXPECT_TRUE(import.start(path, told));
        EXPECT_TRUE(eventually([&] { return ended.load(); }));
        if (!path.empty())
            std::filesystem::remove(path);
        return import.report();
    }
};

TEST_F(ResponseImportTest, DeliversASetAndTellsWhatItTook)
{
    const ImportReport report = imported(file("set.wav", builtInWav()));
    EXPECT_TRUE(report.delivered) << report.text;
    EXPECT_NE(report.identity, 0U);
    EXPECT_EQ(settings().hrtfId, report.identity);
    EXPECT_EQ(settings().hrtfChannels, 8U);
    EXPECT_NE(report.text.find("fourteen channels of 256 frames at 48000 Hz"), std::string::npos) << report.text;
    EXPECT_NE(report.text.find("Cut of the energy: at most"), std::string::npos);
    EXPECT_TRUE(report.set.has_value());
    EXPECT_TRUE(std::ranges::any_of(share, [](std::byte byte) { return byte != std::byte{}; }));
}

TEST_F(ResponseImportTest, TellsWhyAFileIsRefused)
{
    for (const char* name : {"broken.wav", "broken.sofa"}) {
        const ImportReport report = imported(file(name, "no sound at all"));
        EXPECT_FALSE(report.delivered);
        EXPECT_EQ(report.text.rfind("cannot read ", 0), 0U) << report.text;
        EXPECT_EQ(settings().hrtfId, 0U);
    }
}

TEST_F(ResponseImportTest, DeliversOnlyToAStreamOfAllEightSpeakers)
{
    block.activeChannelMask = 0x3;
    const ImportReport report = imported(file("set.wav", builtInWav()));
    EXPECT_FALSE(report.delivered);
    EXPECT_TRUE(report.set.has_value());
    EXPECT_NE(report.text.find("a stream of all eight speakers"), std::string::npos) << report.text;
    EXPECT_EQ(settings().hrtfId, 0U);
}

// The stream that was locked last says nothing then: it may be the microphone's, or another process's.
TEST_F(ResponseImportTest, GoesByWhatTheHostTellsOfItsSpeakers)
{
    block.activeChannelMask = 0x3;
    EXPECT_TRUE(imported(file("set.wav", builtInWav()), 0x63F).delivered);
    block.activeChannelMask = 0x63F;
    EXPECT_FALSE(imported(file("set.wav", builtInWav()), 0x3).delivered);
}

TEST_F(ResponseImportTest, DeliversWhereAMicrophoneWasLockedLast)
{
    block.activeChannelMask = 0;
    block.activeFramesPerSecond = 16000;
    const ImportReport report = imported(file("set.wav", builtInWav()));
    EXPECT_TRUE(report.delivered);
    EXPECT_NE(report.text.find("A microphone's stream began last"), std::string::npos) << report.text;
    EXPECT_EQ(settings().hrtfChannels, 8U);
}

TEST_F(ResponseImportTest, RemembersTheFileForEveryProgram)
{
    const std::string path = file("set.wav", builtInWav());
    const ImportReport report = imported(path);
    EXPECT_EQ(std::filesystem::path(rememberedFile(report.identity)).filename(), std::filesystem::path(path).filename());
}

// A set for eight, and a host that tells of eight speakers, while the stream that was locked last has two.
TEST_F(ResponseImportTest, BringsTheBuiltInSetBackWhereTheHostTells)
{
    ASSERT_TRUE(imported(file("set.wav", builtInWav())).delivered);
    block.activeChannelMask = 0x3;
    ControlClient().update([](SettingsRecord& record) { record.hrtfId |= 2; }); // and one for two channels before
    EXPECT_NE(imported({}, 0x63F).text.find("A set for 2 channels"), std::string::npos);
    EXPECT_EQ(settings().hrtfChannels, 8U);
}

TEST_F(ResponseImportTest, BringsTheBuiltInSetBack)
{
    imported(file("set.wav", builtInWav()));
    ASSERT_NE(settings().hrtfId, 0U);
    EXPECT_EQ(imported({}).text, "The built-in responses are in force.");
    EXPECT_EQ(settings().hrtfId, 0U);
}

} // namespace
} // namespace quorel
