// SPDX-License-Identifier: MIT
// The yardstick Y, in which benchmarks give their times: one forward real transform of 1024 samples by FFTW 3.3 in single
// precision, planned patiently nine times, the best plan. It runs between the repetitions of what is measured, in the same
// process, and of both the least time counts: so a ratio to Y hardly depends on the machine's load or clock.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <limits>
#include <memory>

namespace quorel::bench {

constexpr int callsPerBurst = 16; // so few that most bursts run uninterrupted, so many that reading the clock costs little

// Nanoseconds per call over `calls` calls in a row.
template <class Call>
double burst(Call&& call, int calls = callsPerBurst)
{
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < calls; ++i) {
        call();
        benchmark::ClobberMemory();
    }
    return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count() / calls;
}

// One of FFTW's transforms, out of place, the best of nine patient plans.
class Yardstick {
public:
    enum class Kind { realForward, complexBackward };

    Yardstick(Kind kind, int length);
    ~Yardstick();
    Yardstick(const Yardstick&) = delete;
    Yardstick& operator=(const Yardstick&) = delete;

    void run() const noexcept;

private:
    struct Plan;
    std::unique_ptr<Plan> plan;
};

// Y itself, planned at its first use.
const Yardstick& yardstick();

// Repeats `call` in turn with a yardstick. Counters: `ns`, the least time of one call, and `ratio`, that to the yardstick's.
template <class Call>
void measure(benchmark::State& state, Call&& call, const Yardstick& against = yardstick(), int calls = callsPerBurst)
{
    double least = std::numeric_limits<double>::infinity();
    double unit = least;
    for ([[maybe_unused]] auto _ : state) {
        const double time = burst(call, calls);
        least = std::min(least, time);
        unit = std::min(unit, burst([&] { against.run(); }));
        state.SetIterationTime(time * 1e-9);
    }
    state.counters["ns"] = least;
    state.counters["ratio"] = least / unit;
}

// How a benchmark that calls measure() is registered.
inline benchmark::internal::Benchmark* asMeasured(benchmark::internal::Benchmark* registered)
{
    return registered->UseManualTime()->Iterations(3000)->Unit(benchmark::kNanosecond);
}

} // namespace quorel::bench
