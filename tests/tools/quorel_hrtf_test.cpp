// SPDX-License-Identifier: MIT
#include "tests/tools/tool_test.h"

namespace quorel {
namespace {

using testing::HasSubstr;

constexpr std::size_t channels = 14;

class QuorelHrtf : public ToolTest {
protected:
    QuorelHrtf() : ToolTest(QUOREL_HRTF, "quorel-hrtf") {}

    // One tap for each pair: 1 at frame 0 of the near ear, a tenth at frame 24 of the far one.
    std::string taps() const
    {
        std::vector<float> set(200 * channels);
        for (const std::size_t nearChannel : {0, 2, 4, 6, 7, 9, 11, 13})
            set[nearChannel] = 1;
        for (const std::size_t farChannel : {1, 3, 5, 8, 10, 12})
            set[24 * channels + farChannel] = 0.1F;
        return save("set.wav", channels, set);
    }
};

// A tap is as loud in all third octaves; 24 frames are 0.50 ms, a tenth is 20 dB less.
TEST_F(QuorelHrtf, ShowsLevelsTimesSpectraAndCut)
{
    const Outcome outcome = run({"show", taps()});
    EXPECT_TRUE(outcome.exited(0)) << outcome;
    EXPECT_THAT(outcome.out, HasSubstr("fourteen channels of 200 frames at 48000 Hz\n"));
    EXPECT_THAT(outcome.out, HasSubstr("colour against the built-in set, in dB from 63 Hz to 16 kHz: "));
    const auto row = [&](const std::string& begin) {
        const std::size_t place = outcome.out.find('\n' + begin);
        EXPECT_NE(place, std::string::npos) << begin;
        std::istringstream line(outcome.out.substr(place + 1 + begin.size()));
        std::vector<double> numbers(12);
        for (double& number : numbers)
            line >> number;
        EXPECT_TRUE(line) << begin;
        return numbers;
    };
    const auto nearEar = row("side left      left ");
    const auto farEar = row("side left      right");
    EXPECT_NEAR(nearEar[0] - farEar[0], 20, 0.11); // two numbers of one digit
    EXPECT_EQ(nearEar[1], 0.0);
    EXPECT_EQ(farEar[1], 0.5);
    for (std::size_t band = 0; band < 9; ++band) {
        EXPECT_NEAR(nearEar[2 + band], nearEar[0], 0.11);
        EXPECT_NEAR(farEar[2 + band], farEar[0], 0.11);
    }
    EXPECT_EQ(nearEar[11], 0.0);
}

TEST_F(QuorelHrtf, DrawsAnSvgOrAPng)
{
    for (const auto& [name, begin] : {std::pair{"set.svg", std::string("<?xml")}, {"set.png", std::string("\x89PNG\r\n")}}) {
        const Outcome outcome = run({"show", taps(), "--plot", path(name)});
        EXPECT_TRUE(outcome.exited(0)) << outcome;
        EXPECT_THAT(bytes(name), testing::StartsWith(begin));
    }
    EXPECT_THAT(bytes("set.svg"), HasSubstr("</svg>"));
}

TEST_F(QuorelHrtf, WhatCannotBeShownOrDrawnIsRefused)
{
    const auto expectError = [&](const std::vector<std::string>& arguments, const std::string& reason) {
        const Outcome outcome = run(arguments);
        EXPECT_TRUE(outcome.exited(2)) << outcome;
        EXPECT_THAT(outcome.err, HasSubstr(reason));
        EXPECT_EQ(outcome.out, "");
    };
    expectError({"show", path("none.wav")}, "cannot read " + path("none.wav") + ": No such file or directory");
    expectError({"show", save("mono.wav", 1, std::vector<float>(200))},
                "mono.wav: it has 1 channel; a set of responses has 14, a pair for each speaker");
    expectError({"show", taps(), "--plot", path("set.gif")},
                "cannot draw " + path("set.gif") + ": its ending is none of .svg, .png and .csv");
    expectError({"show", taps(), "--plot", path("none/set.svg")}, path("none/set.svg"));
}

} // namespace
} // namespace quorel
