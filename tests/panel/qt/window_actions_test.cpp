// SPDX-License-Identifier: MIT
// What the window's user does by keys, menus and dialogs: presets, responses, the bypass, a typed number.
#include "tests/panel/qt/panel_window.h"

#include "client/preset.h"
#include "platform/named_lock.h"
#include "tests/panel/built_in_wav.h"

#include <QAction>
#include <QComboBox>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileDialog>
#include <QInputDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMimeData>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSystemTrayIcon>
#include <QUrl>
#include <QWheelEvent>

#include <filesystem>
#include <fstream>
#include <random>

namespace quorel {
namespace {

class Actions : public Window {
protected:
    ~Actions() override
    {
        panel.reset();
        for (const std::string& name : presets())
            deletePreset(name);
    }

    void press(Qt::Key key) { QTest::keyClick(panel.get(), key, Qt::ControlModifier); }

    QString presetText() { return find<QPushButton>("preset")->text().remove('&'); }
    QString message() { return find<QLabel>("message")->text(); }
    QString report() { return find<QPlainTextEdit>("report")->toPlainText(); }

    // An entry of the presets' menu as it opens now.
    QAction& entry(const QString& text)
    {
        QMenu& menu = *find<QPushButton>("preset")->menu();
        Q_EMIT menu.aboutToShow();
        for (QAction* action : menu.actions())
            if (action->text().remove('&') == text)
                return *action;
        throw std::runtime_error("no such entry in the menu: " + text.toStdString());
    }

    // Types a name into the dialog that asks for one.
    void name(const QString& text)
    {
        auto* dialog = find<QInputDialog>();
        ASSERT_NE(dialog, nullptr);
        dialog->setTextValue(text);
        dialog->accept();
        QApplication::sendPostedEvents(dialog, QEvent::DeferredDelete);
    }

