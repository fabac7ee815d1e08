// SPDX-License-Identifier: MIT
#include "host/registration.h"

#include "host/registration_properties.h"
#include "tests/host/registry_fake.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {
bool identifiersHaveNoText = false;
}

// StringFromGUID2, which fails when a test asks for it. The linker puts it in the system's place; on Windows that is an address
// that the loader fills in.
extern "C" {
#ifdef _WIN32
extern decltype(&StringFromGUID2) __real___imp_StringFromGUID2;
static int WINAPI textOrFailure(REFGUID guid, LPOLESTR text, int count)
{
    return identifiersHaveNoText ? 0 : __real___imp_StringFromGUID2(guid, text, count);
}
decltype(&StringFromGUID2) __wrap___imp_StringFromGUID2 = textOrFailure;
#else
int __real_StringFromGUID2(REFGUID guid, LPOLESTR text, int count);
int __wrap_StringFromGUID2(REFGUID guid, LPOLESTR text, int count)
{
    return identifiersHaveNoText ? 0 : __real_StringFromGUID2(guid, text, count);
}
#endif
}

namespace quorel {
namespace {

using platform::registryFake;
using testing::ElementsAreArray;

const std::string list = R"(AudioEngine\AudioProcessingObjects)";
const std::string classId = "{5B0E3C92-7D14-4F6A-A2C8-19D3E60B7F44}";
const std::string entry = list + '\\' + classId;
const std::string classKey = R"(CLSID\)" + classId;
const std::string serverKey = classKey + R"(\InprocServer32)";
const std::string module = R"(C:\Program Files\100% it's\ZELTA.dll)";

const platform::RegistryFake::Values entryValues{
    {"FriendlyName", "QUOREL"},
    {"Copyright", "Copyright (C) VEDRA"},
    {"MajorVersion", 1U},
    {"MinorVersion", 3U},
    {"Flags", 0xFU},
    {"MinInputConnections", 1U},
    {"MaxInputConnections", 1U},
    {"MinOutputConnections", 1U},
    {"MaxOutputConnections", 1U},
    {"MaxInstances", 0xFFFFFFFFU},
    {"NumAPOInterfaces", 1U},
    {"APOInterface0", "{A4D2C6E7-3B18-4F05-92E1-6D07F1B8C35A}"},
};

const std::string script = R"(
HKCR
{
    NoRemove CLSID
    {
        ForceRemove {5B0E3C92-7D14-4F6A-A2C8-19D3E60B7F44} = s 'ZELTA'
        {
            InprocServer32 = s '%MODULE%'
            {
                val ThreadingModel = s 'Both'
            }
        }
    }
}
)";

class RegistrationTest : public testing::Test {
protected:
    RegistrationTest() { registryFake() = {}; }
    ~RegistrationTest() override
    {
        EXPECT_TRUE(registryFake().open.empty()) << "a key is left open";
        EXPECT_EQ(registryFake().locale, 1033U);
        identifiersHaveNoText = false;
    }

