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

namespace quorel {

using kernels::active;
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

// What the two kinds of transform differ in. R is the length of the first of the three passes (transforms_body.h).
template <class Spec>
struct Kind;

template <>
struct Kind<FFTSpec_R_32f> {
    static constexpr std::int32_t highestOrder = 29;
    static constexpr std::size_t firstLength(std::int32_t order) { return order == 9 ? 4 : 8; } // half as many complex values
    static constexpr std::size_t unpackFactors(std::int32_t order) { return order == 9 ? 128 : 256; } // from and to real samples
};

template <>
struct Kind<FFTSpec_C_32fc> {
    static constexpr std::int32_t highestOrder = 28;
    static constexpr std::size_t firstLength(std::int32_t order) { return order == 9 ? 8 : 16; }
    static constexpr std::size_t unpackFactors(std::int32_t /*order*/) { return 0; }
};

// 512 and 1024, in complex values or real samples. Each kind works on twice as many floats.
constexpr bool hasKernels(std::int32_t order)
{
    return order == 9 || order == 10;
}
constexpr std::size_t workLength(std::int32_t order)
{
    return std::size_t{2} << order;
}

// A table's factor takes four floats.
constexpr std::size_t tableBytes(std::size_t factors)
{
    return factors * 4 * sizeof(float);
}
constexpr std::size_t firstFactors(std::size_t firstLength)
{
    return 64 * (firstLength - 1);
}
constexpr std::size_t middleFactors = std::size_t{8} * 7;

// Writes the entries of tables one behind the other: two vectors each, (re, re) and (-im, im) of every factor.
class EntryWriter {
public:
    EntryWriter(float* next, std::size_t valuesPerVector) : next(next), width(valuesPerVector) {}

    const float* position() const { return next; }

