// SPDX-License-Identifier: MIT
// RecordFields is what a settings record tells a path, as plain fields.
//
// The fields bear the names of their registry values. `newRecord` says that the record was
// refreshed before the block it comes with; without it the other fields are not looked at.

#pragma once

#include <array>
#include <cstdint>

namespace quorel::model {

struct RecordFields {
    bool newRecord = false;               // the path's record was overwritten before this block
    std::uint32_t blockSequence = 0;      // number of the control application's last change
    std::uint8_t Settings = 0;            // surround effect, non-zero on
    std::uint8_t MicNR = 0;               // noise reduction, non-zero on
    std::uint32_t micEq = 0;              // 0 off, 1 and 2 a curve, 3 and above refused
    std::array<std::int32_t, 9> EQBand{}; // 127 is 6 dB
    std::uint32_t noiseGate = 0;          // 0 off, otherwise index of the pre-gain
    std::uint32_t Reverb = 0;             // 0 off, 170 is 0 dB, 255 is +9 dB
    std::uint8_t levelsEnabled = 0;       // level meter, non-zero on
    std::uint32_t hrtfId = 0;             // identity of the delivered set, 0 none
    std::uint32_t hrtfLength = 0;         // floats in one of its responses
    std::uint32_t hrtfChannels = 0;       // source channels that it serves
    const float* hrtfData = nullptr;      // all left responses, then all right ones
};

} // namespace quorel::model
