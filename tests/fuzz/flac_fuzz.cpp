// SPDX-License-Identifier: MIT
#include "tests/fuzz/audio_reading.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 4 || (std::memcmp(data, "fLaC", 4) != 0 && std::memcmp(data, "ID3", 3) != 0))
        return -1;
    return quorel::readAudio(data, size);
}
