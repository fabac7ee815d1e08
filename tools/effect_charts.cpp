// SPDX-License-Identifier: MIT
#include "tools/effect_charts.h"

#include "client/settings_fields.h"
#include "core/signal_path.h"
#include "microphone/microphone_tables.h"
#include "speaker/hrtf_tables.h"
#include "speaker/response_spectrum.h"
#include "speaker/speaker_tables.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <functional>
#include <limits>
#include <numbers>
#include <stdexcept>

namespace quorel {

namespace {

constexpr std::uint32_t renderRate = 48000; // frames per second
constexpr std::size_t renderBlock = 480;    // frames
constexpr double outputGain = 0.8;          // of the render effect
constexpr float click = 0.125F;             // far below the limiters
constexpr double least = 1e-12;             // power; below it nothing is shown

double db(double power)
{
    return 10 * std::log10(std::max(power, least));
}

double amplitude(double decibels)
{
    return std::pow(10, decibels / 20);
}

std::vector<double> range(double from, double to, double step)
{
    std::vector<double> values;
    for (int i = 0; from + i * step <= to + step / 2; ++i)
        values.push_back(from + i * step);
    return values;
}

// `points` frequencies, as far apart as their logarithms.
std::vector<double> frequencies(double from, double to, std::size_t points)
{
    std::vector<double> values(points);
    for (std::size_t i = 0; i < points; ++i)
        values[i] = from * std::pow(to / from, static_cast<double>(i) / static_cast<double>(points - 1));
    return values;
}

// A render path past the fades of its first blocks.
class Renderer {
public:
    Renderer(std::size_t channels, std::uint32_t mask, const SettingsRecord& settings)
        : channels(channels),
          path(SignalPath::Speaker{}, static_cast<int>(channels), mask, renderBlock, renderRate),
          in(renderBlock * channels),
          out(renderBlock * 8)
    {
        *path->settings() = settings;
        for (int b = 0; b < 3; ++b)
            run(0, [](std::size_t) { return 0.0F; });
    }

    // A block of x(i) on one channel; what comes out in frames of eight slots.
    const std::vector<float>& run(std::size_t channel, const std::function<float(std::size_t)>& x)
    {
        for (std::size_t i = 0; i < renderBlock; ++i)
            in[i * channels + channel] = x(i);
        path->process(in.data(), renderBlock, out.data(), renderBlock);
        return out;
    }

    // What both ears hear of a click on one channel, without the output gain.
    std::array<std::vector<double>, 2> response(std::size_t channel, std::size_t blocks)
    {
        std::array<std::vector<double>, 2> ears;
        for (std::size_t b = 0; b < blocks; ++b) {
            run(channel, [b](std::size_t i) { return b == 0 && i == 0 ? click : 0.0F; });
            for (std::size_t i = 0; i < renderBlock; ++i)
                for (std::size_t ear = 0; ear < 2; ++ear)
                    ears[ear].push_back(static_cast<double>(out[8 * i + ear]) / (outputGain * static_cast<double>(click)));
        }
        return ears;
    }

private:
    std::size_t channels;
    SignalPath path;
    std::vector<float> in;
    std::vector<float> out;
};

double powerAt(const std::vector<double>& response, double frequency, double rate)
{
    const auto turn = std::polar(1.0, -2 * std::numbers::pi * frequency / rate);
    std::complex<double> sum;
    std::complex<double> place = 1;
    for (const double value : response) {
        sum += value * place;
        place *= turn;
    }
    return std::norm(sum);
}

// Two sections in a row of unity gain at `centre`, each an octave wide.
std::vector<double> octave(std::vector<double> x, double centre)
{
    const double angle = 2 * std::numbers::pi * centre / renderRate;
    const double alpha = std::sin(angle) / (2 * std::numbers::sqrt2);
    for (int section = 0; section < 2; ++section) {
        double x1 = 0;
        double x2 = 0;
        double y1 = 0;
        double y2 = 0;
        for (double& value : x) {
            const double y = (alpha * (value - x2) + 2 * std::cos(angle) * y1 - (1 - alpha) * y2) / (1 + alpha);
            x2 = x1;
            x1 = value;
            y2 = y1;
            y1 = value = y;
        }
    }
    return x;
}

// A capture path of one channel that is fed with steady levels.
class Gate {
public:
    explicit Gate(const SettingsRecord& settings) : path(SignalPath::Microphone{}, 1, 0, renderBlock, renderRate)
    {
        path->settings()->noiseGate = settings.noiseGate;
    }

