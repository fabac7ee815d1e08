// Twelve cascades of two sections side by side. Included once by each variant's unit, as elements.inl is.
//
// Here the lanes are channels, and every step is the plain recursion in the transposed direct form:
//
//   y = b0*x + s1;  s1 = b1*x - a1*y + s2;  s2 = b2*x - a2*y
//
// Four samples of all channels are loaded at a time and turned from rows of samples into rows of channels, and back.
// Vectors of eight also where sixteen are to be had: with sixteen the turning would cost more than the recursion saves.

namespace filters {

typedef float Quad __attribute__((vector_size(16)));
typedef float QuadAnywhere __attribute__((vector_size(16), aligned(4), may_alias));

// Four samples of a row; a vector joins as many of them as it has quads.
inline Quad loadQuad(const float* from)
{
    return *reinterpret_cast<const QuadAnywhere*>(from);
}
inline void storeQuad(Quad value, float* to)
{
    *reinterpret_cast<QuadAnywhere*>(to) = value;
}
#ifdef __AVX__
inline Floats join(const Quad (&q)[2])
{
    return __builtin_shufflevector(q[0], q[1], 0, 1, 2, 3, 4, 5, 6, 7);
}
inline void split(Floats v, Quad (&q)[2])
{
    q[0] = __builtin_shufflevector(v, v, 0, 1, 2, 3);
    q[1] = __builtin_shufflevector(v, v, 4, 5, 6, 7);
}
#define QUOREL_LANE(i, quad) (((i) < 4 ? (i) : (i) + 4) + 4 * (quad))
#define QUOREL_PICK(a, b, i, j, k, l)                                                                                            \
    __builtin_shufflevector(a, b, QUOREL_LANE(i, 0), QUOREL_LANE(j, 0), QUOREL_LANE(k, 0), QUOREL_LANE(l, 0), QUOREL_LANE(i, 1), \
                            QUOREL_LANE(j, 1), QUOREL_LANE(k, 1), QUOREL_LANE(l, 1))
#else
inline Floats join(const Quad (&q)[1])
{
    return q[0];
}
inline void split(Floats v, Quad (&q)[1])
{
    q[0] = v;
}
#define QUOREL_PICK(a, b, i, j, k, l) __builtin_shufflevector(a, b, i, j, k, l)
#endif

// In every quad: row i and column k change places. The way back is the same. QUOREL_PICK takes lanes of a quad of a, counted
// from 0 to 3, and of b, from 4 to 7.
inline void transpose(Floats (&v)[4])
{
    const Floats a = QUOREL_PICK(v[0], v[1], 0, 4, 1, 5);
    const Floats b = QUOREL_PICK(v[0], v[1], 2, 6, 3, 7);
    const Floats c = QUOREL_PICK(v[2], v[3], 0, 4, 1, 5);
    const Floats d = QUOREL_PICK(v[2], v[3], 2, 6, 3, 7);
    v[0] = QUOREL_PICK(a, c, 0, 1, 4, 5);
    v[1] = QUOREL_PICK(a, c, 2, 3, 6, 7);
    v[2] = QUOREL_PICK(b, d, 0, 1, 4, 5);
    v[3] = QUOREL_PICK(b, d, 2, 3, 6, 7);
}

#undef QUOREL_PICK
#undef QUOREL_LANE

// Both sections of as many channels as a vector has lanes.
struct BankFilter {
    struct Section {
        Floats b0, b1, b2, a1, a2, s1, s2;

        inline __attribute__((always_inline)) Floats step(Floats x)
        {
            const Floats y = b0 * x + s1;
            const Floats back1 = a1 * y, back2 = a2 * y; // first, so that these are contracted: they are the ones that wait
            s1 = (b1 * x + s2) - back1;
            s2 = b2 * x - back2;
            return y;
        }
    };

