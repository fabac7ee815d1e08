// SPDX-License-Identifier: MIT
// A file in the place of the kept values: it is refused, and stays as it is, or a value that is set joins those that it holds.
#include "platform/registry.h"
#include "tests/fuzz/fuzz.h"
#include "tests/support/private_home.h"

#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>

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
    require(platform::createKey(user(), path, keyAll, key) == 0, "the key is made");
    require(platform::setNumber(key, "Enabled", 1) == 0, "a value is set");
    platform::closeKey(key);
    for (const auto& entry : std::filesystem::recursive_directory_iterator(privateHome.path()))
        if (entry.path().filename() == ".values")
            return entry.path();
    require(false, "there is a file of values");
    return {};
}

std::string contentOf(const std::filesystem::path& file)
{
    std::ifstream in(file, std::ios::binary);
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

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const std::filesystem::path file = valuesFile();
    const std::string given(reinterpret_cast<const char*>(data), size);
    std::ofstream(file, std::ios::binary) << given;

    platform::RegistryKey key = nullptr;
    if (platform::openKey(user(), path, keyAll, key) != 0) {
        require(contentOf(file) == given, "what is refused stays as it is");
        return 0;
    }
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
    return 0;
}
