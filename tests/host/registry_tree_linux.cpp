// SPDX-License-Identifier: MIT
#include "tests/host/registry_tree.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace quorel {

RegistryTree readTree(const std::string& path)
{
    namespace fs = std::filesystem;
    RegistryTree tree;
    const auto root = fs::path(std::getenv("HOME")) / ".local/state/quorel/registry/HKEY_CLASSES_ROOT";
    std::string relative = path;
    std::replace(relative.begin(), relative.end(), '\\', '/');
    if (!fs::is_directory(root / relative))
        return tree;
    const auto read = [&](const fs::path& directory) {
        auto name = directory.lexically_relative(root).string();
        std::replace(name.begin(), name.end(), '/', '\\');
        auto& values = tree[name];
        std::ifstream file(directory / ".values");
        for (std::string line; std::getline(file, line);)
            values.insert(line);
    };
    read(root / relative);
    for (const auto& entry : fs::recursive_directory_iterator(root / relative)) {
        if (entry.is_directory())
            read(entry.path());
    }
    return tree;
}

} // namespace quorel
