// SPDX-License-Identifier: MIT
#include "core/kernels.h"

#include "tests/core/kernel_rows.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <random>
#include <vector>

namespace quorel {
namespace {

// --- Arithmetic ------------------------------------------------------------------------------------------------------

TEST_P(Kernels, AddGivesTheNearestFloatOfTheSum)
{
    sweep(
        1, [](Row& a, Row& b, Row& dst, std::int32_t len) { return ippsAdd_32f(a.data(), b.data(), dst.data(), len); },
        [](const Row& a, const Row& b, const Row&, std::size_t i) { return nearest(a[i] + b[i]); });
}

TEST_P(Kernels, SubGivesTheSecondOperandMinusTheFirst)
{
    sweep(
        1, [](Row& a, Row& b, Row& dst, std::int32_t len) { return ippsSub_32f(a.data(), b.data(), dst.data(), len); },
        [](const Row& a, const Row& b, const Row&, std::size_t i) { return nearest(b[i] - a[i]); });
}

TEST_P(Kernels, SubOfOnesAndThreesYieldsTwo)
{
    const std::vector<float> a(100, 1.0F);
    const std::vector<float> b(100, 3.0F);
    std::vector<float> dst(100);
    ASSERT_EQ(ippsSub_32f(a.data(), b.data(), dst.data(), 100), ippStsNoErr);
    EXPECT_EQ(dst, std::vector<float>(100, 2.0F));
}

TEST_P(Kernels, MulGivesTheNearestFloatOfTheProduct)
{
    sweep(
        1, [](Row& a, Row& b, Row& dst, std::int32_t len) { return ippsMul_32f(a.data(), b.data(), dst.data(), len); },
        [](const Row& a, const Row& b, const Row&, std::size_t i) { return nearest(a[i] * b[i]); });
}

// Element i of the flat pairs x times y.
double complexProduct(double xr, double xi, double yr, double yi, std::size_t i)
{
    return i % 2 == 0 ? xr * yr - xi * yi : xr * yi + xi * yr;
}

// Two products and a sum, each rounded: every product and the sum stay below 2.
double complexTolerance(const Row&, const Row&, const Row&, std::size_t)
{
    return 2 * 2 * ulp + 2 * ulp;
}

TEST_P(Kernels, ComplexMulGivesTheComplexProduct)
{
    sweep(
        2, [](Row& a, Row& b, Row& dst, std::int32_t len) { return ippsMul_32fc(a.complex(), b.complex(), dst.complex(), len); },
        [](const Row& a, const Row& b, const Row&, std::size_t i) {
            const std::size_t re = i - i % 2;
            return complexProduct(a[re], a[re + 1], b[re], b[re + 1], i);
        },
        complexTolerance);
}

TEST_P(Kernels, ComplexMulInPlaceGivesTheComplexProduct)
{
    sweep(
        2, [](Row& a, Row&, Row& dst, std::int32_t len) { return ippsMul_32fc_I(a.complex(), dst.complex(), len); },
        [](const Row& a, const Row&, const Row& dst, std::size_t i) {
            const std::size_t re = i - i % 2;
            return complexProduct(a[re], a[re + 1], dst.before(re), dst.before(re + 1), i);
        },
        complexTolerance);
}

TEST_P(Kernels, MulCGivesTheNearestFloatOfTheProduct)
{
    sweep(
        1, [](Row& a, Row&, Row& dst, std::int32_t len) { return ippsMulC_32f(a.data(), 0.3F, dst.data(), len); },
        [](const Row& a, const Row&, const Row&, std::size_t i) { return nearest(a[i] * static_cast<double>(0.3F)); });
}

TEST_P(Kernels, MulCByZeroClearsEvenInfinities)
{
    const std::vector<float> src(37, infinity);
    std::vector<float> dst(37, 5.0F);
    ASSERT_EQ(ippsMulC_32f(src.data(), 0.0F, dst.data(), 37), ippStsNoErr);
    EXPECT_EQ(dst, std::vector<float>(37, 0.0F));
}

TEST_P(Kernels, MulCByOneCopiesEveryBit)
{
    const std::vector<float> src = {-0.0F, 1e-45F, infinity, std::numeric_limits<float>::quiet_NaN(), 0.1F};
    std::vector<float> dst(5);
    ASSERT_EQ(ippsMulC_32f(src.data(), 1.0F, dst.data(), 5), ippStsNoErr);
    EXPECT_EQ(std::memcmp(src.data(), dst.data(), 5 * sizeof(float)), 0);
}

TEST_P(Kernels, AddInPlaceAddsTheSource)
{
    sweep(
        1, [](Row& a, Row&, Row& dst, std::int32_t len) { return ippsAdd_32f_I(a.data(), dst.data(), len); },
        [](const Row& a, const Row&, const Row& dst, std::size_t i) { return nearest(dst.before(i) + a[i]); });
}

TEST_P(Kernels, SubInPlaceSubtractsTheSource)
{
    sweep(
        1, [](Row& a, Row&, Row& dst, std::int32_t len) { return ippsSub_32f_I(a.data(), dst.data(), len); },
        [](const Row& a, const Row&, const Row& dst, std::size_t i) { return nearest(dst.before(i) - a[i]); });
}

TEST_P(Kernels, MulInPlaceMultipliesByTheSource)
{
    sweep(
        1, [](Row& a, Row&, Row& dst, std::int32_t len) { return ippsMul_32f_I(a.data(), dst.data(), len); },
        [](const Row& a, const Row&, const Row& dst, std::size_t i) { return nearest(dst.before(i) * a[i]); });
}

TEST_P(Kernels, DivInPlaceDividesByTheSource)
{
    sweep(
        1, [](Row& a, Row&, Row& dst, std::int32_t len) { return ippsDiv_32f_I(a.data(), dst.data(), len); },
        [](const Row& a, const Row&, const Row& dst, std::size_t i) { return nearest(dst.before(i) / a[i]); });
}

TEST_P(Kernels, DivByZeroFinishesThePassAndWarns)
{
    for (std::size_t zero = 0; zero < 40; ++zero) {
        std::vector<float> src(40, 2.0F);
        std::vector<float> srcDst(40, 3.0F);
        src[zero] = zero % 2 == 0 ? 0.0F : -0.0F;
        EXPECT_EQ(ippsDiv_32f_I(src.data(), srcDst.data(), 40), ippStsDivByZero);
        for (std::size_t i = 0; i < 40; ++i)
            EXPECT_EQ(srcDst[i], i != zero ? 1.5F : zero % 2 == 0 ? infinity : -infinity);
    }
}

TEST_P(Kernels, SubCSubtractsTheValue)
{
    sweep(
        1, [](Row&, Row&, Row& dst, std::int32_t len) { return ippsSubC_32f_I(0.7F, dst.data(), len); },
        [](const Row&, const Row&, const Row& dst, std::size_t i) { return nearest(dst.before(i) - static_cast<double>(0.7F)); });
}

TEST_P(Kernels, SubCOfZeroLeavesEveryBit)
{
    std::vector<float> srcDst = {-0.0F, std::numeric_limits<float>::quiet_NaN(), 1e-45F};
    const std::vector<float> before = srcDst;
    ASSERT_EQ(ippsSubC_32f_I(0.0F, srcDst.data(), 3), ippStsNoErr);
    EXPECT_EQ(std::memcmp(srcDst.data(), before.data(), 3 * sizeof(float)), 0);
}

TEST_P(Kernels, MulCInPlaceGivesTheNearestFloatOfTheProduct)
{
    sweep(
        1, [](Row&, Row&, Row& dst, std::int32_t len) { return ippsMulC_32f_I(-1.7F, dst.data(), len); },
        [](const Row&, const Row&, const Row& dst, std::size_t i) {
            return nearest(dst.before(i) * static_cast<double>(-1.7F));
        });
}

TEST_P(Kernels, MulCInPlaceByZeroClearsEvenInfinities)
{
    std::vector<float> srcDst(37, -infinity);
    ASSERT_EQ(ippsMulC_32f_I(0.0F, srcDst.data(), 37), ippStsNoErr);
    EXPECT_EQ(srcDst, std::vector<float>(37, 0.0F));
}

TEST_P(Kernels, MulCInPlaceByOneLeavesEveryBit)
{
    std::vector<float> srcDst = {-0.0F, std::numeric_limits<float>::signaling_NaN(), 1e-45F};
    const std::vector<float> before = srcDst;
    ASSERT_EQ(ippsMulC_32f_I(1.0F, srcDst.data(), 3), ippStsNoErr);
    EXPECT_EQ(std::memcmp(srcDst.data(), before.data(), 3 * sizeof(float)), 0);
}

TEST_P(Kernels, SubCRevSubtractsFromTheValue)
{
    sweep(
        1, [](Row& a, Row&, Row& dst, std::int32_t len) { return ippsSubCRev_32f(a.data(), 1.0F, dst.data(), len); },
        [](const Row& a, const Row&, const Row&, std::size_t i) { return nearest(1.0 - a[i]); });
}

TEST_P(Kernels, AddProductAddsTheProduct)
{
    // One rounding of the product and one of the sum, both below 2; or one alone, where the two are fused.
    sweep(
        1, [](Row& a, Row& b, Row& dst, std::int32_t len) { return addProduct(a.data(), b.data(), dst.data(), len); },
        [](const Row& a, const Row& b, const Row& dst, std::size_t i) { return dst.before(i) + a[i] * b[i]; },
        [](const Row&, const Row&, const Row&, std::size_t) { return ulp + 2 * ulp; });
}

TEST_P(Kernels, AddProductCAddsTheScaledSource)
{
    // One rounding of the product and one of the sum, both below 2; or one alone, where the two are fused.
    sweep(
        1, [](Row& a, Row&, Row& dst, std::int32_t len) { return ippsAddProductC_32f(a.data(), 0.9F, dst.data(), len); },
        [](const Row& a, const Row&, const Row& dst, std::size_t i) { return dst.before(i) + a[i] * static_cast<double>(0.9F); },
        [](const Row&, const Row&, const Row&, std::size_t) { return ulp + 2 * ulp; });
}

TEST_P(Kernels, MagnitudeGivesTheLengthOfEachPair)
{
    std::mt19937 random(3);
    for (const std::int32_t len : lengths()) {
        Row src(2 * static_cast<std::size_t>(len), 1, random);
        std::vector<float> dst(static_cast<std::size_t>(len));
        ASSERT_EQ(ippsMagnitude_32fc(src.complex(), dst.data(), len), ippStsNoErr);
        for (std::size_t i = 0; i < dst.size(); ++i) {
            // Three roundings under the root count half, the root's own whole: 2.5 relative halves of an ulp.
            const double wanted = std::hypot(src[2 * i], src[2 * i + 1]);
            ASSERT_NEAR(static_cast<double>(dst[i]), wanted, 2.5 * 2 * ulp * wanted);
        }
    }
}

// --- Clamps and reduction --------------------------------------------------------------------------------------------

TEST_P(Kernels, ThresholdLessRaisesToTheLevel)
{
    const auto expected = [](double x) { return x < static_cast<double>(0.1F) ? static_cast<double>(0.1F) : x; };
    sweep(
        1, [](Row& a, Row&, Row& dst, std::int32_t len) { return ippsThreshold_LT_32f(a.data(), dst.data(), len, 0.1F); },
        [&](const Row& a, const Row&, const Row&, std::size_t i) { return expected(a[i]); });
    sweep(
        1, [](Row&, Row&, Row& dst, std::int32_t len) { return ippsThreshold_LT_32f_I(dst.data(), len, 0.1F); },
        [&](const Row&, const Row&, const Row& dst, std::size_t i) { return expected(dst.before(i)); });
}

TEST_P(Kernels, ThresholdGreaterCutsToTheLevel)
{
    sweep(
        1, [](Row&, Row&, Row& dst, std::int32_t len) { return ippsThreshold_GT_32f_I(dst.data(), len, 0.1F); },
        [](const Row&, const Row&, const Row& dst, std::size_t i) { return std::min(dst.before(i), static_cast<double>(0.1F)); });
}

TEST_P(Kernels, ThresholdsLetNotANumberThrough)
{
    for (std::size_t at = 0; at < 35; ++at) {
        std::vector<float> row(35, 0.5F);
        row[at] = std::numeric_limits<float>::quiet_NaN();
        std::vector<float> raised(35);
        ASSERT_EQ(ippsThreshold_LT_32f(row.data(), raised.data(), 35, 1.0F), ippStsNoErr);
        ASSERT_EQ(ippsThreshold_GT_32f_I(row.data(), 35, 0.25F), ippStsNoErr);
        for (std::size_t i = 0; i < 35; ++i) {
            EXPECT_EQ(std::isnan(raised[i]), i == at);
            EXPECT_EQ(std::isnan(row[i]), i == at);
        }
    }
}

TEST_P(Kernels, SumAddsInDoublePrecisionAndRoundsOnce)
{
    std::mt19937 random(4);
    for (const std::int32_t len : lengths()) {
        Row src(2 * static_cast<std::size_t>(len), 3, random);
        double re = 0.0;
        double im = 0.0;
        for (std::size_t i = 0; i < static_cast<std::size_t>(len); ++i) {
            re += src[2 * i];
            im += src[2 * i + 1];
        }
        Complex sum;
        ASSERT_EQ(ippsSum_32fc(src.complex(), len, &sum, 0), ippStsNoErr);
        // Floats of [-1, 1) are multiples of 2^-24 to 2^-48 apart in a double that holds sums to 4099 exactly, so order is free.
        ASSERT_EQ(sum, Complex(static_cast<float>(re), static_cast<float>(im)));
    }
}

TEST_P(Kernels, SumKeepsSmallAddendsBesideLargeOnes)
{
    std::vector<Complex> src(1001, Complex(1.0F, -1.0F));
    src[0] = {0x1p30F, 0x1p30F};
    src[1000] = {-0x1p30F, -0x1p30F};
    Complex sum;
    ASSERT_EQ(ippsSum_32fc(src.data(), 1001, &sum, 0), ippStsNoErr);
    EXPECT_EQ(sum, Complex(999.0F, -999.0F));
}

// --- Argument rules --------------------------------------------------------------------------------------------------

TEST_P(Kernels, NullIsTestedBeforeLengthAndNothingIsWritten)
{
    using F = float*;
    struct Case {
        const char* name;
        int pointers;
        std::function<Status(F, F, F, std::int32_t)> call;
    };
    const auto c = [](float* p) { return reinterpret_cast<Complex*>(p); };
    const std::vector<Case> cases = {
        {"Add", 3, [](F a, F b, F d, std::int32_t n) { return ippsAdd_32f(a, b, d, n); }},
        {"Sub", 3, [](F a, F b, F d, std::int32_t n) { return ippsSub_32f(a, b, d, n); }},
        {"Mul", 3, [](F a, F b, F d, std::int32_t n) { return ippsMul_32f(a, b, d, n); }},
        {"Mul_32fc", 3, [&](F a, F b, F d, std::int32_t n) { return ippsMul_32fc(c(a), c(b), c(d), n); }},
        {"MulC", 2, [](F a, F d, F, std::int32_t n) { return ippsMulC_32f(a, 2.0F, d, n); }},
        {"MulC by 1", 2, [](F a, F d, F, std::int32_t n) { return ippsMulC_32f(a, 1.0F, d, n); }},
        {"MulC by 0", 2, [](F a, F d, F, std::int32_t n) { return ippsMulC_32f(a, 0.0F, d, n); }},
        {"Add_I", 2, [](F a, F d, F, std::int32_t n) { return ippsAdd_32f_I(a, d, n); }},
        {"Sub_I", 2, [](F a, F d, F, std::int32_t n) { return ippsSub_32f_I(a, d, n); }},
        {"Mul_I", 2, [](F a, F d, F, std::int32_t n) { return ippsMul_32f_I(a, d, n); }},
        {"Mul_32fc_I", 2, [&](F a, F d, F, std::int32_t n) { return ippsMul_32fc_I(c(a), c(d), n); }},
        {"Div_I", 2, [](F a, F d, F, std::int32_t n) { return ippsDiv_32f_I(a, d, n); }},
        {"SubC_I", 1, [](F d, F, F, std::int32_t n) { return ippsSubC_32f_I(2.0F, d, n); }},
        {"SubC_I of 0", 1, [](F d, F, F, std::int32_t n) { return ippsSubC_32f_I(0.0F, d, n); }},
        {"MulC_I", 1, [](F d, F, F, std::int32_t n) { return ippsMulC_32f_I(2.0F, d, n); }},
        {"MulC_I by 1", 1, [](F d, F, F, std::int32_t n) { return ippsMulC_32f_I(1.0F, d, n); }},
        {"MulC_I by 0", 1, [](F d, F, F, std::int32_t n) { return ippsMulC_32f_I(0.0F, d, n); }},
        {"SubCRev", 2, [](F a, F d, F, std::int32_t n) { return ippsSubCRev_32f(a, 2.0F, d, n); }},
        {"AddProduct", 3, [](F a, F b, F d, std::int32_t n) { return addProduct(a, b, d, n); }},
        {"AddProductC", 2, [](F a, F d, F, std::int32_t n) { return ippsAddProductC_32f(a, 2.0F, d, n); }},
        {"Copy", 2, [](F a, F d, F, std::int32_t n) { return ippsCopy_32f(a, d, n); }},
        {"Copy_32fc", 2, [&](F a, F d, F, std::int32_t n) { return ippsCopy_32fc(c(a), c(d), n); }},
        {"Move", 2, [](F a, F d, F, std::int32_t n) { return ippsMove_32f(a, d, n); }},
        {"Zero", 1, [](F d, F, F, std::int32_t n) { return ippsZero_32f(d, n); }},
        {"Zero_32fc", 1, [&](F d, F, F, std::int32_t n) { return ippsZero_32fc(c(d), n); }},
        {"Set", 1, [](F d, F, F, std::int32_t n) { return ippsSet_32f(2.0F, d, n); }},
        {"Set_32fc", 1,
         [&](F d, F, F, std::int32_t n) {
             return ippsSet_32fc({2.0F, 2.0F}, c(d), n);
         }},
        {"Flip", 2, [](F a, F d, F, std::int32_t n) { return ippsFlip_32f(a, d, n); }},
        {"ConjFlip", 2, [&](F a, F d, F, std::int32_t n) { return ippsConjFlip_32fc(c(a), c(d), n); }},
        {"Real", 2, [&](F a, F d, F, std::int32_t n) { return ippsReal_32fc(c(a), d, n); }},
        {"Magnitude", 2, [&](F a, F d, F, std::int32_t n) { return ippsMagnitude_32fc(c(a), d, n); }},
        {"Threshold_LT", 2, [](F a, F d, F, std::int32_t n) { return ippsThreshold_LT_32f(a, d, n, 2.0F); }},
        {"Threshold_LT_I", 1, [](F d, F, F, std::int32_t n) { return ippsThreshold_LT_32f_I(d, n, 2.0F); }},
        {"Threshold_GT_I", 1, [](F d, F, F, std::int32_t n) { return ippsThreshold_GT_32f_I(d, n, -2.0F); }},
        {"Sum", 2, [&](F a, F d, F, std::int32_t n) { return ippsSum_32fc(c(a), n, c(d), 0); }},
    };
    for (const Case& kernel : cases) {
        SCOPED_TRACE(kernel.name);
        std::array<std::array<float, 8>, 3> rows{};
        for (auto& row : rows)
            row.fill(1.0F);
        const auto before = rows;
        for (const std::int32_t len : {0, -1, std::numeric_limits<std::int32_t>::min()})
            EXPECT_EQ(kernel.call(rows[0].data(), rows[1].data(), rows[2].data(), len), ippStsSizeErr);
        for (int null = 0; null < kernel.pointers; ++null)
            for (const std::int32_t len : {0, 4}) {
                std::array<float*, 3> p = {rows[0].data(), rows[1].data(), rows[2].data()};
                p[static_cast<std::size_t>(null)] = nullptr;
                EXPECT_EQ(kernel.call(p[0], p[1], p[2], len), ippStsNullPtrErr);
            }
        EXPECT_EQ(rows, before);
        EXPECT_EQ(kernel.call(rows[0].data(), rows[1].data(), rows[2].data(), 1), ippStsNoErr);
    }
}

TEST_P(Kernels, RealToCplxNeedsADestinationAndOneSource)
{
    float part = 1.0F;
    Complex dst;
    EXPECT_EQ(ippsRealToCplx_32f(nullptr, nullptr, &dst, 1), ippStsNullPtrErr);
    EXPECT_EQ(ippsRealToCplx_32f(&part, &part, nullptr, 1), ippStsNullPtrErr);
    EXPECT_EQ(ippsRealToCplx_32f(&part, nullptr, &dst, 0), ippStsSizeErr);
    EXPECT_EQ(ippsRealToCplx_32f(nullptr, nullptr, &dst, 0), ippStsNullPtrErr);
}

TEST(KernelVariants, TheWidestVariantOfTheProcessorIsInUse)
{
    EXPECT_EQ(&kernels::active(), kernels::availableVariants().back());
    EXPECT_STREQ(kernels::availableVariants().front()->name, "baseline");
}

TEST(KernelVariants, TheVersionRecordIsConstant)
{
    ASSERT_NE(ippGetLibVersion(), nullptr);
    EXPECT_EQ(ippGetLibVersion(), ippGetLibVersion());
}

} // namespace
} // namespace quorel
