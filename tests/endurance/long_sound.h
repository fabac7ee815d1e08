// SPDX-License-Identifier: MIT
// LongSound runs sound of every kind through both effects for as long as somebody wants: noise, impulses, denormal numbers,
// silence, and samples that no effect can take at random places, which the programs' border stops; a random setting changes each
// second. Each stream goes through two paths, in other cuts into blocks where they make no difference to the sound, which has to
// be the same.
#pragma once

#include "client/sample_border.h"
#include "core/signal_path.h"

#include <cstdint>
#include <memory>
#include <random>
#include <vector>

namespace quorel {

class LongSound {
public:
    explicit LongSound(std::uint32_t seed);
    ~LongSound();
    LongSound(const LongSound&) = delete;
    LongSound& operator=(const LongSound&) = delete;

    // A second of each stream. Throws std::runtime_error where something does not hold.
    void second();

    std::uint64_t samples() const { return samples_; }   // that went in
    std::uint64_t replaced() const { return replaced_; } // of them, at the border
    std::uint64_t streams() const;
    double worstBlock() const { return worst; } // share of its own length that a block took of a processor, at most

private:
    struct Stream;

    void run(Stream& stream);
    void fill(std::vector<float>& x);
    void set(Stream& stream);
    void check(Stream& stream);

    std::mt19937 random;
    std::vector<std::unique_ptr<Stream>> all;
    std::uint64_t seconds = 0;
    std::uint64_t samples_ = 0;
    std::uint64_t replaced_ = 0;
    double worst = 0;
};

} // namespace quorel
