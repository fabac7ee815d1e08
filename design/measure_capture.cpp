// SPDX-License-Identifier: MIT
// Prints what the compiled capture effect does, as tables for the program that fills the pages:
//
//   measure_capture curves   impulse responses of curve 1 and 2 at 16000, then at 48000 frames per second, one a column, a second
//   measure_capture gate     for each level of speech above the one at which the gate is fully open, in dB: ms until the gate
//                            turns by less than 1 dB once speech has begun; s until it turns by 6, 20 and 49 dB once it has ended
//   measure_capture clicks   for each change of a setting: the largest step between two samples of a tone about the change, over
//                            the tone's own largest; then the frames that noise reduction is late at 16000 and 48000
//   measure_capture settling for each rate, each noise and each level in dB of full scale: s from the stream's start, and from a
//                            rise of the noise by 10 dB, until noise reduction stays within 1 dB of what it takes off in the end;
//                            last what that is, in dB
//
// Blocks are 10 ms long.
#include "core/signal_path.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>
#include <numbers>
#include <random>
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

// White noise of a mean square of 1: minimal standard generator, so that every machine has the same.
class White {
public:
    double next()
    {
        double sum = 0.0;
        for (int i = 0; i < 12; ++i) // twelve of a variance of 1/12 each
            sum += static_cast<double>(random()) / 2147483647.0 - 0.5;
        return sum;
    }

private:
    std::minstd_rand random;
};

using Noise = std::function<double()>; // its next sample, of any mean square

Noise white(std::uint32_t)
{
    return [source = White()]() mutable { return source.next(); };
}

// Poles an octave and two thirds apart: 3 dB per octave from 40 Hz up.
Noise pink(std::uint32_t rate)
{
    return [source = White(), state = std::array<double, 6>(), rate]() mutable {
        const double x = source.next();
        double sum = 0.0;
        double corner = 40.0; // Hz
        for (double& y : state) {
            const double pole = std::exp(-2.0 * std::numbers::pi * corner / rate);
            y = pole * y + (1.0 - pole) * x;
            sum += y / std::sqrt(corner);
            corner *= 3.2;
        }
        return sum;
    };
}

// A fan: 6 dB per octave from 100 Hz up.
Noise fan(std::uint32_t rate)
{
    return [source = White(), pole = std::exp(-2.0 * std::numbers::pi * 100.0 / rate), y = 0.0]() mutable {
        y = pole * y + (1.0 - pole) * source.next();
        return y;
    };
}

// The mains and its multiples to 1 kHz, 6 dB per octave.
Noise hum(std::uint32_t rate)
{
    return [rate, i = std::uint64_t{0}]() mutable {
        double sum = 0.0;
        for (int k = 1; k <= 20; ++k)
            sum += std::sin(2.0 * std::numbers::pi * 50.0 * k * static_cast<double>(i % (rate / 50)) / rate + k * k) / k;
        ++i;
        return sum;
    };
}

// For each tenth of a second from the fifth on: the gain in dB over the half second that ends there.
std::vector<double> gains(const std::vector<double>& in, const std::vector<double>& out)
{
    std::vector<double> found;
    for (std::size_t end = 5; end <= in.size(); ++end) {
        double before = 0.0;
        double after = 0.0;
        for (std::size_t i = end - 5; i < end; ++i) {
            before += in[i];
            after += out[i];
        }
        found.push_back(10.0 * std::log10(after / before));
    }
    return found;
}

void settling()
{
    constexpr int tenths = 200; // s / 10 of each level
    constexpr int settled = 50; // the last of them, over which the gain that is held is measured
    for (const std::uint32_t rate : {16000U, 48000U}) {
        for (const auto& make : {white, pink, fan, hum}) {
            double power = 0.0;
            Noise trial = make(rate);
            for (std::uint32_t i = 0; i < 20 * rate; ++i)
                power += std::pow(trial(), 2.0) / (20.0 * rate);
            for (const double level : {-60.0, -50.0, -40.0, -30.0}) {
                Microphone microphone(rate);
                microphone.change([](SettingsRecord& record) { record.MicNR = 1; });
                Noise noise = make(rate);
                double held = 0.0;
                std::printf("%u %g", rate, level);
                for (const double louder : {0.0, 10.0}) {
                    const double gain = std::sqrt(std::pow(10.0, (level + louder) / 10.0) / power);
                    std::vector<double> before;
                    std::vector<double> after;
                    for (int tenth = 0; tenth < tenths; ++tenth) {
                        double in = 0.0;
                        double out = 0.0;
                        for (int b = 0; b < 10; ++b)
                            for (const float sample : microphone.run([&](std::uint64_t) {
                                     const double x = gain * noise();
                                     in += x * x;
                                     return x;
                                 }))
                                out += std::pow(static_cast<double>(sample), 2.0);
                        before.push_back(in);
                        after.push_back(out);
                    }
                    const auto all = gains(before, after);
                    held = 0.0;
                    for (auto late = all.end() - settled; late != all.end(); ++late)
                        held += *late / settled;
                    const auto last = std::find_if(all.rbegin(), all.rend(), [&](double each) { return each > held + 1.0; });
                    // The half second that ends with tenth k + 4 begins with tenth k.
                    std::printf(" %.1f", last == all.rend() ? 0.0 : static_cast<double>(all.rend() - last + 4) / 10.0);
                }
                std::printf(" %.9g\n", held);
            }
        }
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
    else if (std::strcmp(what, "settling") == 0)
        quorel::settling();
    else {
        std::fputs("usage: measure_capture curves|gate|clicks|settling\n", stderr);
        return 1;
    }
}
