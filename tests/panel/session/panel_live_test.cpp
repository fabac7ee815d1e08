// SPDX-License-Identifier: MIT
// The window on a screen of its own against a real quorel-live, whatever happens to that one. What the panel's user waits for is
// printed, as the machine's load has its part in it.
#include "panel/qt/window.h"
#include "tests/live/session/graph_client.h"
#include "tests/live/session/private_session.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QCheckBox>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSlider>
#include <QTabWidget>
#include <QTest>
#include <QTimer>

#include <algorithm>
#include <array>
#include <clocale>
#include <csignal>
#include <ctime>
#include <iostream>
#include <random>
#include <thread>

namespace quorel {
namespace {

using namespace std::chrono_literals;

// A screen that nobody sees, with a number that no other has.
class Screen {
public:
    Screen() : server({"Xvfb", "-displayfd", "1", "-screen", "0", "1024x768x24", "-nolisten", "tcp"}, number)
    {
        if (!within(patience, [this] { return !lastNumber().empty(); }))
            throw std::runtime_error("no screen");
        qputenv("DISPLAY", QByteArray::fromStdString(":" + lastNumber()));
        qputenv("QT_QPA_PLATFORM", "xcb");
    }
    ~Screen() { std::filesystem::remove(number); }
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

private:
    // Ahead of its number the server complains of those that others have.
    std::string lastNumber() const
    {
        const std::string told = server.written();
        const auto digits = told.find_last_not_of("0123456789\n") + 1; // 0 where nothing else is told
        const bool line = told.ends_with('\n') && (digits == 0 || told.at(digits) == '\n');
        return line ? QByteArray::fromStdString(told.substr(digits)).trimmed().toStdString() : "";
    }

    std::filesystem::path number =
        std::filesystem::temp_directory_path() / ("quorel_screen_" + std::to_string(std::random_device()()));
    Service server;
};

class PanelLive : public testing::Test {
protected:
    PanelLive() : application(count, arguments.data())
    {
        std::setlocale(LC_NUMERIC, "C");
        panel.emplace(false);
        panel->show();
    }

    // While the window goes on.
    static bool becomes(const std::function<bool()>& reached)
    {
        return QTest::qWaitFor(reached, static_cast<int>(std::chrono::milliseconds(patience).count()));
    }

    template <class Widget>
    Widget& find(const char* child)
    {
        return *panel->findChild<Widget*>(child);
    }
    QString state() { return find<QLabel>("state").text(); }
    bool says(const QString& text)
    {
        const bool said = becomes([&] { return state().contains(text); });
        EXPECT_TRUE(said) << state().toStdString();
        return said;
    }

    static double millisecondsUntil(const std::function<bool()>& reached)
    {
        QElapsedTimer timer;
        timer.start();
        const auto end = std::chrono::steady_clock::now() + patience;
        while (!reached() && std::chrono::steady_clock::now() < end)
            QApplication::processEvents();
        return static_cast<double>(timer.nsecsElapsed()) / 1e6;
    }

    std::string control(const std::string& words) { return session.command(QUOREL_CONTROL " " + words); }

