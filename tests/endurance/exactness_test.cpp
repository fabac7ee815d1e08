// SPDX-License-Identifier: MIT
// The same sound gives the same bytes at every run and beside other streams, and on every kind of processor the same but for
// what nobody hears.
#include "core/kernels/select.h"
#include "core/signal_path.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <thread>
#include <vector>

namespace quorel {
namespace {

// Two seconds of noise in bursts through a path with every stage on: the two channels that are heard.
std::vector<float> heard(bool render, std::uint32_t seed)
{
    constexpr std::uint64_t n = 480; // frames of a block
    SignalPath path =
        render ? SignalPath(SignalPath::Speaker{}, 8, 0x63F, n, 48000) : SignalPath(SignalPath::Microphone{}, 2, 0, n, 48000);
    SettingsRecord& record = *path->settings();
    record.Settings = 1;
    record.Reverb = 150;
    record.EQBand = {60, -60, 30, 0, -30, 60, 0, 30, -60};
    record.MicNR = 1;
    record.micEq = 1;
    record.noiseGate = 60;
    record.blockSequence = 1;
    record.applied = 0;

    const std::size_t channels = render ? 8 : 2;
    const std::size_t slots = channels;
    std::mt19937 random(seed);
    std::vector<float> in(n * channels);
    std::vector<float> out(n * slots);
    std::vector<float> both;
    for (int block = 0; block < 200; ++block) {
        const float scale = block / 20 % 2 == 0 ? 0.5F : 0.01F;
        for (float& x : in)
            x = scale * (static_cast<float>(random()) * 0x1p-31F - 1);
        path->process(in.data(), n, out.data(), n);
        for (std::size_t i = 0; i < n; ++i)
            both.insert(both.end(), {out[i * slots], out[i * slots + 1]});
    }
    return both;
}

TEST(Exactness, StreamsBesideEachOtherGiveWhatEachGivesAlone)
{
    for (const bool render : {true, false}) {
        std::vector<std::vector<float>> alone;
        for (std::uint32_t seed = 1; seed <= 16; ++seed)
            alone.push_back(heard(render, seed));
        EXPECT_NE(alone[0], alone[1]);
        for (const std::uint32_t count : {1U, 2U, 4U, 16U}) {
            std::vector<std::vector<float>> together(count);
            std::vector<std::thread> threads;
            for (std::uint32_t stream = 0; stream < count; ++stream)
                threads.emplace_back([&, stream] { together[stream] = heard(render, stream + 1); });
            for (std::thread& thread : threads)
                thread.join();
            for (std::uint32_t stream = 0; stream < count; ++stream)
                EXPECT_TRUE(together[stream] == alone[stream]) << render << ", stream " << stream << " of " << count;
        }
    }
}

// 110 dB: the roundings of single precision are 150 dB below full scale each, and some thousand of them meet in a sample.
TEST(Exactness, InstructionSetsAgreeTo110Decibels)
{
    for (const bool render : {true, false}) {
        std::vector<std::vector<float>> all;
        for (const kernels::KernelTable* table : kernels::availableVariants()) {
            const kernels::ForcedVariant forced(*table);
            all.push_back(heard(render, 1));
        }
        for (std::size_t variant = 1; variant < all.size(); ++variant) {
            double sound = 0;
            double apart = 0;
            for (std::size_t i = 0; i < all[0].size(); ++i) {
                const double x = all[0][i];
                const double y = all[variant][i];
                sound += x * x;
                apart += (x - y) * (x - y);
            }
            EXPECT_GT(sound, 1);
            EXPECT_LT(apart, 1e-11 * sound) << render << ", variant " << variant << ": " << 10 * std::log10(sound / apart)
                                            << " dB";
        }
    }
}

} // namespace
} // namespace quorel
