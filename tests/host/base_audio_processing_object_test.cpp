// What any audio processing object does the same way: the general format answers, the checks of a lock in their order.
#include "host/base_audio_processing_object.h"

#include "host/registration_properties.h"
#include "tests/host/engine.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <optional>

namespace quorel {
namespace {

constexpr FLOAT notANumber = std::numeric_limits<float>::quiet_NaN();

// An object without an effect, which writes down what it is asked and can be made to answer anything.
class Bare final : public CBaseAudioProcessingObject {
public:
    explicit Bare(const APO_REG_PROPERTIES& registration = registrationProperties) : CBaseAudioProcessingObject(registration) {}

    HRESULT QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    ULONG AddRef() override { return 1; }
    ULONG Release() override { return 1; }
    HRESULT GetLatency(HNSTIME*) override { return E_NOTIMPL; }
    HRESULT Initialize(UINT32, BYTE*) override { return E_NOTIMPL; }
    void APOProcess(UINT32, APO_CONNECTION_PROPERTY**, UINT32, APO_CONNECTION_PROPERTY**) override {}

    HRESULT IsInputFormatSupported(IAudioMediaType* opposite, IAudioMediaType* requested, IAudioMediaType** supported) override
    {
        questions += 'i';
        return inputAnswer ? *inputAnswer : CBaseAudioProcessingObject::IsInputFormatSupported(opposite, requested, supported);
    }
    HRESULT IsOutputFormatSupported(IAudioMediaType* opposite, IAudioMediaType* requested, IAudioMediaType** supported) override
    {
        questions += 'o';
        return outputAnswer ? *outputAnswer : CBaseAudioProcessingObject::IsOutputFormatSupported(opposite, requested, supported);
    }
    HRESULT validateDefaultFormat(UNCOMPRESSEDAUDIOFORMAT& format, bool isInput) override
    {
        directions += isInput ? 'i' : 'o';
        return CBaseAudioProcessingObject::validateDefaultFormat(format, isInput);
    }

    void agreeToAnyFormat() { inputAnswer = outputAnswer = S_OK; }

