// SPDX-License-Identifier: MIT
// What the layers below the window tell their user they put together in English, for programs without a window as well.
#pragma once

#include <QString>

#include <string>

namespace quorel {

// Each line of it in the user's language, by the list of such texts. What is on no list, a file's name or the system's own
// words, stays as it is.
QString translated(const std::string& text);

} // namespace quorel
