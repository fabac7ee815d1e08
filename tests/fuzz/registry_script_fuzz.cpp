// SPDX-License-Identifier: MIT
// A registration script is refused, or can be entered and taken out again, whichever operation of the registry fails.
#include "host/registry_script.h"
#include "tests/fuzz/fuzz.h"
#include "tests/host/registry_fake.h"

#include <stdexcept>

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace quorel;
    FuzzInput input(data, size);
    const auto failing = input.number<std::uint8_t>();
    auto& fake = platform::registryFake();
    fake = {};
    try {
        const RegistryScript script(input.all(), {{"MODULE", "C:\\it's 100%\\zelta.dll"}, {"NAME", ""}});
        const auto entered = script.enter();
        require(fake.open.empty(), "no key stays open");
        const auto made = fake.keys;
        require(script.enter() == entered, "a script can be entered twice");
        require(script.remove() == 0 || entered != 0, "what was entered can be taken out");
        require(fake.open.empty(), "no key stays open");

        fake = {};
        fake.failingCall = failing;
        const auto result = script.enter();
        require(result == 0 || result == entered || result == fake.failure, "the first failure is what is returned");
        require(fake.open.empty(), "no key stays open");
    } catch (const std::invalid_argument&) {
    }
    return 0;
}
