// SPDX-License-Identifier: MIT
// The speaker path against the independent model in double precision, over long random sessions: every layout and every
// variant of the kernels, block lengths and settings that change at random.
#include "core/kernels/select.h"
#include "core/signal_path.h"
#include "speaker/hrtf_tables.h"
#include "speaker/xcorr_tables.h"
#include "tests/model/agreement.h"
#include "tests/model/session.h"
#include "tests/model/speaker_model.h"
#include "tests/support/failure.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

namespace quorel {
namespace {

constexpr std::uint32_t maxFrames = 848;
constexpr std::size_t second = 48000; // frames

// A variant of the kernels with a path of its own.
struct Candidate {
    const kernels::KernelTable* variant;
    SignalPath path;
    model::Agreement agreement{4800};
};

// The compiled tables, as the model takes them.
model::SpeakerTables compiledTables()
{
    const auto whole = [](const EarResponse& response) {
        model::Signal taps(response.onset, 0.0);
        taps.insert(taps.end(), response.taps.begin(), response.taps.end());
        return taps;
    };
    model::SpeakerTables tables;
    for (std::size_t s = 0; s < speakerResponses.size(); ++s) {
        tables.left[s] = whole(speakerResponses[s].left);
        tables.right[s] = whole(speakerResponses[s].right);
    }
    tables.sameSide.assign(sameSideTaps.begin(), sameSideTaps.end());
    tables.crossSide.assign(crossSideTaps.begin(), crossSideTaps.end());
    return tables;
}

// What the settings poll does, for a record of the model's.
void deliver(const model::RecordFields& fields, SettingsRecord& record)
{
    if (!fields.newRecord)
        return;
    record.applied = 0;
    record.blockSequence = fields.blockSequence;
    record.Settings = fields.Settings;
    record.EQBand = fields.EQBand;
    record.Reverb = fields.Reverb;
    record.hrtfId = fields.hrtfId;
    record.hrtfLength = fields.hrtfLength;
    record.hrtfChannels = fields.hrtfChannels;
    record.hrtfData = fields.hrtfData;
}

// Runs all variants beside the model over one session of `frames` frames.
void compare(std::uint32_t mask, const model::SessionOptions& options, std::size_t frames)
{
    SCOPED_TRACE("mask " + std::to_string(mask) + ", seed " + std::to_string(options.seed));
    const auto channels = static_cast<std::int32_t>(options.channels);
    std::vector<Candidate> candidates;
    for (const kernels::KernelTable* variant : kernels::availableVariants()) {
        const kernels::ForcedVariant forced(*variant);
        candidates.push_back({variant, SignalPath(SignalPath::Speaker{}, channels, mask, maxFrames, 48000)});
    }

    model::SpeakerModel reference(options.channels, mask, maxFrames, 48000, compiledTables());
    model::Session session(options);
    std::vector<float> out;
    for (std::size_t done = 0; done < frames; done += session.frames()) {
        session.next();
        const auto n = session.frames();
        model::Signal expected;
        const std::string failure = failureText([&] { expected = reference.process(session.fields(), session.samples(), n); });
        for (Candidate& candidate : candidates) {
            const kernels::ForcedVariant forced(*candidate.variant);
            std::vector<float> in(session.samples(), session.samples() + n * options.channels);
            out.assign(n * 8 + 8, 0.0F);
            deliver(session.fields(), *candidate.path->settings());
            ASSERT_EQ(failureText([&] { candidate.path->process(in.data(), n, out.data(), n); }), failure)
                << candidate.variant->name << " at frame " << done << ", block of " << n;
            if (failure.empty())
                candidate.agreement.add(expected, out.data(), 2, 8);
        }
    }
    for (const Candidate& candidate : candidates) {
        // What is promised, and for 100 ms alone what roundings beside the session's loudest sound leave of it.
        EXPECT_GE(candidate.agreement.decibels(), 130.0) << candidate.variant->name;
        EXPECT_GE(candidate.agreement.worstWindowDb(), 115.0)
            << candidate.variant->name << " at frame " << candidate.agreement.worstWindowStart();
        testing::Test::RecordProperty(std::string(candidate.variant->name) + "_dB",
                                      std::to_string(candidate.agreement.decibels()));
        std::printf("  %zu channels, %-8s  %.1f dB, worst 100 ms %.1f dB\n", options.channels, candidate.variant->name,
                    candidate.agreement.decibels(), candidate.agreement.worstWindowDb());
    }
}

struct Layout {
    std::size_t channels;
    std::uint32_t mask;
};

// At least one layout of each channel count, and with each speaker.
constexpr std::array<Layout, 10> layouts = {
    {{1, 0x4}, {1, 0x10}, {2, 0x3}, {2, 0x600}, {3, 0x7}, {4, 0x33}, {5, 0x37}, {6, 0x60F}, {7, 0x61F}, {8, 0x63F}}};

class AgainstTheModel : public testing::TestWithParam<Layout> {
protected:
    model::SessionOptions options(std::uint32_t seed) const
    {
        model::SessionOptions chosen;
        chosen.seed = seed;
        chosen.channels = GetParam().channels;
        return chosen;
    }
};

INSTANTIATE_TEST_SUITE_P(Layout, AgainstTheModel, testing::ValuesIn(layouts), [](const auto& layout) {
    return std::to_string(layout.param.channels) + "Channels" + std::to_string(layout.param.mask);
});

TEST_P(AgainstTheModel, ALongSessionAgreesTo130Decibels)
{
    compare(GetParam().mask, options(1), 10 * second);
}

TEST_P(AgainstTheModel, ManySettingsAndDeliveredResponsesAgreeTo130Decibels)
{
    auto session = options(2);
    session.recordEvery = 3;
    session.deliveredSets = true;
    compare(GetParam().mask, session, 5 * second);
}

TEST_P(AgainstTheModel, FailingBlocksAndRefusedRecordsFailInTheSameWords)
{
    auto session = options(3);
    session.recordEvery = 5;
    session.deliveredSets = true;
    session.failingBlocks = true;
    session.refusedRecords = true;
    compare(GetParam().mask, session, 5 * second);
}

} // namespace
} // namespace quorel
