// SPDX-License-Identifier: MIT
// Every element kernel in every variant at the paths' lengths, as a ratio to the same loop compiled plainly, in one run:
// below 1 is faster than plain. `ns` is the least time of one call.
#include "bench/yardstick.h"
#include "core/buffer.h"
#include "core/kernels/select.h"

#include <functional>
#include <string>

namespace quorel::kernels::plain {
extern const KernelTable table;
}

namespace quorel::bench {
namespace {

// Three rows of pairs, long enough for every length, at levels that stay as they are however often a kernel runs.
struct Rows {
    SpectrumBuffer<3> pairs{1024};

    Rows()
    {
        for (std::size_t row = 0; row < 3; ++row)
            for (std::size_t i = 0; i < 2048; ++i)
                floats(row)[i] = i % 2 == 0 ? 1.0F : -1.0F;
    }

    float* floats(std::size_t row) { return reinterpret_cast<float*>(pairs.channel(row)); }
    Complex* complex(std::size_t row) { return pairs.channel(row); }
};

using Kernel = std::function<Status(Rows&, std::int32_t)>;

void run(benchmark::State& state, const kernels::KernelTable& variant, const Kernel& kernel, std::int32_t len)
{
    Rows rows;
    double least = std::numeric_limits<double>::infinity();
    double plain = least;
    for ([[maybe_unused]] auto _ : state) {
        {
            const kernels::ForcedVariant forced(kernels::plain::table);
            plain = std::min(plain, burst([&] { check(kernel(rows, len)); }));
        }
        const kernels::ForcedVariant forced(variant);
        const double time = burst([&] { check(kernel(rows, len)); });
        least = std::min(least, time);
        state.SetIterationTime(time * 1e-9);
    }
    state.counters["ns"] = least;
    state.counters["ratio"] = least / plain;
}

const bool registered = [] {
    const std::pair<const char*, Kernel> all[] = {
        {"Add", [](Rows& r, std::int32_t n) { return ippsAdd_32f(r.floats(0), r.floats(1), r.floats(2), n); }},
        {"Sub", [](Rows& r, std::int32_t n) { return ippsSub_32f(r.floats(0), r.floats(1), r.floats(2), n); }},
        {"Mul", [](Rows& r, std::int32_t n) { return ippsMul_32f(r.floats(0), r.floats(1), r.floats(2), n); }},
        {"Mul_32fc", [](Rows& r, std::int32_t n) { return ippsMul_32fc(r.complex(0), r.complex(1), r.complex(2), n); }},
        {"MulC", [](Rows& r, std::int32_t n) { return ippsMulC_32f(r.floats(0), 0.5F, r.floats(2), n); }},
        {"Add_I", [](Rows& r, std::int32_t n) { return ippsAdd_32f_I(r.floats(0), r.floats(2), n); }},
        {"Sub_I", [](Rows& r, std::int32_t n) { return ippsSub_32f_I(r.floats(0), r.floats(2), n); }},
        {"Mul_I", [](Rows& r, std::int32_t n) { return ippsMul_32f_I(r.floats(0), r.floats(2), n); }},
        {"Mul_32fc_I", [](Rows& r, std::int32_t n) { return ippsMul_32fc_I(r.complex(0), r.complex(2), n); }},
        {"Div_I", [](Rows& r, std::int32_t n) { return ippsDiv_32f_I(r.floats(0), r.floats(2), n); }},
        {"SubC_I", [](Rows& r, std::int32_t n) { return ippsSubC_32f_I(1e-3F, r.floats(2), n); }},
        {"MulC_I", [](Rows& r, std::int32_t n) { return ippsMulC_32f_I(-1.0F, r.floats(2), n); }},
        {"SubCRev", [](Rows& r, std::int32_t n) { return ippsSubCRev_32f(r.floats(0), 1.0F, r.floats(2), n); }},
        {"AddProduct", [](Rows& r, std::int32_t n) { return addProduct(r.floats(0), r.floats(1), r.floats(2), n); }},
        {"AddProductC", [](Rows& r, std::int32_t n) { return ippsAddProductC_32f(r.floats(0), 0.5F, r.floats(2), n); }},
        {"Copy", [](Rows& r, std::int32_t n) { return ippsCopy_32f(r.floats(0), r.floats(2), n); }},
        {"Copy_32fc", [](Rows& r, std::int32_t n) { return ippsCopy_32fc(r.complex(0), r.complex(2), n); }},
        {"Move", [](Rows& r, std::int32_t n) { return ippsMove_32f(r.floats(0) + 64, r.floats(0), n); }},
        {"Zero", [](Rows& r, std::int32_t n) { return ippsZero_32f(r.floats(2), n); }},
        {"Zero_32fc", [](Rows& r, std::int32_t n) { return ippsZero_32fc(r.complex(2), n); }},
        {"Set", [](Rows& r, std::int32_t n) { return ippsSet_32f(1.0F, r.floats(2), n); }},
        {"Set_32fc", [](Rows& r, std::int32_t n) { return ippsSet_32fc({1.0F, 2.0F}, r.complex(2), n); }},
        {"Flip", [](Rows& r, std::int32_t n) { return ippsFlip_32f(r.floats(0), r.floats(2), n); }},
        {"ConjFlip", [](Rows& r, std::int32_t n) { return ippsConjFlip_32fc(r.complex(0), r.complex(2), n); }},
        {"RealToCplx", [](Rows& r, std::int32_t n) { return ippsRealToCplx_32f(r.floats(0), r.floats(1), r.complex(2), n); }},
        {"Real", [](Rows& r, std::int32_t n) { return ippsReal_32fc(r.complex(0), r.floats(2), n); }},
        {"Magnitude", [](Rows& r, std::int32_t n) { return ippsMagnitude_32fc(r.complex(0), r.floats(2), n); }},
        {"Threshold_LT", [](Rows& r, std::int32_t n) { return ippsThreshold_LT_32f(r.floats(0), r.floats(2), n, 0.5F); }},
        {"Threshold_LT_I", [](Rows& r, std::int32_t n) { return ippsThreshold_LT_32f_I(r.floats(2), n, -0.5F); }},
        {"Threshold_GT_I", [](Rows& r, std::int32_t n) { return ippsThreshold_GT_32f_I(r.floats(2), n, 0.5F); }},
        {"Sum_32fc", [](Rows& r, std::int32_t n) { return ippsSum_32fc(r.complex(0), n, r.complex(2), 0); }},
    };
    for (const kernels::KernelTable* variant : kernels::availableVariants()) {
        for (const auto& [name, kernel] : all)
            for (const std::int32_t len : {80, 480, 1024}) {
                const std::string full = std::string(variant->name) + "/" + name + "/" + std::to_string(len);
                const Kernel body = kernel;
                benchmark::RegisterBenchmark(full.c_str(), [=](benchmark::State& state) { run(state, *variant, body, len); })
                    ->UseManualTime()
                    ->Iterations(1000)
                    ->Unit(benchmark::kNanosecond);
            }
    }
    return true;
}();

} // namespace
} // namespace quorel::bench
