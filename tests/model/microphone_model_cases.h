// SPDX-License-Identifier: MIT
// Signals and records for the tests of the capture model.
#pragma once

#include "tests/model/microphone_model.h"
#include "tests/model/model_cases.h"

#include <cmath>
#include <numbers>

namespace quorel::model {

inline const Referee nobody{};
inline const std::vector<double> noDoubt(16, 0.0);

inline std::vector<float> sine(std::size_t n, double height, double hertz, double rate)
{
    std::vector<float> x(n);
    for (std::size_t i = 0; i < n; ++i)
        x[i] = static_cast<float>(height * std::sin(2.0 * std::numbers::pi * hertz * static_cast<double>(i) / rate));
    return x;
}

inline double rms(const Signal& x, std::size_t from)
{
    double sum = 0.0;
    for (std::size_t i = from; i < x.size(); ++i)
        sum += x[i] * x[i];
    return std::sqrt(sum / static_cast<double>(x.size() - from));
}

inline RecordFields record(std::uint8_t MicNR, std::uint32_t micEq, std::uint32_t noiseGate, std::uint8_t levelsEnabled = 0)
{
    RecordFields fields;
    fields.newRecord = true;
    fields.MicNR = MicNR;
    fields.micEq = micEq;
    fields.noiseGate = noiseGate;
    fields.levelsEnabled = levelsEnabled;
    return fields;
}

} // namespace quorel::model
