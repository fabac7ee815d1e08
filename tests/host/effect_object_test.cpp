// The effect object as an engine meets it, from its creation to its end: interfaces, Initialize, format questions, locks.
#include "host/effect_object.h"

#include "tests/host/control.h"
#include "tests/host/engine.h"
#include "tests/support/private_home.h"

#include <cstring>
#include <limits>
#include <vector>

namespace quorel {
namespace {

// ---- Interfaces, references, aggregation ------------------------------------------------------------------------------

const std::vector<IID> offered = {IID_IQUORELSFX,
                                  IID_IAudioSystemEffects,
                                  IID_IAudioSystemEffects2,
                                  IID_IMMNotificationClient,
                                  IID_IAudioProcessingObjectRT,
                                  IID_IAudioProcessingObject,
                                  IID_IAudioProcessingObjectConfiguration};

TEST(Interfaces, TheyAreLookedUpInTheirOrder)
{
    const auto& table = EffectObjectState::interfaces();
    ASSERT_EQ(std::size(table), offered.size());
    for (std::size_t i = 0; i < offered.size(); ++i)
        EXPECT_TRUE(table[i].id == offered[i]) << i;
}

TEST(Interfaces, EachIsGivenWithAReference)
{
    Effect effect;
    for (const IID& id : offered) {
        IUnknown* found = nullptr;
        ASSERT_EQ(effect.unknown->QueryInterface(id, reinterpret_cast<void**>(&found)), S_OK);
        EXPECT_EQ(effect.unknown->AddRef(), 3U);
        EXPECT_EQ(effect.unknown->Release(), 2U);
        EXPECT_EQ(found->Release(), 1U);
    }
}

TEST(Interfaces, EachGivesEveryOtherAndOneUnknown)
{
    Effect effect;
    for (const IID& from : offered) {
        auto* start = effect.get<IUnknown>(from);
        void* unknown = nullptr;
        EXPECT_EQ(start->QueryInterface(IID_IUnknown, &unknown), S_OK);
        EXPECT_EQ(unknown, effect.unknown);
        start->Release();
        for (const IID& to : offered) {
            void* found = nullptr;
            EXPECT_EQ(start->QueryInterface(to, &found), S_OK);
            EXPECT_EQ(found, effect.get<IUnknown>(to));
            start->Release();
        }
    }
    EXPECT_EQ(effect.unknown->AddRef(), 2U);
    effect.unknown->Release();
}

TEST(Interfaces, OthersAreRefusedWithANullPointer)
{
    Effect effect;
    for (const IID& id : {IID_IClassFactory, IID_IAudioMediaType, IID_IPropertyStore, CLSID_QUOREL}) {
        void* found = &effect;
        EXPECT_EQ(effect.object->QueryInterface(id, &found), E_NOINTERFACE);
        EXPECT_EQ(found, nullptr);
    }
    EXPECT_EQ(effect.object->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
}

TEST(Interfaces, AllShareOneCountAndTheLastReferenceEndsTheObject)
{
    const auto before = moduleUses.load();
    IAudioProcessingObject* object = nullptr;
    ASSERT_EQ(QUOREL::create(nullptr, IID_IAudioProcessingObject, reinterpret_cast<void**>(&object)), S_OK);
    EXPECT_EQ(moduleUses, before + 1);
    IAudioSystemEffects2* effects = nullptr;
    ASSERT_EQ(object->QueryInterface(IID_IAudioSystemEffects2, reinterpret_cast<void**>(&effects)), S_OK);
    EXPECT_EQ(effects->AddRef(), 3U);
    EXPECT_EQ(object->Release(), 2U);
    EXPECT_EQ(object->Release(), 1U);
    EXPECT_EQ(moduleUses, before + 1);
    EXPECT_EQ(effects->Release(), 0U);
    EXPECT_EQ(moduleUses, before);
}

TEST(Interfaces, CreationWithAnUnknownInterfaceLeavesNothing)
{
    const auto before = moduleUses.load();
    void* object = &object;
    EXPECT_EQ(QUOREL::create(nullptr, IID_IClassFactory, &object), E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(QUOREL::create(nullptr, IID_IUnknown, nullptr), E_POINTER);
    EXPECT_EQ(moduleUses, before);
}

// An object that has an effect for a part.
class Outer final : public Counted<IUnknown> {
public:
    HRESULT QueryInterface(REFIID id, void** object) override
    {
        if (id == IID_IUnknown) {
            AddRef();
            *object = this;
            return S_OK;
        }
        return part->QueryInterface(id, object);
    }

    IUnknown* part = nullptr;
};

TEST(Interfaces, APartOfAnotherObjectLeavesCountAndQuestionsToIt)
{
    const auto before = moduleUses.load();
    Outer outer;
    ASSERT_EQ(QUOREL::create(&outer, IID_IUnknown, reinterpret_cast<void**>(&outer.part)), S_OK);
    EXPECT_EQ(outer.references, 1U); // a part holds none of the whole
    void* unknown = nullptr;
    EXPECT_EQ(outer.part->QueryInterface(IID_IUnknown, &unknown), S_OK);
    EXPECT_EQ(unknown, outer.part);
    EXPECT_EQ(outer.part->Release(), 1U);

    for (const IID& id : offered) {
        IUnknown* found = nullptr;
        ASSERT_EQ(outer.QueryInterface(id, reinterpret_cast<void**>(&found)), S_OK);
        EXPECT_EQ(outer.references, 2U);
        EXPECT_EQ(found->QueryInterface(IID_IUnknown, &unknown), S_OK);
        EXPECT_EQ(unknown, &outer);
        EXPECT_EQ(found->AddRef(), 4U);
        EXPECT_EQ(found->Release(), 3U);
        EXPECT_EQ(found->Release(), 2U);
        EXPECT_EQ(found->Release(), 1U);
    }
    EXPECT_EQ(outer.part->Release(), 0U);
    EXPECT_EQ(outer.references, 1U);
    EXPECT_EQ(moduleUses, before);
}

TEST(Interfaces, APartGivesItsCreatorNothingButItsUnknown)
{
    Outer outer;
    void* object = &outer;
    EXPECT_EQ(QUOREL::create(&outer, IID_IAudioProcessingObject, &object), CLASS_E_NOAGGREGATION);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(outer.references, 1U);
}

// ---- The tables of operations, called by their slots as a binary caller does -------------------------------------------

template <class Result, class... Arguments>
Result callSlot(void* object, std::size_t slot, Arguments... arguments)
{
    using Operation = Result (*)(void*, Arguments...);
    return reinterpret_cast<Operation>((*static_cast<void***>(object))[slot])(object, arguments...);
}

template <class Interface>
void* rawly(Effect& effect, REFIID id)
{
    return effect.get<Interface>(id);
}

TEST(Slots, UnknownComesFirstInEveryTable)
{
    Effect effect;
    for (const IID& id : offered) {
        void* object = rawly<IUnknown>(effect, id);
        void* found = nullptr;
        EXPECT_EQ((callSlot<HRESULT, const IID*, void**>(object, 0, &IID_IUnknown, &found)), S_OK);
        EXPECT_EQ(found, effect.unknown);
        EXPECT_EQ(callSlot<ULONG>(object, 1), 3U);
        EXPECT_EQ(callSlot<ULONG>(object, 2), 2U);
        EXPECT_EQ(callSlot<ULONG>(object, 2), 1U);
    }
}

TEST(Slots, TheProcessingObjectsOperations)
{
    Effect effect;
    void* object = rawly<IAudioProcessingObject>(effect, IID_IAudioProcessingObject);
    EXPECT_EQ(callSlot<HRESULT>(object, 3), S_OK);
    HNSTIME time = 0;
    EXPECT_EQ(callSlot<HRESULT>(object, 4, &time), E_FAIL);
    EXPECT_EQ(time, 21);
    APO_REG_PROPERTIES* properties = nullptr;
    ASSERT_EQ(callSlot<HRESULT>(object, 5, &properties), S_OK);
    EXPECT_TRUE(properties->clsid == CLSID_QUOREL);
    CoTaskMemFree(properties);
    BYTE data[88] = {};
    EXPECT_EQ((callSlot<HRESULT, UINT32, BYTE*>(object, 6, 57, data)), E_INVALIDARG);
    for (const std::size_t slot : {7U, 8U}) {
        Format format(surroundFormat());
        IAudioMediaType* supported = nullptr;
        EXPECT_EQ((callSlot<HRESULT, IAudioMediaType*, IAudioMediaType*>(object, slot, &format, &format, &supported)), S_OK);
        EXPECT_EQ(supported, &format);
    }
    UINT32 count = 99;
    EXPECT_EQ(callSlot<HRESULT>(object, 9, &count), APOERR_NOT_INITIALIZED);
    EXPECT_EQ(count, 0U);
}

TEST(Slots, TheOtherInterfacesOperations)
{
    const EndpointEntry entry("Render");
    Effect effect;
    ASSERT_EQ(effect.initialize(), S_OK);
    Connections connections(surroundFormat());
    void* configuration = rawly<IAudioProcessingObjectConfiguration>(effect, IID_IAudioProcessingObjectConfiguration);
    ASSERT_EQ((callSlot<HRESULT, UINT32, APO_CONNECTION_DESCRIPTOR**, UINT32, APO_CONNECTION_DESCRIPTOR**>(
                  configuration, 3, 1, connections.ins, 1, connections.outs)),
              S_OK);

    void* realTime = rawly<IAudioProcessingObjectRT>(effect, IID_IAudioProcessingObjectRT);
    APO_CONNECTION_PROPERTY in{0, 33, BUFFER_SILENT, APO_CONNECTION_PROPERTY_SIGNATURE};
    APO_CONNECTION_PROPERTY out{0, 0, BUFFER_INVALID, APO_CONNECTION_PROPERTY_SIGNATURE};
    APO_CONNECTION_PROPERTY* ins[] = {&in};
    APO_CONNECTION_PROPERTY* outs[] = {&out};
    callSlot<void, UINT32, APO_CONNECTION_PROPERTY**, UINT32, APO_CONNECTION_PROPERTY**>(realTime, 3, 1, ins, 1, outs);
    EXPECT_EQ(out.u32ValidFrameCount, 33U);
    EXPECT_EQ((callSlot<UINT32, UINT32>(realTime, 4, 77)), 77U);
    EXPECT_EQ((callSlot<UINT32, UINT32>(realTime, 5, 78)), 78U);

    EXPECT_EQ(callSlot<HRESULT>(configuration, 4), S_OK);
    EXPECT_EQ(callSlot<HRESULT>(configuration, 4), APOERR_ALREADY_UNLOCKED);

    void* effects = rawly<IAudioSystemEffects2>(effect, IID_IAudioSystemEffects2);
    GUID* list = nullptr;
    UINT count = 0;
    EXPECT_EQ((callSlot<HRESULT, GUID**, UINT*, HANDLE>(effects, 3, &list, &count, nullptr)), S_OK);
    EXPECT_EQ(count, 1U);
    CoTaskMemFree(list);

    void* notifications = rawly<IMMNotificationClient>(effect, IID_IMMNotificationClient);
    EXPECT_EQ((callSlot<HRESULT, LPCWSTR, DWORD>(notifications, 3, nullptr, 1)), S_OK);
    EXPECT_EQ((callSlot<HRESULT, LPCWSTR>(notifications, 4, nullptr)), S_OK);
    EXPECT_EQ((callSlot<HRESULT, LPCWSTR>(notifications, 5, nullptr)), S_OK);
    EXPECT_EQ((callSlot<HRESULT, EDataFlow, ERole, LPCWSTR>(notifications, 6, eRender, eConsole, nullptr)), S_OK);
    EXPECT_EQ((callSlot<HRESULT, LPCWSTR, PROPERTYKEY>(notifications, 7, nullptr, PKEY_AudioEndpoint_GUID)), S_OK);
}

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
    const auto* handler = EffectObjectState::handler(*effect.self);
    Properties properties(testEndpoint);
    auto record = initRecord(properties);
    record.AudioProcessingMode = AUDIO_SIGNALPROCESSINGMODE_RAW;
    record.pAPOEndpointProperties = nullptr; // seen later
    EXPECT_EQ(initialize(*effect.object, record), APOERR_ALREADY_INITIALIZED);
    EXPECT_EQ(initialize(*effect.object, record, 57), E_INVALIDARG); // seen earlier
    EXPECT_EQ(EffectObjectState::handler(*effect.self), handler);
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
    EXPECT_EQ(EffectObjectState::endpointGuid(*effect.self), testEndpoint);
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
        EXPECT_EQ(EffectObjectState::endpointGuid(*effect.self), "");
    }
}

TEST(Initialize, AnEndpointInNeitherListIsRefused)
{
    Effect effect;
    EXPECT_EQ(effect.initialize(), E_UNEXPECTED);
    EXPECT_EQ(EffectObjectState::handler(*effect.self), nullptr);
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
        EXPECT_EQ(EffectObjectState::handler(*effect.self), nullptr);
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
    EXPECT_EQ(EffectObjectState::handler(*first.self), EffectObjectState::handler(*second.self));
    EXPECT_NE(EffectObjectState::handler(*first.self), nullptr);
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
    EXPECT_NE(EffectObjectState::handler(*effect.self), nullptr);
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

// ---- Format questions -------------------------------------------------------------------------------------------------

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

// ---- Locks ------------------------------------------------------------------------------------------------------------

class Render : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(effect.initialize(), S_OK); }

