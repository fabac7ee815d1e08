// SPDX-License-Identifier: MIT
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

// Of threads' own storage, of both kinds: takes every one that is left.
std::size_t freeSlots()
{
    std::vector<DWORD> plain;
    for (DWORD slot = TlsAlloc(); slot != TLS_OUT_OF_INDEXES; slot = TlsAlloc())
        plain.push_back(slot);
    std::vector<DWORD> withEnd; // that call an operation at a thread's end
    for (DWORD slot = FlsAlloc(nullptr); slot != FLS_OUT_OF_INDEXES; slot = FlsAlloc(nullptr))
        withEnd.push_back(slot);
    for (const DWORD slot : plain)
        TlsFree(slot);
    for (const DWORD slot : withEnd)
        FlsFree(slot);
    return plain.size() + withEnd.size();
}

} // namespace

// The module and this program allocate from one heap, the C library's.
MemoryInUse memoryInUse()
{
    MemoryInUse memory;
    memory.handles = handlesInUse();
    memory.freeSlots = freeSlots();
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
