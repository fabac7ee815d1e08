// SPDX-License-Identifier: MIT
// Every kernel without a past in every variant at the paths' lengths, as a ratio to the same loop compiled plainly (plain.cpp),
// in one run: below 1 is faster than plain. `ns` is the least time of one call. What a kernel gives is compared with what the
// plain loop gives first. Filters have their plain forms in filter_bench, transforms in transform_bench.
#include "bench/inputs.h"
#include "bench/yardstick.h"
#include "core/kernels.h"
#include "core/kernels/select.h"
#include "core/rt_alloc.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <string>

namespace quorel::kernels::plain {
extern const KernelTable table;
}

namespace quorel::bench {
namespace {

// Rows of pairs, long enough for every length, at levels that stay as they are however often a kernel runs. The kernels of
// elements take the first three, those of several rows as many as they need.
struct Rows {
    static constexpr std::size_t count = 36;
    static constexpr std::size_t length = 1024;
    RtPointer<Complex> pairs = zeroedRow<Complex>(count * length);
    std::array<float, 4> envelope{};

    Rows()
    {
        for (std::size_t row = 0; row < count; ++row)
            for (std::size_t i = 0; i < 2 * length; ++i)
                floats(row)[i] = i % 2 == 0 ? 1.0F : -1.0F;
    }

    float* floats(std::size_t row) { return reinterpret_cast<float*>(complex(row)); }
    Complex* complex(std::size_t row) { return pairs.get() + row * length; }

    // Rows from `first` on.
    std::array<float*, lineCount> list(std::size_t first)
    {
        std::array<float*, lineCount> starts{};
        for (std::size_t row = 0; row < lineCount; ++row)
            starts[row] = floats(first + row);
        return starts;
    }
};

// --- Kernels of several rows, at the sizes that they have in the render effect ----------------------------------------

Status mixTwelveLines(Rows& r, std::int32_t n)
{
    std::array<PairMix, lineCount> mix{};
    for (std::size_t row = 0; row < lineCount; ++row)
        for (std::size_t p = 0; p < PairMix::pairs; ++p) {
            mix[row].term[p] = static_cast<std::uint8_t>((row * p % 2 == 0 ? PairMix::sum : PairMix::difference) + p);
            mix[row].sign[p] = p > 0 && (row + p) % 3 == 0 ? -1.0F : 1.0F;
        }
    const auto in = r.list(0);
    auto added = r.list(12);
    std::fill(added.begin() + 8, added.end(), nullptr);
    return mixPairs(in.data(), added.data(), 0.25F, r.list(24).data(), mix.data(), lineCount, n);
}

Status sumTwelveRows(Rows& r, std::int32_t n)
{
    constexpr std::array<float, lineCount> gains = {0.9F, -0.8F, 0.7F, 0.6F, -0.5F, 0.4F, 0.3F, 0.2F, -0.1F, 0.2F, 0.3F, 0.4F};
    return sumRows(r.list(0).data(), gains.data(), lineCount, r.floats(24), n);
}

Status sumEightProducts(Rows& r, std::int32_t n)
{
    return sumProductsPack(r.list(0).data(), r.list(8).data(), r.list(16).data(), 8, r.floats(28), r.floats(29), n);
}

// Open up to a level of 0.25, and from there on at work.
constexpr std::array<GainSegment, 3> curve = {{{0.0F, 1.0F, 0.0F}, {0.25F, 1.0F, -0.5F}, {1.25F, 0.5F, 0.0F}}};
constexpr Dynamics limiter = {0.02F, 5e-5F, curve.data(), curve.size()};

Status limitStereo(Rows& r, std::int32_t n)
{
    return compress(&limiter, r.envelope.data(), r.list(0).data(), r.list(4).data(), 2, n);
}

Status limitStereoTwice(Rows& r, std::int32_t n)
{
    return compressTwo(&limiter, &limiter, r.envelope.data(), r.list(0).data(), r.list(4).data(), n);
}

Status foldEight(Rows& r, std::int32_t n)
{
    constexpr std::array<float, 16> gains = {1.0F, 0.0F, 0.5F, 0.7F, 0.7F, 0.0F, 0.7F, 0.0F,
                                             0.0F, 1.0F, 0.5F, 0.7F, 0.0F, 0.7F, 0.0F, 0.7F};
    return foldToStereo(r.floats(0), gains.data(), 8, r.floats(4), r.floats(5), n);
}

// ---------------------------------------------------------------------------------------------------------------------

using Kernel = std::function<Status(Rows&, std::int32_t)>;

// Whether the variant makes of noise what the plain loop makes of it, but for rounding.
bool agree(const kernels::KernelTable& variant, const Kernel& kernel, std::int32_t len)
{
    const auto madeBy = [&](const kernels::KernelTable& table) {
        const kernels::ForcedVariant forced(table);
        Rows rows;
        for (std::size_t row = 0; row < Rows::count; ++row) {
            fillWithNoise(rows.floats(row), 2048, 0.5F);
            std::rotate(rows.floats(row), rows.floats(row) + 7 * row, rows.floats(row) + 2048);
        }
        check(kernel(rows, len));
        return rows;
    };
    Rows plain = madeBy(kernels::plain::table);
    Rows made = madeBy(variant);
    for (std::size_t row = 0; row < Rows::count; ++row)
        for (std::size_t i = 0; i < 2048; ++i) {
            const float wanted = plain.floats(row)[i];
            if (!(std::abs(made.floats(row)[i] - wanted) <= 1e-5F * std::max(1.0F, std::abs(wanted))))
                return false;
        }
    return true;
}

void run(benchmark::State& state, const kernels::KernelTable& variant, const Kernel& kernel, std::int32_t len)
{
    if (!agree(variant, kernel, len))
        state.SkipWithError("the kernel does not give what the plain loop gives");
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
        {"MulPack", [](Rows& r, std::int32_t n) { return ippsMulPack_32f(r.floats(0), r.floats(1), r.floats(2), n); }},
        {"sumRows", sumTwelveRows},
        {"sumProductsPack", sumEightProducts},
        {"mixPairs", mixTwelveLines},
        {"compress", limitStereo},
        {"compressTwo", limitStereoTwice},
        {"deinterleave", [](Rows& r, std::int32_t n) { return deinterleave(r.floats(0), 8, r.list(4).data(), n); }},
        {"foldToStereo", foldEight},
        {"stereoFrames", [](Rows& r, std::int32_t n) { return stereoFrames(r.floats(4), r.floats(5), 0.8F, r.floats(0), n); }},
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