    // factor(i) for each place of a vector: its magnitude and its angle in turns.
    template <class Factor>
    void entry(Factor factor)
    {
        for (std::size_t i = 0; i < width; ++i) {
            const auto [magnitude, turns] = factor(static_cast<double>(i));
            const auto w = std::polar(magnitude, 2 * std::numbers::pi * turns);
            next[2 * i] = next[2 * i + 1] = static_cast<float>(w.real());
            next[2 * (width + i)] = static_cast<float>(-w.imag());
            next[2 * (width + i) + 1] = static_cast<float>(w.imag());
        }
        next += 4 * width;
    }

private:
    float* next;
    std::size_t width; // complex values in a vector
};

struct Factor {
    double magnitude;
    double turns;
};

TransformTables buildTables(float* storage, std::size_t valuesPerVector, std::size_t firstLength, std::size_t unpackFactors,
                            double forwardFactor, double inverseFactor)
{
    TransformTables tables{};
    EntryWriter write(storage, valuesPerVector);
    const double n = 64 * static_cast<double>(firstLength);
    const double samples = 2 * n;

    tables.first = write.position();
    for (std::size_t i = 0; i < 64; i += valuesPerVector)
        for (std::size_t k = 1; k < firstLength; ++k)
            write.entry([&](double place) { return Factor{1, -(static_cast<double>(i) + place) * static_cast<double>(k) / n}; });
    tables.middle = write.position();
    for (std::size_t i = 0; i < 8; i += valuesPerVector)
        for (std::size_t k = 1; k < 8; ++k)
            write.entry([&](double place) { return Factor{1, -(static_cast<double>(i) + place) * static_cast<double>(k) / 64}; });

    tables.forward = write.position();
    for (std::size_t k = 1; k <= unpackFactors; k += valuesPerVector)
        write.entry([&](double place) { return Factor{forwardFactor / 2, -0.25 - (static_cast<double>(k) + place) / samples}; });
    tables.inverse = write.position();
    for (std::size_t k = 1; k <= unpackFactors; k += valuesPerVector)
        write.entry([&](double place) { return Factor{inverseFactor, 0.25 + (static_cast<double>(k) + place) / samples}; });
    tables.forwardHalf = static_cast<float>(forwardFactor / 2);
    tables.inverseHalf = static_cast<float>(inverseFactor);
    return tables;
}

Status checkChoice(std::int32_t highestOrder, std::int32_t order, std::int32_t flag)
{
    if (order < 0 || order > highestOrder)
        return ippStsFftOrderErr;
    if (flag != fftDivideForward && flag != fftDivideInverse && flag != fftDivideBothByRoot && flag != fftDivideNeither)
        return ippStsFftFlagErr;
    return ippStsNoErr;
}

template <class Spec>
Status getSize(std::int32_t order, std::int32_t flag, std::int32_t* specSize, std::int32_t* initSize,
               std::int32_t* workSize) noexcept
{
    using K = Kind<Spec>;
    if (specSize == nullptr || initSize == nullptr || workSize == nullptr)
        return ippStsNullPtrErr;
    if (const Status bad = checkChoice(K::highestOrder, order, flag); bad != ippStsNoErr)
        return bad;
    const bool kernels = hasKernels(order);
    const std::size_t tables = kernels
                                   ? tableBytes(firstFactors(K::firstLength(order)) + middleFactors + 2 * K::unpackFactors(order))
                                   : PlainTransform::tableBytes(order);
    *specSize = static_cast<std::int32_t>(cacheLine + wholeLines(sizeof(Spec)) + tables);
    *initSize = 0;
    *workSize = kernels ? static_cast<std::int32_t>(cacheLine + workLength(order) * sizeof(float)) : 0;
    return ippStsNoErr;
}

template <class Spec>
Status init(Spec** spec, std::int32_t order, std::int32_t flag, void* storage) noexcept
{
    using K = Kind<Spec>;
    if (spec == nullptr || storage == nullptr)
        return ippStsNullPtrErr;
    if (const Status bad = checkChoice(K::highestOrder, order, flag); bad != ippStsNoErr)
        return bad;

    const double length = std::ldexp(1.0, order);
    const double divided = flag == fftDivideBothByRoot ? 1 / std::sqrt(length) : 1 / length;
    const double forward = flag == fftDivideForward || flag == fftDivideBothByRoot ? divided : 1.0;
    const double inverse = flag == fftDivideInverse || flag == fftDivideBothByRoot ? divided : 1.0;

    std::byte* const start = firstLine(storage);
    std::byte* const tables = start + wholeLines(sizeof(Spec));
    *spec = new (start) Spec{{&active(), order, static_cast<float>(forward), static_cast<float>(inverse), std::nullopt, {}}};
    if (hasKernels(order))
        (*spec)->tables = buildTables(reinterpret_cast<float*>(tables), active().valuesPerVector, K::firstLength(order),
                                      K::unpackFactors(order), forward, inverse);
    else
        (*spec)->plain.emplace(order, reinterpret_cast<double*>(tables));
    return ippStsNoErr;
}

// A transform with kernels of its own needs its work storage, the plain one none.
Status checkRun(const void* src, const void* dst, const Transform* spec, const void* work)
{
    if (src == nullptr || dst == nullptr || spec == nullptr)
        return ippStsNullPtrErr;
    return work == nullptr && !spec->plain ? ippStsNullPtrErr : ippStsNoErr;
}

float* workFloats(void* work)
{
    return reinterpret_cast<float*>(firstLine(work));
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
    if (const Status bad = checkRun(src, dst, spec, work); bad != ippStsNoErr)
        return bad;
    if (spec->plain) {
        spec->plain->realForward(src, dst, spec->forwardFactor);
        return ippStsNoErr;
    }
    const auto forward = spec->order == 9 ? spec->variant->realForward512 : spec->variant->realForward1024;
    forward(spec->tables, src, dst, workFloats(work));
    return ippStsNoErr;
}

Status ippsFFTInv_PackToR_32f(const float* src, float* dst, const FFTSpec_R_32f* spec, void* work) noexcept
{
    if (const Status bad = checkRun(src, dst, spec, work); bad != ippStsNoErr)
        return bad;
    if (spec->plain) {
        spec->plain->realInverse(src, dst, spec->inverseFactor);
        return ippStsNoErr;
    }
    const auto inverse = spec->order == 9 ? spec->variant->realInverse512 : spec->variant->realInverse1024;
    inverse(spec->tables, src, dst, workFloats(work));
    return ippStsNoErr;
}

Status ippsFFTInv_CToC_32fc(const Complex* src, Complex* dst, const FFTSpec_C_32fc* spec, void* work) noexcept
{
    if (const Status bad = checkRun(src, dst, spec, work); bad != ippStsNoErr)
        return bad;
    const auto* from = reinterpret_cast<const float*>(src);
    auto* to = reinterpret_cast<float*>(dst);
    if (spec->plain) {
        spec->plain->complexInverse(from, to, spec->inverseFactor);
        return ippStsNoErr;
    }
    const auto inverse = spec->order == 9 ? spec->variant->complexInverse512 : spec->variant->complexInverse1024;
    inverse(spec->tables, from, to, workFloats(work));
    if (spec->inverseFactor != 1.0F)
        spec->variant->mulC(to, spec->inverseFactor, to, std::size_t{2} << spec->order);
    return ippStsNoErr;
}

} // namespace quorel
