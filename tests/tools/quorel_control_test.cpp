// SPDX-License-Identifier: MIT
#include "tests/tools/control_test.h"

#include "platform/named_lock.h"

namespace quorel {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

// ---- no effect ------------------------------------------------------------------------------------------------------

TEST_F(Control, WithoutAnEffectEveryCommandEndsWithCode3AndMakesNoBlock)
{
    std::ofstream(folder / "unused");
    for (const std::vector<std::string>& arguments : {std::vector<std::string>{"set", "Reverb=1"},
                                                      {"get"},
                                                      {"status"},
                                                      {"levels"},
                                                      {"levels", "--watch"},
                                                      {"status", "--json"},
                                                      {"reset"},
                                                      {"hrtf", "clear"},
                                                      {"preset", "save", "mine"}})
        expectRefusal(arguments, "no effect is running", 3);
    EXPECT_EQ(platform::openMapping(controlBlockName), nullptr);
}

TEST_F(Control, HelpNamesEverySettingWithItsRange)
{
    const std::string help = done({"set", "--help"});
    for (const char* name : {"Enabled ", "Settings ", "Reverb ", "EQBand1 ", "EQBand9 ", "MicNR ", "micEq ", "noiseGate "})
        EXPECT_THAT(help, HasSubstr(name));
    EXPECT_THAT(help, HasSubstr("[-127 to 127, or -6.0 to +6.0 dB] Equaliser at 1000 Hz"));
    EXPECT_THAT(help, HasSubstr("micEq          [0 to 2]"));
    for (const char* command : {"set", "get", "status", "levels", "hrtf", "preset"})
        EXPECT_THAT(done({"--help"}), HasSubstr(std::string("  ") + command + "  "));
}

TEST_F(Control, ACommandIsRequired)
{
    expectRefusal({}, "a command is required; --help tells them");
    expectRefusal({"hrtf"}, "a command is required");
    expectRefusal({"preset"}, "a command is required");
    expectRefusal({"sett"}, "there is no command sett (did you mean set?)");
    expectRefusal({"hrtf", "drop"}, "there is no command drop");
}

// ---- set and get ----------------------------------------------------------------------------------------------------

TEST_F(ControlOfAnEffect, SettingsAreWrittenAndSignalled)
{
    SettingsRecord record;
    done({"set", "Reverb=170", "EQBand5=-40", "MicNR=1"});
    follow(record);
    EXPECT_EQ(record.Reverb, 170U);
    EXPECT_EQ(record.EQBand[4], -40);
    EXPECT_EQ(record.MicNR, 1);
    done({"set", "Enabled=2", "Settings=255", "micEq=2", "noiseGate=255", "levelsEnabled=1", "EQBand1=127", "EQBand9=-127"});
    follow(record);
    EXPECT_EQ(record.Enabled, 2);
    EXPECT_EQ(record.Settings, 255);
    EXPECT_EQ(record.micEq, 2U);
    EXPECT_EQ(record.noiseGate, 255U);
    EXPECT_EQ(record.levelsEnabled, 1);
    EXPECT_EQ(record.EQBand[0], 127);
    EXPECT_EQ(record.EQBand[8], -127);
    EXPECT_EQ(record.Reverb, 170U); // as it was
}

TEST_F(ControlOfAnEffect, AnUpdateTouchesItsFieldAndTheSequenceAlone)
{
    std::memset(static_cast<void*>(block), 0x5A, sizeof(ControlBlock));
    ControlBlock expected = *block;
    done({"set", "Reverb=17"});
    expected.sequence += 1;
    const std::uint32_t reverb = 17;
    std::memcpy(expected.settings.data() + offsetof(SettingsRecord, Reverb) - settingsOffset, &reverb, sizeof reverb);
    EXPECT_EQ(std::memcmp(&expected, block, sizeof expected), 0);
}

TEST_F(ControlOfAnEffect, AListWithOneBadValueChangesNothing)
{
    done({"set", "Reverb=10"});
    expectUntouched({"set", "Reverb=20", "MicNR=256"}, "MicNR takes numbers from 0 to 255, not 256");
    expectUntouched({"set", "Reverb=20", "Reverbs=1"}, "there is no setting Reverbs");
    EXPECT_EQ(settings().Reverb, 10U);
}

TEST_F(ControlOfAnEffect, EveryValueIsCheckedAgainstItsRange)
{
    for (const auto& [name, low, high] : {std::tuple{"Enabled", 0, 255},
                                          {"Settings", 0, 255},
                                          {"Reverb", 0, 255},
                                          {"EQBand1", -127, 127},
                                          {"EQBand9", -127, 127},
                                          {"MicNR", 0, 255},
                                          {"micEq", 0, 2},
                                          {"noiseGate", 0, 255},
                                          {"levelsEnabled", 0, 255}}) {
        const std::string text = name;
        const std::string range = " takes numbers from " + std::to_string(low) + " to " + std::to_string(high) + ", not ";
        done({"set", text + "=" + std::to_string(low)});
        done({"set", text + "=" + std::to_string(high)});
        EXPECT_EQ(done({"get", text}), text + "=" + std::to_string(high) + "\n");
        expectUntouched({"set", text + "=" + std::to_string(low - 1)}, text + range + std::to_string(low - 1));
        expectUntouched({"set", text + "=" + std::to_string(high + 1)}, text + range + std::to_string(high + 1));
    }
}

TEST_F(ControlOfAnEffect, WhatIsNoAssignmentIsRefusedWithItsReason)
{
    expectUntouched({"set"}, "NAME=VALUE is required");
    expectUntouched({"set", "Reverb"}, "Reverb is no NAME=VALUE");
    expectUntouched({"set", "Reverb="}, "Reverb takes a whole number, not \"\"");
    expectUntouched({"set", "Reverb=12x"}, "Reverb takes a whole number, not \"12x\"");
    expectUntouched({"set", "Reverb=1.5"}, "Reverb takes a whole number, not \"1.5\"");
    expectUntouched({"set", "Reverp=1"},
                    "there is no setting Reverp (did you mean Reverb?); quorel-control set --help tells them all");
    expectUntouched({"set", "reverb=9.1dB"}, "Reverb takes a whole number, not \"9.1dB\": 0 to 255, or -17.9 to +9.0 dB");
    expectUntouched({"set", "hrtfId=1"}, "there is no setting hrtfId");
    expectUntouched({"set", "Reverb=1", "Reverb=2"}, "Reverb is given twice");
    expectUntouched({"set", "Reverb=99999999999999999999"}, "Reverb takes numbers from 0 to 255, not 99999999999999999999");
}

TEST_F(ControlOfAnEffect, GetShowsWhatSetTakes)
{
    done({"set", "EQBand5=-40", "Reverb=170"});
    EXPECT_EQ(done({"get", "Reverb", "EQBand5"}), "Reverb=170\nEQBand5=-40\n");
    const std::string all = done({"get"});
    EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 16);
    done({"set", "EQBand5=3", "Reverb=2"});
    std::vector<std::string> back{"set"};
    std::istringstream lines(all);
    for (std::string line; std::getline(lines, line);)
        back.push_back(line);
    done(back);
    EXPECT_EQ(done({"get"}), all);
    expectRefusal({"get", "Reverb", "Reverbs"}, "there is no setting Reverbs");
}

