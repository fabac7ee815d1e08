// SPDX-License-Identifier: MIT
// Limited work that is given up soon: a fuzzer finds input after input over which a library sits until its time is over.
#include "platform/programs/limited_source.h"
#include "platform/programs/limited_work.h"

namespace quorel::platform {

std::string doLimited(const std::function<std::string()>& work, const WorkLimits& limits, const std::function<void()>& wait)
{
    WorkLimits shorter = limits;
    shorter.processorSeconds = 2;
    return doInChild(work, shorter, wait);
}

} // namespace quorel::platform
