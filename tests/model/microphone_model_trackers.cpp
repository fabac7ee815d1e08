// SPDX-License-Identifier: MIT
// The trackers of the capture model, its gain law and its bands.
#include "tests/model/microphone_model.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace quorel::model {

namespace {

// The answer to a > b or a >= b that counts, `holds` being the model's own one.
bool judge(const Referee& referee, Decision decision, double a, double b)
{
    decision.distance = std::fabs(a - b);
    decision.doubt += std::max(std::fabs(a), std::fabs(b));
    // Not so for a floor that has grown to infinity: there is no doubt about that one.
    if (referee.decide && decision.distance < referee.margin * decision.doubt)
        return referee.decide(decision);
    return decision.holds;
}

} // namespace

// ---------------------------------------------------------------------------

BandDoubt::BandDoubt(const std::vector<std::size_t>& widths)
    : widths(widths), inEnvelope(widths.size(), 0.0), inSmoothed(widths.size(), 0.0), larger(widths.size(), 0.0)
{
}

const std::vector<double>& BandDoubt::process(const Spectrum& spectrum)
{
    double energy = 0.0;
    for (const auto& bin : spectrum)
        energy += bin.real() * bin.real() + bin.imag() * bin.imag();
    const double mean = std::sqrt(energy / static_cast<double>(spectrum.size()));
    for (std::size_t b = 0; b < widths.size(); ++b) {
        const auto width = static_cast<double>(std::max<std::size_t>(widths[b], 1));
        const double share = mean / std::sqrt(width);
        const double entering = 0.06 * share;
        const double leftInEnvelope = 0.75 * inEnvelope[b];
        const double leftInSmoothed = 0.94 * inSmoothed[b];
        inEnvelope[b] = std::max(share, leftInEnvelope);
        inSmoothed[b] = std::max(entering, leftInSmoothed);
        larger[b] = std::max(inEnvelope[b], inSmoothed[b]);
    }
    return larger;
}

// ---------------------------------------------------------------------------

namespace {

constexpr float floorSmoothing = 0.0606000423f;
constexpr float onsetRatio = 0.700000048f;
constexpr float slowFall = 0.970000029f;
constexpr float floorEpsilon = 1.1920929e-7f;

float fastFallOf(std::size_t band)
{
    // Required: band 0 grows where the others fall, up to infinity.
    return band == 0 ? 9.60000038f : 0.960000038f;
}

struct FloorBand {
    float lowerLimit;
    float riseStep;
    float initialFloor;
};

constexpr std::array<FloorBand, FloorTracker::bandCount> floorBands{{
    {7.74860382e-06f, 0.00499999523f, 7.9870224e-06f},
    {7.74860382e-06f, 0.00499999523f, 1.57356262e-05f},
    {5.60283661e-06f, 0.00499999523f, 1.77621841e-05f},
    {5.00679016e-06f, 0.00499999523f, 1.14440918e-05f},
    {6.07967377e-06f, 0.00499999523f, 3.09944153e-06f},
    {6.07967377e-06f, 0.00499999523f, 2.62260437e-06f},
    {5.00679016e-06f, 0.00999999046f, 2.2649765e-06f},
    {5.60283661e-06f, 0.00899994373f, 1.66893005e-06f},
    {4.41074371e-06f, 0.00999999046f, 8.34465027e-07f},
    {4.41074371e-06f, 0.00999999046f, 5.96046448e-07f},
    {4.41074371e-06f, 0.00999999046f, 5.96046448e-07f},
    {3.93390656e-06f, 0.0199999809f, 4.76837158e-07f},
    {6.07967377e-06f, 0.0299999714f, 4.76837158e-07f},
    {7.74860382e-06f, 0.0499999523f, 4.76837158e-07f},
    {1.40666962e-05f, 0.100000024f, 4.76837158e-07f},
    {1.40666962e-05f, 0.100000024f, 2.38418579e-07f},
}};

} // namespace

FloorTracker::FloorTracker(std::size_t channel) : channel(channel), smoothed(bandCount, 0.0f), nextFall(bandCount, slowFall)
{
    for (std::size_t b = 0; b < bandCount; ++b) {
        bottom.push_back(floorBands[b].initialFloor);
        fallFactor.push_back(fastFallOf(b));
    }
}

