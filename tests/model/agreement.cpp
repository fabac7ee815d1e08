// SPDX-License-Identifier: MIT
#include "tests/model/agreement.h"

#include <cmath>
#include <limits>

namespace quorel::model {

namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();

double ratioDb(double signal, double error)
{
    if (!std::isfinite(signal) || !std::isfinite(error) || !(signal > 0.0))
        return -infinity;
    return error > 0.0 ? 10.0 * std::log10(signal / error) : infinity;
}

} // namespace

Agreement::Agreement(std::size_t windowFrames, double quietest) : windowFrames(windowFrames), quietest(quietest), worst(infinity)
{
}

void Agreement::add(const Signal& reference, const float* result, std::size_t channels, std::size_t stride)
{
    for (std::size_t i = 0; i < reference.size() / channels; ++i) {
        for (std::size_t c = 0; c < channels; ++c)
            addFrameSample(reference[i * channels + c], double{result[i * stride + c]});
        endFrame(channels);
    }
}

void Agreement::add(const Signal& reference, const Signal& result, std::size_t channels)
{
    for (std::size_t i = 0; i < reference.size() / channels; ++i) {
        for (std::size_t c = 0; c < channels; ++c)
            addFrameSample(reference[i * channels + c], result[i * channels + c]);
        endFrame(channels);
    }
}

double Agreement::decibels() const
{
    return ratioDb(signal + windowSignal, error + windowError);
}

double Agreement::worstWindowDb() const
{
    return frames >= windowFrames ? worst : -infinity;
}

void Agreement::addFrameSample(double reference, double result)
{
    const double difference = result - reference;
    windowSignal += reference * reference;
    windowError += difference * difference;
    if (!(std::fabs(difference) <= largest))
        largest = std::isnan(difference) ? infinity : std::fabs(difference);
}

void Agreement::endFrame(std::size_t channels)
{
    ++frames;
    if (frames % windowFrames != 0)
        return;

    const double mean = windowSignal / static_cast<double>(windowFrames * channels);
    if (!(std::sqrt(mean) < quietest) && !(ratioDb(windowSignal, windowError) >= worst)) {
        worst = ratioDb(windowSignal, windowError);
        worstStart = frames - windowFrames;
    }
    signal += windowSignal;
    error += windowError;
    windowSignal = 0.0;
    windowError = 0.0;
}

} // namespace quorel::model
