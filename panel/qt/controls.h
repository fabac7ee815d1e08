// SPDX-License-Identifier: MIT
// What the window is made of: each control tells its name, value and unit to a screen reader, and takes the wheel only while it
// has the focus.
#pragma once

#include "panel/chart_scale.h"
#include "panel/equalizer_curve.h"
#include "panel/meter_level.h"
#include "panel/response_curve.h"
#include "panel/values.h"

#include <QComboBox>
#include <QCoreApplication>
#include <QLineEdit>
#include <QSlider>
#include <QWidget>

#include <functional>

namespace quorel {

// "+3.0 dB", "off", "2"
QString shownValue(const SettingsField& field, std::int64_t value);

// The slider of a field. A double click is its default, as is the key Delete.
class Fader : public QSlider {
public:
    // edited: called with the user's value, and whether it goes on with the movement before.
    Fader(const SettingsField& field, const QString& name, Qt::Orientation orientation,
          std::function<void(std::int64_t, bool)> edited);

    void show(std::int64_t value); // in force, of whoever set it; no edit

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;

private:
    const SettingsField& field;
    bool moved = false; // since the slider was pressed
};

// The number of a field, to be typed: with a point or a comma, in decibels where the field stands for some.
class ValueBox : public QLineEdit {
public:
    // edited: as above. refused: called with a text for the user.
    ValueBox(const SettingsField& field, const QString& name, std::function<void(std::int64_t)> edited,
             std::function<void(QString)> refused);

    void show(std::int64_t value); // not while it is being typed into

protected:
    void keyPressEvent(QKeyEvent* event) override; // Escape gives the typing up
    void focusOutEvent(QFocusEvent* event) override;

private:
    void finish();

    const SettingsField& field;
    std::int64_t value = 0;
    std::function<void(std::int64_t)> edited;
    std::function<void(QString)> refused;
};

class Choice : public QComboBox {
public:
    Choice(const QString& name, const QStringList& texts, std::function<void(std::int64_t)> edited);

    void show(std::int64_t value);

protected:
    void wheelEvent(QWheelEvent* event) override;
};

// A level in dB from -60 to 0, with its peak.
class Meter : public QWidget {
    Q_DECLARE_TR_FUNCTIONS(quorel::Meter)

public:
    explicit Meter(const QString& name);

    void show(double level, double seconds); // since the last time
    int shownLevel() const { return level.level(); }
    int shownPeak() const { return level.peak(); }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    int yOf(int db) const;

    MeterLevel level; // as painted
};

// What the nine bands do to the sound over frequency: the curve, and thin the part of each band.
class CurveView : public QWidget {
    Q_DECLARE_TR_FUNCTIONS(quorel::CurveView)

public:
    CurveView();

    void show(const std::array<std::int64_t, EqualizerCurve::bands>& settings);

    double hzAt(double x) const;
    double xOf(double hz) const;
    double yOf(double db) const;
    const EqualizerCurve& curve() const { return equalizer; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    std::array<std::int64_t, EqualizerCurve::bands> settings{};
    EqualizerCurve equalizer;
};

// The levels of a speaker's sound at both ears over frequency, and when it arrives there.
class ResponseView : public QWidget {
    Q_DECLARE_TR_FUNCTIONS(quorel::ResponseView)

public:
    ResponseView();

    void show(const std::array<std::array<float, fittedTaps>, 2>& ears); // left ear first

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    std::array<std::array<float, fittedTaps>, 2> ears{};
    std::array<QString, 2> arrivals;
};

} // namespace quorel
