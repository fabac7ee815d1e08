// SPDX-License-Identifier: MIT
// What any audio processing object does the same way: the general format answers, the properties that it hands out.
#include "host/base_audio_processing_object.h"

#include "host/registration_properties.h"
#include "tests/host/bare_object.h"
#include "tests/host/engine.h"

#include <cmath>
#include <cstring>
#include <limits>

namespace quorel {
namespace {

constexpr FLOAT notANumber = std::numeric_limits<float>::quiet_NaN();

// ---- Correcting a format ----------------------------------------------------------------------------------------------

void expectSame(const UNCOMPRESSEDAUDIOFORMAT& given, const UNCOMPRESSEDAUDIOFORMAT& expected)
{
    EXPECT_TRUE(given.guidFormatType == expected.guidFormatType);
    EXPECT_EQ(given.dwSamplesPerFrame, expected.dwSamplesPerFrame);
    EXPECT_EQ(given.dwBytesPerSampleContainer, expected.dwBytesPerSampleContainer);
    EXPECT_EQ(given.dwValidBitsPerSample, expected.dwValidBitsPerSample);
    EXPECT_EQ(given.fFramesPerSecond, expected.fFramesPerSecond);
    EXPECT_EQ(given.dwChannelMask, expected.dwChannelMask);
}

void expectCorrection(UNCOMPRESSEDAUDIOFORMAT format, const UNCOMPRESSEDAUDIOFORMAT& expected, HRESULT result)
{
    for (const bool isInput : {false, true}) {
        Bare bare;
        auto corrected = format;
        EXPECT_EQ(bare.validateDefaultFormat(corrected, isInput), result);
        expectSame(corrected, expected);
    }
}

TEST(DefaultFormat, AFloatFormatInsideTheLimitsStays)
{
    expectCorrection(surroundFormat(), surroundFormat(), S_OK);
    expectCorrection(floatFormat(1, 10.0F, 0), floatFormat(1, 10.0F, 0), S_OK);
    expectCorrection(floatFormat(4096, 384000.0F, 7), floatFormat(4096, 384000.0F, 7), S_OK);
}

TEST(DefaultFormat, AnotherTypeBecomesFloat)
{
    auto format = surroundFormat();
    format.guidFormatType = KSDATAFORMAT_SUBTYPE_PCM;
    expectCorrection(format, surroundFormat(), S_FALSE);
}

TEST(DefaultFormat, ChannelsAreBroughtInsideTheirLimits)
{
    expectCorrection(floatFormat(0, 48000.0F, 3), floatFormat(1, 48000.0F, 3), S_FALSE);
    expectCorrection(floatFormat(4097, 48000.0F, 3), floatFormat(4096, 48000.0F, 3), S_FALSE);
}

TEST(DefaultFormat, ContainersBecome4Bytes)
{
    auto format = surroundFormat();
    format.dwBytesPerSampleContainer = 3;
    expectCorrection(format, surroundFormat(), S_FALSE);
}

TEST(DefaultFormat, ValidBitsBecome32)
{
    auto format = surroundFormat();
    format.dwValidBitsPerSample = 24;
    expectCorrection(format, surroundFormat(), S_FALSE);
}

TEST(DefaultFormat, RatesAreBroughtInsideTheirLimits)
{
    expectCorrection(voiceFormat(9.5F), voiceFormat(10.0F), S_FALSE);
    expectCorrection(voiceFormat(-1.0F), voiceFormat(10.0F), S_FALSE);
    expectCorrection(voiceFormat(384001.0F), voiceFormat(384000.0F), S_FALSE);
}

TEST(DefaultFormat, ARateThatIsNoNumberStays)
{
    Bare bare;
    auto format = voiceFormat(notANumber);
    EXPECT_EQ(bare.validateDefaultFormat(format, true), S_OK);
    EXPECT_TRUE(std::isnan(format.fFramesPerSecond));
}

// ---- The general answer -----------------------------------------------------------------------------------------------

using Question = HRESULT (IAudioProcessingObject::*)(IAudioMediaType*, IAudioMediaType*, IAudioMediaType**);
constexpr Question inputQuestion = &IAudioProcessingObject::IsInputFormatSupported;
constexpr Question outputQuestion = &IAudioProcessingObject::IsOutputFormatSupported;

// Both questions answer with a proposal, which has the expected format and a reference of its own.
void expectProposal(Format* opposite, Format& requested, const UNCOMPRESSEDAUDIOFORMAT& expected,
                    const APO_REG_PROPERTIES& registration = registrationProperties)
{
    for (const Question question : {inputQuestion, outputQuestion}) {
        Bare bare(registration);
        IAudioMediaType* supported = nullptr;
        ASSERT_EQ((bare.*question)(opposite, &requested, &supported), S_FALSE);
        ASSERT_NE(supported, nullptr);
        ASSERT_NE(supported, &requested);
        UNCOMPRESSEDAUDIOFORMAT proposed{};
        EXPECT_EQ(supported->GetUncompressedAudioFormat(&proposed), S_OK);
        expectSame(proposed, expected);
        EXPECT_EQ(supported->Release(), 0U);
        EXPECT_EQ(requested.references, 1U);
    }
}

// Both questions accept what is requested.
void expectAccepted(Format* opposite, Format& requested, const APO_REG_PROPERTIES& registration = registrationProperties)
{
    for (const Question question : {inputQuestion, outputQuestion}) {
        Bare bare(registration);
        IAudioMediaType* supported = nullptr;
        EXPECT_EQ((bare.*question)(opposite, &requested, &supported), S_OK);
        EXPECT_EQ(supported, &requested);
        EXPECT_EQ(requested.references, 2U);
        requested.references = 1;
    }
}

// Both questions fail and leave `supported` null.
void expectRefused(Format* opposite, Format* requested, HRESULT result)
{
    for (const Question question : {inputQuestion, outputQuestion}) {
        Bare bare;
        Format before(surroundFormat());
        IAudioMediaType* supported = &before;
        EXPECT_EQ((bare.*question)(opposite, requested, &supported), result);
        EXPECT_EQ(supported, nullptr);
    }
}

TEST(GeneralAnswer, AnAcceptedFormatComesBackWithAReference)
{
    Format opposite(surroundFormat());
    Format requested(surroundFormat());
    expectAccepted(&opposite, requested);
    EXPECT_EQ(opposite.references, 1U);
}

TEST(GeneralAnswer, TheOppositeMayBeMissing)
{
    Format requested(surroundFormat());
    expectAccepted(nullptr, requested);
}

TEST(GeneralAnswer, NullArgumentsAreRefusedBeforeAnythingIsWritten)
{
    Format format(surroundFormat());
    for (const Question question : {inputQuestion, outputQuestion}) {
        Bare bare;
        IAudioMediaType* supported = &format;
        EXPECT_EQ((bare.*question)(&format, nullptr, &supported), E_POINTER);
        EXPECT_EQ(supported, &format);
        EXPECT_EQ((bare.*question)(&format, &format, nullptr), E_POINTER);
    }
}

TEST(GeneralAnswer, AnOppositeThatCannotBeReadFails)
{
    Format opposite(surroundFormat());
    opposite.readsLeft = 0;
    Format requested(surroundFormat());
    expectRefused(&opposite, &requested, E_NOTIMPL);
}

TEST(GeneralAnswer, ARequestedFormatThatCannotBeReadFails)
{
    Format opposite(surroundFormat());
    Format requested(surroundFormat());
    requested.readsLeft = 0;
    requested.readFailure = E_OUTOFMEMORY;
    expectRefused(&opposite, &requested, E_OUTOFMEMORY);
}

// The other side is settled: nobody can correct it any more.
TEST(GeneralAnswer, AnOppositeThatWouldBeCorrectedIsRefused)
{
    Format requested(surroundFormat());
    Format opposite(surroundFormat());
    opposite.format.dwValidBitsPerSample = 16;
    expectRefused(&opposite, &requested, APOERR_FORMAT_NOT_SUPPORTED);
    opposite.format = surroundFormat();
    opposite.format.guidFormatType = KSDATAFORMAT_SUBTYPE_PCM;
    expectRefused(&opposite, &requested, APOERR_FORMAT_NOT_SUPPORTED);
}

TEST(GeneralAnswer, TheOppositeIsCorrectedInTheOtherDirection)
{
    Format format(surroundFormat());
    IAudioMediaType* supported = nullptr;
    Bare bare;
    bare.IsInputFormatSupported(&format, &format, &supported);
    EXPECT_EQ(bare.directions, "oi");
    bare.directions.clear();
    bare.IsOutputFormatSupported(&format, &format, &supported);
    EXPECT_EQ(bare.directions, "io");
}

TEST(GeneralAnswer, AFormatOutsideTheLimitsIsCorrectedByItself)
{
    Format requested({KSDATAFORMAT_SUBTYPE_PCM, 0, 3, 24, 1.0F, 4});
    expectProposal(nullptr, requested, floatFormat(1, 10.0F, 4));
}

TEST(GeneralAnswer, ChannelsFollowTheOppositeWithTheirMask)
{
    Format opposite(surroundFormat());
    Format requested(floatFormat(2, 48000.0F, 3));
    expectProposal(&opposite, requested, surroundFormat());
}

TEST(GeneralAnswer, AnotherMaskAloneStays)
{
    Format opposite(surroundFormat());
    Format requested(floatFormat(8, 48000.0F, 0xFF));
    expectAccepted(&opposite, requested);
}

TEST(GeneralAnswer, TheRateFollowsTheOpposite)
{
    Format opposite(surroundFormat());
    Format requested(floatFormat(8, 44100.0F, 0x63F));
    expectProposal(&opposite, requested, surroundFormat());
}

TEST(GeneralAnswer, WhatNeedNotMatchStays)
{
    auto registration = registrationProperties;
    registration.Flags = APO_FLAG_INPLACE;
    Format opposite(surroundFormat());
    Format requested(floatFormat(2, 44100.0F, 3));
    expectAccepted(&opposite, requested, registration);
}

TEST(GeneralAnswer, ARateThatIsNoNumberFollowsTheOpposite)
{
    Format opposite(surroundFormat());
    Format requested(floatFormat(8, notANumber, 0x63F));
    expectProposal(&opposite, requested, surroundFormat());
}

// ---- Registration properties and counts -------------------------------------------------------------------------------

TEST(BaseObject, RegistrationPropertiesComeAsACopyForTheCaller)
{
    Bare bare;
    APO_REG_PROPERTIES* given = nullptr;
    ASSERT_EQ(bare.GetRegistrationProperties(&given), S_OK);
    EXPECT_NE(given, &registrationProperties);
    EXPECT_EQ(std::memcmp(given, &registrationProperties, sizeof *given), 0);
    CoTaskMemFree(given);
    EXPECT_EQ(bare.GetRegistrationProperties(nullptr), E_POINTER);
}

TEST(BaseObject, TheCopyHasRoomForEveryInterface)
{
    struct {
        APO_REG_PROPERTIES properties = registrationProperties;
        IID second = IID_IAudioSystemEffects;
    } two;
    static_assert(sizeof two == 1092 + 16);
    two.properties.u32NumAPOInterfaces = 2;
    Bare bare(two.properties);
    APO_REG_PROPERTIES* given = nullptr;
    ASSERT_EQ(bare.GetRegistrationProperties(&given), S_OK);
    EXPECT_EQ(std::memcmp(given, &two, sizeof two), 0);
    CoTaskMemFree(given);
}

TEST(BaseObject, FrameCountsStayAsTheyAre)
{
    Bare bare;
    for (const UINT32 frames : {0U, 1U, 480U, 0xFFFFFFFFU}) {
        EXPECT_EQ(bare.CalcInputFrames(frames), frames);
        EXPECT_EQ(bare.CalcOutputFrames(frames), frames);
    }
}

} // namespace
} // namespace quorel