    EndpointEntry entry{"Render"};
    Effect effect;
};

class Capture : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(effect.initialize(), S_OK); }

    EndpointEntry entry{"Capture"};
    Effect effect;
};

UINT32 channelCount(Effect& effect)
{
    UINT32 count = 99;
    EXPECT_EQ(effect.object->GetInputChannelCount(&count), APOERR_NOT_INITIALIZED); // Required: in every state
    return count;
}

TEST(ChannelCount, ItIsDeliveredWithAFailure)
{
    Effect effect;
    EXPECT_EQ(effect.object->GetInputChannelCount(nullptr), APOERR_NOT_INITIALIZED);
    EXPECT_EQ(channelCount(effect), 0U);
}

TEST_F(Render, ALockDeliversTheChannelCount)
{
    EXPECT_EQ(channelCount(effect), 0U);
    EXPECT_EQ(effect.lock(surroundFormat()), S_OK);
    EXPECT_EQ(channelCount(effect), 8U);
    EXPECT_EQ(effect.object->GetInputChannelCount(nullptr), APOERR_NOT_INITIALIZED);
}

TEST_F(Render, ALockTellsTheActiveFormat)
{
    Control control;
    EXPECT_EQ(effect.lock(floatFormat(8, 48000.5F, 0x63F)), S_OK);
    EXPECT_EQ(control->activeChannelMask, 0x63FU);
    EXPECT_EQ(control->activeFramesPerSecond, 48000.5F);
    EXPECT_EQ(effect.configuration->UnlockForProcess(), S_OK);
    EXPECT_EQ(control->activeChannelMask, 0x63FU); // the unlock leaves them
    EXPECT_EQ(effect.lock(stereoFormat()), S_OK);
    EXPECT_EQ(control->activeChannelMask, 3U);
    EXPECT_EQ(control->activeFramesPerSecond, 96000.0F);
}