TEST_F(ControlOfAnEffect, ResetSetsBackWhatIsKeptOrWhatIsNamed)
{
    const std::vector<std::string> changes = {"set",       "Enabled=1", "Settings=2", "Reverb=3",   "EQBand1=-4",
                                              "EQBand9=5", "MicNR=6",   "micEq=1",    "noiseGate=7"};
    done(changes);
    done({"set", "levelsEnabled=8"});
    const std::uint32_t before = block->sequence;
    done({"reset", "reverb", "EQBand9"});
    EXPECT_EQ(block->sequence, before + 1);
    EXPECT_EQ(done({"get", "Reverb", "EQBand9", "EQBand1", "MicNR"}), "Reverb=0\nEQBand9=0\nEQBand1=-4\nMicNR=6\n");
    done({"reset"});
    const SettingsRecord none;
    SettingsRecord now = settings();
    EXPECT_EQ(now.levelsEnabled, 8); // no choice to keep: a tool that watches has switched them on
    now.levelsEnabled = 0;
    EXPECT_EQ(std::memcmp(reinterpret_cast<const char*>(&now) + settingsOffset,
                          reinterpret_cast<const char*>(&none) + settingsOffset, settingsBytes),
              0);
    done(changes);
    expectUntouched({"reset", "Reverb", "Reverbs"}, "there is no setting Reverbs");
}

