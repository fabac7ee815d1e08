// SPDX-License-Identifier: MIT
#include "panel/effect_link.h"

#include "client/hrtf_delivery.h"

#include <algorithm>
#include <exception>

namespace quorel {

EffectLink::EffectLink(std::function<void()> news) : news(std::move(news)), thread([this] { run(); }) {}

EffectLink::~EffectLink()
{
    {
        const std::scoped_lock lock(mutex);
        ending = true;
    }
    wake.notify_one();
    thread.join();
}

void EffectLink::send(const Changes& changes)
{
    {
        const std::scoped_lock lock(mutex);
        queue.add(changes);
    }
    wake.notify_one();
}

void EffectLink::watch(bool looking)
{
    {
        const std::scoped_lock lock(mutex);
        watching = looking;
    }
    wake.notify_one();
}

void EffectLink::measureLevels(bool on)
{
    {
        const std::scoped_lock lock(mutex);
        levelsWanted = on;
    }
    wake.notify_one();
}

void EffectLink::hostTells(std::optional<std::uint32_t> speakers)
{
    const std::scoped_lock lock(mutex);
    told = speakers;
}

EffectView EffectLink::view() const
{
    const std::scoped_lock lock(mutex);
    return newest;
}

void EffectLink::run()
{
    using Clock = std::chrono::steady_clock;
    auto nextLook = Clock::now();
    std::unique_lock lock(mutex);
    for (;;) {
        const auto idle = [&] { return !watching && !levelsTurnedOn && !queue.due(); };
        wake.wait(lock, [&] { return ending || !idle(); });
        const bool last = ending;
        if (!last) {
            const auto until = queue.due() ? std::min(*queue.due(), nextLook) : nextLook;
            if (Clock::now() < until) {
                wake.wait_until(lock, until);
                continue;
            }
        }
        const auto now = last ? Clock::time_point::max() - ChangeQueue::pause : Clock::now();
        const auto changes = queue.take(now);
        const bool levels = levelsWanted && watching && !last;
        const auto speakers = told;
        lock.unlock();

        next.trouble.clear();
        if (changes)
            write(*changes);
        turnLevels(levels);
        look(speakers);
        nextLook = Clock::now() + interval;

        lock.lock();
        newest = next;
        if (last)
            return;
        lock.unlock();
        news();
        lock.lock();
    }
}

void EffectLink::write(const Changes& changes)
{
    next.written = changes.number;
    try {
        ControlClient().update([&](SettingsRecord& record) {
            for (const auto& [field, value] : changes.values)
                setSetting(record, *field, value);
        });
    } catch (const std::exception& error) {
        next.trouble = error.what();
    }
}

void EffectLink::turnLevels(bool on)
{
    const bool seen = next.state == EffectView::State::there && next.settings.levelsEnabled != 0; // at the last look
    if (on ? seen : !levelsTurnedOn)
        return;
    try {
        ControlClient client;
        const bool measured = client.settings().levelsEnabled != 0;
        if (on != measured)
            client.update([&](SettingsRecord& record) { record.levelsEnabled = on ? 1 : 0; });
        levelsTurnedOn = on && (levelsTurnedOn || !measured);
    } catch (const std::exception&) {
        levelsTurnedOn = levelsTurnedOn && on; // the effect is gone, and its block with it
    }
}

// A client only for this look, so that it keeps no block alive that its effect has left.
void EffectLink::look(std::optional<std::uint32_t> speakers)
{
    try {
        const ControlClient client;
        next.state = EffectView::State::there;
        next.settings = client.settings();
        next.channelMask = client.activeChannelMask();
        next.framesPerSecond = client.activeFramesPerSecond();
        next.microphone = microphoneLockedLast(client);
        next.levels = client.levels();
        next.refusal = refusalOfSet(client, speakers).value_or("");
        next.responsesFile = next.settings.hrtfId == 0 ? "" : rememberedFile(next.settings.hrtfId);
    } catch (const NoEffect&) {
        next.state = EffectView::State::absent;
    } catch (const std::exception& error) {
        next.state = EffectView::State::hidden;
        next.trouble = error.what();
    }
}

} // namespace quorel
