// SPDX-License-Identifier: MIT
// Session makes a long random run for a path: blocks of changing length, records that change at
// random blocks, and programme material on every channel.
//
// A seed gives the same session on every platform: the random numbers are those of std::mt19937
// itself, and all further arithmetic is sums and products of doubles (sines too are polynomials
// of our own).

#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

#include "tests/model/parts.h"
#include "tests/model/settings.h"

namespace quorel::model {

struct SessionOptions {
    std::uint32_t seed = 1;
    std::size_t channels = 2;
    double sampleRate = 48000.0;
    std::size_t maxBlock = 848;   // longest block that passes
    bool failingBlocks = false;   // also blocks of 0, of a pre-delay's length, and too long ones
    std::size_t hop = 0;          // above 0: most blocks are whole numbers of hops
    std::size_t recordEvery = 20; // blocks between two records, in the mean; 0 for none at all
    bool curves = true;           // records select the microphone's curves too
    bool deliveredSets = false;   // records deliver HRTF sets, some over 177 taps
    bool refusedRecords = false;  // records that the path refuses come too
    float bed = 0.0f;             // peak of a steady noise under all passages
    float loudest = 3.9810717f;   // peak of the loudest passages, +12 dB
};

class Session {
public:
    explicit Session(const SessionOptions& options);

    // Makes the next block.
    void next();

    const RecordFields& fields() const { return record; }
    std::size_t frames() const { return blockFrames; }
    const float* samples() const { return block.data(); } // frames() * channels, interleaved

private:
    enum class Kind { Silence, Noise, Bursts, Sine, Sweep, Clicks };

    // What one channel plays for a while.
    struct Passage {
        Kind kind = Kind::Silence;
        std::size_t left = 0;   // frames still to come
        double height = 0.0;    // peak
        double turn = 0.0;      // phase in whole turns, 0 to 1
        double step = 0.0;      // turns per frame
        double stretch = 1.0;   // factor on `step` per frame
        std::size_t period = 1; // frames between clicks, or of a burst and its pause
    };

    std::uint32_t below(std::uint32_t n); // 0 to n - 1
    bool oneIn(std::uint32_t n);
    double uniform(); // -1 to 1
    void chooseLength();
    void chooseRecord();
    void chooseSet();
    void choosePassage(Passage& passage);
    double play(Passage& passage);

    SessionOptions options;
    std::mt19937 random;
    RecordFields record{};
    std::size_t blockFrames = 0;
    std::size_t heldFor = 0; // blocks that keep the present length
    std::vector<Passage> passages;
    std::vector<float> block;
    std::vector<std::vector<float>> sets; // delivered HRTF sets
    std::uint32_t nextId = 1;
    bool mustMend = false; // the last record was a refused one
};

// sin(2 pi turn) for turns from 0 to 1, to 1e-11.
double sineOfTurn(double turn);

} // namespace quorel::model
