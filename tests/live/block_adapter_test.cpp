// SPDX-License-Identifier: MIT
#include "live/block_adapter.h"

#include "live/block_plan.h"
#include "tests/support/failure.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <numeric>
#include <random>
#include <vector>

namespace quorel {
namespace {

constexpr std::uint32_t longestQuantum = 8192; // frames, the most that the server can be set to

// Whether the reverb's two pre-delays, or the effect's limits, forbid a block of so many frames: by the rule as it is told.
bool allowed(std::uint32_t frames)
{
    return frames >= 16 && frames <= 848 && frames != 48 && frames != 64;
}

TEST(BlockPlan, IsTheLargestAllowedDivisorOfAnyQuantum)
{
    for (std::uint32_t quantum = 1; quantum <= longestQuantum; ++quantum) {
        std::uint32_t largest = 0;
        for (std::uint32_t frames = 1; frames <= quantum; ++frames)
            if (quantum % frames == 0 && allowed(frames))
                largest = frames;
        const BlockPlan plan = speakerPlan(quantum, false);
        if (largest != 0) {
            EXPECT_EQ(plan, (BlockPlan{largest, 0})) << quantum;
        } else {
            EXPECT_EQ(plan, (BlockPlan{256, 256 - std::gcd(quantum, 256U)})) << quantum;
        }
    }
}

TEST(BlockPlan, SplitsTheRefusedLengthsWithoutDelay)
{
    EXPECT_EQ(speakerPlan(48, false), (BlockPlan{24, 0}));
    EXPECT_EQ(speakerPlan(64, false), (BlockPlan{32, 0}));
    EXPECT_EQ(speakerPlan(1024, false), (BlockPlan{512, 0}));
    EXPECT_EQ(speakerPlan(480, false), (BlockPlan{480, 0}));
}

TEST(BlockPlan, GathersWhereEveryCallMayDiffer)
{
    EXPECT_EQ(speakerPlan(470, true), (BlockPlan{256, 255}));
}

TEST(BlockPlan, MakesAMicrophoneTwoHundredAndTwentyFourFramesLate)
{
    for (const std::uint32_t quantum : {128U, 256U, 512U, 1024U}) // of these, 16 is the common divisor with 240
        EXPECT_EQ(gatheringDelay(quantum, microphoneBlock), 224U) << quantum;
    EXPECT_EQ(gatheringDelay(480, microphoneBlock), 0U);
}

// An effect whose output depends on how its input is cut into blocks: every sample bears its block's number and the last
// sample of the block before. Integers below 2^24 throughout, so that sums are exact.
class CuttingEffect {
public:
    CuttingEffect(std::uint32_t channels, std::uint32_t slots, std::uint32_t block)
        : channels(channels), slots(slots), block(block)
    {
    }

