// SPDX-License-Identifier: MIT
// Each operation on what processes share, with each of its calls of the system refused once: it fails or it has done what it
// says, it leaves no file open, and the next one finds nothing in its way.
#include "platform/named_lock.h"
#include "platform/refusal.h"
#include "platform/registry.h"
#include "platform/sharing.h"
#include "platform/user_directory_linux.h"
#include "tests/support/failing_calls.h"
#include "tests/support/refused_calls.h"
#include "tests/support/temporary_home.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <string>

namespace quorel::platform {
namespace {

constexpr const char* memory = "Global\\QUORELTestMem";
constexpr const char* event = "Global\\QUORELTestEvent";
constexpr const char* lock = "Global\\QUORELLockOfTheTest";
constexpr const char* path = "Software\\QUOREL test";
constexpr std::uint32_t bytes = 1060;
constexpr std::uint32_t keyRead = 0x20019;
constexpr std::uint32_t keyWrite = 0x20006;

class RefusedCalls : public testing::Test {
protected:
    TemporaryHome home;
    Descriptor* everybody = convertDescriptor("D:(A;OICI;GA;;;BA)");
};

bool isMade(const char* name, const Descriptor* descriptor)
{
    const auto mapping = createMapping(name, bytes, descriptor);
    if (mapping == nullptr)
        return false;
    auto* view = static_cast<char*>(mapView(mapping, bytes));
    if (view != nullptr) {
        view[bytes - 1] = 1; // what is only promised ends the program here
        unmapView(view, bytes);
    }
    EXPECT_FALSE(std::filesystem::exists("/dev/shm/quorel-")) << "a name that everybody could guess";
    closeHandle(mapping);
    return view != nullptr;
}

TEST_F(RefusedCalls, DigitsCannotBeGuessedOrAreNone)
{
    const std::string digits = unguessableDigits();
    EXPECT_EQ(digits.size(), 32U);
    EXPECT_NE(digits, unguessableDigits());
    failCall(1, EINTR);
    EXPECT_EQ(unguessableDigits(), "");
    EXPECT_TRUE(callFailed());
    failCall(0, 0);
}

TEST_F(RefusedCalls, AMappingIsMadeOrIsNot)
{
    expectSafeWhenRefused([&] { return isMade(memory, everybody); });
}

// Nobody makes another one beside it.
TEST_F(RefusedCalls, AMappingThatIsThereIsFoundOrIsNot)
{
    const auto made = createMapping(memory, bytes, everybody);
    ASSERT_NE(made, nullptr);
    auto* first = static_cast<char*>(mapView(made, bytes));
    ASSERT_NE(first, nullptr);
    first[0] = 7;
    const auto isFound = [](Handle mapping) {
        if (mapping == nullptr)
            return false;
        auto* view = static_cast<char*>(mapView(mapping, bytes));
        if (view != nullptr) {
            EXPECT_EQ(view[0], 7);
            unmapView(view, bytes);
        }
        closeHandle(mapping);
        return view != nullptr;
    };
    expectSafeWhenRefused([&] { return isFound(openMapping(memory)); });
    expectSafeWhenRefused([&] {
        keepRefusal({}, 0);
        const auto mapping = createMapping(memory, bytes, everybody);
        EXPECT_TRUE(mapping != nullptr || lastRefusal().error != 0) << "the tools tell why";
        return isFound(mapping);
    });
    unmapView(first, bytes);
    closeHandle(made);
}

// One that is not finished is found by nobody.
TEST_F(RefusedCalls, ATurnIsFinishedOrIsNot)
{
    expectSafeWhenRefused([&] {
        UserTurn turn(0);
        const auto mapping = turn ? createMapping(memory, bytes, everybody) : nullptr;
        if (mapping == nullptr)
            return false;
        const bool finished = turn.finish();
        if (callFailed()) { // and none fails from here on
            const auto found = openMapping(memory);
            EXPECT_EQ(found != nullptr, finished);
            closeHandle(found);
        }
        closeHandle(mapping);
        return finished;
    });
}

TEST_F(RefusedCalls, AnEventIsMadeAndSetOrIsNot)
{
    const auto other = createEvent(event, everybody);
    ASSERT_NE(other, nullptr);
    expectSafeWhenRefused([&] {
        keepRefusal({}, 0);
        const auto made = createEvent(event, everybody);
        EXPECT_TRUE(made != nullptr || lastRefusal().error != 0) << "the tools tell why";
        const bool set = made != nullptr && setEvent(made) && waitFor(other, 0) && resetEvent(other);
        closeHandle(made);
        return set;
    });
    closeHandle(other);
}

TEST_F(RefusedCalls, AnEventIsFoundAndWaitedForOrIsNot)
{
    const auto made = createEvent(event, everybody);
    const auto never = createEvent(nullptr, everybody);
    ASSERT_NE(made, nullptr);
    ASSERT_NE(never, nullptr);
    expectSafeWhenRefused([&] {
        const auto found = openEvent(event);
        const bool there = found != nullptr && setEvent(found) && waitFor(found, 0) && waitForEither(never, found) == 1 &&
                           resetEvent(found) && !waitFor(found, 0);
        closeHandle(found);
        return there;
    });
    closeHandle(never);
    closeHandle(made);
}

TEST_F(RefusedCalls, AThreadRunsOrDoesNot)
{
    std::atomic<int> runs = 0;
    expectSafeWhenRefused([&] {
        const int before = runs;
        const auto thread = startThread([](void* count) { ++*static_cast<std::atomic<int>*>(count); }, &runs);
        if (thread == nullptr) {
            EXPECT_EQ(runs, before);
            return false;
        }
        while (!waitFor(thread, 1000)) { // a wait that is refused has not waited
        }
        closeHandle(thread);
        EXPECT_EQ(runs, before + 1);
        return true;
    });
}

TEST_F(RefusedCalls, ALockIsHeldOrIsNot)
{
    expectSafeWhenRefused([&] {
        const NamedLock held(lock, everybody, 0);
        if (held) {
            EXPECT_FALSE(NamedLock(lock, everybody, 0)); // in whatever place
        }
        return static_cast<bool>(held);
    });
}

// The values are those of before or those that were set, and a refused reading tells none.
TEST_F(RefusedCalls, ValuesAreKeptOrAreNot)
{
    const RegistryKey user = rootKey(RootKey::currentUser);
    const auto set = [&](const char* name, std::uint32_t value) {
        RegistryKey key = nullptr;
        if (createKey(user, path, keyWrite, key) != 0)
            return false;
        static_cast<void>(setNumber(key, name, value));
        closeKey(key);
        return true;
    };
    const auto get = [&](const char* name, std::uint32_t& value) {
        RegistryKey key = nullptr;
        if (openKey(user, path, keyRead, key) != 0)
            return false;
        std::uint32_t size = sizeof value;
        const auto result = queryValue(key, name, &value, size);
        closeKey(key);
        EXPECT_EQ(result, 0) << "a key that was read has both";
        return result == 0;
    };
    ASSERT_TRUE(set("Enabled", 1));
    ASSERT_TRUE(set("Reverb", 0));
    std::uint32_t last = 0; // that was to be kept
    expectSafeWhenRefused([&] {
        std::uint32_t enabled = 1;
        std::uint32_t value = last;
        static_cast<void>(get("Enabled", enabled));
        static_cast<void>(get("Reverb", value));
        EXPECT_EQ(enabled, 1U);
        EXPECT_TRUE(value == last || value + 1 == last) << value;
        return set("Reverb", ++last) && get("Reverb", value) && value == last;
    });
}

} // namespace
} // namespace quorel::platform
