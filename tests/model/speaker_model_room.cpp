// SPDX-License-Identifier: MIT
// The equaliser, the limiter and the room of the render model.
#include "tests/model/speaker_model.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace quorel::model {

namespace {

// ---------------------------------------------------------------------------
// Constants of the equaliser

constexpr std::array<double, 9> centres{63, 125, 250, 500, 1000, 2000, 4000, 8000, 16000}; // Hz
constexpr double equalizerRate = 48000.0;
constexpr double equalizerQ = 0.95;
constexpr double shelfFactor = 1.5;

// As it is handed to the path, which uses it transposed.
constexpr double interaction[9][9] = {
    {1.12526229, -0.388185238, 0.0475613812, -0.00738471774, 0.000922272684, -0.000137198557, 1.73576469e-05, -2.29871307e-06,
     1.81745703e-07},
    {-0.388195758, 1.2591701, -0.404557335, 0.0500949358, -0.00769319817, 0.000965349991, -0.00014031799, 1.66853374e-05,
     -1.40366894e-06},
    {0.0475621426, -0.404599234, 1.26113057, -0.404721574, 0.0500743247, -0.00765863483, 0.000947729213, -0.000127725192,
     9.99985441e-06},
    {-0.00738612784, 0.0500984041, -0.404889264, 1.26097856, -0.404135165, 0.0498354894, -0.00749485544, 0.000868485557,
     -7.41906467e-05},
    {0.000922377628, -0.00769888079, 0.0500882942, -0.404806546, 1.26017595, -0.401759082, 0.048858562, -0.00680121525,
     0.000523035722},
    {-0.000137539091, 0.000965917557, -0.00768162695, 0.0498928615, -0.404454653, 1.25694194, -0.392159625, 0.044669166,
     -0.00390729033},
    {1.74240508e-05, -0.00014177593, 0.000950536478, -0.00759077136, 0.0491121509, -0.403101549, 1.24372598, -0.352206928,
     0.0267459359},
    {-2.41948452e-06, 1.71617434e-05, -0.000134935888, 0.000888870837, -0.00725673495, 0.0460944785, -0.39907282, 1.18733973,
     -0.193291259},
    {2.58071195e-07, -2.17847069e-06, 1.39868538e-05, -0.000117575391, 0.000713846599, -0.00646601958, 0.037435079, -0.411901926,
     1.06996661},
};

// ---------------------------------------------------------------------------
// Constants of the room

constexpr float allpassGain = 0.72f;

struct LineDesign {
    std::size_t length; // frames
    std::size_t tapLeft;
    float gainLeft;
    std::size_t tapRight;
    float gainRight;
    std::size_t allpassDelay;
};

constexpr std::array<LineDesign, Room::lineCount> lineDesigns{{
    {1072, 711, 0.402807921f, 383, 0.612738252f, 15},
    {1198, 483, 0.539179325f, 644, 0.43884483f, 19},
    {1352, 179, 0.795390189f, 1005, 0.276570082f, 21},
    {1523, 795, 0.361778617f, 1046, 0.262441844f, 26},
    {1721, 8, 0.989821017f, 1081, 0.250953615f, 32},
    {1953, 872, 0.327850431f, 962, 0.292205334f, 34},
    {2226, 349, 0.639969409f, 902, 0.315510064f, 41},
    {2534, 1079, 0.251596302f, 1, 0.998721898f, 45},
    {2906, 1036, 0.265819758f, 831, 0.345499843f, 47},
    {3321, 995, 0.28012985f, 209, 0.76545155f, 52},
    {3823, 610, 0.458347827f, 530, 0.50772506f, 58},
    {4392, 935, 0.302471489f, 751, 0.382720113f, 65},
}};

// One entry signs two lines, in two decimal digits of 1 for plus and 0 for minus.
constexpr int mixingTable[12][6] = {
    {11, 11, 11, 11, 11, 11}, {10, 10, 11, 10, 0, 10}, {10, 1, 1, 11, 0, 1},   {11, 0, 10, 11, 10, 0},
    {10, 10, 1, 1, 11, 0},    {10, 1, 0, 10, 11, 10},  {10, 0, 10, 1, 1, 11},  {11, 0, 1, 0, 10, 11},
    {11, 10, 0, 10, 1, 1},    {11, 11, 0, 1, 0, 10},   {10, 11, 10, 0, 10, 1}, {11, 1, 11, 0, 1, 0},
};

// b0 b1 b2 a1 a2 of the first section, b1 b2 a1 a2 of the second; a0 and the second b0 are 1.
constexpr float lineFilterTaps[12][9] = {
    {0.441093326f, 0.230372518f, -0.0187203158f, 0.220950812f, -0.203183532f, -0.57454741f, 0.311806798f, -0.630420566f,
     0.33450833f},
    {0.401943028f, 0.163257197f, -0.0211420283f, 0.104934849f, -0.183349818f, -0.484965056f, 0.25623098f, -0.576090872f,
     0.287145585f},
    {0.359556317f, 0.0984406024f, -0.0202365257f, -0.0261953045f, -0.1494243f, -0.396793038f, 0.224747762f, -0.531400442f,
     0.258308142f},
    {0.317115158f, 0.0536944307f, -0.0148108928f, -0.149656057f, -0.10948737f, -0.345830053f, 0.223123774f, -0.50916332f,
     0.252399594f},
    {0.274194241f, 0.0306795463f, -0.00725545781f, -0.256832212f, -0.0710894614f, -0.346806854f, 0.242083326f, -0.515846074f,
     0.268765897f},
    {0.232115731f, 0.0229322314f, -0.000124849743f, -0.34446016f, -0.0386033319f, -0.39266476f, 0.27369687f, -0.550937653f,
     0.303724676f},
    {0.190220833f, 0.0217746012f, 0.00564544369f, -0.425649345f, -0.00767841656f, -0.46892786f, 0.318189889f, -0.606813192f,
     0.35344255f},
    {0.1524418f, 0.0212415941f, 0.00923234876f, -0.508598328f, 0.0261511169f, -0.554090858f, 0.371658832f, -0.669418275f,
     0.410046667f},
    {0.116981983f, 0.0189490989f, 0.0109881135f, -0.610589862f, 0.0719306767f, -0.648950458f, 0.434676588f, -0.741382897f,
     0.475861967f},
    {0.0869890973f, 0.0153623968f, 0.0110829948f, -0.729389429f, 0.130487472f, -0.753061891f, 0.496350974f, -0.824802637f,
     0.543395936f},
    {0.0608856566f, 0.0116428975f, 0.00970221218f, -0.870669305f, 0.206260175f, -0.871861637f, 0.543515444f, -0.923238456f,
     0.600122035f},
    {0.0406529866f, 0.00890862662f, 0.00734037533f, -1.01803315f, 0.290941805f, -0.95327276f, 0.54387188f, -0.987544417f,
     0.612981677f},
};

// b0 b1 b2 a0 a1 a2
constexpr float outputFilterTaps[4][6] = {
    {0.427282631f, 0.448904693f, 0.0941626653f, 1.0f, 0.323717803f, -0.267720819f},
    {1.0f, 0.306048989f, 0.548911989f, 1.0f, 0.289737195f, 0.510481954f},
    {1.0f, -0.891862929f, 0.625224292f, 1.0f, -0.889753699f, 0.644971848f},
    {1.0f, -1.67435706f, 0.79406476f, 1.0f, -1.67982817f, 0.793374896f},
};

constexpr std::size_t decorrelatorOverlap = 144; // 139 in whole rows of 16

} // namespace

