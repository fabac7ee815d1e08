// SPDX-License-Identifier: MIT
// What an effect object learns when it is initialised, and the list of effects that follows from it.
#include "host/effect_object.h"

#include "tests/host/engine.h"
#include "tests/support/private_home.h"

#include <cstring>

namespace quorel {
namespace {

// ---- Initialize -------------------------------------------------------------------------------------------------------

TEST(Initialize, NullDataIsSeenFirst)
{
    Effect effect;
    for (const UINT32 size : {0U, 56U, 57U, 88U})
        EXPECT_EQ(effect.object->Initialize(size, nullptr), E_POINTER) << size;
}

TEST(Initialize, OtherSizesAreRefused)
{
    Effect effect;
    Properties properties(testEndpoint);
    auto record = initRecord(properties);
    for (const UINT32 size : {0U, 20U, 55U, 57U, 87U, 89U, 0xFFFFFFFFU})
        EXPECT_EQ(initialize(*effect.object, record, size), E_INVALIDARG) << size;
    EXPECT_TRUE(properties.asked.empty());
}

TEST(Initialize, ASecondTimeIsRefusedAndChangesNothing)
{
    const EndpointEntry entry("Render");
    Effect effect;
    ASSERT_EQ(effect.initialize(), S_OK);
    const auto* handler = effect.self->settings();
    Properties properties(testEndpoint);
    auto record = initRecord(properties);
    record.AudioProcessingMode = AUDIO_SIGNALPROCESSINGMODE_RAW;
    record.pAPOEndpointProperties = nullptr; // seen later
    EXPECT_EQ(initialize(*effect.object, record), APOERR_ALREADY_INITIALIZED);
    EXPECT_EQ(initialize(*effect.object, record, 57), E_INVALIDARG); // seen earlier
    EXPECT_EQ(effect.self->settings(), handler);
    UINT count = 0;
    GUID* list = nullptr;
    EXPECT_EQ(effect.effects->GetEffectsList(&list, &count, nullptr), S_OK);
    EXPECT_EQ(count, 1U);
    CoTaskMemFree(list);
}

TEST(Initialize, AMissingPropertyStoreIsRefused)
{
    Effect effect;
    Properties properties(testEndpoint);
    auto record = initRecord(properties);
    record.pAPOEndpointProperties = nullptr;
    EXPECT_EQ(initialize(*effect.object, record), E_POINTER);
    EXPECT_EQ(initialize(*effect.object, record, 56), E_POINTER);
}

TEST(Initialize, TheEndpointsIdentifierIsAskedForOnce)
{
    const EndpointEntry entry("Render");
    Effect effect;
    Properties properties(testEndpoint);
    auto record = initRecord(properties);
    ASSERT_EQ(initialize(*effect.object, record), S_OK);
    ASSERT_EQ(properties.asked.size(), 1U);
    EXPECT_EQ(std::memcmp(&properties.asked[0], &PKEY_AudioEndpoint_GUID, sizeof(PROPERTYKEY)), 0);
    EXPECT_EQ(properties.references, 1U);
    EXPECT_EQ(effect.self->endpoint(), testEndpoint);
}

TEST(Initialize, AFailureOfThePropertyStoreIsReturned)
{
    const EndpointEntry entry("Render");
    Effect effect;
    Properties properties(testEndpoint);
    auto record = initRecord(properties);
    for (const HRESULT result : {E_FAIL, E_OUTOFMEMORY, E_NOTIMPL}) {
        properties.result = result;
        EXPECT_EQ(initialize(*effect.object, record), result);
    }
    properties.result = S_OK;
    EXPECT_EQ(initialize(*effect.object, record), S_OK); // it was not initialised before
}

TEST(Initialize, ANullTextIsAnEmptyIdentifier)
{
    for (const VARTYPE type : {VARTYPE{VT_LPWSTR}, VARTYPE{VT_EMPTY}, VARTYPE{VT_UI4}}) {
        Effect effect;
        Properties properties("");
        properties.type = type;
        auto record = initRecord(properties);
        record.InitializeForDiscoveryOnly = TRUE;
        initialize(*effect.object, record); // what the lists say to an empty name is the registry's matter
        EXPECT_EQ(effect.self->endpoint(), "");
    }
}

TEST(Initialize, ANullTextReplacesAnEarlierIdentifier)
{
    Effect effect;
    EXPECT_EQ(effect.initialize(), E_UNEXPECTED); // in neither list
    EXPECT_EQ(effect.self->endpoint(), testEndpoint);
    effect.initialize(AUDIO_SIGNALPROCESSINGMODE_DEFAULT, TRUE, "");
    EXPECT_EQ(effect.self->endpoint(), "");
}

TEST(Initialize, AnEndpointInNeitherListIsRefused)
{
    Effect effect;
    EXPECT_EQ(effect.initialize(), E_UNEXPECTED);
    EXPECT_EQ(effect.self->settings(), nullptr);
    const EndpointEntry entry("Render");
    EXPECT_EQ(effect.initialize(), S_OK); // it was not initialised before
}

// Which kind an object takes its endpoint for shows in the formats that it accepts.
bool isCapture(Effect& effect)
{
    Format format(voiceFormat());
    IAudioMediaType* supported = nullptr;
    return effect.object->IsInputFormatSupported(&format, &format, &supported) == S_OK;
}

TEST(Initialize, TheListsTellTheKind)
{
    {
        const EndpointEntry entry("Render");
        Effect effect;
        ASSERT_EQ(effect.initialize(), S_OK);
        EXPECT_FALSE(isCapture(effect));
    }
    const EndpointEntry entry("Capture");
    Effect effect;
    ASSERT_EQ(effect.initialize(), S_OK);
    EXPECT_TRUE(isCapture(effect));
}

TEST(Initialize, AnEndpointInBothListsCaptures)
{
    const EndpointEntry render("Render");
    const EndpointEntry capture("Capture");
    Effect effect;
    ASSERT_EQ(effect.initialize(), S_OK);
    EXPECT_TRUE(isCapture(effect));
}

TEST(Initialize, DiscoveryAloneNeedsNoSettings)
{
    const EndpointEntry entry("Render");
    for (const BOOL discovery : {TRUE, BOOL{-5}}) {
        Effect effect;
        EXPECT_EQ(effect.initialize(AUDIO_SIGNALPROCESSINGMODE_DEFAULT, discovery), S_OK);
        EXPECT_EQ(effect.self->settings(), nullptr);
        EXPECT_EQ(effect.initialize(), APOERR_ALREADY_INITIALIZED);
        EXPECT_FALSE(isCapture(effect)); // format questions are answered
        APO_REG_PROPERTIES* properties = nullptr;
        EXPECT_EQ(effect.object->GetRegistrationProperties(&properties), S_OK);
        CoTaskMemFree(properties);
    }
}

TEST(Initialize, AllObjectsOfAProcessShareOneHandler)
{
    const EndpointEntry entry("Render");
    Effect first;
    Effect second;
    ASSERT_EQ(first.initialize(), S_OK);
    ASSERT_EQ(second.initialize(), S_OK);
    EXPECT_EQ(first.self->settings(), second.self->settings());
    EXPECT_NE(first.self->settings(), nullptr);
}

// ---- The list of effects ----------------------------------------------------------------------------------------------

void expectEffects(Effect& effect, UINT expected)
{
    GUID callersOwn{}; // neither null nor task memory: both results must replace what the caller had
    GUID* list = &callersOwn;
    UINT count = 99;
    EXPECT_EQ(effect.effects->GetEffectsList(&list, &count, nullptr), S_OK);
    ASSERT_EQ(count, expected);
    if (expected == 0) {
        EXPECT_EQ(list, nullptr);
    } else {
        ASSERT_NE(list, &callersOwn);
        EXPECT_TRUE(list[0] == AUDIO_EFFECT_TYPE_EQUALIZER);
        CoTaskMemFree(list);
    }
}

TEST(EffectsList, EveryModeButRawHasAnEqualiser)
{
    const EndpointEntry entry("Render");
    for (const GUID& mode : {AUDIO_SIGNALPROCESSINGMODE_DEFAULT, AUDIO_SIGNALPROCESSINGMODE_COMMUNICATIONS, GUID{}}) {
        Effect effect;
        ASSERT_EQ(effect.initialize(mode, TRUE), S_OK);
        expectEffects(effect, 1);
    }
}

TEST(EffectsList, RawModeHasNone)
{
    const EndpointEntry entry("Render");
    Effect effect;
    ASSERT_EQ(effect.initialize(AUDIO_SIGNALPROCESSINGMODE_RAW, TRUE), S_OK);
    expectEffects(effect, 0);
}

TEST(EffectsList, TheShorterRecordKeepsTheDefaultMode)
{
    const EndpointEntry entry("Render");
    Effect effect;
    Properties properties(testEndpoint);
    auto record = initRecord(properties);
    record.AudioProcessingMode = AUDIO_SIGNALPROCESSINGMODE_RAW; // behind the shorter record's end, like the next one
    record.InitializeForDiscoveryOnly = TRUE;
    ASSERT_EQ(initialize(*effect.object, record, 56), S_OK);
    expectEffects(effect, 1);
    EXPECT_NE(effect.self->settings(), nullptr);
}

TEST(EffectsList, TheModeIsTakenBeforeTheEndpointIsJudged)
{
    Effect effect;
    EXPECT_EQ(effect.initialize(AUDIO_SIGNALPROCESSINGMODE_RAW), E_UNEXPECTED); // in neither list
    expectEffects(effect, 0);
}

TEST(EffectsList, TheDefaultModeIsSetBeforeThePropertyStoreIsMissed)
{
    Effect effect;
    EXPECT_EQ(effect.initialize(AUDIO_SIGNALPROCESSINGMODE_RAW), E_UNEXPECTED);
    Properties properties(testEndpoint);
    auto record = initRecord(properties);
    record.AudioProcessingMode = AUDIO_SIGNALPROCESSINGMODE_RAW;
    record.pAPOEndpointProperties = nullptr;
    EXPECT_EQ(initialize(*effect.object, record), E_POINTER);
    expectEffects(effect, 1);
}

TEST(EffectsList, AFailingPropertyStoreLeavesTheDefaultMode)
{
    Effect effect;
    EXPECT_EQ(effect.initialize(AUDIO_SIGNALPROCESSINGMODE_RAW), E_UNEXPECTED);
    Properties properties(testEndpoint);
    properties.result = E_FAIL;
    auto record = initRecord(properties);
    record.AudioProcessingMode = AUDIO_SIGNALPROCESSINGMODE_RAW;
    EXPECT_EQ(initialize(*effect.object, record), E_FAIL);
    expectEffects(effect, 1);
}

TEST(EffectsList, NullArgumentsAreRefused)
{
    Effect effect;
    GUID* list = nullptr;
    UINT count = 99;
    EXPECT_EQ(effect.effects->GetEffectsList(nullptr, &count, nullptr), E_POINTER);
    EXPECT_EQ(effect.effects->GetEffectsList(&list, nullptr, nullptr), E_POINTER);
    EXPECT_EQ(count, 99U);
}

} // namespace
} // namespace quorel
