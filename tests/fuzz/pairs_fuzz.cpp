// SPDX-License-Identifier: MIT
// Responses in an audio file of fourteen channels.
#include "tests/fuzz/responses_import.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const quorel::MemoryFile file(data, size);
    return quorel::importResponses(file.path(), quorel::Equalize::none);
}