// ---------------------------------------------------------------------------

std::vector<Section> equalizerSections(const std::array<double, 9>& gainsDb)
{
    std::array<double, 9> sorted = gainsDb;
    std::sort(sorted.begin(), sorted.end());
    const double median = sorted[4];

    std::vector<Section> sections;
    for (std::size_t r = 0; r < 9; ++r) {
        double correction = 0.0;
        for (std::size_t c = 0; c < 9; ++c)
            correction += (gainsDb[c] - median) * interaction[c][r]; // the transpose
        const double A = std::pow(10.0, (median + correction) / 40.0);

        double f = centres[r];
        if (r == 0)
            f = centres[0] * shelfFactor;
        if (r == 8)
            f = centres[8] / shelfFactor;
        const double w0 = 2.0 * std::numbers::pi * f / equalizerRate;
        const double c = std::cos(w0);
        const double alpha = std::sin(w0 / (2.0 * equalizerQ));

        if (r == 0 || r == 8) {
            const double s = r == 0 ? -1.0 : 1.0;
            const double t = 2.0 * std::sqrt(A) * alpha;
            sections.push_back({A * ((A + 1) + s * (A - 1) * c + t), -2 * s * A * ((A - 1) + s * (A + 1) * c),
                                A * ((A + 1) + s * (A - 1) * c - t), (A + 1) - s * (A - 1) * c + t,
                                2 * s * ((A - 1) - s * (A + 1) * c), (A + 1) - s * (A - 1) * c - t});
        } else {
            sections.push_back({1 + A * alpha, -2 * c, 1 - A * alpha, 1 + alpha / A, -2 * c, 1 - alpha / A});
        }
    }
    return sections;
}