    // Whether the window would take what is dragged onto it; and drops it.
    bool dropped(const QList<QUrl>& urls)
    {
        QMimeData data;
        data.setUrls(urls);
        QDragEnterEvent enter({100, 100}, Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
        enter.ignore();
        QApplication::sendEvent(panel.get(), &enter);
        QDropEvent event({100, 100}, Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
        event.ignore();
        QApplication::sendEvent(panel.get(), &event);
        EXPECT_EQ(event.isAccepted(), enter.isAccepted());
        return enter.isAccepted();
    }
};

TEST_F(Actions, CtrlSAsksForANameOnceAndThenSaves)
{
    open();
    EXPECT_EQ(presetText(), "Preset");
    fader("Reverb").setValue(77);
    press(Qt::Key_S);
    name("no name");
    EXPECT_TRUE(message().contains("is no name for a preset")) << message().toStdString();
    EXPECT_TRUE(presets().empty());
    press(Qt::Key_S);
    name("evening");
    EXPECT_EQ(message(), "");
    EXPECT_EQ(presetText(), "evening");
    EXPECT_EQ(loadPreset("evening", {}).Reverb, 77U);
    fader("Reverb").setValue(78);
    EXPECT_EQ(presetText(), "evening *");
    press(Qt::Key_S);
    EXPECT_EQ(presetText(), "evening");
    EXPECT_EQ(loadPreset("evening", {}).Reverb, 78U);
}

TEST_F(Actions, TheMenuOfPresetsLoadsSavesAndReverts)
{
    SettingsRecord record;
    record.Reverb = 33;
    savePreset("morning", record);
    open();
    EXPECT_FALSE(entry("Save").isEnabled());
    EXPECT_FALSE(entry("Revert").isEnabled());
    EXPECT_FALSE(entry("morning").isChecked());
    entry("morning").trigger();
    EXPECT_TRUE(becomes([&] { return settings().Reverb == 33; }));
    EXPECT_TRUE(entry("morning").isChecked());
    EXPECT_FALSE(entry("Revert").isEnabled());
    fader("Reverb").setValue(44);
    EXPECT_TRUE(entry("Revert").isEnabled());
    entry("Revert").trigger();
    EXPECT_EQ(fader("Reverb").value(), 33);
    fader("Reverb").setValue(55);
    entry("Save").trigger();
    EXPECT_EQ(loadPreset("morning", {}).Reverb, 55U);
    entry("Save as…").trigger();
    EXPECT_EQ(find<QInputDialog>()->textValue(), "morning");
    name("noon");
    EXPECT_EQ(presetText(), "noon");
    EXPECT_EQ(presets(), (std::vector<std::string>{"morning", "noon"}));
}

TEST_F(Actions, CtrlBBypassesAndPutsBack)
{
    open();
    fader("Reverb").setValue(120);
    ASSERT_TRUE(becomes([&] { return settings().Reverb == 120; }));
    press(Qt::Key_B);
    EXPECT_TRUE(becomes([&] { return settings().Reverb == 0; }));
    EXPECT_TRUE(becomes([&] { return find<QLabel>("state")->text().contains("Bypassed by settings"); }));
    press(Qt::Key_B);
    EXPECT_TRUE(becomes([&] { return settings().Reverb == 120; }));
    EXPECT_FALSE(find<QPushButton>("bypass")->isChecked());
}

TEST_F(Actions, EscapeGivesATypedNumberUp)
{
    open();
    fader("Reverb").setValue(120);
    auto& box = *find<QLineEdit>("ReverbText");
    const QString before = box.text();
    box.setFocus();
    box.selectAll();
    QTest::keyClicks(&box, "-3");
    EXPECT_EQ(box.text(), "-3");
    QTest::keyClick(&box, Qt::Key_Escape);
    EXPECT_EQ(box.text(), before);
    fader("EQBand1").setFocus(); // leaving takes what was typed, which is nothing now
    EXPECT_EQ(fader("Reverb").value(), 120);
}

TEST_F(Actions, TheWheelTurnsAChoiceOnlyWithTheFocus)
{
    open();
    find<QTabWidget>()->setCurrentIndex(1);
    auto* curve = find<QComboBox>("micEq");
    curve->setCurrentIndex(1);
    const QPointF middle = QRectF(curve->rect()).center();
    const auto turn = [&] {
        QWheelEvent event(middle, curve->mapToGlobal(middle), {}, {0, -120}, Qt::NoButton, Qt::NoModifier, Qt::NoScrollPhase,
                          false);
        QApplication::sendEvent(curve, &event);
    };
    find<QTabWidget>()->setFocus();
    turn();
    EXPECT_EQ(curve->currentIndex(), 1);
    curve->setFocus();
    turn();
    EXPECT_EQ(curve->currentIndex(), 2);
    EXPECT_TRUE(becomes([&] { return settings().micEq == 2; }));
}

TEST_F(Actions, AFileIsChosenImportedNamedAndGivenUpAgain)
{
    open();
    const auto file = std::filesystem::temp_directory_path() / ("quorel" + std::to_string(std::random_device()()) + ".wav");
    std::ofstream(file, std::ios::binary) << builtInWav();
    find<QPushButton>("import")->click();
    auto* dialog = panel->findChild<QFileDialog*>();
    ASSERT_NE(dialog, nullptr);
    {
        const platform::NamedLock turn("Global\\QUORELControl", nullptr, 1000); // for which the import waits
        ASSERT_TRUE(static_cast<bool>(turn));
        Q_EMIT dialog->fileSelected(QString::fromStdString(file.string()));
        panel->importFile("another.wav"); // one at a time
        EXPECT_FALSE(find<QPushButton>("import")->isEnabled());
        EXPECT_FALSE(report().contains("another.wav"));
    }
    dialog->close();
    EXPECT_TRUE(becomes([&] { return report().contains("Delivered to the effect."); })) << report().toStdString();
    EXPECT_TRUE(find<QPushButton>("import")->isEnabled());
    const auto used = [&] { return find<QLabel>("responses")->text(); };
    EXPECT_TRUE(becomes([&] { return used() == "In use: " + QString::fromStdString(file.filename().string()); }))
        << used().toStdString();
    EXPECT_TRUE(find<QWidget>("responseView")->isVisible());

    find<QPushButton>("builtIn")->click();
    EXPECT_TRUE(becomes([&] { return report() == "The built-in responses are in force."; })) << report().toStdString();
    EXPECT_TRUE(becomes([&] { return used() == "In use: the built-in set"; })) << used().toStdString();
    find<QPushButton>("builtIn")->click();
    EXPECT_TRUE(becomes([&] { return report() == "No delivered set is in force."; })) << report().toStdString();
    ControlClient().update([](SettingsRecord& record) {
        record.hrtfId = 0x1200;
        record.hrtfLength = 1024;
        record.hrtfChannels = 8;
    });
    EXPECT_TRUE(becomes([&] { return used() == "In use: a set that another program delivered"; })) << used().toStdString();
    std::filesystem::remove(file);
}

TEST_F(Actions, OneFileOfThisMachineAloneCanBeDropped)
{
    open();
    find<QTabWidget>()->setCurrentIndex(1);
    EXPECT_FALSE(dropped({QUrl("https://example.org/head.sofa")}));
    EXPECT_FALSE(dropped({QUrl::fromLocalFile("/one.sofa"), QUrl::fromLocalFile("/other.sofa")}));
    EXPECT_FALSE(dropped({}));
    EXPECT_EQ(find<QTabWidget>()->currentIndex(), 1);
    EXPECT_EQ(report(), "");
    EXPECT_TRUE(dropped({QUrl::fromLocalFile("/nowhere/head.sofa")}));
    EXPECT_EQ(find<QTabWidget>()->currentIndex(), 0);
    EXPECT_TRUE(becomes([&] { return report().contains("cannot read /nowhere/head.sofa"); })) << report().toStdString();
}

TEST_F(Actions, AClickOnTheTraysIconHidesAndShowsTheWindow)
{
    open(true);
    auto* tray = find<QSystemTrayIcon>();
    Q_EMIT tray->activated(QSystemTrayIcon::Context); // which its menu takes
    EXPECT_TRUE(panel->isVisible());
    Q_EMIT tray->activated(QSystemTrayIcon::Trigger);
    EXPECT_FALSE(panel->isVisible());
    Q_EMIT tray->activated(QSystemTrayIcon::Trigger);
    EXPECT_TRUE(panel->isVisible());
}

TEST_F(Actions, TheHeadTellsWhyNothingCanBeDone)
{
    block.activeFramesPerSecond = 0;
    open();
    const auto state = [&] { return find<QLabel>("state")->text(); };
    EXPECT_TRUE(becomes([&] { return state().startsWith("The effect is there, and no stream so far"); }))
        << state().toStdString();
    block.activeFramesPerSecond = 48000;
    block.activeChannelMask = 0x60F;
    EXPECT_TRUE(becomes([&] { return state() == "Running at 48000 Hz, 5.1"; })) << state().toStdString();
    oneEffect().blockBytes = 1;
    EXPECT_TRUE(becomes([&] { return state() == "the effect's control block is smaller than it has to be"; }))
        << state().toStdString();
    EXPECT_FALSE(find<QTabWidget>()->widget(0)->isEnabled());
    press(Qt::Key_Z); // nothing of which is heard
    press(Qt::Key_B);
    press(Qt::Key_D);
    EXPECT_FALSE(find<QPushButton>("bypass")->isChecked());
}

} // namespace
} // namespace quorel
