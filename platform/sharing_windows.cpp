// SPDX-License-Identifier: MIT
#include "platform/sharing.h"

#include "platform/refusal.h"
#include "platform/text_windows.h"

#include <exception>
#include <memory>
#include <sddl.h>

namespace quorel::platform {

namespace {

Handle handleOf(HANDLE handle)
{
    return reinterpret_cast<Handle>(handle);
}

HANDLE handleOf(Handle handle)
{
    return reinterpret_cast<HANDLE>(handle);
}

// The handle of a named object, or null and why there is none.
Handle kept(HANDLE handle, const char* name)
{
    if (handle == nullptr)
        keepRefusal(name, static_cast<int>(GetLastError()));
    return handleOf(handle);
}

SECURITY_ATTRIBUTES attributesOf(const Descriptor* descriptor)
{
    return {sizeof(SECURITY_ATTRIBUTES), const_cast<Descriptor*>(descriptor), FALSE};
}

struct ThreadStart {
    void (*run)(void*);
    void* argument;
};

DWORD WINAPI runThread(void* start)
{
    const std::unique_ptr<ThreadStart> thread(static_cast<ThreadStart*>(start));
    thread->run(thread->argument);
    return 0;
}

} // namespace

Descriptor* convertDescriptor(const char* text) noexcept
try {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (ConvertStringSecurityDescriptorToSecurityDescriptorW(wide(text).c_str(), SDDL_REVISION_1, &descriptor, nullptr) == 0)
        return nullptr;
    return static_cast<Descriptor*>(descriptor);
} catch (const std::exception&) {
    return nullptr;
}

void freeDescriptor(Descriptor* descriptor) noexcept
{
    LocalFree(descriptor);
}

Handle openMapping(const char* name) noexcept
try {
    return handleOf(OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, wide(name).c_str()));
} catch (const std::exception&) {
    return nullptr;
}

Handle createMapping(const char* name, std::uint32_t bytes, const Descriptor* descriptor) noexcept
try {
    auto attributes = attributesOf(descriptor);
    return kept(CreateFileMappingW(INVALID_HANDLE_VALUE, &attributes, PAGE_READWRITE | SEC_COMMIT, 0, bytes, wide(name).c_str()),
                name);
} catch (const std::exception&) {
    return nullptr;
}

void* mapView(Handle mapping, std::size_t bytes) noexcept
{
    return MapViewOfFile(handleOf(mapping), FILE_MAP_ALL_ACCESS, 0, 0, bytes);
}

void unmapView(void* view, std::size_t) noexcept
{
    UnmapViewOfFile(view);
}

Handle createEvent(const char* name, const Descriptor* descriptor) noexcept
try {
    if (name == nullptr)
        return handleOf(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    auto attributes = attributesOf(descriptor);
    return kept(CreateEventW(&attributes, TRUE, FALSE, wide(name).c_str()), name);
} catch (const std::exception&) {
    return nullptr;
}

Handle openEvent(const char* name) noexcept
try {
    return handleOf(OpenEventW(EVENT_ALL_ACCESS, FALSE, wide(name).c_str()));
} catch (const std::exception&) {
    return nullptr;
}

bool setEvent(Handle event) noexcept
{
    return SetEvent(handleOf(event)) != 0;
}

bool resetEvent(Handle event) noexcept
{
    return ResetEvent(handleOf(event)) != 0;
}

int waitForEither(Handle first, Handle second) noexcept
{
    const HANDLE waited[] = {handleOf(first), handleOf(second)};
    const auto result = WaitForMultipleObjects(2, waited, FALSE, INFINITE);
    return result == WAIT_OBJECT_0 ? 0 : result == WAIT_OBJECT_0 + 1 ? 1 : -1;
}

Handle startThread(void (*run)(void*), void* argument) noexcept
try {
    auto start = std::make_unique<ThreadStart>(run, argument);
    const auto thread = CreateThread(nullptr, 0, runThread, start.get(), 0, nullptr);
    if (thread != nullptr)
        static_cast<void>(start.release());
    return handleOf(thread);
} catch (const std::exception&) {
    return nullptr;
}

bool waitFor(Handle object, std::uint32_t milliseconds) noexcept
{
    return WaitForSingleObject(handleOf(object), milliseconds) == WAIT_OBJECT_0;
}

void pause(std::uint32_t milliseconds) noexcept
{
    Sleep(milliseconds);
}

void closeHandle(Handle object) noexcept
{
    CloseHandle(handleOf(object));
}

void leaveOpen(Handle) noexcept {} // They stay, and each handler's life adds its own.

struct UserTurn::State {};

UserTurn::UserTurn(std::uint32_t) noexcept
{
    static State always;
    state = &always;
}

UserTurn::~UserTurn() = default;

bool UserTurn::finish() noexcept
{
    return true;
}

void keepModule() noexcept
{
    HMODULE module = nullptr;
    GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
                       reinterpret_cast<const char*>(&keepModule), &module);
}

} // namespace quorel::platform
