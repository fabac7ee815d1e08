// SPDX-License-Identifier: MIT
// Responses in a SOFA file. A library reads it that is made for good files, so the work is done where it is done for users: in a
// child process, whose crash is a refusal.
#include "tests/fuzz/responses_import.h"
#include "tests/support/private_home.h"

#include <fstream>

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const auto path = quorel::privateHome.path() / "fuzz.sofa";
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    return quorel::importResponses(path.string());
}
