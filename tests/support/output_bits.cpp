// SPDX-License-Identifier: MIT
// output_bits prints a hash of every bit that fixed sessions of both effects give, in every variant of the kernels that runs
// here: one line each. A change that must not be heard leaves all lines as they are, with one compiler on one machine.
#include "core/kernels/select.h"
#include "core/signal_path.h"

#include <array>
#include <bit>
#include <cstdio>
#include <random>
#include <vector>

namespace quorel {
namespace {

class Hash {
public:
    void add(const float* x, std::size_t n)
    {
        for (std::size_t i = 0; i < n; ++i)
            for (std::uint32_t bits = std::bit_cast<std::uint32_t>(x[i]), k = 0; k < 4; ++k, bits >>= 8)
                value = (value ^ (bits & 0xFF)) * 0x100000001B3;
    }

    std::uint64_t value = 0xCBF29CE484222325;
};

// The same numbers with every standard library.
class Numbers {
public:
    explicit Numbers(std::uint32_t seed) : engine(seed) {}

    std::uint32_t below(std::uint32_t n) { return static_cast<std::uint32_t>(engine() % n); }
    float level() { return static_cast<float>(static_cast<std::int32_t>(engine())) * 0x1p-31F; }

private:
    std::mt19937 engine;
};

constexpr std::size_t hrtfFloats = 1024;

// What a block is made of: noise, a rare loud sample, silence, and a record that changes now and then.
template <class Kind>
std::uint64_t session(Kind kind, std::int32_t channels, std::uint32_t mask, std::uint32_t rate, std::uint32_t fixedBlock)
{
    constexpr bool render = std::is_same_v<Kind, SignalPath::Speaker>;
    constexpr std::uint32_t maxFrames = 848;
    constexpr int blocks = 240;
    const auto C = static_cast<std::size_t>(channels);
    const SignalPath path(kind, channels, mask, maxFrames, rate);
    Numbers numbers(mask * 8 + rate + fixedBlock);
    std::vector<float> set(2 * C * hrtfFloats);
    for (float& bin : set)
        bin = 0.2F * numbers.level();
    std::vector<float> in(maxFrames * C), out(maxFrames * 8);
    Hash hash;
    for (int block = 0; block < blocks; ++block) {
        if (block % 20 == 0) {
            SettingsRecord& record = *path->settings();
            record.blockSequence = static_cast<std::uint32_t>(block);
            record.Settings = block % 100 != 60;
            record.Reverb = block % 80 == 40 ? 0 : numbers.below(256);
            for (std::int32_t& band : record.EQBand)
                band = block % 60 == 0 ? 0 : static_cast<std::int32_t>(numbers.below(255)) - 127;
            record.micEq = numbers.below(3);
            record.noiseGate = block % 40 == 0 ? 0 : numbers.below(256);
            record.MicNR = block % 60 != 40;
            record.levelsEnabled = 1;
            if (render && block >= 120) {
                record.hrtfId = block < 200 ? 1 : 0;
                record.hrtfLength = hrtfFloats;
                record.hrtfChannels = static_cast<std::uint32_t>(channels);
                record.hrtfData = set.data();
            }
            record.applied = 0;
        }
        std::uint32_t n = fixedBlock != 0 ? fixedBlock : 1 + numbers.below(maxFrames);
        if (n == 48 || n == 64)
            ++n; // the room's pre-delays refuse these
        const bool silent = block % 50 >= 35;
        for (std::size_t i = 0; i < n * C; ++i)
            in[i] = silent ? 0.0F : 0.3F * numbers.level();
        if (block % 30 == 29)
            in[0] = 4.0F;
        path->process(in.data(), n, out.data(), n);
        hash.add(out.data(), n * (render ? 8 : C));
        if (const float* levels = path->levels(); levels != nullptr)
            hash.add(levels, 9);
    }
    return hash.value;
}

void printAll(const kernels::KernelTable& variant)
{
    const kernels::ForcedVariant forced(variant);
    constexpr std::array<std::uint32_t, 8> masks = {0x4, 0x3, 0x7, 0x33, 0x37, 0x3F, 0x61F, 0x63F}; // of 1 to 8 channels
    const auto line = [&](const char* kind, std::int32_t channels, std::uint32_t rate, std::uint32_t block, std::uint64_t hash) {
        std::printf("%-8s %-10s %d channels %5u Hz block %3u  %016llx\n", variant.name, kind, channels, rate, block,
                    static_cast<unsigned long long>(hash));
    };
    for (std::int32_t channels = 1; channels <= 8; ++channels) {
        const std::uint32_t mask = masks[static_cast<std::size_t>(channels - 1)];
        for (const std::uint32_t block : {0U, 80U, 441U, 480U, 848U})
            line("render", channels, 48000, block, session(SignalPath::Speaker{}, channels, mask, 48000, block));
        line("render", channels, 44100, 441, session(SignalPath::Speaker{}, channels, mask, 44100, 441));
        for (const std::uint32_t rate : {16000U, 48000U})
            for (const std::uint32_t block : {0U, rate / 100, 3 * rate / 200})
                line("capture", channels, rate, block, session(SignalPath::Microphone{}, channels, 0, rate, block));
    }
}

} // namespace
} // namespace quorel

int main()
{
    for (const quorel::kernels::KernelTable* variant : quorel::kernels::availableVariants())
        quorel::printAll(*variant);
}
