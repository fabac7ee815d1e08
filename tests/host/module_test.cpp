// SPDX-License-Identifier: MIT
#include "host/module.h"

#include "tests/host/loaded_module.h"
#include "tests/support/private_home.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace quorel {
namespace {

// Any pointer that an operation must leave alone or set to null.
void* const anyPointer = reinterpret_cast<void*>(0x10);

TEST(Module, ItExportsItsSixNames)
{
    const LoadedModule module;
    for (const auto* name :
         {"DllCanUnloadNow", "DllGetClassObject", "DllRegisterServer", "DllUnregisterServer", "GetBuildInfo", "build_guid"})
        EXPECT_NE(module.address(name), nullptr) << name;
    EXPECT_EQ(module.address("DllMain"), nullptr);
}

TEST(Module, TheBuildIdentifierIsAGuidInLowerCase)
{
    const LoadedModule module;
    std::string text = module.buildIdentifier();
    ASSERT_EQ(text.substr(0, 14), "$Build guid$: ");
    text.erase(0, 14);
    for (char& c : text)
        if ((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'))
            c = 'x';
    EXPECT_EQ(text, "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx");
}

TEST(Module, ItCanBeUnloadedBeforeAndAfterItIsUsed)
{
    LoadedModule module;
    EXPECT_EQ(module.canUnload(), S_OK);
    module.create()->Release();
    EXPECT_EQ(module.canUnload(), S_OK);
    EXPECT_TRUE(module.unload());
}

TEST(Module, AFactoryKeepsItLoaded)
{
    const LoadedModule module;
    IClassFactory* factory = module.factory();
    EXPECT_EQ(module.canUnload(), S_FALSE);
    factory->AddRef();
    factory->Release();
    EXPECT_EQ(module.canUnload(), S_FALSE);
    factory->Release();
    EXPECT_EQ(module.canUnload(), S_OK);
}

TEST(Module, AnObjectKeepsItLoaded)
{
    const LoadedModule module;
    IUnknown* object = module.create();
    EXPECT_EQ(module.canUnload(), S_FALSE);
    EXPECT_EQ(object->Release(), 0U);
    EXPECT_EQ(module.canUnload(), S_OK);
}

TEST(Module, ALockKeepsItLoaded)
{
    const LoadedModule module;
    IClassFactory* factory = module.factory();
    EXPECT_EQ(factory->LockServer(TRUE), S_OK);
    EXPECT_EQ(factory->LockServer(TRUE), S_OK);
    factory->Release();
    EXPECT_EQ(module.canUnload(), S_FALSE);
    factory = module.factory();
    EXPECT_EQ(factory->LockServer(FALSE), S_OK);
    EXPECT_EQ(factory->LockServer(FALSE), S_OK);
    factory->Release();
    EXPECT_EQ(module.canUnload(), S_OK);
}

// The general answer proposes the format that the other side has.
TEST(Module, AProposedFormatKeepsItLoaded)
{
    const EndpointEntry entry("Render");
    LoadedModule module;
    IAudioMediaType* proposed = nullptr;
    {
        Effect effect(module.create());
        ASSERT_EQ(effect.initialize(AUDIO_SIGNALPROCESSINGMODE_DEFAULT, TRUE), S_OK);
        Format opposite(surroundFormat());
        Format requested(floatFormat(8, 44100.0F, 0x63F));
        EXPECT_EQ(effect.object->IsInputFormatSupported(&opposite, &requested, &proposed), APOERR_FORMAT_NOT_SUPPORTED);
        ASSERT_NE(proposed, nullptr);
    }
    EXPECT_EQ(module.canUnload(), S_FALSE);
    EXPECT_EQ(proposed->Release(), 0U);
    EXPECT_EQ(module.canUnload(), S_OK);
}

TEST(Module, AnUnknownClassHasNoFactory)
{
    const LoadedModule module;
    void* object = anyPointer;
    EXPECT_EQ(module.classObject(IID_IQUORELSFX, IID_IClassFactory, &object), CLASS_E_CLASSNOTAVAILABLE);
    EXPECT_EQ(object, nullptr);
}

TEST(Module, ANullResultPointerIsRefusedBeforeTheClassIsLookedAt)
{
    const LoadedModule module;
    EXPECT_EQ(module.classObject(CLSID_QUOREL, IID_IClassFactory, nullptr), E_POINTER);
    EXPECT_EQ(module.classObject(IID_IQUORELSFX, IID_IClassFactory, nullptr), E_POINTER);
}

TEST(Module, AFactoryIsAFactoryAlone)
{
    const LoadedModule module;
    void* object = anyPointer;
    EXPECT_EQ(module.classObject(CLSID_QUOREL, IID_IAudioProcessingObject, &object), E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);

    IClassFactory* factory = module.factory();
    EXPECT_EQ(factory->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
    EXPECT_EQ(factory->QueryInterface(IID_IUnknown, &object), S_OK);
    EXPECT_EQ(object, factory);
    factory->Release();
    factory->Release();
    EXPECT_EQ(module.canUnload(), S_OK);
}

TEST(Module, AFactoryMakesEveryInterfaceOfTheObject)
{
    const LoadedModule module;
    IClassFactory* factory = module.factory();
    for (const auto& id :
         {IID_IUnknown, IID_IQUORELSFX, IID_IAudioSystemEffects, IID_IAudioSystemEffects2, IID_IMMNotificationClient,
          IID_IAudioProcessingObjectRT, IID_IAudioProcessingObject, IID_IAudioProcessingObjectConfiguration}) {
        void* object = nullptr;
        EXPECT_EQ(factory->CreateInstance(nullptr, id, &object), S_OK);
        ASSERT_NE(object, nullptr);
        EXPECT_EQ(static_cast<IUnknown*>(object)->Release(), 0U);
    }
    void* object = anyPointer;
    EXPECT_EQ(factory->CreateInstance(nullptr, IID_IClassFactory, &object), E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(factory->CreateInstance(nullptr, IID_IUnknown, nullptr), E_POINTER);
    factory->Release();
    EXPECT_EQ(module.canUnload(), S_OK);
}

TEST(Module, AnObjectCanBePartOfAnother)
{
    const LoadedModule module;
    IClassFactory* factory = module.factory();
    Counted<IUnknown> outer;

    void* inner = anyPointer;
    EXPECT_EQ(factory->CreateInstance(&outer, IID_IAudioProcessingObject, &inner), CLASS_E_NOAGGREGATION);
    EXPECT_EQ(inner, nullptr);

    EXPECT_EQ(factory->CreateInstance(&outer, IID_IUnknown, &inner), S_OK);
    ASSERT_NE(inner, nullptr);
    void* part = nullptr;
    EXPECT_EQ(static_cast<IUnknown*>(inner)->QueryInterface(IID_IAudioProcessingObject, &part), S_OK);
    EXPECT_EQ(outer.references, 2U) << "a part's references are its whole's";
    static_cast<IUnknown*>(part)->Release();
    EXPECT_EQ(static_cast<IUnknown*>(inner)->Release(), 0U);
    factory->Release();
    EXPECT_EQ(module.canUnload(), S_OK);
}

TEST(Module, TheRegistrationPropertiesAreTheConstantsOnes)
{
    const LoadedModule module;
    IUnknown* unknown = module.create();
    IAudioProcessingObject* object = nullptr;
    ASSERT_EQ(unknown->QueryInterface(IID_IAudioProcessingObject, reinterpret_cast<void**>(&object)), S_OK);
    APO_REG_PROPERTIES* properties = nullptr;
    ASSERT_EQ(object->GetRegistrationProperties(&properties), S_OK);
    EXPECT_EQ(std::memcmp(properties, &registrationProperties, sizeof registrationProperties), 0);
    CoTaskMemFree(properties);
    object->Release();
    unknown->Release();
}

#ifdef _WIN32

// Without a screen there are no boxes: the module's import of MessageBoxA is replaced in memory by an operation that keeps what
// it is asked for.
struct Box {
    HWND owner = nullptr;
    std::string title;
    std::string text;
    static constexpr int result = 77;
};
Box shown;

int WINAPI keepBox(HWND owner, LPCSTR text, LPCSTR title, UINT)
{
    shown = {owner, title, text};
    return Box::result;
}

TEST(Module, TheBuildIdentifierIsShownInABox)
{
    LoadedModule module;
    module.replaceImport("user32.dll", "MessageBoxA", reinterpret_cast<void*>(&keepBox));
    auto* const owner = reinterpret_cast<HWND>(0x1234);
    EXPECT_EQ(module.function<int(void*)>("GetBuildInfo")(owner), Box::result);
    EXPECT_EQ(shown.owner, owner);
    EXPECT_EQ(shown.title, "Info");
    EXPECT_EQ("$Build guid$: " + shown.text, module.buildIdentifier());
    EXPECT_TRUE(module.unload());
}

TEST(Module, TheVersionResourceNamesTheFileAndItsVersion)
{
    DWORD ignored = 0;
    std::vector<char> version(GetFileVersionInfoSizeA(QUOREL_MODULE, &ignored));
    ASSERT_FALSE(version.empty());
    ASSERT_NE(GetFileVersionInfoA(QUOREL_MODULE, 0, static_cast<DWORD>(version.size()), version.data()), 0);

    void* found = nullptr;
    UINT size = 0;
    ASSERT_NE(VerQueryValueA(version.data(), "\\", &found, &size), 0);
    const auto& fixed = *static_cast<VS_FIXEDFILEINFO*>(found);
    EXPECT_EQ(fixed.dwFileVersionMS, 0x10003U);
    EXPECT_EQ(fixed.dwFileVersionLS, 370U);
    EXPECT_EQ(fixed.dwProductVersionMS, 0x10003U);
    EXPECT_EQ(fixed.dwProductVersionLS, 370U);

    const std::pair<const char*, const char*> texts[] = {{"Comments",
                                                          "Responses: HRTF measurement of a KEMAR head, Bill Gardner and "
                                                          "Keith Martin, MIT Media Lab, 1994"},
                                                         {"FileVersion", "1.3.0.370"},
                                                         {"ProductVersion", "1.3.0.370"},
                                                         {"FileDescription", "VEDRA APO"},
                                                         {"InternalName", "ZELTA.dll"},
                                                         {"ProductName", "ZELTA"}};
    for (const auto& [name, value] : texts) {
        ASSERT_NE(VerQueryValueA(version.data(), (std::string(R"(\StringFileInfo\040904B0\)") + name).c_str(), &found, &size), 0)
            << name;
        EXPECT_STREQ(static_cast<const char*>(found), value) << name;
    }
}

TEST(Module, TheRegistryScriptIsAResource)
{
    const HMODULE file = LoadLibraryExA(QUOREL_MODULE, nullptr, LOAD_LIBRARY_AS_DATAFILE);
    ASSERT_NE(file, nullptr);
    const HRSRC resource = FindResourceA(file, MAKEINTRESOURCEA(101), "REGISTRY");
    ASSERT_NE(resource, nullptr);
    const std::string script(static_cast<const char*>(LockResource(LoadResource(file, resource))),
                             SizeofResource(file, resource));
    EXPECT_THAT(script, testing::StartsWith("HKCR"));
    EXPECT_THAT(script, testing::HasSubstr("ForceRemove {5B0E3C92-7D14-4F6A-A2C8-19D3E60B7F44} = s 'ZELTA'"));
    FreeLibrary(file);
}

TEST(Module, ItHasNoManifest)
{
    const HMODULE file = LoadLibraryExA(QUOREL_MODULE, nullptr, LOAD_LIBRARY_AS_DATAFILE);
    ASSERT_NE(file, nullptr);
    const auto count = [](HMODULE, const char*, char*, LONG_PTR counter) -> BOOL {
        ++*reinterpret_cast<int*>(counter);
        return TRUE;
    };
    int manifests = 0;
    EnumResourceNamesA(file, MAKEINTRESOURCEA(24), count, reinterpret_cast<LONG_PTR>(&manifests));
    EXPECT_EQ(manifests, 0);
    FreeLibrary(file);
}

#else

TEST(Module, WithoutAScreenTheBuildIdentifierIsNotShown)
{
    const LoadedModule module;
    EXPECT_EQ(module.function<int(void*)>("GetBuildInfo")(nullptr), 0);
}

#endif

} // namespace
} // namespace quorel
