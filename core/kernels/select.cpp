// SPDX-License-Identifier: MIT
// One variant serves a process: the widest that the processor and the operating system run. It is chosen during static
// initialisation, before any path can be built; a kernel that is called earlier still finds the baseline.
#include "core/kernels/select.h"

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

#ifdef QUOREL_X86_VARIANTS
bool hasAvx2() noexcept
{
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
}

bool hasAvx512() noexcept
{
    return hasAvx2() && __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512vl") &&
           __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512dq");
}
#endif

const KernelTable* widest() noexcept
{
#ifdef QUOREL_X86_VARIANTS
    if (hasAvx512())
        return &avx512::table;
    if (hasAvx2())
        return &avx2::table;
#endif
    return &baseline::table;
}

constinit const KernelTable* inUse = &baseline::table;

[[maybe_unused]] const bool chosen = [] {
    inUse = widest();
    return true;
}();

} // namespace

const KernelTable& active() noexcept
{
    return *inUse;
}

std::vector<Variant> variants()
{
    return {
        {"baseline", &baseline::table},
#ifdef QUOREL_X86_VARIANTS
        {"avx2", hasAvx2() ? &avx2::table : nullptr},
        {"avx512", hasAvx512() ? &avx512::table : nullptr},
#endif
    };
}

std::vector<const KernelTable*> availableVariants()
{
    std::vector<const KernelTable*> available;
    for (const Variant& variant : variants())
        if (variant.table != nullptr)
            available.push_back(variant.table);
    return available;
}

ForcedVariant::ForcedVariant(const KernelTable& variant) noexcept : before(active())
{
    inUse = &variant;
}

ForcedVariant::~ForcedVariant()
{
    inUse = &before;
}

} // namespace quorel::kernels
