// SPDX-License-Identifier: MIT
// Tests that run once with each variant of the kernels, and with the bodies of sixteen lanes lowered to what every machine has.
#pragma once

#include "core/kernels/select.h"

#include <gtest/gtest.h>

#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace quorel {

namespace kernels::lowered {
extern const KernelTable table;
}

namespace kernels {
inline void PrintTo(const Variant& variant, std::ostream* out)
{
    *out << variant.name;
}
} // namespace kernels

inline std::vector<kernels::Variant> testedVariants()
{
    auto all = kernels::variants();
    all.push_back({"lowered", &kernels::lowered::table});
    return all;
}

// Puts its parameter into use for the length of a test.
class WithVariant : public testing::TestWithParam<kernels::Variant> {
protected:
    void SetUp() override
    {
        if (GetParam().table == nullptr)
            GTEST_SKIP() << "This machine lacks " << GetParam().name
                         << ": what the compiler makes of its bodies goes untested; the bodies themselves run lowered.";
        forced.emplace(*GetParam().table);
    }
    void TearDown() override { forced.reset(); }

private:
    std::optional<kernels::ForcedVariant> forced;
};

inline std::string variantName(const testing::TestParamInfo<kernels::Variant>& variant)
{
    return variant.param.name;
}

} // namespace quorel
