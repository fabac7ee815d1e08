// SPDX-License-Identifier: MIT
#include "platform/named_lock.h"

#include "platform/refusal.h"
#include "platform/text_windows.h"

#include <exception>

namespace quorel::platform {

NamedLock::NamedLock(const char* name, const Descriptor* descriptor, std::uint32_t milliseconds) noexcept
{
    try {
        SECURITY_ATTRIBUTES attributes = {sizeof(SECURITY_ATTRIBUTES), const_cast<Descriptor*>(descriptor), FALSE};
        const HANDLE mutex = CreateMutexW(&attributes, FALSE, wide(name).c_str());
        if (mutex == nullptr)
            return;
        const DWORD result = WaitForSingleObject(mutex, milliseconds);
        if (result == WAIT_OBJECT_0 || result == WAIT_ABANDONED)
            held = reinterpret_cast<std::intptr_t>(mutex);
        else
            CloseHandle(mutex);
    } catch (const std::exception&) {
        return; // There is no lock then.
    }
}

NamedLock::~NamedLock()
{
    if (held == none)
        return;
    ReleaseMutex(reinterpret_cast<HANDLE>(held));
    CloseHandle(reinterpret_cast<HANDLE>(held));
}

} // namespace quorel::platform
