// SPDX-License-Identifier: MIT
// Responses in a SOFA file. A library reads it that is made for good files, so the work is done where it is done for users: in a
// child process, whose crash is a refusal.
#include "tests/fuzz/responses_import.h"
#include "tests/support/private_home.h"

#include <fstream>

// A byte that chooses whether the directions are equalised, which takes far longer than to read them, and the file.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace quorel;
    FuzzInput input(data, size);
    const auto equalize = input.below(256) == 0 ? Equalize::byDiffuseField : Equalize::none;
    const auto content = input.all();
    const auto path = privateHome.path() / "fuzz.sofa";
    std::ofstream(path, std::ios::binary).write(content.data(), static_cast<std::streamsize>(content.size()));
    return importResponses(path.string(), equalize);
}