TEST_F(Capture, ALockTellsTheActiveFormatWithItsMask)
{
    Control control;
    EXPECT_EQ(effect.lock(floatFormat(1, 16000.0F, 4)), S_OK);
    EXPECT_EQ(control->activeChannelMask, 4U);
    EXPECT_EQ(control->activeFramesPerSecond, 16000.0F);
}

TEST(EndOfAnObject, TheLastOneClearsTheActiveFormat)
{
    const EndpointEntry entry("Render");
    Effect* effect = new Effect;
    ASSERT_EQ(effect->initialize(), S_OK);
    Control control;
    EXPECT_EQ(effect->lock(surroundFormat()), S_OK);
    delete effect; // while locked
    EXPECT_EQ(control->activeChannelMask, 0U);
    EXPECT_EQ(control->activeFramesPerSecond, 0.0F);
}

TEST_F(Render, TheFirstRecordOfAPathIsTheSnapshot)
{
    EXPECT_EQ(effect.lock(surroundFormat()), S_OK);
    Control control;
    SettingsRecord settings;
    settings.Reverb = 77;
    ASSERT_TRUE(control.deliver(settings, effect));
    EXPECT_EQ(effect.configuration->UnlockForProcess(), S_OK);
    EXPECT_EQ(effect.lock(surroundFormat()), S_OK); // a new path, with a record of its own
    const auto& record = EffectObjectState::record(*effect.self);
    EXPECT_EQ(record.Reverb, 77U);
    EXPECT_EQ(record.applied, 0);
    EXPECT_GT(record.generation, 0U);
}

