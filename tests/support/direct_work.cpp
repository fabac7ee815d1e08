// SPDX-License-Identifier: MIT
// Limited work without limits, in the process that wants it: a fuzzer sees what is done in its own alone, and starts none for each
// of its inputs.
#include "platform/programs/limited_work.h"

namespace quorel::platform {

std::string doLimited(const std::function<std::string()>& work, const WorkLimits&, const std::function<void()>& wait)
{
    wait();
    return work();
}

} // namespace quorel::platform