TEST_F(ControlOfAnEffect, ToolsAtTheSameTimeLoseNoUpdateOfEachOther)
{
    const std::uint32_t before = block->sequence;
    constexpr int rounds = 12;
    std::vector<std::thread> tools;
    for (const char* name : {"EQBand1", "EQBand2", "EQBand3", "Enabled"}) // the last shares its word with others
        tools.emplace_back([this, name] {
            for (int i = 1; i <= rounds; ++i)
                done({"set", std::string(name) + "=" + std::to_string(i)});
        });
    for (std::thread& tool : tools)
        tool.join();
    EXPECT_EQ(done({"get", "EQBand1", "EQBand2", "EQBand3", "Enabled"}), "EQBand1=12\nEQBand2=12\nEQBand3=12\nEnabled=12\n");
    EXPECT_EQ(block->sequence, before + 4 * rounds);
}

// Between another tool's reading and its writing nothing comes in, and what it wrote is there when the waiting one reads.
TEST_F(ControlOfAnEffect, AToolWaitsForItsTurn)
{
    auto* access = platform::convertDescriptor(sharedAccess);
    std::thread waiting;
    {
        const platform::NamedLock lock("Global\\QUORELControl", access, 0);
        ASSERT_TRUE(lock);
        SettingsRecord record = settings();
        waiting = std::thread([this] { done({"set", "MicNR=3"}); });
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
        record.Enabled = 5; // in the same word
        copySettings(record, *block);
    }
    waiting.join();
    platform::freeDescriptor(access);
    EXPECT_EQ(done({"get", "Enabled", "MicNR"}), "Enabled=5\nMicNR=3\n");
}

TEST_F(ControlOfAnEffect, AToolWaitsForAnotherOneAndSaysSoWhenThatNeverEnds)
{
    auto* access = platform::convertDescriptor(sharedAccess);
    {
        const platform::NamedLock lock("Global\\QUORELControl", access, 0);
        ASSERT_TRUE(lock);
        expectUntouched({"set", "Reverb=1"}, "other programs that change the settings give this one no turn: ");
    }
    platform::freeDescriptor(access);
    done({"set", "Reverb=1"});
}

// ---- status ---------------------------------------------------------------------------------------------------------

TEST_F(ControlOfAnEffect, StatusTellsTheStreamAndTheSet)
{
    EXPECT_EQ(done({"status"}), "effect: running\nstream: none so far\nresponses: built in\n");
    handler->writeActiveFormat(0x63F, 48000.0F);
    EXPECT_EQ(done({"status"}), "effect: running\nstream: 48000 Hz, channel mask 0x63F (front left, front right, front centre, "
                                "low frequency, back left, back right, side left, side right)\nresponses: built in\n");
    handler->writeActiveFormat(0x103, 44100.0F);
    EXPECT_THAT(done({"status"}), HasSubstr("stream: 44100 Hz, channel mask 0x103 (front left, front right, others)\n"));
}

