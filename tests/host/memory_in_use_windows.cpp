#include "tests/host/memory_in_use.h"

#include <malloc.h>
#include <windows.h>

namespace quorel {

// The module and this program allocate from one heap, the C library's.
MemoryInUse memoryInUse()
{
    MemoryInUse memory;
    _HEAPINFO block{};
    while (_heapwalk(&block) == _HEAPOK) {
        if (block._useflag != _USEDENTRY)
            continue;
        ++memory.blocks;
        memory.bytes += block._size;
    }
    DWORD handles = 0;
    GetProcessHandleCount(GetCurrentProcess(), &handles);
    memory.handles = handles;
    return memory;
}

} // namespace quorel
