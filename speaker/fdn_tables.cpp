// SPDX-License-Identifier: MIT
#include "speaker/fdn_tables.h"

namespace quorel {

// clang-format off

// Each line is 1.12 to 1.15 times as long as the one before. All tap gains follow one decay,
//   gain = exp(-0.0012789 * tap),
// which is 0.0111 dB per frame, or -60 dB in 5401 frames; with 0.001278896568 they come out to the last bit.
constinit const std::array<FdnLineRow, lineCount> fdnLineTable = std::to_array<FdnLineRow>({
    //      left               right              allpass
    // length tap  gain        tap   gain         delay coefficient
    {1072,  711, 0.402807921F,  383, 0.612738252F, 15, 0.72F},
    {1198,  483, 0.539179325F,  644, 0.43884483F,  19, 0.72F},
    {1352,  179, 0.795390189F, 1005, 0.276570082F, 21, 0.72F},
    {1523,  795, 0.361778617F, 1046, 0.262441844F, 26, 0.72F},
    {1721,    8, 0.989821017F, 1081, 0.250953615F, 32, 0.72F},
    {1953,  872, 0.327850431F,  962, 0.292205334F, 34, 0.72F},
    {2226,  349, 0.639969409F,  902, 0.315510064F, 41, 0.72F},
    {2534, 1079, 0.251596302F,    1, 0.998721898F, 45, 0.72F},
    {2906, 1036, 0.265819758F,  831, 0.345499843F, 47, 0.72F},
    {3321,  995, 0.28012985F,   209, 0.76545155F,  52, 0.72F},
    {3823,  610, 0.458347827F,  530, 0.50772506F,  58, 0.72F},
    {4392,  935, 0.302471489F,  751, 0.382720113F, 65, 0.72F},
});

// Row r makes the input of line r out of the pairs of lines (0, 1), (2, 3) ... (10, 11): two digits an entry, 1 for plus and 0
// for minus. Expanded, the rows are those of a 12 by 12 Hadamard matrix, which sqrt(12)/12 makes orthogonal: what circulates
// keeps its energy.
constinit const FdnMixingMatrix fdnMixingMatrix = std::to_array<FdnMixingMatrix::value_type>({
    {11, 11, 11, 11, 11, 11},
    {10, 10, 11, 10,  0, 10},
    {10,  1,  1, 11,  0,  1},
    {11,  0, 10, 11, 10,  0},
    {10, 10,  1,  1, 11,  0},
    {10,  1,  0, 10, 11, 10},
    {10,  0, 10,  1,  1, 11},
    {11,  0,  1,  0, 10, 11},
    {11, 10,  0, 10,  1,  1},
    {11, 11,  0,  1,  0, 10},
    {10, 11, 10,  0, 10,  1},
    {11,  1, 11,  0,  1,  0},
});

// The decay of each line against its length. The room has no other: at 0 Hz every line falls by 60 dB in 386 to 389 ms, above
// that sooner. Both sections have an a0 of 1, and the second a b0 of 1.
static constexpr std::array<float, 12> twoSections(float b0, float b1, float b2, float a1, float a2, float secondB1,
                                                   float secondB2, float secondA1, float secondA2)
{
    return {b0, b1, b2, 1.0F, a1, a2, 1.0F, secondB1, secondB2, 1.0F, secondA1, secondA2};
}

constinit const std::array<std::array<float, 12>, lineCount> fdnLineFilters = std::to_array<std::array<float, 12>>({
    //          b0             b1              b2                a1              a2               second b1      second b2     second a1      second a2
    twoSections(0.441093326F,  0.230372518F,   -0.0187203158F,   0.220950812F,   -0.203183532F,   -0.57454741F,  0.311806798F, -0.630420566F, 0.33450833F),
    twoSections(0.401943028F,  0.163257197F,   -0.0211420283F,   0.104934849F,   -0.183349818F,   -0.484965056F, 0.25623098F,  -0.576090872F, 0.287145585F),
    twoSections(0.359556317F,  0.0984406024F,  -0.0202365257F,   -0.0261953045F, -0.1494243F,     -0.396793038F, 0.224747762F, -0.531400442F, 0.258308142F),
    twoSections(0.317115158F,  0.0536944307F,  -0.0148108928F,   -0.149656057F,  -0.10948737F,    -0.345830053F, 0.223123774F, -0.50916332F,  0.252399594F),
    twoSections(0.274194241F,  0.0306795463F,  -0.00725545781F,  -0.256832212F,  -0.0710894614F,  -0.346806854F, 0.242083326F, -0.515846074F, 0.268765897F),
    twoSections(0.232115731F,  0.0229322314F,  -0.000124849743F, -0.34446016F,   -0.0386033319F,  -0.39266476F,  0.27369687F,  -0.550937653F, 0.303724676F),
    twoSections(0.190220833F,  0.0217746012F,  0.00564544369F,   -0.425649345F,  -0.00767841656F, -0.46892786F,  0.318189889F, -0.606813192F, 0.35344255F),
    twoSections(0.1524418F,    0.0212415941F,  0.00923234876F,   -0.508598328F,  0.0261511169F,   -0.554090858F, 0.371658832F, -0.669418275F, 0.410046667F),
    twoSections(0.116981983F,  0.0189490989F,  0.0109881135F,    -0.610589862F,  0.0719306767F,   -0.648950458F, 0.434676588F, -0.741382897F, 0.475861967F),
    twoSections(0.0869890973F, 0.0153623968F,  0.0110829948F,    -0.729389429F,  0.130487472F,    -0.753061891F, 0.496350974F, -0.824802637F, 0.543395936F),
    twoSections(0.0608856566F, 0.0116428975F,  0.00970221218F,   -0.870669305F,  0.206260175F,    -0.871861637F, 0.543515444F, -0.923238456F, 0.600122035F),
    twoSections(0.0406529866F, 0.00890862662F, 0.00734037533F,   -1.01803315F,   0.290941805F,    -0.95327276F,  0.54387188F,  -0.987544417F, 0.612981677F),
});

// The colour of the whole room, the same on left and right.
constinit const std::array<float, 24> fdnOutputFilter = std::to_array<float>({
    // b0          b1             b2             a0    a1             a2
    0.427282631F,  0.448904693F,   0.0941626653F,  1.0F,  0.323717803F,   -0.267720819F,
    1.0F,          0.306048989F,   0.548911989F,   1.0F,  0.289737195F,   0.510481954F,
    1.0F,          -0.891862929F,  0.625224292F,   1.0F,  -0.889753699F,  0.644971848F,
    1.0F,          -1.67435706F,   0.79406476F,    1.0F,  -1.67982817F,   0.793374896F,
});

// clang-format on

} // namespace quorel