int mixingSign(std::size_t row, std::size_t column)
{
    const int entry = mixingTable[row][column / 2];
    const int digit = column % 2 == 0 ? entry / 10 : entry % 10;
    return digit == 1 ? 1 : -1;
}

GainRider renderLimiter()
{
    // Unity up to level 1, then 1 / level in steps of 2 dB up to +34 dB.
    std::vector<std::pair<float, float>> curve;
    for (int dB = 0; dB <= 34; dB += 2)
        curve.emplace_back(static_cast<float>(std::pow(10.0, dB / 20.0)), static_cast<float>(std::pow(10.0, -dB / 20.0)));
    const float attack = 0.0206178185f;    // 1 ms at 48000 frames per second
    const float release = 5.20819776e-05f; // 400 ms
    return GainRider(2, attack, release, curve);
}

// ---------------------------------------------------------------------------

void Line::write(double sample)
{
    ring[next] = sample;
    next = (next + 1) % ring.size();
}

double Line::ago(std::size_t frames) const
{
    return ring[(next + ring.size() - frames) % ring.size()];
}

Allpass::Allpass(std::size_t delay, float gain)
    : delay(delay), gain(gain), inputs{Signal(delay, 0.0)}, outputs{Signal(delay, 0.0)}
{
}

double Allpass::process(double x)
{
    const double y = gain * x + inputs.ago(delay) - gain * outputs.ago(delay);
    inputs.write(x);
    outputs.write(y);
    return y;
}

Room::Room(const std::vector<std::size_t>& preDelays, std::size_t maxFrames, Signal sameSide, Signal crossSide)
    : maxFrames(maxFrames), decorrelator(2, decorrelatorOverlap), sameSide(std::move(sameSide)), crossSide(std::move(crossSide))
{
    for (const std::size_t requested : preDelays)
        preDelay.push_back(Signal(roundUpTo16(requested), 0.0));

    for (std::size_t l = 0; l < lineCount; ++l) {
        const LineDesign& design = lineDesigns[l];
        if (design.length < maxFrames)
            refuse("DelayLine: Length of delayLineBuffer is too short");
        lines[l].ring.assign(design.length + maxFrames, 0.0);

        diffusers.emplace_back(design.allpassDelay, allpassGain);

        const auto& t = lineFilterTaps[l];
        lineFilters[l].design({{t[0], t[1], t[2], 1.0, t[3], t[4]}, {1.0, t[5], t[6], 1.0, t[7], t[8]}});
    }

    std::vector<Section> sections;
    for (const auto& t : outputFilterTaps)
        sections.push_back({t[0], t[1], t[2], t[3], t[4], t[5]});
    for (Cascade& side : outputFilter)
        side.design(sections);
}

