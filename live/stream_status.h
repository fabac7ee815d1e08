// SPDX-License-Identifier: MIT
// StreamStatus is what the audio thread tells of its stream and other threads read at any time: counts and figures, each an
// atomic of its own, so that a reader may see a mix of two calls.
#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace quorel {

// A short text that one thread writes without waiting and others read whole or not at all.
class SharedText {
public:
    static constexpr std::size_t longest = 127; // bytes; what is longer is cut

    void write(const char* text) noexcept;
    std::string read() const; // empty while it is being written

private:
    std::atomic<std::uint32_t> version = 0; // odd while it is being written
    std::array<std::atomic<char>, longest + 1> letters{};
};

struct StreamStatus {
    std::atomic<std::uint32_t> rate = 0;    // frames per second of the graph
    std::atomic<std::uint32_t> quantum = 0; // frames of the last call
    std::atomic<std::uint32_t> block = 0;   // frames that the effect gets at a time
    std::atomic<std::uint32_t> delay = 0;   // frames added by gathering
    std::atomic<double> drift = 1;          // the device's clock against the system's, as the server follows it

    std::atomic<std::uint64_t> frames = 0;     // through the path in force
    std::atomic<std::uint64_t> firstTick = 0;  // the graph's clock at the first of these, had it not jumped since
    std::atomic<std::uint64_t> calls = 0;      // of the process callback
    std::atomic<std::uint64_t> changes = 0;    // of the path while the stream ran
    std::atomic<std::uint64_t> lostFrames = 0; // that came in while a new path was built
    std::atomic<std::uint64_t> badSamples = 0; // not finite or above 2^20, taken as 0
    std::atomic<std::uint64_t> refused = 0;    // blocks that the effect refused: silence in their place
    SharedText refusal;                        // the last reason
    std::atomic<double> inEnergy = 0;          // squares of all samples that the capture effect took
    std::atomic<double> outEnergy = 0;         // and gave
    std::atomic<std::uint64_t> gaps = 0;       // jumps of the graph's clock
    std::atomic<std::uint64_t> gapFrames = 0;  // frames that it jumped over

    std::atomic<std::uint64_t> busy = 0;      // ns spent in all calls
    std::atomic<std::uint64_t> available = 0; // ns of sound in all calls
    std::atomic<float> worst = 0;             // the largest share of its period that a call took
    std::atomic<float> peak = 0;              // of the last call's output
};

// ---------------------------------------------------------------------------------------------------------------------

inline void SharedText::write(const char* text) noexcept
{
    const std::size_t length = std::min(std::strlen(text), longest);
    version.fetch_add(1, std::memory_order_acq_rel);
    for (std::size_t i = 0; i < length; ++i)
        letters[i].store(text[i], std::memory_order_relaxed);
    letters[length].store('\0', std::memory_order_relaxed);
    version.fetch_add(1, std::memory_order_release);
}

inline std::string SharedText::read() const
{
    for (int attempt = 0; attempt < 100; ++attempt) {
        const std::uint32_t before = version.load(std::memory_order_acquire);
        std::string text;
        for (std::size_t i = 0; i < longest; ++i) {
            const char letter = letters[i].load(std::memory_order_acquire);
            if (letter == '\0')
                break;
            text += letter;
        }
        if (before % 2 == 0 && version.load(std::memory_order_acquire) == before)
            return text;
    }
    return {};
}

} // namespace quorel
