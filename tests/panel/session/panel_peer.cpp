// SPDX-License-Identifier: MIT
// panel_peer FIRST: a panel whose user makes one choice after the other, each of them with the number that follows, turns all off
// and on again, and saves a preset. It tells the number of each choice that is in force, and when all is off and on.
#include "tests/panel/followed_panel.h"
#include "tests/panel/session/choice.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

namespace quorel {
namespace {

template <typename Reached>
void followUntil(FollowedPanel& panel, Reached reached)
{
    for (panel.follow(); !reached(panel.session.model()); panel.follow())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

void tell(const std::string& line)
{
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

void use(long first)
{
    FollowedPanel panel;
    followUntil(panel, [](const PanelModel& model) { return model.usable(); });
    const auto settled = [](const PanelModel& model) { return model.settled(); };
    for (long choice = first;; ++choice) {
        panel.session.attempt([&](PanelModel& model) { model.edit(choiceWith(numberOf(choice))); });
        followUntil(panel, settled);
        tell(std::to_string(choice));
        panel.session.bypass(true);
        if (choice % 2 == 0)
            followUntil(panel, settled);
        tell("off");
        panel.session.bypass(false);
        tell("on");
        followUntil(panel, settled);
        panel.session.attempt([](PanelModel& model) { model.savePreset("killed"); });
    }
}

} // namespace
} // namespace quorel

int main(int count, char** words)
{
    quorel::use(count > 1 ? std::atol(words[1]) : 0);
}