    // What is entered when everything works.
    static void expectWholeRegistration()
    {
        const decltype(registryFake().keys) expected{
            {"AudioEngine", {}},         {list, {}},
            {entry, entryValues},        {"CLSID", {}},
            {classKey, {{"", "ZELTA"}}}, {serverKey, {{"", module}, {"ThreadingModel", "Both"}}}};
        EXPECT_EQ(registryFake().keys, expected);
    }
};

// ---- The engine's list --------------------------------------------------------------------------------------------------

TEST_F(RegistrationTest, NullPropertiesAreRefused)
{
    EXPECT_EQ(registerWithEngine(nullptr), E_POINTER);
    EXPECT_TRUE(registryFake().calls.empty());
}

TEST_F(RegistrationTest, TheEntryIsWrittenInItsOrder)
{
    EXPECT_EQ(registerWithEngine(&registrationProperties), S_OK);
    const std::vector<std::string> expected{
        "createKey " + list,
        "deleteKey " + entry,
        "createKey " + entry,
        "setText FriendlyName",
        "setText Copyright",
        "setNumber MajorVersion",
        "setNumber MinorVersion",
        "setNumber Flags",
        "setNumber MinInputConnections",
        "setNumber MaxInputConnections",
        "setNumber MinOutputConnections",
        "setNumber MaxOutputConnections",
        "setNumber MaxInstances",
        "setNumber NumAPOInterfaces",
        "setText APOInterface0",
        "closeKey " + entry,
        "closeKey " + list,
    };
    EXPECT_THAT(registryFake().calls, ElementsAreArray(expected));
    EXPECT_EQ(registryFake().keys[entry], entryValues);
}

// 0x20006 is KEY_WRITE.
TEST_F(RegistrationTest, TheListAndTheEntryAreOpenedForWritingAlone)
{
    EXPECT_EQ(registerWithEngine(&registrationProperties), S_OK);
    EXPECT_EQ(registryFake().access[list], 0x20006U);
    EXPECT_EQ(registryFake().access[entry], 0x20006U);
}

TEST_F(RegistrationTest, EveryInterfaceOfSeveralIsWritten)
{
    struct {
        APO_REG_PROPERTIES properties;
        IID more[1];
    } two{registrationProperties, {IID_IUnknown}};
    two.properties.u32NumAPOInterfaces = 2;
    EXPECT_EQ(registerWithEngine(&two.properties), S_OK);
    EXPECT_EQ(std::get<std::string>(registryFake().keys[entry]["APOInterface0"]), "{A4D2C6E7-3B18-4F05-92E1-6D07F1B8C35A}");
    EXPECT_EQ(std::get<std::string>(registryFake().keys[entry]["APOInterface1"]), "{00000000-0000-0000-C000-000000000046}");
}

TEST_F(RegistrationTest, ATextOf512BytesWithItsEndIsWritten)
{
    APO_REG_PROPERTIES properties = registrationProperties;
    std::fill_n(properties.szFriendlyName, 255, WCHAR{'x'});
    std::fill_n(properties.szCopyrightInfo, 255, WCHAR{'y'});
    EXPECT_EQ(registerWithEngine(&properties), S_OK);
    EXPECT_EQ(std::get<std::string>(registryFake().keys[entry]["FriendlyName"]), std::string(255, 'x'));
    EXPECT_EQ(std::get<std::string>(registryFake().keys[entry]["Copyright"]), std::string(255, 'y'));
}

TEST_F(RegistrationTest, ALongerFriendlyNameIsRefused)
{
    APO_REG_PROPERTIES properties = registrationProperties;
    std::fill_n(properties.szFriendlyName, 256, WCHAR{'x'});
    EXPECT_EQ(registerWithEngine(&properties), E_INVALIDARG);
    EXPECT_TRUE(registryFake().keys[entry].empty());
}

TEST_F(RegistrationTest, ALongerCopyrightIsRefused)
{
    APO_REG_PROPERTIES properties = registrationProperties;
    std::fill_n(properties.szCopyrightInfo, 256, WCHAR{'x'});
    EXPECT_EQ(registerWithEngine(&properties), E_INVALIDARG);
    EXPECT_EQ(registryFake().keys[entry].size(), 1U);
}

TEST_F(RegistrationTest, AnOldEntryLeavesNothingBehind)
{
    registryFake().keys[list];
    registryFake().keys[entry] = {{"FriendlyName", "old"}, {"APOInterface7", "old"}};
    EXPECT_EQ(registerWithEngine(&registrationProperties), S_OK);
    EXPECT_EQ(registryFake().keys[entry], entryValues);
}

TEST_F(RegistrationTest, WithoutATextOfItsIdentifierNothingIsRegistered)
{
    identifiersHaveNoText = true;
    EXPECT_EQ(registerWithEngine(&registrationProperties), S_OK);
    EXPECT_THAT(registryFake().calls, testing::ElementsAre("createKey " + list, "closeKey " + list));
}

TEST_F(RegistrationTest, WithoutATextOfItsIdentifierNothingIsUnregistered)
{
    registryFake().keys[list];
    identifiersHaveNoText = true;
    EXPECT_TRUE(FAILED(unregisterFromEngine(registrationProperties.clsid)));
    EXPECT_TRUE(registryFake().has(list));
}

TEST_F(RegistrationTest, TheFirstFailingWriteEndsTheWorkWithItsCode)
{
    for (const int failing : {0, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14}) { // 1, the deletion of an old entry, is ignored
        registryFake() = {};
        registryFake().failingCall = failing;
        registryFake().failure = 1234;
        EXPECT_EQ(registerWithEngine(&registrationProperties), static_cast<HRESULT>(0x800704D2)) << failing;
        const auto& calls = registryFake().calls;
        EXPECT_TRUE(std::all_of(calls.begin() + failing + 1, calls.end(), [](const std::string& call) {
            return call.starts_with("closeKey");
        })) << failing;
    }
}

TEST_F(RegistrationTest, AFailingDeletionOfAnOldEntryIsIgnored)
{
    registryFake().failingCall = 1;
    EXPECT_EQ(registerWithEngine(&registrationProperties), S_OK);
}

// ---- Both entries -------------------------------------------------------------------------------------------------------

TEST_F(RegistrationTest, RegisteringEntersTheClassAndTheEnginesEntry)
{
    EXPECT_EQ(registerServer(script, module), S_OK);
    expectWholeRegistration();
}

TEST_F(RegistrationTest, RegisteringTwiceLeavesOneKeyWithTheValuesOfTheLastRun)
{
    EXPECT_EQ(registerServer(script, R"(C:\elsewhere.dll)"), S_OK);
    registryFake().keys[entry]["FriendlyName"] = "another";
    registryFake().keys[classKey + R"(\TypeLib)"];
    EXPECT_EQ(registerServer(script, module), S_OK);
    expectWholeRegistration();
}

TEST_F(RegistrationTest, TheClassIsEnteredUnderTheSystemsLocaleWhichIsPutBack)
{
    EXPECT_EQ(registerServer(script, module), S_OK);
    const auto& calls = registryFake().calls;
    const auto set = std::find(calls.begin(), calls.end(), "setThreadLocale 2048");
    const auto created = std::find(calls.begin(), calls.end(), "createKey CLSID");
    ASSERT_NE(created, calls.end());
    EXPECT_LT(set, created);
    EXPECT_EQ(calls.back(), "setThreadLocale 1033");
}

TEST_F(RegistrationTest, AFailureHalfWayLeavesNothingBehind)
{
    EXPECT_EQ(registerServer(script, module), S_OK);
    const auto count = static_cast<int>(registryFake().calls.size());
    const auto calls = registryFake().calls;
    int failed = 0;
    for (int failing = 0; failing < count; ++failing) {
        registryFake() = {};
        registryFake().failingCall = failing;
        const HRESULT result = registerServer(script, module);
        EXPECT_TRUE(registryFake().open.empty()) << failing;
        EXPECT_EQ(registryFake().locale, 1033U) << failing;
        if (result == S_OK)
            continue;
        ++failed;
        EXPECT_EQ(result, static_cast<HRESULT>(0x80070005)) << calls[static_cast<std::size_t>(failing)];
        EXPECT_FALSE(registryFake().has(entry)) << calls[static_cast<std::size_t>(failing)];
        EXPECT_FALSE(registryFake().has(classKey)) << calls[static_cast<std::size_t>(failing)];
    }
    // Of the engine's list two keys and twelve values, of the classes four steps for keys and three values.
    EXPECT_EQ(failed, 14 + 7);
}

TEST_F(RegistrationTest, AFailureOfASecondRunLeavesTheEarlierClassAlone)
{
    EXPECT_EQ(registerServer(script, module), S_OK);
    registryFake().failingCall = static_cast<int>(registryFake().calls.size()) + 12; // a value of the engine's entry
    EXPECT_EQ(registerServer(script, module), static_cast<HRESULT>(0x80070005));
    EXPECT_FALSE(registryFake().has(entry));
    EXPECT_TRUE(registryFake().has(serverKey));
}

// The last value of the class fails, behind the replaced key.
TEST_F(RegistrationTest, AFailureOfASecondRunInTheClassLeavesNeitherEntry)
{
    EXPECT_EQ(registerServer(script, module), S_OK);
    const auto calls = registryFake().calls;
    EXPECT_EQ(registerServer(script, module), S_OK);
    const auto& both = registryFake().calls;
    const auto last = std::find(both.rbegin(), both.rend(), "setText ThreadingModel");
    ASSERT_NE(last, both.rend());
    const auto failing = both.rend() - last - 1 - static_cast<std::ptrdiff_t>(calls.size()); // of a second run
    registryFake().calls.clear();
    registryFake().failingCall = static_cast<int>(failing);
    EXPECT_EQ(registerServer(script, module), static_cast<HRESULT>(0x80070005));
    EXPECT_FALSE(registryFake().has(entry));
    EXPECT_FALSE(registryFake().has(classKey));
}

TEST_F(RegistrationTest, WithoutAScriptNothingIsRegistered)
{
    EXPECT_EQ(registerServer("", module), E_UNEXPECTED);
    EXPECT_FALSE(registryFake().has(entry));
    EXPECT_EQ(unregisterServer("", module), E_UNEXPECTED);
}

TEST_F(RegistrationTest, WithoutTheModulesPathNothingIsRegistered)
{
    EXPECT_EQ(registerServer(script, ""), E_UNEXPECTED);
    EXPECT_FALSE(registryFake().has(entry));
    EXPECT_FALSE(registryFake().has(classKey));
}

TEST_F(RegistrationTest, UnregisteringRemovesTheIdentifiersKeyAndLeavesTheList)
{
    const std::string other = list + R"(\{00000000-0000-0000-0000-000000000001})";
    registryFake().keys = {{other, {{"FriendlyName", "other"}}}, {"CLSID\\{1}", {}}};
    EXPECT_EQ(registerServer(script, module), S_OK);
    EXPECT_EQ(unregisterServer(script, module), S_OK);
    const decltype(registryFake().keys) expected{
        {"AudioEngine", {}}, {list, {}}, {other, {{"FriendlyName", "other"}}}, {"CLSID", {}}, {"CLSID\\{1}", {}}};
    EXPECT_EQ(registryFake().keys, expected);
}

TEST_F(RegistrationTest, UnregisteringTwiceReturnsTheRegistrysOwnError)
{
    EXPECT_EQ(registerServer(script, module), S_OK);
    EXPECT_EQ(unregisterServer(script, module), S_OK);
    EXPECT_EQ(unregisterServer(script, module), static_cast<HRESULT>(0x80070002)); // no such key
}

TEST_F(RegistrationTest, AClassThatCantBeRemovedKeepsTheEnginesEntry)
{
    EXPECT_EQ(registerServer(script, module), S_OK);
    registryFake().calls.clear();
    registryFake().failingCall = 1; // openKey CLSID, openKey of the class
    EXPECT_EQ(unregisterServer(script, module), static_cast<HRESULT>(0x80070005));
    expectWholeRegistration();
}

} // namespace
} // namespace quorel
