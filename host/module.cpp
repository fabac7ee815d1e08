// SPDX-License-Identifier: MIT
#include "host/module.h"

#include "build_identifier.h" // made by the build
#include "host/class_factory.h"
#include "host/effect_object.h"
#include "host/registration.h"
#include "host/registration_properties.h"
#include "platform/module.h"

namespace {

constexpr std::uint16_t classEntryScript = 101; // of type REGISTRY

quorel::ClassFactory<quorel::QUOREL> classFactory;

HRESULT changeRegistry(HRESULT (*change)(std::string_view script, const std::string& modulePath))
{
    return change(quorel::platform::moduleText("REGISTRY", classEntryScript), quorel::platform::modulePath());
}

} // namespace

HRESULT DllCanUnloadNow()
{
    return quorel::moduleUses == 0 ? S_OK : S_FALSE;
}

HRESULT DllGetClassObject(REFCLSID id, REFIID interfaceId, void** object)
{
    if (object == nullptr)
        return E_POINTER;
    *object = nullptr;
    return id == quorel::CLSID_QUOREL ? classFactory.QueryInterface(interfaceId, object) : CLASS_E_CLASSNOTAVAILABLE;
}

HRESULT DllRegisterServer()
{
    return changeRegistry(quorel::registerServer);
}

HRESULT DllUnregisterServer()
{
    return changeRegistry(quorel::unregisterServer);
}

const char* const build_guid = "$Build guid$: " QUOREL_BUILD_GUID;

int GetBuildInfo(void* owner)
{
    return quorel::platform::showMessage(owner, "Info", QUOREL_BUILD_GUID);
}