TEST_F(Render, APathThatCannotBeBuiltLeavesTheObjectLocked)
{
    EXPECT_EQ(effect.lock(surroundFormat(6)), E_UNEXPECTED); // six channels for the names of eight speakers
    EXPECT_EQ(effect.lock(surroundFormat()), APOERR_APO_LOCKED);
    EXPECT_EQ(effect.configuration->UnlockForProcess(), S_OK);
    EXPECT_EQ(effect.lock(surroundFormat()), S_OK);
}

TEST_F(Render, BlocksLongerThanThePathAllowsAreNotLocked)
{
    EXPECT_EQ(effect.lock(surroundFormat(), 1073), E_UNEXPECTED);
    EXPECT_EQ(effect.configuration->UnlockForProcess(), S_OK);
    EXPECT_EQ(effect.lock(surroundFormat(), 1072), S_OK);
}

TEST_F(Render, ThePathIsBuiltForTheInputsFrames)
{
    Connections connections(surroundFormat(), 1072);
    connections.out.u32MaxFrameCount = 1073;
    EXPECT_EQ(connections.lock(*effect.configuration), S_OK);
}

TEST_F(Render, AFailedLockLeavesThePreviousPath)
{
    EXPECT_EQ(effect.lock(surroundFormat()), S_OK);
    const auto* record = &EffectObjectState::record(*effect.self);
    EXPECT_EQ(effect.configuration->UnlockForProcess(), S_OK);
    EXPECT_EQ(effect.lock(surroundFormat(6)), E_UNEXPECTED);
    EXPECT_EQ(&EffectObjectState::record(*effect.self), record);
    EXPECT_EQ(channelCount(effect), 6U); // Required: taken before the path is built
}

