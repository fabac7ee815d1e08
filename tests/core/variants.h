// Tests that run once with each variant of the kernels that this machine has.
#pragma once

#include "core/kernels/kernel_table.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace quorel {

// The variants that run here, the baseline first.
inline std::vector<const kernels::KernelTable*> variants()
{
    std::vector<const kernels::KernelTable*> all;
    for (const auto* table : kernels::availableVariants().table)
        if (table != nullptr)
            all.push_back(table);
    return all;
}

// Puts its parameter into use for the length of a test.
class WithVariant : public testing::TestWithParam<const kernels::KernelTable*> {
protected:
    void SetUp() override { kernels::use(*GetParam()); }
    void TearDown() override { kernels::use(before); }

private:
    const kernels::KernelTable& before = kernels::active();
};

inline std::string variantName(const testing::TestParamInfo<const kernels::KernelTable*>& variant)
{
    return variant.param->name;
}

} // namespace quorel
