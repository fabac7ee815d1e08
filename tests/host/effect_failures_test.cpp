// What the effect object makes of failures of the system, on a platform that fails where it is told to.
#include "host/effect_object.h"

#include "tests/host/engine.h"
#include "tests/settings/faulty_platform.h"

#include <vector>

namespace quorel {
namespace {

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
        EXPECT_EQ(EffectObjectState::handler(*effect.self), nullptr);
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
    EXPECT_EQ(effect.process(block.data(), block.data(), 480), BUFFER_VALID);
    system.locksAreTaken = false;
}

} // namespace
} // namespace quorel
