// SPDX-License-Identifier: MIT
// The transforms' argument rules, sizes and tables, and the choice between the kernels of the lengths in use and the plain
// transform of any length.
#include "core/kernels/transforms.h"

#include "core/alignment.h"
#include "core/kernels/arguments.h"
#include "core/kernels/plain_transform.h"

#include <cmath>
#include <complex>
#include <new>
#include <numbers>
#include <optional>
#include <type_traits>
#include <utility>

namespace quorel {

using kernels::active;
using kernels::bare;
using kernels::KernelTable;
using kernels::Length;
using kernels::PlainTransform;
using kernels::run;
using kernels::TransformTables;

namespace {

// A spec stands at the first 64-byte boundary of its storage, its tables behind it. It remembers the variant that was in use
// when it was initialised: the layout of the tables is that variant's. The byte counts depend on no variant.
struct Transform {
    const KernelTable* variant;
    std::int32_t order;
    float forwardFactor;
    float inverseFactor;
    std::optional<PlainTransform> plain; // of a length that has no kernels of its own
    TransformTables tables;              // of one that has
};

} // namespace

struct FFTSpec_R_32f : Transform {};
struct FFTSpec_C_32fc : Transform {};

namespace {

template <class Spec>
constexpr bool ofReals = std::is_same_v<Spec, FFTSpec_R_32f>;

// 512 and 1024, in complex values or real samples. Each kind works on twice as many floats.
constexpr bool hasKernels(std::int32_t order)
{
    return order == 9 || order == 10;
}

// What the tables of these lengths hold, in factors of four floats each. The three passes (transforms_body.h) run over as many
// complex values, or half as many real samples, as blocks of R = `firstLength` by 8 by 8.
struct TableSizes {
    std::size_t firstLength, first, middle, unpack;

