// SPDX-License-Identifier: MIT
// What a handler keeps from one life of the control block to the next.
#include "settings/settings_handler.h"

#include "tests/settings/faulty_platform.h"
#include "tests/support/control_application.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace quorel {
namespace {

using platform::faultyPlatform;
using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::Not;

constexpr const char* key = "Software\\VEDRA\\QUOREL";

const std::vector<std::string> keptInOrder{"Enabled", "Settings", "noiseGate", "micEq",   "Reverb",
                                           "MicNR",   "EQBand1",  "EQBand2",   "EQBand3", "EQBand4",
                                           "EQBand5", "EQBand6",  "EQBand7",   "EQBand8", "EQBand9"};

class PersistenceTest : public testing::Test {
protected:
    PersistenceTest()
    {
        faultyPlatform().reset();
        faultyPlatform().keys[key];
    }

    static std::shared_ptr<SettingsHandler> start() { return SettingsHandler::instance(SettingsHandler::layoutVersion); }

    // What a path of a handler that starts now is given first.
    static SettingsRecord loaded()
    {
        SettingsRecord record;
        start()->poll(record);
        return record;
    }

    // A view of the block of the running handler.
    static ControlBlock& block()
    {
        return *static_cast<ControlBlock*>(platform::mapView(platform::openMapping(controlBlockName), sizeof(ControlBlock)));
    }

    // The names in the calls of one operation, in order.
    static std::vector<std::string> namesOf(const std::string& operation)
    {
        std::vector<std::string> names;
        for (const auto& call : faultyPlatform().takeCalls()) {
            if (call.starts_with(operation + ' '))
                names.push_back(call.substr(operation.size() + 1));
        }
        return names;
    }

