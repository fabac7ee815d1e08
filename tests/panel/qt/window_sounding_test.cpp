// SPDX-License-Identifier: MIT
// The window on the block of a real effect while its stream sounds.
#include "panel/qt/window.h"

#include "tests/panel/qt/offscreen.h"
#include "tests/panel/sounding_effect.h"

#include <gtest/gtest.h>

#include <QPushButton>
#include <QSlider>

#include <iostream>

namespace quorel {
namespace {

// How long it takes is printed, as the machine's load has its part in it.
TEST(WindowOfARealEffect, ASlidersMoveSoundsInABlockSoonAfter)
{
    SoundingEffect effect;
    PanelWindow panel(false);
    panel.show();
    auto& slider = *panel.findChild<QSlider*>("EQBand5");
    ASSERT_TRUE(becomes([&] { return slider.isEnabled() && effect.steady(); }));
    std::array<double, 21> late{}; // ms
    for (std::size_t i = 0; i < late.size(); ++i) {
        ASSERT_TRUE(becomes([&] { return effect.steady(); }));
        const auto moved = SoundingEffect::Clock::now();
        slider.setValue(i % 2 == 0 ? 127 : 0);
        ASSERT_TRUE(becomes([&] { return effect.changed().has_value(); }));
        late.at(i) = std::chrono::duration<double, std::milli>(*effect.changed() - moved).count();
    }
    std::sort(late.begin(), late.end());
    EXPECT_GT(late.front(), 0);
    std::cout << "a slider's move is heard in a block that ends " << late[10] << " ms later, at worst " << late[20] << '\n';
}

} // namespace
} // namespace quorel
