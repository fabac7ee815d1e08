// SPDX-License-Identifier: MIT
// A test whether a key of the registry exists.
#pragma once

#include <string>

namespace quorel {

// `path` is a key's full path, its root's name first, as in "HKEY_LOCAL_MACHINE\SOFTWARE". Throws std::runtime_error for a
// path without a backslash or with an unknown root.
bool registryKeyExists(const std::string& path);

} // namespace quorel
