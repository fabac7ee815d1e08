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
            view.text = readableSides(*told);
        }
    } catch (const std::exception& error) {
        view.state = LiveView::State::mute;
        view.text = error.what();
    }
    return view;
}

} // namespace quorel
