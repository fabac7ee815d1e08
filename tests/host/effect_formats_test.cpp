// SPDX-License-Identifier: MIT
// What an effect object answers to an engine's format questions.
#include "host/effect_object.h"

#include "tests/host/engine.h"
#include "tests/support/private_home.h"

#include <limits>

namespace quorel {
namespace {

// An initialised object of a kind; no settings are needed for questions.
class Asked {
public:
    explicit Asked(const char* list) : entry(list)
    {
        EXPECT_EQ(effect.initialize(AUDIO_SIGNALPROCESSINGMODE_DEFAULT, TRUE), S_OK);
    }

    // Both directions must answer alike.
    HRESULT operator()(Format* opposite, Format* requested, IAudioMediaType** supported = nullptr)
    {
        const LeaksAreMeant meant; // a dropped proposal is nobody's any more
        IAudioMediaType* answers[2] = {nullptr, nullptr};
        const HRESULT in = effect.object->IsInputFormatSupported(opposite, requested, &answers[0]);
        const HRESULT out = effect.object->IsOutputFormatSupported(opposite, requested, &answers[1]);
        EXPECT_EQ(in, out);
        if (supported != nullptr)
            *supported = answers[0];
        return in;
    }

    HRESULT operator()(const UNCOMPRESSEDAUDIOFORMAT& both)
    {
        Format opposite(both);
        Format requested(both);
        return (*this)(&opposite, &requested);
    }

