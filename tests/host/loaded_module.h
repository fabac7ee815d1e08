// SPDX-License-Identifier: MIT
// The module as an audio engine meets it: loaded from its file, reached by the names it exports.
#pragma once

#include "host/class_factory.h"
#include "host/registration_properties.h"
#include "tests/host/engine.h"

#include <string>

namespace quorel {

class LoadedModule {
public:
    // QUOREL_MODULE is the file that the build has made.
    explicit LoadedModule(const std::string& path = QUOREL_MODULE);
    ~LoadedModule();
    LoadedModule(const LoadedModule&) = delete;
    LoadedModule& operator=(const LoadedModule&) = delete;

    // As the system knows it.
    std::string path() const;

    // Windows: what the module calls under this name of another library's is `replacement` from now on.
    void replaceImport(const char* library, const char* name, void* replacement) const;

    // Null when the module doesn't export it.
    void* address(const char* name) const;

    template <class Function>
    Function* function(const char* name) const
    {
        void* const found = address(name);
        EXPECT_NE(found, nullptr) << name;
        return reinterpret_cast<Function*>(found);
    }

    // Lets go of the module. False when it stays in this process.
    bool unload();

    HRESULT canUnload() const { return function<HRESULT()>("DllCanUnloadNow")(); }
    HRESULT registerServer() const { return function<HRESULT()>("DllRegisterServer")(); }
    HRESULT unregisterServer() const { return function<HRESULT()>("DllUnregisterServer")(); }

    HRESULT classObject(REFCLSID id, REFIID interfaceId, void** object) const
    {
        return function<HRESULT(REFCLSID, REFIID, void**)>("DllGetClassObject")(id, interfaceId, object);
    }

    std::string buildIdentifier() const { return *static_cast<const char* const*>(address("build_guid")); }

    // With a reference for the caller.
    IClassFactory* factory() const
    {
        void* found = nullptr;
        EXPECT_EQ(classObject(CLSID_QUOREL, IID_IClassFactory, &found), S_OK);
        return static_cast<IClassFactory*>(found);
    }

    // A new effect object of the module's, with a reference for the caller.
    IUnknown* create() const
    {
        IClassFactory* const classFactory = factory();
        void* made = nullptr;
        EXPECT_EQ(classFactory->CreateInstance(nullptr, IID_IUnknown, &made), S_OK);
        classFactory->Release();
        return static_cast<IUnknown*>(made);
    }

private:
    void* handle;
};

// A new effect object, found by its class's entry in the registry alone, with a reference for the caller: by the system
// where it has such an operation.
IUnknown* createRegisteredClass();

} // namespace quorel
