// SPDX-License-Identifier: MIT
#include "live/effect_stream.h"

#include "live/block_adapter.h"
#include "speaker/speaker_tables.h"

#include <cmath>
#include <exception>

namespace quorel {

namespace {

constexpr std::uint32_t speakerSlots = 8; // samples in an output frame of the render effect; the first two are the ears
constexpr float speakerOutputGain = 0.8F; // the render effect's own, so that switching changes the effect and not the level

void addSquares(std::atomic<double>& energy, const float* samples, std::size_t n) noexcept
{
    double sum = 0;
    for (std::size_t i = 0; i < n; ++i)
        sum += static_cast<double>(samples[i]) * static_cast<double>(samples[i]);
    energy.store(energy.load(std::memory_order_relaxed) + sum, std::memory_order_relaxed); // one thread writes
}

} // namespace

EffectStream::EffectStream(const StreamKind& kind, BlockPlan plan, std::shared_ptr<SettingsHandler> handler,
                           const std::atomic<bool>& bypass, StreamStatus& status)
    : kind(kind),
      slots(kind.microphone ? kind.channels : speakerSlots),
      settings(std::move(handler)),
      bypass(bypass),
      status(status),
      dry(bypass ? 1.0F : 0.0F),
      border(kind.channels),
      path(kind.microphone
               ? SignalPath(SignalPath::Microphone{}, static_cast<std::int32_t>(kind.channels), 0, plan.block, effectRate)
               : SignalPath(SignalPath::Speaker{}, static_cast<std::int32_t>(kind.channels), kind.mask, plan.block, effectRate)),
      adapter(std::make_unique<BlockAdapter>(kind.channels, slots, kind.outputs(), plan.block, plan.delay))
{
    std::size_t channel = 0;
    for (const SpeakerRow& speaker : speakerTable)
        if ((kind.mask & speaker.bit) != 0 && channel < kind.channels) {
            dryGains[0][channel] = speakerOutputGain * speaker.downmixLeft;
            dryGains[1][channel] = speakerOutputGain * speaker.downmixRight;
            ++channel;
        }
    settings->poll(*path->settings());
}

EffectStream::~EffectStream() = default;

std::uint32_t EffectStream::block() const noexcept
{
    return adapter->block();
}

std::uint32_t EffectStream::delay() const noexcept
{
    return adapter->delay();
}

bool EffectStream::serves(std::uint32_t n, bool varying) const noexcept
{
    return adapter->needed(n) <= adapter->delay() && (!varying || adapter->delay() == adapter->block() - 1);
}

void EffectStream::process(const float* const* in, float* const* out, std::uint32_t n)
{
    adapter->process(in, out, n, [this](float* x, float* y) { runBlock(x, y); });
}

void EffectStream::finish(const float* const* in, float* const* out, std::uint32_t n)
{
    adapter->finish(in, out, n, [this](float* x, float* y) { runBlock(x, y); });
}

void EffectStream::runBlock(float* in, float* out) noexcept
{
    settings->poll(*path->settings());
    const std::uint64_t before = border.replaced();
    border.pass(in, block());
    if (border.replaced() != before)
        status.badSamples.fetch_add(border.replaced() - before, std::memory_order_relaxed);
    if (!runPath(in, out))
        std::fill_n(out, std::size_t{block()} * slots, 0.0F);
    if (const float* levels = path->levels(); levels != nullptr)
        settings->writeLevels(levels);
    blendBypass(in, out);
    if (kind.microphone) {
        addSquares(status.inEnergy, in, std::size_t{block()} * kind.channels);
        addSquares(status.outEnergy, out, std::size_t{block()} * slots);
    }
}

// False when the path refuses the block; raising that is the one thing here that allocates.
bool EffectStream::runPath(float* in, float* out) noexcept
{
    try {
        path->process(in, block(), out, block());
        return true;
    } catch (const std::exception& error) {
        status.refused.fetch_add(1, std::memory_order_relaxed);
        status.refusal.write(error.what());
        return false;
    }
}

void EffectStream::blendBypass(const float* in, float* out) noexcept
{
    const float target = bypass.load(std::memory_order_relaxed) ? 1.0F : 0.0F;
    if (target == 0.0F && dry == 0.0F)
        return;
    const std::uint32_t n = block();
    const std::uint32_t channels = kind.channels;
    for (std::uint32_t i = 0; i < n; ++i) {
        const float* x = in + std::size_t{i} * channels;
        float* y = out + std::size_t{i} * slots;
        const float share = dry + (target - dry) * static_cast<float>(i + 1) / static_cast<float>(n);
        for (std::uint32_t o = 0; o < kind.outputs(); ++o) {
            float plain = 0.0F;
            if (kind.microphone)
                plain = x[o];
            else
                for (std::uint32_t c = 0; c < channels; ++c)
                    plain += x[c] * dryGains[o][c];
            y[o] = share == 1.0F ? plain : y[o] + share * (plain - y[o]);
        }
    }
    dry = target;
}

} // namespace quorel
