// SPDX-License-Identifier: MIT
// EffectStream is one effect as a live stream has it: a path behind its block adapter, the settings that steer it, and what
// keeps a bad block from doing harm.
//
//   rows in -> BlockAdapter -> SampleBorder -> path (steered by poll) -> bypass -> BlockAdapter -> rows out
//
// A block that the path refuses becomes silence of its length and is counted with the reason; a sample that is not finite, or
// above 2^20, becomes 0. Bypassed, the render effect's place is taken by its stereo down-mix, the capture effect's by the
// microphone as it is; the path goes on beneath, so that it is back at once. Each switching is faded over one block.
#pragma once

#include "client/sample_border.h"
#include "core/signal_path.h"
#include "live/block_plan.h"
#include "live/stream_status.h"
#include "settings/settings_handler.h"
#include "speaker/speaker_tables.h"

#include <array>
#include <atomic>
#include <memory>

namespace quorel {

class BlockAdapter;

inline constexpr std::uint32_t effectRate = 48000; // frames per second that both effects are run at

// What a stream consists of.
struct StreamKind {
    bool microphone = false;
    std::uint32_t channels = 8;        // of the input; a microphone's output has as many
    std::uint32_t mask = everySpeaker; // of the input
    std::uint32_t outputs() const noexcept { return microphone ? channels : 2; }
};

class EffectStream {
public:
    // Not for the audio thread. `bypass` and `status` belong to the stream's owner, as the path's successors share them.
    EffectStream(const StreamKind& kind, BlockPlan plan, std::shared_ptr<SettingsHandler> settings,
                 const std::atomic<bool>& bypass, StreamStatus& status);
    ~EffectStream();

    // n frames of each row, as BlockAdapter has it.
    void process(const float* const* in, float* const* out, std::uint32_t n);
    void finish(const float* const* in, float* const* out, std::uint32_t n);

    // Whether calls of n frames can go on without more delay. varying: and calls of any other length.
    bool serves(std::uint32_t n, bool varying) const noexcept;

    std::uint32_t block() const noexcept;
    std::uint32_t delay() const noexcept;

private:
    void runBlock(float* in, float* out) noexcept;
    bool runPath(float* in, float* out) noexcept;
    void blendBypass(const float* in, float* out) noexcept;

    StreamKind kind;
    std::uint32_t slots; // of a frame that the path writes
    std::shared_ptr<SettingsHandler> settings;
    const std::atomic<bool>& bypass;
    StreamStatus& status;
    std::array<std::array<float, 8>, 2> dryGains{}; // of the input's channels in the bypassed render effect's outputs
    float dry = 0.0F;                               // share of the bypassed signal at the end of the last block
    SampleBorder border;
    SignalPath path;
    std::unique_ptr<BlockAdapter> adapter;
};

} // namespace quorel
