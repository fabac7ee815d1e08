// SPDX-License-Identifier: MIT
// The panel's window on a screen that nobody sees, with one effect in the test's own memory.
#pragma once

#include "panel/kept_values.h"
#include "panel/qt/controls.h"
#include "panel/qt/window.h"
#include "tests/panel/own_folders.h"
#include "tests/panel/running_effect.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QTabWidget>
#include <QTest>

#include <clocale>
#include <memory>

namespace quorel {

// The toolkit needs its application from before the first window until after the last.
class Application : public testing::Environment {
public:
    void SetUp() override
    {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        qputenv("PIPEWIRE_REMOTE", "none"); // nothing is played where somebody might hear it
        application = std::make_unique<QApplication>(count, arguments.data());
        std::setlocale(LC_NUMERIC, "C");
    }
    void TearDown() override { application.reset(); }

private:
    int count = 1;
    std::string name = "panel";
    std::array<char*, 2> arguments = {name.data(), nullptr};
    std::unique_ptr<QApplication> application;
};

inline const auto* const application = testing::AddGlobalTestEnvironment(new Application);

// True as soon as `reached` is, while the window goes on; false when it is not within a minute.
inline bool becomes(const std::function<bool()>& reached)
{
    return QTest::qWaitFor(reached, 60000);
}

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
