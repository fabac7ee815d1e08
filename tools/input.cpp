// SPDX-License-Identifier: MIT
#include "tools/input.h"

namespace quorel {

Input::Input(const std::string& path, std::uint32_t wantedRate)
    : path(path), reader(path, stopIfInterrupted), border(static_cast<std::size_t>(reader.channels())), wantedRate(wantedRate)
{
    if (wantedRate != 0 && wantedRate != reader.rate())
        resampler.emplace([this](float* x, std::uint64_t n) { return readFile(x, n); }, reader.channels(), reader.rate(),
                          wantedRate);
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

std::optional<std::string> Input::replacements() const
{
    if (border.replaced() == 0)
        return std::nullopt;
    return std::to_string(border.replaced()) + (border.replaced() == 1 ? " sample of " : " samples of ") + path +
           " that no effect can take (not finite, or beyond 2^20) became 0, the first in frame " +
           std::to_string(border.firstFrame()) + ", channel " + std::to_string(border.firstChannel() + 1);
}

std::uint64_t Input::readFile(float* x, std::uint64_t n)
{
    const std::uint64_t got = reader.read(x, n);
    border.pass(x, got);
    return got;
}

int tellReplacements(const CLI::App& tool, const Input& input)
{
    const auto text = input.replacements();
    if (text)
        notice(tool, *text);
    return text ? 1 : 0;
}

} // namespace quorel
