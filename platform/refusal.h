// SPDX-License-Identifier: MIT
// What the system refused last, for whoever tells the user: operations of this folder answer yes or no.
#pragma once

#include <string>
#include <string_view>

namespace quorel::platform {

struct Refusal {
    std::string path; // or the name of the object
    int error = 0;    // the system's number; 0: nothing has been refused
};

// Of this process, by any of its threads.
Refusal lastRefusal();

void keepRefusal(std::string_view path, int error) noexcept;

} // namespace quorel::platform