TEST_F(Render, ARefusedLockLeavesTheObjectUnlocked)
{
    EXPECT_EQ(effect.lock(floatFormat(8, 44100.0F, 0x63F)), APOERR_FORMAT_NOT_SUPPORTED);
    EXPECT_EQ(effect.configuration->UnlockForProcess(), APOERR_ALREADY_UNLOCKED);
}

TEST_F(Render, ACompressedFormatIsNotLocked)
{
    Connections connections(surroundFormat());
    connections.outFormat.compressed = true;
    EXPECT_EQ(connections.lock(*effect.configuration), APOERR_FORMAT_NOT_SUPPORTED); // the object's own question
    EXPECT_EQ(effect.configuration->UnlockForProcess(), APOERR_ALREADY_UNLOCKED);
}

// A media type that changes its mind behind the general checks. Of the input they read the format six times: for the
// cache, twice for each of the two questions, for the comparison; of the output five times.
TEST_F(Render, FailuresBehindTheGeneralChecksLeaveTheObjectLocked)
{
    Connections connections(surroundFormat());
    connections.inFormat.readsLeft = 6;
    EXPECT_EQ(connections.lock(*effect.configuration), E_NOTIMPL);
    EXPECT_EQ(effect.configuration->UnlockForProcess(), S_OK);
    connections.inFormat.readsLeft = 1000;
    connections.outFormat.readsLeft = 5;
    EXPECT_EQ(connections.lock(*effect.configuration), E_NOTIMPL);
    EXPECT_EQ(effect.configuration->UnlockForProcess(), S_OK);
}

