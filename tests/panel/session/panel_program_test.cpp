// SPDX-License-Identifier: MIT
// quorel-panel as it is started, on a screen that nobody sees, on the block of a real effect.
#include "client/control_client.h"
#include "tests/panel/own_folders.h"
#include "tests/panel/sounding_effect.h"
#include "tests/support/control_application.h"
#include "tests/support/started.h"

#include <gtest/gtest.h>

#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

namespace quorel {
namespace {

pid_t start(const std::vector<const char*>& arguments)
{
    return started(QUOREL_PANEL, arguments, [] {
        setenv("QT_QPA_PLATFORM", "offscreen", 1);
        setenv("PIPEWIRE_REMOTE", "none", 1);
    });
}

// The microphone's levels are on while their page is seen. Without a tray a panel that is to be hidden could not be found again.
TEST(PanelProgram, ShowsItsPageAndEndsByAnInterruptWithAllAsItWas)
{
    SoundingEffect effect;
    const auto measured = [&] { return ControlClient().settings().levelsEnabled != 0; };
    const std::vector<std::pair<int, std::vector<const char*>>> ways = {{SIGINT, {"--page", "microphone"}},
                                                                        {SIGTERM, {"--page", "microphone", "--hidden"}},
                                                                        {SIGHUP, {"--page", "microphone", "--no-tray"}}};
    for (const auto& [signal, arguments] : ways) {
        const pid_t panel = start(arguments);
        EXPECT_TRUE(eventually(measured));
        kill(panel, signal);
        int status = 0;
        waitpid(panel, &status, 0);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal) << status;
        EXPECT_FALSE(measured());
    }
}

} // namespace
} // namespace quorel
