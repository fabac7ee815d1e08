// SPDX-License-Identifier: MIT
#include "tests/tools/control_test.h"

#include "platform/named_lock.h"
#include "speaker/built_in.h"

#include <nlohmann/json.hpp>

namespace quorel {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

// ---- no effect ------------------------------------------------------------------------------------------------------

TEST_F(Control, WithoutAnEffectEveryCommandEndsWithACodeOfItsOwnAndMakesNoBlock)
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

// ---- JSON -----------------------------------------------------------------------------------------------------------

class JsonOfControl : public Responses {
protected:
    // The one line that the command writes, parsed; nothing goes to standard error.
    nlohmann::json told(std::vector<std::string> arguments)
    {
        arguments.emplace_back("--json");
        const Outcome outcome = run(arguments);
        EXPECT_EQ(outcome.code, 0) << outcome;
        EXPECT_EQ(outcome.err, "");
        EXPECT_EQ(std::count(outcome.out.begin(), outcome.out.end(), '\n'), 1) << outcome;
        return nlohmann::json::parse(outcome.out, nullptr, false);
    }

    static nlohmann::json parsed(const char* text) { return nlohmann::json::parse(text); }
};

TEST_F(JsonOfControl, SettingsAndPresetsAreTold)
{
    EXPECT_EQ(told({"set", "reverb=170", "EQBand5=-40"}),
              parsed(R"({"settings": {"Reverb": 170, "EQBand5": -40}, "notices": []})"));
    EXPECT_EQ(told({"get", "EQBand5"}), parsed(R"({"settings": {"EQBand5": -40}, "notices": []})"));
    EXPECT_EQ(told({"get"})["settings"].size(), 16U);
    EXPECT_EQ(told({"preset", "save", "mine"})["settings"].size(), 15U);
    EXPECT_EQ(told({"preset", "list"}), parsed(R"({"presets": ["mine"], "notices": []})"));
    EXPECT_EQ(told({"reset", "Reverb"}), parsed(R"({"settings": {"Reverb": 0}, "notices": []})"));
    EXPECT_EQ(told({"preset", "load", "mine"})["settings"]["Reverb"], 170);
    EXPECT_EQ(told({"preset", "delete", "mine"}), parsed(R"({"deleted": "mine", "notices": []})"));
    EXPECT_EQ(told({"preset", "list"}), parsed(R"({"presets": [], "notices": []})"));
    expectRefusal({"get", "Reverbs", "--json"}, "there is no setting Reverbs");
}

TEST_F(JsonOfControl, StreamResponsesAndNoticesAreTold)
{
    const std::string file = wav("set.wav", 14, interleaved(someSet(100, 10, 200)));
    auto status = told({"status"});
    EXPECT_EQ(status, parsed(R"({"effect": "running", "responses": {"delivered": false}, "notices": [],
        "stream": {"rate": 48000.0, "mask": 1599, "microphone": false, "speakers": ["front left", "front right", "front centre",
        "low frequency", "back left", "back right", "side left", "side right"]}})"));
    const auto loaded = told({"hrtf", "load", file, "--gain", "0"});
    EXPECT_EQ(loaded["file"], file);
    EXPECT_EQ(loaded["channels"], 8);
    EXPECT_EQ(loaded["identity"], settings().hrtfId);
    EXPECT_GE(loaded["notices"].size(), 2U); // the colour, and what was delivered
    handler->writeActiveFormat(0x3, 48000.0F);
    status = told({"status"});
    EXPECT_EQ(status["responses"]["file"], file);
    EXPECT_THAT(status["notices"][0].get<std::string>(), HasSubstr("for 8 channels, the stream has 2"));
    EXPECT_EQ(told({"hrtf", "clear"}), parsed(R"({"channels": 8, "others": [], "notices": []})"));
    EXPECT_EQ(told({"hrtf", "clear"}), parsed(R"({"channels": null, "notices": ["no delivered set is in force"]})"));
    handler->writeActiveFormat(0, 0.0F);
    EXPECT_EQ(told({"status"})["stream"], nullptr);
}

TEST_F(JsonOfControl, LevelsAreToldOnceAndLineByLine)
{
    handler->writeActiveFormat(0x4, 48000.0F);
    const std::array<float, 9> levels = {-1, -2.25F, -30, -40, -50, -60, -60, -60, -NAN};
    handler->writeLevels(levels.data());
    const auto once = told({"levels"});
    EXPECT_EQ(once["microphone"], true);
    EXPECT_EQ(once["levels"][1], parsed(R"({"from": 140.625, "to": 187.5, "db": -2.25})")); // bins of 46.875 Hz
    EXPECT_EQ(once["levels"][8]["db"], nullptr);
    std::istringstream lines(done({"levels", "--watch", "--seconds", "0.3", "--json"}));
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count)
        EXPECT_EQ(nlohmann::json::parse(line, nullptr, false), once);
    EXPECT_GE(count, 1);
}

