// SPDX-License-Identifier: MIT
// A file of responses that may be anything is imported: what comes of it can be rendered with.
#pragma once

#include "client/hrtf_file.h"
#include "tests/fuzz/fuzz.h"

#include <cmath>
#include <new>
#include <stdexcept>
#include <string>

namespace quorel {

inline int importResponses(const std::string& path, Equalize equalize)
{
    try {
        const ImportedSet imported = importHrtf(path, equalize, 0, [] {});
        for (const auto& ears : imported.set.taps)
            for (const auto& taps : ears)
                for (const float tap : taps)
                    require(std::isfinite(tap), "every tap of an imported set is a number");
        for (const auto& ears : imported.set.taps)
            for (const auto& taps : ears)
                require(arrivalMs(taps) >= 0 && arrivalMs(taps) < 1000.0 * fittedTaps / hrtfRate,
                        "each response begins within itself");
        constexpr std::uint32_t all = 0x63F;
        require(packSet(imported.set, all).size() == 2 * rowsOf(all).size() * spectrumFloats,
                "a set has two responses for each speaker");
        require(imported.set.worstCut >= 0 && imported.set.worstCut <= mostCut, "no more is cut than is allowed");
    } catch (const std::runtime_error& error) {
        require(error.what()[0] != '\0', "a refusal has a text");
    } catch (const std::bad_alloc&) { // which the reading process turns into a text
    }
    return 0;
}

} // namespace quorel
