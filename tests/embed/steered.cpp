// SPDX-License-Identifier: MIT
// A microphone stream without an audio engine, steered through the shared block as from another process.
#include <quorel/control_client.h>
#include <quorel/settings_handler.h>
#include <quorel/signal_path.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <exception>
#include <random>
#include <thread>
#include <vector>

namespace {

constexpr std::uint32_t rate = 48000;  // frames per second
constexpr std::uint32_t frames = 480;  // of a block: 10 ms
constexpr std::uint32_t blocks = 1000; // ten seconds
constexpr std::uint32_t offAt = 100;   // the block behind which noise reduction is switched off, whatever was kept
constexpr std::uint32_t onAt = 500;    // and on

double decibels(const std::vector<float>& block)
{
    double power = 1e-12;
    for (const float x : block)
        power += static_cast<double>(x) * static_cast<double>(x) / static_cast<double>(block.size());
    return 10.0 * std::log10(power);
}

} // namespace

int main()
try {
    // Configuration thread: may wait, allocates and pins all memory.
    const auto settings = quorel::SettingsHandler::instance(quorel::SettingsHandler::layoutVersion);
    const quorel::SignalPath path(quorel::SignalPath::Microphone{}, 1, 0, frames, rate);
    settings->poll(*path->settings());
    settings->writeActiveFormat(0, static_cast<float>(rate));

    std::vector<float> block(frames);
    std::minstd_rand random;
    std::uniform_real_distribution<float> noise(-0.1F, 0.1F);
    quorel::ControlClient control; // stands for another process
    double before = 0.0;

    // Audio thread: what this loop does with `settings` and `path` neither waits nor allocates.
    for (std::uint32_t i = 0; i < blocks; ++i) {
        for (float& x : block)
            x = noise(random);

        settings->poll(*path->settings());
        try {
            path->process(block.data(), frames, block.data(), frames);
        } catch (const std::exception&) {
            // This block is lost; the next one runs normally.
        }
        if (const float* levels = path->levels(); levels != nullptr)
            settings->writeLevels(levels);

        if (i == offAt || i == onAt) {
            before = decibels(block);
            control.update([&](quorel::SettingsRecord& wanted) {
                wanted.MicNR = i == onAt;
                wanted.levelsEnabled = 1;
            });
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1)); // stands for the sound card
    }

    const double after = decibels(block);
    std::printf("noise: %.1f dB, reduced: %.1f dB, level of band 5: %.1f dB\n", before, after,
                static_cast<double>(control.levels()[5]));
    settings->writeIdleLevels();
    return after < before - 6.0 ? 0 : 1;
} catch (const std::exception& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return 1;
}