// ---- head-related responses -----------------------------------------------------------------------------------------

// The same as an independent computation gives: the pair of each speaker, from the latest frame that loses nothing, at the level
// at which pink noise is as strong at the ears as with the built-in set.
TEST_F(Responses, ASetOfFourteenChannelsIsHeardAtTheNextBlock)
{
    constexpr std::size_t onset = 300;
    const auto set = someSet(120, onset, 1000);
    SignalPath path = path7();
    done({"hrtf", "load", wav("set.wav", 14, interleaved(set))});
    follow(*path->settings());
    EXPECT_EQ(path->settings()->hrtfLength, 1024U);
    EXPECT_EQ(path->settings()->hrtfChannels, 8U);
    EXPECT_NE(path->settings()->hrtfId, 0U);

    const double gain = std::sqrt(pinkPower(builtIn()) / pinkPower(set));
    for (std::size_t row = 0; row < 8; ++row) {
        const Ears ears = heard(path, row);
        for (std::size_t ear = 0; ear < 2; ++ear)
            for (std::size_t i = 0; i < 480; ++i) {
                // The front centre's main tap is its first, at frame 0.
                const double expected = row != woofer ? (onset + i < 1000 ? gain * set[row][ear][onset + i] : 0)
                                        : i == 0      ? 0.707
                                                      : 0;
                // The transforms' noise; and a single-precision sum of 1e-6 of the power in the gain.
                ASSERT_NEAR(ears[ear][i], expected, 5e-6) << "speaker " << row << ", ear " << ear << ", frame " << i;
            }
    }
}

TEST_F(Responses, ClearingBringsTheBuiltInSoundBackAtOnce)
{
    SignalPath path = path7();
    std::vector<Ears> before;
    for (std::size_t row = 0; row < 8; ++row)
        before.push_back(heard(path, row));
    done({"hrtf", "load", wav("set.wav", 14, interleaved(someSet(100, 10, 200)))});
    follow(*path->settings());
    EXPECT_GT(std::abs(heard(path, 0)[0][0] - before[0][0][0]), 0.01);

    done({"hrtf", "clear"});
    follow(*path->settings());
    EXPECT_EQ(path->settings()->hrtfId, 0U);
    EXPECT_EQ(path->settings()->hrtfChannels, 8U);
    std::vector<float> own; // the spectra that a new path begins with
    for (const bool left : {true, false})
        for (const SpeakerResponses& speaker : speakerResponses) {
            const EarResponse& response = left ? speaker.left : speaker.right;
            appendSpectrum(own, response.taps, response.onset);
        }
    EXPECT_EQ(std::memcmp(share(), own.data(), hrtfShareBytes), 0);
    for (std::size_t row = 0; row < 8; ++row) {
        const Ears after = heard(path, row);
        for (std::size_t ear = 0; ear < 2; ++ear)
            for (std::size_t i = 0; i < 480; ++i)
                ASSERT_NEAR(after[ear][i], before[row][ear][i], 1e-6) << row << ' ' << ear << ' ' << i;
    }
    const Outcome again = run({"hrtf", "clear"});
    EXPECT_EQ(again.code, 0);
    EXPECT_THAT(again.err, HasSubstr("no delivered set is in force"));
}

