// SPDX-License-Identifier: MIT
// The window as its user meets it, on a screen that nobody sees, with one effect in the test's own memory.
#include "panel/qt/window.h"

#include "platform/named_lock.h"
#include "tests/panel/qt/panel_window.h"

#include <gtest/gtest.h>

#include <QAccessible>
#include <QCheckBox>
#include <QComboBox>
#include <QDropEvent>
#include <QLabel>
#include <QMimeData>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QUrl>
#include <QWheelEvent>

#include <atomic>
#include <chrono>
#include <fstream>
#include <random>
#include <set>
#include <thread>

namespace quorel {
namespace {

void turnWheel(QWidget& widget)
{
    const QPointF middle = QRectF(widget.rect()).center();
    QWheelEvent event(middle, widget.mapToGlobal(middle), {}, {0, 120}, Qt::NoButton, Qt::NoModifier, Qt::NoScrollPhase, false);
    QApplication::sendEvent(&widget, &event);
}

void drop(PanelWindow& panel, const QString& path)
{
    QMimeData data;
    data.setUrls({QUrl::fromLocalFile(path)});
    QDragEnterEvent enter({100, 100}, Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(&panel, &enter);
    QDropEvent event({100, 100}, Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(&panel, &event);
}

TEST_F(Window, AKeyMovesASliderByOneStepAndTheEffectHearsIt)
{
    open();
    fader("EQBand5").setFocus();
    QTest::keyClick(&fader("EQBand5"), Qt::Key_Up);
    EXPECT_EQ(fader("EQBand5").value(), 1);
    EXPECT_TRUE(becomes([&] { return settings().EQBand.at(4) == 1; }));
    QTest::keyClick(&fader("EQBand5"), Qt::Key_End);
    EXPECT_TRUE(becomes([&] { return settings().EQBand.at(4) == 127; }));
}

// However long it takes: at most one update at once and one more for each 10 ms that have passed.
TEST_F(Window, ASliderDraggedFromEndToEndSendsAHundredASecond)
{
    std::atomic<int> updates = 0;
    oneEffect().signalled = [&] { ++updates; };
    open();
    QSlider& slider = fader("EQBand5");
    const auto mouse = [&](QEvent::Type type, int y, Qt::MouseButton button, Qt::MouseButtons held) {
        const QPointF at(slider.width() / 2.0, y);
        QMouseEvent event(type, at, slider.mapToGlobal(at), button, held, Qt::NoModifier);
        QApplication::sendEvent(&slider, &event);
    };
    int moves = 0;
    QObject::connect(&slider, &QSlider::valueChanged, &slider, [&] { ++moves; });
    slider.setValue(-127);
    ASSERT_TRUE(becomes([&] { return settings().EQBand.at(4) == -127; }));
    updates = 0;
    moves = 0;
    const auto start = std::chrono::steady_clock::now();
    mouse(QEvent::MouseButtonPress, slider.height() - 8, Qt::LeftButton, Qt::LeftButton); // upon the handle
    for (int y = slider.height() - 8; y >= -8; --y) {
        mouse(QEvent::MouseMove, y, Qt::NoButton, Qt::LeftButton);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        if (y % 30 == 0)
            QApplication::processEvents(); // painting takes longer than ten moves
    }
    mouse(QEvent::MouseButtonRelease, -8, Qt::LeftButton, Qt::NoButton);
    EXPECT_TRUE(becomes([&] { return settings().EQBand.at(4) == 127; }));
    const auto passed = std::chrono::steady_clock::now() - start;
    EXPECT_LE(updates.load(), passed / std::chrono::milliseconds(10) + 2);
    EXPECT_GE(moves, 40);
    panel.reset(); // before what its writing calls
}

TEST_F(Window, ADoubleClickAndDeleteBringTheDefault)
{
    open();
    for (const auto& back : {std::function([&] { QTest::mouseDClick(&fader("Reverb"), Qt::LeftButton); }),
                             std::function([&] { QTest::keyClick(&fader("Reverb"), Qt::Key_Delete); })}) {
        fader("Reverb").setValue(120);
        ASSERT_TRUE(becomes([&] { return settings().Reverb == 120; }));
        back();
        EXPECT_TRUE(becomes([&] { return settings().Reverb == 0; }));
    }
}

TEST_F(Window, TheWheelMovesASliderOnlyWithTheFocus)
{
    open();
    fader("EQBand1").setFocus();
    turnWheel(fader("EQBand2"));
    EXPECT_EQ(fader("EQBand2").value(), 0);
    turnWheel(fader("EQBand1"));
    EXPECT_GT(fader("EQBand1").value(), 0);
}

// -3.04 dB is nearest to -64 of 127 steps for 6 dB.
TEST_F(Window, ATypedNumberIsTakenWithACommaOrAPoint)
{
    open();
    for (const char* text : {"-3,04", "-3.04 dB"}) {
        fader("EQBand3").setValue(5);
        auto* box = find<QLineEdit>("EQBand3Text");
        box->setFocus();
        box->selectAll();
        QTest::keyClicks(box, text);
        QTest::keyClick(box, Qt::Key_Return);
        EXPECT_TRUE(becomes([&] { return settings().EQBand.at(2) == -64; })) << text;
        EXPECT_EQ(box->text(), "-3.0 dB");
    }
}

TEST_F(Window, ATypedNumberOutOfRangeIsRefusedInWords)
{
    open();
    auto* box = find<QLineEdit>("EQBand3Text");
    box->setFocus();
    box->selectAll();
    QTest::keyClicks(box, "99");
    QTest::keyClick(box, Qt::Key_Return);
    EXPECT_TRUE(find<QLabel>("message")->text().contains("-6.0 to +6.0 dB"));
    EXPECT_EQ(box->text(), "0.0 dB");
    EXPECT_EQ(settings().EQBand.at(2), 0);
}

TEST_F(Window, AnotherProgramsChangeIsShownAndNotWrittenBack)
{
    open();
    ControlClient().update([](SettingsRecord& record) {
        record.Reverb = 170;
        record.Settings = 7;
    });
    EXPECT_TRUE(becomes([&] { return fader("Reverb").value() == 170 && find<QCheckBox>("Settings")->isChecked(); }));
    EXPECT_EQ(find<QLineEdit>("ReverbText")->text(), "0.0 dB");
    QTest::keyClick(&fader("EQBand5"), Qt::Key_Up);
    ASSERT_TRUE(becomes([&] { return settings().EQBand.at(4) == 1; }));
    EXPECT_EQ(settings().Settings, 7);
}

TEST_F(Window, EveryControlHasANameAndEveryFaderItsValueAndUnit)
{
    open();
    int controls = 0;
    for (int page = 0; page < 3; ++page) {
        find<QTabWidget>()->setCurrentIndex(page);
        for (QWidget* widget : panel->findChildren<QWidget*>()) {
            if (widget->focusPolicy() == Qt::NoFocus || !widget->isVisible() || widget->focusProxy() != nullptr ||
                qobject_cast<QTabWidget*>(widget->parentWidget()) != nullptr)
                continue;
            ++controls;
            QAccessibleInterface* told = QAccessible::queryAccessibleInterface(widget);
            ASSERT_NE(told, nullptr);
            EXPECT_FALSE(told->text(QAccessible::Name).isEmpty())
                << widget->metaObject()->className() << ' ' << widget->objectName().toStdString();
        }
    }
    EXPECT_GE(controls, 6 + 2 * 9 + 3 + 3 + 4); // head, bands, surround and reverb, responses, microphone

    fader("EQBand4").setValue(127);
    QAccessibleInterface* told = QAccessible::queryAccessibleInterface(&fader("EQBand4"));
    EXPECT_EQ(told->role(), QAccessible::Slider);
    EXPECT_EQ(told->text(QAccessible::Name), "Equaliser at 500 Hz");
    EXPECT_EQ(told->text(QAccessible::Description), "+6.0 dB");
    EXPECT_EQ(told->valueInterface()->currentValue().toInt(), 127);
}

// From the first control on: after a round of Tab each has had the focus.
TEST_F(Window, TheTabKeyReachesEveryControl)
{
    open();
    for (int page = 0; page < 3; ++page) {
        find<QTabWidget>()->setCurrentIndex(page);
        QApplication::processEvents();
        std::set<const QWidget*> reached;
        for (int step = 0; step < 60; ++step) {
            QTest::keyClick(panel.get(), Qt::Key_Tab);
            reached.insert(QApplication::focusWidget());
        }
        int controls = 0;
        for (const QWidget* widget : panel->findChildren<QWidget*>())
            if (widget->isVisible() && widget->isEnabled() && widget->focusPolicy() != Qt::NoFocus &&
                widget->focusProxy() == nullptr) {
                ++controls;
                EXPECT_TRUE(reached.contains(widget))
                    << page << ' ' << widget->metaObject()->className() << ' ' << widget->objectName().toStdString();
            }
        EXPECT_GE(controls, page == 0 ? 3 + 2 * 10 : 5);
    }
}

// Above and below the curve's course over the neighbouring pixels no pixel of its colour lies farther than one, but for the pen's
// own half width of one; and each column has its colour where the curve is.
TEST_F(Window, ThePaintedCurveIsTheComputedOneWithinAPixel)
{
    open();
    const std::array<std::int64_t, 9> settings = {127, -127, 60, 0, -90, 30, 127, 127, -127};
    for (std::size_t band = 0; band < settings.size(); ++band)
        fader(("EQBand" + std::to_string(band + 1)).c_str()).setValue(static_cast<int>(settings.at(band)));
    const auto& curve = dynamic_cast<CurveView&>(*find<QWidget>("curve"));
    EqualizerCurve computed;
    computed.design(settings);
    const QImage picture = panel->findChild<QWidget*>("curve")->grab().toImage();
    ASSERT_EQ(picture.width(), curve.width());
    const QColor colour = curve.palette().highlight().color();
    const auto painted = [&](int x, int y) {
        const QColor pixel = picture.pixelColor(x, y);
        return std::abs(pixel.red() - colour.red()) + std::abs(pixel.green() - colour.green()) +
                   std::abs(pixel.blue() - colour.blue()) <
               60;
    };
    for (int x = 1; x + 1 < picture.width(); ++x) {
        double top = 1e9;
        double bottom = -1e9;
        for (double at = x - 1; at <= x + 1; at += 0.125) {
            const double hz = 20 * std::pow(1000.0, at / (picture.width() - 1));              // 20 Hz to 20 kHz
            const double y = (picture.height() - 1) * (15 - computed.curveDb(hz)) / 30 + 0.5; // 15 to -15 dB; a pixel's middle
            top = std::min(top, y);
            bottom = std::max(bottom, y);
        }
        bool met = false;
        for (int y = 0; y < picture.height(); ++y) {
            if (!painted(x, y))
                continue;
            EXPECT_GE(y + 1, top - 2) << x;
            EXPECT_LE(y, bottom + 2) << x;
            met = met || (y + 1 >= top - 1 && y <= bottom + 1);
        }
        EXPECT_TRUE(met) << x;
    }
}

TEST_F(Window, ABypassTurnsOffPutsBackAndIsKeptInAFile)
{
    Values atTheWriting; // what a panel that is killed now would leave
    oneEffect().signalled = [&] {
        if (settings().Reverb == 0)
            atTheWriting = loadKeptValues();
    };
    open();
    fader("Reverb").setValue(120);
    fader("EQBand9").setValue(-40);
    ASSERT_TRUE(becomes([&] { return settings().Reverb == 120 && settings().EQBand.at(8) == -40; }));
    auto* button = find<QPushButton>("bypass");
    QTest::mouseClick(button, Qt::LeftButton);
    EXPECT_TRUE(becomes([&] { return settings().Reverb == 0 && settings().EQBand.at(8) == 0; }));
    const Values kept = {{settingsField("Reverb"), 120}, {settingsField("EQBand9"), -40}};
    EXPECT_EQ(loadKeptValues(), kept);
    panel.reset(); // the next panel puts back what this one has turned off
    EXPECT_EQ(atTheWriting, kept);
    open();
    EXPECT_TRUE(find<QPushButton>("bypass")->isChecked());
    QTest::mouseClick(find<QPushButton>("bypass"), Qt::LeftButton);
    EXPECT_TRUE(becomes([&] { return settings().Reverb == 120 && settings().EQBand.at(8) == -40; }));
    EXPECT_TRUE(becomes([&] { return loadKeptValues().empty(); }));
    panel.reset(); // before what its writing calls
}

TEST_F(Window, ADroppedFileIsImportedAndARefusalIsTold)
{
    open();
    const auto path = std::filesystem::temp_directory_path() / ("dropped" + std::to_string(std::random_device()()) + ".sofa");
    std::ofstream(path) << "nothing of a head";
    drop(*panel, QString::fromStdString(path.string()));
    EXPECT_TRUE(becomes([&] { return find<QPlainTextEdit>("report")->toPlainText().contains("cannot read"); }));
    EXPECT_EQ(settings().hrtfId, 0U);
    std::filesystem::remove(path);
}

// The built-in set's front left is nearer to the left ear, and the front right to the right one.
TEST_F(Window, TheResponsesInUseAreDrawnWithTheirArrivalTimes)
{
    open();
    auto* view = find<QWidget>("responseView");
    const auto expected = [](std::size_t row) {
        const ResponseTaps taps = builtInTaps();
        return QString("left ear: %1 ms, right ear: %2 ms")
            .arg(arrivalMs(taps.at(row)[0]), 0, 'f', 2)
            .arg(arrivalMs(taps.at(row)[1]), 0, 'f', 2);
    };
    EXPECT_EQ(view->accessibleDescription(), expected(0));
    // The left ear's line over frequency; the right ear's may cover some of it.
    const QImage left = view->grab().toImage();
    const QColor colour = view->palette().highlight().color();
    int met = 0;
    for (int x = 0; x < left.width(); ++x) {
        const double hz = 100 * std::pow(200.0, static_cast<double>(x) / (left.width() - 1)); // 100 Hz to 20 kHz
        const int y =
            static_cast<int>((left.height() - 1) * (15 - levelDb(builtInTaps().at(0)[0], hz)) / 50 + 0.5); // 15 to -35 dB
        const QColor pixel = left.pixelColor(x, std::clamp(y, 0, left.height() - 1));
        met += std::abs(pixel.red() - colour.red()) + std::abs(pixel.green() - colour.green()) < 120 ? 1 : 0;
    }
    EXPECT_GE(met, left.width() * 9 / 10);

    find<QComboBox>("shownSpeaker")->setCurrentIndex(1);
    EXPECT_EQ(view->accessibleDescription(), expected(1));
    EXPECT_NE(view->accessibleDescription(), expected(0));
    EXPECT_NE(view->grab().toImage(), left);
    ControlClient().update([](SettingsRecord& record) { record.hrtfId = 0x1200; });
    EXPECT_TRUE(becomes([&] { return !view->isVisible(); })); // another program's, which nobody here has seen
}

TEST_F(Window, SaysThatNoEffectRunsAndTakesUpTheOneThatCame)
{
    oneEffect().block = nullptr;
    panel = std::make_unique<PanelWindow>(false);
    panel->show();
    EXPECT_TRUE(becomes([&] { return find<QLabel>("state")->text().contains("No effect is running"); }));
    EXPECT_FALSE(find<QTabWidget>()->widget(0)->isEnabled());
    EXPECT_FALSE(find<QPushButton>("bypass")->isEnabled());
    panel.reset();
    oneEffect().block = &block;
    open();
    EXPECT_TRUE(find<QLabel>("state")->text().contains("48000 Hz"));
}

// Somebody has the turn to write and keeps it: the window's loop goes round as before, and the change arrives in the end.
TEST_F(Window, WaitsForNobodyWhoKeepsTheTurn)
{
    open();
    {
        const platform::NamedLock turn("Global\\QUORELControl", nullptr, 1000);
        ASSERT_TRUE(static_cast<bool>(turn));
        const auto start = std::chrono::steady_clock::now();
        for (int i = 0; i < 50; ++i) {
            QTest::keyClick(&fader("EQBand5"), Qt::Key_Up);
            QApplication::processEvents();
        }
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(4)); // one wait for the turn lasts five
        EXPECT_EQ(fader("EQBand5").value(), 50);
        EXPECT_EQ(settings().EQBand.at(4), 0);
    }
    EXPECT_TRUE(becomes([&] { return settings().EQBand.at(4) == 50; }));
}

TEST_F(Window, FitsIntoASmallScreenOnEachPage)
{
    open();
    panel->resize(800, 500);
    EXPECT_EQ(panel->size(), QSize(800, 500)); // no minimum above it
    for (int page = 0; page < 3; ++page) {
        find<QTabWidget>()->setCurrentIndex(page);
        QApplication::processEvents();
        for (const QWidget* widget : panel->findChildren<QWidget*>())
            if (widget->isVisible() && !widget->parentWidget()->inherits("QAbstractScrollArea")) {
                EXPECT_TRUE(widget->parentWidget()->rect().contains(widget->geometry()) || widget->inherits("QScrollBar") ||
                            widget->parentWidget()->inherits("QTabBar"))
                    << widget->metaObject()->className() << ' ' << widget->objectName().toStdString();
            }
    }
}

TEST_F(Window, LevelsAreMeasuredAndShownOnTheirPageAlone)
{
    open();
    EXPECT_EQ(settings().levelsEnabled, 0);
    block.levels.at(2) = -30;
    block.levels.at(3) = std::numeric_limits<float>::quiet_NaN();
    find<QTabWidget>()->setCurrentIndex(1);
    auto& meter = dynamic_cast<Meter&>(*find<QWidget>("level3"));
    EXPECT_TRUE(becomes([&] { return settings().levelsEnabled == 1 && meter.shownLevel() == -30 && meter.shownPeak() == -30; }));
    EXPECT_EQ(dynamic_cast<Meter&>(*find<QWidget>("level4")).shownLevel(), MeterLevel::lowest);
    find<QTabWidget>()->setCurrentIndex(0);
    EXPECT_TRUE(becomes([&] { return settings().levelsEnabled == 0; }));
}

TEST_F(Window, ShortcutsUndoRedoAndCompare)
{
    open();
    fader("Reverb").setValue(100);
    QTest::keyClick(panel.get(), Qt::Key_Z, Qt::ControlModifier);
    EXPECT_EQ(fader("Reverb").value(), 0);
    QTest::keyClick(panel.get(), Qt::Key_Z, Qt::ControlModifier | Qt::ShiftModifier);
    EXPECT_EQ(fader("Reverb").value(), 100);
    QTest::keyClick(panel.get(), Qt::Key_D, Qt::ControlModifier);
    fader("Reverb").setValue(20);
    QTest::keyClick(panel.get(), Qt::Key_D, Qt::ControlModifier);
    EXPECT_EQ(fader("Reverb").value(), 100);
}

// Whatever its user does, the settings stay in their ranges. A menu of presets has a loop of its own and is left out.
TEST_F(Window, TenThousandRandomActionsLeaveSettingsInRange)
{
    open();
    const auto broken = std::filesystem::temp_directory_path() / ("broken" + std::to_string(std::random_device()()) + ".wav");
    std::ofstream(broken) << "RIFF no more than that";
    std::mt19937 random(14);
    const auto below = [&](std::size_t n) { return static_cast<std::size_t>(random() % n); };
    constexpr auto keys =
        std::to_array<Qt::Key>({Qt::Key_Up, Qt::Key_Down, Qt::Key_Left, Qt::Key_Right, Qt::Key_Home, Qt::Key_End, Qt::Key_PageUp,
                                Qt::Key_PageDown, Qt::Key_Delete, Qt::Key_Tab, Qt::Key_1, Qt::Key_9, Qt::Key_Minus, Qt::Key_Comma,
                                Qt::Key_Return, Qt::Key_Escape, Qt::Key_Space, Qt::Key_Backspace});
    std::vector<QWidget*> widgets;
    for (QWidget* widget : panel->findChildren<QWidget*>())
        if (widget->objectName() != "preset" && widget->objectName() != "import" && !widget->inherits("QMenu"))
            widgets.push_back(widget);
    for (int action = 0; action < 10000; ++action) {
        QWidget* widget = widgets.at(below(widgets.size()));
        switch (below(24)) {
        case 0:
            find<QTabWidget>()->setCurrentIndex(static_cast<int>(below(3)));
            break;
        case 1:
            QTest::mouseDClick(widget, Qt::LeftButton);
            break;
        case 2:
            turnWheel(*widget);
            break;
        case 3:
            QTest::keyClick(panel.get(), below(2) == 0 ? Qt::Key_Z : Qt::Key_D, Qt::ControlModifier);
            break;
        case 4:
            if (below(100) == 0)
                drop(*panel, QString::fromStdString(broken.string()));
            break;
        case 5:
        case 6:
        case 7:
        case 8:
            if (widget->isVisible())
                QTest::mouseClick(widget, Qt::LeftButton, Qt::NoModifier,
                                  {static_cast<int>(below(static_cast<std::size_t>(widget->width()))),
                                   static_cast<int>(below(static_cast<std::size_t>(widget->height())))});
            break;
        default:
            QTest::keyClick(widget, keys.at(below(keys.size())));
            break;
        }
        while (QWidget* popup = QApplication::activePopupWidget())
            popup->close();
        if (action % 50 == 0)
            QApplication::processEvents();
        const SettingsRecord record = settings();
        for (const SettingsField& field : settingsFields()) {
            const std::int64_t value = settingOf(record, field);
            ASSERT_TRUE(field.low <= value && value <= field.high) << field.name << ' ' << value << " after action " << action;
        }
    }
    std::filesystem::remove(broken);
}

} // namespace
} // namespace quorel
