// SPDX-License-Identifier: MIT
// Which variant of the kernels is in use, which others there are, and how a test or a benchmark puts a lower one into use.
#pragma once

#include "core/kernels/kernel_table.h"

#include <vector>

namespace quorel::kernels {

struct Variant {
    const char* name;
    const KernelTable* table; // null where this processor lacks the variant's instructions
};

// Every variant that was built, the baseline first and the widest last.
std::vector<Variant> variants();

// Those that this processor runs.
std::vector<const KernelTable*> availableVariants();

// Puts a variant into use as long as it lives, for tests and benchmarks; not while kernels run. What was initialised under
// another variant keeps its tables' layout and must not be used meanwhile, but for transforms, which remember theirs.
class ForcedVariant {
public:
    explicit ForcedVariant(const KernelTable& variant) noexcept;
    ~ForcedVariant();
    ForcedVariant(const ForcedVariant&) = delete;
    ForcedVariant& operator=(const ForcedVariant&) = delete;

private:
    const KernelTable& before;
};

} // namespace quorel::kernels