const std::vector<float>& FloorTracker::process(const std::vector<float>& magnitude, const std::vector<double>& doubt,
                                                const Referee& referee)
{
    for (std::size_t b = 0; b < bandCount; ++b) {
        const float p = magnitude[b];
        float step = p - smoothed[b];
        step = step * floorSmoothing;
        smoothed[b] = smoothed[b] + step;
        const float x = smoothed[b];

        float& T = bottom[b];
        float down = T * fallFactor[b];
        down = down - floorEpsilon;
        float up = T * floorBands[b].riseStep;
        up = T + up;
        const float upMin = T + floorEpsilon;
        const float limit = onsetRatio * p;

        const auto asks = [&](Decision::Kind kind, float larger, float smaller) {
            return judge(referee, {Decision::Tracker::Noise, kind, channel, b, frame, 0.0, doubt[b], larger > smaller}, larger,
                         smaller);
        };
        if (asks(Decision::Kind::FloorAbove, T, x)) {
            T = down > floorBands[b].lowerLimit ? down : floorBands[b].lowerLimit;
            nextFall[b] = slowFall;
        } else if (asks(Decision::Kind::Steady, x, limit)) {
            T = up > upMin ? up : upMin;
            fallFactor[b] = nextFall[b];
        } else {
            nextFall[b] = fastFallOf(b);
        }
    }
    ++frame;
    return bottom;
}

std::vector<double> FloorTracker::state() const
{
    std::vector<double> values;
    for (const auto& row : {smoothed, bottom, fallFactor, nextFall})
        values.insert(values.end(), row.begin(), row.end());
    return values;
}

// ---------------------------------------------------------------------------

LevelRates signalRates()
{
    return {1.1920929e-06f, 1.0f, 0.25f, 0.9f, 0.7f, 0.5f, 0.125f, 7.62939453e-06f};
}

LevelRates meterRates(std::uint32_t sampleRate)
{
    if (sampleRate == 16000)
        return signalRates();
    return {1.1920929e-06f, std::min(1.0f, 3.0000002f), 0.75000006f, 0.9f,
            0.7f,           std::min(1.0f, 1.5000001f), 0.37500003f, 2.28881854e-05f};
}

LevelTracker::LevelTracker(Decision::Tracker name, std::size_t channel, std::size_t bandCount, const LevelRates& rates)
    : name(name), channel(channel), rates(rates), envelope(bandCount, 0.0f), estimate(bandCount, 0.0f)
{
}

const std::vector<float>& LevelTracker::process(const std::vector<float>& magnitude, const std::vector<double>& doubt,
                                                const Referee& referee)
{
    for (std::size_t b = 0; b < envelope.size(); ++b) {
        float& E = envelope[b];
        float& O = estimate[b];

        const float m = magnitude[b] > rates.floor ? magnitude[b] : rates.floor;
        float step = m - E;
        step = step * (m > E ? rates.rise : rates.fall);
        E = E + step;

        const float high = E * rates.highRatio;
        const float low = O * rates.lowRatio;
        const auto asks = [&](Decision::Kind kind, float larger, float smaller, bool holds) {
            return judge(referee, {name, kind, channel, b, frame, 0.0, doubt[b], holds}, larger, smaller);
        };
        float rate = rates.holdRate;
        if (asks(Decision::Kind::ClearlyAbove, high, O, high >= O))
            rate = rates.catchUpRate;
        if (asks(Decision::Kind::ClearlyBelow, low, E, low > E))
            rate = rates.dropRate;

        step = E - O;
        step = step * rate;
        O = O + step;
    }
    ++frame;
    return estimate;
}

std::vector<double> LevelTracker::state() const
{
    std::vector<double> values(envelope.begin(), envelope.end());
    values.insert(values.end(), estimate.begin(), estimate.end());
    return values;
}

double suppressionTarget(double noise, double signal)
{
    const double epsilon = 1.1920929e-7f;
    const double maxSuppression = 0.683772206f;
    const double offset = -0.3f;
    const double level = signal < epsilon ? epsilon : signal;
    const double sum = noise * 1.0 + noise * 2.0 / level + offset;
    const double target = sum < maxSuppression ? sum : maxSuppression;
    return target < 0.0 ? 0.0 : target;
}

Spectrum bandMeans(const Spectrum& spectrum, const std::vector<std::size_t>& widths)
{
    Spectrum means;
    std::size_t bin = 0;
    for (const std::size_t width : widths) {
        double re = 0.0;
        double im = 0.0;
        for (std::size_t k = 0; k < width; ++k, ++bin) {
            re += spectrum[bin].real();
            im += spectrum[bin].imag();
        }
        const double scale = width == 0 ? 0.0 : static_cast<float>(1.0 / static_cast<double>(width));
        means.emplace_back(re * scale, im * scale);
    }
    return means;
}

std::vector<std::size_t> gainBands(std::uint32_t sampleRate)
{
    if (sampleRate == 16000)
        return {2, 2, 2, 2, 4, 4, 4, 4, 8, 8, 8, 16, 32, 32, 64, 64};
    return {2, 1, 1, 2, 2, 3, 2, 3, 6, 5, 5, 11, 21, 21, 43, 384};
}

std::vector<std::size_t> meterBands(std::uint32_t sampleRate)
{
    if (sampleRate == 16000)
        return {2, 1, 3, 5, 11, 21, 43, 85, 85, 0};
    return {2, 1, 1, 4, 7, 14, 28, 57, 115, 283};
}

} // namespace quorel::model
