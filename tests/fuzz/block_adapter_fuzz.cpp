// SPDX-License-Identifier: MIT
// Calls of any lengths to blocks of any length: each frame leaves once and in order, behind as much silence as is told.
#include "live/block_adapter.h"
#include "tests/fuzz/fuzz.h"

#include <vector>

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace quorel;
    FuzzInput input(data, size);
    const std::uint32_t rows = input.below(8) + 1;
    const std::uint32_t kept = input.below(rows) + 1;
    const std::uint32_t block = input.below(1000) + 1;
    BlockAdapter adapter(rows, rows, kept, block, input.below(block));
    const auto same = [&](const float* x, float* y) { std::copy_n(x, std::size_t{block} * rows, y); };

    float in = 0;  // number of the last frame that went in
    float out = 0; // and that came out
    std::uint32_t silent = 0;
    for (int call = 0; call < 64 && !input.ended(); ++call) {
        const std::uint32_t n = input.below(2000);
        std::vector<std::vector<float>> from(rows, std::vector<float>(n));
        std::vector<std::vector<float>> to(kept, std::vector<float>(n, -1.0F));
        std::vector<const float*> inRows;
        std::vector<float*> outRows;
        for (auto& row : from) {
            for (std::uint32_t i = 0; i < n; ++i)
                row[i] = in + static_cast<float>(i + 1);
            inRows.push_back(row.data());
        }
        for (auto& row : to)
            outRows.push_back(row.data());
        in += static_cast<float>(n);
        adapter.process(inRows.data(), outRows.data(), n, same);

        for (std::uint32_t i = 0; i < n; ++i) {
            for (const auto& row : to)
                require(row[i] == to[0][i], "the rows leave together");
            if (to[0][i] == 0)
                ++silent;
            else
                require(to[0][i] == ++out, "each frame leaves once and in order");
        }
        require(adapter.delay() < block, "no delay is as long as a block");
        require(silent <= adapter.delay(), "there is no more silence than is told");
        require(in - out <= static_cast<float>(adapter.delay()), "no frame waits for longer than is told");
    }
    return 0;
}