    constexpr TableSizes(std::int32_t order, bool real)
        : firstLength((std::size_t{1} << order) / (real ? 128 : 64)),
          first(64 * (firstLength - 1)),
          middle(8 * 7),
          unpack(real ? std::size_t{1} << (order - 2) : 0)
    {
    }
    constexpr std::size_t bytes() const { return (first + middle + 2 * unpack) * 4 * sizeof(float); }
};

// Writes the factors of `count` places from `from` on, and gives where the next ones go: a vector of places at a time, for each
// from k = 1 to `ks` an entry of two vectors, (re, re) and (-im, im). factor(place, k) is a pair: magnitude, and angle in turns.
template <class Factor>
float* writeFactors(float* to, std::size_t width, std::size_t from, std::size_t count, std::size_t ks, Factor factor)
{
    for (std::size_t start = from; start < from + count; start += width)
        for (std::size_t k = 1; k <= ks; ++k, to += 4 * width)
            for (std::size_t i = 0; i < width; ++i) {
                const auto [magnitude, turns] = factor(static_cast<double>(start + i), static_cast<double>(k));
                const auto w = std::polar(magnitude, 2 * std::numbers::pi * turns);
                to[2 * i] = to[2 * i + 1] = static_cast<float>(w.real());
                to[2 * (width + i)] = static_cast<float>(-w.imag());
                to[2 * (width + i) + 1] = static_cast<float>(w.imag());
            }
    return to;
}

TransformTables buildTables(float* storage, std::size_t width, const TableSizes& sizes, double forwardFactor,
                            double inverseFactor)
{
    using Polar = std::pair<double, double>;
    const double n = 64 * static_cast<double>(sizes.firstLength);
    const auto first = [n](double i, double k) { return Polar(1, -i * k / n); };
    const auto middle = [](double i, double k) { return Polar(1, -i * k / 64); };
    const auto forward = [=](double k, double) { return Polar(forwardFactor / 2, -0.25 - k / (2 * n)); };
    const auto inverse = [=](double k, double) { return Polar(inverseFactor, 0.25 + k / (2 * n)); };
    float* const middleAt = writeFactors(storage, width, 0, 64, sizes.firstLength - 1, first);
    float* const forwardAt = writeFactors(middleAt, width, 0, 8, 7, middle);
    float* const inverseAt = writeFactors(forwardAt, width, 1, sizes.unpack, 1, forward);
    writeFactors(inverseAt, width, 1, sizes.unpack, 1, inverse);
    return {storage, middleAt, forwardAt, inverseAt, static_cast<float>(forwardFactor / 2), static_cast<float>(inverseFactor)};
}

template <class Spec>
Status checkChoice(std::int32_t order, std::int32_t flag)
{
    if (order < 0 || order > (ofReals<Spec> ? 29 : 28))
        return ippStsFftOrderErr;
    if (flag != fftDivideForward && flag != fftDivideInverse && flag != fftDivideBothByRoot && flag != fftDivideNeither)
        return ippStsFftFlagErr;
    return ippStsNoErr;
}

template <class Spec>
Status getSize(std::int32_t order, std::int32_t flag, std::int32_t* specSize, std::int32_t* initSize,
               std::int32_t* workSize) noexcept
{
    if (specSize == nullptr || initSize == nullptr || workSize == nullptr)
        return ippStsNullPtrErr;
    if (const Status bad = checkChoice<Spec>(order, flag); bad != ippStsNoErr)
        return bad;
    const bool kernels = hasKernels(order);
    const std::size_t tables = kernels ? TableSizes(order, ofReals<Spec>).bytes() : PlainTransform::tableBytes(order);
    const std::size_t work = kernels ? cacheLine + (std::size_t{2} << order) * sizeof(float) : 0;
    *specSize = static_cast<std::int32_t>(cacheLine + wholeLines(sizeof(Spec)) + tables);
    *initSize = 0;
    *workSize = static_cast<std::int32_t>(work);
    return ippStsNoErr;
}

template <class Spec>
Status init(Spec** spec, std::int32_t order, std::int32_t flag, void* storage) noexcept
{
    if (spec == nullptr || storage == nullptr)
        return ippStsNullPtrErr;
    if (const Status bad = checkChoice<Spec>(order, flag); bad != ippStsNoErr)
        return bad;

    const double length = std::ldexp(1.0, order);
    const double divided = flag == fftDivideBothByRoot ? 1 / std::sqrt(length) : 1 / length;
    const double forward = flag == fftDivideForward || flag == fftDivideBothByRoot ? divided : 1.0;
    const double inverse = flag == fftDivideInverse || flag == fftDivideBothByRoot ? divided : 1.0;

    std::byte* const start = firstLine(storage);
    std::byte* const tables = start + wholeLines(sizeof(Spec));
    *spec = new (start) Spec{{&active(), order, static_cast<float>(forward), static_cast<float>(inverse), std::nullopt, {}}};
    if (hasKernels(order))
        (*spec)->tables = buildTables(reinterpret_cast<float*>(tables), active().valuesPerVector,
                                      TableSizes(order, ofReals<Spec>), forward, inverse);
    else
        (*spec)->plain.emplace(order, reinterpret_cast<double*>(tables));
    return ippStsNoErr;
}

using PlainRun = void (PlainTransform::*)(const float*, float*, float) const noexcept;
using KernelRun = void (*KernelTable::*)(const TransformTables&, const float*, float*, float*);

// Runs the plain transform, or the kernel of 512 or 1024, which needs its work storage.
Status runTransform(const float* src, float* dst, const Transform* spec, void* work, float Transform::*factor, PlainRun plain,
                    KernelRun of512, KernelRun of1024) noexcept
{
    if (src == nullptr || dst == nullptr || spec == nullptr || (work == nullptr && !spec->plain))
        return ippStsNullPtrErr;
    if (spec->plain)
        ((*spec->plain).*plain)(src, dst, spec->*factor);
    else
        (spec->variant->*(spec->order == 9 ? of512 : of1024))(spec->tables, src, dst, reinterpret_cast<float*>(firstLine(work)));
    return ippStsNoErr;
}

} // namespace

Status ippsMulPack_32f(const float* a, const float* b, float* dst, std::int32_t len) noexcept
{
    return run<&KernelTable::mulPack>(a, b, dst, Length{len});
}

Status ippsFFTGetSize_R_32f(std::int32_t order, std::int32_t flag, std::int32_t /*hint*/, std::int32_t* specSize,
                            std::int32_t* initSize, std::int32_t* workSize) noexcept
{
    return getSize<FFTSpec_R_32f>(order, flag, specSize, initSize, workSize);
}

Status ippsFFTGetSize_C_32fc(std::int32_t order, std::int32_t flag, std::int32_t /*hint*/, std::int32_t* specSize,
                             std::int32_t* initSize, std::int32_t* workSize) noexcept
{
    return getSize<FFTSpec_C_32fc>(order, flag, specSize, initSize, workSize);
}

Status ippsFFTInit_R_32f(FFTSpec_R_32f** spec, std::int32_t order, std::int32_t flag, std::int32_t /*hint*/, void* specStorage,
                         void* /*initStorage*/) noexcept
{
    return init(spec, order, flag, specStorage);
}

Status ippsFFTInit_C_32fc(FFTSpec_C_32fc** spec, std::int32_t order, std::int32_t flag, std::int32_t /*hint*/, void* specStorage,
                          void* /*initStorage*/) noexcept
{
    return init(spec, order, flag, specStorage);
}

Status ippsFFTFwd_RToPack_32f(const float* src, float* dst, const FFTSpec_R_32f* spec, void* work) noexcept
{
    return runTransform(src, dst, spec, work, &Transform::forwardFactor, &PlainTransform::realForward,
                        &KernelTable::realForward512, &KernelTable::realForward1024);
}

Status ippsFFTInv_PackToR_32f(const float* src, float* dst, const FFTSpec_R_32f* spec, void* work) noexcept
{
    return runTransform(src, dst, spec, work, &Transform::inverseFactor, &PlainTransform::realInverse,
                        &KernelTable::realInverse512, &KernelTable::realInverse1024);
}

Status ippsFFTInv_CToC_32fc(const Complex* src, Complex* dst, const FFTSpec_C_32fc* spec, void* work) noexcept
{
    const Status bad = runTransform(bare(src), bare(dst), spec, work, &Transform::inverseFactor, &PlainTransform::complexInverse,
                                    &KernelTable::complexInverse512, &KernelTable::complexInverse1024);
    // Complex kernels scale nothing.
    if (bad == ippStsNoErr && !spec->plain && spec->inverseFactor != 1.0F)
        spec->variant->mulC(bare(dst), spec->inverseFactor, bare(dst), std::size_t{2} << spec->order);
    return bad;
}

} // namespace quorel
