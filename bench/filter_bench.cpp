// SPDX-License-Identifier: MIT
// The recursive filters and the stages that stand right on them, on blocks of 480 frames of noise at 48 kHz, in every variant
// of the kernels: `ratio` is the time of a block to the yardstick's, `ns` the least time of one. Their rivals are the plain
// recursions, one sample after the other. What a filter gives is compared with its rival's result first.
#include "bench/yardstick.h"
#include "core/buffer.h"
#include "core/kernels/select.h"
#include "speaker/allpass_diffuser.h"
#include "speaker/cascade_bank.h"
#include "speaker/equalizer.h"
#include "speaker/equalizer_tables.h"
#include "speaker/fdn_tables.h"
#include "speaker/feedback_matrix.h"

#include <cstdlib>
#include <iostream>
#include <random>
#include <string>

namespace quorel::bench {
namespace {

constexpr std::size_t frames = 480;

template <std::size_t C>
Buffer<float, C> noise()
{
    std::mt19937 random(7);
    std::uniform_real_distribution<float> level(-0.5F, 0.5F);
    Buffer<float, C> buffer(frames);
    for (std::size_t c = 0; c < C; ++c)
        std::generate_n(buffer.channel(c), frames, [&] { return level(random); });
    buffer.setSize(frames);
    return buffer;
}

// --- Plain recursions ------------------------------------------------------------------------------------------------

// Second-order sections in the transposed direct form.
template <std::size_t C, class Tap>
class PlainBiquad {
public:
    void setCoefficients(std::size_t c, std::span<const Tap> taps)
    {
        sections[c].clear();
        for (std::size_t s = 0; s < taps.size(); s += 6) {
            const Tap a0 = taps[s + 3];
            sections[c].push_back({taps[s] / a0, taps[s + 1] / a0, taps[s + 2] / a0, taps[s + 4] / a0, taps[s + 5] / a0, 0, 0});
        }
    }

