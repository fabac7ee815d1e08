// SPDX-License-Identifier: MIT
// Operations of platform/registry.h, and the thread's locale of platform/module.h, for tests: the registry stands in this
// process's memory, every call is written down, and any one of them fails where a test asks for it.
//
// A test program that compiles registry_fake.cpp gets these in place of the system's.
#pragma once

#include "platform/registry.h"

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <variant>
#include <vector>

namespace quorel::platform {

struct RegistryFake {
    using Values = std::map<std::string, std::variant<std::uint32_t, std::string>>;

    // By their whole path: below HKEY_CLASSES_ROOT, else with the root's name first.
    std::map<std::string, Values> keys;
    std::map<std::string, std::uint32_t> access; // with which each key was opened or made last
    std::vector<std::string> calls;              // "setText FriendlyName", "closeKey ..."
    std::multiset<std::string> open;             // paths of the keys that are open

    int failingCall = -1;       // the index in `calls` of one that does nothing but fail
    RegistryResult failure = 5; // with this code
    std::uint32_t locale = 1033;

    bool has(const std::string& path) const { return keys.contains(path); }
};

RegistryFake& registryFake();

} // namespace quorel::platform