Rows Room::delayed(const Rows& in)
{
    const std::size_t n = in[0].size();
    if (n == 0)
        refuse("Delay: in buffer empty");

    Rows out;
    for (std::size_t c = 0; c < in.size(); ++c) {
        Signal& held = preDelay[c];
        // Required: a block of exactly the delay's length fails. Channels before this one have
        // taken the block by then, this one and those behind it have not.
        if (n == held.size())
            refuseStatus("ippStsSizeErr");

        Signal joined = held;
        joined.insert(joined.end(), in[c].begin(), in[c].end());
        const auto delay = static_cast<std::ptrdiff_t>(held.size());
        out.push_back(Signal(joined.begin(), joined.end() - delay));
        held.assign(joined.end() - delay, joined.end());
    }
    return out;
}

Rows Room::process(const Rows& in)
{
    const std::size_t n = in[0].size();
    if (n > roundUpTo16(maxFrames))
        refuse("FDN: out buffer too small");

    const Rows entering = delayed(in);
    if (n > maxFrames)
        refuse("DelayLine: internal buffer too small");

    // The lines' outputs, each as old as its line is long. A line is never shorter than a block,
    // so none of these samples comes from the block itself.
    Rows loop(lineCount, Signal(n));
    for (std::size_t l = 0; l < lineCount; ++l)
        for (std::size_t i = 0; i < n; ++i)
            loop[l][i] = lines[l].ago(lineDesigns[l].length - i);

    for (std::size_t c = 0; c < entering.size(); ++c)
        for (std::size_t i = 0; i < n; ++i)
            loop[c][i] += entering[c][i];

    const double feedbackScale = std::sqrt(12.0f) / 12.0f;
    Rows mixed(lineCount, Signal(n, 0.0));
    for (std::size_t r = 0; r < lineCount; ++r)
        for (std::size_t l = 0; l < lineCount; ++l)
            for (std::size_t i = 0; i < n; ++i)
                mixed[r][i] += mixingSign(r, l) * feedbackScale * loop[l][i];

    for (std::size_t l = 0; l < lineCount; ++l) {
        mixed[l] = lineFilters[l].process(mixed[l]);
        for (double& sample : mixed[l])
            sample = diffusers[l].process(sample);
        for (const double sample : mixed[l])
            lines[l].write(sample);
    }

    // Frame i of the block was written n - i frames ago. Required: a tap reads
    // tap + maxFrames - n frames behind it, so a short block pushes all taps back.
    Rows taps(2, Signal(n, 0.0));
    for (std::size_t l = 0; l < lineCount; ++l) {
        const LineDesign& design = lineDesigns[l];
        for (std::size_t i = 0; i < n; ++i) {
            const std::size_t written = n - i;
            taps[0][i] += design.gainLeft * lines[l].ago(written + design.tapLeft + maxFrames - n);
            taps[1][i] += design.gainRight * lines[l].ago(written + design.tapRight + maxFrames - n);
        }
    }

    decorrelator.slide();
    decorrelator.load(taps);
    const Signal leftSame = decorrelator.convolve(0, sameSide);
    const Signal leftCross = decorrelator.convolve(0, crossSide);
    const Signal rightSame = decorrelator.convolve(1, sameSide);
    const Signal rightCross = decorrelator.convolve(1, crossSide);
    Rows out(2, Signal(n));
    for (std::size_t i = 0; i < n; ++i) {
        out[0][i] = leftSame[i] + rightCross[i];
        out[1][i] = rightSame[i] + leftCross[i];
    }

    for (std::size_t ear = 0; ear < 2; ++ear)
        out[ear] = outputFilter[ear].process(out[ear]);
    return out;
}

} // namespace quorel::model