    void operator()(const float* in, float* out)
    {
        ++number;
        for (std::uint32_t i = 0; i < block; ++i)
            for (std::uint32_t c = 0; c < slots; ++c)
                out[i * slots + c] = in[i * channels + c % channels] + number + last + static_cast<float>(c);
        last = in[(block - 1) * channels];
    }

private:
    std::uint32_t channels;
    std::uint32_t slots;
    std::uint32_t block;
    float number = 0;
    float last = 0;
};

// Rows of frames, each sample telling its frame and row, from 1 on.
std::vector<std::vector<float>> rowsOf(std::uint32_t count, std::size_t frames)
{
    std::vector<std::vector<float>> rows(count, std::vector<float>(frames));
    for (std::uint32_t c = 0; c < count; ++c)
        for (std::size_t i = 0; i < frames; ++i)
            rows[c][i] = static_cast<float>(i % 1000000 + 1 + c * 1000000);
    return rows;
}

// Everything that the adapter gives for the rows, in calls of these lengths.
template <typename Effect>
std::vector<std::vector<float>> through(BlockAdapter& adapter, Effect& effect, const std::vector<std::vector<float>>& in,
                                        std::uint32_t kept, const std::vector<std::uint32_t>& lengths)
{
    std::vector<std::vector<float>> out(kept, std::vector<float>(in[0].size(), -1.0F));
    std::array<const float*, 8> from{};
    std::array<float*, 8> to{};
    std::size_t done = 0;
    for (const std::uint32_t n : lengths) {
        for (std::size_t c = 0; c < in.size(); ++c)
            from[c] = in[c].data() + done;
        for (std::size_t c = 0; c < kept; ++c)
            to[c] = out[c].data() + done;
        adapter.process(from.data(), to.data(), n, effect);
        done += n;
    }
    return out;
}

// The same in whole blocks, as a file is processed: one row of what is kept.
template <typename Effect>
std::vector<float> offline(Effect& effect, const std::vector<std::vector<float>>& in, std::uint32_t slots, std::uint32_t row,
                           std::uint32_t block)
{
    const auto channels = in.size();
    std::vector<float> x(block * channels);
    std::vector<float> y(std::size_t{block} * slots);
    std::vector<float> out;
    for (std::size_t done = 0; done + block <= in[0].size(); done += block) {
        for (std::size_t i = 0; i < block; ++i)
            for (std::size_t c = 0; c < channels; ++c)
                x[i * channels + c] = in[c][done + i];
        effect(x.data(), y.data());
        for (std::size_t i = 0; i < block; ++i)
            out.push_back(y[i * slots + row]);
    }
    return out;
}

// Behind `delay` zeros `got` is the beginning of `whole`: no frame is missing that whole blocks could give.
void expectLate(const std::vector<float>& got, std::vector<float> whole, std::uint32_t delay, std::uint32_t quantum)
{
    whole.insert(whole.begin(), delay, 0.0F);
    ASSERT_GE(whole.size(), got.size()) << "quantum " << quantum;
    const auto differs = std::mismatch(got.begin(), got.end(), whole.begin()).first;
    ASSERT_TRUE(differs == got.end()) << "quantum " << quantum << ", frame " << differs - got.begin();
}

// Three calls, and as many more as it takes to see the common period of small quanta and blocks.
std::uint32_t callsOf(std::uint32_t quantum, std::uint32_t block)
{
    return std::max(3U, 3 * block / quantum + 2);
}

template <typename Plan>
void expectTheOfflineSamples(std::uint32_t channels, std::uint32_t slots, std::uint32_t kept, Plan plan)
{
    const auto all = rowsOf(channels, 4 * longestQuantum);
    for (std::uint32_t quantum = 1; quantum <= longestQuantum; ++quantum) {
        const BlockPlan blocks = plan(quantum);
        const std::uint32_t calls = callsOf(quantum, blocks.block);
        std::vector<std::vector<float>> in;
        for (const auto& row : all)
            in.emplace_back(row.begin(), row.begin() + quantum * calls);

        BlockAdapter adapter(channels, slots, kept, blocks.block, blocks.delay);
        CuttingEffect live(channels, slots, blocks.block);
        const auto out = through(adapter, live, in, kept, std::vector<std::uint32_t>(calls, quantum));
        EXPECT_EQ(adapter.delay(), blocks.delay) << quantum;
        for (std::uint32_t row = 0; row < kept; ++row) {
            CuttingEffect file(channels, slots, blocks.block);
            expectLate(out[row], offline(file, in, slots, row, blocks.block), blocks.delay, quantum);
            if (testing::Test::HasFatalFailure())
                return;
        }
    }
}

TEST(BlockAdapter, GivesTheOfflineSlicesAtEveryQuantum)
{
    expectTheOfflineSamples(2, 3, 2, [](std::uint32_t quantum) { return speakerPlan(quantum, false); });
}

TEST(BlockAdapter, GivesTheOfflineMicrophoneBlocksAtEveryQuantum)
{
    expectTheOfflineSamples(1, 1, 1, [](std::uint32_t quantum) {
        return BlockPlan{microphoneBlock, gatheringDelay(quantum, microphoneBlock)};
    });
}

TEST(BlockAdapter, GivesEveryFrameOnceWhateverTheCalls)
{
    std::minstd_rand random(1);
    for (int round = 0; round < 200; ++round) {
        std::vector<std::uint32_t> lengths;
        std::size_t frames = 0;
        while (frames < 20000) {
            const auto calls = static_cast<std::uint32_t>(1 + random() % 4);
            const auto n = static_cast<std::uint32_t>(random() % 1500);
            lengths.insert(lengths.end(), calls, n);
            frames += std::size_t{calls} * n;
        }
        const auto in = rowsOf(1, frames);
        BlockAdapter adapter(1, 1, 1, microphoneBlock, 0);
        const auto same = [](const float* x, float* y) { std::copy_n(x, microphoneBlock, y); };
        const auto out = through(adapter, same, in, 1, lengths);

        float expected = 0;
        std::uint32_t silent = 0;
        for (const float y : out[0])
            if (y == 0.0F) {
                ++silent;
            } else {
                ASSERT_EQ(y, ++expected) << "round " << round;
            }
        // What is missing at the end waits behind the told delay, which never passes a block less one frame.
        EXPECT_EQ(silent, adapter.delay());
        EXPECT_EQ(static_cast<std::size_t>(expected), frames - adapter.delay());
        EXPECT_LT(adapter.delay(), microphoneBlock);
    }
}

TEST(BlockAdapter, AddsDelayOnlyWhereALengthNeedsMore)
{
    BlockAdapter adapter(1, 1, 1, 240, 0);
    const auto same = [](const float* x, float* y) { std::copy_n(x, 240, y); };
    const auto in = rowsOf(1, 4096);
    const auto after = [&](std::uint32_t n) {
        through(adapter, same, in, 1, {n, n});
        return adapter.delay();
    };
    EXPECT_EQ(after(480), 0U);
    EXPECT_EQ(after(96), 192U);   // 240 - gcd(96, 240)
    EXPECT_EQ(after(480), 192U);  // it never shrinks
    EXPECT_EQ(after(1024), 224U); // 240 - gcd(1024, 240), and 192 frames gathered, a multiple of 16
}

TEST(BlockAdapter, FinishesWithWhatIsThereAndNoMoreDelay)
{
    const auto in = rowsOf(1, 400);
    std::vector<float> out(400, -1.0F);
    BlockAdapter adapter(1, 1, 1, 256, 0);
    const auto same = [](const float* x, float* y) { std::copy_n(x, 256, y); };
    const float* from = in[0].data();
    float* to = out.data();
    adapter.finish(&from, &to, 400, same); // a whole block, and 144 frames of one
    EXPECT_EQ(out, in[0]);
    EXPECT_EQ(adapter.delay(), 0U);
}

TEST(BlockAdapter, RefusesADelayOfAWholeBlock)
{
    EXPECT_EQ((failureText<std::invalid_argument>([] { BlockAdapter(1, 1, 1, 240, 240); })), "BlockAdapter: delay too long");
}

} // namespace
} // namespace quorel
