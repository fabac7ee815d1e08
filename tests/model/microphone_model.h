// SPDX-License-Identifier: MIT
// MicrophoneModel is the whole capture path in double precision, written from its definition.
//
// interleaved input -> noise reduction -> curve -> pre-gain -> gate -> inverse gain -> output
//
// Noise reduction works in frames of 5 ms: windowed and folded into a transform, measured in 16
// bands, one gain per band, back through the transform and a second window. The trackers that
// steer the gains are single-precision recursions by definition and stay so here, in the order
// of their steps: they branch on comparisons, and their slowest coefficients (7.6e-6) are so
// small that the rounding of a float decides how far they move. Spectra, gains, filters and
// signals are in double precision.

#pragma once

#include <array>
#include <complex>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "tests/model/parts.h"
#include "tests/model/settings.h"

namespace quorel::model {

struct MicrophoneWindows {
    std::vector<float> analysis;
    std::vector<float> synthesis;
};

// ---------------------------------------------------------------------------

// A comparison of two single-precision quantities that decides which way a tracker goes. Where
// its two sides are as close as the path's own rounding, either way is right, and the two ways
// lie some percent apart: `MicrophoneFollower` tells which one a path took.
struct Decision {
    enum class Kind {
        FloorAbove,   // the floor stands above the smoothed magnitude
        Steady,       // the magnitude is not clearly above its smoothed value
        ClearlyAbove, // the envelope is clearly above the estimate
        ClearlyBelow  // the envelope is clearly below the estimate
    };
    enum class Tracker { Noise, Signal, Level };

    Tracker tracker;
    Kind kind;
    std::size_t channel;
    std::size_t band;
    std::uint64_t frame; // frames of this tracker before this one
    double distance;     // of the two sides
    double doubt;        // what it is to be measured by, see below
    bool holds;          // the model's own answer
};

// Is asked about every comparison whose sides lie less than `margin` times its doubt apart, and
// gives the answer that counts. None is asked as long as there is none.
//
// The doubt of a comparison is the larger side plus the band's share of the whole spectrum: a
// single-precision transform spreads its rounding over all bins alike, so a quiet band beside a
// loud one is less certain than its own size tells.
struct Referee {
    double margin = 0.0;
    std::function<bool(const Decision&)> decide;
};

// The share of the spectrum's rounding that stays in a band, in units of rounding: the root mean
// square of all bins, over the square root of the band's width. It fades with the trackers'
// memory of a frame: an envelope keeps three quarters of it from frame to frame, a smoothed
// magnitude takes 6 percent of it and keeps 94.
class BandDoubt {
public:
    explicit BandDoubt(const std::vector<std::size_t>& widths);

    const std::vector<double>& process(const Spectrum& spectrum);

private:
    std::vector<std::size_t> widths;
    std::vector<double> inEnvelope;
    std::vector<double> inSmoothed;
    std::vector<double> larger;
};

// The noise floor of one channel's bands.
class FloorTracker {
public:
    static constexpr std::size_t bandCount = 16;

    explicit FloorTracker(std::size_t channel);

    // One frame of magnitudes to the floors behind it.
    const std::vector<float>& process(const std::vector<float>& magnitude, const std::vector<double>& doubt,
                                      const Referee& referee);

    // Everything that it holds, one value after the other.
    std::vector<double> state() const;

private:
    std::size_t channel;
    std::uint64_t frame = 0;
    std::vector<float> smoothed;
    std::vector<float> bottom;
    std::vector<float> fallFactor; // in use
    std::vector<float> nextFall;   // comes into use with the next steady frame
};

// What a level tracker's rates are; all bands of an instance have the same ones.
struct LevelRates {
    float floor;       // lowest magnitude that counts
    float rise;        // of the envelope, where the magnitude lies above it
    float fall;        // elsewhere
    float highRatio;   // clearly above where envelope * highRatio >= estimate
    float lowRatio;    // clearly below where estimate * lowRatio > envelope
    float catchUpRate; // of the estimate, where the envelope is clearly above
    float dropRate;    // where it is clearly below
    float holdRate;    // elsewhere
};

LevelRates signalRates();
LevelRates meterRates(std::uint32_t sampleRate);

// The signal level of one channel's bands.
class LevelTracker {
public:
    LevelTracker(Decision::Tracker name, std::size_t channel, std::size_t bandCount, const LevelRates& rates);

