// SPDX-License-Identifier: MIT
// A transform of the kernels' with the storage that it needs.
#pragma once

#include "core/kernels/transforms.h"
#include "core/rt_alloc.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <vector>

namespace quorel {

// `Sample` is float or Complex.
template <typename Sample>
class Transform {
    static constexpr bool real = std::is_same_v<Sample, float>;
    using Spec = std::conditional_t<real, FFTSpec_R_32f, FFTSpec_C_32fc>;

public:
    explicit Transform(std::int32_t order, std::int32_t flag = fftDivideNeither)
    {
        std::int32_t specSize = 0;
        std::int32_t initSize = 0;
        std::int32_t workSize = 0;
        Spec* ready = nullptr;
        if constexpr (real)
            check(ippsFFTGetSize_R_32f(order, flag, 0, &specSize, &initSize, &workSize));
        else
            check(ippsFFTGetSize_C_32fc(order, flag, 0, &specSize, &initSize, &workSize));
        specStorage.reset(rt_alloc(static_cast<std::uint64_t>(specSize)));
        workStorage.reset(rt_alloc(static_cast<std::uint64_t>(workSize)));
        const RtPointer<void> initStorage(rt_alloc(static_cast<std::uint64_t>(initSize)));
        if constexpr (real)
            check(ippsFFTInit_R_32f(&ready, order, flag, 0, specStorage.get(), initStorage.get()));
        else
            check(ippsFFTInit_C_32fc(&ready, order, flag, 0, specStorage.get(), initStorage.get()));
        spec = ready;
    }

    // Each runs between copies that stand `shift` floats behind a 64-byte boundary and sees to it that nothing is written
    // outside the result and nothing into the source.
    std::vector<float> forward(const std::vector<float>& src, std::size_t shift = 0) const
    {
        return run(src, shift, [&](const float* x, float* y) { return ippsFFTFwd_RToPack_32f(x, y, spec, work()); });
    }

    std::vector<float> inverse(const std::vector<float>& src, std::size_t shift = 0) const
    {
        return run(src, shift, [&](const float* x, float* y) {
            if constexpr (real)
                return ippsFFTInv_PackToR_32f(x, y, spec, work());
            else
                return ippsFFTInv_CToC_32fc(reinterpret_cast<const Complex*>(x), reinterpret_cast<Complex*>(y), spec, work());
        });
    }

    const Spec* spec = nullptr;
    void* work() const { return workStorage.get(); }

private:
    template <typename Kernel>
    static std::vector<float> run(const std::vector<float>& src, std::size_t shift, Kernel kernel)
    {
        constexpr std::size_t guard = 16;
        constexpr float untouched = 12345.0F;
        const std::size_t n = src.size();
        const auto row = [&] {
            const auto bytes = static_cast<std::uint64_t>((n + shift + 2 * guard) * sizeof(float));
            RtPointer<float> floats(static_cast<float*>(rt_alloc(bytes)));
            std::fill_n(floats.get(), n + shift + 2 * guard, untouched);
            return floats;
        };
        const auto from = row();
        const auto to = row();
        float* x = from.get() + guard + shift;
        float* y = to.get() + guard + shift;
        std::copy(src.begin(), src.end(), x);
        check(kernel(x, y));
        EXPECT_TRUE(std::equal(src.begin(), src.end(), x)) << "the source was written";
        EXPECT_EQ(std::count(to.get(), y, untouched), y - to.get()) << "written ahead of the result";
        EXPECT_EQ(std::count(y + n, y + n + guard, untouched), 16) << "written behind the result";
        return {y, y + n};
    }

    RtPointer<void> specStorage;
    RtPointer<void> workStorage;
};

} // namespace quorel
