// SPDX-License-Identifier: MIT
#include "platform/sharing.h"

#include "tests/support/temporary_home.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <thread>

namespace quorel::platform {
namespace {

constexpr const char* memory = "Global\\QUORELTestMem";
constexpr const char* event = "Global\\QUORELTestEvent";

class SharingTest : public testing::Test {
protected:
    ~SharingTest() override { freeDescriptor(everybody); }

    TemporaryHome home;
    Descriptor* everybody = convertDescriptor("D:(A;OICI;GA;;;BA)(A;OICI;FA;;;BU)(A;OICI;FA;;;LS)(A;OICI;FA;;;SY)");
};

TEST_F(SharingTest, ATextThatIsNoDescriptorIsRefused)
{
    ASSERT_NE(everybody, nullptr);
    EXPECT_EQ(convertDescriptor("everybody"), nullptr);
}

TEST_F(SharingTest, AMappingThatNobodyMadeCantBeOpened)
{
    EXPECT_EQ(openMapping(memory), nullptr);
}

TEST_F(SharingTest, WithoutAnObjectOperationsFailAndHarmNothing)
{
    EXPECT_EQ(mapView(nullptr, 1060), nullptr);
    EXPECT_FALSE(setEvent(nullptr));
    EXPECT_FALSE(resetEvent(nullptr));
    EXPECT_FALSE(waitFor(nullptr, 0));
    closeHandle(nullptr);
}

TEST_F(SharingTest, AFreshMappingIsZeroAndEveryHolderSeesTheSameBytes)
{
    const auto made = createMapping(memory, 1060, everybody);
    ASSERT_NE(made, nullptr);
    auto* bytes = static_cast<unsigned char*>(mapView(made, 1060));
    ASSERT_NE(bytes, nullptr);
    EXPECT_TRUE(std::all_of(bytes, bytes + 1060, [](unsigned char byte) { return byte == 0; }));

    const auto opened = openMapping(memory);
    ASSERT_NE(opened, nullptr);
    auto* same = static_cast<unsigned char*>(mapView(opened, 1060));
    ASSERT_NE(same, nullptr);
    bytes[1059] = 7;
    EXPECT_EQ(same[1059], 7);

    unmapView(bytes, 1060);
    unmapView(same, 1060);
    closeHandle(made);
    closeHandle(opened);
}

TEST_F(SharingTest, MakingAMappingThatSomebodyHoldsGivesThatOne)
{
    const auto first = createMapping(memory, 4096, everybody);
    const auto second = createMapping(memory, 4096, everybody);
    auto* one = static_cast<unsigned char*>(mapView(first, 4096));
    auto* other = static_cast<unsigned char*>(mapView(second, 4096));
    one[5] = 9;
    EXPECT_EQ(other[5], 9);
    unmapView(one, 4096);
    unmapView(other, 4096);
    closeHandle(first);
    closeHandle(second);
}

TEST_F(SharingTest, AMappingIsGoneWithItsLastHolder)
{
    const auto made = createMapping(memory, 1060, everybody);
    auto* bytes = static_cast<unsigned char*>(mapView(made, 1060));
    bytes[0] = 1;
    const auto opened = openMapping(memory);
    unmapView(bytes, 1060);
    closeHandle(made);
    const auto again = openMapping(memory);
    EXPECT_NE(again, nullptr) << "one is left";
    closeHandle(opened);
    closeHandle(again);
    EXPECT_EQ(openMapping(memory), nullptr);

    const auto fresh = createMapping(memory, 1060, everybody);
    bytes = static_cast<unsigned char*>(mapView(fresh, 1060));
    EXPECT_EQ(bytes[0], 0);
    unmapView(bytes, 1060);
    closeHandle(fresh);
}

TEST_F(SharingTest, AViewLargerThanTheMappingIsRefused)
{
    const auto made = createMapping(memory, 4096, everybody);
    EXPECT_EQ(mapView(made, 65536), nullptr);
    closeHandle(made);
}

TEST_F(SharingTest, AnEventStaysSetForEverybodyUntilItIsReset)
{
    const auto made = createEvent(event, everybody);
    ASSERT_NE(made, nullptr);
    EXPECT_FALSE(waitFor(made, 0)) << "initially clear";
    const auto opened = openEvent(event);
    ASSERT_NE(opened, nullptr);
    EXPECT_TRUE(setEvent(opened));
    EXPECT_TRUE(waitFor(made, 0));
    EXPECT_TRUE(waitFor(made, 0)) << "waiting does not reset it";
    EXPECT_TRUE(waitFor(opened, 0));
    EXPECT_TRUE(resetEvent(made));
    EXPECT_FALSE(waitFor(opened, 0));
    closeHandle(made);
    closeHandle(opened);
}

TEST_F(SharingTest, AnEventThatNobodyHoldsIsGoneAndClearWhenMadeAgain)
{
    EXPECT_EQ(openEvent(event), nullptr);
    const auto made = createEvent(event, everybody);
    setEvent(made);
    closeHandle(made);
    EXPECT_EQ(openEvent(event), nullptr);
    const auto again = createEvent(event, everybody);
    EXPECT_FALSE(waitFor(again, 0));
    closeHandle(again);
}

TEST_F(SharingTest, AnEventThatIsSetOverAndOverStaysSetAndOneResetClearsIt)
{
    const auto made = createEvent(event, everybody);
    for (int i = 0; i < 100000; ++i)
        ASSERT_TRUE(setEvent(made));
    EXPECT_TRUE(waitFor(made, 0));
    EXPECT_TRUE(resetEvent(made));
    EXPECT_FALSE(waitFor(made, 0));
    closeHandle(made);
}

TEST_F(SharingTest, AWaitForEitherOfTwoTellsWhichAndTheFirstWhenBothAreSet)
{
    const auto first = createEvent(event, everybody);
    const auto second = createEvent(nullptr, nullptr);
    setEvent(second);
    EXPECT_EQ(waitForEither(first, second), 1);
    setEvent(first);
    EXPECT_EQ(waitForEither(first, second), 0);
    resetEvent(second);
    EXPECT_EQ(waitForEither(first, second), 0);
    closeHandle(first);
    closeHandle(second);
}

TEST_F(SharingTest, AWaitEndsWhenAnotherThreadSetsTheEvent)
{
    const auto first = createEvent(event, everybody);
    const auto second = createEvent(nullptr, nullptr);
    std::thread setter([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        setEvent(first);
    });
    EXPECT_EQ(waitForEither(first, second), 0);
    setter.join();
    closeHandle(first);
    closeHandle(second);
}

TEST_F(SharingTest, AThreadRunsAndItsEndCanBeWaitedFor)
{
    static std::atomic<int> runs = 0;
    struct Work {
        Handle go;
    } work{createEvent(nullptr, nullptr)};
    const auto thread = startThread(
        [](void* argument) {
            waitFor(static_cast<Work*>(argument)->go, 60000);
            ++runs;
        },
        &work);
    ASSERT_NE(thread, nullptr);
    EXPECT_FALSE(waitFor(thread, 20));
    setEvent(work.go);
    EXPECT_TRUE(waitFor(thread, 60000));
    EXPECT_EQ(runs, 1);
    closeHandle(thread);
    closeHandle(work.go);
}

TEST_F(SharingTest, APauseLastsAsLongAsItIsAskedFor)
{
    const auto begin = std::chrono::steady_clock::now();
    pause(30);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(28)); // two ticks of the two clocks
}

} // namespace
} // namespace quorel::platform
