// SPDX-License-Identifier: MIT
// The example of an INF as the system's own reader takes it: it enters what the module itself registers, and puts the effect on
// both kinds of endpoint.
#include "tests/host/loaded_module.h"
#include "tests/host/registry_tree.h"

#include <gtest/gtest.h>

#include <setupapi.h>
#include <string>

namespace quorel {
namespace {

const std::string classId = "{5B0E3C92-7D14-4F6A-A2C8-19D3E60B7F44}";
const std::string scratch = "QuorelInfTest";

class Inf : public testing::Test {
protected:
    Inf() : inf(SetupOpenInfFileA(EXAMPLE_INF, nullptr, INF_STYLE_WIN4, nullptr)) {}
    ~Inf() override
    {
        if (inf != INVALID_HANDLE_VALUE)
            SetupCloseInfFile(inf);
    }

    // Enters the values of an install section; those under HKR below a key of the test's own.
    RegistryTree entered(const char* section)
    {
        HKEY key = nullptr;
        EXPECT_EQ(RegCreateKeyExA(HKEY_CLASSES_ROOT, scratch.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr), 0);
        EXPECT_TRUE(SetupInstallFromInfSectionA(nullptr, inf, section, SPINST_REGISTRY, key, nullptr, 0, nullptr, nullptr,
                                                nullptr, nullptr))
            << section;
        RegCloseKey(key);
        auto tree = readTree(scratch);
        EXPECT_EQ(RegDeleteTreeA(HKEY_CLASSES_ROOT, scratch.c_str()), 0);
        return tree;
    }

    // The first field of a section's line.
    std::string line(const char* section, const char* key)
    {
        INFCONTEXT context;
        char text[512] = "";
        EXPECT_TRUE(SetupFindFirstLineA(inf, section, key, &context)) << section << ' ' << key;
        EXPECT_TRUE(SetupGetStringFieldA(&context, 1, text, sizeof text, nullptr)) << section << ' ' << key;
        return text;
    }

    HINF inf;
};

TEST_F(Inf, ItIsReadWithoutAnError)
{
    ASSERT_NE(inf, INVALID_HANDLE_VALUE) << GetLastError();
    EXPECT_EQ(line("Version", "Class"), "Extension");
    EXPECT_EQ(line("SourceDisksFiles", "ZELTA.dll"), "1");
    EXPECT_EQ(line("DestinationDirs", line("Headset_Install.NT", "CopyFiles").c_str()), "13");
    EXPECT_EQ(line("SignatureAttributes", "ZELTA.dll"), "SignatureAttributes.PETrust");
}

TEST_F(Inf, ItEntersWhatTheModuleRegisters)
{
    ASSERT_NE(inf, INVALID_HANDLE_VALUE) << GetLastError();
    const LoadedModule module;
    const std::string entry = R"(AudioEngine\AudioProcessingObjects\)" + classId;
    const std::string classKey = R"(CLSID\)" + classId;
    ASSERT_EQ(module.registerServer(), S_OK);
    const RegistryTree entryOfModule = readTree(entry);
    RegistryTree classOfModule = readTree(classKey);
    ASSERT_EQ(module.unregisterServer(), S_OK);
    ASSERT_EQ(readTree(entry), RegistryTree{});

    entered("Headset_Install.NT");
    EXPECT_EQ(readTree(entry), entryOfModule);

    // The path of the file is the installation's: only its end is the same.
    RegistryTree classOfInf = readTree(classKey);
    const auto takePath = [&](RegistryTree& tree) {
        auto& values = tree.at(classKey + R"(\InprocServer32)");
        for (const auto& value : values) {
            if (value.starts_with("@=")) {
                EXPECT_TRUE(value.ends_with(R"(\\ZELTA.dll")")) << value;
                values.erase(value);
                return;
            }
        }
        ADD_FAILURE() << "no path";
    };
    takePath(classOfModule);
    takePath(classOfInf);
    EXPECT_EQ(classOfInf, classOfModule);
    EXPECT_EQ(module.unregisterServer(), S_OK);
}

TEST_F(Inf, ItPutsTheEffectOnARenderAndACaptureEndpoint)
{
    ASSERT_NE(inf, INVALID_HANDLE_VALUE) << GetLastError();
    INFCONTEXT context;
    char name[64] = "";
    ASSERT_TRUE(SetupFindFirstLineA(inf, "Headset_Install.NT.Interfaces", "AddInterface", &context));
    ASSERT_TRUE(SetupGetStringFieldA(&context, 1, name, sizeof name, nullptr));
    EXPECT_STREQ(name, "{6994AD04-93EF-11D0-A3CC-00A0C9223196}");
    ASSERT_TRUE(SetupGetStringFieldA(&context, 3, name, sizeof name, nullptr));

    const auto tree = entered(name);
    const std::string property = R"("{D04E05A6-594B-4FB6-A80D-01AF5EED7D1D},)";
    const std::string effect = property + R"(5"=")" + classId + '"';
    const std::string modes = R"("{D3993A3F-99C2-4402-B5EC-A92A0367664B},5"=type 7)"; // several texts
    const RegistryTree expected{
        {scratch, {}},
        {scratch + R"(\FX)", {}},
        {scratch + R"(\FX\0)", {property + R"(0"="{DFF21CE1-F70F-11D0-B917-00A0C9223196}")", effect, modes}},
        {scratch + R"(\FX\1)", {property + R"(0"="{DFF21BE1-F70F-11D0-B917-00A0C9223196}")", effect, modes}},
    };
    EXPECT_EQ(tree, expected);
}

} // namespace
} // namespace quorel