    // One frame of magnitudes to the estimates behind it.
    const std::vector<float>& process(const std::vector<float>& magnitude, const std::vector<double>& doubt,
                                      const Referee& referee);

    std::vector<double> state() const;

private:
    Decision::Tracker name;
    std::size_t channel;
    std::uint64_t frame = 0;
    LevelRates rates;
    std::vector<float> envelope;
    std::vector<float> estimate;
};

// What a band's floor and level ask to be taken off its gain, before smoothing.
double suppressionTarget(double noise, double signal);

// The complex mean of each band's bins; 0 for a band without bins.
Spectrum bandMeans(const Spectrum& spectrum, const std::vector<std::size_t>& widths);

// Bins per band, from bin 0 to half the transform.
std::vector<std::size_t> gainBands(std::uint32_t sampleRate);
std::vector<std::size_t> meterBands(std::uint32_t sampleRate); // level meter

// ---------------------------------------------------------------------------

// One channel's way into the frequency domain and back, frame by frame.
class FilterBankModel {
public:
    FilterBankModel(std::size_t fftLength, std::size_t hop, const MicrophoneWindows& windows);

    // A hop of samples to the spectrum of the frame that ends with them.
    Spectrum analyse(const Signal& samples);

    // A spectrum to the next hop of samples.
    Signal synthesise(const Spectrum& spectrum);

private:
    std::size_t fftLength;
    std::size_t hop;
    MicrophoneWindows windows;
    Fourier fourier;
    Signal history; // newest sample first
    Signal overlap; // sum of earlier frames, the next sample first
};

// The five sections of curve 0, 1 or 2.
std::vector<Section> microphoneCurve(std::uint32_t sampleRate, std::size_t index);

// The pre-gain of the gate for a settings value of 1 and above.
float gatePreGain(std::uint32_t noiseGate);

// The gate for a number of channels.
GainRider microphoneGate(std::size_t channels, std::uint32_t sampleRate);

class MicrophoneModel {
public:
    MicrophoneModel(std::size_t channels, std::size_t maxFrames, std::uint32_t sampleRate, const MicrophoneWindows& windows);

    // One block of n interleaved frames; returns as many. `outFrames` is the room in the output,
    // n if left out.
    Signal process(const RecordFields& fields, const float* in, std::size_t n, std::size_t outFrames);
    Signal process(const RecordFields& fields, const float* in, std::size_t n);

    // The nine band levels in dB, -60 to 0.
    const std::array<double, 9>& levels() const { return bandLevels; }

    bool curvePending() const { return pending; }

    // What all trackers and gains hold, one value after the other.
    std::vector<double> trackerState() const;

    // Close comparisons of the trackers are this one's from now on.
    Referee referee;

private:
    void apply();
    void selectCurve(std::size_t index);
    void reduceNoise(Rows& rows);
    void measureLevels();
    Rows equalize(const Rows& rows);

    std::size_t channels;
    std::size_t capacity; // maxFrames in whole rows of 16
    std::uint32_t sampleRate;
    std::size_t hop;

    RecordFields record{};
    bool applied = false;
    bool gateOn = true;
    bool eqOn = true;
    bool noiseReductionOn = false;
    bool levelsOn = false;
    std::size_t activeCurve = 0;
    bool pending = false;
    float gateGain = 1.0f;
    float gateGainInverse = 1.0f;

    std::vector<FilterBankModel> banks; // this and the following: one per channel
    std::vector<BandDoubt> bandDoubts;
    std::vector<BandDoubt> meterDoubts;
    std::vector<FloorTracker> noiseTrackers;
    std::vector<LevelTracker> signalTrackers;
    std::vector<LevelTracker> levelTrackers;
    std::vector<Signal> suppression;            // smoothed, one value per band
    std::vector<std::vector<float>> levelBands; // magnitudes of the last frame's meter bands
    std::vector<std::vector<double>> levelDoubts;
    std::vector<Cascade> curve;
    GainRider gate;
    std::array<double, 9> bandLevels;
};

} // namespace quorel::model
