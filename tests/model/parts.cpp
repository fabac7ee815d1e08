// SPDX-License-Identifier: MIT
#include "tests/model/parts.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace quorel::model {

void refuse(const std::string& text)
{
    throw Failure(Failure::Kind::InvalidArgument, text);
}

void refuseStatus(const std::string& name)
{
    throw Failure(Failure::Kind::KernelStatus, name);
}

std::size_t roundUpTo16(std::size_t n)
{
    return (n + 15) / 16 * 16;
}

// ---------------------------------------------------------------------------

Ramps::Ramps(std::size_t length) : rising(length), falling(length)
{
    const float pi = 3.1415927f;
    for (std::size_t i = 0; i < length; ++i) {
        const float angle = static_cast<float>(i) * pi / static_cast<float>(length);
        const float up = 1.0f - (std::cos(angle) + 1.0f) * 0.5f;
        const float down = 1.0f - up;
        rising[i] = up;
        falling[i] = down;
    }
}

Signal crossfade(const Signal& from, const Signal& to, const Ramps& ramps)
{
    Signal y(from.size());
    for (std::size_t i = 0; i < y.size(); ++i)
        y[i] = from[i] * ramps.falling[i] + to[i] * ramps.rising[i];
    return y;
}

Signal scaled(const Signal& x, double gain)
{
    Signal y(x.size(), 0.0);
    if (gain != 0.0)
        for (std::size_t i = 0; i < y.size(); ++i)
            y[i] = gain * x[i];
    return y;
}

// ---------------------------------------------------------------------------

void Cascade::design(const std::vector<Section>& wanted)
{
    for (const Section& s : wanted)
        if (s.a0 == 0.0 || s.b0 == 0.0)
            refuseStatus("ippStsDivByZeroErr");
    sections = wanted;
    held.assign(wanted.size(), {0.0, 0.0});
}

Signal Cascade::process(const Signal& x)
{
    Signal y = x;
    for (std::size_t s = 0; s < sections.size(); ++s) {
        const Section& t = sections[s];
        auto& [v1, v2] = held[s];
        for (double& sample : y) {
            const double v = (sample - t.a1 * v1 - t.a2 * v2) / t.a0;
            sample = t.b0 * v + t.b1 * v1 + t.b2 * v2;
            v2 = v1;
            v1 = v;
        }
    }
    return y;
}

// ---------------------------------------------------------------------------

