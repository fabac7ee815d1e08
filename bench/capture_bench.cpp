// SPDX-License-Identifier: MIT
// The capture effect's cost: one frame of 5 ms, mono, beside the yardstick, in every variant of the kernels that runs here.
//
// "noise_reduction" is noise reduction with the meter, "whole_path" the same with a curve and the gate behind it, both through
// the front of a path. The stages stand below. Inputs are noise, silence, and the silence behind a loud signal.
#include "bench/yardstick.h"
#include "core/kernels/select.h"
#include "core/signal_path.h"
#include "microphone/frequency_domain_proc.h"

#include <random>

namespace quorel::bench {
namespace {

enum class Input { noise, silence, tail };

// Two seconds of the input, then one frame of it for good.
std::vector<float> prepared(SignalPath& path, Input input, std::uint64_t hop)
{
    std::minstd_rand random(1);
    std::normal_distribution<float> normal(0.0F, 0.1F);
    std::vector<float> in(hop);
    std::vector<float> out(hop);
    for (int frame = 0; frame < 400; ++frame) {
        for (float& x : in)
            x = input == Input::noise || (input == Input::tail && frame < 200) ? normal(random) : 0.0F;
        path->process(in.data(), hop, out.data(), hop);
    }
    return in;
}

void wholeFrame(benchmark::State& state, const kernels::KernelTable& variant, std::uint32_t rate, bool all, Input input)
{
    const kernels::ForcedVariant forced(variant);
    const std::uint64_t hop = rate / 200;
    SignalPath path(SignalPath::Microphone{}, 1, 0, static_cast<std::uint32_t>(hop), rate);
    SettingsRecord& record = *path->settings();
    record.MicNR = 1;
    record.levelsEnabled = 1;
    if (all) {
        record.micEq = 2;
        record.noiseGate = 100;
    }
    std::vector<float> in = prepared(path, input, hop);
    std::vector<float> out(hop);
    measure(state, [&] { path->process(in.data(), hop, out.data(), hop); });
    state.counters["% of period"] = state.counters["ns"] * 100 / 5e6;
    for (const float y : out)
        if (!(std::abs(y) <= 1.0F) || (input == Input::silence && y != 0.0F))
            state.SkipWithError("the output is not that of a cleaned input");
}

void stages(const std::string& name, const kernels::KernelTable& variant, std::uint32_t rate)
{
    const auto add = [&](const std::string& what, auto make) {
        asMeasured(benchmark::RegisterBenchmark((name + what).c_str(), [&variant, rate, make](benchmark::State& state) {
            const kernels::ForcedVariant forced(variant);
            const MicrophoneRateRow& row = *microphoneRate(rate);
            Buffer<float, 1> frame(row.hop);
            SpectrumBuffer<1> spectrum(row.fftLength);
            SpectrumBuffer<1> bands(gainBandCount);
            Buffer<float, 1> levels(gainBandCount);
            std::minstd_rand random(1);
            std::normal_distribution<float> normal(0.0F, 0.1F);
            for (std::uint64_t i = 0; i < row.hop; ++i)
                frame.channel(0)[i] = normal(random);
            for (std::uint64_t k = 0; k < row.fftLength; ++k)
                spectrum.channel(0)[k] = {normal(random), normal(random)};
            for (std::uint64_t b = 0; b < gainBandCount; ++b) {
                bands.channel(0)[b] = {normal(random), normal(random)};
                levels.channel(0)[b] = 0.1F;
            }
            frame.setSize(row.hop);
            spectrum.setSize(row.fftLength);
            bands.setSize(gainBandCount);
            levels.setSize(gainBandCount);
            make(state, row, frame, spectrum, bands, levels);
        }));
    };
    add("analysis", [](auto& state, auto& row, auto& frame, auto& spectrum, auto&, auto&) {
        FilterBank<1> stage(row.fftLength, row.hop, row.analysisWindow);
        measure(state, [&] { stage.lowerHalf(0, frame.channel(0), spectrum.channel(0)); });
    });
    add("synthesis", [](auto& state, auto& row, auto& frame, auto& spectrum, auto&, auto&) {
        InverseFilterBank<1> stage(row.fftLength, row.hop, row.synthesisWindow);
        const auto half = length32(row.fftLength / 2 + 1); // spent by each run, so copied
        SpectrumBuffer<1> spent(row.fftLength);
        measure(state, [&] {
            check(ippsCopy_32fc(spectrum.channel(0), spent.channel(0), half));
            stage.fromLowerHalf(0, spent.channel(0), frame.channel(0));
        });
    });
    add("band_sum", [](auto& state, auto& row, auto&, auto& spectrum, auto& bands, auto&) {
        BandSum<1> stage(row.gainWidths, true);
        measure(state, [&] { stage.process(spectrum, bands); });
    });
    add("band_dist", [](auto& state, auto& row, auto&, auto& spectrum, auto& bands, auto&) {
        BandDist<1> stage(row.gainWidths);
        measure(state, [&] { stage.scaleLowerHalf(bands.channel(0), spectrum.channel(0)); });
    });
    add("bottom_tracker", [](auto& state, auto&, auto&, auto&, auto& bands, auto& levels) {
        BottomTracker<1> stage(noiseTrackerTables());
        measure(state, [&] { stage.process(bands, levels); });
    });
    add("ogle", [](auto& state, auto&, auto&, auto&, auto& bands, auto& levels) {
        Ogle<1> stage(signalTrackerTables());
        measure(state, [&] { stage.process(bands, levels); });
    });
    add("suppression_gain", [](auto& state, auto&, auto&, auto&, auto& bands, auto& levels) {
        SuppressionGain<1> stage(suppressionTables());
        measure(state, [&] { stage.process(levels, levels, bands); });
    });
}

const bool registered = [] {
    for (const kernels::KernelTable* variant : kernels::availableVariants()) {
        for (const std::uint32_t rate : {48000U, 16000U}) {
            const std::string name = std::string(variant->name) + "/" + std::to_string(rate) + "/";
            const auto add = [&](const std::string& what, bool all, Input input) {
                asMeasured(benchmark::RegisterBenchmark(
                    (name + what).c_str(), [=](benchmark::State& state) { wholeFrame(state, *variant, rate, all, input); }));
            };
            add("noise_reduction", false, Input::noise);
            add("noise_reduction/silence", false, Input::silence);
            add("noise_reduction/tail", false, Input::tail);
            add("whole_path", true, Input::noise);
            add("whole_path/silence", true, Input::silence);
            add("whole_path/tail", true, Input::tail);
            stages(name, *variant, rate);
        }
    }
    return true;
}();

} // namespace
} // namespace quorel::bench
