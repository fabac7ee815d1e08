// SPDX-License-Identifier: MIT
// SpeakerModel is the whole render path in double precision, written from its definition.
//
// interleaved input -> HRTF pair of each channel -> limiter --+--> equaliser -> limiter -> 0.8
//                   -> pre-delays -> twelve lines -> decorrelation -> output filter -> gain -+
// or, with the surround effect off, a stereo down-mix in place of the two upper rows.
//
// Filters are convolved directly with their taps, in the circle of 1024 frames that a spectrum
// product would turn them in. A block that the path refuses throws `Failure`, and leaves what
// the finished steps wrote.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "tests/model/parts.h"
#include "tests/model/settings.h"

namespace quorel::model {

// Speakers in the order of the channel mask's bits: front left, front right, front centre, low
// frequency, back left, back right, side left, side right.
constexpr std::size_t speakerCount = 8;

struct SpeakerTables {
    std::array<Signal, speakerCount> left;  // taps to the left ear, 1024 at most
    std::array<Signal, speakerCount> right; // taps to the right ear
    Signal sameSide;                        // decorrelation: own input, 1024 taps at most
    Signal crossSide;                       // decorrelation: the other input
};

// The nine sections of the equaliser for nine band gains in dB.
std::vector<Section> equalizerSections(const std::array<double, 9>& gainsDb);

// The sign of input line `column` in output line `row` of the feedback matrix, +1 or -1.
int mixingSign(std::size_t row, std::size_t column);

// The limiter of the render path, for two channels.
GainRider renderLimiter();

// ---------------------------------------------------------------------------

// The samples written to a line, in a ring. `ago(1)` is the one written last, and nothing older
// than the ring is long can be asked for.
struct Line {
    void write(double sample);
    double ago(std::size_t frames) const;

    Signal ring;
    std::size_t next = 0;
};

// y[n] = g x[n] + x[n-d] - g y[n-d]
class Allpass {
public:
    Allpass(std::size_t delay, float gain);

    double process(double x);

private:
    std::size_t delay;
    double gain;
    Line inputs;
    Line outputs;
};

// The reverberator: a feedback delay network of twelve lines.
class Room {
public:
    static constexpr std::size_t lineCount = 12;

    // `preDelays` are the requested ones, one per input channel.
    Room(const std::vector<std::size_t>& preDelays, std::size_t maxFrames, Signal sameSide, Signal crossSide);

    // One block of the input channels to two channels of tail.
    Rows process(const Rows& in);

private:
    Rows delayed(const Rows& in);

    std::size_t maxFrames;
    Rows preDelay; // the last samples of each input channel, as many as it is delayed by
    std::array<Line, lineCount> lines;
    std::array<Cascade, lineCount> lineFilters;
    std::vector<Allpass> diffusers;
    Window decorrelator;
    Signal sameSide;
    Signal crossSide;
    std::array<Cascade, 2> outputFilter;
};

// ---------------------------------------------------------------------------

class SpeakerModel {
public:
    SpeakerModel(std::size_t channels, std::uint32_t mask, std::size_t maxFrames, std::uint32_t sampleRate,
                 const SpeakerTables& tables);

    // One block of n interleaved frames. `outFrames` is the room in the output, n if left out.
    // Returns n frames of interleaved stereo (the path's slots 0 and 1; its other six are 0).
    // At a rate other than 48000 it returns the n * channels samples of the input.
    Signal process(const RecordFields& fields, const float* in, std::size_t n, std::size_t outFrames);
    Signal process(const RecordFields& fields, const float* in, std::size_t n);

    // What a test may ask about the state behind the last block.
    bool equalizerPending() const { return equalizerChanged; }
    bool reverbPending() const { return reverbChanged; }
    bool surroundWasOn() const { return surroundPrevious; }

private:
    void translate();
    void takeResponses();
    Rows downmix(const Rows& block) const;
    Rows direct() const;
    Rows equalize(const Rows& mix);

    std::size_t channels;
    std::size_t capacity; // frames of the longest block, in whole rows of 16
    std::uint32_t sampleRate;

    Rows leftTaps;
    Rows rightTaps;
    Signal downmixLeft;
    Signal downmixRight;

    RecordFields record{};
    bool applied = false;
    std::uint32_t lastSequence = 0xFFFFFFFF;
    std::uint32_t lastHrtfId = 0;

    bool surround = true;
    bool surroundPrevious = true;
    bool reverbOn = true;
    std::array<double, 9> equalizerTarget{};
    bool equalizerChanged = true;
    float reverbTarget = 0.0f;
    bool reverbChanged = true;
    float reverbGain = 0.0f;

    Window input;
    GainRider directCompressor;
    Room room;
    std::array<Cascade, 2> equalizer;
    GainRider outputCompressor;
};

} // namespace quorel::model
