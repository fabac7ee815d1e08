// SPDX-License-Identifier: MIT
// A set of responses that another process may have put into the share, and what it says of it, through the render path. What is
// not copied from the share within its size is the sanitizer's to find.
#include "tests/fuzz/paths.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace quorel;
    FuzzInput input(data, size);
    const auto channels = input.below(8) + 1;
    FuzzedPath path(true, channels, usualMasks.at(channels - 1), 480, 48000);
    SettingsRecord& record = *path.path->settings();
    record.Settings = 1;
    std::vector<float> share(hrtfShareBytes / sizeof(float));
    record.hrtfData = share.data();
    for (int set = 0; set < 8 && !input.ended(); ++set) {
        record.hrtfId = input.number<std::uint32_t>();
        record.hrtfLength = input.below(2) == 0 ? 1024 : input.number<std::uint32_t>();
        record.hrtfChannels = input.below(2) == 0 ? channels : input.number<std::uint32_t>();
        // A pattern of some numbers, over and over, so that a short input fills the share.
        const auto period = input.below(32) + 1;
        for (std::uint32_t i = 0; i < period; ++i)
            share[i] = input.number<float>();
        for (std::size_t i = period; i < share.size(); ++i)
            share[i] = share[i - period];
        ++record.blockSequence;
        record.applied = 0;
        path.run(input.below(480) + 1, 480, input);
    }
    return 0;
}
