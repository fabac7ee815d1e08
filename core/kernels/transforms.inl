// The transforms of the lengths in use, 512 and 1024 complex values and 1024 real samples, and the packed product. Included
// once by each variant's unit, inside its unnamed namespace. Other lengths: plain_transform.h.
//
// Three passes over N = 8*8*R values, R = 8 or 16. With input index n = 64a + 8b + c and output index k = a' + R*b' + 8R*c'
// (a, a' below R, the others below 8) the kernel of the sum falls apart, W_m standing for exp(-2*pi*i/m):
//
//   W_N^(nk) = W_R^(a*a') * W_N^((8b+c)*a') * W_8^(b*b') * W_64^(c*b') * W_8^(c*c')
//
//   first pass    for each b, c     R-point transform over a, result a' turned by W_N^((8b+c)*a')
//   middle pass   for each a', c    8-point transform over b, result b' turned by W_64^(c*b')
//   last pass     for each a', b'   8-point transform over c, result c'
//
// Value (a, b, c), primed or not, stands at 64a + 8b + c throughout: the first two passes replace values in place, and a
// vector holds neighbours in c. In the last pass the neighbours are what is transformed, so rows of consecutive a' are
// transposed in registers as they are loaded; a vector then holds neighbours in a', which are neighbours in k, and goes
// straight to its place. No pass reorders the result.
//
// Vectors hold complex values as memory does, (re, im, re, im, ...). A product with w is z * (re w, re w) + swapped z *
// (-im w, im w): a table entry is these two vectors, and entries stand in the order of their use, so that a table depends on
// the variant's width (TransformTables).

