// SPDX-License-Identifier: MIT
#include "tests/model/microphone_model.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

namespace quorel::model {

namespace {

constexpr std::size_t gainBandCount = FloorTracker::bandCount;
constexpr std::size_t meterBandCount = 10;

std::size_t fftLengthOf(std::uint32_t sampleRate)
{
    if (sampleRate != 16000 && sampleRate != 48000)
        throw Failure(Failure::Kind::RuntimeError, "Unknown sampleRate in MicEqualizer");
    return sampleRate == 16000 ? 512 : 1024;
}

std::vector<float> magnitudes(const Spectrum& values)
{
    std::vector<float> m;
    for (const auto& value : values)
        m.push_back(static_cast<float>(std::sqrt(value.real() * value.real() + value.imag() * value.imag())));
    return m;
}

} // namespace

// ---------------------------------------------------------------------------

FilterBankModel::FilterBankModel(std::size_t fftLength, std::size_t hop, const MicrophoneWindows& windows)
    : fftLength(fftLength),
      hop(hop),
      windows(windows),
      fourier(fftLength),
      history(windows.analysis.size(), 0.0),
      overlap(windows.synthesis.size(), 0.0)
{
}

Spectrum FilterBankModel::analyse(const Signal& samples)
{
    history.insert(history.begin(), samples.rbegin(), samples.rend());
    history.resize(windows.analysis.size());

    // The window's centre falls on index 0 of the transform, and what lies beyond its length is
    // folded back into it. Time runs backwards in the history, so the inverse kernel gives the
    // forward spectrum.
    const std::size_t centre = (history.size() - 1) / 2;
    Spectrum frame(fftLength);
    for (std::size_t k = 0; k < history.size(); ++k)
        frame[(fftLength + k - centre) % fftLength] += double{windows.analysis[k]} * history[k];
    fourier.transform(frame);
    return frame;
}

Signal FilterBankModel::synthesise(const Spectrum& spectrum)
{
    Spectrum frame = spectrum;
    fourier.transform(frame);

    // The frame repeats with the transform's length; the window is laid with its centre on a
    // multiple of it.
    const std::size_t centre = overlap.size() / 2;
    for (std::size_t k = 0; k < overlap.size(); ++k)
        overlap[k] += double{windows.synthesis[k]} * frame[(fftLength + k - centre) % fftLength].real();

    const auto border = overlap.begin() + static_cast<std::ptrdiff_t>(hop);
    const Signal samples(overlap.begin(), border);
    overlap.erase(overlap.begin(), border);
    overlap.resize(windows.synthesis.size(), 0.0);
    return samples;
}

// ---------------------------------------------------------------------------

namespace {

struct CurveTaps {
    float b0, b1, b2, a1, a2; // a0 is 1
};

constexpr CurveTaps flat{1, 0, 0, 0, 0};

constexpr std::array<CurveTaps, 5> curve1At16000{{
    {0.62421602f, -1.1084957f, 0.48482689f, -1.971215f, 0.97218823f},
    {1.7127146f, 0.87035537f, -0.54015291f, 0.87035537f, 0.17256166f},
    flat,
    flat,
    flat,
}};
constexpr std::array<CurveTaps, 5> curve1At48000{{
    {0.58315772f, -1.1193596f, 0.53626329f, -1.9905342f, 0.99064332f},
    {1.4479772f, -1.0284984f, 0.031935934f, -1.0284984f, 0.47991312f},
    flat,
    flat,
    flat,
}};
constexpr std::array<CurveTaps, 5> curve2At16000{{
    {0.97000229f, -1.9242152f, 0.95504779f, -1.9242152f, 0.92505008f},
    {0.98183644f, -1.9566953f, 0.97499466f, -1.9566953f, 0.9568311f},
    {0.98937529f, -1.9519541f, 0.96802479f, -1.9519541f, 0.95740008f},
    {1.012169f, -1.9275502f, 0.92883539f, -1.9275502f, 0.94100434f},
    {1.0929618f, -0.47876537f, 0.45635545f, -0.47876537f, 0.54931724f},
}};
constexpr std::array<CurveTaps, 5> curve2At48000{{
    {0.9897452f, -1.974283f, 0.98463297f, -1.974283f, 0.97437817f},
    {0.99385715f, -1.9853852f, 0.99154329f, -1.9853852f, 0.98540044f},
    {0.99640888f, -1.9849873f, 0.98919249f, -1.9849873f, 0.98560137f},
    {1.0041335f, -1.9784342f, 0.97582728f, -1.9784342f, 0.97996074f},
    {1.0323546f, -1.6837952f, 0.81078863f, -1.6837952f, 0.8431433f},
}};

} // namespace

std::vector<Section> microphoneCurve(std::uint32_t sampleRate, std::size_t index)
{
    std::array<CurveTaps, 5> taps{{flat, flat, flat, flat, flat}};
    if (index == 1)
        taps = sampleRate == 16000 ? curve1At16000 : curve1At48000;
    if (index == 2)
        taps = sampleRate == 16000 ? curve2At16000 : curve2At48000;

    std::vector<Section> sections;
    for (const CurveTaps& t : taps)
        sections.push_back({t.b0, t.b1, t.b2, 1.0, t.a1, t.a2});
    return sections;
}

float gatePreGain(std::uint32_t noiseGate)
{
    const double index = std::min<std::uint32_t>(noiseGate, 255);
    return static_cast<float>(std::pow(10.0, (128.0 - index) / 127.0));
}

GainRider microphoneGate(std::size_t channels, std::uint32_t sampleRate)
{
    const bool slow = sampleRate == 16000;
    return GainRider(channels, slow ? 0.0206178185f : 0.00692038750f, // 3 ms
                     slow ? 0.0000520819776f : 0.0000173609606f,      // 1.2 s
                     {{0.0316227749f, 0.00316227763f}, {0.0630957335f, 1.0f}});
}

// ---------------------------------------------------------------------------

MicrophoneModel::MicrophoneModel(std::size_t channels, std::size_t maxFrames, std::uint32_t sampleRate,
                                 const MicrophoneWindows& windows)
    : channels(channels),
      capacity(roundUpTo16(maxFrames)),
      sampleRate(sampleRate),
      hop(sampleRate / 200),
      suppression(channels, Signal(gainBandCount, 1.0)),
      levelBands(channels, std::vector<float>(meterBandCount, 0.0f)),
      levelDoubts(channels, std::vector<double>(meterBandCount, 0.0)),
      curve(channels),
      gate(microphoneGate(channels, sampleRate))
{
    for (std::size_t c = 0; c < channels; ++c) {
        banks.emplace_back(fftLengthOf(sampleRate), hop, windows);
        bandDoubts.emplace_back(gainBands(sampleRate));
        meterDoubts.emplace_back(meterBands(sampleRate));
        noiseTrackers.emplace_back(c);
        signalTrackers.emplace_back(Decision::Tracker::Signal, c, gainBandCount, signalRates());
        levelTrackers.emplace_back(Decision::Tracker::Level, c, meterBandCount, meterRates(sampleRate));
    }
    selectCurve(0);
    bandLevels.fill(-60.0);
}

Signal MicrophoneModel::process(const RecordFields& fields, const float* in, std::size_t n)
{
    return process(fields, in, n, n);
}

Signal MicrophoneModel::process(const RecordFields& fields, const float* in, std::size_t n, std::size_t outFrames)
{
    if (fields.newRecord) {
        record = fields;
        applied = false;
    }
    if (!applied) {
        apply();
        applied = true;
    }

    if (n > capacity)
        refuse("PassThrough: out buffer too small");
    Rows rows(channels, Signal(n));
    for (std::size_t i = 0; i < n; ++i)
        for (std::size_t c = 0; c < channels; ++c)
            rows[c][i] = in[i * channels + c];

    // Required: a block that is not a whole number of hops passes untouched, and nothing of the
    // noise reduction or the meter moves.
    if (n % hop == 0) {
        reduceNoise(rows);
        if (levelsOn)
            measureLevels();
    }

    // The meter has run by the time that an empty block fails.
    if (n == 0)
        refuseStatus("ippStsSizeErr");

    if (eqOn)
        rows = equalize(rows);

    if (gateOn) {
        for (Signal& row : rows)
            row = scaled(row, gateGain);
        rows = gate.process(rows);
        for (Signal& row : rows)
            row = scaled(row, gateGainInverse);
    }

    if (n > outFrames)
        refuse("PassThrough: out buffer too small");
    Signal out(n * channels);
    for (std::size_t i = 0; i < n; ++i)
        for (std::size_t c = 0; c < channels; ++c)
            out[i * channels + c] = rows[c][i];
    return out;
}

void MicrophoneModel::apply()
{
    gateOn = record.noiseGate != 0;
    if (gateOn) {
        gateGain = gatePreGain(record.noiseGate);
        gateGainInverse = 1.0f / gateGain;
    }

    // Refused again at every block until the next record; the gate has changed by then.
    if (record.micEq > 2)
        refuse("MicrophonePath: EQ select index is out of bounds");
    eqOn = record.micEq != 0;
    if (eqOn) {
        // Required: any record restarts the filters, also when the curve stays.
        selectCurve(record.micEq);
        if (activeCurve != record.micEq) {
            activeCurve = record.micEq;
            pending = true;
        }
    }

    noiseReductionOn = record.MicNR != 0;
    levelsOn = record.levelsEnabled != 0;
}

void MicrophoneModel::selectCurve(std::size_t index)
{
    for (Cascade& cascade : curve)
        cascade.design(microphoneCurve(sampleRate, index));
}

void MicrophoneModel::reduceNoise(Rows& rows)
{
    const std::vector<std::size_t> widths = gainBands(sampleRate);
    const double smoothing = 0.117503099f; // 1 - exp(-1/8), 40 ms

    const std::size_t frameCount = rows[0].size() / hop;
    for (std::size_t f = 0; f < frameCount; ++f)
        for (std::size_t c = 0; c < channels; ++c) {
            const auto first = rows[c].begin() + static_cast<std::ptrdiff_t>(f * hop);
            Spectrum spectrum = banks[c].analyse(Signal(first, first + static_cast<std::ptrdiff_t>(hop)));
            levelBands[c] = magnitudes(bandMeans(spectrum, meterBands(sampleRate)));
            levelDoubts[c] = meterDoubts[c].process(spectrum);

            const std::vector<float> bands = magnitudes(bandMeans(spectrum, widths));
            const std::vector<double>& doubt = bandDoubts[c].process(spectrum);
            const std::vector<float>& noise = noiseTrackers[c].process(bands, doubt, referee);
            const std::vector<float>& signal = signalTrackers[c].process(bands, doubt, referee);

            // One real gain per band, the same for the bin's mirror image; the bin at half the
            // rate is always cut.
            std::size_t bin = 0;
            for (std::size_t b = 0; b < gainBandCount; ++b) {
                double& held = suppression[c][b];
                held += smoothing * (suppressionTarget(noise[b], signal[b]) - held);
                for (std::size_t k = 0; k < widths[b]; ++k, ++bin) {
                    spectrum[bin] *= 1.0 - held;
                    if (bin > 0)
                        spectrum[spectrum.size() - bin] *= 1.0 - held;
                }
            }
            spectrum[bin] = 0.0;

            const Signal cleaned = banks[c].synthesise(spectrum);
            if (noiseReductionOn)
                std::copy(cleaned.begin(), cleaned.end(), first);
        }
}

void MicrophoneModel::measureLevels()
{
    // Only the last frame of the block is measured. Band 0 is not reported.
    Signal sums(9, 0.0);
    for (std::size_t c = 0; c < channels; ++c) {
        const std::vector<float>& estimate = levelTrackers[c].process(levelBands[c], levelDoubts[c], referee);
        for (std::size_t k = 0; k < sums.size(); ++k)
            sums[k] += estimate[k + 1];
    }
    const double offset = 20.0 * std::log10(static_cast<double>(channels)) - 32.5;
    for (std::size_t k = 0; k < sums.size(); ++k)
        bandLevels[k] = std::clamp(20.0 * std::log10(sums[k]) - offset, -60.0, 0.0);
}

std::vector<double> MicrophoneModel::trackerState() const
{
    std::vector<double> values;
    const auto append = [&](const std::vector<double>& more) { values.insert(values.end(), more.begin(), more.end()); };
    for (std::size_t c = 0; c < channels; ++c) {
        append(noiseTrackers[c].state());
        append(signalTrackers[c].state());
        append(levelTrackers[c].state());
        append(suppression[c]);
    }
    return values;
}

Rows MicrophoneModel::equalize(const Rows& rows)
{
    Rows out(channels);
    for (std::size_t c = 0; c < channels; ++c)
        out[c] = curve[c].process(rows[c]);
    if (!pending)
        return out;

    pending = false;
    selectCurve(activeCurve);
    const Ramps ramps(rows[0].size());
    for (std::size_t c = 0; c < channels; ++c)
        out[c] = crossfade(out[c], curve[c].process(rows[c]), ramps);
    return out;
}

} // namespace quorel::model
