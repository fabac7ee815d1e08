// SPDX-License-Identifier: MIT
// An attacker beside the effect: another process writes random bytes, and mixtures that look like settings, into the control
// block and the HRTF share, changes the sequence and signals as it likes, while a render and a capture stream run.
//
//   share_fuzz SECONDS [SEED]
//
// Nothing may crash or hang, write outside a block's samples, or allocate but where an exception is raised. A record that a
// path refuses makes it throw. At the end come good records: a new path sounds exactly as one that was never attacked, and the
// attacked ones give finite sound again.
#include "settings/settings_handler.h"

#include "core/signal_path.h"
#include "tests/process/child.h"
#include "tests/real_time/allocation_count.h"
#include "tests/support/control_application.h"
#include "tests/support/temporary_home.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace quorel {
namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

class Random {
public:
    explicit Random(std::uint32_t seed) : engine(seed) {}

    std::uint32_t bits() { return static_cast<std::uint32_t>(engine()); }
    std::uint32_t below(std::uint32_t limit) { return bits() % limit; }
    bool oneIn(std::uint32_t n) { return below(n) == 0; }
    float sample() { return static_cast<float>(static_cast<std::int32_t>(bits())) * 0x1p-31F; }

    template <typename T, std::size_t N>
    T of(const std::array<T, N>& choices)
    {
        return choices[below(N)];
    }

private:
    std::mt19937 engine;
};

[[noreturn]] void fail(const char* what)
{
    std::fprintf(stderr, "share_fuzz: %s\n", what);
    std::abort();
}

// ---- The attacker -------------------------------------------------------------------------------------------------------

constexpr std::array<std::uint32_t, 8> masks = {0x4, 0x3, 0x7, 0x33, 0x37, 0x3F, 0x61F, 0x63F}; // of 1 to 8 channels

