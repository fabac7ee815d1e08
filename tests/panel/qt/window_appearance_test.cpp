// SPDX-License-Identifier: MIT
// The window in the desktop's colours, and in its tray.
#include "tests/panel/qt/panel_window.h"

#include "client/preset.h"

#include <QAction>
#include <QLabel>
#include <QMenu>
#include <QPalette>
#include <QPushButton>
#include <QSystemTrayIcon>
#include <QTimer>

#include <algorithm>
#include <atomic>
#include <cmath>

namespace quorel {
namespace {

// Relative luminance, and the contrast of two colours from 1 to 21, as the guidelines for accessible contents define them.
double luminance(const QColor& colour)
{
    const auto linear = [](double c) { return c <= 0.03928 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4); };
    return 0.2126 * linear(colour.redF()) + 0.7152 * linear(colour.greenF()) + 0.0722 * linear(colour.blueF());
}

double contrast(const QColor& a, const QColor& b)
{
    const auto [dark, light] = std::minmax({luminance(a), luminance(b)});
    return (light + 0.05) / (dark + 0.05);
}

QPalette paletteOf(QColor paper, QColor ink, QColor accent)
{
    QPalette palette;
    for (const auto role : {QPalette::Window, QPalette::Base, QPalette::Button, QPalette::AlternateBase, QPalette::ToolTipBase})
        palette.setColor(role, paper);
    for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText, QPalette::ToolTipText})
        palette.setColor(role, ink);
    palette.setColor(QPalette::Highlight, accent);
    palette.setColor(QPalette::HighlightedText, paper);
    palette.setColor(QPalette::Mid, ink);
    return palette;
}

class Appearance : public Window {
protected:
    ~Appearance() override { QApplication::setPalette(QPalette()); }

    // The share of a widget's pixels that have about this colour.
    double shareOf(const char* name, const QColor& colour)
    {
        const QImage picture = panel->findChild<QWidget*>(name)->grab().toImage();
        int met = 0;
        for (int y = 0; y < picture.height(); ++y)
            for (int x = 0; x < picture.width(); ++x) {
                const QColor pixel = picture.pixelColor(x, y);
                met += std::abs(pixel.red() - colour.red()) + std::abs(pixel.green() - colour.green()) +
                                   std::abs(pixel.blue() - colour.blue()) <
                               30
                           ? 1
                           : 0;
            }
        return static_cast<double>(met) / (picture.width() * picture.height());
    }

    // Each chart and meter lies on the paper and shows the accent's colour, also when the colours change while it is open.
    void expectColours(const QColor& paper, const QColor& ink, const QColor& accent)
    {
        QApplication::setPalette(paletteOf(paper, ink, accent));
        QApplication::processEvents();
        find<QTabWidget>()->setCurrentIndex(0);
        for (const char* chart : {"curve", "responseView"}) {
            EXPECT_GT(shareOf(chart, paper), 0.5) << chart;
            EXPECT_GT(shareOf(chart, accent), 0.001) << chart;
        }
        find<QTabWidget>()->setCurrentIndex(1);
        EXPECT_TRUE(becomes([this] { return dynamic_cast<Meter&>(*find<QWidget>("level3")).shownLevel() == -30; }));
        EXPECT_NEAR(shareOf("level3", accent), 0.5, 0.1); // -30 of 60 dB
        const QLabel& state = *find<QLabel>("state");
        EXPECT_GE(contrast(state.palette().color(state.foregroundRole()), state.palette().color(state.backgroundRole())), 7);
    }
};

TEST_F(Appearance, FollowsALightADarkAndAHighContrastTheme)
{
    open();
    block.levels.at(2) = -30;
    expectColours(Qt::white, Qt::black, QColor(0x2a, 0x7f, 0xa8));
    expectColours(QColor(0x1e, 0x1e, 0x1e), QColor(0xf0, 0xf0, 0xf0), QColor(0x3d, 0xae, 0xe9));
    expectColours(Qt::black, Qt::white, Qt::yellow);
}

class Tray : public Window {
protected:
    QAction& entry(const QString& text)
    {
        for (QAction* action : panel->findChild<QSystemTrayIcon*>()->contextMenu()->actions())
            if (action->text().remove('&') == text)
                return *action;
        throw std::runtime_error("no such entry in the tray's menu: " + text.toStdString());
    }
};

TEST_F(Tray, KeepsThePanelWhenItsWindowIsClosed)
{
    open(true);
    find<QTabWidget>()->setCurrentIndex(1);
    ASSERT_TRUE(becomes([&] { return settings().levelsEnabled == 1; }));
    panel->close();
    EXPECT_FALSE(panel->isVisible());
    EXPECT_FALSE(QApplication::quitOnLastWindowClosed());
    EXPECT_TRUE(becomes([&] { return settings().levelsEnabled == 0; })); // nothing is measured that nobody sees
    entry("Show the panel").trigger();
    EXPECT_TRUE(panel->isVisible());
    EXPECT_TRUE(becomes([&] { return settings().levelsEnabled == 1; }));
}

// It stops: ten looks' time without one, at the latest after what was under way.
TEST_F(Tray, LooksAtNothingWhileItsWindowIsClosedOrMinimised)
{
    std::atomic<int> looks = 0;
    oneEffect().opened = [&] { ++looks; };
    const auto stops = [&] {
        for (int attempt = 0; attempt < 5; ++attempt) {
            const int before = looks;
            QTest::qWait(10 * static_cast<int>(EffectLink::interval.count()));
            if (looks == before)
                return true;
        }
        return false;
    };
    const auto goesOn = [&] { return becomes([&, before = looks.load()] { return looks > before + 3; }); };
    open(true);
    panel->close();
    EXPECT_TRUE(stops());
    panel->show();
    EXPECT_TRUE(goesOn());
    panel->showMinimized();
    EXPECT_TRUE(stops());
    panel->showNormal();
    EXPECT_TRUE(goesOn());
    panel.reset(); // before what its looks call
}

TEST_F(Tray, BypassesAndPutsBackWhileTheWindowIsClosed)
{
    open(true);
    fader("Reverb").setValue(120);
    ASSERT_TRUE(becomes([&] { return settings().Reverb == 120; }));
    panel->close();
    entry("Bypass").trigger();
    EXPECT_TRUE(becomes([&] { return settings().Reverb == 0; }));
    EXPECT_TRUE(entry("Bypass").isChecked());
    entry("Bypass").trigger();
    EXPECT_TRUE(becomes([&] { return settings().Reverb == 120; }));
}

TEST_F(Tray, OffersThePresetsAsTheyAreNow)
{
    open(true);
    panel->close();
    SettingsRecord record;
    record.Reverb = 77;
    savePreset("evening", record);
    QMenu& presets = *entry("Presets").menu();
    Q_EMIT presets.aboutToShow();
    ASSERT_FALSE(presets.actions().isEmpty());
    EXPECT_EQ(presets.actions().first()->text(), "evening");
    presets.actions().first()->trigger();
    EXPECT_TRUE(becomes([&] { return settings().Reverb == 77; }));
}

TEST_F(Tray, EndsThePanelByItsMenu)
{
    open(true);
    panel->close();
    bool ended = false;
    QObject::connect(qApp, &QApplication::aboutToQuit, qApp, [&] { ended = true; });
    QMetaObject::invokeMethod(
        qApp, [this] { entry("Quit").trigger(); }, Qt::QueuedConnection);
    QTimer::singleShot(60000, qApp, [] { QApplication::exit(1); });
    EXPECT_EQ(QApplication::exec(), 0);
    EXPECT_TRUE(ended);
}

} // namespace
} // namespace quorel
