// SPDX-License-Identifier: MIT
#include "tools/output.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace quorel {

namespace {

// From where on a sample is beyond the integers, for either sign.
float borderOf(SampleFormat format, bool positive)
{
    if (format == SampleFormat::float32)
        return std::numeric_limits<float>::infinity();
    const float step = std::ldexp(1.0F, format == SampleFormat::pcm24 ? -23 : -15);
    return positive ? 1 - step / 2 : 1 + step / 2;
}

constexpr std::size_t portion = 65536; // samples

} // namespace

Output::Output(const std::string& path, const AudioWriter::Layout& layout, std::optional<std::uint64_t> frames,
               const Level& level)
    : writer(path, layout, frames),
      channels(static_cast<std::size_t>(layout.channels)),
      normalise(level.normalise),
      highest(borderOf(layout.format, true)),
      lowest(-borderOf(layout.format, false)),
      gainDb_(level.gainDb)
{
    if (!normalise)
        return;
    held.reset(std::tmpfile());
    if (!held)
        throw std::runtime_error("there is no place for the sound while its peak is looked for");
}

void Output::write(const float* x, std::uint64_t n)
{
    if (!held) {
        put(x, n);
        return;
    }
    const std::size_t samples = n * channels;
    for (std::size_t i = 0; i < samples; ++i)
        heldPeak = std::max(heldPeak, std::abs(x[i]));
    if (std::fwrite(x, sizeof(float), samples, held.get()) != samples)
        throw std::runtime_error("there is no room for the sound while its peak is looked for");
}

void Output::commit()
{
    if (held) {
        if (heldPeak > 0) // silence stays
            gainDb_ = *normalise - 20 * std::log10(static_cast<double>(heldPeak));
        std::rewind(held.get());
        std::vector<float> x(portion / channels * channels);
        while (const std::size_t got = std::fread(x.data(), sizeof(float), x.size(), held.get()))
            put(x.data(), got / channels);
    }
    writer.commit();
}

void Output::put(const float* x, std::uint64_t n)
{
    const std::size_t samples = n * channels;
    scaled.assign(x, x + samples);
    if (gainDb_ != 0) {
        const auto gain = static_cast<float>(std::pow(10, gainDb_ / 20));
        for (float& sample : scaled)
            sample *= gain;
    }
    for (std::size_t i = 0; i < samples; ++i) {
        peak_ = std::max(peak_, std::abs(scaled[i]));
        if ((scaled[i] > highest || scaled[i] < lowest) && clipCount++ == 0)
            clipPlace = position + i;
    }
    position += samples;
    writer.write(scaled.data(), n);
}

} // namespace quorel
