// SPDX-License-Identifier: MIT
#include "core/kernels/bank.h"

#include "core/kernels/arguments.h"
#include "core/kernels/section.h"

namespace quorel {

Status cascadeBankSet(kernels::BankState* bank, std::size_t c, const float* taps) noexcept
{
    for (const float* t = taps; t < taps + 6 * kernels::BankState::sections; t += 6) {
        if (t[0] == 0 || t[3] == 0)
            return ippStsDivByZeroErr;
        // From here on single precision's roundings of 2^-24 stay below 2^-20 of what passes through.
        if (!(kernels::sectionOf(t).weakest >= 0x1p-4))
            return ippStsCoeffErr;
    }
    for (std::size_t s = 0; s < kernels::BankState::sections; ++s) {
        const kernels::Section section = kernels::sectionOf(taps + 6 * s);
        kernels::BankSection& lanes = bank->section[s];
        lanes.b0[c] = static_cast<float>(section.b[0]);
        lanes.b1[c] = static_cast<float>(section.b[1]);
        lanes.b2[c] = static_cast<float>(section.b[2]);
        lanes.a1[c] = static_cast<float>(section.a[1]);
        lanes.a2[c] = static_cast<float>(section.a[2]);
        lanes.s1[c] = lanes.s2[c] = 0.0F;
    }
    return ippStsNoErr;
}

Status cascadeBankRun(kernels::BankState* bank, const float* const* in, float* const* out, std::int32_t len) noexcept
{
    if (kernels::anyNull(in, lineCount) || kernels::anyNull(out, lineCount))
        return ippStsNullPtrErr;
    return kernels::run<&kernels::KernelTable::cascadeBank>(bank, in, out, kernels::Length{len});
}

} // namespace quorel
