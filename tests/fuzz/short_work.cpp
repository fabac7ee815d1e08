// SPDX-License-Identifier: MIT
// Limited work that is given up soon: a fuzzer finds input after input over which a library sits until its time is over.
#include "platform/programs/limited_source.h"
#include "platform/programs/limited_work.h"

#include <array>

namespace quorel::platform {

std::string doLimited(const std::function<std::string()>& work, const WorkLimits& limits, const std::function<void()>& wait)
{
    const auto giveAll = [&work](const LimitedSource::Give& give) {
        const std::string result = work();
        give(result.data(), result.size());
    };
    WorkLimits shorter = limits;
    shorter.processorSeconds = 2;
    LimitedSource source(giveAll, shorter, wait, -1);
    std::string result;
    std::array<char, 65536> part{};
    for (std::size_t got = part.size(); got == part.size();) {
        got = source.read(part.data(), part.size());
        result.append(part.data(), got);
    }
    return result;
}

} // namespace quorel::platform
