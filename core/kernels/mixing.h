// What one output row of mixPairs (core/mixing.h) is summed from.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace quorel {

// Terms in their order, one of each pair of input rows, each added or subtracted whole in single precision.
struct PairMix {
    static constexpr size_t pairs = 6;
    static constexpr uint8_t sum = 0;            // term sum + p is in[2p] + in[2p+1]
    static constexpr uint8_t difference = pairs; // term difference + p is in[2p] - in[2p+1]

    uint8_t term[pairs];
    float sign[pairs]; // +1 or -1; the first is taken for +1
};

} // namespace quorel
