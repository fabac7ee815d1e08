// SPDX-License-Identifier: MIT
#include "tests/support/private_home.h" // ahead of what writes the registry

#include "host/module.h"

#include "tests/host/loaded_module.h"
#include "tests/host/registry_tree.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>

namespace quorel {
namespace {

namespace fs = std::filesystem;

const std::string list = R"(AudioEngine\AudioProcessingObjects)";
const std::string classId = "{5B0E3C92-7D14-4F6A-A2C8-19D3E60B7F44}";
const std::string entry = list + '\\' + classId;
const std::string classKey = R"(CLSID\)" + classId;

RegistryTree classTree(const std::string& modulePath)
{
    return {{classKey, {R"(@="ZELTA")"}},
            {classKey + R"(\InprocServer32)", {"@=" + inQuotes(modulePath), R"("ThreadingModel"="Both")"}}};
}

const RegistryTree entryTree{
    {entry,
     {R"("FriendlyName"="QUOREL")", R"("Copyright"="Copyright (C) VEDRA")", R"("MajorVersion"=dword:00000001)",
      R"("MinorVersion"=dword:00000003)", R"("Flags"=dword:0000000f)", R"("MinInputConnections"=dword:00000001)",
      R"("MaxInputConnections"=dword:00000001)", R"("MinOutputConnections"=dword:00000001)",
      R"("MaxOutputConnections"=dword:00000001)", R"("MaxInstances"=dword:ffffffff)", R"("NumAPOInterfaces"=dword:00000001)",
      R"("APOInterface0"="{A4D2C6E7-3B18-4F05-92E1-6D07F1B8C35A}")"}}};

platform::RegistryKey makeKey(const std::string& path)
{
    platform::RegistryKey key = nullptr;
    EXPECT_EQ(platform::createKey(platform::rootKey(platform::RootKey::classesRoot), path, 0x20006, key), 0);
    return key;
}

void deleteKey(const std::string& path)
{
    EXPECT_EQ(platform::deleteKey(platform::rootKey(platform::RootKey::classesRoot), path, 0), 0) << path;
}

class ModuleRegistration : public testing::Test {
protected:
    ModuleRegistration()
    {
        EXPECT_EQ(readTree(entry), RegistryTree{});
        EXPECT_EQ(readTree(classKey), RegistryTree{});
    }
    ~ModuleRegistration() override
    {
        module.unregisterServer();
        EXPECT_EQ(readTree(entry), RegistryTree{});
        EXPECT_EQ(readTree(classKey), RegistryTree{});
    }

