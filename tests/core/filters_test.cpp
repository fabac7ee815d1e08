// SPDX-License-Identifier: MIT
#include "core/kernels/filters.h"

#include "core/kernels/states.h"
#include "core/rt_alloc.h"
#include "tests/core/filter_cases.h"
#include "tests/support/noise.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <numbers>
#include <random>
#include <vector>

namespace quorel {
namespace {

// --- A cascade and its truth -----------------------------------------------------------------------------------------

// The kernels of either tap type under one name.
Status stateSize(const float*, std::int32_t numBq, std::int32_t* size)
{
    return ippsIIRGetStateSize_BiQuad_32f(numBq, size);
}
Status stateSize(const double*, std::int32_t numBq, std::int32_t* size)
{
    return ippsIIRGetStateSize64f_BiQuad_32f(numBq, size);
}
Status init(Cascade_32f** state, const float* taps, std::int32_t numBq, const float* delayLine, void* buffer)
{
    return ippsIIRInit_BiQuad_32f(state, taps, numBq, delayLine, buffer);
}
Status init(Cascade64f_32f** state, const double* taps, std::int32_t numBq, const double* delayLine, void* buffer)
{
    return ippsIIRInit64f_BiQuad_32f(state, taps, numBq, delayLine, buffer);
}
Status run(const float* src, float* dst, std::int32_t len, Cascade_32f* state)
{
    return ippsIIR_32f(src, dst, len, state);
}
Status run(const float* src, float* dst, std::int32_t len, Cascade64f_32f* state)
{
    return ippsIIR64f_32f(src, dst, len, state);
}

template <class Tap>
struct StateOf;
template <>
struct StateOf<float> {
    using Type = Cascade_32f;
};
template <>
struct StateOf<double> {
    using Type = Cascade64f_32f;
};

template <class Tap>
class Cascade {
public:
    explicit Cascade(const std::vector<Tap>& taps)
    {
        const auto sections = static_cast<std::int32_t>(taps.size() / 6);
        std::int32_t size = 0;
        EXPECT_EQ(stateSize(taps.data(), sections, &size), ippStsNoErr);
        storage.reset(static_cast<std::byte*>(rt_alloc(static_cast<std::uint64_t>(size))));
        std::memset(storage.get(), 0xA5, static_cast<std::size_t>(size)); // nothing may rely on cleared storage
        EXPECT_EQ(init(&state, taps.data(), sections, static_cast<const Tap*>(nullptr), storage.get()), ippStsNoErr);
    }

    void process(const float* src, float* dst, std::size_t n)
    {
        ASSERT_EQ(run(src, dst, static_cast<std::int32_t>(n), state), ippStsNoErr);
    }

    std::vector<float> process(const std::vector<float>& x)
    {
        std::vector<float> y(x.size());
        process(x.data(), y.data(), x.size());
        return y;
    }

