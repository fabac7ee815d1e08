// One variant serves a process: the widest that the processor and the operating system run. It is chosen during static
// initialisation, before any path can be built; a kernel that is called earlier still finds the baseline.
#include "core/kernels/kernel_table.h"

namespace quorel::kernels {

namespace baseline {
extern const KernelTable table;
}
#ifdef QUOREL_X86_VARIANTS
namespace avx2 {
extern const KernelTable table;
}
namespace avx512 {
extern const KernelTable table;
}
#endif

namespace {

constinit const KernelTable* inUse = &baseline::table;

[[maybe_unused]] const bool chosen = [] {
    for (const KernelTable* variant : availableVariants().table)
        if (variant != nullptr)
            inUse = variant;
    return true;
}();

} // namespace

const KernelTable& active() noexcept
{
    return *inUse;
}

VariantList availableVariants() noexcept
{
    VariantList list{{&baseline::table}};
#ifdef QUOREL_X86_VARIANTS
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma")) {
        list.table[1] = &avx2::table;
        if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512bw") &&
            __builtin_cpu_supports("avx512dq"))
            list.table[2] = &avx512::table;
    }
#endif
    return list;
}

void use(const KernelTable& variant) noexcept
{
    inUse = &variant;
}

} // namespace quorel::kernels
