// SPDX-License-Identifier: MIT
#include "platform/programs/limited_work.h"

#include "platform/programs/limited_source.h"

namespace quorel::platform {

std::string doLimited(const std::function<std::string()>& work, const WorkLimits& limits, const std::function<void()>& wait)
{
    return doInChild(work, limits, wait);
}

} // namespace quorel::platform