    typename StateOf<Tap>::Type* state = nullptr;

private:
    RtPointer<std::byte> storage;
};

// The definition, section by section in double precision on the same taps.
template <class Tap>
std::vector<double> truth(const std::vector<Tap>& taps, const std::vector<float>& in)
{
    std::vector<double> signal(in.begin(), in.end());
    for (std::size_t s = 0; s < taps.size(); s += 6) {
        const double b0 = taps[s], b1 = taps[s + 1], b2 = taps[s + 2], a0 = taps[s + 3], a1 = taps[s + 4], a2 = taps[s + 5];
        double x1 = 0, x2 = 0, y1 = 0, y2 = 0;
        for (double& sample : signal) {
            const double x = sample;
            sample = (b0 * x + b1 * x1 + b2 * x2 - a1 * y1 - a2 * y2) / a0;
            x2 = x1, x1 = x, y2 = y1, y1 = sample;
        }
    }
    return signal;
}

// Within one rounding to float and 2^-30 of the peak, beyond which double precision does not stray here: its roundings of
// 2^-53 grow by the gain of the poles, less than 2^20 for every cascade of this file.
void expectTruth(const std::vector<float>& y, const std::vector<double>& wanted)
{
    const double slack = 0x1p-30 * peak(wanted);
    ASSERT_EQ(y.size(), wanted.size());
    for (std::size_t i = 0; i < y.size(); ++i)
        ASSERT_TRUE(std::abs(static_cast<double>(y[i]) - wanted[i]) <= 0x1p-24 * std::abs(wanted[i]) + slack)
            << "sample " << i << ": " << y[i] << " instead of " << wanted[i];
}

// Sections with poles and zeros anywhere inside the unit circle up to `radius`, gains near 1, not normalised.
template <class Tap>
std::vector<Tap> randomTaps(std::size_t sections, unsigned seed, double radius = 0.95)
{
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    std::vector<Tap> taps;
    for (std::size_t s = 0; s < sections; ++s) {
        const double pole = radius * std::sqrt(unit(random)), poleAngle = std::numbers::pi * unit(random);
        const double zero = radius * std::sqrt(unit(random)), zeroAngle = std::numbers::pi * unit(random);
        const double a0 = 0.5 + unit(random), b0 = a0 * (0.5 + unit(random));
        for (const double tap : {b0, -2 * b0 * zero * std::cos(zeroAngle), b0 * zero * zero, a0,
                                 -2 * a0 * pole * std::cos(poleAngle), a0 * pole * pole})
            taps.push_back(static_cast<Tap>(tap));
    }
    return taps;
}

template <class Tap>
void everyLengthAndSectionCount()
{
    for (std::size_t sections = 1; sections <= 20; ++sections) {
        const auto taps = randomTaps<Tap>(sections, static_cast<unsigned>(sections));
        const auto x = noise(700, static_cast<unsigned>(100 + sections));
        const auto wanted = truth(taps, x);
        for (const std::size_t n : {1, 2, 3, 4, 5, 7, 8, 9, 15, 16, 17, 31, 32, 33, 63, 64, 65, 480, 511, 512, 513, 700}) {
            const auto y = Cascade<Tap>(taps).process({x.begin(), x.begin() + static_cast<std::ptrdiff_t>(n)});
            ASSERT_NO_FATAL_FAILURE(expectTruth(y, {wanted.begin(), wanted.begin() + static_cast<std::ptrdiff_t>(n)}))
                << sections << " sections, length " << n;
        }
    }
}

TEST_P(Filters, FloatTapsGiveTheDefinitionAtEveryLengthAndSectionCount)
{
    everyLengthAndSectionCount<float>();
}

TEST_P(Filters, DoubleTapsGiveTheDefinitionAtEveryLengthAndSectionCount)
{
    everyLengthAndSectionCount<double>();
}

template <class Tap>
void everyCut()
{
    for (const std::size_t sections : {1U, 2U, 4U, 5U, 9U}) {
        const auto taps = randomTaps<Tap>(sections, 7);
        const auto x = noise(2500, 8);
        const auto wanted = truth(taps, x);
        for (std::size_t n = 1; n <= 67; ++n)
            ASSERT_NO_FATAL_FAILURE(expectTruth(inBlocks(Cascade<Tap>(taps), x, [n] { return n; }), wanted)) << "blocks of " << n;
        std::mt19937 random(9);
        for (int trial = 0; trial < 20; ++trial) {
            const auto cut = [&] { return std::uniform_int_distribution<std::size_t>(1, trial % 2 == 0 ? 700 : 20)(random); };
            ASSERT_NO_FATAL_FAILURE(expectTruth(inBlocks(Cascade<Tap>(taps), x, cut), wanted)) << "random cuts";
        }
    }
}

TEST_P(Filters, FloatTapHistoryCarriesOverAnyCut)
{
    everyCut<float>();
}

TEST_P(Filters, DoubleTapHistoryCarriesOverAnyCut)
{
    everyCut<double>();
}

TEST_P(Filters, ACascadeRunsInPlace)
{
    const auto taps = randomTaps<float>(5, 3);
    const auto x = noise(1111, 4);
    auto y = x;
    Cascade<float>(taps).process(y.data(), y.data(), y.size());
    expectTruth(y, truth(taps, x));
}

TEST_P(Filters, InitialisingAgainClearsTheHistory)
{
    const auto taps = randomTaps<double>(3, 5);
    std::int32_t size = 0;
    ASSERT_EQ(ippsIIRGetStateSize64f_BiQuad_32f(3, &size), ippStsNoErr);
    std::vector<std::byte> storage(static_cast<std::size_t>(size));
    const auto x = noise(100, 6);
    std::vector<float> y(x.size());
    for (int turn = 0; turn < 2; ++turn) {
        Cascade64f_32f* state = nullptr;
        ASSERT_EQ(ippsIIRInit64f_BiQuad_32f(&state, taps.data(), 3, nullptr, storage.data()), ippStsNoErr);
        ASSERT_EQ(ippsIIR64f_32f(x.data(), y.data(), 100, state), ippStsNoErr);
        expectTruth(y, truth(taps, x));
    }
}

TEST_P(Filters, StorageOfNoAlignmentWillDo)
{
    const auto taps = randomTaps<float>(5, 5);
    const auto x = noise(100, 6);
    std::int32_t size = 0;
    ASSERT_EQ(ippsIIRGetStateSize_BiQuad_32f(5, &size), ippStsNoErr);
    for (std::size_t offset = 0; offset < 64; ++offset) {
        const auto guard = static_cast<std::byte>(0x5A);
        std::vector<std::byte> storage(static_cast<std::size_t>(size) + 128, guard);
        Cascade_32f* state = nullptr;
        ASSERT_EQ(ippsIIRInit_BiQuad_32f(&state, taps.data(), 5, nullptr, storage.data() + offset), ippStsNoErr);
        std::vector<float> y(x.size());
        ASSERT_EQ(ippsIIR_32f(x.data(), y.data(), 100, state), ippStsNoErr);
        expectTruth(y, truth(taps, x));
        for (std::size_t i = 0; i < storage.size(); ++i)
            ASSERT_TRUE(storage[i] == guard || (i >= offset && i < offset + static_cast<std::size_t>(size)));
    }
}

// --- Precision of the cascades ---------------------------------------------------------------------------------------

// Signal to error in dB.
double precision(const std::vector<float>& y, const std::vector<double>& wanted)
{
    double signal = 0, error = 0;
    for (std::size_t i = 0; i < y.size(); ++i) {
        signal += wanted[i] * wanted[i];
        error += (static_cast<double>(y[i]) - wanted[i]) * (static_cast<double>(y[i]) - wanted[i]);
    }
    return 10 * std::log10(signal / error);
}

// The best that a float can hold: roundings of a uniformly spread mantissa leave about 150 dB.
constexpr double roundedOnce = 148;

// A microphone's curves: poles within 0.01 of the unit circle, and all of them close to each other.
TEST_P(Filters, PolesNextToTheUnitCircleCostNoPrecision)
{
    const std::vector<float> at16000 = {0.97000229F, -1.9242152F,  0.95504779F, 1, -1.9242152F,  0.92505008F,
                                        0.98183644F, -1.9566953F,  0.97499466F, 1, -1.9566953F,  0.9568311F,
                                        0.98937529F, -1.9519541F,  0.96802479F, 1, -1.9519541F,  0.95740008F,
                                        1.012169F,   -1.9275502F,  0.92883539F, 1, -1.9275502F,  0.94100434F,
                                        1.0929618F,  -0.47876537F, 0.45635545F, 1, -0.47876537F, 0.54931724F};
    const std::vector<float> at48000 = {0.9897452F,  -1.974283F,  0.98463297F, 1, -1.974283F,  0.97437817F,
                                        0.99385715F, -1.9853852F, 0.99154329F, 1, -1.9853852F, 0.98540044F,
                                        0.99640888F, -1.9849873F, 0.98919249F, 1, -1.9849873F, 0.98560137F,
                                        1.0041335F,  -1.9784342F, 0.97582728F, 1, -1.9784342F, 0.97996074F,
                                        1.0323546F,  -1.6837952F, 0.81078863F, 1, -1.6837952F, 0.8431433F};
    for (const auto& taps : {at16000, at48000}) {
        const auto x = noise(100000, 11);
        EXPECT_GT(precision(Cascade<float>(taps).process(x), truth(taps, x)), roundedOnce);
    }
}

// Sections whose poles all lie at one place must not be multiplied out together: in groups of four they would keep 58 dB. The
// groups are chosen for roundings below 120 dB.
TEST_P(Filters, PolesAtOnePlaceAreKeptApart)
{
    for (const double angle : {0.004, 0.1, 1.57, 3.1})
        for (const double radius : {0.9, 0.99, 0.999}) {
            std::vector<double> taps;
            for (int s = 0; s < 8; ++s) // notches: what the poles lift, zeros just inside of them press down again
                for (const double tap : {1.0, -2 * 0.98 * radius * std::cos(angle), 0.98 * 0.98 * radius * radius, 1.0,
                                         -2 * radius * std::cos(angle), radius * radius})
                    taps.push_back(tap);
            const auto x = noise(20000, 12);
            EXPECT_GT(precision(Cascade<double>(taps).process(x), truth(taps, x)), 120.0) << angle << ", " << radius;
        }
}

TEST_P(Filters, SectionsThatGiveWhatTheyGetPassEveryBit)
{
    auto x = noise(1000, 13);
    x[3] = std::numeric_limits<float>::quiet_NaN();
    x[4] = std::numeric_limits<float>::infinity();
    x[5] = std::numeric_limits<float>::denorm_min();
    x[6] = -0.0F;
    std::fill(x.begin() + 600, x.end(), 1e-42F);
    const auto bits = [](const std::vector<float>& signal) {
        std::vector<std::uint32_t> all(signal.size());
        std::memcpy(all.data(), signal.data(), signal.size() * sizeof(float));
        return all;
    };
    const std::vector<float> flat = {1, 0, 0, 1, 0, 0, 0.5F, -0.3F, 0.2F, 0.5F, -0.3F, 0.2F, 1, 0, 0, 1, 0, 0};
    EXPECT_EQ(bits(Cascade<float>(flat).process(x)), bits(x));
    auto inPlace = x;
    Cascade<float>(flat).process(inPlace.data(), inPlace.data(), inPlace.size());
    EXPECT_EQ(bits(inPlace), bits(x));
}

// --- Silence, infinities and not-a-number in the cascades ------------------------------------------------------------

template <class State>
std::size_t subnormalsIn(const State* state)
{
    const auto& cascade = *reinterpret_cast<const kernels::Cascade*>(state);
    return subnormals(cascade.past[0], (cascade.groups + 1) * kernels::CascadeGroup::block);
}

TEST_P(Filters, CascadesSettleInSilence)
{
    const std::vector<float> slow = {0.99385715F, -1.9853852F, 0.99154329F, 1, -1.9853852F, 0.98540044F};
    for (const auto& taps : {slow, randomTaps<float>(2, 1, 0.5), randomTaps<float>(5, 2, 0.8)}) {
        Cascade<float> cascade(taps);
        expectSilenceToSettle(cascade, [&] { return subnormalsIn(cascade.state); });
    }
}

TEST_P(Filters, ACascadeThatGetsSilenceWhileItSoundsRingsOn)
{
    const std::vector<float> taps = {1, 0, 0, 1, -0.99F, 0};
    std::vector<float> x(480);
    x[0] = 1e-20F;
    Cascade<float> cascade(taps);
    static_cast<void>(cascade.process(x));
    x[0] = 0.0F;
    const auto y = cascade.process(x);
    for (std::size_t i = 0; i < 480; ++i) {
        const double wanted = 1e-20 * std::pow(static_cast<double>(0.99F), static_cast<double>(480 + i));
        EXPECT_NEAR(static_cast<double>(y[i]), wanted, 1e-6 * wanted); // 1e-20F is not 1e-20
    }
}

TEST_P(Filters, WhatIsNotFiniteLeavesWhatCameBeforeAndStays)
{
    constexpr float infinity = std::numeric_limits<float>::infinity();
    for (const float bad : {infinity, -infinity, std::numeric_limits<float>::quiet_NaN()})
        for (const std::size_t sections : {1U, 2U, 3U, 4U, 5U, 9U})
            for (const std::size_t at : {0U, 7U, 8U, 100U, 511U, 512U, 700U}) {
                const auto taps = randomTaps<double>(sections, 17);
                auto x = noise(1500, 18);
                x[at] = bad;
                const auto wanted = truth(taps, x);
                Cascade<double> cascade(taps);
                const auto y = inBlocks(cascade, x, [at] { return at % 2 == 0 ? 600 : 37; });
                ASSERT_NO_FATAL_FAILURE(expectTruth({y.begin(), y.begin() + static_cast<std::ptrdiff_t>(at)},
                                                    {wanted.begin(), wanted.begin() + static_cast<std::ptrdiff_t>(at)}));
                ASSERT_EQ(std::isnan(y[at]), std::isnan(wanted[at]));
                if (!std::isnan(bad)) {
                    ASSERT_EQ(static_cast<double>(y[at]), wanted[at]);
                }
                for (std::size_t i = at; i < x.size(); ++i)
                    ASSERT_TRUE(!std::isfinite(y[i]) && !std::isfinite(wanted[i])) << "sample " << i << " after " << at;
            }
}

TEST_P(Filters, InitialisingAgainEndsNotANumber)
{
    const auto taps = randomTaps<float>(2, 19);
    std::int32_t size = 0;
    ASSERT_EQ(ippsIIRGetStateSize_BiQuad_32f(2, &size), ippStsNoErr);
    std::vector<std::byte> storage(static_cast<std::size_t>(size));
    std::vector<float> bad(10, std::numeric_limits<float>::quiet_NaN());
    Cascade_32f* state = nullptr;
    ASSERT_EQ(ippsIIRInit_BiQuad_32f(&state, taps.data(), 2, nullptr, storage.data()), ippStsNoErr);
    ASSERT_EQ(ippsIIR_32f(bad.data(), bad.data(), 10, state), ippStsNoErr);
    ASSERT_EQ(ippsIIRInit_BiQuad_32f(&state, taps.data(), 2, nullptr, storage.data()), ippStsNoErr);
    const auto x = noise(100, 20);
    std::vector<float> y(100);
    ASSERT_EQ(ippsIIR_32f(x.data(), y.data(), 100, state), ippStsNoErr);
    expectTruth(y, truth(taps, x));
}

TEST_P(Filters, TapsThatAreNoNumbersAreTaken)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    std::vector<double> taps = randomTaps<double>(9, 20);
    for (std::size_t k = 0; k < taps.size(); k += 5)
        taps[k] = nan;
    EXPECT_TRUE(std::isnan(Cascade<double>(taps).process(noise(10, 1))[9]));
}

// --- Argument rules of the cascades ----------------------------------------------------------------------------------

template <class Tap>
void cascadeArguments()
{
    std::vector<Tap> taps = {1, 0, 0, 1, 0, 0, 1, 0, 0, 1, 0, 0};
    const Tap* none = nullptr;
    std::int32_t size = -1;
    EXPECT_EQ(stateSize(none, 1, nullptr), -8);
    EXPECT_EQ(stateSize(none, 0, nullptr), -8); // null comes first
    EXPECT_EQ(stateSize(none, 0, &size), -25);
    EXPECT_EQ(stateSize(none, -1, &size), -25);
    EXPECT_EQ(stateSize(none, std::numeric_limits<std::int32_t>::max(), &size), -25);
    EXPECT_EQ(size, -1);
    ASSERT_EQ(stateSize(none, 2, &size), 0);

    std::vector<std::byte> storage(static_cast<std::size_t>(size));
    typename StateOf<Tap>::Type* state = nullptr;
    EXPECT_EQ(init(static_cast<decltype(&state)>(nullptr), taps.data(), 2, none, storage.data()), -8);
    EXPECT_EQ(init(&state, none, 2, none, storage.data()), -8);
    EXPECT_EQ(init(&state, taps.data(), 2, none, nullptr), -8);
    EXPECT_EQ(init(&state, none, 0, none, storage.data()), -8);
    EXPECT_EQ(init(&state, taps.data(), 0, none, storage.data()), -25);
    EXPECT_EQ(init(&state, taps.data(), -3, none, storage.data()), -25);
    EXPECT_EQ(init(&state, taps.data(), 2, taps.data(), storage.data()), ippStsNotSupportedModeErr);
    for (const std::size_t zero : {0U, 3U, 6U, 9U}) { // b0 or a0 of either section
        auto bad = taps;
        bad[zero] = 0;
        EXPECT_EQ(init(&state, bad.data(), 2, none, storage.data()), -10);
    }
    EXPECT_EQ(state, nullptr);
    ASSERT_EQ(init(&state, taps.data(), 2, none, storage.data()), 0);

    float x[4] = {};
    EXPECT_EQ(run(nullptr, x, 4, state), -8);
    EXPECT_EQ(run(x, nullptr, 4, state), -8);
    EXPECT_EQ(run(x, x, 4, static_cast<decltype(state)>(nullptr)), -8);
    EXPECT_EQ(run(nullptr, x, 0, state), -8);
    EXPECT_EQ(run(x, x, 0, state), -6);
    EXPECT_EQ(run(x, x, -1, state), -6);
    EXPECT_EQ(run(x, x, 4, state), 0);
}

TEST_P(Filters, FloatTapCascadesCheckTheirArguments)
{
    cascadeArguments<float>();
}

TEST_P(Filters, DoubleTapCascadesCheckTheirArguments)
{
    cascadeArguments<double>();
}

} // namespace
} // namespace quorel