    // The gain in dB at the end of so many blocks at this level.
    double run(double level, int blocks)
    {
        std::vector<float> in(renderBlock, static_cast<float>(level));
        std::vector<float> out(renderBlock);
        for (int b = 0; b < blocks; ++b)
            path->process(in.data(), renderBlock, out.data(), renderBlock);
        const double ratio = static_cast<double>(out.back()) / level;
        return db(ratio * ratio);
    }

private:
    SignalPath path;
};

// Power in third octaves over time.
struct Spectrogram {
    std::vector<double> times;               // s
    std::vector<double> centres;             // Hz
    std::vector<std::vector<double>> powers; // of each third octave, over the times
};

Spectrogram spectrogram(std::span<const float> sound, std::uint32_t rate)
{
    constexpr std::size_t length = 1024; // frames of a transform, every second of which is none of its neighbour's
    constexpr std::size_t mostColumns = 400;
    const std::size_t hops = sound.size() < length ? 0 : (sound.size() - length) / (length / 2) + 1;
    const std::size_t together = std::max<std::size_t>(1, (hops + mostColumns - 1) / mostColumns);
    const double bin = static_cast<double>(rate) / length;

    Spectrogram shown;
    for (double centre = 100; centre * std::exp2(1 / 6.0) < 0.49 * rate; centre *= std::exp2(1 / 3.0))
        shown.centres.push_back(centre);
    shown.powers.resize(shown.centres.size());
    for (std::size_t first = 0; first + together <= hops; first += together) {
        std::vector<double> sums(shown.centres.size());
        for (std::size_t hop = first; hop < first + together; ++hop) {
            std::vector<float> windowed(length);
            for (std::size_t i = 0; i < length; ++i)
                windowed[i] = sound[hop * length / 2 + i] *
                              static_cast<float>(0.5 - 0.5 * std::cos(2 * std::numbers::pi * static_cast<double>(i) / length));
            std::vector<float> packed;
            appendSpectrum(packed, windowed);
            for (std::size_t band = 0; band < sums.size(); ++band) {
                const auto from = static_cast<std::size_t>(std::lround(shown.centres[band] * std::exp2(-1 / 6.0) / bin));
                const auto to = static_cast<std::size_t>(std::lround(shown.centres[band] * std::exp2(1 / 6.0) / bin));
                for (std::size_t k = from; k < std::max(to, from + 1); ++k)
                    sums[band] +=
                        std::pow(static_cast<double>(packed[2 * k - 1]), 2) + std::pow(static_cast<double>(packed[2 * k]), 2);
            }
        }
        shown.times.push_back((static_cast<double>(first) + static_cast<double>(together) / 2) * (length / 2.0) / rate);
        // By Parseval a sine of full scale behind a Hann window has 3/32 N^2 in the bins of this half: 0 dB.
        for (std::size_t band = 0; band < sums.size(); ++band)
            shown.powers[band].push_back(sums[band] / static_cast<double>(together) / (3.0 / 32 * length * length));
    }
    return shown;
}

std::vector<double> marksOfTime(double to)
{
    double step = 0.1;
    while (to / step > 10)
        step *= step == 0.2 || step == 2 || step == 20 || step == 200 ? 2.5 : 2;
    return range(0, to, step);
}

} // namespace

Chart equalizerChart(const SettingsRecord& settings)
{
    SettingsRecord record;
    record.EQBand = settings.EQBand;
    const auto response = Renderer(2, 0x3, record).response(0, 60)[0];
    Chart chart{"Equaliser",
                frequencyAxis(20, 20000),
                {"dB", -15, 15, false, range(-15, 15, 5)},
                frequencies(20, 20000, 241),
                {{"gain", {}}},
                {},
                0,
                1};
    for (const double frequency : chart.places)
        chart.series[0].values.push_back(db(powerAt(response, frequency, renderRate)));
    return chart;
}

std::vector<Chart> limiterCharts()
{
    Chart chart{"Level behind the limiters",
                {"dB in", -20, 40, false, range(-20, 40, 10)},
                {"dB out", -25, 5, false, range(-25, 5, 5)},
                range(-20, 40, 1),
                {{"level", {}}},
                {},
                0,
                1};
    constexpr int settling = 300; // blocks, until the envelopes have forgotten the first crest, which goes through whole
    for (const double level : chart.places) {
        Renderer path(2, 0x3, {});
        double most = 0;
        for (int b = 0; b < settling + 10; ++b) {
            const auto& out = path.run(0, [level](std::size_t i) { // ten waves to a block
                return static_cast<float>(amplitude(level) * std::sin(2 * std::numbers::pi * static_cast<double>(i) / 48));
            });
            for (std::size_t i = 0; b >= settling && i < renderBlock; ++i)
                most = std::max(most, std::abs(static_cast<double>(out[8 * i])));
        }
        chart.series[0].values.push_back(db(most * most));
    }

    Chart rising{"A sine of 1 kHz that rises to +12 dB at 10 ms",
                 {"ms", 0, 30, false, range(0, 30, 5)},
                 {"", -4, 4, false, range(-4, 4, 1)},
                 range(0, 30 - 1.0 / 48, 1.0 / 48),
                 {{"in", {}}, {"out", {}}},
                 {},
                 0,
                 1};
    Renderer path(2, 0x3, {});
    for (std::size_t b = 0; b < rising.places.size() / renderBlock; ++b) {
        const double peak = amplitude(b == 0 ? -12 : 12);
        const auto sine = [peak](std::size_t i) { return peak * std::sin(2 * std::numbers::pi * static_cast<double>(i) / 48); };
        const auto& out = path.run(0, [&](std::size_t i) { return static_cast<float>(sine(i)); });
        for (std::size_t i = 0; i < renderBlock; ++i) {
            rising.series[0].values.push_back(sine(i));
            rising.series[1].values.push_back(static_cast<double>(out[8 * i]));
        }
    }
    return {chart, rising};
}

Chart roomChart(const SettingsRecord& settings)
{
    if (settings.Reverb == 0)
        throw std::runtime_error("there is no room while Reverb is 0; --Reverb 170 is one at 0 dB");
    constexpr std::size_t speakers = 8;
    constexpr std::size_t blocks = 100; // a second
    constexpr std::array<double, 9> octaves = {63, 125, 250, 500, 1000, 2000, 4000, 8000, 16000};
    SettingsRecord dry;
    dry.Settings = 1;
    SettingsRecord wet = dry;
    wet.Reverb = settings.Reverb;

    std::array<std::vector<double>, octaves.size()> powers;
    powers.fill(std::vector<double>(blocks * renderBlock));
    for (std::size_t speaker = 0; speaker < speakers; ++speaker) {
        auto room = Renderer(speakers, everySpeaker, wet).response(speaker, blocks);
        const auto direct = Renderer(speakers, everySpeaker, dry).response(speaker, blocks);
        for (std::size_t ear = 0; ear < 2; ++ear) {
            for (std::size_t i = 0; i < room[ear].size(); ++i)
                room[ear][i] -= direct[ear][i];
            for (std::size_t band = 0; band < octaves.size(); ++band) {
                const auto filtered = octave(room[ear], octaves.at(band));
                for (std::size_t i = 0; i < filtered.size(); ++i)
                    powers.at(band)[i] += filtered[i] * filtered[i];
            }
        }
    }
    Chart chart{"Room: energy still to come",
                {"s", 0, 0.8, false, range(0, 0.8, 0.1)},
                {"dB", -60, 20, false, range(-60, 20, 10)},
                range(0, 0.8, 0.01),
                {},
                {},
                0,
                1};
    for (std::size_t band = 0; band < octaves.size(); ++band) {
        auto& energy = powers.at(band);
        for (std::size_t i = energy.size() - 1; i-- > 0;)
            energy[i] += energy[i + 1];
        Series series{std::to_string(static_cast<int>(octaves.at(band))) + " Hz", {}};
        for (const double time : chart.places)
            series.values.push_back(db(energy[static_cast<std::size_t>(std::lround(time * renderRate))]));
        chart.series.push_back(series);
    }
    // The scale's top is the strongest octave's energy, rounded up.
    double most = chart.series[0].values[0];
    for (const Series& series : chart.series)
        most = std::max(most, series.values[0]);
    chart.up.to = 10 * std::ceil(most / 10);
    chart.up.from = chart.up.to - 80;
    chart.up.marks = range(chart.up.from, chart.up.to, 10);
    return chart;
}

Chart curvesChart()
{
    Chart chart{"The microphone's curves",
                frequencyAxis(20, 20000),
                {"dB", -25, 20, false, range(-20, 20, 10)},
                frequencies(20, 20000, 241),
                {},
                {},
                0,
                1};
    for (const std::uint32_t rate : {48000U, 16000U})
        for (const std::uint32_t curve : {1U, 2U}) {
            const std::size_t block = rate / 100;
            SignalPath path(SignalPath::Microphone{}, 1, 0, static_cast<std::uint32_t>(block), rate);
            path->settings()->micEq = curve;
            std::vector<float> in(block);
            std::vector<float> out(block);
            std::vector<double> response;
            for (int b = -1; b < 100; ++b) { // a second, behind the block in which the curve is selected
                in[0] = b == 0 ? 1.0F : 0.0F;
                path->process(in.data(), block, out.data(), block);
                if (b >= 0)
                    response.insert(response.end(), out.begin(), out.end());
            }
            Series series{"curve " + std::to_string(curve) + " at " + std::to_string(rate), {}};
            for (const double frequency : chart.places)
                series.values.push_back(frequency < 0.49 * rate ? db(powerAt(response, frequency, rate))
                                                                : std::numeric_limits<double>::quiet_NaN());
            chart.series.push_back(series);
        }
    return chart;
}

std::vector<Chart> gateCharts(const SettingsRecord& settings)
{
    if (settings.noiseGate == 0)
        throw std::runtime_error("there is no gate while noiseGate is 0; --noiseGate -40dB is one that is open from there on");
    Chart levels{"Gate: level out over level in",
                 {"dB in", -70, 0, false, range(-70, 0, 10)},
                 {"dB out", -120, 0, false, range(-120, 0, 20)},
                 range(-70, 0, 1),
                 {{"level", {}}},
                 {},
                 0,
                 1};
    for (const double level : levels.places)
        levels.series[0].values.push_back(level + Gate(settings).run(amplitude(level), 20));

    Chart shutting{"Gate: gain behind speech",
                   {"s", 0, 8, false, range(0, 8, 1)},
                   {"dB", -55, 5, false, range(-50, 0, 10)},
                   range(0, 8, 0.02),
                   {},
                   {},
                   0,
                   1};
    constexpr double quiet = 1e-5;
    for (const double speech : {0.0, -10.0, -20.0, -30.0}) {
        Gate gate(settings);
        if (gate.run(amplitude(speech), 30) < -0.1)
            continue; // it does not open
        Series series{"speech at " + std::to_string(static_cast<int>(speech)) + " dB", {}};
        for (std::size_t i = 0; i < shutting.places.size(); ++i)
            series.values.push_back(i == 0 ? 0.0 : gate.run(quiet, 2));
        shutting.series.push_back(series);
    }
    return {levels, shutting};
}

std::vector<Chart> noiseCharts(std::span<const float> sound, std::uint32_t rate)
{
    const std::size_t block = rate / 100;
    const std::size_t latency = microphoneRate(rate)->latency;
    SignalPath path(SignalPath::Microphone{}, 1, 0, static_cast<std::uint32_t>(block), rate);
    path->settings()->MicNR = 1;
    std::vector<float> cleaned;
    std::vector<float> in(block);
    std::vector<float> out(block);
    while (cleaned.size() < sound.size() + latency) {
        for (std::size_t i = 0; i < block; ++i)
            in[i] = cleaned.size() + i < sound.size() ? sound[cleaned.size() + i] : 0.0F;
        path->process(in.data(), block, out.data(), block);
        cleaned.insert(cleaned.end(), out.begin(), out.end());
    }
    const Spectrogram before = spectrogram(sound, rate);
    const Spectrogram after = spectrogram(std::span(cleaned).subspan(latency, sound.size()), rate);
    if (before.times.empty())
        throw std::runtime_error("the sound is too short to be drawn");

    const double seconds = static_cast<double>(sound.size()) / rate;
    const Chart empty{"",
                      {"s", 0, seconds, false, marksOfTime(seconds)},
                      frequencyAxis(before.centres.front() * std::exp2(-1 / 6.0), before.centres.back() * std::exp2(1 / 6.0)),
                      before.times,
                      {},
                      before.centres,
                      -90,
                      -10};
    std::vector<Chart> charts(3, empty);
    charts[0].title = "Level before, in third octaves";
    charts[1].title = "Level after noise reduction";
    charts[2].title = "Gain";
    charts[2].palest = 0;
    charts[2].darkest = -12;
    for (std::size_t band = 0; band < before.centres.size(); ++band) {
        const std::string name = std::to_string(std::lround(before.centres[band])) + " Hz";
        for (Chart& chart : charts)
            chart.series.push_back({name, {}});
        for (std::size_t i = 0; i < before.times.size(); ++i) {
            const double was = db(before.powers[band][i]);
            const double is = db(after.powers[band][i]);
            charts[0].series[band].values.push_back(was);
            charts[1].series[band].values.push_back(is);
            charts[2].series[band].values.push_back(is - was);
        }
    }
    return charts;
}

std::vector<Chart> responsesCharts(const FittedSet& set)
{
    std::vector<Chart> charts;
    constexpr double bin = static_cast<double>(hrtfRate) / spectrumFloats;
    constexpr std::size_t last = 426; // 20 kHz
    for (const bool spectra : {true, false})
        for (std::size_t ear = 0; ear < 2; ++ear) {
            const std::string name = ear == 0 ? "Left ear" : "Right ear";
            constexpr double length = 1000.0 * fittedTaps / hrtfRate; // ms
            Chart chart = spectra ? Chart{name + ": level",
                                          frequencyAxis(40, 20000),
                                          {"dB", -45, 12, false, range(-40, 10, 10)},
                                          range(bin, last * bin, bin),
                                          {},
                                          {},
                                          0,
                                          1}
                                  : Chart{name + ": taps",
                                          {"ms", 0, length, false, range(0, length, 1)},
                                          {"", -1.5, 1.5, false, range(-1.5, 1.5, 0.5)},
                                          {},
                                          {},
                                          {},
                                          0,
                                          1};
            for (std::size_t i = 0; !spectra && i < fittedTaps; ++i)
                chart.places.push_back(1000.0 * static_cast<double>(i) / hrtfRate);
            for (std::size_t row = 0; row < set.taps.size(); ++row) {
                const auto& response = set.taps.at(row).at(ear);
                Series series{speakerNames.at(row), {}};
                if (spectra) {
                    std::vector<float> packed;
                    appendSpectrum(packed, response);
                    for (std::size_t k = 1; k <= last; ++k)
                        series.values.push_back(db(std::pow(static_cast<double>(packed[2 * k - 1]), 2) +
                                                   std::pow(static_cast<double>(packed[2 * k]), 2)));
                } else {
                    series.values.assign(response.begin(), response.end());
                }
                chart.series.push_back(series);
            }
            charts.push_back(chart);
        }
    return charts;
}

FittedSet builtInSet()
{
    FittedSet set{};
    for (std::size_t row = 0; row < set.taps.size(); ++row)
        for (std::size_t ear = 0; ear < 2; ++ear) {
            const EarResponse& response = ear == 0 ? speakerResponses[row].left : speakerResponses[row].right;
            std::copy(response.taps.begin(), response.taps.end(), set.taps.at(row).at(ear).begin() + response.onset);
        }
    return set;
}

} // namespace quorel
