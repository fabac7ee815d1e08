// The element kernels as the stages call them: the argument rules, then one call through the variant in use.
#include "core/kernels.h"

#include "core/kernels/arguments.h"
#include "core/kernels/kernel_table.h"

namespace quorel {

using kernels::active;
using kernels::arguments;

namespace {

// std::complex<float> is laid out as two floats, and may be read as such.
const float* floats(const Complex* p) noexcept
{
    return reinterpret_cast<const float*>(p);
}
float* floats(Complex* p) noexcept
{
    return reinterpret_cast<float*>(p);
}
std::size_t count(std::int32_t len) noexcept
{
    return static_cast<std::size_t>(len);
}

} // namespace

Status ippsAdd_32f(const float* a, const float* b, float* dst, std::int32_t len) noexcept
{
    if (const Status bad = arguments(len, a, b, dst); bad != ippStsNoErr)
        return bad;
    active().add(a, b, dst, count(len));
    return ippStsNoErr;
}

Status ippsSub_32f(const float* a, const float* b, float* dst, std::int32_t len) noexcept
{
    if (const Status bad = arguments(len, a, b, dst); bad != ippStsNoErr)
        return bad;
    active().sub(a, b, dst, count(len));
    return ippStsNoErr;
}

Status ippsMul_32f(const float* a, const float* b, float* dst, std::int32_t len) noexcept
{
    if (const Status bad = arguments(len, a, b, dst); bad != ippStsNoErr)
        return bad;
    active().mul(a, b, dst, count(len));
    return ippStsNoErr;
}

Status ippsMul_32fc(const Complex* a, const Complex* b, Complex* dst, std::int32_t len) noexcept
{
    if (const Status bad = arguments(len, a, b, dst); bad != ippStsNoErr)
        return bad;
    active().mulComplex(floats(a), floats(b), floats(dst), count(len));
    return ippStsNoErr;
}

Status ippsAdd_32f_I(const float* src, float* srcDst, std::int32_t len) noexcept
{
    if (const Status bad = arguments(len, src, srcDst); bad != ippStsNoErr)
        return bad;
    active().add(srcDst, src, srcDst, count(len));
    return ippStsNoErr;
}

Status ippsSub_32f_I(const float* src, float* srcDst, std::int32_t len) noexcept
{
    if (const Status bad = arguments(len, src, srcDst); bad != ippStsNoErr)
        return bad;
    active().sub(src, srcDst, srcDst, count(len));
    return ippStsNoErr;
}

Status ippsMul_32f_I(const float* src, float* srcDst, std::int32_t len) noexcept
{
    if (const Status bad = arguments(len, src, srcDst); bad != ippStsNoErr)
        return bad;
    active().mul(srcDst, src, srcDst, count(len));
    return ippStsNoErr;
}

Status ippsMul_32fc_I(const Complex* src, Complex* srcDst, std::int32_t len) noexcept
{
    if (const Status bad = arguments(len, src, srcDst); bad != ippStsNoErr)
        return bad;
    active().mulComplex(floats(srcDst), floats(src), floats(srcDst), count(len));
    return ippStsNoErr;
}

Status ippsAddProductC_32f(const float* src, float val, float* srcDst, std::int32_t len) noexcept
{
    if (const Status bad = arguments(len, src, srcDst); bad != ippStsNoErr)
        return bad;
    active().addProductC(src, val, srcDst, count(len));
    return ippStsNoErr;
}

Status ippsSubCRev_32f(const float* src, float val, float* dst, std::int32_t len) noexcept
{
    if (const Status bad = arguments(len, src, dst); bad != ippStsNoErr)
        return bad;
    active().subCRev(src, val, dst, count(len));
    return ippStsNoErr;
}

Status ippsMulC_32f(const float* src, float val, float* dst, std::int32_t len) noexcept
{
    if (const Status bad = arguments(len, src, dst); bad != ippStsNoErr)
        return bad;
    if (val == 1.0F)
        active().copy(src, dst, count(len));
    else if (val == 0.0F)
        active().zero(dst, count(len));
    else
        active().mulC(src, val, dst, count(len));
    return ippStsNoErr;
}

Status ippsMulC_32f_I(float val, float* srcDst, std::int32_t len) noexcept
{
    if (const Status bad = arguments(len, srcDst); bad != ippStsNoErr)
        return bad;
    if (val == 0.0F)
        active().zero(srcDst, count(len));
    else if (val != 1.0F)
        active().mulC(srcDst, val, srcDst, count(len));
    return ippStsNoErr;
}

Status ippsSubC_32f_I(float val, float* srcDst, std::int32_t len) noexcept
{
    if (const Status bad = arguments(len, srcDst); bad != ippStsNoErr)
        return bad;
    if (val != 0.0F)
        active().subC(val, srcDst, count(len));
    return ippStsNoErr;
}

Status ippsDiv_32f_I(const float* src, float* srcDst, std::int32_t len) noexcept
{
    if (const Status bad = arguments(len, src, srcDst); bad != ippStsNoErr)
        return bad;
    return active().div(src, srcDst, count(len)) ? ippStsDivByZero : ippStsNoErr;
}

Status ippsCopy_32f(const float* src, float* dst, std::int32_t len) noexcept
{
    if (const Status bad = arguments(len, src, dst); bad != ippStsNoErr)
        return bad;
    active().copy(src, dst, count(len));
    return ippStsNoErr;
}

Status ippsCopy_32fc(const Complex* src, Complex* dst, std::int32_t len) noexcept
{
    if (const Status bad = arguments(len, src, dst); bad != ippStsNoErr)
        return bad;
    active().copy(floats(src), floats(dst), 2 * count(len));
    return ippStsNoErr;
}

Status ippsMove_32f(const float* src, float* dst, std::int32_t len) noexcept
{
    if (const Status bad = arguments(len, src, dst); bad != ippStsNoErr)
        return bad;
    active().move(src, dst, count(len));
    return ippStsNoErr;
}

Status ippsZero_32f(float* dst, std::int32_t len) noexcept
{
    if (const Status bad = arguments(len, dst); bad != ippStsNoErr)
        return bad;
    active().zero(dst, count(len));
    return ippStsNoErr;
}

Status ippsZero_32fc(Complex* dst, std::int32_t len) noexcept
{
    if (const Status bad = arguments(len, dst); bad != ippStsNoErr)
        return bad;
    active().zero(floats(dst), 2 * count(len));
    return ippStsNoErr;
}

Status ippsSet_32f(float val, float* dst, std::int32_t len) noexcept
{
    if (const Status bad = arguments(len, dst); bad != ippStsNoErr)
        return bad;
    active().set(val, dst, count(len));
    return ippStsNoErr;
}

Status ippsSet_32fc(Complex val, Complex* dst, std::int32_t len) noexcept
{
    if (const Status bad = arguments(len, dst); bad != ippStsNoErr)
        return bad;
    active().setComplex(val.real(), val.imag(), floats(dst), count(len));
    return ippStsNoErr;
}

Status ippsFlip_32f(const float* src, float* dst, std::int32_t len) noexcept
{
    if (const Status bad = arguments(len, src, dst); bad != ippStsNoErr)
        return bad;
    if (src == dst)
        active().flipInPlace(dst, count(len));
    else
        active().flip(src, dst, count(len));
    return ippStsNoErr;
}

Status ippsConjFlip_32fc(const Complex* src, Complex* dst, std::int32_t len) noexcept
{
    if (const Status bad = arguments(len, src, dst); bad != ippStsNoErr)
        return bad;
    active().conjFlip(floats(src), floats(dst), count(len));
    return ippStsNoErr;
}

Status ippsReal_32fc(const Complex* src, float* dst, std::int32_t len) noexcept
{
    if (const Status bad = arguments(len, src, dst); bad != ippStsNoErr)
        return bad;
    active().real(floats(src), dst, count(len));
    return ippStsNoErr;
}

Status ippsMagnitude_32fc(const Complex* src, float* dst, std::int32_t len) noexcept
{
    if (const Status bad = arguments(len, src, dst); bad != ippStsNoErr)
        return bad;
    active().magnitude(floats(src), dst, count(len));
    return ippStsNoErr;
}

Status ippsRealToCplx_32f(const float* re, const float* im, Complex* dst, std::int32_t len) noexcept
{
    if (const Status bad = arguments(len, dst, re != nullptr ? re : im); bad != ippStsNoErr)
        return bad;
    active().realToComplex(re, im, floats(dst), count(len));
    return ippStsNoErr;
}

Status ippsThreshold_LT_32f(const float* src, float* dst, std::int32_t len, float level) noexcept
{
    if (const Status bad = arguments(len, src, dst); bad != ippStsNoErr)
        return bad;
    active().thresholdLess(src, dst, count(len), level);
    return ippStsNoErr;
}

Status ippsThreshold_LT_32f_I(float* srcDst, std::int32_t len, float level) noexcept
{
    if (const Status bad = arguments(len, srcDst); bad != ippStsNoErr)
        return bad;
    active().thresholdLess(srcDst, srcDst, count(len), level);
    return ippStsNoErr;
}

Status ippsThreshold_GT_32f_I(float* srcDst, std::int32_t len, float level) noexcept
{
    if (const Status bad = arguments(len, srcDst); bad != ippStsNoErr)
        return bad;
    active().thresholdGreater(srcDst, count(len), level);
    return ippStsNoErr;
}

Status ippsSum_32fc(const Complex* src, std::int32_t len, Complex* sum, std::int32_t /*hint*/) noexcept
{
    if (const Status bad = arguments(len, src, sum); bad != ippStsNoErr)
        return bad;
    active().sumComplex(floats(src), count(len), floats(sum));
    return ippStsNoErr;
}

const LibraryVersion* ippGetLibVersion() noexcept
{
    static constexpr LibraryVersion version = {1, 0, "quorel kernels"};
    return &version;
}

} // namespace quorel
