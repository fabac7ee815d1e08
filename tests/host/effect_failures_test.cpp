// SPDX-License-Identifier: MIT
// What the effect object makes of failures of the system, on a platform that fails where it is told to.
#include "host/effect_object.h"

#include "tests/host/engine.h"
#include "tests/settings/faulty_platform.h"

#include <new>
#include <vector>

namespace {
bool memoryIsExhausted = false; // for task memory and for new objects
}

// The program is linked so that its calls of CoTaskMemAlloc come here: on Windows through the address in the import table.
#ifdef _WIN32
extern "C" {
extern void* (*__real___imp_CoTaskMemAlloc)(SIZE_T);
static void* faultyTaskMemory(SIZE_T bytes)
{
    return memoryIsExhausted ? nullptr : __real___imp_CoTaskMemAlloc(bytes);
}
void* (*__wrap___imp_CoTaskMemAlloc)(SIZE_T) = faultyTaskMemory;
}
#else
extern "C" {
void* __real_CoTaskMemAlloc(SIZE_T bytes);
void* __wrap_CoTaskMemAlloc(SIZE_T bytes)
{
    return memoryIsExhausted ? nullptr : __real_CoTaskMemAlloc(bytes);
}
}
#endif

void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept
{
    return memoryIsExhausted ? nullptr : ::operator new(bytes);
}

namespace quorel {
namespace {

class ExhaustedMemory {
public:
    ExhaustedMemory() { memoryIsExhausted = true; }
    ~ExhaustedMemory() { memoryIsExhausted = false; }
};

class Failures : public testing::Test {
protected:
    void SetUp() override
    {
        system.reset();
        system.keys[std::string("?") + endpointLists + "Capture\\" + testEndpoint];
        system.takeCalls();
    }

    LeaksAreMeant handlesStayOpen;
    platform::FaultyPlatform& system = platform::faultyPlatform();
};

// 257 is 0x101: to ask for values, in the registry of 64-bit programs.
TEST_F(Failures, TheCaptureListIsAskedFirst)
{
    system.keys.clear();
    Effect effect;
    EXPECT_EQ(effect.initialize(), E_UNEXPECTED);
    const std::string lists = std::string("openKey ") + endpointLists;
    EXPECT_EQ(system.takeCalls(), (std::vector<std::string>{lists + "Capture\\" + testEndpoint + " 257",
                                                            lists + "Render\\" + testEndpoint + " 257"}));
}

TEST_F(Failures, AKeyThatMayNotBeOpenedDoesNotExist)
{
    system.fail(std::string("openKey ") + endpointLists + "Capture\\" + testEndpoint + " 257");
    Effect effect;
    EXPECT_EQ(effect.initialize(), E_UNEXPECTED);
}

TEST_F(Failures, SettingsThatCannotStartLeaveTheObjectUninitialised)
{
    for (const char* call :
         {"createMapping Global\\QUORELMem", "createMapping Global\\QUORELHRTF", "mapView Global\\QUORELMem",
          "mapView Global\\QUORELHRTF", "createEvent Global\\QUORELEvent", "createEvent unnamed", "startThread"}) {
        SetUp();
        system.fail(call);
        Effect effect;
        EXPECT_EQ(effect.initialize(), E_UNEXPECTED) << call;
        EXPECT_EQ(effect.self->settings(), nullptr);
        EXPECT_EQ(effect.initialize(), E_UNEXPECTED) << call; // and not "already initialised"
        EXPECT_EQ(effect.lock(voiceFormat()), APOERR_NOT_INITIALIZED);
        SetUp();
        EXPECT_EQ(effect.initialize(), S_OK) << call;
    }
}

TEST_F(Failures, DiscoveryTouchesNoSharedObject)
{
    Effect effect;
    EXPECT_EQ(effect.initialize(AUDIO_SIGNALPROCESSINGMODE_DEFAULT, TRUE), S_OK);
    EXPECT_EQ(system.takeCalls().size(), 2U); // a key is opened and closed
}

TEST_F(Failures, ABlockGoesOnWithItsOldSettingsWhileTheirLockIsTaken)
{
    Effect effect;
    ASSERT_EQ(effect.initialize(), S_OK);
    system.locksAreTaken = true; // of the poll alone: the lock of a configuration is not taken by trying
    ASSERT_EQ(effect.lock(voiceFormat()), S_OK);
    std::vector<float> block(480);
    const auto& record = effect.record();
    EXPECT_EQ(effect.process(block.data(), block.data(), 480), BUFFER_VALID);
    EXPECT_EQ(record.generation, 0U);
    EXPECT_EQ(record.applied, 1);
    system.locksAreTaken = false;
    EXPECT_EQ(effect.process(block.data(), block.data(), 480, BUFFER_SILENT), BUFFER_SILENT);
    EXPECT_GT(record.generation, 0U);
    EXPECT_EQ(record.applied, 0);
}

TEST_F(Failures, WithoutMemoryNoObjectIsMade)
{
    const auto before = moduleUses.load();
    void* object = &object;
    {
        const ExhaustedMemory exhausted;
        EXPECT_EQ(QUOREL::create(nullptr, IID_IUnknown, &object), E_OUTOFMEMORY);
    }
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(moduleUses, before);
}

TEST_F(Failures, WithoutMemoryThereAreNoRegistrationProperties)
{
    Effect effect;
    APO_REG_PROPERTIES* properties = nullptr;
    const ExhaustedMemory exhausted;
    EXPECT_EQ(effect.object->GetRegistrationProperties(&properties), E_OUTOFMEMORY);
    EXPECT_EQ(properties, nullptr);
}

TEST_F(Failures, WithoutMemoryThereIsNoListOfEffects)
{
    Effect effect;
    GUID* list = nullptr;
    UINT count = 99;
    const ExhaustedMemory exhausted;
    EXPECT_EQ(effect.effects->GetEffectsList(&list, &count, nullptr), E_OUTOFMEMORY);
    EXPECT_EQ(list, nullptr);
    EXPECT_EQ(count, 99U);
}

TEST_F(Failures, RawModeNeedsNoMemory)
{
    Effect effect;
    ASSERT_EQ(effect.initialize(AUDIO_SIGNALPROCESSINGMODE_RAW, TRUE), S_OK);
    GUID* list = nullptr;
    UINT count = 99;
    const ExhaustedMemory exhausted;
    EXPECT_EQ(effect.effects->GetEffectsList(&list, &count, nullptr), S_OK);
    EXPECT_EQ(count, 0U);
}

TEST_F(Failures, WithoutMemoryAProposalFails)
{
    Effect effect;
    Format opposite(surroundFormat());
    Format requested(floatFormat(8, 44100.0F, 0x63F));
    IAudioMediaType* supported = &opposite;
    const ExhaustedMemory exhausted;
    EXPECT_EQ(effect.object->IsInputFormatSupported(&opposite, &requested, &supported), E_OUTOFMEMORY);
    EXPECT_EQ(supported, nullptr);
    EXPECT_EQ(requested.references, 1U);
}

} // namespace
} // namespace quorel