    Section first, second;
};

inline BankFilter::Section loadSection(const BankSection& section, size_t lane)
{
    return {load(section.b0 + lane), load(section.b1 + lane), load(section.b2 + lane), load(section.a1 + lane),
            load(section.a2 + lane), load(section.s1 + lane), load(section.s2 + lane)};
}
// Lanes that have become silence are cleared.
inline Floats settled(Floats v)
{
    return v < quiet && v > -quiet ? Floats{} : v;
}
inline void storeState(const BankFilter::Section& section, BankSection& to, size_t lane)
{
    store(settled(section.s1), to.s1 + lane);
    store(settled(section.s2), to.s2 + lane);
}

// Runs n samples of every channel from `at` on.
void runBank(CascadeBank& bank, const float* const* in, float* const* out, size_t at, size_t n)
{
    constexpr size_t channels = CascadeBank::channels, parts = (channels + floats - 1) / floats;
    BankFilter filter[parts];
    for (size_t p = 0; p < parts; ++p)
        filter[p] = {loadSection(bank.section[0], p * floats), loadSection(bank.section[1], p * floats)};

    // Four samples of every channel, the first `count` of which are run.
    const auto four = [&](const float* const* x, float* const* y, size_t offset, size_t count) __attribute__((always_inline))
    {
        Floats v[parts][4];
        for (size_t p = 0; p < parts; ++p) {
            for (size_t i = 0; i < 4; ++i) {
                Quad row[quads] = {};
                for (size_t q = 0; q < quads; ++q)
                    if (const size_t c = p * floats + 4 * q + i; c < channels)
                        row[q] = loadQuad(x[c] + offset);
                v[p][i] = join(row);
            }
            transpose(v[p]);
        }
        for (size_t i = 0; i < count; ++i)
            for (size_t p = 0; p < parts; ++p)
                v[p][i] = filter[p].second.step(filter[p].first.step(v[p][i]));
        for (size_t p = 0; p < parts; ++p) {
            transpose(v[p]);
            for (size_t i = 0; i < 4; ++i) {
                Quad row[quads];
                split(v[p][i], row);
                for (size_t q = 0; q < quads; ++q)
                    if (const size_t c = p * floats + 4 * q + i; c < channels)
                        storeQuad(row[q], y[c] + offset);
            }
        }
    };
    const size_t end = at + n;
    for (; at + 4 <= end; at += 4)
        four(in, out, at, 4);
    if (const size_t rest = end - at; rest > 0) {
        float copy[channels][4] = {};
        float* rows[channels];
        for (size_t c = 0; c < channels; ++c) {
            rows[c] = copy[c];
            for (size_t i = 0; i < rest; ++i)
                copy[c][i] = in[c][at + i];
        }
        four(rows, rows, 0, rest);
        for (size_t c = 0; c < channels; ++c)
            for (size_t i = 0; i < rest; ++i)
                out[c][at + i] = copy[c][i];
    }
    for (size_t p = 0; p < parts; ++p) {
        storeState(filter[p].first, bank.section[0], p * floats);
        storeState(filter[p].second, bank.section[1], p * floats);
    }
}

// Whether all that the bank remembers and all of the samples are silence. What it remembers is looked at first: as long as
// that sounds, the samples need not be.
bool isQuiet(const CascadeBank& bank, const float* const* in, size_t at, size_t n)
{
    bool all = true;
    for (const BankSection& section : bank.section)
        all = all && isQuiet(section.s1, CascadeBank::lanes) && isQuiet(section.s2, CascadeBank::lanes);
    for (size_t c = 0; c < CascadeBank::channels && all; ++c)
        all = isQuiet(in[c] + at, n);
    return all;
}

void cascadeBank(CascadeBank& bank, const float* const* in, float* const* out, size_t n)
{
    constexpr size_t stretch = 128; // samples between two looks for silence
    for (size_t at = 0, count = 0; at < n; at += count) {
        count = n - at < stretch ? n - at : stretch;
        if (!isQuiet(bank, in, at, count)) {
            runBank(bank, in, out, at, count);
            continue;
        }
        for (BankSection& section : bank.section) {
            __builtin_memset(section.s1, 0, sizeof section.s1);
            __builtin_memset(section.s2, 0, sizeof section.s2);
        }
        for (size_t c = 0; c < CascadeBank::channels; ++c)
            __builtin_memset(out[c] + at, 0, count * sizeof(float));
    }
}

} // namespace filters
