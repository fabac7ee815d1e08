// SPDX-License-Identifier: MIT
// Which arguments the transforms and the packed product refuse, and by which status.
#include "core/kernels/transforms.h"

#include "tests/core/transform.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

namespace quorel {
namespace {

constexpr std::int32_t flags[] = {1, 2, 4, 8};

TEST(MulPack, ANullArrayIsRefusedBeforeTheLength)
{
    float x[2] = {1, 2};
    EXPECT_EQ(ippsMulPack_32f(nullptr, x, x, 0), ippStsNullPtrErr);
    EXPECT_EQ(ippsMulPack_32f(x, nullptr, x, 2), ippStsNullPtrErr);
    EXPECT_EQ(ippsMulPack_32f(x, x, nullptr, 2), ippStsNullPtrErr);
}

TEST(MulPack, ALengthBelowOneIsRefused)
{
    float x[2] = {1, 2};
    EXPECT_EQ(ippsMulPack_32f(x, x, x, 0), ippStsSizeErr);
    EXPECT_EQ(ippsMulPack_32f(x, x, x, -1), ippStsSizeErr);
}

// The two kinds of transform side by side, so that each rule is tested on both.
struct Kind {
    std::int32_t highestOrder;
    std::function<Status(std::int32_t, std::int32_t, std::int32_t*, std::int32_t*, std::int32_t*)> getSize;
    std::function<Status(bool withSpec, std::int32_t, std::int32_t, void*, void*)> init;
};

const Kind kinds[] = {
    {29, [](auto order, auto flag, auto* a, auto* b, auto* c) { return ippsFFTGetSize_R_32f(order, flag, 0, a, b, c); },
     [](bool withSpec, auto order, auto flag, void* storage, void* init) {
         FFTSpec_R_32f* spec = nullptr;
         return ippsFFTInit_R_32f(withSpec ? &spec : nullptr, order, flag, 0, storage, init);
     }},
    {28, [](auto order, auto flag, auto* a, auto* b, auto* c) { return ippsFFTGetSize_C_32fc(order, flag, 0, a, b, c); },
     [](bool withSpec, auto order, auto flag, void* storage, void* init) {
         FFTSpec_C_32fc* spec = nullptr;
         return ippsFFTInit_C_32fc(withSpec ? &spec : nullptr, order, flag, 0, storage, init);
     }},
};

TEST(TransformSizes, EveryOrderAndFlagHasByteCounts)
{
    for (const Kind& kind : kinds)
        for (std::int32_t order = 0; order <= kind.highestOrder; ++order)
            for (const std::int32_t flag : flags) {
                std::int32_t spec = -1;
                std::int32_t init = -1;
                std::int32_t work = -1;
                EXPECT_EQ(kind.getSize(order, flag, &spec, &init, &work), ippStsNoErr);
                EXPECT_GT(spec, 0);
                EXPECT_GE(init, 0);
                EXPECT_GE(work, 0);
            }
}

TEST(TransformSizes, AnOrderBelowZeroOrAboveTheHighestIsRefused)
{
    std::int32_t bytes = 0;
    std::int32_t storage = 0;
    for (const Kind& kind : kinds)
        for (const std::int32_t order : {-1, kind.highestOrder + 1, 1000, std::numeric_limits<std::int32_t>::min()}) {
            EXPECT_EQ(kind.getSize(order, 8, &bytes, &bytes, &bytes), ippStsFftOrderErr);
            EXPECT_EQ(kind.init(true, order, 8, &storage, nullptr), ippStsFftOrderErr);
        }
}

TEST(TransformSizes, AFlagOtherThanTheFourIsRefused)
{
    std::int32_t bytes = 0;
    std::int32_t storage = 0;
    for (const Kind& kind : kinds)
        for (const std::int32_t flag : {-8, -1, 0, 3, 5, 6, 7, 9, 16}) {
            EXPECT_EQ(kind.getSize(10, flag, &bytes, &bytes, &bytes), ippStsFftFlagErr);
            EXPECT_EQ(kind.init(true, 10, flag, &storage, nullptr), ippStsFftFlagErr);
        }
}

TEST(TransformSizes, ANullPointerIsRefusedBeforeAnythingElse)
{
    std::int32_t bytes = 0;
    std::int32_t storage = 0;
    for (const Kind& kind : kinds) {
        EXPECT_EQ(kind.getSize(-1, 0, nullptr, &bytes, &bytes), ippStsNullPtrErr);
        EXPECT_EQ(kind.getSize(10, 8, &bytes, nullptr, &bytes), ippStsNullPtrErr);
        EXPECT_EQ(kind.getSize(10, 8, &bytes, &bytes, nullptr), ippStsNullPtrErr);
        EXPECT_EQ(kind.init(false, -1, 0, &storage, nullptr), ippStsNullPtrErr);
        EXPECT_EQ(kind.init(true, 10, 8, nullptr, nullptr), ippStsNullPtrErr);
    }
}

TEST(TransformRuns, ANullArrayOrSpecIsRefused)
{
    std::vector<float> x(1024);
    std::vector<Complex> z(1024);
    const Transform<float> real(10);
    const Transform<Complex> complex(10);
    EXPECT_EQ(ippsFFTFwd_RToPack_32f(nullptr, x.data(), real.spec, real.work()), ippStsNullPtrErr);
    EXPECT_EQ(ippsFFTFwd_RToPack_32f(x.data(), nullptr, real.spec, real.work()), ippStsNullPtrErr);
    EXPECT_EQ(ippsFFTFwd_RToPack_32f(x.data(), x.data(), nullptr, real.work()), ippStsNullPtrErr);
    EXPECT_EQ(ippsFFTInv_PackToR_32f(nullptr, x.data(), real.spec, real.work()), ippStsNullPtrErr);
    EXPECT_EQ(ippsFFTInv_PackToR_32f(x.data(), nullptr, real.spec, real.work()), ippStsNullPtrErr);
    EXPECT_EQ(ippsFFTInv_PackToR_32f(x.data(), x.data(), nullptr, real.work()), ippStsNullPtrErr);
    EXPECT_EQ(ippsFFTInv_CToC_32fc(nullptr, z.data(), complex.spec, complex.work()), ippStsNullPtrErr);
    EXPECT_EQ(ippsFFTInv_CToC_32fc(z.data(), nullptr, complex.spec, complex.work()), ippStsNullPtrErr);
    EXPECT_EQ(ippsFFTInv_CToC_32fc(z.data(), z.data(), nullptr, complex.work()), ippStsNullPtrErr);
}

TEST(TransformRuns, ANullWorkStorageIsRefusedWhereASizeWasAskedFor)
{
    std::vector<float> x(2048);
    std::vector<float> y(2048);
    const auto* z = reinterpret_cast<const Complex*>(x.data());
    for (const std::int32_t order : {3, 9, 10}) {
        const Transform<float> real(order);
        const Transform<Complex> complex(order);
        const Status realStatus = real.work() == nullptr ? ippStsNoErr : ippStsNullPtrErr;
        const Status complexStatus = complex.work() == nullptr ? ippStsNoErr : ippStsNullPtrErr;
        EXPECT_EQ(ippsFFTFwd_RToPack_32f(x.data(), y.data(), real.spec, nullptr), realStatus);
        EXPECT_EQ(ippsFFTInv_PackToR_32f(x.data(), y.data(), real.spec, nullptr), realStatus);
        EXPECT_EQ(ippsFFTInv_CToC_32fc(z, reinterpret_cast<Complex*>(y.data()), complex.spec, nullptr), complexStatus);
    }
}

} // namespace
} // namespace quorel
