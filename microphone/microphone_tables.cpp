// SPDX-License-Identifier: MIT
#include "microphone/microphone_tables.h"

#include "microphone/window_tables.h"

#include <algorithm>

namespace quorel {

namespace {

// The gain bands end near 62.5, 125, 187.5, 250, 375, 500, 625, 750, 1000, 1250, 1500, 2000, 3000, 4000, 6000 Hz and at half
// the rate; the level bands are close to octaves. A bin is 31.25 Hz wide at 16000 and 46.875 Hz at 48000.
// clang-format off
const std::array<MicrophoneRateRow, 2> rates = {{
    {16000, 512, 80, 431,
     {{2, 2, 2, 2, 4, 4, 4, 4, 8, 8, 8, 16, 32, 32, 64, 64}},
     {{2, 1, 3, 5, 11, 21, 43, 85, 85, 0}}, // Required: the tenth has no bins, and the level that it feeds rests at -60 dB
     analysisWindow16000, synthesisWindow16000,
     {{
       {{ // b0         b1            b2           a0    a1            a2
        1.0F,        0.0F,         0.0F,         1.0F, 0.0F,         0.0F,
        1.0F,        0.0F,         0.0F,         1.0F, 0.0F,         0.0F,
        1.0F,        0.0F,         0.0F,         1.0F, 0.0F,         0.0F,
        1.0F,        0.0F,         0.0F,         1.0F, 0.0F,         0.0F,
        1.0F,        0.0F,         0.0F,         1.0F, 0.0F,         0.0F,
       }},
       {{ // +13 dB at 100 Hz, -3 dB around 1.2 kHz, +3.7 dB at 6 kHz
        0.62421602F, -1.1084957F,  0.48482689F,  1.0F, -1.971215F,   0.97218823F,
        1.7127146F,  0.87035537F,  -0.54015291F, 1.0F, 0.87035537F,  0.17256166F,
        1.0F,        0.0F,         0.0F,         1.0F, 0.0F,         0.0F,
        1.0F,        0.0F,         0.0F,         1.0F, 0.0F,         0.0F,
        1.0F,        0.0F,         0.0F,         1.0F, 0.0F,         0.0F,
       }},
       {{
        0.97000229F, -1.9242152F,  0.95504779F,  1.0F, -1.9242152F,  0.92505008F, // 75 Hz, -14 dB
        0.98183644F, -1.9566953F,  0.97499466F,  1.0F, -1.9566953F,  0.9568311F,  // 30 Hz, -16 dB
        0.98937529F, -1.9519541F,  0.96802479F,  1.0F, -1.9519541F,  0.95740008F, // 190 Hz, -6 dB
        1.012169F,   -1.9275502F,  0.92883539F,  1.0F, -1.9275502F,  0.94100434F, // 300 Hz, +3 dB
        1.0929618F,  -0.47876537F, 0.45635545F,  1.0F, -0.47876537F, 0.54931724F, // 3200 Hz, +3 dB
       }},
     }},
     0.0206178185F, 5.20819776e-05F},
    {48000, 1024, 240, 782,
     {{2, 1, 1, 2, 2, 3, 2, 3, 6, 5, 5, 11, 21, 21, 43, 384}},
     {{2, 1, 1, 4, 7, 14, 28, 57, 115, 283}},
     analysisWindow48000, synthesisWindow48000,
     {{
       {{
        1.0F,        0.0F,         0.0F,         1.0F, 0.0F,         0.0F,
        1.0F,        0.0F,         0.0F,         1.0F, 0.0F,         0.0F,
        1.0F,        0.0F,         0.0F,         1.0F, 0.0F,         0.0F,
        1.0F,        0.0F,         0.0F,         1.0F, 0.0F,         0.0F,
        1.0F,        0.0F,         0.0F,         1.0F, 0.0F,         0.0F,
       }},
       {{
        0.58315772F, -1.1193596F,  0.53626329F,  1.0F, -1.9905342F,  0.99064332F,
        1.4479772F,  -1.0284984F,  0.031935934F, 1.0F, -1.0284984F,  0.47991312F,
        1.0F,        0.0F,         0.0F,         1.0F, 0.0F,         0.0F,
        1.0F,        0.0F,         0.0F,         1.0F, 0.0F,         0.0F,
        1.0F,        0.0F,         0.0F,         1.0F, 0.0F,         0.0F,
       }},
       {{
        0.9897452F,  -1.974283F,   0.98463297F,  1.0F, -1.974283F,   0.97437817F,
        0.99385715F, -1.9853852F,  0.99154329F,  1.0F, -1.9853852F,  0.98540044F,
        0.99640888F, -1.9849873F,  0.98919249F,  1.0F, -1.9849873F,  0.98560137F,
        1.0041335F,  -1.9784342F,  0.97582728F,  1.0F, -1.9784342F,  0.97996074F,
        1.0323546F,  -1.6837952F,  0.81078863F,  1.0F, -1.6837952F,  0.8431433F,
       }},
     }},
     0.0069203875F, 1.73609606e-05F},
}};

struct NoiseBandRow {
    float lowerLimit;   // linear magnitude
    float riseStep;     // relative, per frame
    float initialFloor; // linear magnitude
    float fastFall;     // factor, per frame
};

// Required: the fast factor of band 0 is 9.6 where 0.96 was to be expected, so that the floor of that band climbs to infinity
// and its gain stays at full suppression.
const std::array<NoiseBandRow, gainBandCount> noiseBands = {{
    // lowerLimit      riseStep        initialFloor     fastFall
    {7.74860382e-06F, 0.00499999523F, 7.9870224e-06F,  9.60000038F},
    {7.74860382e-06F, 0.00499999523F, 1.57356262e-05F, 0.960000038F},
    {5.60283661e-06F, 0.00499999523F, 1.77621841e-05F, 0.960000038F},
    {5.00679016e-06F, 0.00499999523F, 1.14440918e-05F, 0.960000038F},
    {6.07967377e-06F, 0.00499999523F, 3.09944153e-06F, 0.960000038F},
    {6.07967377e-06F, 0.00499999523F, 2.62260437e-06F, 0.960000038F},
    {5.00679016e-06F, 0.00999999046F, 2.2649765e-06F,  0.960000038F},
    {5.60283661e-06F, 0.00899994373F, 1.66893005e-06F, 0.960000038F},
    {4.41074371e-06F, 0.00999999046F, 8.34465027e-07F, 0.960000038F},
    {4.41074371e-06F, 0.00999999046F, 5.96046448e-07F, 0.960000038F},
    {4.41074371e-06F, 0.00999999046F, 5.96046448e-07F, 0.960000038F},
    {3.93390656e-06F, 0.0199999809F,  4.76837158e-07F, 0.960000038F},
    {6.07967377e-06F, 0.0299999714F,  4.76837158e-07F, 0.960000038F},
    {7.74860382e-06F, 0.0499999523F,  4.76837158e-07F, 0.960000038F},
    {1.40666962e-05F, 0.100000024F,   4.76837158e-07F, 0.960000038F},
    {1.40666962e-05F, 0.100000024F,   2.38418579e-07F, 0.960000038F},
}};
// clang-format on

// One column of the noise bands.
std::vector<float> column(float NoiseBandRow::*member)
{
    std::vector<float> values;
    values.reserve(noiseBands.size());
    for (const NoiseBandRow& row : noiseBands)
        values.push_back(row.*member);
    return values;
}

// The same value in every band.
std::vector<float> gainBands(float value)
{
    return std::vector<float>(gainBandCount, value);
}

// A coefficient of the level bands: never beyond the whole distance.
std::vector<float> levelRate(float value)
{
    return std::vector<float>(levelBandCount, std::min(1.0F, value));
}

} // namespace

const MicrophoneRateRow* microphoneRate(std::uint32_t sampleRate) noexcept
{
    for (const MicrophoneRateRow& row : rates)
        if (row.sampleRate == sampleRate)
            return &row;
    return nullptr;
}

BottomTrackerTables noiseTrackerTables()
{
    return {.smoothing = gainBands(0.0606000423F), // 80 ms
            .lowerLimit = column(&NoiseBandRow::lowerLimit),
            .riseStep = column(&NoiseBandRow::riseStep),
            .slowFall = gainBands(0.970000029F), // 53 dB/s
            .fastFall = column(&NoiseBandRow::fastFall),
            .onsetRatio = gainBands(0.700000048F),
            .initialFloor = column(&NoiseBandRow::initialFloor),
            .epsilon = 1.1920929e-7F};
}

OgleTables signalTrackerTables()
{
    return {.floor = gainBands(1.1920929e-06F),
            .rise = gainBands(1.0F),
            .fall = gainBands(0.25F), // 2.5 dB a frame
            .highRatio = gainBands(0.9F),
            .lowRatio = gainBands(0.7F),
            .catchUpRate = gainBands(0.5F),
            .dropRate = gainBands(0.125F),
            .holdRate = gainBands(7.62939453e-06F)};
}

// The coefficients of 48000 are those of 16000 taken three times.
OgleTables levelTrackerTables(std::uint32_t sampleRate)
{
    const bool narrow = sampleRate == 16000;
    return {.floor = std::vector<float>(levelBandCount, 1.1920929e-06F), // -118 dB
            .rise = levelRate(narrow ? 1.0F : 3.0000002F),
            .fall = levelRate(narrow ? 0.25F : 0.75000006F),
            .highRatio = std::vector<float>(levelBandCount, 0.9F),
            .lowRatio = std::vector<float>(levelBandCount, 0.7F),
            .catchUpRate = levelRate(narrow ? 0.5F : 1.5000001F),
            .dropRate = levelRate(narrow ? 0.125F : 0.37500003F),
            .holdRate = levelRate(narrow ? 7.62939453e-06F : 2.28881854e-05F)};
}

SuppressionGainTables suppressionTables()
{
    return {.epsilon = 1.1920929e-7F,
            .ratioScale = gainBands(2.0F),
            .maxSuppression = gainBands(0.683772206F), // 1 - 10^(-10/20): a gain of -10 dB
            .smoothing = gainBands(0.117503099F),      // 1 - exp(-1/8): 8 frames
            .noiseScale = gainBands(1.0F),
            .offset = gainBands(-0.3F)};
}

const std::array<GainPoint, 2> gateCurve = {{
    {0.0316227749F, 0.00316227763F}, // -30 dB, -50 dB
    {0.0630957335F, 1.0F},           // -24 dB, 0 dB
}};

// clang-format off
const std::array<float, 256> gateGainTable = std::to_array<float>({
    0.0F,         10.0F,        9.82032776F,  9.64388371F,  9.47060966F,  9.30044937F,  9.13334656F,  8.96924496F,  // 0
    8.80809307F,  8.64983559F,  8.49442291F,  8.34180164F,  8.19192219F,  8.04473591F,  7.90019464F,  7.75825024F,  // 8
    7.61885595F,  7.4819665F,   7.34753609F,  7.21552134F,  7.08587837F,  6.95856476F,  6.83353901F,  6.71075916F,  // 16
    6.59018564F,  6.47177839F,  6.35549831F,  6.24130774F,  6.12916851F,  6.0190444F,   5.91089916F,  5.80469656F,  // 24
    5.70040226F,  5.59798193F,  5.49740171F,  5.39862871F,  5.3016305F,   5.20637465F,  5.11283064F,  5.02096748F,  // 32
    4.93075466F,  4.84216261F,  4.75516224F,  4.66972542F,  4.58582354F,  4.50342894F,  4.42251492F,  4.34305429F,  // 40
    4.2650218F,   4.18839121F,  4.11313772F,  4.03923607F,  3.96666193F,  3.89539218F,  3.82540274F,  3.75667095F,  // 48
    3.68917394F,  3.62288976F,  3.55779648F,  3.49387288F,  3.43109751F,  3.36945033F,  3.30891061F,  3.24945879F,  // 56
    3.19107509F,  3.13374019F,  3.07743573F,  3.02214265F,  2.96784306F,  2.91451931F,  2.86215353F,  2.81072855F,  // 64
    2.76022744F,  2.71063399F,  2.66193128F,  2.61410379F,  2.56713557F,  2.52101135F,  2.47571588F,  2.43123412F,  // 72
    2.38755155F,  2.34465384F,  2.30252695F,  2.26115704F,  2.22053027F,  2.18063354F,  2.1414535F,   2.10297751F,  // 80
    2.06519294F,  2.02808714F,  1.99164808F,  1.95586371F,  1.92072225F,  1.88621223F,  1.85232222F,  1.81904113F,  // 88
    1.786358F,    1.75426209F,  1.72274292F,  1.69178998F,  1.66139328F,  1.63154268F,  1.60222828F,  1.57344079F,  // 96
    1.54517043F,  1.51740801F,  1.49014437F,  1.46337056F,  1.43707788F,  1.41125762F,  1.38590121F,  1.36100042F,  // 104
    1.33654702F,  1.31253302F,  1.28895044F,  1.26579154F,  1.24304879F,  1.22071469F,  1.19878185F,  1.17724311F,  // 112
    1.15609133F,  1.13531959F,  1.11492097F,  1.09488893F,  1.07521689F,  1.05589819F,  1.03692663F,  1.018296F,    // 120
    1.0F,         0.982032776F, 0.964388371F, 0.947061002F, 0.930044949F, 0.913334608F, 0.896924555F, 0.880809307F, // 128
    0.864983618F, 0.849442244F, 0.834180117F, 0.819192231F, 0.804473639F, 0.790019453F, 0.775825024F, 0.761885583F, // 136
    0.748196602F, 0.734753609F, 0.721552134F, 0.708587825F, 0.695856512F, 0.683353901F, 0.67107594F,  0.659018576F, // 144
    0.647177815F, 0.635549843F, 0.624130785F, 0.612916887F, 0.601904452F, 0.591089904F, 0.580469668F, 0.570040226F, // 152
    0.559798181F, 0.549740195F, 0.539862871F, 0.53016305F,  0.520637512F, 0.5112831F,   0.502096713F, 0.49307546F,  // 160
    0.484216273F, 0.47551623F,  0.46697253F,  0.458582342F, 0.450342894F, 0.442251474F, 0.434305459F, 0.426502198F, // 168
    0.418839127F, 0.411313742F, 0.403923571F, 0.396666199F, 0.389539212F, 0.382540286F, 0.375667095F, 0.368917406F, // 176
    0.362288982F, 0.355779648F, 0.349387288F, 0.343109757F, 0.336945027F, 0.330891073F, 0.324945867F, 0.319107503F, // 184
    0.313374013F, 0.307743549F, 0.302214265F, 0.296784312F, 0.291451931F, 0.286215335F, 0.281072855F, 0.276022762F, // 192
    0.271063387F, 0.266193122F, 0.261410385F, 0.256713569F, 0.252101123F, 0.247571573F, 0.243123412F, 0.238755152F, // 200
    0.23446539F,  0.230252698F, 0.226115689F, 0.222053021F, 0.218063354F, 0.214145362F, 0.210297763F, 0.206519291F, // 208
    0.202808708F, 0.199164808F, 0.195586368F, 0.192072228F, 0.188621223F, 0.185232222F, 0.181904107F, 0.178635806F, // 216
    0.175426215F, 0.172274292F, 0.169179007F, 0.16613932F,  0.163154259F, 0.160222828F, 0.157344073F, 0.15451704F,  // 224
    0.151740804F, 0.149014443F, 0.146337062F, 0.143707797F, 0.141125768F, 0.138590127F, 0.136100039F, 0.133654699F, // 232
    0.131253302F, 0.128895044F, 0.126579165F, 0.124304883F, 0.122071467F, 0.119878188F, 0.117724307F, 0.115609132F, // 240
    0.113531955F, 0.111492097F, 0.109488897F, 0.107521683F, 0.105589822F, 0.103692666F, 0.101829596F, 0.100000001F, // 248
});
// clang-format on

} // namespace quorel