TEST_F(Responses, ASetThatIsLoadedAgainHasANewIdentity)
{
    const std::string file = wav("set.wav", 14, interleaved(someSet(100, 10, 200)));
    std::vector<std::uint32_t> identities;
    for (int i = 0; i < 3; ++i) {
        done({"hrtf", "load", file});
        identities.push_back(settings().hrtfId);
        if (i == 1)
            done({"hrtf", "clear"});
    }
    EXPECT_NE(identities[0], 0U);
    EXPECT_NE(identities[0], identities[1]);
    EXPECT_NE(identities[1], identities[2]);
}

TEST_F(Responses, GainIsOnTopOfTheBuiltInLevel)
{
    const std::string file = wav("set.wav", 14, interleaved(someSet(100, 10, 200)));
    done({"hrtf", "load", file});
    const std::vector<float> plain(share(), share() + 16 * 1024);
    const Outcome louder = run({"hrtf", "load", file, "--gain", "6"});
    EXPECT_EQ(louder.code, 0);
    const double factor = std::pow(10, 6 / 20.0);
    for (std::size_t i = 0; i < plain.size(); ++i) // of values up to 10, twice rounded in single precision
        ASSERT_NEAR(static_cast<double>(share()[i]), factor * static_cast<double>(plain[i]), 1e-5) << i;
}

TEST_F(Responses, TheEnergyThatIsCutIsTold)
{
    auto set = someSet(100, 0, 400);
    // One tap of a tenth of the energy of the rest, too late for the convolver: an eleventh would be cut.
    set[4][0][300] = std::sqrt(energy(set[4][0]) / 10);
    const Outcome outcome = run({"hrtf", "load", wav("set.wav", 14, interleaved(set))});
    EXPECT_EQ(outcome.code, 0) << outcome;
    EXPECT_THAT(outcome.err, HasSubstr("cut of the energy: at most 9.09 % (-10.41 dB), at back left, left ear\n"));
}

TEST_F(Responses, ASetThatLosesTooMuchIsRefused)
{
    auto set = someSet(100, 0, 400);
    set[4][0][300] = std::sqrt(energy(set[4][0]) / 8); // a ninth
    expectUntouched({"hrtf", "load", wav("set.wav", 14, interleaved(set))},
                    "set.wav: the convolver takes 177 taps, and of back left, left ear they hold too little: 11.1 % of its "
                    "energy would be cut, more than 10.0 %");
}

TEST_F(Responses, ABadFileIsRefusedAndNothingIsTouched)
{
    const auto set = someSet(100, 10, 200);
    const std::vector<float> good = interleaved(set);
    expectUntouched({"hrtf", "load", path("none.wav")}, "cannot read " + path("none.wav"));
    expectUntouched({"hrtf", "load", path("none.sofa")}, "cannot read " + path("none.sofa"));
    std::ofstream(folder / "text.wav") << "This is a letter.\n";
    expectUntouched({"hrtf", "load", path("text.wav")}, "cannot read " + path("text.wav"));
    expectUntouched({"hrtf", "load", wav("two.wav", 2, std::vector<float>(400))},
                    "two.wav: it has 2 channels; a set of responses has 14, a pair for each speaker");
    expectUntouched({"hrtf", "load", wav("empty.wav", 14, {})}, "empty.wav: it is empty");
    expectUntouched({"hrtf", "load", wav("frame.wav", 14, std::vector<float>(14, 0.5F))},
                    "frame.wav: its responses have 1 frame, and that of a head has at least 16");
    expectUntouched({"hrtf", "load", wav("long.wav", 14, std::vector<float>(14 * 65537))},
                    "long.wav: its responses are longer than 65536 frames");

    auto bad = good;
    for (const float value : {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity()}) {
        bad[14 * 50 + pairOf[6][1]] = value;
        expectUntouched({"hrtf", "load", wav("bad.wav", 14, bad)}, "holds a value that is no number");
    }
    bad = good;
    for (std::size_t i = 0; i < 200; ++i)
        bad[14 * i + pairOf[2][1]] = 0;
    expectUntouched({"hrtf", "load", wav("silent.wav", 14, bad)}, "the response of front centre, right ear is silent");
    bad = good;
    for (std::size_t i = 0; i < 200; ++i)
        std::swap(bad[14 * i + pairOf[5][0]], bad[14 * i + pairOf[5][1]]);
    expectUntouched({"hrtf", "load", wav("order.wav", 14, bad)},
                    "its channels are in another order: back right would be louder at the far ear");
    bad = good;
    for (float& value : bad)
        value *= 1e30F;
    done({"hrtf", "load", wav("loud.wav", 14, bad)}); // the level is the built-in set's in any case
}