    std::optional<HRESULT> inputAnswer;
    std::optional<HRESULT> outputAnswer;
    std::string questions;  // the format questions in their order
    std::string directions; // in which formats were corrected
};

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

// ---- The checks of a lock, in their order -----------------------------------------------------------------------------
// Each of these tests breaks a rule and others that are looked at after it.

void expectUnlocked(Bare& bare)
{
    EXPECT_EQ(bare.UnlockForProcess(), APOERR_ALREADY_UNLOCKED);
}

TEST(Lock, GoodConnectionsLockOnceAndUnlockOnce)
{
    Bare bare;
    Connections connections(surroundFormat());
    EXPECT_EQ(connections.lock(bare), S_OK);
    EXPECT_EQ(bare.questions, "oi");
    EXPECT_EQ(bare.UnlockForProcess(), S_OK);
    EXPECT_EQ(bare.UnlockForProcess(), APOERR_ALREADY_UNLOCKED);
    EXPECT_EQ(connections.lock(bare), S_OK);
    EXPECT_EQ(bare.UnlockForProcess(), S_OK);
}

TEST(Lock, ALockedObjectIsSeenFirst)
{
    Bare bare;
    Connections connections(surroundFormat());
    EXPECT_EQ(connections.lock(bare), S_OK);
    EXPECT_EQ(bare.LockForProcess(2, nullptr, 2, nullptr), APOERR_APO_LOCKED);
    EXPECT_EQ(bare.UnlockForProcess(), S_OK);
}

TEST(Lock, MissingConnectionsAreSeenBeforeTheirCount)
{
    Bare bare;
    Connections connections(surroundFormat());
    APO_CONNECTION_DESCRIPTOR* none[2] = {nullptr, nullptr};
    EXPECT_EQ(bare.LockForProcess(2, nullptr, 1, connections.outs), E_POINTER);
    EXPECT_EQ(bare.LockForProcess(2, none, 1, connections.outs), E_POINTER);
    EXPECT_EQ(bare.LockForProcess(1, connections.ins, 2, nullptr), E_POINTER);
    EXPECT_EQ(bare.LockForProcess(1, connections.ins, 2, none), E_POINTER);
    expectUnlocked(bare);
}

TEST(Lock, CountsAreSeenBeforeTheFormats)
{
    Bare bare;
    Connections connections(surroundFormat());
    connections.in.pFormat = nullptr;
    APO_CONNECTION_DESCRIPTOR* twoIns[] = {&connections.in, &connections.in};
    APO_CONNECTION_DESCRIPTOR* twoOuts[] = {&connections.out, &connections.out};
    EXPECT_EQ(bare.LockForProcess(0, nullptr, 1, connections.outs), APOERR_NUM_CONNECTIONS_INVALID);
    EXPECT_EQ(bare.LockForProcess(2, twoIns, 1, connections.outs), APOERR_NUM_CONNECTIONS_INVALID);
    EXPECT_EQ(bare.LockForProcess(1, connections.ins, 0, nullptr), APOERR_NUM_CONNECTIONS_INVALID);
    EXPECT_EQ(bare.LockForProcess(1, connections.ins, 2, twoOuts), APOERR_NUM_CONNECTIONS_INVALID);
    expectUnlocked(bare);
}

TEST(Lock, AMissingInputFormatIsSeenBeforeTheFormatQuestions)
{
    Bare bare;
    Connections connections(surroundFormat());
    connections.in.pFormat = nullptr;
    connections.in.u32Signature = 0;
    EXPECT_EQ(connections.lock(bare), E_POINTER);
    EXPECT_EQ(bare.questions, "");
    expectUnlocked(bare);
}

TEST(Lock, AnInputFormatThatCannotBeReadIsSeenBeforeTheFormatQuestions)
{
    Bare bare;
    Connections connections(surroundFormat());
    connections.inFormat.readsLeft = 0;
    EXPECT_EQ(connections.lock(bare), E_NOTIMPL);
    EXPECT_EQ(bare.questions, "");
    expectUnlocked(bare);
}

TEST(Lock, ARefusedFormatIsSeenBeforeTheSignatures)
{
    Bare bare;
    Connections connections(surroundFormat());
    connections.in.u32Signature = 0;
    connections.outFormat.format.fFramesPerSecond = 44100.0F;
    EXPECT_EQ(connections.lock(bare), APOERR_FORMAT_NOT_SUPPORTED);
    expectUnlocked(bare);
}

TEST(Lock, AMissingOutputFormatIsARefusedOne)
{
    Bare bare;
    Connections connections(surroundFormat());
    connections.out.pFormat = nullptr;
    EXPECT_EQ(connections.lock(bare), APOERR_FORMAT_NOT_SUPPORTED);
    expectUnlocked(bare);
}

TEST(Lock, AnyAnswerButAPlainYesIsARefusal)
{
    for (const HRESULT answer : {S_FALSE, HRESULT{2}, E_FAIL, APOERR_INVALID_CONNECTION_FORMAT}) {
        Bare bare;
        Connections connections(surroundFormat());
        bare.outputAnswer = answer;
        EXPECT_EQ(connections.lock(bare), APOERR_FORMAT_NOT_SUPPORTED) << answer;
        EXPECT_EQ(bare.questions, "o");
        bare.outputAnswer.reset();
        bare.inputAnswer = answer;
        EXPECT_EQ(connections.lock(bare), APOERR_FORMAT_NOT_SUPPORTED) << answer;
        EXPECT_EQ(bare.questions, "ooi");
        expectUnlocked(bare);
    }
}

TEST(Lock, TheFormatQuestionsLeaveTheReferencesAsTheyWere)
{
    Bare bare;
    Connections connections(surroundFormat());
    EXPECT_EQ(connections.lock(bare), S_OK);
    EXPECT_EQ(connections.inFormat.references, 1U);
    EXPECT_EQ(connections.outFormat.references, 1U);

    connections.outFormat.format.fFramesPerSecond = 44100.0F; // a proposal is made and let go of
    bare.UnlockForProcess();
    EXPECT_EQ(connections.lock(bare), APOERR_FORMAT_NOT_SUPPORTED);
    EXPECT_EQ(connections.inFormat.references, 1U);
    EXPECT_EQ(connections.outFormat.references, 1U);
}

TEST(Lock, TheInputsSignatureIsSeenBeforeTheOutputs)
{
    Bare bare;
    bare.agreeToAnyFormat();
    Connections connections(surroundFormat());
    connections.in.u32Signature = APO_CONNECTION_PROPERTY_SIGNATURE;
    connections.out.pFormat = nullptr;
    EXPECT_EQ(connections.lock(bare), E_INVALIDARG);
    expectUnlocked(bare);
}

TEST(Lock, TheOutputsSignatureIsSeenBeforeItsFormat)
{
    Bare bare;
    bare.agreeToAnyFormat();
    Connections connections(surroundFormat());
    connections.out.u32Signature = 0;
    connections.out.pFormat = nullptr;
    EXPECT_EQ(connections.lock(bare), E_INVALIDARG);
    expectUnlocked(bare);
}

TEST(Lock, AnAgreedOutputWithoutAFormatIsSeenBeforeTheFrameCounts)
{
    Bare bare;
    bare.agreeToAnyFormat();
    Connections connections(surroundFormat());
    connections.out.pFormat = nullptr;
    connections.out.u32MaxFrameCount = 1;
    EXPECT_EQ(connections.lock(bare), E_POINTER);
    expectUnlocked(bare);
}

TEST(Lock, AnOutputFormatThatCannotBeReadIsSeenBeforeTheFrameCounts)
{
    Bare bare;
    bare.agreeToAnyFormat();
    Connections connections(surroundFormat());
    connections.outFormat.readsLeft = 0;
    connections.out.u32MaxFrameCount = 1;
    EXPECT_EQ(connections.lock(bare), E_NOTIMPL);
    expectUnlocked(bare);
}

TEST(Lock, EveryConnectionMustHaveTheFirstOnesFormat)
{
    const auto expectInvalid = [](auto change) {
        Bare bare;
        bare.agreeToAnyFormat();
        Connections connections(surroundFormat());
        connections.out.u32MaxFrameCount = 1;
        change(connections.outFormat.format);
        EXPECT_EQ(connections.lock(bare), APOERR_INVALID_CONNECTION_FORMAT);
        expectUnlocked(bare);
    };
    expectInvalid([](auto& f) { f.dwSamplesPerFrame = 2; });
    expectInvalid([](auto& f) { f.dwBytesPerSampleContainer = 2; });
    expectInvalid([](auto& f) { f.dwValidBitsPerSample = 24; });
    expectInvalid([](auto& f) { f.fFramesPerSecond = 44100.0F; });
}

TEST(Lock, MasksAndTypesOfConnectionsAreNotCompared)
{
    Bare bare;
    bare.agreeToAnyFormat();
    Connections connections(surroundFormat());
    connections.outFormat.format.dwChannelMask = 3;
    connections.outFormat.format.guidFormatType = KSDATAFORMAT_SUBTYPE_PCM;
    EXPECT_EQ(connections.lock(bare), S_OK);
    EXPECT_EQ(bare.UnlockForProcess(), S_OK);
}

TEST(Lock, TheOutputMustHoldWhatTheInputBrings)
{
    Bare bare;
    Connections connections(surroundFormat());
    connections.in.u32MaxFrameCount = 481;
    EXPECT_EQ(connections.lock(bare), APOERR_INVALID_OUTPUT_MAXFRAMECOUNT);
    expectUnlocked(bare);
    connections.out.u32MaxFrameCount = 482;
    EXPECT_EQ(connections.lock(bare), S_OK);
    EXPECT_EQ(bare.UnlockForProcess(), S_OK);
}

TEST(Lock, FrameCountsAreComparedWhereTheRatesOfANonMixerMatch)
{
    for (const int flags : {APO_FLAG_DEFAULT | APO_FLAG_INPLACE | APO_FLAG_MIXER, APO_FLAG_INPLACE | 2 | 8}) {
        auto registration = registrationProperties;
        registration.Flags = static_cast<APO_FLAG>(flags);
        Bare bare(registration);
        Connections connections(surroundFormat());
        connections.in.u32MaxFrameCount = 481;
        EXPECT_EQ(connections.lock(bare), S_OK) << flags;
        EXPECT_EQ(bare.UnlockForProcess(), S_OK);
    }
}

// 480 frames of 8 channels of 4 bytes are 15360 bytes.
TEST(Lock, BuffersMayOverlapInPlaceAlone)
{
    constexpr UINT_PTR base = 0x10000;
    Connections connections(surroundFormat());
    connections.in.pBuffer = base;
    auto registration = registrationProperties;
    registration.Flags = APO_FLAG_DEFAULT;
    for (const UINT_PTR at : {base, base - 15359, base + 15359}) {
        connections.out.pBuffer = at;
        Bare inPlace;
        EXPECT_EQ(connections.lock(inPlace), S_OK);
        Bare bare(registration);
        EXPECT_EQ(connections.lock(bare), APOERR_BUFFERS_OVERLAP);
        expectUnlocked(bare);
    }
    for (const UINT_PTR at : {base - 15360, base + 15360}) {
        connections.out.pBuffer = at;
        Bare bare(registration);
        EXPECT_EQ(connections.lock(bare), S_OK);
    }
}

TEST(Lock, AnObjectWithoutInputsTakesTheOutputsFormat)
{
    auto registration = registrationProperties;
    registration.u32MinInputConnections = 0;
    Bare bare(registration);
    Connections connections(surroundFormat());
    connections.out.pFormat = nullptr;
    EXPECT_EQ(bare.LockForProcess(0, nullptr, 1, connections.outs), E_POINTER);
    connections.out.pFormat = &connections.outFormat;
    EXPECT_EQ(bare.LockForProcess(0, nullptr, 1, connections.outs), S_OK);
    EXPECT_EQ(bare.questions, "");
    EXPECT_EQ(bare.UnlockForProcess(), S_OK);
}

} // namespace
} // namespace quorel