    EndpointEntry entry;
    Effect effect;
};

TEST(FormatQuestions, CaptureTakesMonoAtItsRatesWithAnyEqualMask)
{
    Asked ask("Capture");
    for (const FLOAT rate : {16000.0F, 48000.0F})
        for (const DWORD mask : {0U, 4U, 0x63FU})
            EXPECT_EQ(ask(floatFormat(1, rate, mask)), S_OK);
    EXPECT_EQ(ask(voiceFormat(44100.0F)), APOERR_FORMAT_NOT_SUPPORTED);
    EXPECT_EQ(ask(floatFormat(2, 48000.0F, 0)), APOERR_FORMAT_NOT_SUPPORTED);
    EXPECT_EQ(ask(voiceFormat(48000.5F)), APOERR_FORMAT_NOT_SUPPORTED);
    EXPECT_EQ(ask(voiceFormat(std::numeric_limits<float>::quiet_NaN())), APOERR_FORMAT_NOT_SUPPORTED);
}

TEST(FormatQuestions, RenderTakesSurroundAndFastStereo)
{
    Asked ask("Render");
    EXPECT_EQ(ask(surroundFormat()), S_OK);
    EXPECT_EQ(ask(floatFormat(2, 48000.0F, 3)), APOERR_FORMAT_NOT_SUPPORTED);
    EXPECT_EQ(ask(stereoFormat()), S_OK);
    EXPECT_EQ(ask(floatFormat(8, 96000.0F, 0x63F)), APOERR_FORMAT_NOT_SUPPORTED);
    EXPECT_EQ(ask(floatFormat(8, 44100.0F, 0x63F)), APOERR_FORMAT_NOT_SUPPORTED);
    EXPECT_EQ(ask(floatFormat(8, 48000.5F, 0x63F)), S_OK); // Required: the whole part counts.
}

TEST(FormatQuestions, SixChannelsOfASurroundMaskAreAccepted)
{
    Asked ask("Render");
    EXPECT_EQ(ask(surroundFormat(6)), S_OK);
}

TEST(FormatQuestions, AnotherMaskAloneIsRefused)
{
    Asked ask("Capture");
    Format opposite(voiceFormat());
    Format requested(floatFormat(1, 48000.0F, 4));
    EXPECT_EQ(ask(&opposite, &requested), APOERR_FORMAT_NOT_SUPPORTED);
}

TEST(FormatQuestions, ANullOppositeIsRefused)
{
    Asked ask("Render");
    Format requested(surroundFormat());
    IAudioMediaType* supported = nullptr;
    EXPECT_EQ(ask(nullptr, &requested, &supported), E_POINTER);
    EXPECT_EQ(supported, &requested); // the general answer's, with its references
    EXPECT_EQ(requested.references, 3U);
}

TEST(FormatQuestions, NullArgumentsAreRefusedBeforeAnythingIsWritten)
{
    Asked ask("Render");
    Format format(surroundFormat());
    IAudioMediaType* supported = &format;
    EXPECT_EQ(ask.effect.object->IsInputFormatSupported(&format, nullptr, &supported), E_POINTER);
    EXPECT_EQ(ask.effect.object->IsOutputFormatSupported(&format, nullptr, &supported), E_POINTER);
    EXPECT_EQ(supported, &format);
    EXPECT_EQ(ask.effect.object->IsInputFormatSupported(&format, &format, nullptr), E_POINTER);
    EXPECT_EQ(ask.effect.object->IsOutputFormatSupported(&format, &format, nullptr), E_POINTER);
}

TEST(FormatQuestions, ACompressedFormatIsRefused)
{
    Asked ask("Render");
    Format opposite(surroundFormat());
    Format requested(surroundFormat());
    requested.compressed = true;
    EXPECT_EQ(ask(&opposite, &requested), APOERR_INVALID_CONNECTION_FORMAT);
    requested.compressed = false;
    opposite.compressed = true;
    EXPECT_EQ(ask(&opposite, &requested), APOERR_INVALID_CONNECTION_FORMAT);
}

TEST(FormatQuestions, AFailureToTellCompressionIsReturned)
{
    Asked ask("Render");
    Format opposite(surroundFormat());
    Format requested(surroundFormat());
    requested.compressedResult = E_OUTOFMEMORY;
    EXPECT_EQ(ask(&opposite, &requested), E_OUTOFMEMORY);
    opposite.compressedResult = E_NOTIMPL; // asked first
    EXPECT_EQ(ask(&opposite, &requested), E_NOTIMPL);
}

// The general answer has read each format once.
TEST(FormatQuestions, AFailureToReadAFormatAgainIsReturned)
{
    Asked ask("Render");
    Format opposite(surroundFormat());
    Format requested(surroundFormat());
    IAudioMediaType* supported = nullptr;
    opposite.readsLeft = 1;
    EXPECT_EQ(ask.effect.object->IsInputFormatSupported(&opposite, &requested, &supported), E_NOTIMPL);
    opposite.readsLeft = 2;
    requested.readsLeft = 1;
    requested.readFailure = E_OUTOFMEMORY;
    EXPECT_EQ(ask.effect.object->IsInputFormatSupported(&opposite, &requested, &supported), E_OUTOFMEMORY);
}

TEST(FormatQuestions, AnOppositeOf16BitsIsRefusedByTheGeneralAnswer)
{
    Asked ask("Render");
    Format opposite(surroundFormat());
    opposite.format.dwValidBitsPerSample = 16;
    Format requested(surroundFormat());
    IAudioMediaType* supported = &requested;
    EXPECT_EQ(ask(&opposite, &requested, &supported), APOERR_FORMAT_NOT_SUPPORTED);
    EXPECT_EQ(supported, nullptr);
}

TEST(FormatQuestions, AnAcceptedFormatHasOneReferenceMore)
{
    Asked ask("Render");
    Format opposite(surroundFormat());
    Format requested(surroundFormat());
    IAudioMediaType* supported = nullptr;
    EXPECT_EQ(ask.effect.object->IsInputFormatSupported(&opposite, &requested, &supported), S_OK);
    EXPECT_EQ(supported, &requested);
    EXPECT_EQ(requested.references, 2U);
    EXPECT_EQ(opposite.references, 1U);
}

// Required: the proposal is dropped without a release, and `requested` comes without a reference.
TEST(FormatQuestions, AnIntegerFormatThatFitsIsAcceptedWithoutAReference)
{
    Asked ask("Render");
    Format opposite(surroundFormat());
    Format requested(surroundFormat());
    requested.format.guidFormatType = KSDATAFORMAT_SUBTYPE_PCM;
    IAudioMediaType* supported = nullptr;
    EXPECT_EQ(ask(&opposite, &requested, &supported), S_OK);
    EXPECT_EQ(supported, &requested);
    EXPECT_EQ(requested.references, 1U);
}

TEST(FormatQuestions, ADroppedProposalKeepsTheModuleLoadedNoLonger)
{
    Asked ask("Render");
    const auto before = moduleUses.load();
    Format opposite(surroundFormat());
    Format requested(surroundFormat());
    requested.format.guidFormatType = KSDATAFORMAT_SUBTYPE_PCM;
    EXPECT_EQ(ask(&opposite, &requested), S_OK);
    EXPECT_EQ(moduleUses, before);
}

TEST(FormatQuestions, ARefusalKeepsWhatTheGeneralAnswerStored)
{
    Asked ask("Render");
    Format opposite(surroundFormat());
    Format requested(floatFormat(8, 44100.0F, 0x63F));
    for (const auto question :
         {&IAudioProcessingObject::IsInputFormatSupported, &IAudioProcessingObject::IsOutputFormatSupported}) {
        IAudioMediaType* supported = nullptr;
        EXPECT_EQ((ask.effect.object->*question)(&opposite, &requested, &supported), APOERR_FORMAT_NOT_SUPPORTED);
        ASSERT_NE(supported, nullptr);
        ASSERT_NE(supported, &requested); // the proposal
        UNCOMPRESSEDAUDIOFORMAT proposed{};
        EXPECT_EQ(supported->GetUncompressedAudioFormat(&proposed), S_OK);
        EXPECT_EQ(proposed.fFramesPerSecond, 48000.0F);
        EXPECT_EQ(supported->Release(), 0U);
    }
}

} // namespace
} // namespace quorel
