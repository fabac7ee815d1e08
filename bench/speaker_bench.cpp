// SPDX-License-Identifier: MIT
// The render effect's cost: blocks of 480 frames of 7.1 sound, 10 ms, in every variant of the kernels. `ratio` is the time of a
// block to the yardstick's, both at their least.
//
//   block/...            the whole effect, with the surround effect on and off; room, equaliser and limiters at work
//   stage/...            each of its stages alone, on the same block, and their sum, to compare with block/surround. Alone a stage
//                        finds its data nearer than among the others
//   silence/...          ten minutes of silence behind a minute of loud noise: the median of a block, the greatest median of any
//                        second, and both in relation to the noise's own median. Of three runs each block's least time counts
//   ten_million_frames   median, 99.9th percentile and worst block, and the worst in relation to the median, of one run and of
//                        each block's least time of three: the effect's own worst, apart from what else the machine does
#include "bench/inputs.h"
#include "bench/yardstick.h"
#include "core/buffer_arithmetic.h"
#include "core/kernels/select.h"
#include "core/signal_path.h"
#include "speaker/built_in.h"
#include "speaker/compressor_tables.h"
#include "speaker/output_frames.h"
#include "speaker/scale_mixer.h"
#include "stages/compressor.h"
#include "stages/pass_through.h"

#include <cmath>
#include <map>
#include <string>

namespace quorel::bench {
namespace {

constexpr std::size_t channels = 8;
constexpr std::uint32_t mask = 0x63F;
constexpr std::uint64_t frames = 480;
constexpr double period = 1e7;                                                          // ns that a block lasts
constexpr std::array<std::int32_t, 9> bands = {90, -50, 30, 70, -20, 110, -90, 40, 60}; // of 127 for 6 dB
constexpr std::uint32_t reverb = 170;                                                   // 0 dB
constexpr float peak = 0.5F; // on every channel: 12 dB more than the limiters let through

// A block of noise and a path that plays it over and over.
class Effect {
public:
    explicit Effect(bool surround) : path(SignalPath::Speaker{}, channels, mask, frames, 48000)
    {
        fillWithNoise(in.data(), in.size(), peak);
        SettingsRecord& record = *path->settings();
        record.Settings = surround;
        record.Reverb = reverb;
        record.EQBand = bands;
    }

    void process() { path->process(in.data(), frames, out.data(), frames); }

    void silence() { in.assign(in.size(), 0.0F); }

    // Whether what came out last is limited sound.
    bool sounds() const
    {
        float largest = 0.0F;
        for (const float y : out) {
            if (!(std::fabs(y) <= 2.0F))
                return false;
            largest = std::max(largest, std::fabs(y));
        }
        return largest > 0.1F;
    }

    std::vector<float> in = std::vector<float>(frames * channels);
    std::vector<float> out = std::vector<float>(frames * 8);

private:
    SignalPath path;
};

void wholeBlock(benchmark::State& state, const kernels::KernelTable& variant, bool surround)
{
    const kernels::ForcedVariant forced(variant);
    Effect effect(surround);
    measure(state, [&] { effect.process(); });
    state.counters["% of period"] = state.counters["ns"] * 100 / period;
    if (!effect.sounds())
        state.SkipWithError("the output is not that of loud noise");
}

// --- Stages ----------------------------------------------------------------------------------------------------------

// The stages of the path and of its room, with what passes between them.
struct Stages {
    static constexpr Speakers<channels> speakers = {0, 1, 2, 3, 4, 5, 6, 7};
    static constexpr std::array<std::uint64_t, channels> preDelays = {44, 40, 48, 38, 51, 42, 48, 44};

    Stages()
    {
        Equalizer::Gains gains{};
        for (std::size_t b = 0; b < bands.size(); ++b)
            gains[b] = bands[b] / 127.0 * 6.0;
        equalizer.design(gains);
        outputFilter.setCoefficients(fdnOutputFilter);
        for (std::size_t c = 0; c < channels; ++c) {
            downmixGains[0][c] = speakerTable[c].downmixLeft;
            downmixGains[1][c] = speakerTable[c].downmixRight;
        }
        downmix = ScaleMixer<channels>(downmixGains);
    }

    static XCorrFreq<float> correlation()
    {
        std::vector<float> spectra;
        appendSpectrum(spectra, sameSideTaps);
        appendSpectrum(spectra, crossSideTaps);
        return {spectra.data(), spectra.data() + 1024, xcorrTaps - 1};
    }

    Effect effect{true};
    InterleavedView in{effect.in.data(), frames};
    InterleavedView out{effect.out.data(), frames};

    PaddedBuffer<channels> input{1024, 169};
    Buffer<float, channels> inputSpectrum{1024};
    Buffer<float, 2> sumSpectrum{1024};
    PaddedBuffer<2> directTime{1024, 169};
    Buffer<float, 2> mix{frames};
    Buffer<float, channels> delayed{frames};
    Buffer<float, 12> lineA{frames};
    Buffer<float, 12> lineB{frames};
    Buffer<float, 2> tail{frames};
    Buffer<float, 2> correlated{frames};
    Buffer<float, 2> side{frames};

