// SPDX-License-Identifier: MIT
// What the window tells of a live host, and its bypass there.
#include "tests/panel/qt/panel_window.h"
#include "tests/support/fake_host.h"

#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>

#include <mutex>

namespace quorel {
namespace {

class HostsWindow : public Window {
protected:
    ~HostsWindow() override { panel.reset(); } // before the host that it asks

    void tell(const std::string& newest)
    {
        const std::scoped_lock lock(mutex);
        sides = newest;
    }

    QString state() { return find<QLabel>("state")->text(); }
    QString details() { return find<QPlainTextEdit>("details")->toPlainText(); }

    std::mutex mutex;
    std::string sides; // of the next answer, each behind a comma
    bool bypass = false;
    FakeHost host{[this](const std::string& command) {
        const std::scoped_lock lock(mutex);
        if (command.starts_with("bypass"))
            bypass = command == "bypass on";
        return hostStatus(bypass, sides);
    }};
};

TEST_F(HostsWindow, TheHeadTellsTheSidesOfTheHost)
{
    for (const auto& [channels, layout] : {std::pair{2, "stereo"}, {6, "5.1"}, {8, "7.1"}, {4, "speakers 0x33"}}) {
        tell(R"(, "speaker": )" + hostSide("a headset", true, channels) + R"(, "microphone": )" + hostSide("", false, 1));
        panel.reset();
        open();
        const QString told =
            QString("Headphones, %1: a headset at 48000 Hz, quantum 256, load 1.5 %, 3 gaps\nMicrophone: idle").arg(layout);
        EXPECT_TRUE(becomes([&] { return state() == told; })) << state().toStdString();
        EXPECT_TRUE(details().contains("scheduling FIFO")) << details().toStdString();
    }
    tell("");
    EXPECT_TRUE(becomes([&] { return state() == "Running at 48000 Hz, 7.1"; })) << state().toStdString();
}

TEST_F(HostsWindow, TheVoicesDelayIsTheHostsAndTheEffects)
{
    tell(R"(, "microphone": )" + hostSide("a headset", true, 1));
    open();
    const auto late = [&] { return find<QLabel>("late")->text(); };
    EXPECT_TRUE(becomes([&] { return late() == "Your voice comes 10.5 ms late, 0.0 ms of it by noise reduction."; }))
        << late().toStdString();
    // 782 samples at 48000 Hz
    ControlClient().update([](SettingsRecord& record) { record.MicNR = 1; });
    EXPECT_TRUE(becomes([&] { return late() == "Your voice comes 26.8 ms late, 16.3 ms of it by noise reduction."; }))
        << late().toStdString();
}

// A hundredth of the power goes in between two answers, and a tenth of that comes out.
TEST_F(HostsWindow, WhatTheEffectTakesAwayIsToldFromAnswerToAnswer)
{
    const auto counted = [&](int seconds) {
        tell(R"(, "microphone": )" +
             hostSide("a headset", true, 1,
                      R"(, "frames": )" + std::to_string(48000 * seconds) + R"(, "in_energy": )" + std::to_string(480 * seconds) +
                          R"(, "out_energy": )" + std::to_string(48 * seconds)));
    };
    counted(1);
    open();
    const auto taken = [&] { return find<QLabel>("takenAway"); };
    ASSERT_TRUE(becomes([&] { return state().contains("Microphone: a headset"); }));
    EXPECT_EQ(taken()->text(), "not told");
    int seconds = 1;
    EXPECT_TRUE(becomes([&] {
        counted(++seconds);
        return taken()->text() == "-10 dB";
    })) << taken()->text().toStdString();
    EXPECT_EQ(find<Meter>("levelIn")->shownPeak(), -20);
    EXPECT_EQ(find<Meter>("levelOut")->shownPeak(), -30);
    EXPECT_TRUE(taken()->toolTip().contains("over the last half second"));
    EXPECT_TRUE(becomes([&] { return taken()->text() == "not told"; })); // its microphone stands
}

TEST_F(HostsWindow, AHostIsAskedForItsOwnBypass)
{
    open();
    fader("Reverb").setValue(120);
    ASSERT_TRUE(becomes([&] { return details().contains("bypass off") && settings().Reverb == 120; }));
    auto* button = find<QPushButton>("bypass");
    QTest::keyClick(panel.get(), Qt::Key_B, Qt::ControlModifier);
    EXPECT_TRUE(becomes([&] { return details().contains("bypass on"); }));
    EXPECT_TRUE(button->isChecked());
    EXPECT_EQ(button->text().remove('&'), "Bypassed");
    EXPECT_EQ(settings().Reverb, 120U);
    QTest::keyClick(panel.get(), Qt::Key_B, Qt::ControlModifier);
    EXPECT_TRUE(becomes([&] { return details().contains("bypass off"); }));
    EXPECT_FALSE(button->isChecked());
}

TEST_F(HostsWindow, AHostThatSpeaksNonsenseIsToldBesideTheEffect)
{
    tell("no status");
    open();
    EXPECT_TRUE(becomes([&] { return state() == "quorel-live does not answer. Running at 48000 Hz, 7.1"; }))
        << state().toStdString();
    EXPECT_EQ(details(), "quorel-live: quorel-live answers what is no status");
}

} // namespace
} // namespace quorel
