// SPDX-License-Identifier: MIT
// What a user reads of the live host's status.
#include "client/live_status.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace quorel {
namespace {

nlohmann::json side(unsigned channels)
{
    nlohmann::json told;
    told["channels"] = channels;
    told["devices"] = {"Speakers", "Headphones"};
    told["running"] = true;
    told["rate"] = 44100;
    told["drift_ppm"] = -12.34;
    told["quantum"] = 512;
    told["block"] = 256;
    told["added_frames"] = 480;
    told["added_ms"] = 10.0;
    told["total_ms"] = 32.25;
    told["load_mean"] = 1.26;
    told["load_worst"] = 7.0;
    told["gaps"] = 2;
    told["gap_frames"] = 1024;
    told["refused_blocks"] = 3;
    told["refusal"] = "out of breath";
    told["bad_samples"] = 4;
    told["path_changes"] = 5;
    told["lost_frames"] = 6;
    return told;
}

TEST(LiveStatus, ReadsAsAParagraphForEachSide)
{
    nlohmann::json quiet = side(1);
    quiet["devices"] = nlohmann::json::array();
    quiet["running"] = false;
    quiet["refused_blocks"] = 0;
    quiet["refusal"] = "";
    const nlohmann::json status{{"connected", true}, {"reconnects", 1},    {"scheduling", "FIFO 83"},
                                {"bypass", false},   {"speaker", side(8)}, {"microphone", quiet}};
    EXPECT_EQ(readableSides(status), "server: connected, 1 reconnects, scheduling FIFO 83, bypass off\n"
                                     "speaker: Speakers, Headphones, running, 7.1\n"
                                     "  graph at 44100 Hz, drift -12.3 ppm, quantum 512, blocks of 256\n"
                                     "  latency: 480 frames (10.0 ms) added, 32.2 ms to the device\n"
                                     "  load: 1.3 % of the period, worst 7.0 %; gaps: 2 (1024 frames)\n"
                                     "  refused blocks: 3 (out of breath); bad samples: 4; changes of the block: 5, "
                                     "6 frames lost in them\n"
                                     "microphone: no device linked, idle, mono\n"
                                     "  graph at 44100 Hz, drift -12.3 ppm, quantum 512, blocks of 256\n"
                                     "  latency: 480 frames (10.0 ms) added, 32.2 ms to the device\n"
                                     "  load: 1.3 % of the period, worst 7.0 %; gaps: 2 (1024 frames)\n"
                                     "  refused blocks: 0; bad samples: 4; changes of the block: 5, 6 frames lost in them\n");
}

TEST(LiveStatus, SaysThatTheServerIsGoneAndThatNothingIsMadeBinaural)
{
    const nlohmann::json status{{"connected", false}, {"reconnects", 0}, {"scheduling", "unknown"}, {"bypass", true}};
    EXPECT_EQ(readableSides(status), "server: gone, waiting for it, 0 reconnects, scheduling unknown, bypass on\n");
}

TEST(LiveStatus, NamesTheLayoutByItsChannels)
{
    for (const auto& [channels, name] : {std::pair{2U, "stereo"}, {6U, "5.1"}, {4U, "4 channels"}}) {
        const std::string text = readableSides(
            {{"connected", true}, {"reconnects", 0}, {"scheduling", "normal"}, {"bypass", false}, {"speaker", side(channels)}});
        EXPECT_NE(text.find("running, " + std::string(name) + "\n"), std::string::npos) << text;
    }
}

TEST(LiveStatus, TellsTheSpeakersOfTheDevice)
{
    EXPECT_EQ(liveSpeakers({{"speaker", side(6)}}), 6U);
    EXPECT_EQ(liveSpeakers({{"microphone", side(1)}}), std::nullopt);
}

} // namespace
} // namespace quorel
