// SPDX-License-Identifier: MIT
// What quorel-control says in JSON.
#include "tests/tools/control_test.h"

#include <nlohmann/json.hpp>

namespace quorel {
namespace {

using testing::HasSubstr;

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

} // namespace
} // namespace quorel
