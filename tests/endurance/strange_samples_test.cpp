// SPDX-License-Identifier: MIT
// What becomes of a sample that is no number, infinite or far too loud where a path gets it: the rows of the table in
// docs/real_time.md, each against a path that never got one.
#include "core/signal_path.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <vector>

namespace quorel {
namespace {

using Change = std::function<void(SettingsRecord&)>;

constexpr std::uint64_t n = 480; // frames of a block
constexpr int aWhile = 100;      // blocks

class Path {
public:
    Path(bool render, std::uint32_t rate)
        : path(render ? SignalPath(SignalPath::Speaker{}, 2, 0x3, n, rate) : SignalPath(SignalPath::Microphone{}, 2, 0, n, rate)),
          slots(render && rate == 48000 ? 8 : 2),
          in(2 * n),
          out_(8 * n)
    {
    }

    void set(const Change& change)
    {
        SettingsRecord& record = *path->settings();
        change(record);
        ++record.blockSequence;
        record.applied = 0;
    }

    // Blocks of noise, with `strange` in the first one.
    void run(int blocks, float strange = 0)
    {
        for (int block = 0; block < blocks; ++block) {
            for (float& x : in)
                x = 0.1F * (static_cast<float>(random()) * 0x1p-31F - 1);
            if (strange != 0)
                in[200] = strange;
            strange = 0;
            path->process(in.data(), n, out_.data(), n);
        }
    }

    // Of the last block's two channels.
    std::vector<float> out() const
    {
        std::vector<float> both;
        for (std::size_t i = 0; i < n; ++i)
            for (std::size_t c = 0; c < 2; ++c)
                both.push_back(out_[i * slots + c]);
        return both;
    }

    bool isFinite() const
    {
        const auto both = out();
        return std::all_of(both.begin(), both.end(), [](float x) { return std::isfinite(x); });
    }

    double energy() const
    {
        double sum = 0;
        for (const float x : out())
            sum += static_cast<double>(x) * static_cast<double>(x);
        return sum;
    }

private:
    std::mt19937 random{1};
    SignalPath path;
    std::size_t slots; // samples of an output frame
    std::vector<float> in;
    std::vector<float> out_;
};

// A path that gets a strange sample, and one that gets noise in its place.
struct Pair {
    Pair(bool render, std::uint32_t rate, const Change& settings, float strange) : hit(render, rate), untouched(render, rate)
    {
        set(settings);
        run(aWhile);
        hit.run(1, strange);
        untouched.run(1);
    }

    void set(const Change& change)
    {
        hit.set(change);
        untouched.set(change);
    }

    void run(int blocks)
    {
        hit.run(blocks);
        untouched.run(blocks);
    }

    bool equal() const { return hit.out() == untouched.out(); } // false for what is no number

    Path hit;
    Path untouched;
};

constexpr float nan = std::numeric_limits<float>::quiet_NaN();
constexpr float infinite = std::numeric_limits<float>::infinity();

const Change flat = [](SettingsRecord&) {};
const Change binaural = [](SettingsRecord& record) { record.Settings = 1; };
const Change bands = [](SettingsRecord& record) { record.EQBand.fill(60); };
const Change otherBand = [](SettingsRecord& record) { record.EQBand[4] += 10; };

TEST(StrangeSamples, LeaveNothingInWhatRemembersNoOutputOfItsOwn)
{
    const Change gated = [](SettingsRecord& record) {
        record.noiseGate = 100;
        record.levelsEnabled = 1;
    };
    for (const float strange : {nan, infinite})
        for (const auto& [render, rate, settings] : {std::tuple{true, 48000U, flat},
                                                     {true, 48000U, binaural},
                                                     {true, 44100U, binaural},
                                                     {false, 16000U, gated},
                                                     {false, 48000U, gated}}) {
            Pair paths(render, rate, settings, strange);
            for (int block = 0; block < aWhile; ++block) {
                paths.run(1);
                EXPECT_TRUE(paths.equal()) << strange << ' ' << render << ' ' << rate << ", block " << block;
            }
        }
}

TEST(StrangeSamples, StayInTheEqualizerUntilABandChanges)
{
    for (const float strange : {nan, infinite}) {
        Pair paths(true, 48000, bands, strange);
        paths.run(aWhile);
        EXPECT_FALSE(paths.hit.isFinite());
        paths.set(otherBand);
        paths.run(2); // the first one fades the old design out
        EXPECT_TRUE(paths.equal());
    }
}

TEST(StrangeSamples, StayInTheRoomAsLongAsThePath)
{
    for (const float strange : {nan, infinite}) {
        const auto room = [](std::uint32_t level) {
            return [level](SettingsRecord& record) {
                record.Settings = 1;
                record.Reverb = level;
            };
        };
        Pair paths(true, 48000, room(200), strange);
        paths.run(aWhile);
        EXPECT_FALSE(paths.hit.isFinite());
        paths.set(room(0));
        paths.run(aWhile);
        paths.set(otherBand); // the equaliser has heard the room
        paths.run(aWhile);
        EXPECT_TRUE(paths.equal()) << "without its room";
        paths.set(room(200));
        paths.run(aWhile);
        EXPECT_FALSE(paths.hit.isFinite()) << "with it again";
        EXPECT_TRUE(paths.untouched.isFinite());
    }
}

TEST(StrangeSamples, LeaveNoiseReductionWithinFourBlocks)
{
    const auto reduction = [](std::uint8_t on) { return [on](SettingsRecord& record) { record.MicNR = on; }; };
    for (const std::uint32_t rate : {16000U, 48000U})
        for (const float strange : {nan, infinite}) {
            Pair paths(false, rate, reduction(1), strange);
            paths.run(4);
            EXPECT_TRUE(paths.hit.isFinite()) << rate;
            paths.run(aWhile);
            EXPECT_TRUE(paths.hit.isFinite()) << rate;
            paths.set(reduction(0));
            paths.run(aWhile);
            EXPECT_TRUE(paths.equal()) << rate;
        }
}

TEST(StrangeSamples, StayInTheMicrophonesCurveUntilItChanges)
{
    const auto curve = [](std::uint32_t which) { return [which](SettingsRecord& record) { record.micEq = which; }; };
    for (const std::uint32_t rate : {16000U, 48000U})
        for (const std::uint32_t other : {0U, 2U})
            for (const float strange : {nan, infinite}) {
                Pair paths(false, rate, curve(1), strange);
                paths.run(aWhile);
                EXPECT_FALSE(paths.hit.isFinite()) << rate;
                paths.set(curve(other));
                paths.run(aWhile);
                EXPECT_TRUE(paths.equal()) << rate << ' ' << other;
            }
}

// The limiter's envelope falls by some decibels a second, and begins 600 dB too high.
TEST(StrangeSamples, FarTooLoudCloseTheLimiterAsLongAsThePath)
{
    Pair paths(true, 48000, flat, 1e30F);
    EXPECT_TRUE(paths.hit.isFinite());
    paths.run(1000);
    paths.set(otherBand);
    paths.run(aWhile);
    EXPECT_LT(paths.hit.energy(), 1e-6 * paths.untouched.energy());
}

} // namespace
} // namespace quorel
