// SPDX-License-Identifier: MIT
#include "platform/programs/limited_work.h"

#include "platform/programs/limited_source.h"

#include <array>

namespace quorel::platform {

std::string doLimited(const std::function<std::string()>& work, const WorkLimits& limits, const std::function<void()>& wait)
{
    const auto giveAll = [&work](const LimitedSource::Give& give) {
        const std::string result = work();
        give(result.data(), result.size());
    };
    LimitedSource source(giveAll, limits, wait, -1);
    std::string result;
    std::array<char, 65536> part{};
    for (std::size_t got = part.size(); got == part.size();) {
        got = source.read(part.data(), part.size());
        result.append(part.data(), got);
    }
    return result;
}

} // namespace quorel::platform
