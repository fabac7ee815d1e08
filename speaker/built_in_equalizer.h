// SPDX-License-Identifier: MIT
#pragma once

#include "speaker/equalizer.h"
#include "speaker/equalizer_tables.h"

namespace quorel {

// The equaliser of the render effect as it is designed: flat, for 48000 frames per second.
inline Equalizer builtInEqualizer()
{
    Equalizer equalizer(equalizerInteraction(), equalizerCentres, equalizerQ, equalizerSampleRate, equalizerShelfFactor);
    equalizer.design({});
    return equalizer;
}

} // namespace quorel