    FFT<float> fft{10};
    DirectPath<channels, float> direct = builtInDirectPath(speakers);
    Compressor<2> directCompressor{renderAttack, renderRelease, renderCurve};
    Delay<channels> delay{preDelays};
    FeedbackMatrix matrix{fdnMixingMatrix, frames};
    CascadeBank lineFilters{fdnLineFilters};
    AllpassDiffuser diffuser{fdnColumn(&FdnLineRow::allpassDelay), fdnColumn(&FdnLineRow::allpassCoefficient)};
    DelayLine lines{fdnColumn(&FdnLineRow::tapLeft),   fdnColumn(&FdnLineRow::gainLeft), fdnColumn(&FdnLineRow::tapRight),
                    fdnColumn(&FdnLineRow::gainRight), fdnColumn(&FdnLineRow::length),   frames};
    XCorrFreq<float> decorrelator = correlation();
    Biquad<2> outputFilter{4};
    Equalizer equalizer = builtInEqualizer();
    Compressor<2> outputCompressor{renderAttack, renderRelease, renderCurve};
    ScaleMixer<channels>::Gains downmixGains{};
    ScaleMixer<channels> downmix{downmixGains};
};

struct Stage {
    const char* name;
    void (*run)(Stages&);
};

// In signal order: all of them, one after the other, are the effect.
constexpr Stage stages[] = {
    {"load",
     [](Stages& s) {
         s.input.slide();
         PassThrough::deinterleave(s.in, s.input, s.input.overlap());
     }},
    {"forward_transforms", [](Stages& s) { s.fft.Fwd(s.input, s.inputSpectrum); }},
    {"direct_path", [](Stages& s) { s.direct.process(s.inputSpectrum, s.sumSpectrum); }},
    {"inverse_transforms",
     [](Stages& s) {
         s.fft.Inv(s.sumSpectrum, s.directTime);
         s.directTime.setSize(s.directTime.overlap() + frames);
     }},
    {"direct_compressor", [](Stages& s) { s.directCompressor.process(s.directTime, s.mix); }},
    {"room/pre_delays", [](Stages& s) { s.delay.process(s.input, s.delayed); }},
    {"room/read", [](Stages& s) { s.lines.read(s.lineA, frames); }},
    {"room/matrix", [](Stages& s) { s.matrix.process(s.lineA, s.delayed, std::sqrt(12.0F) / 12.0F, s.lineB); }},
    {"room/line_filters", [](Stages& s) { s.lineFilters.process(s.lineB, s.lineA); }},
    {"room/diffuser", [](Stages& s) { s.diffuser.process(s.lineA, s.lineB); }},
    {"room/write", [](Stages& s) { s.lines.write(s.lineB, s.tail); }},
    {"room/decorrelator", [](Stages& s) { s.decorrelator.process(s.tail, s.correlated); }},
    {"room/output_filter", [](Stages& s) { s.outputFilter.process(s.correlated, s.side); }},
    {"add_reverb",
     [](Stages& s) {
         s.side *= 1.0F;
         s.mix += s.side;
     }},
    {"equalizer", [](Stages& s) { s.equalizer.process(s.mix, s.side); }},
    {"output_compressor", [](Stages& s) { s.outputCompressor.process(s.side, s.side); }},
    {"output", [](Stages& s) { writeFrames(s.side, s.out, 0.8F); }},
};

// What takes the place of everything ahead of the equaliser when the surround effect is off.
constexpr Stage downmix = {"downmix", [](Stages& s) { s.downmix.process(s.in, s.mix); }};

// Whether the stages in a row give what the path gives. They start without its first fade, which a second later is forgotten.
bool areTheEffect(Stages& s)
{
    Effect whole(true);
    for (int block = 0; block < 200; ++block) {
        whole.process();
        for (const Stage& stage : stages)
            stage.run(s);
    }
    for (std::size_t i = 0; i < whole.out.size(); ++i)
        if (!(std::fabs(whole.out[i] - s.effect.out[i]) < 1e-5F))
            return false;
    return whole.sounds();
}

std::map<std::string, double> sums; // of the stages measured so far, by variant

void oneStage(benchmark::State& state, const kernels::KernelTable& variant, const Stage& stage, bool counts)
{
    const kernels::ForcedVariant forced(variant);
    Stages s;
    if (!areTheEffect(s))
        state.SkipWithError("the stages together do not give what the path gives");
    measure(state, [&] { stage.run(s); });
    if (counts)
        sums[variant.name] += state.counters["ratio"];
}

void stageSum(benchmark::State& state, const kernels::KernelTable& variant)
{
    for ([[maybe_unused]] auto _ : state)
        state.SetIterationTime(0);
    state.counters["ratio"] = sums[variant.name];
}

// --- Every block alone -----------------------------------------------------------------------------------------------

// What a share of all times stays below.
double quantile(const std::vector<double>& sorted, double share)
{
    return sorted[std::min(sorted.size() - 1, static_cast<std::size_t>(share * static_cast<double>(sorted.size())))];
}

std::vector<double> timesOf(Effect& effect, std::size_t blocks)
{
    std::vector<double> times(blocks);
    for (double& time : times)
        time = burst([&] { effect.process(); }, 1);
    return times;
}

std::vector<double> sorted(std::vector<double> times)
{
    std::sort(times.begin(), times.end());
    return times;
}

// The same blocks again: what the machine was busy with in one run only does not count.
void keepLeast(std::vector<double>& least, const std::vector<double>& times)
{
    for (std::size_t block = 0; block < least.size(); ++block)
        least[block] = std::min(least[block], times[block]);
}

void silenceAfterNoise(benchmark::State& state, const kernels::KernelTable& variant, bool surround)
{
    const kernels::ForcedVariant forced(variant);
    constexpr std::size_t second = 100; // blocks
    for ([[maybe_unused]] auto _ : state) {
        std::vector<double> noise(60 * second, std::numeric_limits<double>::infinity());
        std::vector<double> silence(600 * second, std::numeric_limits<double>::infinity());
        for (int run = 0; run < 3; ++run) {
            Effect effect(surround);
            keepLeast(noise, timesOf(effect, noise.size()));
            if (!effect.sounds())
                state.SkipWithError("the output is not that of loud noise");
            effect.silence();
            keepLeast(silence, timesOf(effect, silence.size()));
            if (std::any_of(effect.out.begin(), effect.out.end(), [](float y) { return y != 0.0F; }))
                state.SkipWithError("the output has not become silent");
        }
        const double ofNoise = quantile(sorted(noise), 0.5);
        const double ofSilence = quantile(sorted(silence), 0.5);
        double slowest = 0;
        for (auto from = silence.begin(); from != silence.end(); from += second)
            slowest = std::max(slowest, quantile(sorted({from, from + second}), 0.5));
        state.SetIterationTime(ofSilence * 1e-9);
        state.counters["noise"] = ofNoise;
        state.counters["silence"] = ofSilence;
        state.counters["ratio"] = ofSilence / ofNoise;
        state.counters["slowest second"] = slowest / ofNoise;
    }
}

void tenMillionFrames(benchmark::State& state, const kernels::KernelTable& variant)
{
    const kernels::ForcedVariant forced(variant);
    for ([[maybe_unused]] auto _ : state) {
        std::vector<double> first;
        std::vector<double> least(10'000'000 / frames + 1, std::numeric_limits<double>::infinity());
        for (int run = 0; run < 3; ++run) {
            Effect effect(true);
            const std::vector<double> times = timesOf(effect, least.size());
            if (!effect.sounds())
                state.SkipWithError("the output is not that of loud noise");
            keepLeast(least, times);
            if (run == 0)
                first = sorted(times);
        }
        least = sorted(least);
        state.SetIterationTime(quantile(first, 0.5) * 1e-9);
        state.counters["median"] = quantile(first, 0.5);
        state.counters["99.9th"] = quantile(first, 0.999);
        state.counters["worst"] = first.back();
        state.counters["worst/median"] = first.back() / quantile(first, 0.5);
        state.counters["of three: 99.9th"] = quantile(least, 0.999);
        state.counters["of three: worst"] = least.back();
        state.counters["of three: worst/median"] = least.back() / quantile(least, 0.5);
    }
}

const bool registered = [] {
    for (const kernels::KernelTable* variant : kernels::availableVariants()) {
        const auto add = [&](const std::string& what, auto call) {
            return benchmark::RegisterBenchmark((std::string(variant->name) + "/" + what).c_str(),
                                                [=](benchmark::State& state) { call(state, *variant); });
        };
        const auto once = [](benchmark::internal::Benchmark* b) {
            b->UseManualTime()->Iterations(1)->Unit(benchmark::kNanosecond);
        };
        asMeasured(add("block/surround", [](auto& state, auto& v) { wholeBlock(state, v, true); }));
        asMeasured(add("block/surround_off", [](auto& state, auto& v) { wholeBlock(state, v, false); }));
        for (const Stage& stage : stages)
            asMeasured(
                add(std::string("stage/") + stage.name, [&stage](auto& state, auto& v) { oneStage(state, v, stage, true); }));
        once(add("stage/sum", [](auto& state, auto& v) { stageSum(state, v); }));
        asMeasured(add("stage/downmix", [](auto& state, auto& v) { oneStage(state, v, downmix, false); }));
        once(add("silence/surround", [](auto& state, auto& v) { silenceAfterNoise(state, v, true); }));
        once(add("silence/surround_off", [](auto& state, auto& v) { silenceAfterNoise(state, v, false); }));
        once(add("ten_million_frames", [](auto& state, auto& v) { tenMillionFrames(state, v); }));
    }
    return true;
}();

} // namespace
} // namespace quorel::bench
