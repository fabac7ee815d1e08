// SPDX-License-Identifier: MIT
#include "tests/tools/tool_test.h"

#include <cmath>
#include <map>
#include <numbers>
#include <random>

namespace quorel {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

// Columns by name; the first one's is "at".
using Table = std::map<std::string, std::vector<double>>;

class QuorelPlot : public ToolTest {
protected:
    QuorelPlot() : ToolTest(QUOREL_PLOT, "quorel-plot") {}

    // The tables of a file of numbers that the tool writes with these arguments.
    std::vector<Table> tables(std::vector<std::string> arguments)
    {
        arguments.push_back(path("numbers.csv"));
        const Outcome outcome = run(arguments);
        EXPECT_TRUE(outcome.exited(0)) << outcome;
        std::istringstream text(bytes("numbers.csv"));
        std::vector<Table> all;
        std::vector<std::string> names;
        for (std::string line; std::getline(text, line);) {
            std::istringstream cells(line);
            if (line.starts_with('#')) {
                all.emplace_back();
                names.clear();
                continue;
            }
            const bool head = names.empty();
            std::size_t column = 0;
            for (std::string cell; std::getline(cells, cell, ','); ++column) {
                if (head)
                    names.push_back(column == 0 ? "at" : cell);
                else
                    all.back()[names.at(column)].push_back(std::stod(cell));
            }
        }
        return all;
    }