    LoadedModule module;
};

TEST_F(ModuleRegistration, RegisteringLeavesExactlyTheKeysAndValues)
{
    EXPECT_EQ(module.registerServer(), S_OK);
    EXPECT_EQ(readTree(entry), entryTree);
    EXPECT_EQ(readTree(classKey), classTree(module.path()));
}

TEST_F(ModuleRegistration, TwiceIsAsGoodAsOnce)
{
    EXPECT_EQ(module.registerServer(), S_OK);
    platform::RegistryKey key = makeKey(entry);
    EXPECT_EQ(platform::setText(key, "FriendlyName", "another"), 0);
    EXPECT_EQ(platform::setText(key, "APOInterface1", "{1}"), 0);
    platform::closeKey(key);
    platform::closeKey(makeKey(classKey + R"(\Old\Older)"));

    EXPECT_EQ(module.registerServer(), S_OK);
    EXPECT_EQ(readTree(entry), entryTree);
    EXPECT_EQ(readTree(classKey), classTree(module.path()));
}

TEST_F(ModuleRegistration, UnregisteringLeavesWhatIsNotTheEffects)
{
    const std::string others[] = {list + R"(\{00000000-0000-0000-0000-000000000001})",
                                  R"(CLSID\{00000000-0000-0000-0000-000000000001})"};
    for (const auto& other : others)
        platform::closeKey(makeKey(other));
    EXPECT_EQ(module.registerServer(), S_OK);
    EXPECT_EQ(module.unregisterServer(), S_OK);
    EXPECT_EQ(readTree(entry), RegistryTree{});
    EXPECT_EQ(readTree(classKey), RegistryTree{});
    EXPECT_TRUE(readTree(list).contains(list));
    for (const auto& other : others) {
        EXPECT_TRUE(readTree(other).contains(other));
        deleteKey(other);
    }
}

TEST_F(ModuleRegistration, UnregisteringTwiceReturnsTheRegistrysOwnError)
{
    EXPECT_EQ(module.registerServer(), S_OK);
    EXPECT_EQ(module.unregisterServer(), S_OK);
    EXPECT_EQ(module.unregisterServer(), static_cast<HRESULT>(0x80070002)); // no such key
}

TEST_F(ModuleRegistration, TheObjectTellsTheValuesThatTheRegistryShows)
{
    EXPECT_EQ(module.registerServer(), S_OK);
    IUnknown* unknown = module.create();
    IAudioProcessingObject* object = nullptr;
    ASSERT_EQ(unknown->QueryInterface(IID_IAudioProcessingObject, reinterpret_cast<void**>(&object)), S_OK);
    APO_REG_PROPERTIES* properties = nullptr;
    ASSERT_EQ(object->GetRegistrationProperties(&properties), S_OK);

    std::set<std::string> lines;
    const auto addText = [&](const std::string& name, const WCHAR* text) {
        std::string ascii;
        for (; *text != 0; ++text)
            ascii += static_cast<char>(*text);
        lines.insert(inQuotes(name) + '=' + inQuotes(ascii));
    };
    const auto addNumber = [&](const std::string& name, std::uint32_t number) {
        char text[32];
        std::snprintf(text, sizeof text, "=dword:%08x", number);
        lines.insert(inQuotes(name) + text);
    };
    addText("FriendlyName", properties->szFriendlyName);
    addText("Copyright", properties->szCopyrightInfo);
    addNumber("MajorVersion", properties->u32MajorVersion);
    addNumber("MinorVersion", properties->u32MinorVersion);
    addNumber("Flags", static_cast<std::uint32_t>(properties->Flags));
    addNumber("MinInputConnections", properties->u32MinInputConnections);
    addNumber("MaxInputConnections", properties->u32MaxInputConnections);
    addNumber("MinOutputConnections", properties->u32MinOutputConnections);
    addNumber("MaxOutputConnections", properties->u32MaxOutputConnections);
    addNumber("MaxInstances", properties->u32MaxInstances);
    addNumber("NumAPOInterfaces", properties->u32NumAPOInterfaces);
    for (std::uint32_t i = 0; i < properties->u32NumAPOInterfaces; ++i) {
        WCHAR id[39];
        ASSERT_EQ(StringFromGUID2(properties->iidAPOInterfaceList[i], id, 39), 39);
        addText("APOInterface" + std::to_string(i), id);
    }
    EXPECT_EQ(readTree(entry).at(entry), lines);

    CoTaskMemFree(properties);
    object->Release();
    unknown->Release();
}

TEST_F(ModuleRegistration, AModuleAtAnUnusualPathIsRegisteredByThatPath)
{
    const fs::path folder = fs::temp_directory_path() / "it's 100% %MODULE% {here} = s";
    fs::create_directories(folder);
    const fs::path copy = folder / fs::path(QUOREL_MODULE).filename();
    fs::copy_file(QUOREL_MODULE, copy, fs::copy_options::overwrite_existing);
    {
        const LoadedModule elsewhere(copy.string());
        EXPECT_EQ(elsewhere.registerServer(), S_OK);
        EXPECT_TRUE(elsewhere.path().find("it's 100% %MODULE% {here} = s") != std::string::npos) << elsewhere.path();
        EXPECT_EQ(readTree(classKey), classTree(elsewhere.path()));
    }
    fs::remove_all(folder);
}

#ifdef _WIN32

// Operations of the registry that fail for one value or key.
LSTATUS WINAPI setValue(HKEY key, LPCWSTR name, DWORD reserved, DWORD type, const BYTE* data, DWORD size)
{
    if (std::wstring(name) == L"ThreadingModel")
        return ERROR_ACCESS_DENIED;
    return RegSetValueExW(key, name, reserved, type, data, size);
}

LSTATUS WINAPI setEngineValue(HKEY key, LPCWSTR name, DWORD reserved, DWORD type, const BYTE* data, DWORD size)
{
    if (std::wstring(name) == L"MaxInstances")
        return ERROR_ACCESS_DENIED;
    return RegSetValueExW(key, name, reserved, type, data, size);
}

TEST_F(ModuleRegistration, AClassThatCantBeEnteredLeavesNothingBehind)
{
    module.replaceImport("advapi32.dll", "RegSetValueExW", reinterpret_cast<void*>(&setValue));
    EXPECT_EQ(module.registerServer(), static_cast<HRESULT>(0x80070005));
    EXPECT_EQ(readTree(entry), RegistryTree{});
    EXPECT_EQ(readTree(classKey), RegistryTree{});
}

TEST_F(ModuleRegistration, AnEntryThatCantBeWrittenLeavesNothingBehind)
{
    module.replaceImport("advapi32.dll", "RegSetValueExW", reinterpret_cast<void*>(&setEngineValue));
    EXPECT_EQ(module.registerServer(), static_cast<HRESULT>(0x80070005));
    EXPECT_EQ(readTree(entry), RegistryTree{});
    EXPECT_EQ(readTree(classKey), RegistryTree{});
}

LCID localeOfTheScript = 0;

LSTATUS WINAPI createKey(HKEY key, LPCWSTR name, DWORD reserved, LPWSTR type, DWORD options, REGSAM access,
                         LPSECURITY_ATTRIBUTES security, HKEY* result, DWORD* disposition)
{
    if (std::wstring(name) == L"InprocServer32")
        localeOfTheScript = GetThreadLocale();
    return RegCreateKeyExW(key, name, reserved, type, options, access, security, result, disposition);
}

TEST_F(ModuleRegistration, TheScriptRunsUnderTheSystemsLocaleWhichIsPutBack)
{
    module.replaceImport("advapi32.dll", "RegCreateKeyExW", reinterpret_cast<void*>(&createKey));
    const LCID german = 0x407;
    SetThreadLocale(2048);
    const LCID system = GetThreadLocale(); // by its own name
    SetThreadLocale(german);
    EXPECT_EQ(module.registerServer(), S_OK);
    EXPECT_EQ(localeOfTheScript, system);
    EXPECT_EQ(GetThreadLocale(), german);
}

#else

TEST_F(ModuleRegistration, AClassThatCantBeEnteredLeavesNothingBehind)
{
    platform::closeKey(makeKey("CLSID"));
    const auto file = fs::path(std::getenv("HOME")) / ".local/state/quorel/registry/HKEY_CLASSES_ROOT/CLSID" / classId;
    std::ofstream(file) << "no directory";
    EXPECT_TRUE(FAILED(module.registerServer()));
    EXPECT_EQ(readTree(entry), RegistryTree{});
    EXPECT_EQ(readTree(classKey), RegistryTree{});
    fs::remove(file);
}

#endif

} // namespace
} // namespace quorel
