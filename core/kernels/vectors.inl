// Vectors of floats of the variant's width, as the compiler's vector extension offers them on every processor. Included once
// by each variant's unit, as elements.inl is.

namespace vectors {

#if defined(__AVX512F__)
#define QUOREL_LANES 16
#elif defined(__AVX__)
#define QUOREL_LANES 8
#else
#define QUOREL_LANES 4
#endif
#define QUOREL_INLINE inline __attribute__((always_inline))

constexpr size_t lanes = QUOREL_LANES; // floats in a vector

typedef float Quad __attribute__((vector_size(16)));
typedef float V __attribute__((vector_size(4 * QUOREL_LANES)));
typedef int VInt __attribute__((vector_size(4 * QUOREL_LANES)));

// Addresses need no alignment.
QUOREL_INLINE V load(const float* p)
{
    typedef float Anywhere __attribute__((vector_size(4 * QUOREL_LANES), aligned(4), may_alias));
    return *reinterpret_cast<const Anywhere*>(p);
}

QUOREL_INLINE void store(float* p, V v)
{
    typedef float Anywhere __attribute__((vector_size(4 * QUOREL_LANES), aligned(4), may_alias));
    *reinterpret_cast<Anywhere*>(p) = v;
}

// The vector, held in a register: the compiler may otherwise load a value anew for each use, and loads are what the kernels
// wait for.
QUOREL_INLINE V kept(V v)
{
#if defined(__AVX512F__)
    asm("" : "+v"(v));
#elif defined(__x86_64__)
    asm("" : "+x"(v));
#endif
    return v;
}

QUOREL_INLINE Quad loadQuad(const float* p)
{
    typedef float Anywhere __attribute__((vector_size(16), aligned(4), may_alias));
    return *reinterpret_cast<const Anywhere*>(p);
}

// One quad in every quad of the vector.
QUOREL_INLINE V repeated(Quad q)
{
#if QUOREL_LANES == 16
    return __builtin_shufflevector(q, q, 0, 1, 2, 3, 0, 1, 2, 3, 0, 1, 2, 3, 0, 1, 2, 3);
#elif QUOREL_LANES == 8
    return __builtin_shufflevector(q, q, 0, 1, 2, 3, 0, 1, 2, 3);
#else
    return q;
#endif
}

// The same choice in each quad: places 0 to 3 are those of `x`, 4 to 7 those of `y`.
template <int A, int B, int C, int D>
QUOREL_INLINE V inQuads(V x, V y)
{
#define QUOREL_PLACE(place, quad) ((place) < 4 ? (place) + 4 * (quad) : (place)-4 + 4 * (quad) + QUOREL_LANES)
#define QUOREL_PLACES(quad) QUOREL_PLACE(A, quad), QUOREL_PLACE(B, quad), QUOREL_PLACE(C, quad), QUOREL_PLACE(D, quad)
#if QUOREL_LANES == 16
    return __builtin_shufflevector(x, y, QUOREL_PLACES(0), QUOREL_PLACES(1), QUOREL_PLACES(2), QUOREL_PLACES(3));
#elif QUOREL_LANES == 8
    return __builtin_shufflevector(x, y, QUOREL_PLACES(0), QUOREL_PLACES(1));
#else
    return __builtin_shufflevector(x, y, QUOREL_PLACES(0));
#endif
#undef QUOREL_PLACES
#undef QUOREL_PLACE
}

#if QUOREL_LANES == 16
// Whole quads: 0 to 3 are those of `x`, 4 to 7 those of `y`.
template <int A, int B, int C, int D>
QUOREL_INLINE V quadsOf(V x, V y)
{
    return __builtin_shufflevector(x, y, 4 * A, 4 * A + 1, 4 * A + 2, 4 * A + 3, 4 * B, 4 * B + 1, 4 * B + 2, 4 * B + 3, 4 * C,
                                   4 * C + 1, 4 * C + 2, 4 * C + 3, 4 * D, 4 * D + 1, 4 * D + 2, 4 * D + 3);
}
#endif

} // namespace vectors
