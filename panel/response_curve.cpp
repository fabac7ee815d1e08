// SPDX-License-Identifier: MIT
#include "panel/response_curve.h"

#include "speaker/hrtf_tables.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>

namespace quorel {

ResponseTaps builtInTaps()
{
    ResponseTaps taps{};
    for (std::size_t row = 0; row < taps.size(); ++row) {
        const auto& pair = speakerResponses[row];
        for (const auto& [ear, response] : {std::pair{std::size_t{0}, &pair.left}, std::pair{std::size_t{1}, &pair.right}})
            std::copy(response->taps.begin(), response->taps.end(),
                      taps.at(row).at(ear).begin() + static_cast<std::ptrdiff_t>(response->onset));
    }
    return taps;
}

double levelDb(std::span<const float> taps, double hz)
{
    const auto turn = std::polar(1.0, -2 * std::numbers::pi * hz / hrtfRate);
    std::complex<double> z = 1;
    std::complex<double> sum = 0;
    for (const float tap : taps) {
        sum += static_cast<double>(tap) * z;
        z *= turn;
    }
    return 20 * std::log10(std::abs(sum));
}

} // namespace quorel
