// SPDX-License-Identifier: MIT
// The one vector vocabulary of the kernels' bodies: vectors of N floats or doubles, as the compiler's vector extension offers
// them on every processor, and what rearranges them.
//
// Everything stands in the namespace of the variant that is compiled, and is internal or inlined always: no variant shares code
// with another one, nor with the rest of the program. For the same reason no standard header with code may be included here.
#pragma once

#include <stddef.h>

// The unit that compiles the bodies names its variant. A body that is read alone is read for the baseline.
#ifndef QUOREL_VARIANT
#define QUOREL_VARIANT baseline
#endif

// Floats in the widest vector. A unit may ask for more than its instruction set has: the compiler then makes each vector of
// several registers.
#ifndef QUOREL_LANES
#if defined(__AVX512F__)
#define QUOREL_LANES 16
#elif defined(__AVX__)
#define QUOREL_LANES 8
#else
#define QUOREL_LANES 4
#endif
#endif

#define QUOREL_INLINE inline __attribute__((always_inline))

namespace quorel::kernels::QUOREL_VARIANT {
namespace {

constexpr size_t lanes = QUOREL_LANES;

// Whether a product and a sum fuse into one instruction.
#if defined(__FMA__) || QUOREL_LANES == 16
constexpr bool fuses = true;
#else
constexpr bool fuses = false;
#endif

// --- Vectors ---------------------------------------------------------------------------------------------------------

template <class T, size_t N>
struct VectorOf {
    typedef T Type __attribute__((vector_size(N * sizeof(T))));
};

template <class T, size_t N>
using Vec = typename VectorOf<T, N>::Type;

using Quad = Vec<float, 4>;

// `count` elements of a vector of type V.
template <class V, class T>
constexpr size_t lanesOf = sizeof(V) / sizeof(T);

// Addresses need no alignment but that of their elements.
template <class V, class T>
QUOREL_INLINE V load(const T* from)
{
    V v;
    __builtin_memcpy(&v, from, sizeof v);
    return v;
}

template <class V, class T>
QUOREL_INLINE void store(V v, T* to)
{
    __builtin_memcpy(to, &v, sizeof v);
}

// The vector, held in a register: the compiler may otherwise load a value anew for each use, and loads are what the kernels
// wait for. A vector of several registers stays as it is.
template <class V>
QUOREL_INLINE V inRegister(V v)
{
#if defined(__AVX512F__)
    asm("" : "+v"(v));
#elif defined(__AVX__)
    if constexpr (sizeof(V) <= 32)
        asm("" : "+x"(v));
#elif defined(__x86_64__)
    if constexpr (sizeof(V) <= 16)
        asm("" : "+x"(v));
#endif
    return v;
}

// --- Masks -----------------------------------------------------------------------------------------------------------

// Where the mask, the result of a comparison, is true: a; elsewhere b.
template <class Mask, class V>
QUOREL_INLINE V select(Mask mask, V a, V b)
{
    return mask ? a : b;
}

// Whether the mask is true anywhere.
template <class Mask>
QUOREL_INLINE bool any(Mask mask)
{
    long long part[sizeof(Mask) / sizeof(long long)];
    __builtin_memcpy(part, &mask, sizeof mask);
    long long all = 0;
    for (const long long p : part)
        all |= p;
    return all != 0;
}

// --- Shuffles --------------------------------------------------------------------------------------------------------

// The places 0 to N-1, for a shuffle to name its sources by.
template <int... i>
struct Places {
};

template <int N, int... i>
struct PlacesUpTo : PlacesUpTo<N - 1, N - 1, i...> {
};

template <int... i>
struct PlacesUpTo<0, i...> {
    using Type = Places<i...>;
};

template <int N>
using PlacesOf = typename PlacesUpTo<N>::Type;

// One quad in every quad of a vector of floats.
template <class V, int... i>
QUOREL_INLINE V repeatQuad(Quad q, Places<i...>)
{
    return __builtin_shufflevector(q, q, (i % 4)...);
}
template <class V>
QUOREL_INLINE V repeat(Quad q)
{
    return repeatQuad<V>(q, PlacesOf<static_cast<int>(lanesOf<V, float>)>());
}

// The same choice in each quad: places 0 to 3 are those of `x`, 4 to 7 those of `y`.
constexpr int placeInQuad(int place, int quad, int floats)
{
    return place < 4 ? place + 4 * quad : place - 4 + 4 * quad + floats;
}
template <int A, int B, int C, int D, class V, int... quad>
QUOREL_INLINE V shuffleEachQuad(V x, V y, Places<quad...>)
{
    constexpr int choice[4] = {A, B, C, D};
    return __builtin_shufflevector(x, y, placeInQuad(choice[quad % 4], quad / 4, static_cast<int>(lanesOf<V, float>))...);
}
template <int A, int B, int C, int D, class V>
QUOREL_INLINE V shuffleInQuads(V x, V y)
{
    return shuffleEachQuad<A, B, C, D>(x, y, PlacesOf<static_cast<int>(lanesOf<V, float>)>());
}

// Whole quads of vectors of sixteen floats: 0 to 3 are those of `x`, 4 to 7 those of `y`.
template <int A, int B, int C, int D, class V>
QUOREL_INLINE V shuffleQuads(V x, V y)
{
    return __builtin_shufflevector(x, y, 4 * A, 4 * A + 1, 4 * A + 2, 4 * A + 3, 4 * B, 4 * B + 1, 4 * B + 2, 4 * B + 3, 4 * C,
                                   4 * C + 1, 4 * C + 2, 4 * C + 3, 4 * D, 4 * D + 1, 4 * D + 2, 4 * D + 3);
}

// The pairs of floats in reverse order.
template <class V, int... i>
QUOREL_INLINE V reverseEachPair(V v, Places<i...>)
{
    return __builtin_shufflevector(v, v, (static_cast<int>(sizeof...(i)) - 2 - i + 2 * (i % 2))...);
}
template <class V>
QUOREL_INLINE V reversePairs(V v)
{
    return reverseEachPair(v, PlacesOf<static_cast<int>(lanesOf<V, float>)>());
}

// A vector of one quad or of two, the lower one first; and one of them again.
template <class V>
QUOREL_INLINE V join(Quad low, [[maybe_unused]] Quad high)
{
    if constexpr (lanesOf<V, float> == 4)
        return low;
    else
        return __builtin_shufflevector(low, high, 0, 1, 2, 3, 4, 5, 6, 7);
}
template <class V>
QUOREL_INLINE Quad quadOf(V v, size_t quad)
{
    if constexpr (lanesOf<V, float> == 4)
        return v;
    else
        return quad == 0 ? __builtin_shufflevector(v, v, 0, 1, 2, 3) : __builtin_shufflevector(v, v, 4, 5, 6, 7);
}

// --- Transposes ------------------------------------------------------------------------------------------------------

// In every quad of four vectors of floats: row i and column k change places. The way back is the same.
template <class V>
QUOREL_INLINE void transpose4x4(V (&v)[4])
{
    const V a = shuffleInQuads<0, 4, 1, 5>(v[0], v[1]);
    const V b = shuffleInQuads<2, 6, 3, 7>(v[0], v[1]);
    const V c = shuffleInQuads<0, 4, 1, 5>(v[2], v[3]);
    const V d = shuffleInQuads<2, 6, 3, 7>(v[2], v[3]);
    v[0] = shuffleInQuads<0, 1, 4, 5>(a, c);
    v[1] = shuffleInQuads<2, 3, 6, 7>(a, c);
    v[2] = shuffleInQuads<0, 1, 4, 5>(b, d);
    v[3] = shuffleInQuads<2, 3, 6, 7>(b, d);
}

// Of eight vectors of eight pairs of floats: row i and column k change places.
template <class V>
QUOREL_INLINE void transpose8x8(V (&v)[8])
{
    V even[4]; // columns 0, 2, 4, 6 of two rows each, a quad for each column
    V odd[4];  // columns 1, 3, 5, 7
    for (size_t i = 0; i < 4; ++i) {
        even[i] = shuffleInQuads<0, 1, 4, 5>(v[2 * i], v[2 * i + 1]);
        odd[i] = shuffleInQuads<2, 3, 6, 7>(v[2 * i], v[2 * i + 1]);
    }
    const auto quads = [](const V(&q)[4], V& first, V& second, V& third, V& fourth) {
        const V a = shuffleQuads<0, 2, 4, 6>(q[0], q[1]);
        const V b = shuffleQuads<0, 2, 4, 6>(q[2], q[3]);
        const V c = shuffleQuads<1, 3, 5, 7>(q[0], q[1]);
        const V d = shuffleQuads<1, 3, 5, 7>(q[2], q[3]);
        first = shuffleQuads<0, 2, 4, 6>(a, b);
        second = shuffleQuads<0, 2, 4, 6>(c, d);
        third = shuffleQuads<1, 3, 5, 7>(a, b);
        fourth = shuffleQuads<1, 3, 5, 7>(c, d);
    };
    quads(even, v[0], v[2], v[4], v[6]);
    quads(odd, v[1], v[3], v[5], v[7]);
}

} // namespace
} // namespace quorel::kernels::QUOREL_VARIANT
