// SPDX-License-Identifier: MIT
#include "panel/qt/model_texts.h"

#include "client/hrtf_file.h"
#include "client/live_status.h"
#include "client/preset.h"
#include "panel/values.h"
#include "tests/panel/qt/offscreen.h"
#include "tests/panel/qt/upper_case.h"
#include "tools/level_display.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <random>
#include <stdexcept>

namespace quorel {
namespace {

// What `work` throws.
std::string why(const std::function<void()>& work)
{
    try {
        work();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "nothing is wrong";
}

// The data in a text that is made here stand in capitals, so that all of its translation does.
void expectTranslated(const std::string& text)
{
    EXPECT_EQ(untranslated(translated(text)).toStdString(), "");
    EXPECT_FALSE(text.empty());
}

std::string presetOf(const char* contents)
{
    savePreset("BROKEN", {});
    for (const auto& entry : std::filesystem::recursive_directory_iterator(std::getenv("XDG_CONFIG_HOME")))
        if (entry.path().filename() == "BROKEN.json")
            std::ofstream(entry.path()) << contents;
    const std::string text = why([] { loadPreset("BROKEN", {}); });
    const auto reason = text.find(".json: ");
    return "cannot read the preset PATH" + text.substr(reason == std::string::npos ? 0 : reason + 5);
}

TEST(ModelTexts, WithoutATranslatorStayAsTheyAre)
{
    for (const char* text :
         {"Delivered to the effect.", "cannot read /a/b.wav: it is empty", "no text of the list", "",
          "3 directions at 48000 Hz; taken (degrees from the speaker): front left 0.0, side left 5.1 "
          "(interpolated), back right 2.0\nScaled by +1.00 dB. Cut of the energy: at most 0.10 %, at back left, "
          "left ear.\n"})
        EXPECT_EQ(translated(text).toStdString(), text);
}

TEST(ModelTexts, AreTranslatedButForNamesAndNumbers)
{
    const UpperCase language;
    EXPECT_EQ(translated("cannot read /a/b.wav: it is empty"), "CANNOT READ /a/b.wav: IT IS EMPTY");
    EXPECT_EQ(translated("cannot read stereo: no such thing"), "CANNOT READ stereo: no such thing");
    EXPECT_EQ(
        translated("1 direction at 44100 Hz; taken (degrees from the speaker): front left 0.0, side left 5.1 (interpolated), "
                   "back right 2.0"),
        "1 DIRECTION AT 44100 HZ; TAKEN (DEGREES FROM THE SPEAKER): FRONT LEFT 0.0, SIDE LEFT 5.1 (INTERPOLATED), BACK RIGHT "
        "2.0");
    EXPECT_EQ(translated("a\nit is empty\n"), "a\nIT IS EMPTY\n");
}

TEST(ModelTexts, HaveWhatAPresetThrows)
{
    const UpperCase language;
    expectTranslated(why([] { savePreset("NO NAME", {}); }));
    for (const char* contents :
         {"{", "[]", R"({"settings": {}})", R"({"settings": {"NONE": 1}})", R"({"settings": {"X": 1, "X": 2}})"})
        expectTranslated(presetOf(contents));
    expectTranslated(presetOf((R"({"settings": {}})" + std::string(70000, ' ')).c_str()));
    for (const char* contents : {R"({"settings": {"EQBand1": 128}})", R"({"settings": {"EQBand1": 0.5}})"})
        EXPECT_TRUE(translated(presetOf(contents)).contains(QRegularExpression("EQBand1 TAKES [A-Z ]*"))) << contents;
}

TEST(ModelTexts, HaveWhatATypedValueThrows)
{
    const UpperCase language;
    for (const SettingsField& field : settingsFields())
        EXPECT_TRUE(translated(why([&] { settingFrom(field, "NONE"); })).contains("IS NOT A NUMBER FROM")) << field.name;
    EXPECT_EQ(translated(why([] { settingFrom(*settingsField("Reverb"), "NONE"); })),
              "NONE IS NOT A NUMBER FROM 0 TO 255, NOR ONE OF -17.9 to +9.0 DB");
}

TEST(ModelTexts, HaveTheSpeakersAndTheBandsOfTheLevels)
{
    const UpperCase language;
    for (const char* name : speakerNames)
        expectTranslated(name);
    for (const std::uint32_t rate : {16000U, 48000U})
        for (const std::string& caption : levelCaptions(rate))
            expectTranslated(QString::fromStdString(caption).simplified().toStdString());
}

TEST(ModelTexts, HaveWhatARefusedFileIsToldOf)
{
    const UpperCase language;
    const std::string folder = std::filesystem::temp_directory_path().string();
    const auto reason = [&](const std::string& name, const std::string& contents) {
        const std::string path = folder + "/" + std::to_string(std::random_device()()) + name;
        std::ofstream(path, std::ios::binary) << contents;
        std::string text = why([&] { readHrtfFile(path, Equalize::none, [] {}); });
        std::filesystem::remove(path);
        const auto at = text.find(path);
        return at == std::string::npos ? text : text.replace(at, path.size(), "PATH");
    };
    expectTranslated(reason("a.wav", "nothing of a sound"));
    expectTranslated(reason("a.sofa", "nothing of a head"));
    const std::string mono(
        "RIFF\x2C\0\0\0WAVEfmt \x10\0\0\0\1\0\1\0\x80\xBB\0\0\0\x77\1\0\2\0\x10\0data\x8\0\0\0\0\0\0\0\0\0\0\0", 52);
    expectTranslated(reason("b.wav", mono));
    expectTranslated(reason("c.wav", mono.substr(0, 50)));
    std::string text = why([&] { readHrtfFile(folder, Equalize::none, [] {}); });
    expectTranslated(text.replace(text.find(folder), folder.size(), "PATH"));
}

TEST(ModelTexts, HaveWhatQuorelLiveTells)
{
    const UpperCase language;
    for (const bool on : {false, true}) {
        nlohmann::json side = {{"devices", nlohmann::json::array()},
                               {"running", on},
                               {"rate", 48000},
                               {"drift_ppm", 0.5},
                               {"quantum", 256},
                               {"block", 128},
                               {"added_frames", 128},
                               {"added_ms", 2.7},
                               {"total_ms", 8.0},
                               {"load_mean", 1.0},
                               {"load_worst", 3.0},
                               {"gaps", 0},
                               {"gap_frames", 0},
                               {"refused_blocks", 0},
                               {"refusal", ""},
                               {"bad_samples", 0},
                               {"path_changes", 1},
                               {"lost_frames", 0},
                               {"channels", 8}};
        if (on)
            side["devices"].push_back("CARD");
        for (const unsigned channels : {1U, 2U, 4U, 6U, 8U}) {
            side["channels"] = channels;
            expectTranslated(readableSides({{"connected", on},
                                            {"reconnects", 2},
                                            {"scheduling", "FIFO 88"},
                                            {"bypass", on},
                                            {"speaker", side},
                                            {"microphone", side}}));
        }
    }
}

} // namespace
} // namespace quorel
