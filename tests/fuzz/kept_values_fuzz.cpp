// SPDX-License-Identifier: MIT
// A file in the place of the kept values: it is refused, and stays as it is, or a value that is set joins those that it holds.
// Then keys are used in any order, while what they ask of the system fails here and there: no value is lost, nor half of one kept.
#include "platform/registry.h"
#include "tests/fuzz/fuzz.h"
#include "tests/support/failing_calls.h"
#include "tests/support/failing_memory.h"
#include "tests/support/private_home.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <vector>

namespace {

using namespace quorel;

constexpr const char* path = "Software\\VEDRA\\QUOREL";
constexpr std::uint32_t keyAll = 0x2001F; // to read and to write
constexpr std::array<const char*, 4> names = {"Enabled", "Reverb", "EQBand9", ""};

platform::RegistryKey user()
{
    return platform::rootKey(platform::RootKey::currentUser);
}

// Where the values stand: in the only file of that name.
std::filesystem::path valuesFile()
{
    platform::RegistryKey key = nullptr;
    static_cast<void>(platform::openKey(user(), path, keyAll, key)); // one that could not be read before may be made anew
    platform::closeKey(key);
    require(platform::createKey(user(), path, keyAll, key) == 0, "the key is made");
    require(platform::setNumber(key, "Enabled", 1) == 0, "a value is set");
    platform::closeKey(key);
    for (const auto& entry : std::filesystem::recursive_directory_iterator(privateHome.path()))
        if (entry.path().filename() == ".values")
            return entry.path();
    require(false, "there is a file of values");
    return {};
}

const std::filesystem::path& file()
{
    static const std::filesystem::path found = valuesFile();
    return found;
}

std::string content()
{
    std::ifstream in(file(), std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

struct Answer {
    platform::RegistryResult result = 0;
    std::uint32_t bytes = 0;
    std::array<char, 64> data{};

    bool operator==(const Answer&) const = default;
};

Answer query(platform::RegistryKey key, const char* name)
{
    Answer answer;
    answer.bytes = answer.data.size();
    answer.result = platform::queryValue(key, name, answer.data.data(), answer.bytes);
    require(answer.result != 0 || answer.bytes <= answer.data.size(), "no more is read than fits");
    return answer;
}

// The values of all the names; none where the key cannot be opened.
std::vector<Answer> queryAll()
{
    platform::RegistryKey key = nullptr;
    std::vector<Answer> answers;
    if (platform::openKey(user(), path, keyAll, key) == 0)
        for (const char* name : names)
            answers.push_back(query(key, name));
    platform::closeKey(key);
    return answers;
}

// ---- Keys in any order ----------------------------------------------------------------------------------------------

constexpr std::array<const char*, 8> places = {path, "Software\\VEDRA", "Below", "", "Software\\.x", "Else", "a/b", "a\\\\b"};
constexpr std::uint32_t keyRead = 0x20019;

// Success and the failures that a key can have.
constexpr std::array<platform::RegistryResult, 7> results = {0, 2, 5, 14, 29, 87, 234};

// At most one of the next operation's calls of the system fails, or its memory ends.
void chooseFailure(FuzzInput& input)
{
    // No call fails because nothing is there: that would be believed.
    constexpr std::array<int, 7> errors = {EIO, ENOSPC, EACCES, ENOMEM, ENOTEMPTY, EMFILE, ELOOP};
    const auto kind = input.below(3);
    const int count = static_cast<int>(input.below(32)) + 1;
    failCall(kind == 1 ? count : 0, errors.at(input.below(errors.size())));
    failAllocation(kind == 2 ? count : 0, true, Counted::own);
}

void failNoMore()
{
    failCall(0, 0);
    failAllocation(0, false, Counted::own);
}

struct Open {
    platform::RegistryKey key;
    std::map<std::string, Answer> changes{}; // what was set, as it is read
};

// What was set is kept as a whole, or nothing of it.
void closeFailing(const Open& open, FuzzInput& input)
{
    const auto before = queryAll();
    chooseFailure(input);
    platform::closeKey(open.key);
    failNoMore();
    const auto after = queryAll();
    auto changed = before;
    for (std::size_t i = 0; i < changed.size(); ++i)
        if (const auto set = open.changes.find(names[i]); set != open.changes.end())
            changed[i] = set->second;
    require(after == before || after == changed, "the values are the old ones or the new ones");
}

void operate(std::vector<Open>& keys, FuzzInput& input)
{
    const auto operation = input.below(8);
    const auto which = input.below(4);
    const platform::RegistryKey key = which < keys.size() ? keys[which].key : user();
    const char* place = places.at(input.below(places.size()));
    const auto access = input.below(4) == 0 ? keyRead : keyAll;
    const std::string name = names.at(input.below(names.size()));
    const auto number = input.number<std::uint32_t>();
    if (operation == 7) {
        if (which < keys.size()) {
            const Open closed = keys[which];
            keys.erase(keys.begin() + which);
            closeFailing(closed, input);
        }
        return;
    }
    const std::string text(input.text(number % 16));
    const std::string before = content();
    std::array<char, 64> data{};
    std::uint32_t room = number % data.size();
    platform::RegistryKey opened = nullptr;
    std::vector<std::string> below;
    chooseFailure(input);
    const auto result = operation == 0   ? platform::openKey(key, place, access, opened)
                        : operation == 1 ? platform::createKey(key, place, access, opened)
                        : operation == 2 ? platform::deleteKey(key, place, 0)
                        : operation == 3 ? platform::listKeys(key, below)
                        : operation == 4 ? platform::queryValue(key, name, number % 3 == 0 ? nullptr : data.data(), room)
                        : operation == 5 ? platform::setNumber(key, name, number)
                                         : platform::setText(key, name, text);
    failNoMore();
    require(std::ranges::find(results, result) != results.end(), "a result is one of those that are known");
    require((opened != nullptr) == (result == 0 && operation < 2), "a key is open where that is told");
    require(operation == 2 || content() == before, "nothing is written before a key is closed");
    if (opened != nullptr)
        keys.push_back({opened});
    if (operation >= 5 && result == 0)
        keys.at(which).changes[name] = query(key, name.c_str());
}

} // namespace

// A byte that tells how many of the bytes behind it are operations, these, and the file.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzInput input(data, size);
    const auto operations = input.text(input.below(256));
    const std::string given(input.all());
    if (!std::filesystem::exists(file()))
        static_cast<void>(valuesFile());
    std::ofstream(file(), std::ios::binary) << given;

    platform::RegistryKey key = nullptr;
    if (platform::openKey(user(), path, keyAll, key) != 0) {
        require(content() == given, "what is refused stays as it is");
    } else {
        std::array<Answer, names.size()> before;
        for (std::size_t i = 0; i < names.size(); ++i)
            before[i] = query(key, names[i]);
        require(platform::setNumber(key, "Reverb", 170) == 0, "a value is set");
        platform::closeKey(key);

        require(platform::openKey(user(), path, keyAll, key) == 0, "what was written is read");
        for (std::size_t i = 0; i < names.size(); ++i) {
            const Answer now = query(key, names[i]);
            if (std::string_view(names[i]) == "Reverb")
                require(now.result == 0 && now.bytes == 4 && now.data[0] == static_cast<char>(170),
                        "the value is the one that was set");
            else
                require(now == before[i], "the others stay");
        }
        platform::closeKey(key);
    }

    if (operations.empty())
        return 0;
    FuzzInput steps(reinterpret_cast<const std::uint8_t*>(operations.data()), operations.size());
    std::vector<Open> keys;
    for (int step = 0; step < 32 && !steps.ended(); ++step)
        operate(keys, steps);
    for (const Open& open : keys)
        closeFailing(open, steps);
    for (const auto& entry : std::filesystem::directory_iterator(file().parent_path().parent_path().parent_path().parent_path()))
        std::filesystem::remove_all(entry);
    return 0;
}
