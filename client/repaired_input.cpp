// SPDX-License-Identifier: MIT
#include "client/repaired_input.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <utility>

namespace quorel {

RepairedInput::RepairedInput(std::unique_ptr<platform::InputFile> input, std::uint64_t wordPlace, std::string word)
    : input(std::move(input)), wordPlace(wordPlace), word(std::move(word))
{
}

SNDFILE* RepairedInput::open(SF_INFO& info)
{
    static constexpr auto self = [](void* object) { return static_cast<RepairedInput*>(object); };
    SF_VIRTUAL_IO operations{
        [](void* object) { return static_cast<sf_count_t>(self(object)->input->bytes()); },
        [](sf_count_t by, int from, void* object) { return self(object)->seek(by, from); },
        [](void* to, sf_count_t bytes, void* object) { return self(object)->read(static_cast<char*>(to), bytes); },
        [](const void*, sf_count_t, void*) { return sf_count_t{0}; }, // nothing is written
        [](void* object) { return self(object)->position; },
    };
    return sf_open_virtual(&operations, SFM_READ, &info, this);
}

// The library is C and takes no exception.
sf_count_t RepairedInput::read(char* to, sf_count_t bytes) noexcept
try {
    const auto first = static_cast<std::uint64_t>(position);
    std::string part = input->read(first, static_cast<std::size_t>(bytes));
    for (std::size_t i = 0; i < word.size(); ++i)
        if (wordPlace + i >= first && wordPlace + i < first + part.size())
            part[wordPlace + i - first] = word[i];
    std::copy(part.begin(), part.end(), to);
    position += static_cast<sf_count_t>(part.size());
    return static_cast<sf_count_t>(part.size());
} catch (const std::exception& error) {
    failure_ = error.what();
    return 0;
}

sf_count_t RepairedInput::seek(sf_count_t by, int from)
{
    const sf_count_t start = from == SEEK_CUR ? position : from == SEEK_END ? static_cast<sf_count_t>(input->bytes()) : 0;
    position = std::max<sf_count_t>(start + by, 0);
    return position;
}

} // namespace quorel
