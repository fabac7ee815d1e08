// SPDX-License-Identifier: MIT
// The real registry as tests look at it: a key below HKEY_CLASSES_ROOT and all keys below it, each with its values in the form
// in which Windows writes registry files, such as "Flags"=dword:0000000f and @="the default value".
#pragma once

#include <map>
#include <set>
#include <string>

namespace quorel {

using RegistryTree = std::map<std::string, std::set<std::string>>; // by path below HKEY_CLASSES_ROOT

// A text as it stands in a line.
inline std::string inQuotes(const std::string& text)
{
    std::string result = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\')
            result += '\\';
        result += c;
    }
    return result + '"';
}

// Empty when there is no such key.
RegistryTree readTree(const std::string& path);

} // namespace quorel
