// SPDX-License-Identifier: MIT
// The capture path against the independent model in double precision, over long random sessions: both rates, several channel
// counts and every variant of the kernels, settings that change at random, blocks that are whole hops and blocks that are not.
#include "core/kernels/select.h"
#include "core/signal_path.h"
#include "microphone/window_tables.h"
#include "tests/model/agreement.h"
#include "tests/model/microphone_follower.h"
#include "tests/model/session.h"
#include "tests/support/failure.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

namespace quorel {
namespace {

constexpr std::uint32_t maxFrames = 960; // whole hops at both rates

// A variant of the kernels with a path of its own and the model that goes with it through close comparisons.
struct Candidate {
    const kernels::KernelTable* variant;
    SignalPath path;
    model::MicrophoneFollower follower;
    model::Agreement agreement;
    double levelError = 0.0; // dB, the largest so far
};

model::MicrophoneWindows windowsOf(std::uint32_t rate)
{
    const auto samples = [](const auto& table) { return std::vector<float>(table.begin(), table.end()); };
    if (rate == 16000)
        return {samples(analysisWindow16000), samples(synthesisWindow16000)};
    return {samples(analysisWindow48000), samples(synthesisWindow48000)};
}

// What the settings poll does, for a record of the model's.
void deliver(const model::RecordFields& fields, SettingsRecord& record)
{
    if (!fields.newRecord)
        return;
    record.applied = 0;
    record.blockSequence = fields.blockSequence;
    record.MicNR = fields.MicNR;
    record.micEq = fields.micEq;
    record.noiseGate = fields.noiseGate;
    record.levelsEnabled = fields.levelsEnabled;
}

struct Course {
    std::uint32_t rate;
    std::size_t channels;
    model::SessionOptions options;
    double seconds;
    bool everythingOn;       // noise reduction, levels and, where there are curves, a curve, from the first block on
    double decibels = 100.0; // least signal to error
};

void compare(Course run)
{
    run.options.channels = run.channels;
    run.options.sampleRate = run.rate;
    run.options.hop = run.rate / 200;
    run.options.maxBlock = maxFrames;
    SCOPED_TRACE(std::to_string(run.rate) + " Hz, " + std::to_string(run.channels) + " channels, seed " +
                 std::to_string(run.options.seed));
    std::vector<Candidate> candidates;
    for (const kernels::KernelTable* variant : kernels::availableVariants()) {
        const kernels::ForcedVariant forced(*variant);
        candidates.push_back(
            {variant, SignalPath(SignalPath::Microphone{}, static_cast<std::int32_t>(run.channels), 0, maxFrames, run.rate),
             model::MicrophoneFollower(run.channels, maxFrames, run.rate, windowsOf(run.rate)), model::Agreement(run.rate / 10)});
    }

    model::Session session(run.options);
    std::vector<float> out;
    const auto frames = static_cast<std::size_t>(run.seconds * run.rate);
    for (std::size_t done = 0; done < frames; done += session.frames()) {
        session.next();
        const auto n = session.frames();
        model::RecordFields fields = session.fields();
        if (run.everythingOn) {
            fields.newRecord = fields.newRecord || done == 0;
            fields.MicNR = 1;
            fields.levelsEnabled = 1;
            if (run.options.curves && fields.micEq < 3)
                fields.micEq = fields.micEq % 2 + 1;
        }
        for (Candidate& candidate : candidates) {
            const kernels::ForcedVariant forced(*candidate.variant);
            std::vector<float> in(session.samples(), session.samples() + n * run.channels);
            out.assign(n * run.channels, 0.0F);
            deliver(fields, *candidate.path->settings());
            const std::string failure = failureText([&] { candidate.path->process(in.data(), n, out.data(), n); });
            model::Signal expected;
            ASSERT_EQ(failure, failureText([&] {
                          expected =
                              candidate.follower.process(fields, session.samples(), n, out.data(), candidate.path->levels());
                      }))
                << candidate.variant->name << " at frame " << done << ", block of " << n;
            if (!failure.empty())
                continue;
            candidate.agreement.add(expected, out.data(), run.channels, run.channels);
            for (std::size_t k = 0; k < 9; ++k) {
                const double error = std::abs(candidate.follower.levels()[k] - double{candidate.path->levels()[k]});
                candidate.levelError = error <= candidate.levelError ? candidate.levelError : error;
            }
        }
    }
    for (const Candidate& candidate : candidates) {
        std::printf("  %u Hz, %zu channels, %-8s  %.1f dB, worst 100 ms %.1f dB, levels %.1e dB, %zu close comparisons\n",
                    run.rate, run.channels, candidate.variant->name, candidate.agreement.decibels(),
                    candidate.agreement.worstWindowDb(), candidate.levelError, candidate.follower.closeComparisons());
        EXPECT_LT(candidate.agreement.decibels(), 200.0) << "nothing has happened";
        EXPECT_GE(candidate.agreement.decibels(), run.decibels) << candidate.variant->name;
        EXPECT_LE(candidate.levelError, 0.01) << candidate.variant->name;
    }
}

class AgainstTheModel : public testing::TestWithParam<std::pair<std::uint32_t, std::size_t>> {
protected:
    Course course(std::uint32_t seed, double seconds) const
    {
        Course chosen{};
        chosen.rate = GetParam().first;
        chosen.channels = GetParam().second;
        chosen.options.seed = seed;
        chosen.options.recordEvery = 6;
        chosen.seconds = seconds / static_cast<double>(chosen.channels);
        if (const char* longer = std::getenv("QUOREL_LONGER_RUNS")) // a factor; sessions of a minute take minutes each
            chosen.seconds *= std::atof(longer);
        chosen.decibels = 100.0;
        return chosen;
    }
};

INSTANTIATE_TEST_SUITE_P(Capture, AgainstTheModel,
                         testing::Values(std::pair{16000U, 1U}, std::pair{16000U, 2U}, std::pair{16000U, 8U},
                                         std::pair{48000U, 1U}, std::pair{48000U, 2U}, std::pair{48000U, 8U}),
                         [](const auto& shape) {
                             return std::to_string(shape.param.first) + "Hz" + std::to_string(shape.param.second) + "Channels";
                         });

// A bed of noise under everything keeps the model's ways few: in digital silence comparisons are close by the dozen.

TEST_P(AgainstTheModel, NoiseReductionAndLevelsAgreeWithAllThatChangesButCurves)
{
    Course chosen = course(1, 5);
    chosen.options.curves = false;
    chosen.options.bed = 0.001F;
    compare(chosen);
}

TEST_P(AgainstTheModel, NoiseReductionThatIsNeverOffAgreesOverSteadyNoise)
{
    Course chosen = course(2, 12);
    chosen.options.curves = false;
    chosen.options.bed = 0.01F;
    chosen.options.loudest = 1.0F;
    chosen.everythingOn = true;
    compare(chosen);
}

TEST_P(AgainstTheModel, CurvesAgreeAsFarAsTheirPolesLetThem)
{
    Course chosen = course(7, 5); // other seeds meet so many close comparisons at once that the model's ways take half a minute
    chosen.options.bed = 0.001F;
    chosen.decibels = chosen.rate == 16000 ? 90.0 : 70.0;
    chosen.everythingOn = true;
    compare(chosen);
}

TEST_P(AgainstTheModel, BlocksAndRecordsThatAreRefusedFailAlike)
{
    Course chosen = course(4, 3);
    chosen.options.bed = 0.001F;
    chosen.options.failingBlocks = true;
    chosen.options.refusedRecords = true;
    chosen.decibels = chosen.rate == 16000 ? 90.0 : 70.0;
    chosen.everythingOn = true;
    compare(chosen);
}

TEST_P(AgainstTheModel, SilenceAndWhatFollowsItAgree)
{
    Course chosen = course(5, 1);
    chosen.options.curves = false;
    chosen.everythingOn = true;
    compare(chosen);
}

} // namespace
} // namespace quorel
