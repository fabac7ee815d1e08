// SPDX-License-Identifier: MIT
// Prints what the compiled capture effect does, as tables for the program that fills the pages:
//
//   measure_capture curves   impulse responses of curve 1 and 2 at 16000, then at 48000 frames per second, one a column, a second
//   measure_capture gate     for each level of speech above the one at which the gate is fully open, in dB: ms until the gate
//                            turns by less than 1 dB once speech has begun; s until it turns by 6, 20 and 49 dB once it has ended
//   measure_capture clicks   for each change of a setting: the largest step between two samples of a tone about the change, over
//                            the tone's own largest; then the frames that noise reduction is late at 16000 and 48000
//
// Blocks are 10 ms long.
#include "core/signal_path.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>
#include <numbers>
#include <vector>

namespace quorel {
namespace {

// A microphone of one channel.
class Microphone {
public:
    explicit Microphone(std::uint32_t rate) : block(rate / 100), path(SignalPath::Microphone{}, 1, 0x4, block, rate) {}

    // Changes the settings from the next block on.
    void change(const std::function<void(SettingsRecord&)>& how)
    {
        how(*path->settings());
        path->settings()->applied = 0;
    }

    // A block of the signal, whose sample at frame i since the start is x(i).
    std::vector<float> run(const std::function<double(std::uint64_t)>& x)
    {
        std::vector<float> in(block);
        std::vector<float> out(block);
        for (float& sample : in)
            sample = static_cast<float>(x(frame++));
        path->process(in.data(), block, out.data(), block);
        return out;
    }

    std::uint32_t block; // frames

private:
    SignalPath path;
    std::uint64_t frame = 0;
};

void curves()
{
    for (const std::uint32_t rate : {16000U, 48000U}) {
        std::vector<std::vector<float>> responses;
        for (const std::uint32_t curve : {1U, 2U}) {
            Microphone microphone(rate);
            microphone.change([&](SettingsRecord& record) { record.micEq = curve; });
            microphone.run([](std::uint64_t) { return 0.0; });
            std::vector<float>& response = responses.emplace_back();
            for (int b = 0; b < 100; ++b) {
                const auto out = microphone.run([&](std::uint64_t i) { return i == microphone.block ? 1.0 : 0.0; });
                response.insert(response.end(), out.begin(), out.end());
            }
        }
        for (std::size_t i = 0; i < responses[0].size(); ++i)
            std::printf("%.9g %.9g\n", static_cast<double>(responses[0][i]), static_cast<double>(responses[1][i]));
    }
}

// A steady level stands for speech, and one of -100 dB, which the envelope falls to, for the room behind it: so the gate's gain is
// the ratio of output and input at each frame.
void gate()
{
    constexpr std::uint32_t rate = 48000;
    constexpr double quiet = 1e-5;
    constexpr double open = -44.0; // dB; at noiseGate 1
    const auto after = [](Microphone& microphone, double level, double limit, bool above) {
        for (int b = 0; b < 2000; ++b) {
            const auto out = microphone.run([&](std::uint64_t) { return level; });
            for (std::size_t i = 0; i < out.size(); ++i) {
                const double gain = 20.0 * std::log10(std::abs(static_cast<double>(out[i])) / level);
                if (above ? gain > limit : gain < limit)
                    return static_cast<double>(static_cast<std::size_t>(b) * out.size() + i) / rate;
            }
        }
        return -1.0;
    };
    for (const double over : {0.0, 3.0, 6.0, 10.0, 20.0, 30.0, 40.0}) {
        const double speech = std::pow(10.0, (open + over) / 20.0);
        std::printf("%g", over);
        for (const double limit : {-1.0, -6.0, -20.0, -49.0}) {
            Microphone microphone(rate);
            microphone.change([](SettingsRecord& record) { record.noiseGate = 1; });
            const double opening = after(microphone, speech, -1.0, true);
            for (int b = 0; b < 100; ++b)
                microphone.run([&](std::uint64_t) { return speech; });
            std::printf(" %.9g", limit == -1.0 ? 1000.0 * opening : after(microphone, quiet, limit, false));
        }
        std::printf("\n");
    }
}

// The tone's phase at the change differs from one of the tries to the next.
void clicks()
{
    constexpr std::uint32_t rate = 48000;
    constexpr double turn = 2.0 * std::numbers::pi * 203.0 / rate;
    constexpr double level = 0.1;
    using Change = std::function<void(SettingsRecord&)>;
    struct Case {
        Change before;
        Change change;
    };
    const auto none = [](SettingsRecord&) {};
    const std::vector<Case> cases = {
        {none, [](SettingsRecord& record) { record.MicNR = 1; }},
        {[](SettingsRecord& record) { record.MicNR = 1; }, [](SettingsRecord& record) { record.MicNR = 0; }},
        {none, [](SettingsRecord& record) { record.micEq = 1; }},
        {none, [](SettingsRecord& record) { record.micEq = 2; }},
        {[](SettingsRecord& record) { record.micEq = 1; }, [](SettingsRecord& record) { record.micEq = 0; }},
        {[](SettingsRecord& record) { record.micEq = 1; }, [](SettingsRecord& record) { record.Reverb = 1; }},
        {none, [](SettingsRecord& record) { record.noiseGate = 1; }},
        {[](SettingsRecord& record) { record.noiseGate = 255; }, [](SettingsRecord& record) { record.noiseGate = 0; }},
    };
    for (const Case& each : cases) {
        double worst = 0.0;
        for (int tries = 0; tries < 20; ++tries) {
            Microphone microphone(rate);
            microphone.change(each.before);
            const auto tone = [&](std::uint64_t i) { return level * std::sin(turn * static_cast<double>(i)); };
            float last = 0.0F;
            double own = 0.0; // the tone's largest step as it is before the change or two seconds behind it
            double most = 0.0;
            for (int b = 0; b < 420; ++b) {
                if (b == 200 + tries)
                    microphone.change(each.change);
                for (const float sample : microphone.run(tone)) {
                    const double step = std::abs(static_cast<double>(sample - last));
                    if ((b >= 100 && b < 200) || b >= 400)
                        own = std::max(own, step);
                    else if (b >= 200 && b < 250)
                        most = std::max(most, step);
                    last = sample;
                }
            }
            worst = std::max(worst, most / own);
        }
        std::printf("%.9g\n", worst);
    }
    for (const std::uint32_t late : {16000U, 48000U}) {
        Microphone microphone(late);
        microphone.change([](SettingsRecord& record) { record.MicNR = 1; });
        const std::uint64_t click = 100 * microphone.block; // a second on, when the gains have risen
        std::vector<float> heard;
        for (int b = 0; b < 120; ++b) {
            const auto out = microphone.run([&](std::uint64_t i) { return i == click ? 0.5 : 0.0; });
            heard.insert(heard.end(), out.begin(), out.end());
        }
        const auto loudest =
            std::max_element(heard.begin(), heard.end(), [](float a, float b) { return std::abs(a) < std::abs(b); });
        std::printf("%d\n", static_cast<int>(loudest - heard.begin()) - static_cast<int>(click));
    }
}

} // namespace
} // namespace quorel

int main(int argc, char** argv)
{
    const char* const what = argc == 2 ? argv[1] : "";
    if (std::strcmp(what, "curves") == 0)
        quorel::curves();
    else if (std::strcmp(what, "gate") == 0)
        quorel::gate();
    else if (std::strcmp(what, "clicks") == 0)
        quorel::clicks();
    else {
        std::fputs("usage: measure_capture curves|gate|clicks\n", stderr);
        return 1;
    }
}
