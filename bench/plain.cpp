// SPDX-License-Identifier: MIT
// The kernels' loops compiled plainly: one element after the other, for the x86-64 baseline. Kernels that are written in vectors
// have their formulas here, as plain loops.
#define QUOREL_VARIANT plain
#include "core/kernels/simd.h"
#include "core/kernels/states.h"

namespace quorel::kernels::plain {

static void sumRows(const float* const* rows, const float* gains, size_t count, float* dst, size_t n)
{
    for (size_t i = 0; i < n; ++i) {
        float sum = rows[0][i] * gains[0];
        for (size_t r = 1; r < count; ++r)
            sum += rows[r][i] * gains[r];
        dst[i] = sum;
    }
}

static void mulPack(const float* a, const float* b, float* dst, size_t n)
{
    dst[0] = a[0] * b[0];
    for (size_t i = 1; i + 2 < n; i += 2) {
        const float re = a[i] * b[i] - a[i + 1] * b[i + 1];
        const float im = a[i] * b[i + 1] + a[i + 1] * b[i];
        dst[i] = re;
        dst[i + 1] = im;
    }
    dst[n - 1] = a[n - 1] * b[n - 1];
}

static void sumOfPackProducts(const float* const* x, const float* const* a, size_t count, float* dst, size_t n)
{
    float first = 0.0F, last = 0.0F;
    for (size_t r = 0; r < count; ++r) {
        first += x[r][0] * a[r][0];
        last += x[r][n - 1] * a[r][n - 1];
    }
    dst[0] = first;
    dst[n - 1] = last;
    for (size_t i = 1; i + 2 < n; i += 2) {
        float re = 0.0F, im = 0.0F;
        for (size_t r = 0; r < count; ++r) {
            re += x[r][i] * a[r][i] - x[r][i + 1] * a[r][i + 1];
            im += x[r][i] * a[r][i + 1] + x[r][i + 1] * a[r][i];
        }
        dst[i] = re;
        dst[i + 1] = im;
    }
}

static void sumProductsPack(const float* const* x, const float* const* a, const float* const* b, size_t count, float* first,
                            float* second, size_t n)
{
    sumOfPackProducts(x, a, count, first, n);
    sumOfPackProducts(x, b, count, second, n);
}

static void mixPairs(const float* const* in, const float* const* added, float gain, float* const* out, const PairMix* mix,
                     size_t rows, size_t n)
{
    for (size_t i = 0; i < n; ++i) {
        float term[2 * PairMix::pairs];
        for (size_t p = 0; p < PairMix::pairs; ++p) {
            float line[2];
            for (size_t k = 0; k < 2; ++k) {
                const float* more = added[2 * p + k];
                line[k] = (more != nullptr ? in[2 * p + k][i] + more[i] : in[2 * p + k][i]) * gain;
            }
            term[PairMix::sum + p] = line[0] + line[1];
            term[PairMix::difference + p] = line[0] - line[1];
        }
        for (size_t r = 0; r < rows; ++r) {
            float sum = term[mix[r].term[0]];
            for (size_t p = 1; p < PairMix::pairs; ++p)
                sum += term[mix[r].term[p]] * mix[r].sign[p];
            out[r][i] = sum;
        }
    }
}

static void compress(const Dynamics* dynamics, float* envelope, const float* const* in, float* const* out, size_t channels,
                     size_t n)
{
    for (size_t i = 0; i < n; ++i) {
        float loudest = 0.0F;
        for (size_t c = 0; c < channels; ++c) {
            const float level = __builtin_fabsf(in[c][i]);
            envelope[c] += (envelope[c] > level ? dynamics->release : dynamics->attack) * (level - envelope[c]);
            loudest = envelope[c] > loudest ? envelope[c] : loudest;
        }
        const GainSegment* s = dynamics->curve;
        while (s + 1 < dynamics->curve + dynamics->segments && loudest >= s[1].level)
            ++s;
        const float gain = s->slope == 0.0F ? s->gain : (loudest - s->level) * s->slope + s->gain;
        for (size_t c = 0; c < channels; ++c)
            out[c][i] = gain * in[c][i];
    }
}

static void compressTwo(const Dynamics* first, const Dynamics* second, float* envelope, const float* const* in, float* const* out,
                        size_t n)
{
    compress(first, envelope, in, out, 2, n);
    compress(second, envelope + 2, in + 2, out + 2, 2, n);
}

static void deinterleave(const float* frames, size_t channels, float* const* out, size_t n)
{
    for (size_t c = 0; c < channels; ++c)
        for (size_t i = 0; i < n; ++i)
            out[c][i] = frames[i * channels + c];
}

static void foldToStereo(const float* frames, const float* gains, size_t channels, float* left, float* right, size_t n)
{
    for (size_t i = 0; i < n; ++i) {
        float l = 0.0F, r = 0.0F;
        for (size_t c = 0; c < channels; ++c) {
            l += frames[i * channels + c] * gains[c];
            r += frames[i * channels + c] * gains[channels + c];
        }
        left[i] = l;
        right[i] = r;
    }
}

static void stereoFrames(const float* left, const float* right, float gain, float* frames, size_t n)
{
    for (size_t i = 0; i < n; ++i) {
        frames[8 * i] = left[i] * gain;
        frames[8 * i + 1] = right[i] * gain;
        for (size_t k = 2; k < 8; ++k)
            frames[8 * i + k] = 0.0F;
    }
}

} // namespace quorel::kernels::plain

#include "core/kernels/variant.h"
