// SPDX-License-Identifier: MIT
#include "tests/endurance/long_sound.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <ctime>
#include <limits>
#include <stdexcept>
#include <string>
#include <utility>

namespace quorel {

namespace {

// What the second path's cuts are, and how near its sound is to the first one's, against the peak: where the room or the convolver
// is on, the length of a block is part of the sound; the equaliser goes through a block's frames in an order that its length
// decides, which the last bits show; and noise reduction gives whole frames of 5 ms, behind which filters clear a state under 1e-30
// at a block's end.
enum class Cuts { same, any, frames };
constexpr std::array<float, 3> nearness = {0.0F, 3.16e-6F, 1e-27F}; // 110 dB; 1e-30 of the smallest peak that is looked at

constexpr std::uint64_t longest = 480; // frames of a block
constexpr std::uint64_t turn = 20;     // seconds: noise of all kinds, and the last six silence

// The room falls by 60 dB in 0.387 s: from the loudest noise, 8, to what is cleared, 1e-30, that is 4.0 s, and gains add some.
// What stands just above rounds to subnormal numbers in the transforms, so that only the sixth second has none.
constexpr std::uint64_t loud = 14;

} // namespace

struct LongSound::Stream {
    Stream(const char* name, bool render, std::int32_t channels, std::uint32_t mask, std::uint32_t rate, Cuts cuts)
        : name(name),
          render(render),
          channels(static_cast<std::size_t>(channels)),
          slots(render ? 8 : this->channels),
          rate(rate),
          cuts(cuts),
          first(path(render, channels, mask, rate)),
          second(path(render, channels, mask, rate)),
          border(this->channels),
          in(rate * this->channels),
          out(rate * slots),
          other(out.size())
    {
    }

    static SignalPath path(bool render, std::int32_t channels, std::uint32_t mask, std::uint32_t rate)
    {
        return render ? SignalPath(SignalPath::Speaker{}, channels, mask, longest, rate)
                      : SignalPath(SignalPath::Microphone{}, channels, mask, longest, rate);
    }

    const char* name;
    bool render;
    std::size_t channels;
    std::size_t slots; // samples of an output frame
    std::uint32_t rate;
    Cuts cuts;
    SignalPath first;
    SignalPath second;
    SampleBorder border;
    std::vector<float> in; // a second
    std::vector<float> out;
    std::vector<float> other;
    float lastPeak = 0; // of the second before
};

LongSound::LongSound(std::uint32_t seed) : random(seed)
{
    all.push_back(std::make_unique<Stream>("binaural 7.1", true, 8, 0x63F, 48000, Cuts::same));
    all.push_back(std::make_unique<Stream>("down-mix 5.1", true, 6, 0x3F, 48000, Cuts::any));
    all.push_back(std::make_unique<Stream>("microphone at 16000 Hz", false, 1, 0, 16000, Cuts::frames));
    all.push_back(std::make_unique<Stream>("microphone at 48000 Hz", false, 2, 0, 48000, Cuts::frames));
}

LongSound::~LongSound() = default;

std::uint64_t LongSound::streams() const
{
    return all.size();
}

void LongSound::second()
{
    for (const auto& stream : all)
        run(*stream);
    ++seconds;
}

void LongSound::run(Stream& stream)
{
    set(stream);
    fill(stream.in);
    const auto before = stream.border.replaced();
    stream.border.pass(stream.in.data(), stream.rate);
    samples_ += stream.in.size();
    replaced_ += stream.border.replaced() - before;

    // A change fades over its block, which is the same in both.
    const std::uint64_t hop = stream.rate / 200;
    const auto through = [&](SignalPath& path, std::vector<float>& out, bool cut) {
        for (std::uint64_t done = 0, n = longest; done < stream.rate; done += n) {
            if (cut && done > 0)
                n = stream.cuts == Cuts::any ? 1 + random() % longest : hop * (1 + random() % (longest / hop));
            n = std::min(n, stream.rate - done);
            const std::clock_t begin = std::clock(); // of the processor, which other programs do not count in
            path->process(stream.in.data() + done * stream.channels, n, out.data() + done * stream.slots, n);
            const double taken = static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC;
            if (n == longest)
                worst = std::max(worst, taken * stream.rate / static_cast<double>(n));
        }
    };
    through(stream.first, stream.out, false);
    through(stream.second, stream.other, stream.cuts != Cuts::same);
    check(stream);
}

void LongSound::fill(std::vector<float>& x)
{
    const auto level = [this] { return static_cast<float>(static_cast<std::int32_t>(random())) * 0x1p-31F; };
    if (seconds % turn >= loud) {
        std::fill(x.begin(), x.end(), 0.0F);
        return;
    }
    constexpr std::array<float, 4> loudness = {1.0F, 0.01F, 1e-41F, 8.0F}; // 1e-41 is denormal
    const float scale = loudness.at(random() % loudness.size());
    for (float& sample : x)
        sample = scale * level();
    constexpr auto limits = std::numeric_limits<float>();
    constexpr std::array<float, 8> strangers = {
        1.0F, -1.0F, limits.denorm_min(), limits.infinity(), -limits.infinity(), limits.quiet_NaN(), limits.max(), -1e15F};
    for (std::size_t i = random() % 2000; i < x.size(); i += 1 + random() % 2000)
        x[i] = strangers.at(random() % strangers.size());
}

void LongSound::set(Stream& stream)
{
    SettingsRecord record = *stream.first->settings();
    switch (random() % 6) {
    case 0:
        record.Settings = stream.cuts == Cuts::same && random() % 4 != 0;
        record.MicNR = random() % 4 != 0;
        break;
    case 1:
        record.Reverb = stream.cuts == Cuts::same ? static_cast<std::uint32_t>(random() % 256) : 0;
        record.micEq = static_cast<std::uint32_t>(random() % 3);
        break;
    case 2:
        record.noiseGate = static_cast<std::uint32_t>(random() % 256);
        record.levelsEnabled = random() % 2 != 0;
        break;
    default:
        record.EQBand.at(random() % 9) = static_cast<std::int32_t>(random() % 255) - 127;
    }
    ++record.blockSequence;
    record.applied = 0;
    *stream.first->settings() = record;
    *stream.second->settings() = record;
}

void LongSound::check(Stream& stream)
{
    const auto fail = [&](const char* what) {
        throw std::runtime_error(std::string(stream.name) + ", second " + std::to_string(seconds) + ": " + what);
    };
    float peak = 1e-3F; // below which nobody compares
    float apart = 0;
    for (std::size_t i = 0; i < stream.out.size(); ++i) {
        peak = std::max(peak, std::abs(stream.out[i]));
        apart = std::max(apart, std::abs(stream.out[i] - stream.other[i]));
    }
    // Filters hold the second before, and the rounding of what was loud there outlasts the sound.
    const float loudest = std::max(peak, std::exchange(stream.lastPeak, peak));
    if (!(apart <= nearness.at(static_cast<std::size_t>(stream.cuts)) * loudest))
        fail(stream.cuts == Cuts::same ? "the same sound gives another one" : "other cuts give another sound");
    const bool silent = seconds % turn == turn - 1;
    for (const float x : stream.out) {
        if (!std::isfinite(x))
            fail("a sample that is no number");
        if (silent && std::fpclassify(x) == FP_SUBNORMAL)
            fail("a subnormal sample in silence");
    }
}

} // namespace quorel
