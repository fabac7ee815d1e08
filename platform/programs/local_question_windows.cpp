// SPDX-License-Identifier: MIT
// No program of ours listens on Windows.
#include "platform/programs/local_question.h"

namespace quorel::platform {

std::optional<std::string> askLocally(const std::string&, const std::string&)
{
    return std::nullopt;
}

} // namespace quorel::platform
