// What the filters share: vectors of at most eight floats, and what silence is. Included once by each variant's unit, as
// elements.inl is.

namespace filters {

#ifdef __AVX__
constexpr size_t floats = 8; // in a vector
#else
constexpr size_t floats = 4;
#endif
constexpr size_t quads = floats / 4;

typedef float Floats __attribute__((vector_size(4 * floats)));
typedef float FloatsAnywhere __attribute__((vector_size(4 * floats), aligned(4), may_alias));

inline Floats load(const float* from)
{
    return *reinterpret_cast<const FloatsAnywhere*>(from);
}
inline void store(Floats value, float* to)
{
    *reinterpret_cast<FloatsAnywhere*>(to) = value;
}

// The bits of a float's magnitude are ordered as the magnitudes are, infinity and then not-a-number above all.
int magnitudeBits(float x)
{
    int bits = 0;
    __builtin_memcpy(&bits, &x, sizeof bits);
    return bits & 0x7FFFFFFF;
}

int peakBits(const float* x, size_t n)
{
    int peak = 0;
    for (size_t i = 0; i < n; ++i) {
        const int bits = magnitudeBits(x[i]);
        peak = bits > peak ? bits : peak;
    }
    return peak;
}

bool isQuiet(const float* x, size_t n)
{
    return peakBits(x, n) < magnitudeBits(quiet);
}

} // namespace filters
