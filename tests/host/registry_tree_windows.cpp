// SPDX-License-Identifier: MIT
#include "tests/host/registry_tree.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>
#include <windows.h>

namespace quorel {

RegistryTree readTree(const std::string& path)
{
    RegistryTree tree;
    HKEY key = nullptr;
    if (RegOpenKeyExA(HKEY_CLASSES_ROOT, path.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS)
        return tree;
    std::vector<char> name(1024);
    std::vector<char> data(8192);
    auto& values = tree[path];
    for (DWORD index = 0;; ++index) {
        auto nameSize = static_cast<DWORD>(name.size());
        auto size = static_cast<DWORD>(data.size());
        DWORD type = 0;
        if (RegEnumValueA(key, index, name.data(), &nameSize, nullptr, &type, reinterpret_cast<BYTE*>(data.data()), &size) !=
            ERROR_SUCCESS)
            break;
        std::string line = nameSize == 0 ? "@" : inQuotes({name.data(), nameSize});
        if (type == REG_SZ) {
            line += '=' + inQuotes(data.data());
        } else if (type == REG_DWORD && size == 4) {
            std::uint32_t number = 0;
            std::memcpy(&number, data.data(), sizeof number);
            char text[32];
            std::snprintf(text, sizeof text, "=dword:%08x", number);
            line += text;
        } else {
            line += "=type " + std::to_string(type);
        }
        values.insert(line);
    }
    for (DWORD index = 0;; ++index) {
        auto nameSize = static_cast<DWORD>(name.size());
        if (RegEnumKeyExA(key, index, name.data(), &nameSize, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS)
            break;
        tree.merge(readTree(path + '\\' + std::string(name.data(), nameSize)));
    }
    RegCloseKey(key);
    return tree;
}

} // namespace quorel
