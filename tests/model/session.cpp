// SPDX-License-Identifier: MIT
#include "tests/model/session.h"

#include <algorithm>

namespace quorel::model {

double sineOfTurn(double turn)
{
    // Fold into a quarter turn on either side of 0, then the Taylor series up to the 15th power,
    // whose remainder is below (pi/2)^17 / 17! = 6.1e-12.
    double x = turn < 0.5 ? turn : turn - 1.0;
    if (x > 0.25)
        x = 0.5 - x;
    if (x < -0.25)
        x = -0.5 - x;
    x *= 6.283185307179586;
    const double square = x * x;
    double sum = 0.0;
    for (int power = 15; power > 1; power -= 2)
        sum = -square / (power * (power - 1)) * (1.0 + sum);
    return x * (1.0 + sum);
}

// ---------------------------------------------------------------------------

Session::Session(const SessionOptions& options) : options(options), random(options.seed), passages(options.channels)
{
    if (!options.deliveredSets)
        return;

    // Four sets of decaying responses. Those of the last one are longer than the 177 taps that
    // the convolver has room for, so that their ends come round into the block.
    for (int s = 0; s < 4; ++s) {
        std::vector<float> set;
        for (std::size_t r = 0; r < 2 * options.channels; ++r) {
            Signal taps(s == 3 ? 700 : 177);
            double height = 0.5;
            for (double& tap : taps) {
                tap = height * uniform();
                height *= 0.97;
            }
            const std::vector<float> packed = packedFromTaps(taps);
            set.insert(set.end(), packed.begin(), packed.end());
        }
        sets.push_back(set);
    }
}

void Session::next()
{
    chooseLength();
    chooseRecord();

    block.resize(blockFrames * options.channels);
    for (std::size_t i = 0; i < blockFrames; ++i)
        for (std::size_t c = 0; c < options.channels; ++c)
            block[i * options.channels + c] = static_cast<float>(play(passages[c]) + options.bed * uniform());
}

std::uint32_t Session::below(std::uint32_t n)
{
    return static_cast<std::uint32_t>(random()) % n;
}

bool Session::oneIn(std::uint32_t n)
{
    return below(n) == 0;
}

double Session::uniform()
{
    return static_cast<double>(random()) / 2147483648.0 - 1.0;
}

void Session::chooseLength()
{
    const auto longest = static_cast<std::uint32_t>(options.maxBlock);

    if (options.failingBlocks && oneIn(8)) {
        const std::size_t failing[] = {0, 48, 64, options.maxBlock + 1 + below(200)};
        blockFrames = failing[below(4)];
        heldFor = 0;
        return;
    }
    if (heldFor > 0) {
        --heldFor;
        return;
    }

    // Hosts keep a length for a while; now and then every block has its own.
    heldFor = oneIn(2) ? below(40) : 0;
    const auto hop = static_cast<std::uint32_t>(options.hop);
    if (hop > 0 && !oneIn(16)) {
        blockFrames = hop * (1 + below(std::max(1u, longest / hop)));
        return;
    }
    do {
        blockFrames = 1 + below(longest);
    } while (!options.failingBlocks && (blockFrames == 48 || blockFrames == 64));
}

void Session::chooseRecord()
{
    record.newRecord = false;
    const auto every = static_cast<std::uint32_t>(options.recordEvery);
    if (every == 0 || !(mustMend || oneIn(every)))
        return;

    mustMend = false;
    record.newRecord = true;
    if (!oneIn(8)) // else a record that is no news to the path
        ++record.blockSequence;

    if (oneIn(4))
        record.Settings = record.Settings == 0 ? 1 : 0;
    if (oneIn(4))
        record.EQBand[below(9)] = static_cast<std::int32_t>(below(255)) - 127;
    if (oneIn(10))
        for (std::int32_t& band : record.EQBand)
            band = static_cast<std::int32_t>(below(255)) - 127;
    if (oneIn(10))
        record.EQBand.fill(0);
    if (oneIn(3))
        record.Reverb = oneIn(3) ? 0 : below(256);

    if (oneIn(3))
        record.MicNR = oneIn(3) ? 0 : 1;
    if (oneIn(3))
        record.levelsEnabled = oneIn(3) ? 0 : 1;
    if (options.curves && oneIn(3))
        record.micEq = below(3);
    if (oneIn(3))
        record.noiseGate = oneIn(3) ? 0 : below(300);
    if (!options.curves || record.micEq > 2)
        record.micEq = 0;

    if (options.deliveredSets && oneIn(4))
        chooseSet();

    if (options.refusedRecords && oneIn(6)) {
        mustMend = true;
        ++record.blockSequence;
        record.micEq = 3 + below(5);
        record.hrtfId = nextId++;
        record.hrtfChannels = static_cast<std::uint32_t>(options.channels) + 1;
        record.hrtfLength = 1024;
    } else if (options.refusedRecords && record.hrtfChannels == options.channels + 1) {
        // The mended record goes back to no set, or to a good one.
        if (options.deliveredSets)
            chooseSet();
        else
            record.hrtfId = 0;
        record.hrtfChannels = static_cast<std::uint32_t>(options.channels);
    }
}

void Session::chooseSet()
{
    record.hrtfId = nextId++;
    record.hrtfLength = 1024;
    record.hrtfChannels = static_cast<std::uint32_t>(options.channels);
    record.hrtfData = sets[below(4)].data();
}

void Session::choosePassage(Passage& passage)
{
    constexpr Kind kinds[] = {Kind::Silence, Kind::Noise, Kind::Noise, Kind::Bursts,
                              Kind::Sine,    Kind::Sine,  Kind::Sweep, Kind::Clicks};
    passage.kind = kinds[below(8)];
    const auto second = static_cast<std::uint32_t>(options.sampleRate);
    passage.left = second / 50 + below(second);

    // Most passages peak between -60 dB and full scale, one in six goes up to the loudest.
    if (oneIn(6)) {
        passage.height = options.loudest * (0.75 + 0.25 * uniform());
    } else {
        passage.height = 0.75 + 0.25 * uniform();
        for (std::uint32_t halvings = below(11); halvings > 0; --halvings)
            passage.height *= 0.5;
    }

    // A tone between 20 Hz and 0.45 of the rate, with equal chances per octave or nearly so; a
    // sweep moves by a factor of up to e or so in its time.
    double octaves = 1.0;
    for (std::uint32_t doublings = below(10); doublings > 0; --doublings)
        octaves *= 2.0;
    passage.step = std::min(20.0 * octaves * (1.0 + 0.5 * (uniform() + 1.0)) / options.sampleRate, 0.45);
    passage.stretch = 1.0;
    if (passage.kind == Kind::Sweep)
        passage.stretch += uniform() / static_cast<double>(passage.left);
    passage.period = 50 + below(second / 5);
}

double Session::play(Passage& passage)
{
    if (passage.left == 0)
        choosePassage(passage);
    --passage.left;

    switch (passage.kind) {
    case Kind::Silence:
        return 0.0;
    case Kind::Noise:
        return passage.height * uniform();
    case Kind::Bursts: {
        const double noise = uniform();
        return passage.left / passage.period % 2 == 0 ? passage.height * noise : 0.0;
    }
    case Kind::Sine:
    case Kind::Sweep:
        passage.turn += passage.step;
        if (passage.turn >= 1.0)
            passage.turn -= 1.0;
        passage.step = std::min(passage.step * passage.stretch, 0.45);
        return passage.height * sineOfTurn(passage.turn);
    case Kind::Clicks:
        return passage.left % passage.period == 0 ? passage.height : 0.0;
    }
    return 0.0;
}

} // namespace quorel::model
