// SPDX-License-Identifier: MIT
#include <quorel/signal_path.h>

#include <cstdio>
#include <vector>

int main()
{
    // 7.1 in, blocks of at most 480 frames at 48000 frames per second.
    const quorel::SignalPath path(quorel::SignalPath::Speaker{}, 8, 0x63F, 480, 48000);

    quorel::SettingsRecord& settings = *path->settings();
    settings.Settings = 1; // the surround effect
    settings.Reverb = 120; // -5.3 dB
    settings.applied = 0;  // the path takes the record over at its next block

    std::vector<float> in(480 * 8);
    std::vector<float> out(480 * 8); // frames of eight slots: left, right and six zeros
    in[0] = 0.5F;                    // a click on the front left speaker
    path->process(in.data(), 480, out.data(), 480);

    for (std::size_t frame = 0; frame < 20; ++frame)
        std::printf("%+.4f  %+.4f\n", static_cast<double>(out[frame * 8]), static_cast<double>(out[frame * 8 + 1]));
}
