// SPDX-License-Identifier: MIT
#include "core/kernels/elements.h"

#include "core/kernels/arguments.h"

namespace quorel {

using kernels::active;
using kernels::arguments;
using kernels::bare;
using kernels::KernelTable;
using kernels::Length;
using kernels::run;

Status ippsAdd_32f(const float* a, const float* b, float* dst, std::int32_t len) noexcept
{
    return run<&KernelTable::add>(a, b, dst, Length{len});
}

Status ippsSub_32f(const float* a, const float* b, float* dst, std::int32_t len) noexcept
{
    return run<&KernelTable::sub>(a, b, dst, Length{len});
}

Status ippsMul_32f(const float* a, const float* b, float* dst, std::int32_t len) noexcept
{
    return run<&KernelTable::mul>(a, b, dst, Length{len});
}

Status ippsMul_32fc(const Complex* a, const Complex* b, Complex* dst, std::int32_t len) noexcept
{
    return run<&KernelTable::mulComplex>(a, b, dst, Length{len});
}

Status ippsAdd_32f_I(const float* src, float* srcDst, std::int32_t len) noexcept
{
    return run<&KernelTable::add>(srcDst, src, srcDst, Length{len});
}

Status ippsSub_32f_I(const float* src, float* srcDst, std::int32_t len) noexcept
{
    return run<&KernelTable::sub>(src, srcDst, srcDst, Length{len});
}

Status ippsMul_32f_I(const float* src, float* srcDst, std::int32_t len) noexcept
{
    return run<&KernelTable::mul>(srcDst, src, srcDst, Length{len});
}

Status ippsMul_32fc_I(const Complex* src, Complex* srcDst, std::int32_t len) noexcept
{
    return run<&KernelTable::mulComplex>(srcDst, src, srcDst, Length{len});
}

Status addProduct(const float* a, const float* b, float* srcDst, std::int32_t len) noexcept
{
    return run<&KernelTable::addProduct>(a, b, srcDst, Length{len});
}

Status ippsAddProductC_32f(const float* src, float val, float* srcDst, std::int32_t len) noexcept
{
    return run<&KernelTable::addProductC>(src, val, srcDst, Length{len});
}

Status ippsSubCRev_32f(const float* src, float val, float* dst, std::int32_t len) noexcept
{
    return run<&KernelTable::subCRev>(src, val, dst, Length{len});
}

Status ippsMulC_32f(const float* src, float val, float* dst, std::int32_t len) noexcept
{
    if (val == 1.0F)
        return ippsCopy_32f(src, dst, len);
    if (val != 0.0F)
        return run<&KernelTable::mulC>(src, val, dst, Length{len});
    const Status bad = arguments(src, dst, Length{len});
    return bad != ippStsNoErr ? bad : ippsZero_32f(dst, len);
}

Status ippsMulC_32f_I(float val, float* srcDst, std::int32_t len) noexcept
{
    if (val == 0.0F)
        return ippsZero_32f(srcDst, len);
    if (val != 1.0F)
        return run<&KernelTable::mulC>(srcDst, val, srcDst, Length{len});
    return arguments(srcDst, Length{len});
}

Status ippsSubC_32f_I(float val, float* srcDst, std::int32_t len) noexcept
{
    if (val != 0.0F)
        return run<&KernelTable::subC>(val, srcDst, Length{len});
    return arguments(srcDst, Length{len});
}

Status ippsDiv_32f_I(const float* src, float* srcDst, std::int32_t len) noexcept
{
    if (const Status bad = arguments(src, srcDst, Length{len}); bad != ippStsNoErr)
        return bad;
    return active().div(src, srcDst, bare(Length{len})) ? ippStsDivByZero : ippStsNoErr;
}

Status ippsCopy_32f(const float* src, float* dst, std::int32_t len) noexcept
{
    return run<&KernelTable::copy>(src, dst, Length{len});
}

Status ippsCopy_32fc(const Complex* src, Complex* dst, std::int32_t len) noexcept
{
    return run<&KernelTable::copy>(src, dst, Length{len, 2});
}

Status ippsMove_32f(const float* src, float* dst, std::int32_t len) noexcept
{
    return run<&KernelTable::move>(src, dst, Length{len});
}

Status ippsZero_32f(float* dst, std::int32_t len) noexcept
{
    return run<&KernelTable::zero>(dst, Length{len});
}

Status ippsZero_32fc(Complex* dst, std::int32_t len) noexcept
{
    return run<&KernelTable::zero>(dst, Length{len, 2});
}

Status ippsSet_32f(float val, float* dst, std::int32_t len) noexcept
{
    return run<&KernelTable::set>(val, dst, Length{len});
}

Status ippsSet_32fc(Complex val, Complex* dst, std::int32_t len) noexcept
{
    return run<&KernelTable::setComplex>(val.real(), val.imag(), dst, Length{len});
}

Status ippsFlip_32f(const float* src, float* dst, std::int32_t len) noexcept
{
    return run<&KernelTable::flip>(src, dst, Length{len});
}

Status ippsConjFlip_32fc(const Complex* src, Complex* dst, std::int32_t len) noexcept
{
    return run<&KernelTable::conjFlip>(src, dst, Length{len});
}

Status ippsReal_32fc(const Complex* src, float* dst, std::int32_t len) noexcept
{
    return run<&KernelTable::real>(src, dst, Length{len});
}

Status ippsMagnitude_32fc(const Complex* src, float* dst, std::int32_t len) noexcept
{
    return run<&KernelTable::magnitude>(src, dst, Length{len});
}

Status ippsRealToCplx_32f(const float* re, const float* im, Complex* dst, std::int32_t len) noexcept
{
    if (const Status bad = arguments(re != nullptr ? re : im, dst, Length{len}); bad != ippStsNoErr)
        return bad;
    active().realToComplex(re, im, bare(dst), bare(Length{len}));
    return ippStsNoErr;
}

Status ippsThreshold_LT_32f(const float* src, float* dst, std::int32_t len, float level) noexcept
{
    return run<&KernelTable::thresholdLess>(src, dst, Length{len}, level);
}

Status ippsThreshold_LT_32f_I(float* srcDst, std::int32_t len, float level) noexcept
{
    return run<&KernelTable::thresholdLess>(srcDst, srcDst, Length{len}, level);
}

Status ippsThreshold_GT_32f_I(float* srcDst, std::int32_t len, float level) noexcept
{
    return run<&KernelTable::thresholdGreater>(srcDst, Length{len}, level);
}

Status ippsSum_32fc(const Complex* src, std::int32_t len, Complex* sum, std::int32_t /*hint*/) noexcept
{
    return run<&KernelTable::sumComplex>(src, Length{len}, sum);
}

const LibraryVersion* ippGetLibVersion() noexcept
{
    static constexpr LibraryVersion version = {1, 0, "quorel kernels"};
    return &version;
}

} // namespace quorel
