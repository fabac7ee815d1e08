// SPDX-License-Identifier: MIT
#include "panel/qt/controls.h"

#include "panel/qt/model_texts.h"
#include "speaker/equalizer_tables.h"

#include <QFontMetrics>
#include <QKeyEvent>
#include <QPainter>
#include <QPainterPath>
#include <QSignalBlocker>
#include <QWheelEvent>

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace quorel {

QString shownValue(const SettingsField& field, std::int64_t value)
{
    const std::string text = shownText(field, value);
    return text == "off" ? translated(text) : QString::fromStdString(text); // a number needs no looking up
}

// ---- Fader ----------------------------------------------------------------------------------------------------------

Fader::Fader(const SettingsField& field, const QString& name, Qt::Orientation orientation,
             std::function<void(std::int64_t, bool)> edited)
    : QSlider(orientation), field(field)
{
    setObjectName(field.name);
    setAccessibleName(name);
    setRange(static_cast<int>(field.low), static_cast<int>(field.high));
    setFocusPolicy(Qt::StrongFocus);
    setPageStep(10);
    setTickPosition(TicksBothSides);
    setTickInterval(static_cast<int>(field.low < 0 ? field.high : field.high - field.low));
    show(neutralValue);
    connect(this, &QSlider::sliderPressed, this, [this] { moved = false; });
    connect(this, &QSlider::valueChanged, this, [this, edited = std::move(edited)](int value) {
        edited(value, moved && isSliderDown());
        moved = isSliderDown();
    });
}

void Fader::show(std::int64_t value)
{
    const QSignalBlocker quiet(this);
    if (!isSliderDown())
        setValue(static_cast<int>(std::clamp(value, field.low, field.high)));
    const QString text = shownValue(field, value);
    if (accessibleDescription() != text) {
        setAccessibleDescription(text);
        setToolTip(text);
    }
}

void Fader::keyPressEvent(QKeyEvent* event)
{
    if (event->key() == Qt::Key_Delete)
        setValue(static_cast<int>(neutralValue));
    else
        QSlider::keyPressEvent(event);
}

void Fader::mouseDoubleClickEvent(QMouseEvent*)
{
    setValue(static_cast<int>(neutralValue));
}

void Fader::wheelEvent(QWheelEvent* event)
{
    if (hasFocus())
        QSlider::wheelEvent(event);
    else
        event->ignore();
}

// ---- ValueBox -------------------------------------------------------------------------------------------------------

ValueBox::ValueBox(const SettingsField& field, const QString& name, std::function<void(std::int64_t)> edited,
                   std::function<void(QString)> refused)
    : field(field), edited(std::move(edited)), refused(std::move(refused))
{
    setObjectName(QString(field.name) + "Text");
    setAccessibleName(name);
    setAlignment(Qt::AlignCenter);
    const auto widthOf = [&](std::int64_t each) { return fontMetrics().horizontalAdvance(shownValue(field, each)); };
    setFixedWidth(std::max(widthOf(field.low < 0 ? field.low : 1), widthOf(field.high)) + 12); // with its frame
    setText(shownValue(field, value));
    connect(this, &QLineEdit::returnPressed, this, [this] { finish(); });
}

void ValueBox::show(std::int64_t newest)
{
    value = newest;
    if (!isModified() && text() != shownValue(field, value)) {
        setText(shownValue(field, value));
        setCursorPosition(0);
    }
}

void ValueBox::finish()
{
    if (!isModified())
        return;
    const QString typed = text();
    setModified(false);
    try {
        const bool neutral = typed.trimmed() == shownValue(field, neutralValue); // whose word may be another language's
        edited(neutral ? neutralValue : typedValue(field, typed.toStdString()));
    } catch (const std::runtime_error& error) {
        refused(QString::fromStdString(error.what()));
    }
    show(value);
}

void ValueBox::keyPressEvent(QKeyEvent* event)
{
    if (event->key() != Qt::Key_Escape) {
        QLineEdit::keyPressEvent(event);
        return;
    }
    setModified(false);
    show(value);
}

void ValueBox::focusOutEvent(QFocusEvent* event)
{
    finish();
    QLineEdit::focusOutEvent(event);
}

// ---- Choice ---------------------------------------------------------------------------------------------------------

Choice::Choice(const QString& name, const QStringList& texts, std::function<void(std::int64_t)> edited)
{
    setAccessibleName(name);
    addItems(texts);
    setFocusPolicy(Qt::StrongFocus);
    connect(this, &QComboBox::currentIndexChanged, this, [edited = std::move(edited)](int index) { edited(index); });
}

void Choice::show(std::int64_t value)
{
    const QSignalBlocker quiet(this);
    setCurrentIndex(value >= 0 && value < count() ? static_cast<int>(value) : -1);
}

void Choice::wheelEvent(QWheelEvent* event)
{
    if (hasFocus())
        QComboBox::wheelEvent(event);
    else
        event->ignore();
}

// ---- Meter ----------------------------------------------------------------------------------------------------------

Meter::Meter(const QString& name)
{
    setAccessibleName(name);
    setMinimumSize(16, 60);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
}

void Meter::show(double levelDb, double seconds)
{
    const int levelBefore = level.level();
    const int peakBefore = level.peak();
    if (!level.next(levelDb, seconds))
        return;
    const auto [highest, deepest] = std::minmax({yOf(levelBefore), yOf(level.level()), yOf(peakBefore), yOf(level.peak())});
    setAccessibleDescription(tr("%1 dB, peak %2 dB").arg(level.level()).arg(level.peak()));
    update(0, highest - 2, width(), deepest - highest + 4); // with the peak's line
}

int Meter::yOf(int db) const
{
    return height() * -db / -MeterLevel::lowest;
}

void Meter::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.fillRect(rect(), palette().base());
    painter.fillRect(QRect(QPoint(0, yOf(level.level())), QPoint(width(), height())), palette().highlight());
    if (level.peak() > MeterLevel::lowest)
        painter.fillRect(0, std::max(yOf(level.peak()) - 1, 0), width(), 2, palette().text());
    painter.setPen(palette().mid().color());
    painter.drawRect(rect().adjusted(0, 0, -1, -1));
}

