// SPDX-License-Identifier: MIT
// long_sound_run SECONDS SEED [SAMPLES]: long sound through both effects for so many seconds by the clock, or until so many samples
// have gone in. The memory stays as it is to the page once everything has run.
#include "tests/endurance/long_sound.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <utility>

namespace {

// Pages of addresses, and of memory.
std::pair<std::uint64_t, std::uint64_t> pages()
{
    std::pair<std::uint64_t, std::uint64_t> found;
    std::ifstream("/proc/self/statm") >> found.first >> found.second;
    return found;
}

} // namespace

int main(int argc, char** argv)
{
    using namespace quorel;
    if (argc < 3) {
        std::fprintf(stderr, "usage: long_sound_run SECONDS SEED [SAMPLES]\n");
        return 2;
    }
    const std::chrono::duration<double> time(std::strtod(argv[1], nullptr));
    const auto seed = static_cast<std::uint32_t>(std::strtoul(argv[2], nullptr, 10));
    const std::uint64_t samples = argc > 3 ? std::strtoull(argv[3], nullptr, 10) : UINT64_MAX;
    try {
        LongSound sound(seed);
        constexpr std::uint64_t warm = 40; // two turns
        std::uint64_t seconds = 0;
        std::pair<std::uint64_t, std::uint64_t> before;
        const auto start = std::chrono::steady_clock::now();
        while (std::chrono::steady_clock::now() - start < time && sound.samples() < samples) {
            sound.second();
            if (++seconds == warm)
                before = pages();
        }
        const auto after = pages();
        const bool grown = seconds > warm && after > before;
        std::printf("%llu samples, %llu of them stopped at the border\n%llu s of sound\n%.4f of its time at most for a block, of "
                    "a processor\n%lld"
                    " pages more\n",
                    static_cast<unsigned long long>(sound.samples()), static_cast<unsigned long long>(sound.replaced()),
                    static_cast<unsigned long long>(seconds * sound.streams()), sound.worstBlock(),
                    seconds > warm ? static_cast<long long>(after.second - before.second) : 0LL);
        return grown ? 1 : 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "seed %u: %s\n", seed, error.what());
        return 1;
    }
}
