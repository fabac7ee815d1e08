// SPDX-License-Identifier: MIT
// What a panel finds in the file of what another one's bypass has turned off.
#include "panel/kept_values.h"
#include "platform/programs/process.h"
#include "tests/fuzz/fuzz.h"
#include "tests/support/private_home.h"

#include <filesystem>
#include <fstream>

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace quorel;
    const std::filesystem::path folder = platform::userFolder();
    std::filesystem::create_directories(folder);
    std::ofstream(folder / "bypassed", std::ios::binary)
        .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    const Values loaded = loadKeptValues();
    for (const auto& [field, value] : loaded)
        require(field->kept && value >= field->low && value <= field->high, "a value is one of a setting in its range");
    saveKeptValues(loaded);
    require(loadKeptValues() == loaded, "what is saved is loaded as it was");
    return 0;
}