TEST_F(Responses, ASetIsForARunningStreamThatCanTakeIt)
{
    const std::string file = wav("set.wav", 14, interleaved(someSet(100, 10, 200)));
    handler->writeActiveFormat(0, 0.0F);
    expectUntouched({"hrtf", "load", file}, "no stream is running that a set could be for; --channels insists");
    handler->writeActiveFormat(0x63F, 44100.0F);
    expectUntouched({"hrtf", "load", file}, "the running stream has the channel mask 0x63F at 44100 Hz");
    handler->writeActiveFormat(0x3, 48000.0F);
    expectUntouched({"hrtf", "load", file}, "a set is for all eight speakers, 0x63F, at 48000 Hz; --channels insists");
    expectUntouched(
        {"hrtf", "load", file, "--channels", "8"},
        "the running stream has 2 channels: with a set for 8 it refuses every block, and is silent, until hrtf clear; "
        "--yes delivers it all the same");
    done({"hrtf", "load", file, "--channels", "8", "--yes"});
    EXPECT_EQ(settings().hrtfChannels, 8U);
}

// A headset's microphone is often locked after its speakers.
TEST_F(Responses, ASetIsForEightChannelsWhileAMicrophoneRuns)
{
    const std::string file = wav("set.wav", 14, interleaved(someSet(100, 10, 200)));
    for (const auto& [mask, rate] : {std::pair{0x4U, 48000.0F}, {0U, 48000.0F}, {0x3U, 16000.0F}, {0x1U, 44100.0F}}) {
        SignalPath path = path7();
        handler->writeActiveFormat(mask, rate);
        const Outcome outcome = run({"hrtf", "load", file});
        EXPECT_EQ(outcome.code, 0) << outcome;
        EXPECT_THAT(outcome.err, HasSubstr("stereo at 96 kHz, would refuse every block until hrtf clear\n"));
        EXPECT_EQ(settings().hrtfChannels, 8U);
        follow(*path->settings());
        EXPECT_NO_THROW(heard(path, 0));
        EXPECT_EQ(run({"status"}).err, "") << mask;
        EXPECT_THAT(done({"status"}), HasSubstr(", as a microphone has\n"));
        done({"hrtf", "clear"});
    }
    handler->writeActiveFormat(0x3, 44100.0F); // of two speakers, so a player's
    expectUntouched({"hrtf", "load", file}, "the running stream has the channel mask 0x3 at 44100 Hz");
}

TEST_F(Responses, StatusNamesTheFileOfTheSetInForce)
{
    const std::string file = wav("my ears.wav", 14, interleaved(someSet(100, 10, 200)));
    done({"hrtf", "load", file});
    EXPECT_THAT(done({"status"}), HasSubstr(" for 8 channels, of " + file + "\n"));
    SettingsRecord record = settings();
    record.hrtfId ^= 0x100; // another application has delivered another set
    copySettings(record, *block);
    EXPECT_THAT(done({"status"}), HasSubstr(" for 8 channels\n"));
    done({"hrtf", "clear"});
    EXPECT_THAT(done({"status"}), HasSubstr("responses: built in\n"));
}

TEST_F(Responses, ASetForFewerChannelsHasTheirPairs)
{
    const std::string file = wav("set.wav", 14, interleaved(someSet(100, 10, 200)));
    done({"hrtf", "load", file});
    const std::vector<float> all(share(), share() + 16 * 1024);
    // The rows of `speakerTable`: the stream's own layout where it has so many channels, else the usual one.
    for (const auto& [mask, channels, rows] : {std::tuple{0x3U, 2U, std::vector<std::size_t>{0, 1}},
                                               {0x63FU, 2U, {0, 1}},
                                               {0x63FU, 6U, {0, 1, 2, 3, 4, 5}},
                                               {0x60FU, 6U, {0, 1, 2, 3, 6, 7}},
                                               {0U, 1U, {2}},
                                               {0U, 4U, {0, 1, 4, 5}},
                                               {0U, 7U, {0, 1, 2, 4, 5, 6, 7}}}) {
        handler->writeActiveFormat(mask, 48000.0F);
        done({"hrtf", "load", file, "--channels", std::to_string(channels), "--yes"});
        EXPECT_EQ(settings().hrtfChannels, channels);
        for (std::size_t c = 0; c < rows.size(); ++c)
            for (std::size_t ear = 0; ear < 2; ++ear)
                EXPECT_EQ(std::memcmp(share() + (ear * channels + c) * 1024, all.data() + (ear * 8 + rows[c]) * 1024, 4096), 0)
                    << channels << ' ' << c << ' ' << ear;
    }
}

