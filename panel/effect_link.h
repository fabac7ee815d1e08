// SPDX-License-Identifier: MIT
// EffectLink looks at the effect and writes what the panel has changed, on a thread of its own: another program may keep the
// panel from its turn for seconds, and a window must not wait for it.
#pragma once

#include "client/control_client.h"
#include "panel/change_queue.h"
#include "panel/effect_view.h"

#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>

namespace quorel {

class EffectLink {
public:
    static constexpr auto interval = std::chrono::milliseconds(40); // between two looks

    // news: called on the link's thread after each look.
    explicit EffectLink(std::function<void()> news);

    // Writes what still waits, and gives the levels back as they were.
    ~EffectLink();
    EffectLink(const EffectLink&) = delete;
    EffectLink& operator=(const EffectLink&) = delete;

    // None of these waits for the effect or another program.
    void send(const Changes& changes);
    void watch(bool looking); // false: no look until there is something to write; at first true
    void measureLevels(bool on);
    void hostTells(std::optional<std::uint32_t> speakers); // mask of its speakers' stream, where a host tells of one
    EffectView view() const;

private:
    void run();
    void write(const Changes& changes);
    void look(std::optional<std::uint32_t> speakers);
    void turnLevels(bool on);

    std::function<void()> news;
    mutable std::mutex mutex;
    std::condition_variable wake;
    bool ending = false;
    bool watching = true;
    bool levelsWanted = false;
    std::optional<std::uint32_t> told;
    ChangeQueue queue;
    EffectView newest;

    // The thread's own
    EffectView next;
    bool levelsTurnedOn = false; // by this link, which turns them off again
    std::thread thread;
};

} // namespace quorel
