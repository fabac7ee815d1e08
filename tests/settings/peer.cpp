// SPDX-License-Identifier: MIT
// The other process of the tests in which two processes meet, one part of it at a time:
//
//   peer stream BLOCKS      an effect: runs a render path in blocks of 10 ms and tells when each new value came into force
//   peer save FIRST         effects that start, take new settings over and end, over and over, and so save them
//   peer control            a control application that writes all settings over and over
//   peer deliver            a control application that delivers HRTF sets over and over
//
// A stamp is one number that stands in every field of the settings, so that a mixture shows.
#include "core/signal_path.h"
#include "settings/settings_handler.h"

#include "tests/support/control_application.h"
#include "tests/support/stamp.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>
#ifdef _WIN32
#include <windows.h>
#else
#include <pthread.h>
#endif

namespace quorel {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;

// As an audio engine's thread, where the system allows it.
void raisePriority()
{
#ifdef _WIN32
    SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_TIME_CRITICAL);
#else
    sched_param priority{};
    priority.sched_priority = 10;
    static_cast<void>(pthread_setschedparam(pthread_self(), SCHED_FIFO, &priority));
#endif
}

void tell(const std::string& line)
{
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

std::int64_t now()
{
    return std::chrono::duration_cast<nanoseconds>(Clock::now().time_since_epoch()).count();
}

// Tells, for each new stamp, when the block before the one that it came into force in had polled, and when that block had: an
// update that was written between the two was in force at the next block.
int stream(int blocks)
{
    constexpr std::uint64_t frames = 480;
    const auto handler = SettingsHandler::instance(SettingsHandler::layoutVersion);
    SignalPath path(SignalPath::Speaker{}, 8, 0x63F, frames, 48000);
    handler->writeActiveFormat(0x63F, 48000);
    std::vector<float> in(frames * 8, 0.1F);
    std::vector<float> out(frames * 8);
    struct Arrival {
        std::uint32_t stamp;
        std::int64_t before;
        std::int64_t start;
    };
    std::vector<Arrival> arrivals;
    arrivals.reserve(static_cast<std::size_t>(blocks));
    std::thread([&] {
        raisePriority();
        std::uint32_t last = 0;
        std::int64_t before = now();
        auto due = Clock::now();
        for (int block = 0; block < blocks; ++block) {
            due += milliseconds(10);
            std::this_thread::sleep_until(due);
            auto& record = *path->settings();
            handler->poll(record);
            const auto start = now();
            path->process(in.data(), frames, out.data(), frames);
            if (record.Reverb != last) {
                last = record.Reverb;
                arrivals.push_back({last, before, start});
                if (arrivals.size() == 1)
                    tell("ready");
            }
            before = start;
        }
    }).join();
    for (const auto& arrival : arrivals)
        tell(std::to_string(arrival.stamp) + ' ' + std::to_string(arrival.before) + ' ' + std::to_string(arrival.start));
    return 0;
}

int save(std::uint32_t stamp)
{
    for (;; ++stamp) {
        auto handler = SettingsHandler::instance(SettingsHandler::layoutVersion);
        {
            ControlApplication control;
            SettingsRecord record;
            while (record.Reverb != stamp) {
                control.update(stamped(stamp));
                for (int i = 0; i < 100 && record.Reverb != stamp; ++i) {
                    handler->poll(record);
                    std::this_thread::yield();
                }
            }
        }
        handler.reset();
        tell(std::to_string(stamp));
    }
}

int control()
{
    ControlApplication application;
    tell("ready");
    for (std::uint32_t stamp = 1;; ++stamp)
        application.update(stamped(stamp % 100)); // of ordinary size in every field
}

int deliver()
{
    ControlApplication application;
    tell("ready");
    for (std::uint32_t id = 1;; ++id) {
        application.writeShare(std::vector<float>(hrtfShareBytes / sizeof(float), 1e-3F * static_cast<float>(id % 100)));
        SettingsRecord settings;
        settings.Settings = 1;
        settings.hrtfId = id;
        settings.hrtfLength = 1024;
        settings.hrtfChannels = 8;
        application.update(settings);
    }
}

int run(int count, char** arguments)
{
    const std::string part = count > 1 ? arguments[1] : "";
    const int number = count > 2 ? std::atoi(arguments[2]) : 0;
    if (part == "stream")
        return stream(number);
    if (part == "save")
        return save(static_cast<std::uint32_t>(number));
    if (part == "control")
        return control();
    if (part == "deliver")
        return deliver();
    std::fprintf(stderr, "peer: no such part: %s\n", part.c_str());
    return 2;
}

} // namespace
} // namespace quorel

int main(int count, char** arguments)
try {
    return quorel::run(count, arguments);
} catch (const std::exception& failure) {
    std::fprintf(stderr, "peer: %s\n", failure.what());
    return 1;
}
