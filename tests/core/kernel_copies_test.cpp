// SPDX-License-Identifier: MIT
// The kernels that copy, fill, reverse and rearrange.
#include "core/kernels.h"

#include "tests/core/kernel_rows.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace quorel {
namespace {

// --- Movement and conversion -----------------------------------------------------------------------------------------

TEST_P(Kernels, CopyCopies)
{
    sweep(
        1, [](Row& a, Row&, Row& dst, std::int32_t len) { return ippsCopy_32f(a.data(), dst.data(), len); },
        [](const Row& a, const Row&, const Row&, std::size_t i) { return a[i]; });
    sweep(
        2, [](Row& a, Row&, Row& dst, std::int32_t len) { return ippsCopy_32fc(a.complex(), dst.complex(), len); },
        [](const Row& a, const Row&, const Row&, std::size_t i) { return a[i]; });
}

TEST_P(Kernels, CopyOfAnEmptyBlockIsASizeError)
{
    const float src = 1.0F;
    float dst = 2.0F;
    EXPECT_EQ(ippsCopy_32f(&src, &dst, 0), -6);
    EXPECT_EQ(ippsCopy_32f(&src, &dst, -1), -6);
    EXPECT_EQ(dst, 2.0F);
}

TEST_P(Kernels, MoveCopesWithOverlapInBothDirections)
{
    for (const std::int32_t len : lengths()) {
        for (const std::ptrdiff_t shift : {-17, -1, 0, 1, 17}) {
            std::vector<float> row(static_cast<std::size_t>(len) + 40);
            for (std::size_t i = 0; i < row.size(); ++i)
                row[i] = static_cast<float>(i);
            std::vector<float> expected = row;
            for (std::ptrdiff_t i = 0; i < len; ++i)
                expected[static_cast<std::size_t>(20 + shift + i)] = static_cast<float>(20 + i);
            ASSERT_EQ(ippsMove_32f(row.data() + 20, row.data() + 20 + shift, len), ippStsNoErr);
            ASSERT_EQ(row, expected);
        }
    }
}

TEST_P(Kernels, ZeroClears)
{
    sweep(
        1, [](Row&, Row&, Row& dst, std::int32_t len) { return ippsZero_32f(dst.data(), len); },
        [](const Row&, const Row&, const Row&, std::size_t) { return 0.0; });
    sweep(
        2, [](Row&, Row&, Row& dst, std::int32_t len) { return ippsZero_32fc(dst.complex(), len); },
        [](const Row&, const Row&, const Row&, std::size_t) { return 0.0; });
}

TEST_P(Kernels, SetFills)
{
    sweep(
        1, [](Row&, Row&, Row& dst, std::int32_t len) { return ippsSet_32f(0.25F, dst.data(), len); },
        [](const Row&, const Row&, const Row&, std::size_t) { return 0.25; });
    sweep(
        2,
        [](Row&, Row&, Row& dst, std::int32_t len) {
            return ippsSet_32fc({0.25F, -3.0F}, dst.complex(), len);
        },
        [](const Row&, const Row&, const Row&, std::size_t i) { return i % 2 == 0 ? 0.25 : -3.0; });
}

TEST_P(Kernels, FlipReverses)
{
    sweep(
        1,
        [](Row& a, Row& b, Row& dst, std::int32_t len) {
            std::memcpy(b.data(), &len, sizeof(float)); // lets the oracle know the length
            return ippsFlip_32f(a.data(), dst.data(), len);
        },
        [](const Row& a, const Row& b, const Row&, std::size_t i) {
            std::int32_t len = 0;
            std::memcpy(&len, const_cast<Row&>(b).data(), sizeof(float));
            return a[static_cast<std::size_t>(len) - 1 - i];
        });
}

TEST_P(Kernels, FlipReversesInPlace)
{
    for (const std::int32_t len : lengths()) {
        std::vector<float> row(static_cast<std::size_t>(len));
        for (std::size_t i = 0; i < row.size(); ++i)
            row[i] = static_cast<float>(i);
        const std::vector<float> expected(row.rbegin(), row.rend());
        ASSERT_EQ(ippsFlip_32f(row.data(), row.data(), len), ippStsNoErr);
        ASSERT_EQ(row, expected);
    }
}

TEST_P(Kernels, ConjFlipReversesAndConjugates)
{
    for (const std::int32_t len : lengths()) {
        std::vector<Complex> src(static_cast<std::size_t>(len));
        for (std::size_t i = 0; i < src.size(); ++i)
            src[i] = {static_cast<float>(i), static_cast<float>(2 * i + 1)};
        std::vector<Complex> dst(src.size());
        ASSERT_EQ(ippsConjFlip_32fc(src.data(), dst.data(), len), ippStsNoErr);
        for (std::size_t i = 0; i < src.size(); ++i)
            ASSERT_EQ(dst[i], std::conj(src[src.size() - 1 - i]));
    }
}

TEST_P(Kernels, RealToCplxInterleaves)
{
    for (const std::int32_t len : lengths()) {
        std::vector<float> re(static_cast<std::size_t>(len));
        std::vector<float> im(re.size());
        for (std::size_t i = 0; i < re.size(); ++i) {
            re[i] = static_cast<float>(i + 1);
            im[i] = -static_cast<float>(i + 1);
        }
        std::vector<Complex> dst(re.size());
        ASSERT_EQ(ippsRealToCplx_32f(re.data(), im.data(), dst.data(), len), ippStsNoErr);
        for (std::size_t i = 0; i < re.size(); ++i)
            ASSERT_EQ(dst[i], Complex(re[i], im[i]));
        ASSERT_EQ(ippsRealToCplx_32f(re.data(), nullptr, dst.data(), len), ippStsNoErr);
        for (std::size_t i = 0; i < re.size(); ++i)
            ASSERT_EQ(dst[i], Complex(re[i], 0.0F)) << "a null imaginary row stands for zeros";
        ASSERT_EQ(ippsRealToCplx_32f(nullptr, im.data(), dst.data(), len), ippStsNoErr);
        for (std::size_t i = 0; i < re.size(); ++i)
            ASSERT_EQ(dst[i], Complex(0.0F, im[i])) << "a null real row stands for zeros";
    }
}

TEST_P(Kernels, RealTakesTheRealParts)
{
    for (const std::int32_t len : lengths()) {
        std::vector<Complex> src(static_cast<std::size_t>(len));
        for (std::size_t i = 0; i < src.size(); ++i)
            src[i] = {static_cast<float>(i), -1.0F};
        std::vector<float> dst(src.size() + 1, 9.0F);
        ASSERT_EQ(ippsReal_32fc(src.data(), dst.data(), len), ippStsNoErr);
        for (std::size_t i = 0; i < src.size(); ++i)
            ASSERT_EQ(dst[i], static_cast<float>(i));
        ASSERT_EQ(dst.back(), 9.0F);
    }
}

} // namespace
} // namespace quorel
