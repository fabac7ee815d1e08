#include "tests/host/memory_in_use.h"

#include <algorithm>
#include <malloc.h>
#include <span>
#include <vector>
#include <windows.h>
#include <winternl.h>

namespace quorel {

namespace {

// Found among the handles of the whole system: Wine's own count of a process's handles is always 0.
std::size_t handlesInUse()
{
    std::vector<ULONG> answer(0x40000);
    while (NtQuerySystemInformation(SystemHandleInformation, answer.data(), static_cast<ULONG>(answer.size() * sizeof(ULONG)),
                                    nullptr) < 0)
        answer.resize(2 * answer.size());
    const auto& all = *reinterpret_cast<const SYSTEM_HANDLE_INFORMATION*>(answer.data());
    const std::span handles(all.Handle, all.Count);
    return static_cast<std::size_t>(std::ranges::count(handles, GetCurrentProcessId(), &SYSTEM_HANDLE_ENTRY::OwnerPid));
}

// Takes every slot that is left.
std::size_t slotsInUse()
{
    std::vector<DWORD> slots;
    for (DWORD slot = TlsAlloc(); slot != TLS_OUT_OF_INDEXES; slot = TlsAlloc())
        slots.push_back(slot);
    for (const DWORD slot : slots)
        TlsFree(slot);
    return 1088 - slots.size();
}

} // namespace

// The module and this program allocate from one heap, the C library's.
MemoryInUse memoryInUse()
{
    MemoryInUse memory;
    memory.handles = handlesInUse();
    memory.slots = slotsInUse();
    _HEAPINFO block{};
    while (_heapwalk(&block) == _HEAPOK) {
        if (block._useflag != _USEDENTRY)
            continue;
        ++memory.blocks;
        memory.bytes += block._size;
    }
    return memory;
}

} // namespace quorel
