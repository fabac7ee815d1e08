// SPDX-License-Identifier: MIT
// ChartScale says where on a chart so many dB at a frequency stand: the pixels' middles, frequencies by their logarithm.
#pragma once

#include <cmath>

namespace quorel {

struct ChartScale {
    double lowHz = 0; // at the left edge
    double highHz = 0;
    double topDb = 0;
    double bottomDb = 0;

    double hzAt(double x, int width) const { return lowHz * std::pow(highHz / lowHz, x / (width - 1)); }
    double xOf(double hz, int width) const { return (width - 1) * std::log(hz / lowHz) / std::log(highHz / lowHz); }
    double yOf(double db, int height) const { return (height - 1) * (topDb - db) / (topDb - bottomDb); }
};

constexpr ChartScale equalizerScale{20, 20000, 15, -15};
constexpr ChartScale responseScale{100, 20000, 15, -35};

} // namespace quorel
