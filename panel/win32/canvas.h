// SPDX-License-Identifier: MIT
// What the window paints itself: the charts and meters, in the system's colours, so that they follow a high contrast.
#pragma once

#include "client/hrtf_set.h"
#include "panel/equalizer_curve.h"
#include "panel/meter_level.h"

#include <functional>
#include <windows.h>

namespace quorel {

// A child window without a handling of its own: `paint` fills a picture of this size, in the device context that it is given.
class Canvas {
public:
    using Paint = std::function<void(HDC, int width, int height)>;

    Canvas(HWND parent, const wchar_t* name, Paint paint);
    Canvas(const Canvas&) = delete;
    Canvas& operator=(const Canvas&) = delete;

    HWND handle() const { return window; }
    void repaint() const { InvalidateRect(window, nullptr, FALSE); }

private:
    static LRESULT CALLBACK handle(HWND window, UINT message, WPARAM w, LPARAM l);

    Paint paint;
    HWND window = nullptr;
};

void paintEqualizer(HDC dc, int width, int height, const EqualizerCurve& curve, bool flat);
void paintResponses(HDC dc, int width, int height, const std::array<std::array<float, fittedTaps>, 2>& ears);
void paintMeter(HDC dc, int width, int height, const MeterLevel& level);

} // namespace quorel
