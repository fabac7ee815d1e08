// SPDX-License-Identifier: MIT
#include "tests/model/session.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <numbers>
#include <set>

namespace quorel::model {
namespace {

// FNV-1a over everything that a session hands out.
std::uint64_t fingerprint(Session session, int blocks)
{
    std::uint64_t hash = 14695981039346656037ULL;
    const auto add = [&](std::uint64_t value) {
        for (int byte = 0; byte < 8; ++byte, value >>= 8)
            hash = (hash ^ (value & 0xFF)) * 1099511628211ULL;
    };
    for (int b = 0; b < blocks; ++b) {
        session.next();
        add(session.frames());
        const RecordFields& fields = session.fields();
        add(fields.newRecord);
        add(fields.blockSequence);
        add(fields.Settings);
        add(fields.Reverb);
        for (const std::int32_t band : fields.EQBand)
            add(static_cast<std::uint32_t>(band));
        add(fields.micEq);
        add(fields.noiseGate);
        for (std::size_t i = 0; i < session.frames() * 2; ++i)
            add(std::bit_cast<std::uint32_t>(session.samples()[i]));
    }
    return hash;
}

TEST(Session, SinesArePolynomialsCloseToTheFunction)
{
    for (int i = 0; i < 1000; ++i) {
        const double turn = i / 1000.0;
        EXPECT_NEAR(sineOfTurn(turn), std::sin(2.0 * std::numbers::pi * turn), 1e-11);
    }
}

TEST(Session, ASeedGivesOneSessionOnEveryPlatform)
{
    SessionOptions options;
    options.seed = 42;
    options.failingBlocks = true;
    // Written down from one platform, so that the others are compared with it.
    EXPECT_EQ(fingerprint(Session(options), 300), 15913618264344283437ULL);
    options.seed = 43;
    EXPECT_NE(fingerprint(Session(options), 300), 15913618264344283437ULL);
}

TEST(Session, BlocksThatPassHaveEveryLengthButThoseOfThePreDelays)
{
    SessionOptions options;
    Session session(options);
    std::size_t shortest = 848;
    std::size_t longest = 0;
    std::set<std::size_t> lengths;
    for (int b = 0; b < 3000; ++b) {
        session.next();
        ASSERT_NE(session.frames(), 48u);
        ASSERT_NE(session.frames(), 64u);
        shortest = std::min(shortest, session.frames());
        longest = std::max(longest, session.frames());
        lengths.insert(session.frames());
    }
    EXPECT_GE(shortest, 1u);
    EXPECT_LE(shortest, 10u);
    EXPECT_LE(longest, 848u);
    EXPECT_GE(longest, 838u);
    EXPECT_GT(lengths.size(), 100u);
}

TEST(Session, FailingBlocksComeWhereTheyAreAskedFor)
{
    SessionOptions options;
    options.failingBlocks = true;
    Session session(options);
    bool seen[4] = {};
    for (int b = 0; b < 1000; ++b) {
        session.next();
        seen[0] = seen[0] || session.frames() == 0;
        seen[1] = seen[1] || session.frames() == 48;
        seen[2] = seen[2] || session.frames() == 64;
        seen[3] = seen[3] || session.frames() > 848;
    }
    for (const bool one : seen)
        EXPECT_TRUE(one);
}

TEST(Session, WithAHopMostBlocksAreWholeNumbersOfIt)
{
    SessionOptions options;
    options.hop = 240;
    options.maxBlock = 960;
    Session session(options);
    int whole = 0;
    for (int b = 0; b < 2000; ++b) {
        session.next();
        EXPECT_LE(session.frames(), 960u);
        whole += session.frames() % 240 == 0;
    }
    EXPECT_GT(whole, 1200);
    EXPECT_LT(whole, 2000);
}

TEST(Session, RecordsChangeEveryFieldAndSomeAreNoNews)
{
    SessionOptions options;
    options.deliveredSets = true;
    options.refusedRecords = true;
    Session session(options);
    std::set<int> settings;
    std::set<std::uint32_t> reverbs;
    std::set<std::uint32_t> curves;
    std::set<std::uint32_t> gates;
    std::set<const float*> sets;
    int records = 0;
    int noNews = 0;
    int refused = 0;
    std::uint32_t last = 0;
    for (int b = 0; b < 8000; ++b) {
        session.next();
        const RecordFields& fields = session.fields();
        if (!fields.newRecord)
            continue;
        ++records;
        noNews += fields.blockSequence == last;
        last = fields.blockSequence;
        settings.insert(fields.Settings);
        reverbs.insert(fields.Reverb);
        curves.insert(std::min(fields.micEq, 3u));
        gates.insert(fields.noiseGate);
        sets.insert(fields.hrtfData);
        refused += fields.hrtfChannels == 3;
    }
    EXPECT_GT(records, 300);
    EXPECT_GT(noNews, 0);
    EXPECT_GT(refused, 0);
    EXPECT_EQ(settings.size(), 2u);
    EXPECT_GT(reverbs.size(), 20u);
    EXPECT_EQ(curves.size(), 4u);
    EXPECT_GT(gates.size(), 20u);
    EXPECT_EQ(sets.size(), 5u); // none, and each of the four
}

TEST(Session, ProgrammeGoesFromSilenceToTheLoudestAndNeverBeyond)
{
    SessionOptions options;
    options.recordEvery = 0;
    Session session(options);
    float peak = 0.0f;
    int silent = 0;
    for (int b = 0; b < 3000; ++b) {
        session.next();
        EXPECT_FALSE(session.fields().newRecord);
        float loudest = 0.0f;
        for (std::size_t i = 0; i < session.frames() * 2; ++i)
            loudest = std::max(loudest, std::fabs(session.samples()[i]));
        silent += loudest == 0.0f;
        peak = std::max(peak, loudest);
    }
    EXPECT_GT(silent, 0);
    EXPECT_LE(peak, 3.9810717f);
    EXPECT_GT(peak, 2.5f);
}

} // namespace
} // namespace quorel::model