    void process(const Buffer<float, C>& in, Buffer<float, C>& out)
    {
        for (std::size_t c = 0; c < C; ++c) {
            const float* x = in.channel(c);
            float* y = out.channel(c);
            for (std::size_t i = 0; i < frames; ++i) {
                Tap v = static_cast<Tap>(x[i]);
                for (Section& s : sections[c]) {
                    const Tap w = s.b0 * v + s.s1;
                    s.s1 = s.b1 * v - s.a1 * w + s.s2;
                    s.s2 = s.b2 * v - s.a2 * w;
                    v = w;
                }
                y[i] = static_cast<float>(v);
            }
        }
        out.setSize(frames);
    }

private:
    struct Section {
        Tap b0, b1, b2, a1, a2, s1, s2;
    };
    std::array<std::vector<Section>, C> sections;
};

class PlainAllpasses {
public:
    void process(const Buffer<float, 12>& in, Buffer<float, 12>& out)
    {
        for (std::size_t c = 0; c < 12; ++c) {
            const float* x = in.channel(c);
            float* y = out.channel(c);
            const float g = fdnLineTable[c].allpassCoefficient;
            const auto d = fdnLineTable[c].allpassDelay;
            std::size_t at = position[c];
            for (std::size_t i = 0; i < frames; ++i) {
                const float back = ring[c][at];
                const float w = x[i] - g * back;
                y[i] = g * w + back;
                ring[c][at] = w;
                at = at + 1 == d ? 0 : at + 1;
            }
            position[c] = at;
        }
        out.setSize(frames);
    }

private:
    std::array<std::array<float, 65>, 12> ring{};
    std::array<std::size_t, 12> position{};
};

// --- What is measured ------------------------------------------------------------------------------------------------

// Random gains within 12 dB; the equaliser's usual case of no gains at all costs next to nothing.
constexpr Equalizer::Gains gains = {4.5, -7.25, 11.0, 2.0, -3.5, 8.0, -12.0, 6.25, -1.0};

Equalizer equalizer()
{
    Equalizer made(equalizerInteraction(), equalizerCentres, equalizerQ, equalizerSampleRate, equalizerShelfFactor);
    made.design(gains);
    return made;
}
PlainBiquad<2, double> plainEqualizer()
{
    PlainBiquad<2, double> made;
    for (std::size_t c = 0; c < 2; ++c)
        made.setCoefficients(c, equalizer().coefficients());
    return made;
}

CascadeBank lineFilters()
{
    return CascadeBank(fdnLineFilters);
}
PlainBiquad<12, float> plainLineFilters()
{
    PlainBiquad<12, float> made;
    for (std::size_t c = 0; c < 12; ++c)
        made.setCoefficients(c, fdnLineFilters[c]);
    return made;
}

Biquad<2> outputFilter()
{
    Biquad<2> made(4);
    made.setCoefficients(fdnOutputFilter);
    return made;
}
PlainBiquad<2, float> plainOutputFilter()
{
    PlainBiquad<2, float> made;
    for (std::size_t c = 0; c < 2; ++c)
        made.setCoefficients(c, fdnOutputFilter);
    return made;
}

AllpassDiffuser diffuser()
{
    return {fdnColumn(&FdnLineRow::allpassDelay), fdnColumn(&FdnLineRow::allpassCoefficient)};
}

// A stage of C channels, and what it should give if there is another that tells.
template <std::size_t C, class Make, class MakePlain>
void verify(const std::string& name, const kernels::KernelTable& variant, Make make, MakePlain makePlain)
{
    const kernels::ForcedVariant forced(variant);
    auto stage = make();
    auto plain = makePlain();
    const auto in = noise<C>();
    Buffer<float, C> out(frames);
    Buffer<float, C> wanted(frames);
    for (int block = 0; block < 20; ++block) {
        stage.process(in, out);
        plain.process(in, wanted);
    }
    for (std::size_t c = 0; c < C; ++c)
        for (std::size_t i = 0; i < frames; ++i)
            if (!(std::abs(out.channel(c)[i] - wanted.channel(c)[i]) < 1e-5F)) { // single precision, gains below 10
                std::cerr << name << ": " << out.channel(c)[i] << " instead of " << wanted.channel(c)[i] << '\n';
                std::exit(1);
            }
}

template <std::size_t C, class Make>
void add(const std::string& name, const kernels::KernelTable& variant, Make make)
{
    asMeasured(benchmark::RegisterBenchmark(name.c_str(), [&variant, make](benchmark::State& state) {
        const kernels::ForcedVariant forced(variant);
        auto stage = make();
        const auto in = noise<C>();
        Buffer<float, C> out(frames);
        measure(state, [&] { stage.process(in, out); });
    }));
}

template <std::size_t C, class Make, class MakePlain>
void add(const std::string& name, Make make, MakePlain makePlain)
{
    for (const kernels::KernelTable* variant : kernels::availableVariants()) {
        verify<C>(name + "/" + variant->name, *variant, make, makePlain);
        add<C>(name + "/" + variant->name, *variant, make);
    }
    add<C>(name + "/plain", kernels::active(), makePlain);
}

const bool registered = [] {
    add<2>("equalizer", equalizer, plainEqualizer);
    add<12>("lineFilters", lineFilters, plainLineFilters);
    add<2>("outputFilter", outputFilter, plainOutputFilter);
    add<12>("diffuser", diffuser, [] { return PlainAllpasses(); });
    for (const kernels::KernelTable* variant : kernels::availableVariants())
        add<12>(std::string("feedbackMatrix/") + variant->name, *variant, [] { return FeedbackMatrix(fdnMixingMatrix, frames); });
    add<2>("design", kernels::active(), [] {
        struct Design {
            void process(const Buffer<float, 2>&, Buffer<float, 2>&) { stage.design(gains); }
            Equalizer stage = equalizer();
        };
        return Design();
    });
    return true;
}();

} // namespace
} // namespace quorel::bench