namespace transforms {

using namespace vectors;

constexpr size_t valuesPerVector = lanes / 2;

// (im, re) for (re, im)
QUOREL_INLINE V swapped(V z)
{
    return inQuads<1, 0, 3, 2>(z, z);
}

// z with the sign of every second float changed: of the imaginary parts, or of the real ones. Where products and sums fuse,
// a sign is best given as a factor; elsewhere as a bit.
template <bool ofReal>
QUOREL_INLINE V withSign(V z)
{
#if defined(__FMA__)
    return z * repeated(ofReal ? Quad{-1.0F, 1.0F, -1.0F, 1.0F} : Quad{1.0F, -1.0F, 1.0F, -1.0F});
#else
    const V sign = repeated(ofReal ? Quad{-0.0F, 0.0F, -0.0F, 0.0F} : Quad{0.0F, -0.0F, 0.0F, -0.0F});
    return reinterpret_cast<V>(reinterpret_cast<VInt>(z) ^ reinterpret_cast<VInt>(sign));
#endif
}

QUOREL_INLINE V conjugate(V z)
{
    return withSign<false>(z);
}

// The complex values in reverse order.
QUOREL_INLINE V reversed(V z)
{
#if QUOREL_LANES == 16
    return __builtin_shufflevector(z, z, 14, 15, 12, 13, 10, 11, 8, 9, 6, 7, 4, 5, 2, 3, 0, 1);
#elif QUOREL_LANES == 8
    return __builtin_shufflevector(z, z, 6, 7, 4, 5, 2, 3, 0, 1);
#else
    return __builtin_shufflevector(z, z, 2, 3, 0, 1);
#endif
}

// What follows is the forward transform, or with `inverse` its complex conjugate: every w becomes conj(w).

// z * w for a table entry
template <bool inverse>
QUOREL_INLINE V turned(V z, const float* entry)
{
    const V re = load(entry);
    const V im = load(entry + lanes);
    return inverse ? z * re - swapped(z) * im : z * re + swapped(z) * im;
}

// z * (re + i*im)
template <bool inverse>
QUOREL_INLINE V turned(V z, float re, float im)
{
    const V product = swapped(z) * repeated(Quad{-im, im, -im, im});
    return inverse ? z * re - product : z * re + product;
}

// z * -i
template <bool inverse>
QUOREL_INLINE V quarterTurned(V z)
{
    return withSign<inverse>(swapped(z));
}

// In place, in natural order.
template <bool inverse>
QUOREL_INLINE void transform4(V& a, V& b, V& c, V& d)
{
    const V s = a + c;
    const V t = a - c;
    const V u = b + d;
    const V v = quarterTurned<inverse>(b - d);
    a = s + u;
    b = t + v;
    c = s - u;
    d = t - v;
}

// Even results are the 4-point transform of the sums of opposite values, odd ones that of their differences turned by W_8^j.
// Turns by W_8 = (1-i)/sqrt(2) and W_8^3 leave their factor sqrt(1/2) to the last sums.
template <bool inverse>
QUOREL_INLINE void transform(V (&x)[8])
{
    V sum0 = x[0] + x[4];
    V sum1 = x[1] + x[5];
    V sum2 = x[2] + x[6];
    V sum3 = x[3] + x[7];
    transform4<inverse>(sum0, sum1, sum2, sum3);

    const V diff0 = x[0] - x[4];
    const V diff1 = x[1] - x[5];
    const V diff2 = quarterTurned<inverse>(x[2] - x[6]);
    const V diff3 = x[3] - x[7];
    const V root1 = diff1 + quarterTurned<inverse>(diff1);  // sqrt(2) * W_8 * diff1
    const V minus3 = diff3 - quarterTurned<inverse>(diff3); // -sqrt(2) * W_8^3 * diff3
    const V s = diff0 + diff2;
    const V t = diff0 - diff2;
    constexpr float rootOfHalf = 0.707106781F;
    const V u = rootOfHalf * (root1 - minus3);
    const V v = rootOfHalf * quarterTurned<inverse>(root1 + minus3);

    x[0] = sum0;
    x[1] = s + u;
    x[2] = sum1;
    x[3] = t + v;
    x[4] = sum2;
    x[5] = s - u;
    x[6] = sum3;
    x[7] = t - v;
}

// The same with two 8-point transforms, the differences turned by W_16^j.
template <bool inverse>
QUOREL_INLINE void transform(V (&x)[16])
{
    constexpr float c1 = 0.923879533F; // cos(pi/8)
    constexpr float s1 = 0.382683432F; // sin(pi/8)
    constexpr float c2 = 0.707106781F; // cos(pi/4)
    V sum[8];
    V diff[8];
    for (size_t j = 0; j < 8; ++j) {
        sum[j] = x[j] + x[j + 8];
        diff[j] = x[j] - x[j + 8];
    }
    diff[1] = turned<inverse>(diff[1], c1, -s1);
    diff[2] = turned<inverse>(diff[2], c2, -c2);
    diff[3] = turned<inverse>(diff[3], s1, -c1);
    diff[4] = quarterTurned<inverse>(diff[4]);
    diff[5] = turned<inverse>(diff[5], -s1, -c1);
    diff[6] = turned<inverse>(diff[6], -c2, -c2);
    diff[7] = turned<inverse>(diff[7], -c1, -s1);
    transform<inverse>(sum);
    transform<inverse>(diff);
    for (size_t j = 0; j < 8; ++j) {
        x[2 * j] = sum[j];
        x[2 * j + 1] = diff[j];
    }
}

// `src` and `dst` may be one array. Lengths and distances in floats: 128 are 64 values.
template <size_t R, bool inverse>
void firstPass(const float* src, const float* table, float* dst)
{
    for (size_t bc = 0; bc < 128; bc += lanes) {
        V x[R];
        for (size_t a = 0; a < R; ++a)
            x[a] = kept(load(src + 128 * a + bc));
        transform<inverse>(x);
        store(dst + bc, x[0]);
        for (size_t a = 1; a < R; ++a, table += 2 * lanes)
            store(dst + 128 * a + bc, turned<inverse>(x[a], table));
    }
}

template <size_t R, bool inverse>
void middlePass(const float* table, float* work)
{
    for (size_t c = 0; c < 16; c += lanes, table += 2 * lanes * 7)
        for (float* p = work + c; p < work + 128 * R; p += 128) {
            V x[8];
            for (size_t b = 0; b < 8; ++b)
                x[b] = kept(load(p + 16 * b));
            transform<inverse>(x);
            store(p, x[0]);
            for (size_t b = 1; b < 8; ++b)
                store(p + 16 * b, turned<inverse>(x[b], table + 2 * lanes * (b - 1)));
        }
}

// Eight columns of a vector's height: column[c] holds value c of each row. Rows are 128 floats apart.
QUOREL_INLINE void loadColumns(const float* rows, V (&column)[8])
{
#if QUOREL_LANES == 16
    V even[4]; // columns 0, 2, 4, 6 of two rows each, a quad for each column
    V odd[4];  // columns 1, 3, 5, 7
    for (size_t i = 0; i < 4; ++i) {
        const V upper = load(rows + 256 * i);
        const V lower = load(rows + 256 * i + 128);
        even[i] = inQuads<0, 1, 4, 5>(upper, lower);
        odd[i] = inQuads<2, 3, 6, 7>(upper, lower);
    }
    const auto transposed = [](const V(&q)[4], V& first, V& second, V& third, V& fourth) {
        const V a = quadsOf<0, 2, 4, 6>(q[0], q[1]);
        const V b = quadsOf<0, 2, 4, 6>(q[2], q[3]);
        const V c = quadsOf<1, 3, 5, 7>(q[0], q[1]);
        const V d = quadsOf<1, 3, 5, 7>(q[2], q[3]);
        first = quadsOf<0, 2, 4, 6>(a, b);
        second = quadsOf<0, 2, 4, 6>(c, d);
        third = quadsOf<1, 3, 5, 7>(a, b);
        fourth = quadsOf<1, 3, 5, 7>(c, d);
    };
    transposed(even, column[0], column[2], column[4], column[6]);
    transposed(odd, column[1], column[3], column[5], column[7]);
#else
    for (size_t c = 0; c < 8; c += 2) {
        const float* p = rows + 2 * c;
#if QUOREL_LANES == 8
        const V upper = __builtin_shufflevector(loadQuad(p), loadQuad(p + 256), 0, 1, 2, 3, 4, 5, 6, 7);
        const V lower = __builtin_shufflevector(loadQuad(p + 128), loadQuad(p + 384), 0, 1, 2, 3, 4, 5, 6, 7);
#else
        const V upper = load(p);
        const V lower = load(p + 128);
#endif
        column[c] = inQuads<0, 1, 4, 5>(upper, lower);
        column[c + 1] = inQuads<2, 3, 6, 7>(upper, lower);
    }
#endif
}

template <size_t R, bool inverse>
void lastPass(const float* work, float* dst)
{
    for (size_t b = 0; b < 8; ++b)
        for (size_t a = 0; a < R; a += valuesPerVector, dst += lanes) {
            V x[8];
            loadColumns(work + 128 * a + 16 * b, x);
            transform<inverse>(x);
            for (size_t c = 0; c < 8; ++c)
                store(dst + 16 * R * c, x[c]);
        }
}

template <size_t R>
void complexInverse(const TransformTables& tables, const float* src, float* dst, float* work)
{
    firstPass<R, true>(src, tables.first, work);
    middlePass<R, true>(tables.middle, work);
    lastPass<R, true>(work, dst);
}

// 1024 real samples x are 512 complex values z[n] = x[2n] + i*x[2n+1]. With Z their spectrum, and E and D the sum and the
// difference of Z[k] and conj(Z[512-k]), the spectra of the even and odd samples are E/2 and -i*D/2, so that
//
//   X[k] = E/2 - i/2 * W_1024^k * D      and, exchanging k and 512-k,      X[512-k] = conj(E/2 + i/2 * W_1024^k * D)
//
// The way back is of the same form, with E and D taken of X:   Z[k] = E/2 + i/2 * conj(W_1024^k) * D
// so one function serves both. The table holds the factor of D for k = 1, 2, ..., 256, the scaling within; `half` is the
// factor of E with the scaling. `from` and `to` point at bin 1: the bins lie one float lower in Pack form than in a spectrum.
QUOREL_INLINE void exchangeHalves(const float* from, float* to, const float* table, float half)
{
    for (size_t k = 0; k < 512; k += lanes, table += 2 * lanes) { // floats behind bin 1
        const size_t mirrored = 1022 - lanes - k;
        const V low = kept(load(from + k));
        const V high = conjugate(reversed(load(from + mirrored)));
        const V e = (low + high) * half;
        const V d = turned<false>(low - high, table);
        store(to + k, e + d);
        store(to + mirrored, reversed(conjugate(e - d)));
    }
}

void realForward1024(const TransformTables& tables, const float* src, float* dst, float* work)
{
    float* spectrum = work + 1024;
    firstPass<8, false>(src, tables.first, work);
    middlePass<8, false>(tables.middle, work);
    lastPass<8, false>(work, spectrum);
    exchangeHalves(spectrum + 2, dst + 1, tables.forward, tables.forwardHalf);
    dst[0] = 2 * tables.forwardHalf * (spectrum[0] + spectrum[1]);
    dst[1023] = 2 * tables.forwardHalf * (spectrum[0] - spectrum[1]);
}

void realInverse1024(const TransformTables& tables, const float* src, float* dst, float* work)
{
    exchangeHalves(src + 1, work + 2, tables.inverse, tables.inverseHalf);
    work[0] = tables.inverseHalf * (src[0] + src[1023]);
    work[1] = tables.inverseHalf * (src[0] - src[1023]);
    firstPass<8, true>(work, tables.first, work);
    middlePass<8, true>(tables.middle, work);
    lastPass<8, true>(work, dst);
}

// `dst` may be `a` or `b`: each pair is read before it is written.
void mulPack(const float* a, const float* b, float* dst, size_t n)
{
    const float last = a[n - 1] * b[n - 1];
    dst[0] = a[0] * b[0];
    size_t i = 1;
    for (; i + lanes < n; i += lanes) {
        const V x = kept(load(a + i));
        const V y = kept(load(b + i));
        const V re = inQuads<0, 0, 2, 2>(x, x);
        const V im = inQuads<1, 1, 3, 3>(x, x);
        store(dst + i, y * re - quarterTurned<false>(y) * im);
    }
    for (; i + 1 < n; i += 2) {
        const float re = a[i] * b[i] - a[i + 1] * b[i + 1];
        const float im = a[i] * b[i + 1] + a[i + 1] * b[i];
        dst[i] = re;
        dst[i + 1] = im;
    }
    if (n % 2 == 0)
        dst[n - 1] = last;
}

} // namespace transforms