TEST_F(Render, ALockLeavesTheReferencesOfBothFormatsAsTheyWere)
{
    Connections connections(surroundFormat());
    EXPECT_EQ(connections.lock(*effect.configuration), S_OK);
    EXPECT_EQ(connections.inFormat.references, 1U);
    EXPECT_EQ(connections.outFormat.references, 1U);
    EXPECT_EQ(effect.configuration->UnlockForProcess(), S_OK);
}

// An integer output beside a float input: one question is answered on the corrected route, the other is refused in general.
TEST_F(Render, ARefusedLockLeavesTheReferencesOfBothFormatsAsTheyWere)
{
    const LeaksAreMeant meant; // the dropped proposal
    Connections connections(surroundFormat());
    connections.outFormat.format.guidFormatType = KSDATAFORMAT_SUBTYPE_PCM;
    EXPECT_EQ(connections.lock(*effect.configuration), APOERR_FORMAT_NOT_SUPPORTED);
    EXPECT_EQ(connections.inFormat.references, 1U);
    EXPECT_EQ(connections.outFormat.references, 1U);
}

TEST(Lifecycle, AnObjectThatWasNeverInitialisedRefusesALock)
{
    Effect effect;
    EXPECT_EQ(effect.lock(surroundFormat()), APOERR_NOT_INITIALIZED);
    EXPECT_EQ(effect.configuration->UnlockForProcess(), APOERR_ALREADY_UNLOCKED);
}

TEST(Lifecycle, AnObjectForDiscoveryRefusesALock)
{
    const EndpointEntry entry("Capture");
    Effect effect;
    ASSERT_EQ(effect.initialize(AUDIO_SIGNALPROCESSINGMODE_DEFAULT, TRUE), S_OK);
    EXPECT_EQ(effect.lock(voiceFormat()), APOERR_NOT_INITIALIZED);
    EXPECT_EQ(effect.configuration->UnlockForProcess(), APOERR_ALREADY_UNLOCKED); // with no levels to reset
}

TEST_F(Capture, AnUnlockResetsTheLevelsBeforeAnyTest)
{
    Control control;
    EXPECT_EQ(effect.lock(voiceFormat()), S_OK);
    for (const HRESULT result : {S_OK, APOERR_ALREADY_UNLOCKED}) {
        control->levels.fill(-3.0F);
        EXPECT_EQ(effect.configuration->UnlockForProcess(), result);
        for (const float level : control->levels)
            EXPECT_EQ(level, -120.0F);
    }
}

TEST_F(Render, AnUnlockLeavesTheLevels)
{
    Control control;
    EXPECT_EQ(effect.lock(surroundFormat()), S_OK);
    for (const HRESULT result : {S_OK, APOERR_ALREADY_UNLOCKED}) {
        control->levels.fill(-3.0F);
        EXPECT_EQ(effect.configuration->UnlockForProcess(), result);
        for (const float level : control->levels)
            EXPECT_EQ(level, -3.0F);
    }
}

TEST(Lifecycle, FrameCountsAndResetNeedNoState)
{
    Effect effect;
    EXPECT_EQ(effect.object->Reset(), S_OK);
    EXPECT_EQ(effect.realTime->CalcInputFrames(480), 480U);
    EXPECT_EQ(effect.realTime->CalcOutputFrames(481), 481U);
}

} // namespace
} // namespace quorel