TEST_F(ControlOfAnEffect, StatusWarnsOfASetThatTheStreamRefuses)
{
    SettingsRecord record = settings();
    record.hrtfId = 0xABC;
    record.hrtfLength = 1024;
    record.hrtfChannels = 8;
    copySettings(record, *block);
    handler->writeActiveFormat(0x63F, 48000.0F);
    Outcome outcome = run({"status"});
    EXPECT_THAT(outcome.out, HasSubstr("responses: delivered, set 0xABC for 8 channels\n"));
    EXPECT_EQ(outcome.err, "");

    handler->writeActiveFormat(0x3, 48000.0F);
    outcome = run({"status"});
    EXPECT_EQ(outcome.code, 0);
    EXPECT_THAT(outcome.err, HasSubstr("the delivered set is for 8 channels, the stream has 2"));

    handler->writeActiveFormat(0x63F, 48000.0F);
    record.hrtfLength = 512;
    copySettings(record, *block);
    EXPECT_THAT(run({"status"}).err, HasSubstr("the delivered set has responses of 512 values instead of 1024"));
}

// ---- levels ---------------------------------------------------------------------------------------------------------

TEST_F(ControlOfAnEffect, LevelsAreShownAndSwitchedOnForThatAlone)
{
    handler->writeActiveFormat(0, 48000.0F);
    const std::array<float, 9> levels = {-1, -2.25F, -30, -40, -50, -60, -60, -60, -120};
    handler->writeLevels(levels.data());
    const std::uint32_t before = block->sequence;
    const std::string shown = done({"levels"});
    EXPECT_THAT(shown, StartsWith("   94 to   141 Hz    -1.0 dB\n"));
    EXPECT_THAT(shown, HasSubstr("10734 to 24000 Hz  -120.0 dB\n"));
    EXPECT_EQ(std::count(shown.begin(), shown.end(), '\n'), 9);
    EXPECT_EQ(settings().levelsEnabled, 0);
    EXPECT_EQ(block->sequence, before + 2); // on, off

    done({"set", "levelsEnabled=1"});
    done({"levels"});
    EXPECT_EQ(settings().levelsEnabled, 1); // as it was
    EXPECT_EQ(block->sequence, before + 3);

    handler->writeActiveFormat(0, 16000.0F);
    EXPECT_THAT(done({"levels"}), StartsWith("   63 to    94 Hz    -1.0 dB\n"));
}

TEST_F(ControlOfAnEffect, LevelsOfNoMicrophoneAreTold)
{
    handler->writeIdleLevels();
    const std::uint32_t before = block->sequence;
    expectRefusal({"levels"}, "no microphone is running", 3);
    EXPECT_EQ(block->sequence, before + 2); // on, off
    EXPECT_EQ(settings().levelsEnabled, 0);
    EXPECT_THAT(run({"levels", "--watch", "--seconds", "0.1"}).err, HasSubstr("no microphone is running so far\n"));

    std::array<float, 9> silence{}; // what a microphone gives that is muted
    silence.fill(-60);
    handler->writeLevels(silence.data());
    EXPECT_THAT(done({"levels"}), HasSubstr("-60.0 dB\n"));
    EXPECT_EQ(run({"levels", "--watch", "--seconds", "0.1"}).err, "");
}

