// SPDX-License-Identifier: MIT
#include "tools/input.h"

namespace quorel {

Input::Input(const std::string& path, bool allowTruncated, const std::function<std::uint32_t(std::uint32_t own)>& wantedRate)
    : reader(path, stopIfInterrupted, allowTruncated),
      border(static_cast<std::size_t>(reader.channels())),
      rate_(wantedRate(reader.rate()))
{
    if (rate_ != reader.rate())
        resampler.emplace([this](float* x, std::uint64_t n) { return readFile(x, n); }, reader.channels(), reader.rate(), rate_);
}

std::optional<std::uint64_t> Input::frames() const noexcept
{
    const auto own = reader.frames();
    return own && resampler ? resampler->framesOf(*own) : own;
}

std::uint64_t Input::read(float* x, std::uint64_t n)
{
    return resampler ? resampler->read(x, n) : readFile(x, n);
}

std::uint64_t Input::readFile(float* x, std::uint64_t n)
{
    const std::uint64_t got = reader.read(x, n);
    border.pass(x, got);
    return got;
}

} // namespace quorel