    static std::map<std::string, std::uint32_t>& values() { return faultyPlatform().keys[key]; }
};

TEST_F(PersistenceTest, WithoutAKeyAllIsZeroAndNothingIsMadeUntilTheFirstSave)
{
    faultyPlatform().keys.clear();
    auto handler = start();
    SettingsRecord record;
    handler->poll(record);
    const SettingsRecord zero;
    EXPECT_EQ(std::memcmp(reinterpret_cast<const char*>(&record) + 16, reinterpret_cast<const char*>(&zero) + 16, 68), 0);
    EXPECT_THAT(block().settings, testing::Each(std::byte{0}));
    EXPECT_THAT(faultyPlatform().keys, IsEmpty());
    handler.reset();
    EXPECT_EQ(faultyPlatform().keys[key].size(), keptInOrder.size());
}

TEST_F(PersistenceTest, AKeyWithReverbAloneGivesThatValueAndZeroEverywhereElse)
{
    // What an earlier handler of the process left in the snapshot does not shine through.
    for (const auto& name : keptInOrder)
        values()[name] = 1;
    start();
    values() = {{"Reverb", 170}};
    SettingsRecord expected;
    expected.Reverb = 170;
    const auto record = loaded();
    EXPECT_EQ(std::memcmp(reinterpret_cast<const char*>(&record) + 16, reinterpret_cast<const char*>(&expected) + 16, 68), 0);
}

TEST_F(PersistenceTest, AMissingValueClearsItsFieldWhateverTheSnapshotHeld)
{
    for (const auto& name : keptInOrder)
        values()[name] = 1;
    start();
    values() = {{"Reverb", 170}};
    // The block of another layout leaves the snapshot as it was.
    const auto handler = SettingsHandler::instance(0x10000);
    EXPECT_EQ(block().settings[4], std::byte{0}) << "micEq";
    EXPECT_EQ(block().settings[48], std::byte{170}) << "Reverb";
}

TEST_F(PersistenceTest, EnabledIsCutToItsLowEightBitsAndWrittenBackSo)
{
    values()["Enabled"] = 0x1FF;
    values()["Settings"] = 0x102;
    values()["MicNR"] = 0x300;
    const auto record = loaded();
    EXPECT_EQ(record.Enabled, 0xFF);
    EXPECT_EQ(record.Settings, 2);
    EXPECT_EQ(record.MicNR, 0);
    EXPECT_EQ(values()["Enabled"], 0xFFU);
    EXPECT_EQ(values()["Settings"], 2U);
    EXPECT_EQ(values()["MicNR"], 0U);
}

TEST_F(PersistenceTest, ANegativeEQBand3ComesBackNegative)
{
    values()["EQBand3"] = 0xFFFFFFD8;
    EXPECT_EQ(loaded().EQBand[2], -40);
    EXPECT_EQ(values()["EQBand3"], 0xFFFFFFD8U);
}

TEST_F(PersistenceTest, ASaveFollowedByALoadRestoresEveryKeptFieldAndNoOther)
{
    values().clear();
    auto handler = start();
    SettingsRecord settings;
    settings.Enabled = 1;
    settings.carried17 = 2;
    settings.Settings = 3;
    settings.MicNR = 4;
    settings.micEq = 2;
    for (std::size_t band = 0; band < 9; ++band)
        settings.EQBand[band] = static_cast<std::int32_t>(band) * 20 - 90;
    settings.noiseGate = 0x12345678;
    settings.Reverb = 0x87654321;
    settings.levelsEnabled = 5;
    settings.hrtfId = 6;
    settings.hrtfLength = 1024;
    settings.hrtfChannels = 8;
    copySettings(settings, block());
    ASSERT_TRUE(eventually([] { return faultyPlatform().waits() > 0; }));
    std::atomic_ref(block().sequence).store(1, std::memory_order_release);
    platform::setEvent(platform::openEvent(controlEventName));
    ASSERT_TRUE(eventually([&] {
        SettingsRecord taken;
        handler->poll(taken);
        return taken.blockSequence == 1;
    }));
    handler.reset();

    const auto kept = faultyPlatform().keys;
    faultyPlatform().reset(); // nobody holds the block any more
    faultyPlatform().keys = kept;
    const auto record = loaded();
    settings.carried17 = 0;
    settings.levelsEnabled = 0;
    settings.hrtfId = settings.hrtfLength = settings.hrtfChannels = 0;
    EXPECT_EQ(std::memcmp(reinterpret_cast<const char*>(&record) + 16, reinterpret_cast<const char*>(&settings) + 16, 68), 0);
}

TEST_F(PersistenceTest, AfterALoadTheBlockHoldsTheSnapshotsBytes)
{
    std::uint32_t value = 3;
    for (const auto& name : keptInOrder)
        values()[name] = value++;
    const auto handler = start();
    SettingsRecord record;
    handler->poll(record);
    EXPECT_EQ(std::memcmp(block().settings.data(), reinterpret_cast<const char*>(&record) + 16, 68), 0);
    EXPECT_EQ(record.Reverb, 7U);
}

TEST_F(PersistenceTest, ALoadChangesNeitherTheSequenceNorTheGeneration)
{
    std::uint64_t before = 0;
    faultyPlatform().doBefore("openKey Software\\VEDRA\\QUOREL 131097", [&] { before = block().sequence; });
    const auto first = loaded().generation;
    const auto second = loaded().generation; // raised when the objects were opened, by one
    EXPECT_EQ(second, first + 1);
    EXPECT_EQ(before, 0U);
}

TEST_F(PersistenceTest, ValuesAreReadAndWrittenInOrder)
{
    auto handler = start();
    EXPECT_THAT(namesOf("queryValue"), ElementsAreArray(keptInOrder));
    handler.reset();
    EXPECT_THAT(namesOf("setNumber"), ElementsAreArray(keptInOrder));
}

TEST_F(PersistenceTest, AKeyThatCantBeOpenedLeavesZeros)
{
    values()["Reverb"] = 170;
    faultyPlatform().fail("openKey Software\\VEDRA\\QUOREL 131097");
    EXPECT_EQ(loaded().Reverb, 0U);
}

TEST_F(PersistenceTest, OnlyAKeyThatIsThereAndCantBeOpenedIsUnreadable)
{
    EXPECT_FALSE(SettingsHandler::keptValuesAreUnreadable());
    faultyPlatform().keys.clear();
    EXPECT_FALSE(SettingsHandler::keptValuesAreUnreadable());
    faultyPlatform().fail("openKey Software\\VEDRA\\QUOREL 131097");
    EXPECT_TRUE(SettingsHandler::keptValuesAreUnreadable());
}

TEST_F(PersistenceTest, LookingWhetherTheKeyIsReadableClosesWhatItOpened)
{
    const std::string opening = "openKey Software\\VEDRA\\QUOREL 131097";
    faultyPlatform().takeCalls();
    EXPECT_FALSE(SettingsHandler::keptValuesAreUnreadable());
    EXPECT_THAT(faultyPlatform().takeCalls(), ElementsAre(opening, "closeKey"));
    faultyPlatform().fail(opening);
    EXPECT_TRUE(SettingsHandler::keptValuesAreUnreadable());
    EXPECT_THAT(faultyPlatform().takeCalls(), ElementsAre(opening));
}

TEST_F(PersistenceTest, AValueWithoutBytesCountsAsZero)
{
    values()["micEq"] = 2;
    faultyPlatform().emptyValues = {"Enabled", "micEq"};
    const auto record = loaded();
    EXPECT_EQ(record.Enabled, 0U);
    EXPECT_EQ(record.micEq, 0U);
}

TEST_F(PersistenceTest, AValueThatCantBeReadCountsAsZeroAndTheOthersStand)
{
    values()["noiseGate"] = 60;
    values()["micEq"] = 2;
    faultyPlatform().fail("queryValue noiseGate");
    const auto record = loaded();
    EXPECT_EQ(record.noiseGate, 0U);
    EXPECT_EQ(record.micEq, 2U);
}

TEST_F(PersistenceTest, AValueThatCantBeWrittenStopsNoOther)
{
    auto handler = start();
    values().clear();
    faultyPlatform().fail("setNumber noiseGate");
    handler.reset();
    EXPECT_EQ(values().size(), keptInOrder.size() - 1);
    EXPECT_FALSE(values().contains("noiseGate"));
}

TEST_F(PersistenceTest, AKeyThatCantBeMadeLosesTheSettingsAndNothingElse)
{
    auto handler = start();
    faultyPlatform().fail("createKey Software\\VEDRA\\QUOREL 131078");
    faultyPlatform().takeCalls();
    handler.reset();
    const auto calls = faultyPlatform().takeCalls();
    EXPECT_THAT(calls, Not(Contains("setNumber Enabled")));
    EXPECT_THAT(calls, Contains("closeHandle startThread"));
}

// Required: a save takes the snapshot and not the block.
TEST_F(PersistenceTest, AnUpdateThatTheMemoryThreadHasNotTakenOverIsLost)
{
    auto handler = start();
    SettingsRecord settings;
    settings.Reverb = 170;
    copySettings(settings, block());
    handler.reset();
    EXPECT_EQ(values()["Reverb"], 0U);
}

TEST_F(PersistenceTest, AHandlerThatEndsWritesEvenWhenNothingHasChanged)
{
    auto handler = start();
    faultyPlatform().keys.clear();
    handler.reset();
    EXPECT_EQ(faultyPlatform().keys[key]["Reverb"], 0U);
    EXPECT_EQ(faultyPlatform().keys[key].size(), keptInOrder.size());
}

} // namespace
} // namespace quorel
