// SPDX-License-Identifier: MIT
// The transforms that the paths use and the packed product, in every variant, as ratios to the yardstick Y; the complex ones
// also as ratios to FFTW's own transform of the same kind. "plain" is the textbook's transform, which serves all other lengths.
// Each result is verified before it is timed.
#include "bench/inputs.h"
#include "bench/yardstick.h"
#include "core/fft.h"
#include "core/kernels/plain_transform.h"
#include "core/kernels/select.h"

#include <cmath>
#include <string>

namespace quorel::bench {
namespace {

// The relative difference, root mean square, must stay below 1e-6.
bool agree(const float* actual, const float* expected, std::size_t n)
{
    double error = 0;
    double power = 0;
    for (std::size_t i = 0; i < n; ++i) {
        error += std::pow(static_cast<double>(actual[i]) - static_cast<double>(expected[i]), 2);
        power += std::pow(static_cast<double>(expected[i]), 2);
    }
    return std::sqrt(error / power) < 1e-6;
}

void realTransform(benchmark::State& state, const kernels::KernelTable& variant, std::uint64_t order, bool forward)
{
    const kernels::ForcedVariant forced(variant);
    FFT<float> fft(order);
    const std::uint64_t n = fft.length();
    const auto x = zeroedRow<float>(n);
    const auto spectrum = zeroedRow<float>(n);
    const auto y = zeroedRow<float>(n);
    fillWithNoise(x.get(), n);
    fft.Fwd(x.get(), spectrum.get());
    fft.Inv(spectrum.get(), y.get());
    if (!agree(y.get(), x.get(), n))
        state.SkipWithError("the inverse does not give the input back");
    if (forward)
        measure(state, [&] { fft.Fwd(x.get(), spectrum.get()); });
    else
        measure(state, [&] { fft.Inv(spectrum.get(), y.get()); });
}

void complexInverse(benchmark::State& state, const kernels::KernelTable& variant, std::uint64_t order, bool againstOwnKind)
{
    static const Yardstick own512(Yardstick::Kind::complexBackward, 512);
    static const Yardstick own1024(Yardstick::Kind::complexBackward, 1024);
    const kernels::ForcedVariant forced(variant);
    FFT<float, Complex> fft(order);
    const std::uint64_t n = fft.length();
    const auto x = zeroedRow<Complex>(n);
    const auto y = zeroedRow<Complex>(n);
    const auto again = zeroedRow<Complex>(n);
    fillWithNoise(reinterpret_cast<float*>(x.get()), 2 * n);
    // Twice the inverse, undivided, gives n times the input with the time axis reversed.
    fft.Inv(x.get(), y.get());
    fft.Inv(y.get(), again.get());
    const auto expected = zeroedRow<Complex>(n);
    for (std::size_t i = 0; i < n; ++i)
        expected.get()[i] = x.get()[(n - i) % n] * static_cast<float>(n);
    if (!agree(reinterpret_cast<float*>(again.get()), reinterpret_cast<float*>(expected.get()), 2 * n))
        state.SkipWithError("two inverses do not give the input reversed");
    measure(
        state, [&] { fft.Inv(x.get(), y.get()); }, againstOwnKind ? (order == 9 ? own512 : own1024) : yardstick());
}

enum class Kind { realForward, realInverse, complexInverse };

// The plain transforms, beside which the kernels give the same.
void plainTransform(benchmark::State& state, std::int32_t order, Kind kind)
{
    const std::size_t n = std::size_t{1} << order;
    std::vector<double> tables(kernels::PlainTransform::tableBytes(order) / sizeof(double));
    const kernels::PlainTransform plain(order, tables.data());
    const auto x = zeroedRow<Complex>(n);
    const auto y = zeroedRow<Complex>(n);
    const auto wanted = zeroedRow<Complex>(n);
    auto* in = reinterpret_cast<float*>(x.get());
    auto* out = reinterpret_cast<float*>(y.get());
    auto* expected = reinterpret_cast<float*>(wanted.get());
    fillWithNoise(in, 2 * n);
    FFT<float> real(static_cast<std::uint64_t>(order));
    FFT<float, Complex> complex(static_cast<std::uint64_t>(order));
    const auto run = [&] {
        if (kind == Kind::realForward)
            plain.realForward(in, out, 1.0F);
        else if (kind == Kind::realInverse)
            plain.realInverse(in, out, 1.0F / static_cast<float>(n));
        else
            plain.complexInverse(in, out, 1.0F);
    };
    run();
    if (kind == Kind::realForward)
        real.Fwd(in, expected);
    else if (kind == Kind::realInverse)
        real.Inv(in, expected);
    else
        complex.Inv(x.get(), wanted.get());
    if (!agree(out, expected, kind == Kind::complexInverse ? 2 * n : n))
        state.SkipWithError("the kernel does not give what the plain transform gives");
    measure(state, run);
}

void packedProduct(benchmark::State& state, const kernels::KernelTable& variant)
{
    const kernels::ForcedVariant forced(variant);
    const auto a = zeroedRow<float>(1024);
    const auto b = zeroedRow<float>(1024);
    const auto y = zeroedRow<float>(1024);
    fillWithNoise(a.get(), 1024);
    b.get()[0] = b.get()[1023] = 1; // the spectrum of an impulse
    for (std::size_t k = 1; k < 512; ++k)
        b.get()[2 * k - 1] = 1;
    check(ippsMulPack_32f(a.get(), b.get(), y.get(), 1024));
    if (!agree(y.get(), a.get(), 1024))
        state.SkipWithError("a product with the spectrum of an impulse is not the other factor");
    measure(state, [&] { check(ippsMulPack_32f(a.get(), b.get(), y.get(), 1024)); });
}

const bool registered = [] {
    for (const kernels::KernelTable* variant : kernels::availableVariants()) {
        const std::string name = variant->name;
        const auto add = [&](const std::string& what, auto call) {
            asMeasured(benchmark::RegisterBenchmark((name + "/" + what).c_str(), call));
        };
        for (const std::uint64_t order : {9U, 10U}) {
            const std::string length = std::to_string(1U << order);
            add("real_forward_" + length + "/Y", [=](benchmark::State& state) { realTransform(state, *variant, order, true); });
            add("real_inverse_" + length + "/Y", [=](benchmark::State& state) { realTransform(state, *variant, order, false); });
            const std::string what = "complex_inverse_" + length;
            add(what + "/Y", [=](benchmark::State& state) { complexInverse(state, *variant, order, false); });
            add(what + "/FFTW", [=](benchmark::State& state) { complexInverse(state, *variant, order, true); });
        }
        add("packed_product_1024/Y", [variant](benchmark::State& state) { packedProduct(state, *variant); });
    }
    for (const std::int32_t order : {9, 10})
        for (const auto& [what, kind] : {std::pair{"plain/real_forward_", Kind::realForward},
                                         {"plain/real_inverse_", Kind::realInverse},
                                         {"plain/complex_inverse_", Kind::complexInverse}})
            asMeasured(benchmark::RegisterBenchmark(
                (what + std::to_string(1 << order) + "/Y").c_str(),
                [order, run = kind](benchmark::State& state) { plainTransform(state, order, run); }));
    return true;
}();

} // namespace
} // namespace quorel::bench
