// Cascades of second-order sections, a block of samples at a time. Included once by each variant's unit, as elements.inl is.
//
// A recursion is serial: each sample needs the one before it. But the filter is linear, so the next eight outputs are a sum of
// what is known when their block begins,
//
//   y[i] = sum over j <= i of response[i-j] * x[j]     the response to the block's own inputs: a triangular matrix
//        + sum over k of fromPastX[k][i] * x[-k]       what the inputs before the block still contribute, 1 <= k <= order
//        + sum over k of fromPastY[k][i] * y[-k]       and the outputs before it
//
// and every term is a column times one sample, for all i side by side:
//
//   y[0..7]  +=  column[0..7] * x[j]
//
// The column of x[j] is the impulse response, moved down by j with zeros above it, so that one row of seven zeros and eight
// samples of response holds all eight of these columns. That takes up to twice the products of the plain recursion, but only
// those with past outputs have to wait for the block before: once in eight samples for a shuffle, a few products and a sum.
//
// The past is that of the direct form, samples of the signals themselves. So a run may end at any sample, and a block that is
// cut short only leaves its last lanes unused. All of this is in double precision: the sections' taps are multiplied out to
// filters of higher order, whose roundings grow by the closeness of their poles (core/kernels/filters.cpp keeps poles that
// crowd together apart). Lanes of later samples enter through products with zero, which is right as long as those samples are
// finite: a chunk that brings an infinity or not-a-number goes through the plain recursion instead.