TEST_F(ControlOfAnEffect, WatchingShowsNewLevelsAndKeepsThemOn)
{
    handler->writeActiveFormat(0, 48000.0F);
    std::thread effect([this] {
        const auto show = [this](float first) {
            const std::array<float, 9> levels = {first, -2, -3, -4, -5, -6, -7, -8, -9};
            handler->writeLevels(levels.data());
        };
        const auto isOn = [this] { return settings().levelsEnabled == 1; };
        const auto isShown = [this](const std::string& first) {
            for (const auto& entry : fs::directory_iterator(folder))
                if (contents(entry.path()).find(first + "   -2.0   -3.0   -4.0   -5.0   -6.0   -7.0   -8.0   -9.0\n") !=
                    std::string::npos)
                    return true;
            return false;
        };
        show(-20);
        EXPECT_TRUE(eventually(isOn));
        EXPECT_TRUE(eventually([&] { return isShown("  -20.0"); }));
        done({"set", "levelsEnabled=0"}); // by somebody else
        EXPECT_TRUE(eventually(isOn));
        show(-40);
        EXPECT_TRUE(eventually([&] { return isShown("  -40.0"); }));
        leaveBlock();
        handler.reset();
    });
    EXPECT_EQ(run({"levels", "--watch"}).code, 3); // for the effect is gone
    effect.join();
}

TEST_F(ControlOfAnEffect, WatchingForSomeSecondsSwitchesTheLevelsBack)
{
    const std::uint32_t before = block->sequence;
    done({"levels", "--watch", "--seconds", "0.3"});
    EXPECT_EQ(block->sequence, before + 2); // on, off
    EXPECT_EQ(settings().levelsEnabled, 0);
}

TEST_F(ControlOfAnEffect, WatchingEndsWithTheEffectAndKeepsNoBlockAlive)
{
    handler->writeActiveFormat(0, 48000.0F);
    std::thread effect([this] {
        EXPECT_TRUE(eventually([this] { return settings().levelsEnabled == 1; }));
        leaveBlock();
        handler.reset();
    });
    const Outcome outcome = run({"levels", "--watch", "--seconds", "20"});
    effect.join();
    EXPECT_EQ(outcome.code, 3) << outcome;
    EXPECT_THAT(outcome.err, HasSubstr("no effect is running"));
    EXPECT_EQ(platform::openMapping(controlBlockName), nullptr);
}

// ---- presets --------------------------------------------------------------------------------------------------------

TEST_F(ControlOfAnEffect, APresetBringsBackWhatWasKept)
{
    done({"set", "Enabled=1", "Settings=2", "Reverb=3", "EQBand1=-4", "EQBand9=5", "MicNR=6", "micEq=1", "noiseGate=7",
          "levelsEnabled=8"});
    const std::string kept = done({"get"});
    done({"preset", "save", "Night-time_2"});
    done({"set", "Enabled=0", "Settings=0", "Reverb=0", "EQBand1=0", "EQBand9=0", "MicNR=0", "micEq=0", "noiseGate=0"});
    const std::uint32_t before = block->sequence;
    done({"preset", "load", "Night-time_2"});
    EXPECT_EQ(done({"get"}), kept);
    EXPECT_EQ(block->sequence, before + 1);

    done({"set", "levelsEnabled=0", "Reverb=99"});
    done({"preset", "save", "Night-time_2"}); // replaced
    done({"set", "Reverb=0", "levelsEnabled=1"});
    done({"preset", "load", "Night-time_2"});
    EXPECT_EQ(done({"get", "Reverb", "levelsEnabled"}), "Reverb=99\nlevelsEnabled=1\n"); // levels are no choice to keep
    done({"preset", "save", "a"});
    EXPECT_EQ(done({"preset", "list"}), "Night-time_2\na\n");
}

TEST_F(ControlOfAnEffect, SettingsThatNoPresetMayHoldReplaceNone)
{
    done({"set", "Reverb=12"});
    done({"preset", "save", "mine"});
    SettingsRecord record = settings();
    record.Reverb = 300; // as any application may write it
    copySettings(record, *block);
    expectUntouched({"preset", "save", "mine"}, "Reverb takes numbers from 0 to 255, not 300");
    done({"preset", "load", "mine"});
    EXPECT_EQ(settings().Reverb, 12U);
}

