// SPDX-License-Identifier: MIT
#include "tools/level_display.h"

#include "microphone/microphone_rates.h"
#include "platform/programs/terminal.h"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <iostream>
#include <sstream>

namespace quorel {

namespace {

constexpr int pictureLines = 10; // nine bars and the time
constexpr float lowest = -60;    // dB, the left end of the bars
constexpr int longestBar = 60;   // characters, one for each dB
constexpr int shortestBar = 6;   // a narrower terminal gets none
constexpr int besideBar = 26;    // characters of a line's caption and number, and one that stays empty: a full line would break
constexpr int usualColumns = 80; // of a terminal that does not say
constexpr float idle = -120;     // dB, the level while no microphone runs

// Characters of a bar in the terminal as it is now.
int barWidth()
{
    const auto told = static_cast<int>(platform::terminalColumns());
    const int room = std::min(longestBar, (told != 0 ? told : usualColumns) - besideBar);
    return room < shortestBar ? 0 : room;
}

} // namespace

std::array<std::array<double, 2>, 9> levelEdges(std::uint32_t sampleRate)
{
    // Band 0 is not reported.
    std::array<std::array<double, 2>, 9> edges{};
    const MicrophoneRateRow& row = *microphoneRate(sampleRate);
    const double bin = static_cast<double>(sampleRate) / static_cast<double>(row.fftLength); // Hz
    double edge = bin * static_cast<double>(row.levelWidths[0]);
    for (std::size_t k = 0; k < edges.size(); ++k) {
        const double next = edge + bin * static_cast<double>(row.levelWidths[k + 1]);
        edges[k] = {edge, next};
        edge = next;
    }
    return edges;
}

std::array<std::string, 9> levelCaptions(std::uint32_t sampleRate)
{
    std::array<std::string, 9> captions;
    const auto edges = levelEdges(sampleRate);
    for (std::size_t k = 0; k < captions.size(); ++k) {
        const auto [from, to] = edges[k];
        std::ostringstream text;
        if (to > from)
            text << std::setw(5) << std::lround(from) << " to " << std::setw(5) << std::lround(to) << " Hz";
        else
            text << "  no frequencies ";
        captions[k] = text.str();
    }
    return captions;
}

bool noMicrophone(std::span<const float, 9> levels)
{
    return std::all_of(levels.begin(), levels.end(), [](float level) { return level == idle; });
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
    const int width = barWidth();
    for (std::size_t k = 0; k < captions.size(); ++k) {
        const float shown = std::isfinite(levels[k]) ? std::clamp(levels[k], lowest, 0.0F) : lowest;
        const auto length = static_cast<std::size_t>(std::lround((shown - lowest) / -lowest * static_cast<float>(width)));
        picture << captions[k] << ' ' << std::string(length, '#') << std::string(static_cast<std::size_t>(width) - length, '.')
                << std::setw(4) << levels[k] << " dB" << clear << '\n';
    }
    const bool silent = noMicrophone(std::span<const float, 9>(levels, captions.size()));
    picture << std::setprecision(1) << seconds << " s" << (silent ? ", no microphone runs" : "") << clear << '\n';
    std::cerr << picture.str() << std::flush;
    drawn = true;
    last = now;
}

} // namespace quorel
