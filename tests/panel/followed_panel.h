// SPDX-License-Identifier: MIT
// A panel without a window, whose news a test takes when it likes.
#pragma once

#include "panel/panel_session.h"

#include <array>
#include <atomic>

namespace quorel {

struct FollowedPanel {
    // Each news is taken at once, as a window's loop does.
    void follow()
    {
        for (const auto news : {PanelSession::News::effect, PanelSession::News::live, PanelSession::News::import})
            if (announced.at(static_cast<std::size_t>(news)).exchange(false))
                session.take(news);
    }

    std::array<std::atomic<bool>, 3> announced{};
    PanelSession session{[this](PanelSession::News news) { announced.at(static_cast<std::size_t>(news)) = true; }};
};

} // namespace quorel