// Blocks run only between the commands, as in a stream that pauses while they are given.
TEST_F(Responses, ClearingEndsARefusalAfterASecondDelivery)
{
    const std::string file = wav("set.wav", 14, interleaved(someSet(100, 10, 200)));
    std::vector<float> in(480 * 8);
    std::vector<float> out(480 * 8);
    for (const auto& [channels, mask, other] : {std::tuple{8U, 0x63FU, "2"}, {2U, 0x3U, "8"}, {6U, 0x60FU, "8"}}) {
        handler->writeActiveFormat(mask, 48000.0F);
        SignalPath path(SignalPath::Speaker{}, static_cast<int>(channels), mask, 480, 48000);
        const auto runs = [&] {
            follow(*path->settings());
            path->process(in.data(), 480, out.data(), 480);
        };
        done({"hrtf", "load", file, "--channels", std::to_string(channels)});
        EXPECT_NO_THROW(runs());
        done({"hrtf", "load", file, "--channels", other, "--yes"});
        EXPECT_THROW(runs(), std::invalid_argument);
        const Outcome cleared = run({"hrtf", "clear"});
        EXPECT_THAT(cleared.err, HasSubstr(std::string("hrtf clear --channels ") + other + '\n'));
        EXPECT_NO_THROW(runs()) << channels;
        EXPECT_EQ(run({"status"}).err, "");
    }
}

TEST_F(Responses, ASetIsClearedWhileAMicrophoneIsTheLastStream)
{
    SignalPath path = path7();
    done({"hrtf", "load", wav("set.wav", 14, interleaved(someSet(100, 10, 200)))});
    follow(*path->settings());
    heard(path, 0);
    handler->writeActiveFormat(0x4, 48000.0F);
    done({"hrtf", "clear"});
    follow(*path->settings());
    EXPECT_NO_THROW(heard(path, 0));
    EXPECT_EQ(settings().hrtfChannels, 8U);
}

TEST_F(Responses, StatusWarnsOfAStreamThatTheClearingMayHaveMissed)
{
    done({"hrtf", "load", wav("set.wav", 14, interleaved(someSet(100, 10, 200)))});
    SignalPath path = path7();
    heard(path, 0);
    done({"hrtf", "clear", "--channels", "2"});
    follow(*path->settings());
    EXPECT_THROW(heard(path, 0), std::invalid_argument);
    EXPECT_THAT(run({"status"}).err, HasSubstr("was brought back for 2 channels, the stream has 8"));
    EXPECT_THAT(run({"status"}).err, HasSubstr("hrtf clear --channels 8 ends this"));
    done({"hrtf", "clear", "--channels", "8"});
    follow(*path->settings());
    EXPECT_NO_THROW(heard(path, 0));
    EXPECT_EQ(run({"status"}).err, "");
}

TEST_F(Responses, ClearingEndsTheRefusalOfASetThatDoesNotFit)
{
    SignalPath stereo(SignalPath::Speaker{}, 2, 0x3, 480, 48000);
    done({"hrtf", "load", wav("set.wav", 14, interleaved(someSet(100, 10, 200)))});
    handler->writeActiveFormat(0x3, 48000.0F);
    std::vector<float> in(480 * 2);
    std::vector<float> out(480 * 8);
    follow(*stereo->settings());
    EXPECT_THROW(stereo->process(in.data(), 480, out.data(), 480), std::invalid_argument);
    done({"hrtf", "clear"});
    follow(*stereo->settings());
    EXPECT_NO_THROW(stereo->process(in.data(), 480, out.data(), 480));
}

} // namespace
} // namespace quorel
