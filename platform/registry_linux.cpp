// SPDX-License-Identifier: MIT
// A key is a directory below <user directory>/registry, and its values stand in its file ".values", a line each, in the form
// in which Windows writes registry files: "Reverb"=dword:000000aa, "FriendlyName"="QUOREL", @="the default value".
#include "platform/registry.h"

#include "platform/never_destroyed.h"
#include "platform/refusal.h"
#include "platform/user_directory_linux.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <codecvt>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <functional>
#include <locale>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <sstream>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <variant>
#include <vector>

namespace quorel::platform {

using Value = std::variant<std::uint32_t, std::string>;
using Values = std::map<std::string, Value>;

// A root has a name alone and needs no destruction: the last release of an effect may come when statics are gone.
struct OpenKey {
    const char* root = nullptr; // its path below the user's directory; null for another key
};

namespace {

struct KeyBelow : OpenKey {
    std::string path; // below the user's directory, separated by slashes
    std::uint32_t access = 0;
    Values values{};  // as they were when the key was opened, with what was set since
    Values changes{}; // what was set since
};

std::string pathOf(const OpenKey& key)
{
    return key.root != nullptr ? key.root : static_cast<const KeyBelow&>(key).path;
}

constexpr const char* valuesFile = ".values";
constexpr std::size_t mostValues = 65536; // bytes of a file of values

namespace windowsError {
constexpr RegistryResult success = 0;
constexpr RegistryResult notFound = 2;
constexpr RegistryResult accessDenied = 5;
constexpr RegistryResult outOfMemory = 14;
constexpr RegistryResult writeFault = 29;
constexpr RegistryResult invalidParameter = 87;
constexpr RegistryResult moreData = 234;
} // namespace windowsError

constexpr std::uint32_t mayQuery = 0x1; // KEY_QUERY_VALUE
constexpr std::uint32_t maySet = 0x2;   // KEY_SET_VALUE

RegistryResult resultOf(int error)
{
    switch (error) {
    case ENOENT:
        return windowsError::notFound;
    case EACCES:
    case EPERM:
    case ENOTEMPTY:
    case EEXIST:
    case ELOOP:
    case ENOTDIR:
        return windowsError::accessDenied;
    case ENOMEM:
        return windowsError::outOfMemory;
    default:
        return windowsError::writeFault;
    }
}

// "Software\Name" below a key as a path of directories; false for a part that no directory of ours can have.
bool joinPath(const OpenKey& parent, std::string_view path, std::string& joined)
{
    joined = pathOf(parent);
    std::istringstream parts{std::string(path)};
    parts.exceptions(std::ios::badbit); // a part that there is no memory for is not the end
    for (std::string part; std::getline(parts, part, '\\');) {
        if (part.empty() || part.front() == '.' || part.find('/') != std::string::npos || part.find('\0') != std::string::npos)
            return false;
        joined += '/' + part;
    }
    return true;
}

File openDirectory(const UserDirectory& user, const std::string& path)
{
    return File(openat(user.get(), path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

// Makes every missing directory on the way and sees that it stays.
bool makeDirectories(const UserDirectory& user, const std::string& path)
{
    for (std::size_t end = path.find('/');; end = path.find('/', end + 1)) {
        const auto part = path.substr(0, end);
        if (mkdirat(user.get(), part.c_str(), 0700) == 0) {
            const auto parentEnd = part.rfind('/');
            const auto parent = openDirectory(user, parentEnd == std::string::npos ? "." : part.substr(0, parentEnd));
            if (!parent || fsync(parent.get()) != 0)
                return false;
        } else if (errno != EEXIST)
            return false;
        if (end == std::string::npos)
            return true;
    }
}

// The keys of an open directory; false when it can't be read.
bool readKeys(int directory, std::vector<std::string>& names)
{
    if (!listDirectory(directory, names))
        return false;
    std::erase_if(names, [](const std::string& name) { return name.starts_with('.'); });
    return true;
}

std::string quoted(const std::string& text)
{
    std::string result = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\')
            result += '\\';
        if (c == '\n')
            result += "\\n";
        else
            result += c;
    }
    return result + '"';
}

// Takes a quoted text off the front of `line`.
bool takeQuoted(std::string_view& line, std::string& text)
{
    if (line.empty() || line.front() != '"')
        return false;
    text.clear();
    for (std::size_t i = 1; i < line.size(); ++i) {
        if (line[i] == '"') {
            line.remove_prefix(i + 1);
            return true;
        }
        if (line[i] == '\\' && ++i < line.size() && line[i] == 'n')
            text += '\n';
        else if (i < line.size())
            text += line[i];
    }
    return false;
}

std::string format(const Values& values)
{
    std::string lines;
    for (const auto& [name, value] : values) {
        lines += (name.empty() ? "@" : quoted(name)) + '=';
        if (const auto* number = std::get_if<std::uint32_t>(&value)) {
            std::array<char, 16> text{};
            std::snprintf(text.data(), text.size(), "dword:%08x", *number);
            lines += text.data();
        } else
            lines += quoted(std::get<std::string>(value));
        lines += '\n';
    }
    return lines;
}

// A line that says nothing in this form is passed over.
Values parse(const std::string& lines)
{
    Values values;
    std::istringstream stream(lines);
    stream.exceptions(std::ios::badbit); // a line that there is no memory for is not the end
    for (std::string text; std::getline(stream, text);) {
        std::string_view line = text;
        std::string name;
        if (line.starts_with('@'))
            line.remove_prefix(1);
        else if (!takeQuoted(line, name))
            continue;
        constexpr std::string_view number = "=dword:";
        std::string value;
        if (line.starts_with(number)) {
            line.remove_prefix(number.size());
            std::uint32_t read = 0;
            const auto [end, error] = std::from_chars(line.data(), line.data() + line.size(), read, 16);
            if (error == std::errc() && end == line.data() + line.size())
                values[name] = read;
        } else if (line.starts_with('=')) {
            line.remove_prefix(1);
            if (takeQuoted(line, value) && line.empty())
                values[name] = value;
        }
    }
    return values;
}

// Keys whose values this process could not read when it was to. What was not read is not written over: its user still has it.
class UnreadKeys {
public:
    void keep(const std::string& path, bool unread)
    {
        const std::lock_guard guard(lock);
        if (unread)
            paths.insert(path);
        else
            paths.erase(path);
    }

    bool contain(const std::string& path)
    {
        const std::lock_guard guard(lock);
        return paths.contains(path);
    }

private:
    std::mutex lock;
    std::set<std::string> paths;
};

// The latest one that there was no memory to read, nor to keep its path; 0: none.
constinit std::atomic<std::size_t> starvedKey = 0;

std::size_t markOf(const OpenKey* parent, std::string_view path)
{
    return std::hash<const void*>()(parent) ^ std::hash<std::string_view>()(path);
}

UnreadKeys& unreadKeys()
{
    return neverDestroyed<UnreadKeys>();
}

// The key at a path below the user's directory, or why it can't be opened. A key without values is one like others; values
// that are there and can't be read are none.
RegistryResult openAt(const UserDirectory& user, const std::string& path, std::uint32_t access, RegistryKey& key)
{
    const auto directory = openDirectory(user, path);
    std::string lines;
    const int error = !directory ? errno : readFile(directory.get(), valuesFile, mostValues, lines);
    if (error != 0 && (error != ENOENT || !directory)) {
        if (error != ENOENT)
            keepRefusal(user.pathOf(path + '/' + valuesFile), error);
        return resultOf(error);
    }
    auto opened = std::make_unique<KeyBelow>();
    opened->path = path;
    opened->access = access;
    opened->values = parse(lines);
    key = opened.release();
    return windowsError::success;
}

RegistryResult setValue(RegistryKey root, std::string_view name, const Value& value)
{
    if (root->root != nullptr)
        return windowsError::accessDenied;
    auto& key = static_cast<KeyBelow&>(*root);
    if ((key.access & maySet) == 0)
        return windowsError::accessDenied;
    key.values[std::string(name)] = value;
    key.changes[std::string(name)] = value;
    return windowsError::success;
}

// Another process may have written the key since it was opened: only what was set here is changed. When somebody holds the
// directory and does not give it up, the values are written all the same.
void writeChanges(const KeyBelow& key)
{
    UserDirectory user(Place::state, IfMissing::isNone);
    if (!user)
        return;
    static_cast<void>(user.keepOthersOut());
    const auto directory = openDirectory(user, key.path);
    std::string lines;
    int error = directory ? readFile(directory.get(), valuesFile, mostValues, lines) : errno;
    if (directory && (error == 0 || error == ENOENT)) {
        auto values = parse(lines);
        for (const auto& [name, value] : key.changes)
            values[name] = value;
        error = replaceFile(directory.get(), valuesFile, format(values)) ? 0 : errno;
    }
    if (error != 0)
        keepRefusal(user.pathOf(key.path + '/' + valuesFile), error);
}

} // namespace

RegistryKey rootKey(RootKey root) noexcept
{
    static constinit std::array<OpenKey, 5> roots{{{"registry/HKEY_CLASSES_ROOT"},
                                                   {"registry/HKEY_CURRENT_CONFIG"},
                                                   {"registry/HKEY_CURRENT_USER"},
                                                   {"registry/HKEY_LOCAL_MACHINE"},
                                                   {"registry/HKEY_USERS"}}};
    return &roots.at(static_cast<std::size_t>(root));
}

RegistryResult openKey(RegistryKey parent, std::string_view path, std::uint32_t access, RegistryKey& key) noexcept
try {
    key = nullptr;
    std::string joined;
    if (!joinPath(*parent, path, joined))
        return windowsError::notFound;
    const UserDirectory user(Place::state, IfMissing::isNone);
    const auto result = user ? openAt(user, joined, access, key) : resultOf(user.error());
    unreadKeys().keep(user.pathOf(joined), result != windowsError::success && result != windowsError::notFound);
    auto mark = markOf(parent, path);
    starvedKey.compare_exchange_strong(mark, 0);
    return result;
} catch (const std::exception&) {
    starvedKey = markOf(parent, path);
    closeKey(std::exchange(key, nullptr));
    return windowsError::outOfMemory;
}

RegistryResult createKey(RegistryKey parent, std::string_view path, std::uint32_t access, RegistryKey& key) noexcept
try {
    key = nullptr;
    std::string joined;
    if (!joinPath(*parent, path, joined))
        return windowsError::invalidParameter;
    const UserDirectory user(Place::state, IfMissing::isMade);
    if (!user || starvedKey == markOf(parent, path) || unreadKeys().contain(user.pathOf(joined)))
        return windowsError::accessDenied;
    if (!makeDirectories(user, joined)) {
        const int error = errno;
        keepRefusal(user.pathOf(joined), error);
        return resultOf(error);
    }
    return openAt(user, joined, access, key);
} catch (const std::exception&) {
    return windowsError::outOfMemory;
}

RegistryResult deleteKey(RegistryKey parent, std::string_view path, std::uint32_t) noexcept
try {
    std::string joined;
    if (!joinPath(*parent, path, joined) || path.empty())
        return windowsError::notFound;
    UserDirectory user(Place::state, IfMissing::isNone);
    if (!user)
        return resultOf(user.error());
    if (!user.keepOthersOut())
        return windowsError::accessDenied;
    const auto directory = openDirectory(user, joined);
    if (!directory)
        return resultOf(errno);
    std::vector<std::string> below;
    if (!readKeys(directory.get(), below) || !below.empty())
        return windowsError::accessDenied;
    if (unlinkat(directory.get(), valuesFile, 0) != 0 && errno != ENOENT)
        return resultOf(errno);
    return unlinkat(user.get(), joined.c_str(), AT_REMOVEDIR) == 0 ? windowsError::success : resultOf(errno);
} catch (const std::exception&) {
    return windowsError::outOfMemory;
}

RegistryResult listKeys(RegistryKey key, std::vector<std::string>& names) noexcept
try {
    names.clear();
    const UserDirectory user(Place::state, IfMissing::isNone);
    if (!user)
        return resultOf(user.error());
    const auto directory = openDirectory(user, pathOf(*key));
    return directory && readKeys(directory.get(), names) ? windowsError::success : resultOf(errno);
} catch (const std::exception&) {
    return windowsError::outOfMemory;
}

void closeKey(RegistryKey key) noexcept
{
    if (key == nullptr || key->root != nullptr)
        return;
    const std::unique_ptr<KeyBelow> closed(static_cast<KeyBelow*>(key));
    try {
        if (!closed->changes.empty())
            writeChanges(*closed);
    } catch (const std::exception&) {
        return; // The old values stay.
    }
}

RegistryResult queryValue(RegistryKey key, std::string_view name, void* data, std::uint32_t& bytes) noexcept
try {
    if (key->root != nullptr || (static_cast<KeyBelow*>(key)->access & mayQuery) == 0)
        return windowsError::accessDenied;
    const auto& values = static_cast<KeyBelow*>(key)->values;
    const auto found = values.find(std::string(name));
    if (found == values.end())
        return windowsError::notFound;
    std::uint32_t number = 0;
    std::u16string text;
    const void* from = &number;
    auto size = std::uint32_t{sizeof number};
    if (const auto* value = std::get_if<std::uint32_t>(&found->second))
        number = *value;
    else {
        text =
            std::wstring_convert<std::codecvt_utf8_utf16<char16_t>, char16_t>().from_bytes(std::get<std::string>(found->second));
        from = text.c_str();
        size = static_cast<std::uint32_t>((text.size() + 1) * sizeof(char16_t));
    }
    const auto room = std::exchange(bytes, size);
    if (data == nullptr)
        return windowsError::success;
    if (room < size)
        return windowsError::moreData;
    std::memcpy(data, from, size);
    return windowsError::success;
} catch (const std::exception&) {
    return windowsError::outOfMemory;
}

RegistryResult setNumber(RegistryKey key, std::string_view name, std::uint32_t value) noexcept
try {
    return setValue(key, name, value);
} catch (const std::exception&) {
    return windowsError::outOfMemory;
}

RegistryResult setText(RegistryKey key, std::string_view name, std::string_view text) noexcept
try {
    return setValue(key, name, std::string(text));
} catch (const std::exception&) {
    return windowsError::outOfMemory;
}

} // namespace quorel::platform
