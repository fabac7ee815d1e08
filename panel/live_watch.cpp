// SPDX-License-Identifier: MIT
#include "panel/live_watch.h"

#include "client/live_status.h"

#include <chrono>
#include <cstdlib>
#include <exception>
#include <utility>

namespace quorel {

namespace {

constexpr auto interval = std::chrono::milliseconds(500); // between two questions

std::optional<LiveSide> sideOf(const nlohmann::json& status, const char* name)
{
    if (!status.contains(name))
        return std::nullopt;
    const nlohmann::json& told = status[name];
    LiveSide side;
    for (const auto& device : told["devices"])
        side.device += (side.device.empty() ? "" : ", ") + device.get<std::string>();
    side.running = told["running"].get<bool>();
    side.channels = told["channels"].get<unsigned>();
    side.framesPerSecond = told["rate"].get<unsigned>();
    side.quantum = told["quantum"].get<unsigned>();
    side.load = told["load_mean"].get<double>();
    side.gaps = told["gaps"].get<std::uint64_t>();
    side.lateMs = told["total_ms"].get<double>();
    side.inEnergy = told.value("in_energy", 0.0);
    side.outEnergy = told.value("out_energy", 0.0);
    side.frames = told.value("frames", std::uint64_t{0});
    return side;
}

} // namespace

LiveWatch::LiveWatch(std::function<void()> news) : news(std::move(news)), thread([this] { run(); }) {}

LiveWatch::~LiveWatch()
{
    {
        const std::scoped_lock lock(mutex);
        ending = true;
    }
    wake.notify_one();
    thread.join();
}

void LiveWatch::watch(bool asking)
{
    {
        const std::scoped_lock lock(mutex);
        watching = asking;
    }
    wake.notify_one();
}

void LiveWatch::bypass(bool on)
{
    {
        const std::scoped_lock lock(mutex);
        wanted = on;
    }
    wake.notify_one();
}

LiveView LiveWatch::view() const
{
    const std::scoped_lock lock(mutex);
    return newest;
}

void LiveWatch::run()
{
    std::unique_lock lock(mutex);
    while (!ending) {
        const auto bypassing = std::exchange(wanted, std::nullopt);
        if (watching || bypassing) {
            lock.unlock();
            LiveView answer = ask(bypassing);
            lock.lock();
            newest = std::move(answer);
            lock.unlock();
            news();
            lock.lock();
        }
        const auto called = [this] { return ending || wanted.has_value(); };
        if (watching)
            wake.wait_for(lock, interval, called);
        else
            wake.wait(lock, [&] { return called() || watching; });
    }
}

LiveView LiveWatch::ask(std::optional<bool> bypassing)
{
    LiveView view;
    if (const char* runtime = std::getenv("XDG_RUNTIME_DIR"); runtime == nullptr || *runtime == '\0') {
        view.state = LiveView::State::absent; // nowhere that it could be found
        return view;
    }
    try {
        if (bypassing)
            askLive(*bypassing ? "bypass on" : "bypass off");
        const auto told = askLive("status");
        view.state = told ? LiveView::State::there : LiveView::State::absent;
        if (told) {
            view.bypass = told->at("bypass").get<bool>();
            view.speakers = liveMask(told);
            view.headphones = sideOf(*told, "speaker");
            view.microphone = sideOf(*told, "microphone");
            view.text = readableSides(*told);
        }
    } catch (const std::exception& error) {
        view.state = LiveView::State::mute;
        view.text = error.what();
    }
    return view;
}

} // namespace quorel
