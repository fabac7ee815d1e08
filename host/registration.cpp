// SPDX-License-Identifier: MIT
#include "host/registration.h"

#include "host/registration_properties.h"
#include "host/registry_script.h"
#include "host/text.h"
#include "platform/module.h"
#include "platform/registry.h"

#include <algorithm>
#include <array>
#include <exception>
#include <utility>

namespace quorel {

namespace {

constexpr std::uint32_t keyWrite = 0x20006;
constexpr const char* engineList = R"(AudioEngine\AudioProcessingObjects)";
constexpr const char* applicationId = "{C07D41E6-93AF-4E18-B65D-2F8A11C4D903}";
constexpr std::uint32_t systemDefaultLocale = 2048;

class Key {
public:
    Key() = default;
    ~Key()
    {
        if (key != nullptr)
            platform::closeKey(key);
    }
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;

    platform::RegistryKey key = nullptr;
};

class SystemLocale {
public:
    SystemLocale() : before(platform::setThreadLocale(systemDefaultLocale)) {}
    ~SystemLocale() { platform::setThreadLocale(before); }
    SystemLocale(const SystemLocale&) = delete;
    SystemLocale& operator=(const SystemLocale&) = delete;

private:
    std::uint32_t before;
};

// Empty when the system fails.
std::string textOf(REFGUID id)
{
    std::array<WCHAR, 64> text{};
    return StringFromGUID2(id, text.data(), static_cast<int>(text.size())) > 0 ? utf8(text.data()) : std::string();
}

HRESULT resultOf(platform::RegistryResult error)
{
    return HRESULT_FROM_WIN32(error);
}

// A text that fills its field has no room for its end mark.
template <std::size_t units>
HRESULT setText(platform::RegistryKey key, const char* name, const WCHAR (&field)[units])
{
    const bool hasEnd = std::find(field, field + units, WCHAR{0}) != field + units;
    return hasEnd ? resultOf(platform::setText(key, name, utf8(field))) : E_INVALIDARG;
}

HRESULT writeProperties(platform::RegistryKey key, const APO_REG_PROPERTIES& properties)
{
    if (const HRESULT result = setText(key, "FriendlyName", properties.szFriendlyName); FAILED(result))
        return result;
    if (const HRESULT result = setText(key, "Copyright", properties.szCopyrightInfo); FAILED(result))
        return result;
    const std::pair<const char*, std::uint32_t> numbers[] = {
        {"MajorVersion", properties.u32MajorVersion},
        {"MinorVersion", properties.u32MinorVersion},
        {"Flags", static_cast<std::uint32_t>(properties.Flags)},
        {"MinInputConnections", properties.u32MinInputConnections},
        {"MaxInputConnections", properties.u32MaxInputConnections},
        {"MinOutputConnections", properties.u32MinOutputConnections},
        {"MaxOutputConnections", properties.u32MaxOutputConnections},
        {"MaxInstances", properties.u32MaxInstances},
        {"NumAPOInterfaces", properties.u32NumAPOInterfaces},
    };
    for (const auto& [name, value] : numbers) {
        if (const HRESULT result = resultOf(platform::setNumber(key, name, value)); FAILED(result))
            return result;
    }
    const IID* interfaces = properties.iidAPOInterfaceList; // its length is counted, not declared
    for (std::uint32_t i = 0; i < properties.u32NumAPOInterfaces; ++i) {
        const auto id = textOf(interfaces[i]);
        if (id.empty())
            return E_UNEXPECTED;
        const auto name = "APOInterface" + std::to_string(i);
        if (const HRESULT result = resultOf(platform::setText(key, name, id)); FAILED(result))
            return result;
    }
    return S_OK;
}

RegistryScript classEntries(std::string_view script, const std::string& modulePath)
{
    return {script, {{"APPID", applicationId}, {"MODULE", modulePath}}};
}

HRESULT enterClasses(std::string_view script, const std::string& modulePath)
{
    if (modulePath.empty())
        return E_UNEXPECTED;
    const auto entries = classEntries(script, modulePath);
    const SystemLocale locale;
    const auto error = entries.enter();
    if (error != 0)
        entries.remove();
    return resultOf(error);
}

} // namespace

HRESULT registerWithEngine(const APO_REG_PROPERTIES* properties)
{
    if (properties == nullptr)
        return E_POINTER;
    Key list;
    auto error = platform::createKey(platform::rootKey(platform::RootKey::classesRoot), engineList, keyWrite, list.key);
    if (error != 0)
        return resultOf(error);

    const auto id = textOf(properties->clsid);
    if (id.empty())
        return S_OK; // Required: without a name for the entry registering succeeds and registers nothing.

    platform::deleteKey(list.key, id, 0);
    Key entry;
    error = platform::createKey(list.key, id, keyWrite, entry.key);
    return error != 0 ? resultOf(error) : writeProperties(entry.key, *properties);
}

HRESULT unregisterFromEngine(REFCLSID id)
{
    const auto name = textOf(id);
    if (name.empty())
        return E_UNEXPECTED;
    const auto path = std::string(engineList) + '\\' + name;
    return resultOf(platform::deleteKey(platform::rootKey(platform::RootKey::classesRoot), path, 0));
}

HRESULT registerServer(std::string_view script, const std::string& modulePath)
{
    HRESULT result = E_UNEXPECTED;
    try {
        result = registerWithEngine(&registrationProperties);
        if (SUCCEEDED(result))
            result = enterClasses(script, modulePath);
    } catch (const std::exception&) {
        result = E_UNEXPECTED;
    }
    if (FAILED(result))
        unregisterFromEngine(registrationProperties.clsid);
    return result;
}

HRESULT unregisterServer(std::string_view script, const std::string& modulePath)
try {
    const auto error = classEntries(script, modulePath).remove();
    return error != 0 ? resultOf(error) : unregisterFromEngine(registrationProperties.clsid);
} catch (const std::exception&) {
    return E_UNEXPECTED;
}

} // namespace quorel