namespace filters {

#ifdef __AVX__ // vectors of 256 bits also where 512 are to be had: half of the triangle's zeros are then left out
constexpr size_t lanes = 4;
constexpr size_t rows = 8; // of a column: the samples of a block
#else
constexpr size_t lanes = 2;
constexpr size_t rows = 4;
#endif
constexpr size_t parts = rows / lanes;

typedef double Lanes __attribute__((vector_size(8 * lanes)));
typedef double LanesAnywhere __attribute__((vector_size(8 * lanes), aligned(8), may_alias));

inline Lanes load(const double* from)
{
    return *reinterpret_cast<const LanesAnywhere*>(from);
}
inline void store(Lanes value, double* to)
{
    *reinterpret_cast<LanesAnywhere*>(to) = value;
}

// One lane in all lanes. The lane is a constant wherever this is inlined.
inline __attribute__((always_inline)) Lanes spread(Lanes v, size_t lane)
{
#ifdef __AVX__
    switch (lane) {
    case 0:
        return __builtin_shufflevector(v, v, 0, 0, 0, 0);
    case 1:
        return __builtin_shufflevector(v, v, 1, 1, 1, 1);
    case 2:
        return __builtin_shufflevector(v, v, 2, 2, 2, 2);
    default:
        return __builtin_shufflevector(v, v, 3, 3, 3, 3);
    }
#else
    return lane == 0 ? __builtin_shufflevector(v, v, 0, 0) : __builtin_shufflevector(v, v, 1, 1);
#endif
}

// Runs a group over whole blocks, each with `rows` inputs from x on and as many outputs from y on. Before both stand eight
// samples of their past. The loops over parts, rows and the order have constant bounds: they unroll, and the columns stay in
// registers as far as these go.
template <size_t order>
void runBlocks(const CascadeGroup& group, const double* x, double* y, size_t blocks)
{
    Lanes response[rows][parts], pastX[order][parts], pastY[order][parts], last[parts];
    for (size_t p = 0; p < parts; ++p) {
        for (size_t j = 0; j < rows; ++j)
            response[j][p] = load(group.response + CascadeGroup::block - 1 - j + p * lanes);
        for (size_t k = 0; k < order; ++k) {
            pastX[k][p] = load(group.fromPastX[k] + p * lanes);
            pastY[k][p] = load(group.fromPastY[k] + p * lanes);
        }
        last[p] = load(y - rows + p * lanes);
    }
    for (; blocks > 0; --blocks, x += rows, y += rows) {
        Lanes even[parts], odd[parts]; // two sums each, so that the additions overlap
        for (size_t p = 0; p < parts; ++p) {
            even[p] = response[0][p] * x[0];
            for (size_t j = 1; j < rows; ++j)
                if (j < (p + 1) * lanes) // what stands above the diagonal is zero
                    even[p] += response[j][p] * x[j];
            odd[p] = pastX[0][p] * *(x - 1);
            for (size_t k = 1; k < order; ++k)
                odd[p] += pastX[k][p] * *(x - 1 - k);
        }
        for (size_t k = 0; k < order; ++k) { // x[-1-k] and y[-1-k]: the newest sample first
            constexpr size_t newest = rows - 1;
            const Lanes past =
                k < rows ? spread(last[(newest - k) / lanes % parts], (newest - k) % lanes) : *(y - 1 - k) - Lanes{};
            for (size_t p = 0; p < parts; ++p)
                (k % 2 == 0 ? even[p] : odd[p]) += pastY[k][p] * past;
        }
        for (size_t p = 0; p < parts; ++p) {
            last[p] = even[p] + odd[p];
            store(last[p], y + p * lanes);
        }
    }
}

// The plain recursion, sample by sample.
void runPlain(const CascadeGroup& group, const double* x, double* y, size_t n)
{
    for (size_t i = 0; i < n; ++i, ++x, ++y) {
        double sum = group.b[0] * x[0];
        for (int k = 1; k <= group.order; ++k)
            sum += group.b[k] * x[-k] - group.a[k] * y[-k];
        y[0] = sum;
    }
}

void runGroup(const CascadeGroup& group, const double* x, double* y, size_t n, bool finite)
{
    const size_t blocks = (n + rows - 1) / rows;
    if (!finite)
        runPlain(group, x, y, n);
    else if (group.order == 2)
        runBlocks<2>(group, x, y, blocks);
    else if (group.order == 4)
        runBlocks<4>(group, x, y, blocks);
    else if (group.order == 6)
        runBlocks<6>(group, x, y, blocks);
    else
        runBlocks<8>(group, x, y, blocks);
}

bool isQuiet(const double* x, size_t n)
{
    bool all = true;
    for (size_t i = 0; i < n; ++i)
        all &= __builtin_fabs(x[i]) < static_cast<double>(quiet); // false for not-a-number
    return all;
}

void cascade(const Cascade& filter, const float* src, float* dst, size_t n)
{
    constexpr size_t past = CascadeGroup::block;
    constexpr size_t chunk = 512; // samples, a multiple of the rows
    // From x to y: a page and a half of doubles, so that no store to y looks to the processor like one to what it loads from x.
    constexpr size_t apart = 768;
    static_assert(apart >= past + chunk);
    double room[2 * apart + 8];
    double* const aligned = room + -reinterpret_cast<uintptr_t>(room) % 64 / sizeof(double); // rows within cache lines

    for (size_t count = 0; n > 0; src += count, dst += count, n -= count) {
        count = n < chunk ? n : chunk;
        double* x = aligned + past;
        double* y = x + apart;
        int peak = 0;
        for (size_t i = 0; i < count; ++i) {
            const int bits = magnitudeBits(src[i]);
            peak = bits > peak ? bits : peak;
            x[i] = static_cast<double>(src[i]);
        }
        double* const memory = filter.past[0];
        const size_t remembered = (filter.groups + 1) * past;
        if (filter.groups > 0 && peak < magnitudeBits(quiet) && isQuiet(memory, remembered)) {
            __builtin_memset(memory, 0, remembered * sizeof(double));
            __builtin_memset(dst, 0, count * sizeof(float));
            continue;
        }
        for (size_t i = count; i % rows != 0; ++i)
            x[i] = 0.0; // fills the last block: its outputs up to `count` do not depend on this
        const bool finite = peak < magnitudeBits(__builtin_inff());
        for (size_t g = 0; g < filter.groups; ++g) {
            __builtin_memcpy(x - past, filter.past[g], sizeof filter.past[g]);
            __builtin_memcpy(y - past, filter.past[g + 1], sizeof filter.past[g + 1]);
            runGroup(filter.group[g], x, y, count, finite);
            __builtin_memcpy(filter.past[g], x + count - past, sizeof filter.past[g]);
            double* const in = x;
            x = y;
            y = in;
        }
        __builtin_memcpy(filter.past[filter.groups], x + count - past, sizeof filter.past[filter.groups]);
        for (size_t i = 0; i < count; ++i)
            dst[i] = static_cast<float>(x[i]);
    }
}

} // namespace filters
