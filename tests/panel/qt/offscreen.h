// SPDX-License-Identifier: MIT
// Including this header gives a test program the toolkit, on a screen that nobody sees, and folders of its own.
#pragma once

#include "tests/panel/own_folders.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QTest>

#include <array>
#include <clocale>
#include <functional>
#include <memory>
#include <string>

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

} // namespace quorel