std::uint32_t hostileNumber(Random& random)
{
    constexpr std::array<std::uint32_t, 12> edges = {0, 1, 2, 3, 127, 255, 256, 1023, 1'025, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
    return random.oneIn(2) ? random.of(edges) : random.bits();
}

float hostileSample(Random& random)
{
    constexpr auto limits = std::numeric_limits<float>();
    constexpr std::array<float, 8> edges = {
        limits.quiet_NaN(), limits.infinity(), -limits.infinity(), limits.max(), 1e-41F, -0.0F, 1e20F, limits.signaling_NaN()};
    return random.oneIn(2) ? random.of(edges) : std::bit_cast<float>(random.bits());
}

// Some fields get values of their range, some hostile ones, some stay.
void mixFields(Random& random, SettingsRecord& record)
{
    const auto number = [&random](std::uint32_t limit, std::uint32_t now) {
        const auto kind = random.below(8);
        return kind == 0 ? hostileNumber(random) : kind < 5 ? random.below(limit) : now;
    };
    record.Enabled = static_cast<std::uint8_t>(number(2, record.Enabled));
    record.Settings = static_cast<std::uint8_t>(number(2, record.Settings));
    record.MicNR = static_cast<std::uint8_t>(number(2, record.MicNR));
    record.micEq = number(3, record.micEq);
    for (auto& band : record.EQBand)
        band = random.oneIn(8) ? static_cast<std::int32_t>(hostileNumber(random))
                               : static_cast<std::int32_t>(random.below(255)) - 127;
    record.noiseGate = number(256, record.noiseGate);
    record.Reverb = number(256, record.Reverb);
    record.levelsEnabled = static_cast<std::uint8_t>(number(2, record.levelsEnabled));
}

// A set for the running stream more often than not, of values that may be anything.
void mixSet(Random& random, SettingsRecord& record, const ControlBlock& block, float* share)
{
    const auto fits = static_cast<std::uint32_t>(std::popcount(block.activeChannelMask));
    record.hrtfId = random.oneIn(4) ? 0 : random.bits();
    record.hrtfLength = random.oneIn(4) ? hostileNumber(random) : 1024;
    record.hrtfChannels = random.oneIn(4) ? hostileNumber(random) : fits;
    const auto kind = random.below(3);
    for (std::size_t i = 0; i < hrtfShareBytes / sizeof(float); ++i)
        share[i] = kind == 0 || (kind == 1 && random.oneIn(1000)) ? hostileSample(random) : 0.01F * random.sample();
}

int attack(double seconds, std::uint32_t seed)
{
    Random random(seed);
    ControlApplication control;
    if (control.share == nullptr)
        fail("the attacker finds no effect");
    auto* bytes = reinterpret_cast<std::byte*>(control.block);
    SettingsRecord record;
    std::uint64_t updates = 0;
    const auto end = Clock::now() + std::chrono::duration<double>(seconds);
    for (; Clock::now() < end; ++updates) {
        auto sequence = control.block->sequence + 1;
        switch (random.below(8)) {
        case 0: { // bytes anywhere
            const auto first = random.below(sizeof(ControlBlock));
            const auto last = first + random.below(sizeof(ControlBlock) - first) + 1;
            for (auto i = first; i < last; ++i)
                bytes[i] = static_cast<std::byte>(random.bits());
            break;
        }
        case 1: { // a few bytes of the settings
            for (int i = 0; i < 4; ++i)
                bytes[settingsOffset + random.below(settingsBytes)] = static_cast<std::byte>(random.bits());
            break;
        }
        case 2: { // the share alone, perhaps while it is copied
            const auto first = random.below(hrtfShareBytes / sizeof(float));
            for (auto i = first; i < std::min<std::size_t>(first + 2000, hrtfShareBytes / sizeof(float)); ++i)
                control.share[i] = hostileSample(random);
            break;
        }
        case 3:
            record = {};
            control.write(record);
            break;
        case 4:
            mixSet(random, record, *control.block, control.share);
            [[fallthrough]];
        default:
            mixFields(random, record);
            control.write(record);
        }
        if (random.oneIn(8))
            sequence = hostileNumber(random);
        if (!random.oneIn(8))
            control.changeSequence(sequence);
        if (!random.oneIn(8))
            control.signal();
        if (random.oneIn(4))
            std::this_thread::sleep_for(std::chrono::microseconds(random.below(1000)));
    }
    std::printf("%llu\n", static_cast<unsigned long long>(updates));
    return 0;
}

// Two good records, with a set of their own for 8 channels. The second one has another equaliser curve: what was infinite or
// not a number stays in the equaliser until it is designed anew, and the block in which the first one takes the place of a
// hostile one may bring such numbers yet.
SettingsRecord goodRecord(std::uint32_t which)
{
    SettingsRecord record;
    record.Settings = 1;
    record.MicNR = 1;
    record.micEq = 1;
    record.EQBand = {20, -20, 30, -30, 40, -40, 50, -50, which == 0 ? 60 : 70};
    record.noiseGate = 60;
    record.Reverb = 120;
    record.levelsEnabled = 1;
    record.hrtfId = 0x600D;
    record.hrtfLength = 1024;
    record.hrtfChannels = 8;
    return record;
}

std::vector<float> goodSet()
{
    std::vector<float> set(hrtfShareBytes / sizeof(float));
    for (std::size_t i = 0; i < set.size(); ++i)
        set[i] = 0.01F * std::sin(static_cast<float>(i % 1024));
    return set;
}

constexpr std::uint32_t goodSequence = 0x600D600D;

int behave(std::uint32_t which)
{
    ControlApplication control;
    control.writeShare(goodSet());
    for (const std::uint32_t back : {1U, 0U}) // one of the two is a change
        control.update(goodRecord(which), goodSequence + 10 * which - back);
    return 0;
}

// ---- The effect ---------------------------------------------------------------------------------------------------------

// Samples between guards, which nobody may touch.
class GuardedSamples {
public:
    explicit GuardedSamples(std::size_t most) : samples(most + 2 * guard, untouched) {}

    float* data() { return samples.data() + guard; }

    // Of a block of this many samples.
    void check(std::size_t count) const
    {
        const auto isUntouched = [](float x) {
            return std::bit_cast<std::uint32_t>(x) == std::bit_cast<std::uint32_t>(untouched);
        };
        if (!std::all_of(samples.begin(), samples.begin() + guard, isUntouched) ||
            !std::all_of(samples.begin() + guard + static_cast<std::ptrdiff_t>(count), samples.end(), isUntouched))
            fail("something was written outside a block");
    }

    void clear() { std::fill(samples.begin(), samples.end(), untouched); }

private:
    static constexpr std::ptrdiff_t guard = 256;
    static constexpr float untouched = 12345.678F;

    std::vector<float> samples;
};

struct Counts {
    std::atomic<std::uint64_t> blocks = 0;
    std::atomic<std::uint64_t> refused = 0;
    std::atomic<std::uint64_t> streams = 0;
};

std::atomic<bool> stopping = false;

// Only Linux counts the allocations of a thread alone.
std::uint64_t ownAllocations()
{
#ifdef __linux__
    return threadAllocationCount();
#else
    return 0;
#endif
}

constexpr std::uint32_t maxFrames = 848;
constexpr std::size_t maxSamples = std::size_t{maxFrames} * 8;

// One block, as an audio engine has it processed; false when it was refused.
bool processBlock(SettingsHandler& handler, SignalPath& path, GuardedSamples& in, std::size_t inSlots, GuardedSamples& out,
                  std::size_t outSlots, std::size_t n)
{
    const auto before = ownAllocations();
    try {
        handler.poll(*path->settings());
        path->process(in.data(), n, out.data(), n);
        if (const float* levels = path->levels(); levels != nullptr)
            handler.writeLevels(levels);
    } catch (const std::exception&) {
        in.check(n * inSlots);
        out.check(n * outSlots);
        return false;
    }
    if (ownAllocations() != before)
        fail("a block that was not refused allocated");
    in.check(n * inSlots);
    out.check(n * outSlots);
    return true;
}

void fill(Random& random, GuardedSamples& in, std::size_t count)
{
    in.clear();
    constexpr std::array<float, 6> scales = {0.1F, 0.0F, 1.0F, 1e-41F, 30.0F, 0.01F};
    const float scale = random.of(scales);
    for (std::size_t i = 0; i < count; ++i)
        in.data()[i] = scale * random.sample();
}

// Streams of every kind one after the other, and among their blocks those of a path that stays, of 8 channels.
template <typename Kind>
void stream(Kind kind, SettingsHandler& handler, SignalPath& veteran, std::uint32_t seed, Counts& counts)
{
    constexpr bool render = std::is_same_v<Kind, SignalPath::Speaker>;
    Random random(seed);
    GuardedSamples in(maxSamples);
    GuardedSamples out(maxSamples);
    while (!stopping) {
        const auto channels = random.oneIn(2) ? std::size_t{8} : std::size_t{1} + random.below(8);
        constexpr std::array<std::uint32_t, 4> renderRates = {48000, 48000, 48000, 96000};
        constexpr std::array<std::uint32_t, 2> captureRates = {16000, 48000};
        const auto rate = render ? random.of(renderRates) : random.of(captureRates);
        const auto mask = render ? masks[channels - 1] : 0;
        SignalPath path(kind, static_cast<std::int32_t>(channels), mask, maxFrames, rate);
        if (render)
            handler.writeActiveFormat(mask, static_cast<float>(rate));
        const auto outSlots = render ? std::size_t{8} : channels;
        const auto blocks = 1 + random.below(500);
        for (std::uint32_t block = 0; block < blocks && !stopping; ++block) {
            const bool old = random.oneIn(4);
            const auto n = std::size_t{1} + random.below(random.oneIn(2) ? maxFrames : 480);
            const auto slots = old ? 8 : channels;
            fill(random, in, n * slots);
            out.clear();
            if (!processBlock(handler, old ? veteran : path, in, slots, out, old ? 8 : outSlots, n))
                ++counts.refused;
            ++counts.blocks;
        }
        if (!render)
            handler.writeIdleLevels();
        ++counts.streams;
    }
}

// ---- The end ------------------------------------------------------------------------------------------------------------

// Another process's good record, as soon as it is in the snapshot.
void awaitGoodRecord(SettingsHandler& handler, std::uint32_t which)
{
    Child good(ownProgram(), {"--behave", std::to_string(which)});
    if (good.exitCode(60s) != 0)
        fail("no good record comes");
    SettingsRecord record;
    const auto end = Clock::now() + 60s;
    while (record.blockSequence != goodSequence + 10 * which) {
        if (Clock::now() > end)
            fail("a good record is not taken over");
        std::this_thread::sleep_for(1ms);
        handler.poll(record);
    }
}

// A path of 8 channels at 48000 frames per second, with what its blocks need.
template <typename Kind>
struct Stream {
    static constexpr std::size_t frames = 480;

    static SignalPath freshPath()
    {
        return {Kind{}, 8, std::is_same_v<Kind, SignalPath::Speaker> ? 0x63FU : 0U, maxFrames, 48000};
    }

    // Of the same sound for every stream.
    template <typename Process>
    const float* run(Process process)
    {
        in.clear();
        for (std::size_t i = 0; i < frames * 8; ++i)
            in.data()[i] = 0.1F * random.sample();
        process(in, out);
        return out.data();
    }

    Random random{9};
    GuardedSamples in{maxSamples};
    GuardedSamples out{maxSamples};
};

template <typename Kind>
void recover(SettingsHandler& handler, SignalPath& attacked)
{
    auto fresh = Stream<Kind>::freshPath();
    auto never = Stream<Kind>::freshPath();
    const auto set = goodSet();
    Stream<Kind> ofFresh;
    Stream<Kind> ofNever;
    Stream<Kind> ofAttacked;
    for (std::uint32_t which = 0; which < 2; ++which) {
        awaitGoodRecord(handler, which);
        SettingsRecord record = goodRecord(which);
        record.hrtfData = set.data();
        record.blockSequence = goodSequence + 10 * which;
        *never->settings() = record;
        const auto steered = [&](SignalPath& path) {
            return [&](GuardedSamples& in, GuardedSamples& out) {
                if (!processBlock(handler, path, in, 8, out, 8, Stream<Kind>::frames))
                    fail("a good record is refused");
            };
        };
        for (int block = 0; block < 200; ++block) {
            const float* expected = ofNever.run([&](GuardedSamples& in, GuardedSamples& out) {
                never->process(in.data(), Stream<Kind>::frames, out.data(), Stream<Kind>::frames);
            });
            if (std::memcmp(ofFresh.run(steered(fresh)), expected, Stream<Kind>::frames * 8 * sizeof(float)) != 0)
                fail("a fresh path sounds different from one that was never attacked");
            const float* y = ofAttacked.run(steered(attacked));
            const bool sounds = std::all_of(y, y + Stream<Kind>::frames * 8, [](float x) { return std::isfinite(x); });
            if (!sounds && which == 1 && block > 0)
                fail("good records don't bring a path back to finite sound");
        }
    }
}

int run(double seconds, std::uint32_t seed)
{
    const TemporaryHome home;
    const auto handler = SettingsHandler::instance(SettingsHandler::layoutVersion);
    Counts render;
    Counts capture;
    SignalPath usedRender(SignalPath::Speaker{}, 8, 0x63F, maxFrames, 48000);
    SignalPath usedCapture(SignalPath::Microphone{}, 8, 0, maxFrames, 48000);

    Child attacker(ownProgram(), {"--attack", std::to_string(seconds), std::to_string(seed)});
    std::thread first([&] { stream(SignalPath::Speaker{}, *handler, usedRender, seed + 1, render); });
    std::thread second([&] { stream(SignalPath::Microphone{}, *handler, usedCapture, seed + 2, capture); });
    // A hang shows as blocks that do not come.
    constexpr auto patience = 60s;
    std::uint64_t seenRender = 0;
    std::uint64_t seenCapture = 0;
    auto lastRender = Clock::now();
    auto lastCapture = lastRender;
    const auto end = lastRender + std::chrono::duration<double>(seconds) + patience;
    while (!attacker.exitCode(100ms)) {
        const auto now = Clock::now();
        if (render.blocks != seenRender)
            lastRender = now;
        if (capture.blocks != seenCapture)
            lastCapture = now;
        seenRender = render.blocks;
        seenCapture = capture.blocks;
        if (now - lastRender > patience || now - lastCapture > patience || now > end)
            fail("something hangs");
    }
    if (attacker.exitCode(0s) != 0)
        fail("the attacker itself failed");
    stopping = true;
    first.join();
    second.join();
    std::printf(
        "seed %u: %s updates, render %llu blocks (%llu refused) in %llu streams, capture %llu blocks (%llu refused) in %llu "
        "streams\n",
        seed, attacker.line().value_or("?").c_str(), static_cast<unsigned long long>(render.blocks),
        static_cast<unsigned long long>(render.refused), static_cast<unsigned long long>(render.streams),
        static_cast<unsigned long long>(capture.blocks), static_cast<unsigned long long>(capture.refused),
        static_cast<unsigned long long>(capture.streams));

    recover<SignalPath::Speaker>(*handler, usedRender);
    recover<SignalPath::Microphone>(*handler, usedCapture);
    return 0;
}

} // namespace
} // namespace quorel

int main(int count, char** words)
{
    const auto number = [&](int i, double otherwise) { return count > i ? std::atof(words[i]) : otherwise; };
    if (count > 1 && std::strcmp(words[1], "--attack") == 0)
        return quorel::attack(number(2, 3), static_cast<std::uint32_t>(number(3, 1)));
    if (count > 1 && std::strcmp(words[1], "--behave") == 0)
        return quorel::behave(static_cast<std::uint32_t>(number(2, 0)));
    return quorel::run(number(1, 3), static_cast<std::uint32_t>(number(2, 1)));
}
