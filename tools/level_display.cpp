// SPDX-License-Identifier: MIT
#include "tools/level_display.h"

#include "microphone/microphone_tables.h"
#include "platform/programs/terminal.h"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <iostream>
#include <sstream>

namespace quorel {

namespace {

constexpr int pictureLines = 10; // nine bars and the time
constexpr int barWidth = 60;     // characters, one for each dB
constexpr float lowest = -60;    // dB

} // namespace

std::array<std::string, 9> levelCaptions(std::uint32_t sampleRate)
{
    // Band 0 is not reported.
    std::array<std::string, 9> captions;
    const MicrophoneRateRow& row = *microphoneRate(sampleRate);
    const double bin = static_cast<double>(sampleRate) / static_cast<double>(row.fftLength); // Hz
    double edge = bin * static_cast<double>(row.levelWidths[0]);
    for (std::size_t k = 0; k < captions.size(); ++k) {
        const double next = edge + bin * static_cast<double>(row.levelWidths[k + 1]);
        std::ostringstream text;
        if (next > edge)
            text << std::setw(5) << std::lround(edge) << " to " << std::setw(5) << std::lround(next) << " Hz";
        else
            text << "  no frequencies ";
        captions[k] = text.str();
        edge = next;
    }
    return captions;
}

LevelDisplay::LevelDisplay(std::uint32_t sampleRate) : captions(levelCaptions(sampleRate))
{
    const platform::TerminalMoves moves = platform::terminalMoves();
    clear = moves.clear;
    for (int i = 0; i < pictureLines; ++i)
        up += moves.up;
}

void LevelDisplay::show(const float* levels, double seconds, bool atOnce)
{
    const auto now = std::chrono::steady_clock::now();
    if (!usable() || (drawn && !atOnce && now - last < std::chrono::milliseconds(40)))
        return;

    std::ostringstream picture;
    if (drawn)
        picture << up;
    picture << std::fixed << std::setprecision(0);
    for (std::size_t k = 0; k < captions.size(); ++k) {
        const float shown = std::isfinite(levels[k]) ? std::clamp(levels[k], lowest, 0.0F) : lowest;
        const auto length = static_cast<std::size_t>(std::lround(shown - lowest));
        picture << captions[k] << ' ' << std::string(length, '#') << std::string(barWidth - length, '.') << std::setw(4)
                << levels[k] << " dB" << clear << '\n';
    }
    picture << std::setprecision(1) << seconds << " s" << clear << '\n';
    std::cerr << picture.str() << std::flush;
    drawn = true;
    last = now;
}

} // namespace quorel
