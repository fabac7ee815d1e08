// SPDX-License-Identifier: MIT
// Prints what the compiled render effect does, as tables for the programs that draw the pages about it:
//
//   measure_path room        impulse responses of the reverberator: left and right ear for each of the eight speakers, a second
//   measure_path lines       of each line of the reverberator: length, allpass delay, twelve taps of its two filter sections
//   measure_path equalizer   impulse responses of the whole path's equaliser, one a column, for the settings of the first line
//   measure_path bands       the same for each band at 127 by itself
//   measure_path limiter     level, gain of the curve at it; an empty line; then a 1 kHz sine that rises to +12 dB after 10 ms:
//                            input and output
//
// All at 48000 frames per second, in blocks of 480 frames.
#include "core/signal_path.h"
#include "speaker/built_in.h"
#include "speaker/compressor_tables.h"
#include "stages/compressor.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <numbers>

namespace quorel {
namespace {

constexpr std::uint64_t block = 480; // frames

// One impulse after the other on all speakers, each into a room of its own.
void room()
{
    constexpr std::size_t speakers = 8;
    constexpr std::uint64_t blocks = 100;
    std::vector<std::array<float, 2 * speakers>> responses(blocks * block);
    for (std::size_t s = 0; s < speakers; ++s) {
        FDN<speakers> fdn = builtInRoom<speakers>({0, 1, 2, 3, 4, 5, 6, 7}, block);
        PaddedBuffer<speakers> in(1024, 169);
        Buffer<float, 2> out(block);
        in.setSize(in.overlap() + block);
        in.channel(s)[in.overlap()] = 1.0F;
        for (std::uint64_t b = 0; b < blocks; ++b) {
            fdn.process(in, out);
            in.channel(s)[in.overlap()] = 0.0F;
            for (std::uint64_t i = 0; i < block; ++i)
                for (std::size_t ear = 0; ear < 2; ++ear)
                    responses[b * block + i][2 * s + ear] = out.channel(ear)[i];
        }
    }
    for (const auto& frame : responses)
        for (std::size_t column = 0; column < frame.size(); ++column)
            std::printf("%.7g%c", static_cast<double>(frame[column]), column + 1 < frame.size() ? ' ' : '\n');
}

void lines()
{
    for (std::size_t l = 0; l < fdnLineTable.size(); ++l) {
        std::printf("%d %d", static_cast<int>(fdnLineTable[l].length), static_cast<int>(fdnLineTable[l].allpassDelay));
        for (const float tap : fdnLineFilters[l])
            std::printf(" %.9g", static_cast<double>(tap));
        std::printf("\n");
    }
}

// A stereo path with the surround effect off, so that the left output is the left input through equaliser, limiters and the
// output gain, which is taken out again.
class Stereo {
public:
    explicit Stereo(const std::array<std::int32_t, 9>& bands) : path(SignalPath::Speaker{}, 2, 0x3, block, 48000)
    {
        path->settings()->EQBand = bands;
        for (int b = 0; b < 2; ++b) // past the fades of the first block
            run(std::vector<float>(block).data());
    }

    // The left output of a block on the left input.
    const std::vector<float>& run(const float* left)
    {
        for (std::uint64_t i = 0; i < block; ++i)
            in[2 * i] = left[i];
        path->process(in.data(), block, frames.data(), block);
        for (std::uint64_t i = 0; i < block; ++i)
            out[i] = frames[8 * i] / 0.8F;
        return out;
    }

private:
    SignalPath path;
    std::vector<float> in = std::vector<float>(2 * block);
    std::vector<float> frames = std::vector<float>(8 * block);
    std::vector<float> out = std::vector<float>(block);
};

using Bands = std::array<std::int32_t, 9>;

void equalizer(const std::vector<Bands>& settings)
{
    for (const auto& bands : settings)
        for (std::size_t b = 0; b < bands.size(); ++b)
            std::printf("%d%c", static_cast<int>(bands[b]), b + 1 < bands.size() ? ',' : ' ');
    std::printf("\n");

    constexpr float level = 0.125F; // far below the limiters
    std::vector<std::vector<float>> responses;
    for (const auto& bands : settings) {
        Stereo path(bands);
        std::vector<float> in(block);
        std::vector<float>& response = responses.emplace_back();
        in[0] = level;
        for (int b = 0; b < 60; ++b) {
            const auto& out = path.run(in.data());
            in[0] = 0.0F;
            response.insert(response.end(), out.begin(), out.end());
        }
    }
    for (std::size_t i = 0; i < responses[0].size(); ++i)
        for (std::size_t s = 0; s < responses.size(); ++s)
            std::printf("%.9g%c", static_cast<double>(responses[s][i] / level), s + 1 < responses.size() ? ' ' : '\n');
}

void limiter()
{
    const Compressor<2> compressor(renderAttack, renderRelease, renderCurve);
    for (int tenth = -120; tenth <= 400; ++tenth) { // dB
        const float level = std::pow(10.0F, static_cast<float>(tenth) / 200.0F);
        std::printf("%.9g %.9g\n", static_cast<double>(level), static_cast<double>(compressor.gainFor(level)));
    }
    std::printf("\n");

    Stereo path({});
    std::vector<float> in(block);
    for (std::uint64_t b = 0; b < 100; ++b) {
        for (std::uint64_t i = 0; i < block; ++i) {
            const auto time = static_cast<double>(b * block + i) / 48000.0;
            const double peak = b == 0 ? 0.25 : 4.0;
            in[i] = static_cast<float>(peak * std::sin(2.0 * std::numbers::pi * 1000.0 * time));
        }
        const auto& out = path.run(in.data());
        for (std::uint64_t i = 0; i < block; ++i)
            std::printf("%.9g %.9g\n", static_cast<double>(in[i]), static_cast<double>(out[i]));
    }
}

} // namespace
} // namespace quorel

int main(int argc, char** argv)
{
    const char* const what = argc == 2 ? argv[1] : "";
    if (std::strcmp(what, "room") == 0)
        quorel::room();
    else if (std::strcmp(what, "lines") == 0)
        quorel::lines();
    else if (std::strcmp(what, "equalizer") == 0)
        quorel::equalizer({{127, 127, 127, 127, 127, 127, 127, 127, 127},
                           {0, 0, 0, 127, 0, 0, 0, 0, 0},
                           {127, 85, 42, 0, -42, 0, 42, 85, 127},
                           {-127, 127, -127, 127, -127, 127, -127, 127, -127}});
    else if (std::strcmp(what, "bands") == 0) {
        std::vector<quorel::Bands> alone(9, quorel::Bands{});
        for (std::size_t band = 0; band < alone.size(); ++band)
            alone[band][band] = 127;
        quorel::equalizer(alone);
    } else if (std::strcmp(what, "limiter") == 0)
        quorel::limiter();
    else {
        std::fputs("usage: measure_path room|lines|equalizer|bands|limiter\n", stderr);
        return 1;
    }
}
