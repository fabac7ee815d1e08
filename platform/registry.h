// SPDX-License-Identifier: MIT
// Named values that survive the process: keys in a tree, each with values of 32 bits or of text.
//
// On Windows the registry. On Linux a tree of directories that belongs to the user, with one file of values in each; a key's
// values are written together when it is closed, and a power failure leaves either the old ones or the new ones. Paths
// separate keys by backslashes; texts are UTF-8.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace quorel::platform {

struct OpenKey;
using RegistryKey = OpenKey*;

// Windows' error code; 0 is success, 2 is "no such key or value", 5 "access denied", 234 "more data than asked for".
using RegistryResult = std::int32_t;

enum class RootKey { classesRoot, currentConfig, currentUser, localMachine, users };

// Always open; closing it does nothing.
RegistryKey rootKey(RootKey root) noexcept;

// `access` is Windows' mask, such as KEY_READ 0x20019, KEY_WRITE 0x20006, KEY_QUERY_VALUE 0x1, KEY_WOW64_64KEY 0x100.
RegistryResult openKey(RegistryKey parent, std::string_view path, std::uint32_t access, RegistryKey& key) noexcept;

// Opens the key, and makes it and the keys above it where they are missing; what is made is kept on the disk.
RegistryResult createKey(RegistryKey parent, std::string_view path, std::uint32_t access, RegistryKey& key) noexcept;

// Removes a key that has no keys below it.
RegistryResult deleteKey(RegistryKey parent, std::string_view path, std::uint32_t access) noexcept;

// The names of the keys right below a key that is open for reading.
RegistryResult listKeys(RegistryKey key, std::vector<std::string>& names) noexcept;

void closeKey(RegistryKey key) noexcept;

// Reads at most `bytes` bytes of a value of any type, stores them and leaves the count in `bytes`. An empty name is the key's
// default value. A text has two bytes for each UTF-16 unit, with its end mark.
RegistryResult queryValue(RegistryKey key, std::string_view name, void* data, std::uint32_t& bytes) noexcept;

RegistryResult setNumber(RegistryKey key, std::string_view name, std::uint32_t value) noexcept;
RegistryResult setText(RegistryKey key, std::string_view name, std::string_view text) noexcept;

} // namespace quorel::platform
