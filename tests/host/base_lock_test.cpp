// SPDX-License-Identifier: MIT
// The checks of a lock that any audio processing object makes, in their order. Each of these tests breaks a rule and others that
// are looked at after it.
#include "host/base_audio_processing_object.h"

#include "tests/host/bare_object.h"
#include "tests/host/engine.h"

#include <chrono>
#include <future>

namespace quorel {
namespace {

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

// Another thread's unlock, begun amid a lock, waits for its end: without the wait it would find the object unlocked.
TEST(Lock, AnUnlockWaitsForALockThatIsUnderWay)
{
    using namespace std::chrono_literals;
    Bare bare;
    std::future<HRESULT> unlocked;
    bare.amidQuestion = [&] {
        if (unlocked.valid())
            return;
        unlocked = std::async(std::launch::async, [&] { return bare.UnlockForProcess(); });
        EXPECT_EQ(unlocked.wait_for(100ms), std::future_status::timeout);
    };
    Connections connections(surroundFormat());
    EXPECT_EQ(connections.lock(bare), S_OK);
    EXPECT_EQ(unlocked.get(), S_OK);
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
