// SPDX-License-Identifier: MIT
// The panel's window on a screen that nobody sees, with one effect in the test's own memory.
#pragma once

#include "panel/kept_values.h"
#include "panel/qt/controls.h"
#include "panel/qt/window.h"
#include "tests/panel/qt/offscreen.h"
#include "tests/panel/running_effect.h"

#include <gtest/gtest.h>

#include <QTabWidget>

#include <memory>

namespace quorel {

class Window : public RunningEffect {
protected:
    Window() { block.levels.fill(-120); }
    ~Window() override
    {
        panel.reset();
        saveKeptValues({});
    }

    void open(bool withTray = false)
    {
        panel = std::make_unique<PanelWindow>(withTray);
        panel->show();
        panel->activateWindow();
        ASSERT_TRUE(becomes([&] { return find<QTabWidget>()->widget(0)->isEnabled() && panel->isActiveWindow(); }));
    }

    template <class Widget>
    Widget* find(const char* name = "")
    {
        return panel->findChild<Widget*>(name);
    }
    QSlider& fader(const char* name) { return *find<QSlider>(name); }

    std::unique_ptr<PanelWindow> panel;
};

} // namespace quorel
