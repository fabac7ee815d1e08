// SPDX-License-Identifier: MIT
// The window in another language: each text that it shows, says to a screen reader or has for the mouse to find is translated,
// those of the layers below it too.
#include "tests/panel/qt/panel_window.h"
#include "tests/panel/qt/upper_case.h"

#include "client/preset.h"
#include "tests/panel/built_in_wav.h"

#include <QAbstractButton>
#include <QAction>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPlainTextEdit>

#include <filesystem>
#include <fstream>
#include <random>

namespace quorel {
namespace {

class Language : public Window {
protected:
    ~Language() override { panel.reset(); }

    // beside: data that stand in the texts.
    void expectAllTranslated(const QStringList& beside = {})
    {
        int texts = 0;
        const auto expect = [&](const QObject* of, const char* what, QString text) {
            for (const QString& data : beside)
                text.remove(data);
            texts += text.isEmpty() ? 0 : 1;
            EXPECT_EQ(untranslated(text).toStdString(), "")
                << of->metaObject()->className() << ' ' << of->objectName().toStdString() << ' ' << what;
        };
        QObjectList all = panel->findChildren<QObject*>();
        all += panel.get();
        for (const QObject* each : all) {
            for (const char* what : {"text", "title", "toolTip", "accessibleName", "accessibleDescription", "placeholderText",
                                     "plainText", "windowTitle"})
                expect(each, what, each->property(what).toString());
            if (const auto* box = qobject_cast<const QComboBox*>(each))
                for (int i = 0; i < box->count(); ++i)
                    expect(each, "item", box->itemText(i));
            if (const auto* tabs = qobject_cast<const QTabWidget*>(each))
                for (int i = 0; i < tabs->count(); ++i)
                    expect(each, "tab", tabs->tabText(i));
        }
        EXPECT_GE(texts, 100);
    }

    QString report() { return find<QPlainTextEdit>("report")->toPlainText(); }

    const UpperCase language;
};

TEST_F(Language, EveryTextOfTheWindowIsTranslated)
{
    savePreset("LATE", {});
    open(true);
    for (QMenu* menu : panel->findChildren<QMenu*>())
        Q_EMIT menu->aboutToShow();
    find<QTabWidget>()->setCurrentIndex(1);
    ASSERT_TRUE(becomes([&] { return find<Meter>("level1")->accessibleName().contains("HZ"); }));
    EXPECT_EQ(find<QComboBox>("shownSpeaker")->itemText(0), "FRONT LEFT");
    EXPECT_EQ(find<QLineEdit>("ReverbText")->text(), "OFF");
    expectAllTranslated();
    fader("EQBand3").setValue(50);
    fader("Reverb").setValue(120);
    find<QAbstractButton>("bypass")->click();
    ASSERT_TRUE(becomes([&] { return settings().Reverb == 0; }));
    expectAllTranslated();
    deletePreset("LATE");
}

TEST_F(Language, WhatIsWrongWithTheEffectIsTranslated)
{
    block.activeFramesPerSecond = 16000;
    open();
    expectAllTranslated();
    block.activeFramesPerSecond = 48000;
    block.activeChannelMask = 0x3;
    ControlClient().update([](SettingsRecord& record) {
        record.hrtfId = 0x80;
        record.hrtfLength = 1024;
        record.hrtfChannels = 8;
    });
    auto* responses = find<QLabel>("responses");
    EXPECT_TRUE(becomes([&] { return responses->text().contains("REFUSES EVERY BLOCK"); })) << responses->text().toStdString();
    expectAllTranslated();
    oneEffect().block = nullptr;
    EXPECT_TRUE(becomes([&] { return find<QLabel>("state")->text().contains("NO EFFECT IS RUNNING"); }));
    expectAllTranslated();
}

TEST_F(Language, ARefusedNumberIsToldAndTheWordForNoneIsTaken)
{
    open();
    auto& box = *find<QLineEdit>("ReverbText");
    fader("Reverb").setValue(120);
    const auto type = [&](const char* text) {
        box.setFocus();
        box.selectAll();
        QTest::keyClicks(&box, text);
        QTest::keyClick(&box, Qt::Key_Return);
    };
    type("99 DB");
    EXPECT_EQ(find<QLabel>("message")->text(), "99 DB IS NOT A NUMBER FROM 0 TO 255, NOR ONE OF -17.9 to +9.0 DB");
    type("OFF");
    EXPECT_TRUE(becomes([&] { return settings().Reverb == 0; }));
}

TEST_F(Language, TheReportOfAnImportIsTranslated)
{
    open();
    const QString name = "quorel" + QString::number(std::random_device()()) + ".wav";
    const auto file = std::filesystem::temp_directory_path() / name.toStdString();
    const QString path = QString::fromStdString(file.string());
    std::ofstream(file, std::ios::binary) << builtInWav();
    panel->importFile(path);
    expectAllTranslated({path, name});
    ASSERT_TRUE(becomes([&] { return report().contains("DELIVERED TO THE EFFECT"); })) << report().toStdString();
    expectAllTranslated({path, name});
    std::ofstream(file, std::ios::binary) << "nothing of a head";
    panel->importFile(path);
    ASSERT_TRUE(becomes([&] { return report().contains("CANNOT READ"); })) << report().toStdString();
    expectAllTranslated({path, name});
    panel->importFile({});
    ASSERT_TRUE(becomes([&] { return report().contains("ARE IN FORCE"); })) << report().toStdString();
    expectAllTranslated({path, name});
    std::filesystem::remove(file);
}

} // namespace
} // namespace quorel
