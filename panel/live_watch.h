// SPDX-License-Identifier: MIT
// LiveWatch asks the running quorel-live what it does, and tells it to bypass, on a thread of its own: one that is stopped lets
// everybody wait.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace quorel {

// What quorel-live tells of one of its sides.
struct LiveSide {
    std::string device; // hardware that it is linked to; empty: none
    bool running = false;
    unsigned channels = 0;
    unsigned framesPerSecond = 0;
    unsigned quantum = 0;
    double load = 0;        // mean, % of the period
    std::uint64_t gaps = 0; // jumps of the graph's clock
    double lateMs = 0;      // to the device, without the effect itself
    double inEnergy = 0;    // microphone: squares of all samples so far that the effect took
    double outEnergy = 0;   // and gave
    std::uint64_t frames = 0;
};

struct LiveView {
    enum class State : std::uint8_t { unknown, absent, mute, there }; // mute: it is there and does not answer

    State state = State::unknown;
    bool bypass = false;
    std::optional<std::uint32_t> speakers; // mask of its headphone device, where it has one
    std::optional<LiveSide> headphones;
    std::optional<LiveSide> microphone;
    std::string text; // there: what its sides do, in lines; mute: why
};

class LiveWatch {
public:
    // news: called on the watch's thread after each answer.
    explicit LiveWatch(std::function<void()> news);
    ~LiveWatch();
    LiveWatch(const LiveWatch&) = delete;
    LiveWatch& operator=(const LiveWatch&) = delete;

    // None of these waits.
    void watch(bool asking); // false: only commands; at first true
    void bypass(bool on);
    LiveView view() const;

private:
    void run();
    static LiveView ask(std::optional<bool> bypassing);

    std::function<void()> news;
    mutable std::mutex mutex;
    std::condition_variable wake;
    bool ending = false;
    bool watching = true;
    std::optional<bool> wanted; // bypass
    LiveView newest;
    std::thread thread;
};

} // namespace quorel
