// SPDX-License-Identifier: MIT
// A capture path is built once and moved once, into the object behind its front: the move allocates no sample memory.
#include "microphone/microphone_path.h"

#include "tests/core/memory_faulty.h"
#include "tests/microphone/cases.h"

#include <type_traits>

namespace quorel {
namespace {

using platform::faultyMemory;

TEST(PathMove, ACapturePathTakesItsSampleMemoryAlong)
{
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        using Path = MicrophonePath<N, float>;
        static_assert(std::is_nothrow_move_constructible_v<Path> && !std::is_copy_constructible_v<Path>);
        faultyMemory.allocations = 0;
        Path path(0, 480, rate);
        const int ofOnePath = faultyMemory.allocations;
        EXPECT_GT(ofOnePath, 0);
        const Path moved(std::move(path));
        EXPECT_EQ(faultyMemory.allocations, ofOnePath);

        faultyMemory.allocations = 0;
        const SignalPath front(SignalPath::Microphone{}, N, 0, 480, rate);
        EXPECT_EQ(faultyMemory.allocations, ofOnePath) << "the front moves the path in";
    });
}

TEST(PathMove, ACapturePathWithoutMemoryIsNotBuiltAndReleasesWhatItHad)
{
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        using Path = MicrophonePath<N, float>;
        faultyMemory.allocations = 0;
        static_cast<void>(Path(0, 480, rate));
        const int ofOnePath = faultyMemory.allocations;
        const int before = faultyMemory.blocks;
        for (int k = 1; k <= ofOnePath; ++k) {
            faultyMemory.allocations = 0;
            faultyMemory.failingAllocation = k;
            EXPECT_THROW(Path(0, 480, rate), std::bad_alloc) << "allocation " << k;
            EXPECT_EQ(faultyMemory.blocks, before) << "allocation " << k;
        }
        faultyMemory.failingAllocation = 0;
    });
}

} // namespace
} // namespace quorel