GainRider::GainRider(std::size_t channels, float attack, float release, std::vector<std::pair<float, float>> pairs)
    : attack(attack), release(release), envelope(channels, 0.0f)
{
    std::stable_sort(pairs.begin(), pairs.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    for (const auto& [level, gain] : pairs)
        if (curve.empty() || level != curve.back().level)
            curve.push_back({level, gain, 0.0f});
    for (std::size_t p = 0; p + 1 < curve.size(); ++p)
        curve[p].slope = (curve[p + 1].gain - curve[p].gain) / (curve[p + 1].level - curve[p].level);
}

Rows GainRider::process(const Rows& x)
{
    Rows y = x;
    for (std::size_t i = 0; i < x[0].size(); ++i) {
        float peak = 0.0f;
        for (std::size_t c = 0; c < x.size(); ++c) {
            const float level = static_cast<float>(std::fabs(x[c][i]));
            const float k = envelope[c] > level ? release : attack;
            const float step = k * (level - envelope[c]);
            envelope[c] = envelope[c] + step;
            if (envelope[c] > peak)
                peak = envelope[c];
        }
        const double gain = gainFor(peak);
        for (std::size_t c = 0; c < x.size(); ++c)
            y[c][i] = gain * x[c][i];
    }
    return y;
}

double GainRider::gainFor(double level) const
{
    if (level < curve.front().level)
        return curve.front().gain;
    if (level >= curve.back().level)
        return curve.back().gain;
    std::size_t p = 0;
    while (p + 1 < curve.size() && curve[p + 1].level <= level)
        ++p;
    return (level - curve[p].level) * curve[p].slope + curve[p].gain;
}

// ---------------------------------------------------------------------------

namespace {

// cos and sin of 2 pi j / 1024
struct Circle {
    Circle()
    {
        for (std::size_t j = 0; j < Window::length; ++j) {
            const double angle = 2.0 * std::numbers::pi * static_cast<double>(j) / double{Window::length};
            cosine[j] = std::cos(angle);
            sine[j] = std::sin(angle);
        }
    }

    std::array<double, Window::length> cosine{};
    std::array<double, Window::length> sine{};
};

const Circle& circle()
{
    static const Circle c;
    return c;
}

} // namespace

Fourier::Fourier(std::size_t length)
{
    for (std::size_t j = 0; j < length / 2; ++j) {
        const double angle = 2.0 * std::numbers::pi * static_cast<double>(j) / static_cast<double>(length);
        turns.emplace_back(std::cos(angle), std::sin(angle));
    }
}

void Fourier::transform(Spectrum& x) const
{
    const std::size_t n = x.size();

    // Into bit-reversed order.
    for (std::size_t i = 1, j = 0; i < n; ++i) {
        std::size_t bit = n / 2;
        for (; (j & bit) != 0; bit /= 2)
            j ^= bit;
        j ^= bit;
        if (i < j)
            std::swap(x[i], x[j]);
    }

    // Butterflies of two halves, from pairs up to the whole.
    for (std::size_t half = 1; half < n; half *= 2) {
        const std::size_t stride = n / (2 * half);
        for (std::size_t start = 0; start < n; start += 2 * half)
            for (std::size_t k = 0; k < half; ++k) {
                const auto& w = turns[k * stride];
                const auto a = x[start + k];
                const auto b = x[start + k + half];
                const std::complex<double> turned(b.real() * w.real() - b.imag() * w.imag(),
                                                  b.real() * w.imag() + b.imag() * w.real());
                x[start + k] = a + turned;
                x[start + k + half] = a - turned;
            }
    }
}

Signal tapsFromPacked(const float* packed)
{
    // x[n] = sum over k of X[k] exp(2 pi i n k / 1024) / 1024, where X[1024 - k] is the conjugate of X[k]
    Spectrum spectrum(Window::length);
    spectrum[0] = packed[0];
    spectrum[512] = packed[1023];
    for (std::size_t k = 1; k < 512; ++k) {
        spectrum[k] = {packed[2 * k - 1], packed[2 * k]};
        spectrum[Window::length - k] = std::conj(spectrum[k]);
    }
    static const Fourier fourier(Window::length);
    fourier.transform(spectrum);
    Signal taps;
    for (const std::complex<double>& x : spectrum)
        taps.push_back(x.real() / double{Window::length});
    return taps;
}

std::vector<float> packedFromTaps(const Signal& taps)
{
    // X[k] = sum of x[n] exp(-2 pi i n k / 1024)
    std::vector<float> packed(Window::length);
    for (std::size_t k = 0; k <= 512; ++k) {
        double re = 0.0;
        double im = 0.0;
        for (std::size_t n = 0; n < taps.size(); ++n) {
            const std::size_t turn = n * k % Window::length;
            re += taps[n] * circle().cosine[turn];
            im -= taps[n] * circle().sine[turn];
        }
        if (k == 0) {
            packed[0] = static_cast<float>(re);
        } else {
            packed[2 * k - 1] = static_cast<float>(re);
            if (k < 512)
                packed[2 * k] = static_cast<float>(im);
        }
    }
    return packed;
}

// ---------------------------------------------------------------------------

Window::Window(std::size_t channels, std::size_t overlap) : overlap(overlap), frames(overlap), rows(channels, Signal(length, 0.0))
{
}

void Window::slide()
{
    for (Signal& row : rows) {
        const auto last = row.begin() + static_cast<std::ptrdiff_t>(frames);
        Signal next(last - static_cast<std::ptrdiff_t>(overlap), last);
        next.resize(length, 0.0);
        row = next;
    }
    frames = overlap;
}

void Window::load(const Rows& block)
{
    const std::size_t n = block[0].size();
    if (n > length - overlap)
        refuse("PassThrough: out buffer too small");
    for (std::size_t c = 0; c < rows.size(); ++c)
        std::copy(block[c].begin(), block[c].end(), rows[c].begin() + static_cast<std::ptrdiff_t>(overlap));
    frames = overlap + n;
}

Signal Window::convolve(std::size_t c, const Signal& taps) const
{
    // y[i] = sum over k of taps[k] * row[(overlap + i - k) mod 1024]; the row stands here twice
    // in a line, so that the index needs no modulus.
    Signal twice = rows[c];
    twice.insert(twice.end(), rows[c].begin(), rows[c].end());

    const std::size_t n = frames - overlap;
    Signal y(n, 0.0);
    for (std::size_t k = 0; k < taps.size(); ++k) {
        if (taps[k] == 0.0)
            continue;
        const double* x = twice.data() + length + overlap - k;
        for (std::size_t i = 0; i < n; ++i)
            y[i] += taps[k] * x[i];
    }
    return y;
}

Signal Window::block(std::size_t c) const
{
    const auto row = rows[c].begin();
    return Signal(row + static_cast<std::ptrdiff_t>(overlap), row + static_cast<std::ptrdiff_t>(frames));
}

} // namespace quorel::model