TEST_F(ControlOfAnEffect, APresetIsDeletedByItsName)
{
    done({"preset", "save", "mine"});
    done({"preset", "save", "yours"});
    done({"preset", "delete", "mine"});
    EXPECT_EQ(done({"preset", "list"}), "yours\n");
    expectUntouched({"preset", "delete", "mine"}, "cannot delete the preset ");
    expectUntouched({"preset", "delete", "../yours"}, "is no name for a preset");
    EXPECT_EQ(done({"preset", "list"}), "yours\n");
}

TEST_F(ControlOfAnEffect, ABadNameOfAPresetIsRefused)
{
    for (const std::string& name : {std::string("../x"), std::string("a/b"), std::string("a b"), std::string("a.b"),
                                    std::string("nul"), std::string("Com1"), std::string("."), std::string(65, 'a')}) {
        expectUntouched({"preset", "save", name}, "is no name for a preset");
        expectUntouched({"preset", "load", name}, "is no name for a preset");
    }
    expectUntouched({"preset", "load", "none"}, "cannot read the preset ");
    EXPECT_EQ(done({"preset", "list"}), "");
}

TEST_F(ControlOfAnEffect, ABadFileOfAPresetIsRefusedAsAWhole)
{
    done({"preset", "save", "good"});
    fs::path file;
    for (const auto& entry : fs::recursive_directory_iterator(folder))
        if (entry.path().filename() == "good.json")
            file = entry.path();
    ASSERT_FALSE(file.empty());
    const auto expectBad = [&](const std::string& text, const std::string& reason) {
        std::ofstream(file, std::ios::binary) << text;
        expectUntouched({"preset", "load", "good"}, reason);
    };
    expectBad("", "it is no JSON");
    expectBad(R"({"settings": {"Reverb": 1)", "it is no JSON");
    expectBad(R"({"settings": {"Reverb": 1}} more)", "it is no JSON");
    expectBad("[1]", "it has to hold \"settings\" and nothing else");
    expectBad(R"({"settings": {}})", "it has to hold \"settings\" and nothing else");
    expectBad(R"({"settings": {"Reverb": 1}, "more": 1})", "it has to hold \"settings\" and nothing else");
    expectBad(R"({"settings": {"Reverb": 1, "Reverbs": 1}})", "a preset has no setting \"Reverbs\"");
    expectBad(R"({"settings": {"Reverb": 1, "levelsEnabled": 1}})", "a preset has no setting \"levelsEnabled\"");
    expectBad(R"({"settings": {"Reverb": 1, "hrtfId": 1}})", "a preset has no setting \"hrtfId\"");
    expectBad(R"({"settings": {"MicNR": 1, "Reverb": 256}})", "Reverb takes numbers from 0 to 255, not 256");
    expectBad(R"({"settings": {"MicNR": 1, "Reverb": 1.5}})", "Reverb takes a whole number");
    expectBad(R"({"settings": {"MicNR": 1, "Reverb": "1"}})", "Reverb takes a whole number");
    expectBad(R"({"settings": {"MicNR": 1, "Reverb": true}})", "Reverb takes a whole number");
    expectBad(R"({"settings": {"Reverb": 18446744073709551615}})", "Reverb takes ");
    expectBad(R"({"settings": {"EQBand1": 18446744073709551615}})",
              "EQBand1 takes numbers from -127 to 127, not 18446744073709551615"); // no -1
    expectBad(R"({"settings": {"EQBand1": 9223372036854775808}})", "not 9223372036854775808");
    expectBad(R"({"settings": {"Reverb": 1, "Reverb": 2}})", "\"Reverb\" stands in it twice");
    expectBad(std::string(70000, ' '), "it is too long");

    std::ofstream(file, std::ios::binary) << R"({"settings": {"Reverb": 12}})"; // by hand
    done({"set", "MicNR=9", "Reverb=0"});
    done({"preset", "load", "good"});
    EXPECT_EQ(done({"get", "Reverb", "MicNR"}), "Reverb=12\nMicNR=9\n");
}

} // namespace
} // namespace quorel
