// SPDX-License-Identifier: MIT
#include "core/kernels/transforms.h"

#include "tests/core/transform.h"
#include "tests/core/variants.h"
#include "tests/support/noise.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>
#include <random>
#include <vector>

namespace quorel {
namespace {

using Exact = std::complex<double>;

// Largest root-mean-square error of a transform, relative to the root mean square of its result: five roundings' worth.
constexpr double tolerance = 3e-7;

constexpr std::int32_t flags[] = {1, 2, 4, 8};

std::vector<Exact> complexOf(const std::vector<float>& interleaved)
{
    std::vector<Exact> z(interleaved.size() / 2);
    for (std::size_t i = 0; i < z.size(); ++i)
        z[i] = {static_cast<double>(interleaved[2 * i]), static_cast<double>(interleaved[2 * i + 1])};
    return z;
}

// exp(sign * 2*pi*i * k/n) for every k
std::vector<Exact> circle(std::size_t n, double sign)
{
    std::vector<Exact> w(n);
    for (std::size_t k = 0; k < n; ++k)
        w[k] = std::polar(1.0, sign * 2 * std::numbers::pi * static_cast<double>(k) / static_cast<double>(n));
    return w;
}

// Bin k of the transform by its definition, `w` being the circle of its direction.
Exact bin(const std::vector<Exact>& x, const std::vector<Exact>& w, std::size_t k)
{
    double re = 0;
    double im = 0;
    std::size_t turn = 0;
    for (const Exact& value : x) {
        re += value.real() * w[turn].real() - value.imag() * w[turn].imag();
        im += value.real() * w[turn].imag() + value.imag() * w[turn].real();
        turn = (turn + k) & (w.size() - 1);
    }
    return {re, im};
}

std::vector<Exact> definition(const std::vector<Exact>& x, double sign)
{
    const auto w = circle(x.size(), sign);
    std::vector<Exact> result(x.size());
    for (std::size_t k = 0; k < x.size(); ++k)
        result[k] = bin(x, w, k);
    return result;
}

// The half spectrum that Pack form stores, laid out by its definition.
std::vector<double> packed(const std::vector<Exact>& spectrum)
{
    std::vector<double> p(spectrum.size());
    p.front() = spectrum.front().real();
    for (std::size_t k = 1; k < (p.size() + 1) / 2; ++k) {
        p[2 * k - 1] = spectrum[k].real();
        p[2 * k] = spectrum[k].imag();
    }
    if (p.size() % 2 == 0)
        p.back() = spectrum[p.size() / 2].real();
    return p;
}

std::vector<Exact> unpacked(const std::vector<float>& p)
{
    std::vector<Exact> spectrum(p.size());
    const auto at = [&](std::size_t i) { return static_cast<double>(p[i]); };
    spectrum[0] = at(0);
    for (std::size_t k = 1; k < (p.size() + 1) / 2; ++k) {
        spectrum[k] = {at(2 * k - 1), at(2 * k)};
        spectrum[p.size() - k] = std::conj(spectrum[k]);
    }
    if (p.size() > 1)
        spectrum[p.size() / 2] = at(p.size() - 1);
    return spectrum;
}

std::vector<double> interleaved(const std::vector<Exact>& z)
{
    std::vector<double> x;
    for (const Exact& value : z) {
        x.push_back(value.real());
        x.push_back(value.imag());
    }
    return x;
}

// Root mean square of the difference over that of the expected values. Not-a-number anywhere gives not-a-number.
double relativeError(const std::vector<float>& actual, const std::vector<double>& expected)
{
    double error = 0;
    double power = 0;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        const double difference = static_cast<double>(actual[i]) - expected[i];
        error += difference * difference;
        power += expected[i] * expected[i];
    }
    return std::sqrt(error / power);
}

// Runs the test once in each variant that this processor has.
class EachVariant : public WithVariant {};

INSTANTIATE_TEST_SUITE_P(Transforms, EachVariant, testing::ValuesIn(testedVariants()), variantName);

// --- The transforms against their definition -------------------------------------------------------------------------

constexpr std::int32_t highestSmallOrder = 11;
constexpr std::size_t shifts[] = {0, 1, 2, 7}; // floats; a complex array may stand at half an element

TEST_P(EachVariant, RealForwardIsTheDefinition)
{
    for (std::int32_t order = 0; order <= highestSmallOrder; ++order) {
        const std::size_t n = std::size_t{1} << order;
        const auto x = noise(n, 1U + static_cast<unsigned>(order));
        const auto expected = packed(definition({x.begin(), x.end()}, -1));
        const Transform<float> transform(order);
        for (const std::size_t shift : shifts)
            EXPECT_LT(relativeError(transform.forward(x, shift), expected), tolerance) << "order " << order << " shift " << shift;
    }
}

TEST_P(EachVariant, RealInverseIsTheDefinition)
{
    for (std::int32_t order = 0; order <= highestSmallOrder; ++order) {
        const std::size_t n = std::size_t{1} << order;
        const auto p = noise(n, 101U + static_cast<unsigned>(order));
        std::vector<double> expected;
        for (const Exact& value : definition(unpacked(p), 1))
            expected.push_back(value.real());
        const Transform<float> transform(order);
        for (const std::size_t shift : shifts)
            EXPECT_LT(relativeError(transform.inverse(p, shift), expected), tolerance) << "order " << order << " shift " << shift;
    }
}

TEST_P(EachVariant, ComplexInverseIsTheDefinition)
{
    for (std::int32_t order = 0; order <= highestSmallOrder; ++order) {
        const std::size_t n = std::size_t{1} << order;
        const auto z = noise(2 * n, 201U + static_cast<unsigned>(order));
        const auto expected = interleaved(definition(complexOf(z), 1));
        const Transform<Complex> transform(order);
        for (const std::size_t shift : shifts)
            EXPECT_LT(relativeError(transform.inverse(z, shift), expected), tolerance) << "order " << order << " shift " << shift;
    }
}

// Long transforms are compared at some bins: the ends, the middle and a number drawn at random.
std::vector<std::size_t> someBins(std::size_t n)
{
    std::mt19937 random(7);
    std::vector<std::size_t> bins = {0, 1, 2, n / 2 - 1, n / 2, n / 2 + 1, n - 2, n - 1};
    for (int i = 0; i < 24; ++i)
        bins.push_back(random() % n);
    return bins;
}

constexpr std::int32_t longOrders[] = {12, 13, 16, 19};

TEST_P(EachVariant, LongRealForwardIsTheDefinition)
{
    for (const std::int32_t order : longOrders) {
        const std::size_t n = std::size_t{1} << order;
        const auto x = noise(n, 301);
        const std::vector<Exact> exact(x.begin(), x.end());
        const auto spectrum = unpacked(Transform<float>(order).forward(x));
        const auto w = circle(n, -1);
        std::vector<float> actual;
        std::vector<double> expected;
        for (const std::size_t k : someBins(n)) {
            const Exact value = bin(exact, w, k);
            expected.insert(expected.end(), {value.real(), value.imag()});
            actual.insert(actual.end(), {static_cast<float>(spectrum[k].real()), static_cast<float>(spectrum[k].imag())});
        }
        EXPECT_LT(relativeError(actual, expected), tolerance) << "order " << order;
    }
}

TEST_P(EachVariant, LongRealInverseIsTheDefinition)
{
    for (const std::int32_t order : longOrders) {
        const std::size_t n = std::size_t{1} << order;
        const auto p = noise(n, 302);
        const auto exact = unpacked(p);
        const auto x = Transform<float>(order).inverse(p);
        const auto w = circle(n, 1);
        std::vector<float> actual;
        std::vector<double> expected;
        for (const std::size_t k : someBins(n)) {
            expected.push_back(bin(exact, w, k).real());
            actual.push_back(x[k]);
        }
        EXPECT_LT(relativeError(actual, expected), tolerance) << "order " << order;
    }
}

TEST_P(EachVariant, LongComplexInverseIsTheDefinition)
{
    for (const std::int32_t order : longOrders) {
        const std::size_t n = std::size_t{1} << order;
        const auto z = noise(2 * n, 303);
        const auto exact = complexOf(z);
        const auto y = Transform<Complex>(order).inverse(z);
        const auto w = circle(n, 1);
        std::vector<float> actual;
        std::vector<double> expected;
        for (const std::size_t k : someBins(n)) {
            const Exact value = bin(exact, w, k);
            expected.insert(expected.end(), {value.real(), value.imag()});
            actual.insert(actual.end(), {y[2 * k], y[2 * k + 1]});
        }
        EXPECT_LT(relativeError(actual, expected), tolerance) << "order " << order;
    }
}

// --- Invariants ------------------------------------------------------------------------------------------------------

TEST_P(EachVariant, ForwardAndInverseDividedByTheLengthGiveTheInput)
{
    const auto x = noise(1024, 1);
    const Transform<float> transform(10, fftDivideInverse);
    // Two transforms, each within the tolerance of the exact one.
    EXPECT_LT(relativeError(transform.inverse(transform.forward(x)), {x.begin(), x.end()}), 2 * tolerance);
}

TEST_P(EachVariant, ForwardAndInverseWithoutDivisionGive1024TimesTheInput)
{
    const auto x = noise(1024, 1);
    const Transform<float> transform(10, fftDivideNeither);
    std::vector<double> expected;
    for (const float value : x)
        expected.push_back(1024 * static_cast<double>(value));
    EXPECT_LT(relativeError(transform.inverse(transform.forward(x)), expected), 2 * tolerance);
}

TEST_P(EachVariant, EveryFlagDividesWhatItSays)
{
    for (const std::int32_t order : {0, 1, 2, 5, 9, 10, 11, 13}) {
        const std::size_t n = std::size_t{1} << order;
        const auto length = static_cast<double>(n);
        const auto x = noise(n, 2);
        const auto z = noise(2 * n, 3);
        const auto scaled = [](const std::vector<float>& values, double factor) {
            std::vector<double> result;
            for (const float value : values)
                result.push_back(static_cast<double>(value) * factor);
            return result;
        };
        const Transform<float> plain(order, fftDivideNeither);
        const Transform<Complex> plainComplex(order, fftDivideNeither);
        for (const std::int32_t flag : flags) {
            const double forward = flag == 1 ? 1 / length : flag == 4 ? 1 / std::sqrt(length) : 1;
            const double inverse = flag == 2 ? 1 / length : flag == 4 ? 1 / std::sqrt(length) : 1;
            const Transform<float> transform(order, flag);
            const Transform<Complex> complexTransform(order, flag);
            // Each side is within the tolerance of the exact transform.
            EXPECT_LT(relativeError(transform.forward(x), scaled(plain.forward(x), forward)), 2 * tolerance) << order << flag;
            EXPECT_LT(relativeError(transform.inverse(x), scaled(plain.inverse(x), inverse)), 2 * tolerance) << order << flag;
            EXPECT_LT(relativeError(complexTransform.inverse(z), scaled(plainComplex.inverse(z), inverse)), 2 * tolerance)
                << order << flag;
        }
    }
}

TEST_P(EachVariant, TheSpectrumCarriesTheEnergyOfTheSamples)
{
    const auto x = noise(1024, 4);
    const auto spectrum = unpacked(Transform<float>(10, fftDivideBothByRoot).forward(x));
    double samples = 0;
    double bins = 0;
    for (std::size_t i = 0; i < x.size(); ++i) {
        samples += static_cast<double>(x[i]) * static_cast<double>(x[i]);
        bins += std::norm(spectrum[i]);
    }
    EXPECT_NEAR(bins / samples, 1, 2 * tolerance); // an error of e in amplitude is one of 2e in energy at most
}

TEST_P(EachVariant, AnImpulseAtTheStartHasAFlatSpectrumToTheLastBit)
{
    std::vector<float> x(1024, 0.0F);
    x[0] = 1;
    std::vector<float> expected(1024, 0.0F);
    expected[0] = expected[1023] = 1;
    for (std::size_t k = 1; k < 512; ++k)
        expected[2 * k - 1] = 1;
    EXPECT_EQ(Transform<float>(10).forward(x), expected);
}

// An impulse of height 1 meets at most six roots of one on its way into a bin, in 1024 complex values: W_16 and W_8 in the
// butterflies of the first pass, W_8 in those of the others, and two of tables. Each root is rounded to 2^-25 in each part
// and each product to 2^-24: together 6 * sqrt(2) * (2^-25 + 2^-24) at worst. The errors are independent of each other, and
// their sum stays below two thirds of that; a root that is wrong in its seventh digit does not.
constexpr double impulseTolerance = 2.0 / 3 * 6 * std::numbers::sqrt2 * (0x1p-25 + 0x1p-24);

TEST_P(EachVariant, AnImpulseAtAnySampleTurnsWithTheFrequency)
{
    const Transform<float> transform(10);
    const auto w = circle(1024, -1);
    std::vector<float> x(1024, 0.0F);
    double worst = 0;
    for (std::size_t at = 0; at < 1024; ++at) {
        x[at] = 1;
        const auto spectrum = unpacked(transform.forward(x));
        for (std::size_t k = 0; k <= 512; ++k)
            worst = std::max(worst, std::abs(spectrum[k] - w[at * k % 1024]));
        x[at] = 0;
    }
    EXPECT_LT(worst, impulseTolerance);
}

TEST_P(EachVariant, ASingleBinBecomesAnOscillation)
{
    for (const std::int32_t order : {9, 10}) {
        const std::size_t n = std::size_t{1} << order;
        const Transform<Complex> transform(order);
        const auto w = circle(n, 1);
        std::vector<float> z(2 * n, 0.0F);
        double worst = 0;
        for (std::size_t k = 0; k < n; ++k) {
            z[2 * k] = 1;
            const auto y = complexOf(transform.inverse(z));
            for (std::size_t i = 0; i < n; ++i)
                worst = std::max(worst, std::abs(y[i] - w[i * k % n]));
            z[2 * k] = 0;
        }
        EXPECT_LT(worst, impulseTolerance) << n;
    }
}

TEST_P(EachVariant, BinsStandInPackOrder)
{
    // cos(2*pi*3n/16) + sin(2*pi*5n/16) + (-1)^n: 8 in the real part of bin 3, -8 in the imaginary part of bin 5, 16 in bin 8
    std::vector<float> x(16);
    for (std::size_t i = 0; i < 16; ++i) {
        const double turn = 2 * std::numbers::pi * static_cast<double>(i) / 16;
        x[i] = static_cast<float>(std::cos(3 * turn) + std::sin(5 * turn) + (i % 2 == 0 ? 1 : -1));
    }
    const std::vector<double> expected = {0, 0, 0, 0, 0, 8, 0, 0, 0, 0, -8, 0, 0, 0, 0, 16};
    EXPECT_LT(relativeError(Transform<float>(4).forward(x), expected), tolerance);
}

TEST_P(EachVariant, SilenceGivesSilence)
{
    const std::vector<float> silence(1024, 0.0F);
    EXPECT_EQ(Transform<float>(10).forward(silence), silence);
    EXPECT_EQ(Transform<float>(10).inverse(silence), silence);
    EXPECT_EQ(Transform<Complex>(9).inverse(silence), silence);
}

TEST_P(EachVariant, ARunLeavesNothingBehindForTheNextOne)
{
    for (const std::int32_t order : {3, 9, 10, 14}) {
        const auto x = noise(std::size_t{1} << order, 5);
        const auto other = noise(std::size_t{1} << order, 6);
        const Transform<float> transform(order);
        const auto forward = transform.forward(x);
        const auto inverse = transform.inverse(x);
        static_cast<void>(transform.forward(other));
        EXPECT_EQ(transform.inverse(x), inverse);
        EXPECT_EQ(transform.forward(x), forward);
    }
}

TEST_P(EachVariant, ASpecKeepsTheVariantThatItWasInitialisedWith)
{
    const auto x = noise(1024, 8);
    const auto z = noise(1024, 9);
    const Transform<float> transform(10);
    const Transform<Complex> complexTransform(9);
    const auto forward = transform.forward(x);
    const auto inverse = transform.inverse(x);
    const auto complexInverse = complexTransform.inverse(z);
    for (const auto* variant : kernels::availableVariants()) {
        const kernels::ForcedVariant forced(*variant);
        EXPECT_EQ(transform.forward(x), forward);
        EXPECT_EQ(transform.inverse(x), inverse);
        EXPECT_EQ(complexTransform.inverse(z), complexInverse);
    }
}

TEST_P(EachVariant, StorageAtAnyAddressServes)
{
    const auto x = noise(1024, 10);
    const auto expected = packed(definition({x.begin(), x.end()}, -1));
    std::int32_t specSize = 0;
    std::int32_t initSize = 0;
    std::int32_t workSize = 0;
    ASSERT_EQ(ippsFFTGetSize_R_32f(10, 8, 0, &specSize, &initSize, &workSize), ippStsNoErr);
    for (const std::size_t shift : {1U, 4U, 8U, 63U}) {
        std::vector<std::byte> spec(static_cast<std::size_t>(specSize) + shift);
        std::vector<std::byte> init(static_cast<std::size_t>(initSize) + shift);
        std::vector<std::byte> work(static_cast<std::size_t>(workSize) + shift);
        FFTSpec_R_32f* ready = nullptr;
        ASSERT_EQ(ippsFFTInit_R_32f(&ready, 10, 8, 0, spec.data() + shift, init.data() + shift), ippStsNoErr);
        std::vector<float> y(1024);
        ASSERT_EQ(ippsFFTFwd_RToPack_32f(x.data(), y.data(), ready, work.data() + shift), ippStsNoErr);
        EXPECT_LT(relativeError(y, expected), tolerance);
    }
}

TEST_P(EachVariant, APackedProductOfSpectraIsACircularConvolution)
{
    const auto x = noise(64, 15);
    const auto h = noise(64, 16);
    std::vector<double> expected(64, 0.0);
    for (std::size_t i = 0; i < 64; ++i)
        for (std::size_t k = 0; k < 64; ++k)
            expected[(i + k) % 64] += static_cast<double>(x[i]) * static_cast<double>(h[k]);
    const Transform<float> transform(6, fftDivideInverse);
    auto spectrum = transform.forward(x);
    ASSERT_EQ(ippsMulPack_32f(spectrum.data(), transform.forward(h).data(), spectrum.data(), 64), ippStsNoErr);
    EXPECT_LT(relativeError(transform.inverse(spectrum), expected), 3 * tolerance); // three transforms
}

} // namespace
} // namespace quorel
