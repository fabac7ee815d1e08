#include "tools/level_display.h"

#include "microphone/microphone_tables.h"
#include "tools/tool.h"

#include <cmath>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <term.h>
#include <unistd.h>

namespace quorel {

namespace {

constexpr int pictureLines = 10; // nine bars and the time
constexpr int barWidth = 60;     // characters, one for each dB
constexpr float lowest = -60;    // dB

// What the terminal's description says, empty if it says nothing.
std::string capability(const char* name)
{
    const char* text = tigetstr(name);
    return text == nullptr || reinterpret_cast<std::intptr_t>(text) == -1 ? std::string() : std::string(text);
}

} // namespace

LevelDisplay::LevelDisplay(std::uint32_t sampleRate)
{
    int problem = 0;
    if (!onTerminal() || setupterm(nullptr, STDERR_FILENO, &problem) != 0)
        return;
    clear = capability("el");
    const std::string one = capability("cuu1");
    for (int i = 0; i < pictureLines; ++i)
        up += one;

    // Band 0 is not reported.
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
        const auto length = std::isfinite(levels[k]) ? static_cast<std::size_t>(std::lround(levels[k] - lowest)) : 0;
        picture << captions[k] << ' ' << std::string(length, '#') << std::string(barWidth - length, '.') << std::setw(4)
                << levels[k] << " dB" << clear << '\n';
    }
    picture << std::setprecision(1) << seconds << " s" << clear << '\n';
    std::cerr << picture.str() << std::flush;
    drawn = true;
    last = now;
}

} // namespace quorel
