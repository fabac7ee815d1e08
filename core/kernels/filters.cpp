// SPDX-License-Identifier: MIT
// The sizes and the initialisation of the recursive filters, and their runs.
#include "core/kernels/filters.h"

#include "core/alignment.h"
#include "core/kernels/arguments.h"
#include "core/kernels/section.h"

#include <functional>
#include <limits>
#include <new>

namespace quorel {

using kernels::Cascade;
using kernels::CascadeGroup;
using kernels::KernelTable;
using kernels::Length;
using kernels::magnitude;
using kernels::reach;
using kernels::run;
using kernels::Section;
using kernels::sectionOf;
using kernels::Sparse;

namespace {

// Writes a size that fits 32 bits, else gives `tooLarge`.
Status writeSize(std::size_t bytes, std::int32_t* size, Status tooLarge) noexcept
{
    if (bytes > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max()))
        return tooLarge;
    *size = static_cast<std::int32_t>(bytes);
    return ippStsNoErr;
}

// --- Cascades --------------------------------------------------------------------------------------------------------

// The state's parts in its storage: Cascade, then `sections` sections (scratch of the initialisation), groups and rows of past.
constexpr std::size_t groupsAt = wholeLines(sizeof(Cascade));

std::size_t pastAt(std::size_t sections) noexcept
{
    return groupsAt + sections * sizeof(CascadeGroup);
}
std::size_t sectionsAt(std::size_t sections) noexcept
{
    return pastAt(sections) + (sections + 1) * sizeof(Cascade::past[0]);
}
std::size_t cascadeBytes(std::size_t sections) noexcept
{
    return sectionsAt(sections) + sections * sizeof(Section);
}

// poly *= the section's polynomial; poly has `order` + 1 values before, two more after.
void multiply(double* poly, int order, const double* by) noexcept
{
    for (int k = order + 2; k >= 0; --k)
        poly[k] = (k <= order ? poly[k] * by[0] : 0.0) + (k >= 1 && k - 1 <= order ? poly[k - 1] * by[1] : 0.0) +
                  (k >= 2 ? poly[k - 2] * by[2] : 0.0);
}

// Fills in the columns from b and a. With h the response of 1/A alone, what x[-k] adds to y[i] is
//   sum over j >= k of b[j] * h[i - (j-k)],
// which is b[k] * h[i] and what x[-k-1] added to y[i-1]; with k = 0 it is the response to x[0]. In the same way for -a and y.
void fillColumns(CascadeGroup& group) noexcept
{
    constexpr int block = CascadeGroup::block;
    double h[block];
    for (int i = 0; i < block; ++i) {
        h[i] = i == 0 ? 1.0 : 0.0;
        for (int k = 1; k <= std::min(i, group.order); ++k)
            h[i] -= group.a[k] * h[i - k];
    }
    double x[block] = {}, y[block] = {};
    for (int k = group.order; k >= 0; --k) {
        for (int i = block - 1; i >= 0; --i) {
            x[i] = group.b[k] * h[i] + (i > 0 ? x[i - 1] : 0.0);
            y[i] = -group.a[k] * h[i] + (i > 0 ? y[i - 1] : 0.0);
        }
        std::copy_n(x, block, k > 0 ? group.fromPastX[k - 1] : group.response + block - 1);
        if (k > 0)
            std::copy_n(y, block, group.fromPastY[k - 1]);
    }
    std::fill_n(group.response, block - 1, 0.0);
    group.response[2 * block - 1] = 0.0;
}

// The group of the i-th section of rising `weakest`: back and forth over the groups, so that poles that lie close together on
// the unit circle come into different ones.
std::size_t groupOf(std::size_t i, std::size_t groups) noexcept
{
    const std::size_t turn = i % (2 * groups);
    return turn < groups ? turn : 2 * groups - 1 - turn;
}

void build(CascadeGroup* group, std::size_t groups, const Section* section, std::size_t sections) noexcept
{
    for (std::size_t g = 0; g < groups; ++g) {
        new (group + g) CascadeGroup;
        group[g].order = 0;
        group[g].b[0] = group[g].a[0] = 1.0;
    }
    for (std::size_t i = 0; i < sections; ++i) {
        CascadeGroup& joined = group[groupOf(i, groups)];
        multiply(joined.b, joined.order, section[i].b);
        multiply(joined.a, joined.order, section[i].a);
        joined.order += 2;
    }
    for (std::size_t g = 0; g < groups; ++g)
        fillColumns(group[g]);
}

// Whether roundings of 2^-53 may grow beyond 2^-20 in a group: as a rule they then stay 20 dB below. A rounding grows at once by
// the largest sum of factors with which past outputs enter a block, and then by the recursion, which lifts it most where one of
// the denominators is least.
bool growTooFar(const CascadeGroup* group, std::size_t groups, const Section* section, std::size_t sections) noexcept
{
    for (std::size_t g = 0; g < groups; ++g) {
        double entering = 1.0;
        for (int i = 0; i < CascadeGroup::block; ++i) {
            double sum = 0.0;
            for (int k = 0; k < group[g].order; ++k)
                sum += std::abs(group[g].fromPastY[k][i]);
            entering = std::max(entering, sum);
        }
        for (std::size_t at = 0; at < sections; ++at) {
            double denominator = 1.0;
            for (std::size_t i = 0; i < sections; ++i)
                if (groupOf(i, groups) == g)
                    denominator *= magnitude(section[i].a, section[at].critical);
            if (groupOf(at, groups) == g && !(entering <= 0x1p33 * denominator))
                return true;
        }
    }
    return false;
}

// Whether the sections together lift and lower by more than the 24 bits of a float, as an equaliser's do far beyond its scale. A
// block's roundings, each small beside what is loudest in it, would then be heard where another group lifts what is soft.
bool liftTooFar(const Section* section, std::size_t sections) noexcept
{
    double sum = 0.0;
    for (std::size_t i = 0; i < sections; ++i)
        sum += reach(section[i]);
    return sum > 24.0;
}

Status cascadeSize(std::int32_t numBq, std::int32_t* size) noexcept
{
    if (size == nullptr)
        return ippStsNullPtrErr;
    if (numBq < 1)
        return ippStsIIROrderErr;
    return writeSize(cacheLine + cascadeBytes(static_cast<std::size_t>(numBq)), size, ippStsIIROrderErr);
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
    const auto given = static_cast<std::size_t>(numBq);
    for (std::size_t s = 0; s < given; ++s)
        if (taps[6 * s] == 0 || taps[6 * s + 3] == 0)
            return ippStsDivByZeroErr;

    std::byte* start = firstLine(buffer);
    auto* section = reinterpret_cast<Section*>(start + sectionsAt(given));
    std::size_t sections = 0;
    for (std::size_t s = 0; s < given; ++s) {
        const Tap* t = taps + 6 * s;
        if (std::equal(t, t + 3, t + 3))
            continue; // numerator and denominator cancel: such a section gives what it gets
        new (section + sections++) Section(sectionOf(t));
    }
    std::sort(section, section + sections, [](const Section& a, const Section& b) { return a.weakest < b.weakest; });

    auto* group = reinterpret_cast<CascadeGroup*>(start + groupsAt);
    constexpr std::size_t most = CascadeGroup::maxOrder / 2; // sections in a group
    std::size_t groups = (sections + most - 1) / most;
    const bool plain = liftTooFar(section, sections);
    if (plain)
        groups = sections;
    build(group, groups, section, sections);
    while (!plain && groups < sections && growTooFar(group, groups, section, sections))
        build(group, groups = std::min(sections, groups + (groups + 3) / 4), section, sections);

    auto* past = reinterpret_cast<double(*)[CascadeGroup::block]>(start + pastAt(given));
    std::fill_n(past[0], (groups + 1) * CascadeGroup::block, 0.0);
    *state = reinterpret_cast<State*>(new (start) Cascade{plain, groups, group, past});
    return ippStsNoErr;
}

template <class State>
Status cascadeRun(const float* src, float* dst, std::int32_t len, State* state) noexcept
{
    return run<&KernelTable::cascade>(reinterpret_cast<const Cascade*>(state), src, dst, Length{len});
}

// --- Sparse filters --------------------------------------------------------------------------------------------------

// Samples that a sparse filter works on at a time: never fewer than its history, so that moving that costs little.
std::size_t sparseChunk(std::size_t longest) noexcept
{
    return std::max<std::size_t>(longest + 16, 128);
}

std::size_t sparseBytes(std::size_t taps, std::size_t longest) noexcept
{
    return wholeLines(sizeof(Sparse)) + wholeLines((longest + sparseChunk(longest)) * sizeof(float)) +
           taps * (sizeof(float) + sizeof(std::int32_t));
}

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
    const auto taps = static_cast<std::size_t>(nzLen1) + static_cast<std::size_t>(nzLen2);
    return writeSize(cacheLine + sparseBytes(taps, static_cast<std::size_t>(std::max(order1, order2))), size, ippStsSparseErr);
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

    const std::size_t count = direct + recursive;
    const auto longest = static_cast<std::size_t>(std::max(positions[direct - 1], positions[count - 1]));
    const std::size_t chunk = sparseChunk(longest);
    std::byte* start = firstLine(buffer);
    auto* line = reinterpret_cast<float*>(start + wholeLines(sizeof(Sparse)));
    auto* tapCopy = reinterpret_cast<float*>(start + wholeLines(sizeof(Sparse)) + wholeLines((longest + chunk) * sizeof(float)));
    auto* positionCopy = reinterpret_cast<std::int32_t*>(tapCopy + count);
    std::fill_n(line, longest + chunk, 0.0F);
    std::copy_n(taps, count, tapCopy);
    std::copy_n(positions, count, positionCopy);
    *state = reinterpret_cast<Sparse_32f*>(new (start) Sparse{direct, recursive, tapCopy, positionCopy, longest, chunk, line});
    return ippStsNoErr;
}

Status ippsIIRSparse_32f(const float* src, float* dst, std::int32_t len, Sparse_32f* state) noexcept
{
    return run<&KernelTable::sparse>(reinterpret_cast<const Sparse*>(state), src, dst, Length{len});
}

} // namespace quorel
