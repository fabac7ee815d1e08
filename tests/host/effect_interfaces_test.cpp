// SPDX-License-Identifier: MIT
// The interfaces of an effect object: references, aggregation, and the tables of operations as a binary caller meets them.
#include "host/effect_object.h"

#include "core/kernels.h"
#include "tests/host/engine.h"
#include "tests/support/private_home.h"

#include <vector>

namespace {
int versionQueries = 0;
}

// The program is linked so that its questions for the kernels' version come here.
extern "C" {
const quorel::LibraryVersion* __real__ZN6quorel16ippGetLibVersionEv();
const quorel::LibraryVersion* __wrap__ZN6quorel16ippGetLibVersionEv();
const quorel::LibraryVersion* __wrap__ZN6quorel16ippGetLibVersionEv()
{
    ++versionQueries;
    return __real__ZN6quorel16ippGetLibVersionEv();
}
}

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
    const auto& table = QUOREL::interfaces;
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

TEST(Interfaces, CreationAsksTheKernelsVersionOnce)
{
    versionQueries = 0;
    Effect effect;
    EXPECT_EQ(versionQueries, 1);
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

} // namespace
} // namespace quorel
