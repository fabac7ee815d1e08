// SPDX-License-Identifier: MIT
// A path is built once and moved once, into the object behind its front: the move takes everything over and allocates nothing.
#include "speaker/speaker_path.h"

#include "tests/core/memory_faulty.h"
#include "tests/speaker/cases.h"

#include <type_traits>
#include <vector>

namespace quorel {
namespace {

using platform::faultyMemory;

constexpr std::size_t frames = 480;
constexpr std::array<std::uint32_t, 9> masks = {0, 0x4, 0x3, 0x7, 0x33, 0x37, 0x3F, 0x61F, 0x63F};

template <std::size_t N>
std::vector<float> process(SpeakerPath<N, float>& path, std::uint32_t seed)
{
    Noise level(seed);
    std::vector<float> in(N * frames);
    for (float& sample : in)
        sample = 0.1F * level();
    std::vector<float> out(8 * frames);
    path.process({in.data(), frames}, {out.data(), frames});
    return out;
}

TEST(PathMove, ARenderPathTakesItsSampleMemoryAndItsStateAlong)
{
    forChannelCounts([]<std::size_t N>() {
        using Path = SpeakerPath<N, float>;
        static_assert(std::is_nothrow_move_constructible_v<Path> && !std::is_copy_constructible_v<Path>);
        Path path(masks[N], frames, 48000);
        Path twin(masks[N], frames, 48000);
        for (Path* each : {&path, &twin}) {
            each->settings().Settings = 1;
            each->settings().Reverb = 170;
            each->settings().EQBand[3] = 60;
            process(*each, 1);
        }
        const int before = faultyMemory.allocations;
        EXPECT_GT(before, 0);
        Path moved(std::move(path));
        EXPECT_EQ(faultyMemory.allocations, before);
        EXPECT_EQ(process(moved, 2), process(twin, 2));
        EXPECT_THROW(process(path, 3), UninitializedBuffer); // NOLINT(bugprone-use-after-move)
    });
}

TEST(PathMove, TheFrontMovesThePathInAndAllocatesNoMore)
{
    forChannelCounts([]<std::size_t N>() {
        faultyMemory.allocations = 0;
        const SpeakerPath<N, float> path(masks[N], frames, 48000);
        const int ofOnePath = faultyMemory.allocations;
        faultyMemory.allocations = 0;
        const SignalPath front(SignalPath::Speaker{}, N, masks[N], frames, 48000);
        EXPECT_EQ(faultyMemory.allocations, ofOnePath);
    });
}

TEST(PathMove, ARenderPathWithoutMemoryIsNotBuiltAndReleasesWhatItHad)
{
    faultyMemory.allocations = 0;
    static_cast<void>(SpeakerPath<2, float>(masks[2], frames, 48000));
    const int ofOnePath = faultyMemory.allocations;
    const int before = faultyMemory.blocks;
    for (int k = 1; k <= ofOnePath; ++k) {
        faultyMemory.allocations = 0;
        faultyMemory.failingAllocation = k;
        EXPECT_THROW((SpeakerPath<2, float>(masks[2], frames, 48000)), std::bad_alloc) << "allocation " << k;
        EXPECT_EQ(faultyMemory.blocks, before) << "allocation " << k;
    }
    faultyMemory.failingAllocation = 0;
}

} // namespace
} // namespace quorel
