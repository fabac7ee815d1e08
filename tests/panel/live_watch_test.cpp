// SPDX-License-Identifier: MIT
#include "panel/live_watch.h"

#include "tests/support/control_application.h"
#include "tests/support/private_home.h"

#include <gtest/gtest.h>

namespace quorel {
namespace {

TEST(LiveWatch, SaysThatNoLiveHostRuns)
{
    LiveWatch watch([] {});
    EXPECT_TRUE(eventually([&] { return watch.view().state == LiveView::State::absent; }));
}

} // namespace
} // namespace quorel
