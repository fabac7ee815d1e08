// SPDX-License-Identifier: MIT
// The effect's own rule for formats.
#include "host/format_rules.h"

#include "tests/host/engine.h"

#include <cmath>
#include <limits>

namespace quorel {
namespace {

bool captures(DWORD channels, FLOAT rate, DWORD mask = 0)
{
    const auto both = floatFormat(channels, rate, mask);
    return admits(EndpointKind::capture, both, both);
}

bool renders(DWORD channels, FLOAT rate, DWORD mask)
{
    const auto both = floatFormat(channels, rate, mask);
    return admits(EndpointKind::render, both, both);
}

TEST(FormatRules, CaptureTakesMonoAtTwoRates)
{
    EXPECT_TRUE(captures(1, 16000.0F));
    EXPECT_TRUE(captures(1, 48000.0F));
    for (const FLOAT rate : {8000.0F, 44100.0F, 96000.0F, 0.0F, -16000.0F})
        EXPECT_FALSE(captures(1, rate)) << rate;
    for (const DWORD channels : {0U, 2U, 8U})
        EXPECT_FALSE(captures(channels, 48000.0F)) << channels;
}

TEST(FormatRules, CaptureTakesAnySpeakers)
{
    for (const DWORD mask : {0U, 3U, 4U, 0x63FU, 0xFFFFFFFFU})
        EXPECT_TRUE(captures(1, 16000.0F, mask)) << mask;
}

TEST(FormatRules, RenderTakesSurroundAtItsRateAlone)
{
    EXPECT_TRUE(renders(8, 48000.0F, 0x63F));
    for (const FLOAT rate : {44100.0F, 96000.0F, 16000.0F, 47999.0F, 48001.0F})
        EXPECT_FALSE(renders(8, rate, 0x63F)) << rate;
    for (const DWORD mask : {0U, 3U, 0x3FU, 0x60FU, 0xFFU})
        EXPECT_FALSE(renders(8, 48000.0F, mask)) << mask;
}

TEST(FormatRules, RenderTakesStereoAtItsRateAlone)
{
    EXPECT_TRUE(renders(2, 96000.0F, 3));
    for (const FLOAT rate : {44100.0F, 48000.0F, 192000.0F, 95999.0F, 96001.0F})
        EXPECT_FALSE(renders(2, rate, 3)) << rate;
    EXPECT_FALSE(renders(8, 96000.0F, 0x63F));
}

// Required: the speakers aren't counted.
TEST(FormatRules, RenderTakesAnyChannelsForItsSpeakers)
{
    for (const DWORD channels : {0U, 1U, 6U, 8U, 4096U}) {
        EXPECT_TRUE(renders(channels, 48000.0F, 0x63F)) << channels;
        EXPECT_TRUE(renders(channels, 96000.0F, 3)) << channels;
    }
}

// Required: render drops a rate's fraction, capture doesn't.
TEST(FormatRules, AFractionalRatePassesOnRenderAndFailsOnCapture)
{
    EXPECT_TRUE(renders(8, 48000.5F, 0x63F));
    EXPECT_TRUE(renders(8, std::nextafter(48001.0F, 0.0F), 0x63F));
    EXPECT_TRUE(renders(2, 96000.5F, 3));
    EXPECT_FALSE(renders(8, std::nextafter(48000.0F, 0.0F), 0x63F));
    EXPECT_FALSE(captures(1, 48000.5F));
    EXPECT_FALSE(captures(1, 16000.5F));
}

TEST(FormatRules, ARateThatIsNoNumberFails)
{
    for (const auto rate : {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity()}) {
        EXPECT_FALSE(captures(1, rate));
        EXPECT_FALSE(renders(8, rate, 0x63F));
    }
}

TEST(FormatRules, SamplesMustHave32BitsIn4Bytes)
{
    auto both = voiceFormat();
    both.dwValidBitsPerSample = 24;
    EXPECT_FALSE(admits(EndpointKind::capture, both, both));
    both = voiceFormat();
    both.dwBytesPerSampleContainer = 8;
    EXPECT_FALSE(admits(EndpointKind::capture, both, both));
}

// Required: the rule doesn't look at the format's type.
TEST(FormatRules, IntegerSamplesPass)
{
    auto both = surroundFormat();
    both.guidFormatType = KSDATAFORMAT_SUBTYPE_PCM;
    EXPECT_TRUE(admits(EndpointKind::render, both, both));
}

TEST(FormatRules, BothSidesMustAgreeInEveryFieldButTheType)
{
    const auto one = surroundFormat();
    const auto differs = [&one](auto change) {
        auto other = one;
        change(other);
        EXPECT_FALSE(admits(EndpointKind::render, one, other));
        EXPECT_FALSE(admits(EndpointKind::render, other, one));
    };
    differs([](auto& f) { f.dwSamplesPerFrame = 6; });
    differs([](auto& f) { f.dwBytesPerSampleContainer = 3; });
    differs([](auto& f) { f.dwValidBitsPerSample = 24; });
    differs([](auto& f) { f.fFramesPerSecond = 48000.5F; });
    differs([](auto& f) { f.dwChannelMask = 3; });

    auto other = one;
    other.guidFormatType = KSDATAFORMAT_SUBTYPE_PCM;
    EXPECT_TRUE(admits(EndpointKind::render, one, other));
}

} // namespace
} // namespace quorel