// ---- CurveView ------------------------------------------------------------------------------------------------------

CurveView::CurveView()
{
    setObjectName("curve");
    setAccessibleName(tr("Equaliser curve"));
    setMinimumSize(240, 90);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
}

void CurveView::show(const std::array<std::int64_t, EqualizerCurve::bands>& newest)
{
    if (newest == settings && !accessibleDescription().isEmpty())
        return;
    settings = newest;
    equalizer.design(settings);
    QStringList words;
    for (const double hz : equalizerCentres)
        words += tr("%1 dB at %2 Hz").arg(equalizer.curveDb(hz), 0, 'f', 1).arg(hz);
    setAccessibleDescription(words.join(", "));
    update();
}

double CurveView::hzAt(double x) const
{
    return equalizerScale.hzAt(x, width());
}

double CurveView::xOf(double hz) const
{
    return equalizerScale.xOf(hz, width());
}

double CurveView::yOf(double db) const
{
    return equalizerScale.yOf(db, height());
}

void CurveView::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.fillRect(rect(), palette().base());

    QColor grid = palette().text().color();
    grid.setAlpha(40);
    painter.setPen(grid);
    for (double db = -12; db <= 12; db += 6)
        painter.drawLine(QPointF(0, yOf(db)), QPointF(width(), yOf(db)));
    for (const double hz : equalizerCentres)
        painter.drawLine(QPointF(xOf(hz), 0), QPointF(xOf(hz), height()));
    painter.setPen(palette().text().color());
    for (const int db : {-12, -6, 0, 6, 12})
        painter.drawText(QPointF(3, yOf(db) - 2), (db > 0 ? "+" : "") + QString::number(db) + (db == 0 ? " dB" : ""));

    painter.setRenderHint(QPainter::Antialiasing);
    const auto draw = [&](const QPen& pen, const auto& db) {
        QPainterPath path(QPointF(0, yOf(db(hzAt(0)))));
        for (int x = 1; x < width(); ++x)
            path.lineTo(x, yOf(db(hzAt(x))));
        painter.setPen(pen);
        painter.drawPath(path.translated(0.5, 0.5)); // a pixel's middle
    };
    QColor thin = palette().text().color();
    thin.setAlpha(110);
    const bool flat = std::ranges::all_of(settings, [](std::int64_t value) { return value == 0; });
    for (std::size_t band = 0; band < EqualizerCurve::bands && !flat; ++band)
        draw(QPen(thin, 1, Qt::DotLine), [&](double hz) { return equalizer.partDb(band, hz); });
    draw(QPen(palette().highlight().color(), 2), [&](double hz) { return equalizer.curveDb(hz); });
}

// ---- ResponseView ---------------------------------------------------------------------------------------------------

ResponseView::ResponseView()
{
    setObjectName("responseView");
    setAccessibleName(tr("Levels at the ears over frequency"));
    setMinimumSize(160, 70);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
}

void ResponseView::show(const std::array<std::array<float, fittedTaps>, 2>& newest)
{
    ears = newest;
    arrivals = {tr("left ear: %1 ms").arg(arrivalMs(ears[0]), 0, 'f', 2),
                tr("right ear: %1 ms").arg(arrivalMs(ears[1]), 0, 'f', 2)};
    setAccessibleDescription(arrivals[0] + ", " + arrivals[1]);
    update();
}

void ResponseView::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.fillRect(rect(), palette().base());
    const auto yOf = [this](double db) { return responseScale.yOf(db, height()); };
    QColor grid = palette().text().color();
    grid.setAlpha(40);
    painter.setPen(grid);
    for (double db = responseScale.bottomDb + 5; db < responseScale.topDb; db += 10)
        painter.drawLine(QPointF(0, yOf(db)), QPointF(width(), yOf(db)));
    for (const double hz : {1000.0, 10000.0}) {
        const double x = responseScale.xOf(hz, width());
        painter.drawLine(QPointF(x, 0), QPointF(x, height()));
    }

    painter.setRenderHint(QPainter::Antialiasing);
    const std::array<QColor, 2> colours = {palette().highlight().color(), palette().text().color()};
    for (std::size_t ear = 0; ear < 2; ++ear) {
        QPolygonF line;
        for (int x = 0; x < width(); ++x) {
            const double hz = responseScale.hzAt(x, width());
            line += QPointF(x, yOf(std::max(levelDb(ears.at(ear), hz), 2 * responseScale.bottomDb)));
        }
        painter.setPen(QPen(colours.at(ear), 1.5));
        painter.drawPolyline(line.translated(0.5, 0.5));
        const int height = fontMetrics().height();
        painter.drawText(4, this->height() - 4 - (ear == 0 ? height : 0), arrivals.at(ear));
    }
}

} // namespace quorel
