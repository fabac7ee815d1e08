// SPDX-License-Identifier: MIT
// The microphone's page, the speaker test, and what the head tells, where no audio server is.
#include "tests/panel/qt/panel_window.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QPushButton>

namespace quorel {
namespace {

class Sounds : public Window {
protected:
    QString message() { return find<QLabel>("message")->text(); }
};

// There is no server here, which the player says.
TEST_F(Sounds, ASpeakerTestThatFailsSaysWhyAndComesBack)
{
    open();
    auto* button = find<QPushButton>("speakerTest");
    QTest::mouseClick(button, Qt::LeftButton);
    EXPECT_TRUE(becomes([&] { return message().contains("pw-play"); }));
    EXPECT_FALSE(button->isChecked());
}

TEST_F(Sounds, ListeningThatFailsSaysWhyAndComesBack)
{
    open();
    find<QTabWidget>()->setCurrentIndex(1);
    auto* box = find<QCheckBox>("listen");
    QTest::mouseClick(box, Qt::LeftButton, Qt::NoModifier, {8, box->height() / 2});
    EXPECT_TRUE(becomes([&] { return message().contains("pw-loopback"); }));
    EXPECT_FALSE(box->isChecked());
    EXPECT_EQ(find<QComboBox>("delay")->itemText(0), "0.5 s");
    EXPECT_EQ(find<QComboBox>("delay")->itemText(5), "3.0 s");
}

TEST_F(Sounds, BeforeTurnsTheMicrophonesEffectsOffAndBackOn)
{
    ControlClient().update([](SettingsRecord& record) {
        record.MicNR = 1;
        record.micEq = 2;
        record.noiseGate = 60;
        record.Reverb = 99;
    });
    open();
    find<QTabWidget>()->setCurrentIndex(1);
    auto* before = find<QCheckBox>("before");
    ASSERT_TRUE(becomes([&] { return find<QCheckBox>("MicNR")->isChecked(); }));
    before->click();
    EXPECT_TRUE(becomes([&] { return settings().MicNR == 0 && settings().micEq == 0 && settings().noiseGate == 0; }));
    EXPECT_EQ(settings().Reverb, 99U);
    EXPECT_TRUE(before->isChecked());
    before->click();
    EXPECT_TRUE(becomes([&] { return settings().MicNR == 1 && settings().micEq == 2 && settings().noiseGate == 60; }));
    EXPECT_FALSE(before->isChecked());
}

// 782 samples at 48000 Hz are 16.3 ms, 431 at 16000 Hz 26.9 ms.
TEST_F(Sounds, TheMicrophonesPageTellsHowLateTheVoiceIs)
{
    open();
    const auto late = [&] { return find<QLabel>("late")->text(); };
    EXPECT_TRUE(late().contains("no later"));
    fader("noiseGate").setValue(1); // no filter bank
    find<QCheckBox>("MicNR")->click();
    EXPECT_TRUE(becomes([&] { return late().contains("16.3 ms"); })) << late().toStdString();
    block.activeFramesPerSecond = 16000;
    EXPECT_TRUE(becomes([&] { return late().contains("26.9 ms"); })) << late().toStdString();
}

TEST_F(Sounds, WhatTheEffectTakesAwayIsNotMadeUp)
{
    open();
    EXPECT_EQ(find<QLabel>("takenAway")->text(), "not told");
}

// A microphone that was locked last says nothing of the speakers.
TEST_F(Sounds, TheHeadTellsAMicrophonesStreamFromTheSpeakers)
{
    open();
    const auto state = [&] { return find<QLabel>("state")->text(); };
    EXPECT_TRUE(state().contains("48000 Hz, 7.1")) << state().toStdString();
    block.activeChannelMask = 0x4;
    EXPECT_TRUE(becomes([&] { return state().contains("48000 Hz, a microphone's stream"); })) << state().toStdString();
    block.activeChannelMask = 0x3;
    block.activeFramesPerSecond = 16000;
    EXPECT_TRUE(becomes([&] { return state().contains("16000 Hz, a microphone's stream"); })) << state().toStdString();
}

} // namespace
} // namespace quorel
