// SPDX-License-Identifier: MIT
#include "panel/win32/canvas.h"

#include "panel/chart_scale.h"
#include "panel/response_curve.h"
#include "platform/text_windows.h"
#include "speaker/equalizer_tables.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace quorel {

namespace {

constexpr wchar_t className[] = L"QuorelCanvas";

// A pen or brush that a device context has for a while.
class Chosen {
public:
    Chosen(HDC dc, HGDIOBJ object) : dc(dc), object(object), before(SelectObject(dc, object)) {}
    ~Chosen()
    {
        SelectObject(dc, before);
        DeleteObject(object);
    }
    Chosen(const Chosen&) = delete;
    Chosen& operator=(const Chosen&) = delete;

private:
    HDC dc;
    HGDIOBJ object;
    HGDIOBJ before;
};

void clear(HDC dc, int width, int height)
{
    const RECT all{0, 0, width, height};
    FillRect(dc, &all, GetSysColorBrush(COLOR_WINDOW));
    SetBkMode(dc, TRANSPARENT);
    SetTextColor(dc, GetSysColor(COLOR_WINDOWTEXT));
}

void line(HDC dc, double x1, double y1, double x2, double y2)
{
    MoveToEx(dc, static_cast<int>(std::lround(x1)), static_cast<int>(std::lround(y1)), nullptr);
    LineTo(dc, static_cast<int>(std::lround(x2)), static_cast<int>(std::lround(y2)));
}

// A value in dB over frequency, a point a pixel.
template <class Db>
void drawCurve(HDC dc, const ChartScale& scale, int width, int height, const Db& db)
{
    std::vector<POINT> points(static_cast<std::size_t>(std::max(width, 0)));
    for (int x = 0; x < width; ++x) {
        const double y = scale.yOf(std::max(db(scale.hzAt(x, width)), 2 * scale.bottomDb), height);
        points[static_cast<std::size_t>(x)] = {x, static_cast<LONG>(std::lround(y))};
    }
    Polyline(dc, points.data(), static_cast<int>(points.size()));
}

void write(HDC dc, int x, int y, const std::string& text)
{
    const std::wstring shown = platform::wide(text);
    TextOutW(dc, x, y, shown.c_str(), static_cast<int>(shown.size()));
}

} // namespace

Canvas::Canvas(HWND parent, const wchar_t* name, Paint paint) : paint(std::move(paint))
{
    WNDCLASSW all{};
    all.lpfnWndProc = handle;
    all.hInstance = GetModuleHandleW(nullptr);
    all.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    all.lpszClassName = className;
    RegisterClassW(&all); // once; from then on it is there
    window = CreateWindowExW(0, className, name, WS_CHILD | WS_VISIBLE | WS_CLIPSIBLINGS, 0, 0, 0, 0, parent, nullptr,
                             all.hInstance, this);
}

LRESULT CALLBACK Canvas::handle(HWND window, UINT message, WPARAM w, LPARAM l)
{
    if (message == WM_NCCREATE)
        SetWindowLongPtrW(window, GWLP_USERDATA,
                          reinterpret_cast<LONG_PTR>(reinterpret_cast<const CREATESTRUCTW*>(l)->lpCreateParams));
    const auto* canvas = reinterpret_cast<const Canvas*>(GetWindowLongPtrW(window, GWLP_USERDATA));
    RECT size{};
    GetClientRect(window, &size);
    switch (message) {
    case WM_PAINT: {
        PAINTSTRUCT painting{};
        const HDC screen = BeginPaint(window, &painting);
        const HDC dc = CreateCompatibleDC(screen); // what is painted there is shown at once, without a flicker
        {
            const Chosen picture(dc, CreateCompatibleBitmap(screen, size.right, size.bottom));
            canvas->paint(dc, size.right, size.bottom);
            BitBlt(screen, 0, 0, size.right, size.bottom, dc, 0, 0, SRCCOPY);
        }
        DeleteDC(dc);
        EndPaint(window, &painting);
        return 0;
    }
    case WM_PRINTCLIENT:
        canvas->paint(reinterpret_cast<HDC>(w), size.right, size.bottom);
        return 0;
    case WM_ERASEBKGND:
        return 1;
    default:
        return DefWindowProcW(window, message, w, l);
    }
}

