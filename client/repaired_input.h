// SPDX-License-Identifier: MIT
// RepairedInput shows a file to the library of audio files with one word of its header put right, where the library would believe
// what stands there. The file itself stays as it is.
#pragma once

#include "platform/programs/input_file.h"

#include <cstdint>
#include <memory>
#include <sndfile.h>
#include <string>

namespace quorel {

class RepairedInput {
public:
    RepairedInput(std::unique_ptr<platform::InputFile> input, std::uint64_t wordPlace, std::string word);

    // The library keeps the object's address.
    RepairedInput(const RepairedInput&) = delete;
    RepairedInput& operator=(const RepairedInput&) = delete;
    ~RepairedInput() = default;

    // Null where the library takes no such file.
    SNDFILE* open(SF_INFO& info);

    // Why the system gave nothing where the library wanted to read, which was told of the file's end; empty while it gave all.
    const std::string& failure() const noexcept { return failure_; }

private:
    sf_count_t read(char* to, sf_count_t bytes) noexcept;
    sf_count_t seek(sf_count_t by, int from);

    std::unique_ptr<platform::InputFile> input;
    std::uint64_t wordPlace;
    std::string word;
    std::string failure_;
    sf_count_t position = 0;
};

} // namespace quorel
