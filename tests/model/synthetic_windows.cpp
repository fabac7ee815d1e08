// SPDX-License-Identifier: MIT
#include "tests/model/synthetic_windows.h"

#include <cmath>
#include <numbers>

namespace quorel::model {

namespace {

// The value m samples from the centre of a raised cosine of an odd length, 0 outside it.
double raisedCosine(int length, int m)
{
    if (std::abs(m) > length / 2)
        return 0.0;
    return 0.5 + 0.5 * std::cos(2.0 * std::numbers::pi * m / (length + 1));
}

} // namespace

MicrophoneWindows syntheticWindows(std::uint32_t sampleRate)
{
    const bool slow = sampleRate == 16000;
    const int fftLength = slow ? 512 : 1024;
    const int hop = slow ? 80 : 240;
    const int analysisLength = slow ? 561 : 1027;
    const int synthesisLength = slow ? 461 : 1017;

    MicrophoneWindows windows;
    for (int m = -(analysisLength / 2); m <= analysisLength / 2; ++m)
        windows.analysis.push_back(static_cast<float>(raisedCosine(analysisLength, m) / fftLength));
    for (int m = -(synthesisLength / 2); m <= synthesisLength / 2; ++m) {
        double sum = 0.0;
        for (int shift = -20 * hop; shift <= 20 * hop; shift += hop)
            sum += raisedCosine(analysisLength, m + shift) * raisedCosine(synthesisLength, m + shift);
        windows.synthesis.push_back(static_cast<float>(raisedCosine(synthesisLength, m) / sum));
    }
    return windows;
}

} // namespace quorel::model