    PrivateSession session;
    Screen screen;
    int count = 1;
    std::string name = "panel";
    std::array<char*, 2> arguments = {name.data(), nullptr};
    QApplication application;
    std::optional<PanelWindow> panel;
};

// One look lasts as long as the slowest of the window's tasks: a stopped host lets who asks it wait for two seconds.
class SlowestTurn {
public:
    void turn()
    {
        QApplication::processEvents();
        slowest = std::max(slowest, last.restart());
        std::this_thread::sleep_for(1ms);
    }
    qint64 slowest = 0; // ms

private:
    QElapsedTimer last = started();
    static QElapsedTimer started()
    {
        QElapsedTimer timer;
        timer.start();
        return timer;
    }
};

TEST_F(PanelLive, SaysWhatRunsAndNeverHangs)
{
    ASSERT_TRUE(says("No effect is running"));
    auto live = session.live();
    ASSERT_TRUE(says("Headphones, 7.1: idle"));
    EXPECT_TRUE(says("Microphone: idle"));

    live->signal(SIGSTOP);
    ASSERT_TRUE(says("quorel-live does not answer"));
    SlowestTurn turns;
    auto& reverb = find<QSlider>("Reverb");
    for (int i = 0; i < 300; ++i) {
        reverb.setValue(i % 200);
        turns.turn();
    }
    EXPECT_LT(turns.slowest, 1000);
    std::cout << "while the host is stopped the window's slowest turn takes " << turns.slowest << " ms\n";
    live->signal(SIGCONT);
    ASSERT_TRUE(becomes([&] { return !state().contains("does not answer"); }));
    EXPECT_TRUE(becomes([&] { return control("get Reverb") == "Reverb=99\n"; })); // the last of them has arrived

    live->signal(SIGKILL);
    ASSERT_TRUE(live->ended(patience).has_value());
    ASSERT_TRUE(says("No effect is running"));
    EXPECT_FALSE(find<QPushButton>("bypass").isEnabled());
    live = session.live();
    ASSERT_TRUE(says("Headphones, 7.1"));
    EXPECT_TRUE(find<QPushButton>("bypass").isEnabled());
}

TEST_F(PanelLive, ShowsWhatAnotherToolChangesAndChangesWhatItShows)
{
    const auto live = session.live();
    ASSERT_TRUE(says("Headphones, 7.1"));
    auto& reverb = find<QSlider>("Reverb");
    control("set Reverb=170");
    EXPECT_TRUE(becomes([&] { return reverb.value() == 170; }));
    std::array<double, 21> shown{};
    std::array<double, 21> written{};
    for (std::size_t i = 0; i < shown.size(); ++i) {
        const auto there = static_cast<std::uint32_t>(100 + i);
        ControlClient().update([&](SettingsRecord& record) { record.Reverb = there; });
        shown.at(i) = millisecondsUntil([&] { return reverb.value() == static_cast<int>(there); });
        reverb.setValue(static_cast<int>(50 + i));
        written.at(i) = millisecondsUntil([&] { return ControlClient().settings().Reverb == 50 + i; });
    }
    std::sort(shown.begin(), shown.end());
    std::sort(written.begin(), written.end());
    std::cout << "another's change is shown after " << shown[10] << " ms, at worst " << shown[20]
              << "; one's own is in the block after " << written[10] << " ms, at worst " << written[20] << '\n';
    control("set Reverb=170");
    EXPECT_TRUE(becomes([&] { return reverb.value() == 170; }));
    reverb.setFocus();
    QTest::keyClick(&reverb, Qt::Key_Down);
    EXPECT_TRUE(becomes([&] { return control("get Reverb") == "Reverb=169\n"; }));
    EXPECT_EQ(control("get EQBand5"), "EQBand5=0\n");

    QTest::mouseClick(&find<QPushButton>("bypass"), Qt::LeftButton);
    EXPECT_TRUE(becomes([&] { return session.status()["bypass"] == true; })); // the host's own
    EXPECT_EQ(control("get Reverb"), "Reverb=169\n");
    EXPECT_TRUE(becomes([&] { return find<QPushButton>("bypass").isChecked(); }));
    QTest::mouseClick(&find<QPushButton>("bypass"), Qt::LeftButton);
    EXPECT_TRUE(becomes([&] { return session.status()["bypass"] == false; }));
}

// The window's thread sleeps as it would in the program; the host's answers and the meters are what wakes it.
TEST_F(PanelLive, WhatItCostsShownAndHiddenIsPrinted)
{
    const auto live = session.live();
    ASSERT_TRUE(says("Headphones, 7.1"));
    panel->showPage(1);
    constexpr int seconds = 3;
    const auto costs = [] {
        timespec before{};
        timespec after{};
        clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &before);
        QEventLoop loop;
        QTimer::singleShot(1000 * seconds, &loop, &QEventLoop::quit);
        loop.exec();
        clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &after);
        return static_cast<double>(after.tv_sec - before.tv_sec) * 1e3 +
               static_cast<double>(after.tv_nsec - before.tv_nsec) / 1e6;
    };
    const double shown = costs() / seconds;
    panel->hide();
    QTest::qWait(100); // for what is under way
    const double hidden = costs() / seconds;
    panel->show();
    std::cout << "a second of the microphone's page costs " << shown << " ms of a core, hidden " << hidden << " ms\n";
    EXPECT_LT(hidden, shown);
}

TEST_F(PanelLive, ListensAndTellsWhatTheEffectTakesAwayMeanwhile)
{
    const auto live = session.live();
    ASSERT_TRUE(says("Microphone"));
    panel->showPage(1);
    auto& listen = find<QCheckBox>("listen");
    listen.click();
    EXPECT_TRUE(becomes([&] { return session.command("pw-link -l").find("input.quorel-panel") != std::string::npos; }));
    EXPECT_TRUE(says("Microphone: Test microphone at 48000 Hz"));
    EXPECT_TRUE(becomes([&] { return find<QLabel>("takenAway").text().contains("dB"); }));
    EXPECT_TRUE(becomes([&] { return find<QLabel>("late").text().contains("Your voice comes"); }));
    listen.click();
    EXPECT_TRUE(becomes([&] { return session.command("pw-link -l").find("input.quorel-panel") == std::string::npos; }));
}

TEST_F(PanelLive, TheSpeakerTestIsHeardOnTheHeadphoneDevice)
{
    const auto live = session.live();
    ASSERT_TRUE(says("Headphones, 7.1: idle"));
    find<QPushButton>("speakerTest").click();
    EXPECT_TRUE(becomes([&] {
        const std::string links = session.command("pw-link -l");
        return links.find("quorel.speaker:playback_SR\n  |<- pw-play:output_SR") != std::string::npos;
    }));
    EXPECT_TRUE(says("Headphones, 7.1: Test speakers at 48000 Hz"));
    find<QPushButton>("speakerTest").click();
    EXPECT_TRUE(becomes([&] { return session.command("pw-link -l").find("pw-play") == std::string::npos; }));
}

} // namespace
} // namespace quorel
