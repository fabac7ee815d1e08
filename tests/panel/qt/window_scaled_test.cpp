// SPDX-License-Identifier: MIT
// The window at 200 %: each dot of a design is two by two of the screen's.
#include "tests/panel/qt/panel_window.h"

#include <QLabel>

#include <cmath>

namespace quorel {
namespace {

class AtTwiceTheScale : public Window {};

// Ahead of the toolkit's application, which reads it once.
const bool scaled = qputenv("QT_SCALE_FACTOR", "2");

TEST_F(AtTwiceTheScale, AllFitsIntoEightHundredDots)
{
    open();
    ASSERT_TRUE(scaled);
    ASSERT_EQ(panel->devicePixelRatio(), 2);
    panel->resize(800, 500);
    EXPECT_EQ(panel->size(), QSize(800, 500));
    for (int page = 0; page < 3; ++page) {
        find<QTabWidget>()->setCurrentIndex(page);
        QApplication::processEvents();
        EXPECT_EQ(panel->grab().toImage().size(), QSize(1600, 1000));
        for (const QWidget* widget : panel->findChildren<QWidget*>())
            if (widget->isVisible() && !widget->parentWidget()->inherits("QAbstractScrollArea")) {
                EXPECT_TRUE(widget->parentWidget()->rect().contains(widget->geometry()) || widget->inherits("QScrollBar") ||
                            widget->parentWidget()->inherits("QTabBar"))
                    << widget->metaObject()->className() << ' ' << widget->objectName().toStdString();
            }
    }
}

// The pen is two dots wide, four of the screen's; a point of the curve is worked out for each dot, so two of the screen's apart.
TEST_F(AtTwiceTheScale, TheCurveIsPaintedInTheScreensOwnDots)
{
    open();
    fader("EQBand5").setValue(127);
    const auto& curve = dynamic_cast<CurveView&>(*find<QWidget>("curve"));
    EqualizerCurve computed;
    computed.design({0, 0, 0, 0, 127, 0, 0, 0, 0});
    const QImage picture = panel->findChild<QWidget*>("curve")->grab().toImage();
    ASSERT_EQ(picture.width(), 2 * curve.width());
    const QColor colour = curve.palette().highlight().color();
    for (int x = 2; x + 2 < picture.width(); ++x) {
        const double hz = 20 * std::pow(1000.0, (x / 2.0 - 0.25) / (curve.width() - 1)); // a dot's middle is half a dot on
        const double y = 2 * ((curve.height() - 1) * (15 - computed.curveDb(hz)) / 30 + 0.5);
        const QColor pixel = picture.pixelColor(x, static_cast<int>(y));
        EXPECT_LT(std::abs(pixel.red() - colour.red()) + std::abs(pixel.green() - colour.green()) +
                      std::abs(pixel.blue() - colour.blue()),
                  60)
            << x;
    }
}

} // namespace
} // namespace quorel
