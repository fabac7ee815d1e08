// The recursive filters as the stages call them: argument rules, sizes and initialisation.
#include "core/filters.h"

#include "core/kernels/arguments.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <functional>
#include <limits>
#include <new>

namespace quorel {

using kernels::arguments;

namespace {

constexpr std::size_t alignment = 64; // bytes; storage may come less aligned and is then used from the next boundary on

std::byte* aligned(void* storage) noexcept
{
    const auto address = reinterpret_cast<std::uintptr_t>(storage);
    return static_cast<std::byte*>(storage) + (alignment - address % alignment) % alignment;
}

// Writes a size that fits 32 bits, else gives `tooLarge`.
Status writeSize(std::int64_t bytes, std::int32_t* size, Status tooLarge) noexcept
{
    if (bytes > std::numeric_limits<std::int32_t>::max())
        return tooLarge;
    *size = static_cast<std::int32_t>(bytes);
    return ippStsNoErr;
}

// --- Cascades --------------------------------------------------------------------------------------------------------

struct Section {
    double b0, b1, b2, a1, a2;
    double s1, s2; // what the past adds to the next sample and to the one after
};

struct Cascade {
    std::size_t sections;
    Section* section;
};

Status cascadeSize(std::int32_t numBq, std::int32_t* size) noexcept
{
    if (size == nullptr)
        return ippStsNullPtrErr;
    if (numBq < 1)
        return ippStsIIROrderErr;
    const auto each = static_cast<std::int64_t>(sizeof(Section));
    return writeSize(numBq * each + static_cast<std::int64_t>(alignment + sizeof(Cascade)), size, ippStsIIROrderErr);
}

template <class State, class Tap>
Status cascadeInit(State** state, const Tap* taps, std::int32_t numBq, const Tap* delayLine, void* buffer) noexcept
{
    if (state == nullptr || taps == nullptr || buffer == nullptr)
        return ippStsNullPtrErr;
    if (numBq < 1)
        return ippStsIIROrderErr;
    if (delayLine != nullptr)
        return ippStsNotSupportedModeErr;
    const auto sections = static_cast<std::size_t>(numBq);
    for (std::size_t s = 0; s < sections; ++s)
        if (taps[6 * s] == 0 || taps[6 * s + 3] == 0)
            return ippStsDivByZeroErr;

    std::byte* start = aligned(buffer);
    auto* section = reinterpret_cast<Section*>(start + sizeof(Cascade));
    for (std::size_t s = 0; s < sections; ++s) {
        const Tap* t = taps + 6 * s;
        const double a0 = t[3];
        new (section + s) Section{t[0] / a0, t[1] / a0, t[2] / a0, t[4] / a0, t[5] / a0, 0.0, 0.0};
    }
    *state = reinterpret_cast<State*>(new (start) Cascade{sections, section});
    return ippStsNoErr;
}

template <class State>
Status cascadeRun(const float* src, float* dst, std::int32_t len, State* state) noexcept
{
    if (const Status bad = arguments(len, src, dst, state); bad != ippStsNoErr)
        return bad;
    auto& cascade = *reinterpret_cast<Cascade*>(state);
    for (std::int32_t i = 0; i < len; ++i) {
        double x = static_cast<double>(src[i]);
        for (std::size_t s = 0; s < cascade.sections; ++s) {
            Section& f = cascade.section[s];
            const double y = f.b0 * x + f.s1;
            f.s1 = f.b1 * x - f.a1 * y + f.s2;
            f.s2 = f.b2 * x - f.a2 * y;
            x = y;
        }
        dst[i] = static_cast<float>(x);
    }
    return ippStsNoErr;
}

// --- Sparse filters --------------------------------------------------------------------------------------------------

struct Sparse {
    std::size_t direct, recursive;  // tap counts
    std::size_t longest1, longest2; // largest position of each group
    float* taps;                    // all taps
    std::int32_t* positions;        // all positions
    float* past1;                   // x[n-1], x[n-2] ... x[n-longest1]
    float* past2;                   // y[n-1] ... y[n-longest2]
};

bool rising(const std::int32_t* positions, std::size_t count, std::int32_t least) noexcept
{
    return positions[0] >= least && std::adjacent_find(positions, positions + count, std::greater_equal<>()) == positions + count;
}

} // namespace

Status ippsIIRGetStateSize_BiQuad_32f(std::int32_t numBq, std::int32_t* size) noexcept
{
    return cascadeSize(numBq, size);
}

Status ippsIIRGetStateSize64f_BiQuad_32f(std::int32_t numBq, std::int32_t* size) noexcept
{
    return cascadeSize(numBq, size);
}

Status ippsIIRInit_BiQuad_32f(Cascade_32f** state, const float* taps, std::int32_t numBq, const float* delayLine,
                              void* buffer) noexcept
{
    return cascadeInit(state, taps, numBq, delayLine, buffer);
}

Status ippsIIRInit64f_BiQuad_32f(Cascade64f_32f** state, const double* taps, std::int32_t numBq, const double* delayLine,
                                 void* buffer) noexcept
{
    return cascadeInit(state, taps, numBq, delayLine, buffer);
}

Status ippsIIR_32f(const float* src, float* dst, std::int32_t len, Cascade_32f* state) noexcept
{
    return cascadeRun(src, dst, len, state);
}

Status ippsIIR64f_32f(const float* src, float* dst, std::int32_t len, Cascade64f_32f* state) noexcept
{
    return cascadeRun(src, dst, len, state);
}

Status ippsIIRSparseGetStateSize_32f(std::int32_t nzLen1, std::int32_t nzLen2, std::int32_t order1, std::int32_t order2,
                                     std::int32_t* size) noexcept
{
    if (size == nullptr)
        return ippStsNullPtrErr;
    if (nzLen1 < 1 || nzLen2 < 0)
        return ippStsIIROrderErr;
    if (order1 < 0 || order2 < 0)
        return ippStsSparseErr;
    const std::int64_t words = 2 * (std::int64_t{nzLen1} + nzLen2) + order1 + order2;
    return writeSize(4 * words + static_cast<std::int64_t>(alignment + sizeof(Sparse)), size, ippStsSparseErr);
}

Status ippsIIRSparseInit_32f(Sparse_32f** state, const float* taps, const std::int32_t* positions, std::int32_t nzLen1,
                             std::int32_t nzLen2, void* buffer) noexcept
{
    if (state == nullptr || taps == nullptr || positions == nullptr || buffer == nullptr)
        return ippStsNullPtrErr;
    if (nzLen1 < 1 || nzLen2 < 1)
        return ippStsIIROrderErr;
    const auto direct = static_cast<std::size_t>(nzLen1);
    const auto recursive = static_cast<std::size_t>(nzLen2);
    if (!rising(positions, direct, 0) || !rising(positions + direct, recursive, 1))
        return ippStsSparseErr;

    const auto longest1 = static_cast<std::size_t>(positions[direct - 1]);
    const auto longest2 = static_cast<std::size_t>(positions[direct + recursive - 1]);
    std::byte* start = aligned(buffer);
    auto* tapCopy = reinterpret_cast<float*>(start + sizeof(Sparse));
    auto* positionCopy = reinterpret_cast<std::int32_t*>(tapCopy + direct + recursive);
    auto* past = reinterpret_cast<float*>(positionCopy + direct + recursive);
    std::copy_n(taps, direct + recursive, tapCopy);
    std::copy_n(positions, direct + recursive, positionCopy);
    std::fill_n(past, longest1 + longest2, 0.0F);
    *state = reinterpret_cast<Sparse_32f*>(
        new (start) Sparse{direct, recursive, longest1, longest2, tapCopy, positionCopy, past, past + longest1});
    return ippStsNoErr;
}

Status ippsIIRSparse_32f(const float* src, float* dst, std::int32_t len, Sparse_32f* state) noexcept
{
    if (const Status bad = arguments(len, src, dst, state); bad != ippStsNoErr)
        return bad;
    auto& f = *reinterpret_cast<Sparse*>(state);
    for (std::int32_t i = 0; i < len; ++i) {
        const float x = src[i];
        float y = 0.0F;
        for (std::size_t k = 0; k < f.direct; ++k)
            y += f.taps[k] * (f.positions[k] == 0 ? x : f.past1[f.positions[k] - 1]);
        for (std::size_t k = f.direct; k < f.direct + f.recursive; ++k)
            y += f.taps[k] * f.past2[f.positions[k] - 1];
        if (f.longest1 > 0) {
            std::memmove(f.past1 + 1, f.past1, (f.longest1 - 1) * sizeof(float));
            f.past1[0] = x;
        }
        std::memmove(f.past2 + 1, f.past2, (f.longest2 - 1) * sizeof(float));
        f.past2[0] = y;
        dst[i] = y;
    }
    return ippStsNoErr;
}

} // namespace quorel