void paintEqualizer(HDC dc, int width, int height, const EqualizerCurve& curve, bool flat)
{
    clear(dc, width, height);
    const auto& scale = equalizerScale;
    {
        const Chosen pen(dc, CreatePen(PS_SOLID, 1, GetSysColor(COLOR_BTNFACE)));
        for (int db = -12; db <= 12; db += 6)
            line(dc, 0, scale.yOf(db, height), width, scale.yOf(db, height));
        for (const double hz : equalizerCentres)
            line(dc, scale.xOf(hz, width), 0, scale.xOf(hz, width), height);
    }
    for (const char* db : {"-12", "-6", "0 dB", "+6", "+12"})
        write(dc, 3, static_cast<int>(scale.yOf(std::atoi(db), height)), db);
    if (!flat) {
        const Chosen pen(dc, CreatePen(PS_DOT, 1, GetSysColor(COLOR_GRAYTEXT)));
        for (std::size_t band = 0; band < EqualizerCurve::bands; ++band)
            drawCurve(dc, scale, width, height, [&](double hz) { return curve.partDb(band, hz); });
    }
    const Chosen pen(dc, CreatePen(PS_SOLID, 2, GetSysColor(COLOR_HIGHLIGHT)));
    drawCurve(dc, scale, width, height, [&](double hz) { return curve.curveDb(hz); });
}

void paintResponses(HDC dc, int width, int height, const std::array<std::array<float, fittedTaps>, 2>& ears)
{
    clear(dc, width, height);
    const auto& scale = responseScale;
    {
        const Chosen pen(dc, CreatePen(PS_SOLID, 1, GetSysColor(COLOR_BTNFACE)));
        for (double db = scale.bottomDb + 5; db < scale.topDb; db += 10)
            line(dc, 0, scale.yOf(db, height), width, scale.yOf(db, height));
        for (const double hz : {1000.0, 10000.0})
            line(dc, scale.xOf(hz, width), 0, scale.xOf(hz, width), height);
    }
    TEXTMETRICW font{};
    GetTextMetricsW(dc, &font);
    const std::array<int, 2> colours = {COLOR_HIGHLIGHT, COLOR_WINDOWTEXT};
    const std::array<const char*, 2> names = {"left", "right"};
    for (std::size_t ear = 0; ear < 2; ++ear) {
        const Chosen pen(dc, CreatePen(PS_SOLID, 1, GetSysColor(colours.at(ear))));
        drawCurve(dc, scale, width, height, [&](double hz) { return levelDb(ears.at(ear), hz); });
        std::array<char, 40> text{};
        std::snprintf(text.data(), text.size(), "%s ear: %.2f ms", names.at(ear), arrivalMs(ears.at(ear)));
        SetTextColor(dc, GetSysColor(colours.at(ear)));
        write(dc, 4, height - 4 - (ear == 0 ? 2 : 1) * static_cast<int>(font.tmHeight), text.data());
    }
}

void paintMeter(HDC dc, int width, int height, const MeterLevel& level)
{
    clear(dc, width, height);
    const auto yOf = [height](int db) { return height * db / MeterLevel::lowest; };
    const RECT bar{0, yOf(level.level()), width, height};
    FillRect(dc, &bar, GetSysColorBrush(COLOR_HIGHLIGHT));
    if (level.peak() > MeterLevel::lowest) {
        const RECT peak{0, std::max(yOf(level.peak()) - 1, 0), width, std::max(yOf(level.peak()) - 1, 0) + 2};
        FillRect(dc, &peak, GetSysColorBrush(COLOR_WINDOWTEXT));
    }
    const RECT all{0, 0, width, height};
    FrameRect(dc, &all, GetSysColorBrush(COLOR_GRAYTEXT));
}

} // namespace quorel