    // The value at the place that is nearest.
    static double at(const Table& table, const std::string& name, double place)
    {
        const auto& places = table.at("at");
        std::size_t nearest = 0;
        for (std::size_t i = 0; i < places.size(); ++i)
            if (std::abs(places[i] - place) < std::abs(places[nearest] - place))
                nearest = i;
        return table.at(name)[nearest];
    }
};

TEST_F(QuorelPlot, DrawsEachSubjectAsPictureOrNumbers)
{
    std::mt19937 random(3); // NOLINT: the same in every run
    std::vector<float> noise(48000);
    for (float& sample : noise)
        sample = static_cast<float>(random() % 2001) / 1e5F - 0.01F;
    const std::string sound = save("in.wav", 1, noise);
    for (const std::vector<std::string>& subject : {std::vector<std::string>{"equalizer", "--eq", "3:+2.5dB"},
                                                    {"limiter"},
                                                    {"room", "--reverb", "0dB"},
                                                    {"curves"},
                                                    {"gate", "--noiseGate", "-40dB"},
                                                    {"noise", sound},
                                                    {"responses"}})
        for (const auto& [name, begin] : {std::pair{"out.svg", std::string("<?xml")},
                                          {"out.png", std::string("\x89PNG\r\n")},
                                          {"out.csv", std::string("# ")}}) {
            std::vector<std::string> arguments = subject;
            arguments.push_back(path(name));
            const Outcome outcome = run(arguments);
            EXPECT_TRUE(outcome.exited(0)) << outcome;
            EXPECT_EQ(outcome.out + outcome.err, "");
            EXPECT_THAT(bytes(name), StartsWith(begin)) << subject[0];
        }
}

// A band in the middle comes out within 0.06 dB of what is asked for, and the others stay.
TEST_F(QuorelPlot, TheEqualizersCurveIsThatOfItsBands)
{
    const Table flat = tables({"equalizer"})[0];
    for (const double gain : flat.at("gain"))
        EXPECT_NEAR(gain, 0, 1e-3); // single precision
    const Table peak = tables({"equalizer", "--eq", "5:+6dB"})[0];
    EXPECT_NEAR(at(peak, "gain", 1000), 6.0, 0.03); // the nearest place is within 1.5 %
    EXPECT_NEAR(at(peak, "gain", 30), 0, 0.1);
    EXPECT_NEAR(at(peak, "gain", 16000), 0, 0.1);
}

// Below full scale nothing but the output gain of 0.8; above it full scale, at most 0.115 dB more between the curve's points.
TEST_F(QuorelPlot, TheLimiterHoldsWhatIsLoud)
{
    const Table level = tables({"limiter"})[0];
    const double gain = 20 * std::log10(0.8);
    for (const double in : {-20.0, -10.0, -3.0})
        EXPECT_NEAR(at(level, "level", in), in + gain, 0.01);
    for (double in = 2; in <= 30; in += 1) {
        // The second limiter follows a sine that the first one has held; the envelope lies a little below the crests.
        EXPECT_GT(at(level, "level", in), gain - 0.2) << in;
        EXPECT_LT(at(level, "level", in), gain + 0.3) << in;
    }
}

// There is no look-ahead: what is below full scale, and the first crest above it, pass with the output gain alone. Both envelopes
// then hold the level below full scale for their release of 400 ms.
TEST_F(QuorelPlot, TheFirstCrestOfALoudSinePassesTheLimiter)
{
    const Table sine = tables({"limiter"})[1];
    const auto& in = sine.at("in");
    const auto& out = sine.at("out");
    const auto& time = sine.at("at");
    ASSERT_EQ(time.size(), 1440U);
    for (std::size_t i = 0; i < 480; ++i)
        EXPECT_NEAR(out[i], 0.8 * in[i], 1e-5); // six digits
    EXPECT_NEAR(at(sine, "in", 10.25), std::pow(10, 12 / 20.0), 1e-4);
    EXPECT_NEAR(at(sine, "out", 10.25), 0.8 * at(sine, "in", 10.25), 0.01);
    for (std::size_t i = 0; i < time.size(); ++i) {
        if (time[i] > 15) {
            EXPECT_LT(std::abs(out[i]), 0.8) << time[i];
        }
    }
}

// As they are designed: 13 dB at 100 Hz, -3 dB around 1.2 kHz and 3.7 dB at 6 kHz; a cut below 200 Hz and 3 dB at 3.2 kHz.
TEST_F(QuorelPlot, TheMicrophonesCurvesAreThoseOfTheDesign)
{
    const Table curves = tables({"curves"})[0];
    for (const std::string rate : {"16000", "48000"}) {
        EXPECT_NEAR(at(curves, "curve 1 at " + rate, 100), 13.0, 0.2); // the nearest place is within 1.5 %
        EXPECT_NEAR(at(curves, "curve 1 at " + rate, 1200), -3.0, 0.2);
        EXPECT_NEAR(at(curves, "curve 1 at " + rate, 6000), 3.7, 0.2);
        EXPECT_LT(at(curves, "curve 2 at " + rate, 75), -14.0);
        EXPECT_NEAR(at(curves, "curve 2 at " + rate, 3200), 3.0, 0.2);
    }
    EXPECT_TRUE(std::isnan(at(curves, "curve 1 at 16000", 9000))); // there is nothing
    EXPECT_FALSE(std::isnan(at(curves, "curve 1 at 48000", 9000)));
}

// The room is designed for 60 dB in 0.39 s at 500 and 1000 Hz.
TEST_F(QuorelPlot, TheRoomDecaysAsItIsDesigned)
{
    const Table room = tables({"room", "--reverb", "0dB"})[0];
    const auto time = [&](const std::string& name) { return 60 * 0.2 / (at(room, name, 0.1) - at(room, name, 0.3)); };
    EXPECT_NEAR(time("1000 Hz"), 0.39, 0.03);
    EXPECT_NEAR(time("500 Hz"), 0.39, 0.03);
    const Table soft = tables({"room", "--reverb", "-9dB"})[0];
    EXPECT_NEAR(at(room, "1000 Hz", 0.1) - at(soft, "1000 Hz", 0.1), 9, 0.06); // half a step of 27 / 255 dB
}

// Open from the level on that the setting names, shut by 50 dB from 6 dB below. The envelope falls by a factor of e in 1.2 s, so
// 20 dB down, at 0.0347 of the pre-gained level, follows speech of L dB over the opening after 1.2 (L / 8.686 + ln 0.0631 / 0.0347).
TEST_F(QuorelPlot, TheGateOpensAndShutsAsSet)
{
    const auto gate = tables({"gate", "--noiseGate", "1"}); // open from -44 dB
    EXPECT_NEAR(at(gate[0], "level", -43), -43, 0.01);
    EXPECT_NEAR(at(gate[0], "level", -10), -10, 0.01);
    EXPECT_NEAR(at(gate[0], "level", -51), -101, 0.01);
    const auto& gain = gate[1].at("speech at -20 dB");
    const auto shut = std::find_if(gain.begin(), gain.end(), [](double value) { return value < -20; });
    const double expected = 1.2 * (24 / 8.686 + std::log(0.0630957 / 0.034679));
    EXPECT_NEAR(gate[1].at("at")[static_cast<std::size_t>(shut - gain.begin())], expected, 0.03); // places are 0.02 s apart
}

// A tone stays where it is, and steady noise goes down by up to 10 dB.
TEST_F(QuorelPlot, NoiseReductionIsShownOverTimeAndFrequency)
{
    constexpr std::size_t seconds = 20;
    std::mt19937 random(5); // NOLINT: the same in every run
    std::normal_distribution<float> normal(0, 0.001F);
    std::vector<float> sound(16000 * seconds);
    for (std::size_t i = 0; i < sound.size(); ++i) {
        const bool spoken = i / 4000 % 2 == 0; // a tone of 0.25 s and as long a pause
        sound[i] =
            normal(random) + (spoken ? 0.25F * static_cast<float>(std::sin(0.1 * std::numbers::pi * static_cast<double>(i))) : 0);
    }
    const auto shown = tables({"noise", save("in.wav", 1, sound, SF_FORMAT_WAV | SF_FORMAT_FLOAT, 0, 16000)});
    ASSERT_EQ(shown.size(), 3U);
    EXPECT_NEAR(*std::max_element(shown[0].at("800 Hz").begin(), shown[0].at("800 Hz").end()), 20 * std::log10(0.25), 0.2);
    const auto& gain = shown[2].at("800 Hz");
    const auto& before = shown[0].at("800 Hz");
    for (std::size_t i = gain.size() / 2; i + 1 < gain.size(); ++i) {
        if (before[i] > -13 && before[i - 1] > -13) { // the gain rises within 40 ms
            EXPECT_NEAR(gain[i], 0, 1.0) << i;
        }
    }
    const auto& high = shown[2].at("5080 Hz");
    double sum = 0;
    for (std::size_t i = high.size() / 2; i < high.size(); ++i)
        sum += high[i] / static_cast<double>(high.size() - high.size() / 2);
    EXPECT_LT(sum, -7);
    EXPECT_GT(sum, -10.5);
}

TEST_F(QuorelPlot, WhatCannotBeDrawnIsRefusedAndWritesNothing)
{
    const auto expectError = [&](const std::vector<std::string>& arguments, const std::string& reason) {
        const Outcome outcome = run(arguments);
        EXPECT_TRUE(outcome.exited(2)) << outcome;
        EXPECT_THAT(outcome.err, HasSubstr(reason));
        EXPECT_TRUE(!fs::exists(path("out.svg")));
    };
    expectError({}, "a subject is required; --help tells them");
    expectError({"equaliser", path("out.svg")}, "there is no command equaliser (did you mean equalizer?)");
    expectError({"limiter", path("out.gif")}, "out.gif: its ending is none of .svg, .png and .csv");
    expectError({"gate", path("out.svg")}, "there is no gate while noiseGate is 0");
    expectError({"room", path("out.svg")}, "there is no room while Reverb is 0");
    expectError({"noise", path("none.wav"), path("out.svg")}, "none.wav");
    expectError({"noise", save("short.wav", 1, std::vector<float>(100)), path("out.svg")}, "the sound is too short to be drawn");
    const std::string slow = save("long.wav", 1, std::vector<float>(601 * 1000), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 0, 1000);
    expectError({"noise", slow, path("out.svg")}, "long.wav is longer than ten minutes");
    expectError({"equalizer", path("out.svg"), "--eq", "10:+1dB"}, "10:+1dB is no BAND:VALUE of a band from 1 to 9");
    expectError({"responses", path("out.svg"), "--hrtf", path("none.sofa")}, "none.sofa: No such file or directory");
}

} // namespace
} // namespace quorel
