// SPDX-License-Identifier: MIT
#include "host/registry_script.h"

#include <algorithm>
#include <stdexcept>

namespace quorel {

namespace {

using platform::RegistryKey;
using platform::RegistryResult;

constexpr RegistryResult success = 0;
constexpr RegistryResult notFound = 2;
constexpr std::uint32_t keyReadWrite = 0x2001F; // KEY_READ and KEY_WRITE

// Keys are removed from the leaves up: the system removes none that has keys below it.
RegistryResult removeTree(RegistryKey parent, const std::string& name)
{
    RegistryKey key = nullptr;
    auto result = platform::openKey(parent, name, keyReadWrite, key);
    if (result == notFound)
        return success;
    if (result != success)
        return result;
    std::vector<std::string> below;
    result = platform::listKeys(key, below);
    for (const auto& child : below) {
        if (result == success)
            result = removeTree(key, child);
    }
    platform::closeKey(key);
    return result == success ? platform::deleteKey(parent, name, 0) : result;
}

} // namespace

// Takes the words of a script one after the other. A word in quotes keeps its first quote, by which it is known as a text.
class RegistryScript::Reader {
public:
    Reader(std::string_view script, const Replacements& replacements) : rest(script), replacements(replacements) { advance(); }

    Key script()
    {
        expect("HKCR");
        Key hive{"HKCR", Removal::never};
        block(hive);
        if (!word.empty())
            fail();
        return hive;
    }

private:
    void block(Key& key)
    {
        expect("{");
        while (!take("}")) {
            if (take("val")) {
                auto name = this->name();
                expect("=");
                key.values.emplace_back(std::move(name), text());
                continue;
            }
            Key child;
            if (take("NoRemove"))
                child.removal = Removal::never;
            else if (take("ForceRemove"))
                child.removal = Removal::force;
            child.name = name();
            if (take("="))
                child.values.emplace_back("", text());
            if (word == "{")
                block(child);
            key.keys.push_back(std::move(child));
        }
    }

    std::string name()
    {
        if (word.empty() || word == "{" || word == "}" || word == "=" || word.front() == quote)
            fail();
        std::string result(word);
        advance();
        return result;
    }

    std::string text()
    {
        expect("s");
        if (word.empty() || word.front() != quote)
            fail();
        std::string result;
        for (std::size_t i = 1; i + 1 < word.size(); ++i) {
            if (word[i] == quote)
                result += word[i++]; // and its twin is passed over
            else if (word[i] != '%')
                result += word[i];
            else {
                const auto end = word.find('%', i + 1);
                if (end == std::string_view::npos)
                    fail();
                const auto replaced = word.substr(i + 1, end - i - 1);
                const auto found = replacements.find(replaced);
                if (!replaced.empty() && found == replacements.end())
                    throw std::invalid_argument("RegistryScript: unknown replacement");
                result += replaced.empty() ? "%" : found->second;
                i = end;
            }
        }
        advance();
        return result;
    }

    bool take(std::string_view expected)
    {
        if (word != expected)
            return false;
        advance();
        return true;
    }

    void expect(std::string_view expected)
    {
        if (!take(expected))
            fail();
    }

    void advance()
    {
        constexpr std::string_view space = " \t\r\n";
        rest.remove_prefix(std::min(rest.find_first_not_of(space), rest.size()));
        auto length = std::min(rest.find_first_of(space), rest.size());
        if (!rest.empty() && rest.front() == quote) {
            length = 1;
            for (; length < rest.size(); ++length) {
                if (rest[length] == quote && !rest.substr(length + 1).starts_with(quote))
                    break;
                if (rest[length] == quote)
                    ++length;
            }
            if (length++ >= rest.size())
                fail();
        }
        word = rest.substr(0, length);
        rest.remove_prefix(length);
    }

    [[noreturn]] static void fail() { throw std::invalid_argument("RegistryScript: not a script"); }

    static constexpr char quote = '\'';

    std::string_view word; // the one that comes next, empty at the end
    std::string_view rest; // what follows it
    const Replacements& replacements;
};

RegistryScript::RegistryScript(std::string_view text, const Replacements& replacements)
    : root(Reader(text, replacements).script())
{
}

RegistryResult RegistryScript::enter() const
{
    for (const auto& key : root.keys) {
        if (const auto result = enter(key, platform::rootKey(platform::RootKey::classesRoot)); result != success)
            return result;
    }
    return success;
}

RegistryResult RegistryScript::remove() const
{
    for (const auto& key : root.keys) {
        if (const auto result = remove(key, platform::rootKey(platform::RootKey::classesRoot)); result != success)
            return result;
    }
    return success;
}

RegistryResult RegistryScript::enter(const Key& key, RegistryKey parent)
{
    if (key.removal == Removal::force) {
        if (const auto result = removeTree(parent, key.name); result != success)
            return result;
    }
    RegistryKey made = nullptr;
    auto result = platform::createKey(parent, key.name, keyReadWrite, made);
    if (result != success)
        return result;
    for (const auto& [name, text] : key.values) {
        if (result == success)
            result = platform::setText(made, name, text);
    }
    for (const auto& child : key.keys) {
        if (result == success)
            result = enter(child, made);
    }
    platform::closeKey(made);
    return result;
}

RegistryResult RegistryScript::remove(const Key& key, RegistryKey parent)
{
    if (key.removal != Removal::never)
        return removeTree(parent, key.name);
    RegistryKey stays = nullptr;
    auto result = platform::openKey(parent, key.name, keyReadWrite, stays);
    if (result != success)
        return result == notFound ? success : result;
    for (const auto& child : key.keys) {
        if (result == success)
            result = remove(child, stays);
    }
    platform::closeKey(stays);
    return result;
}

} // namespace quorel
