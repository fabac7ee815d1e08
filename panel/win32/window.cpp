// SPDX-License-Identifier: MIT
#include "panel/win32/window.h"

#include "client/preset.h"
#include "panel/win32/resources.h"
#include "platform/programs/file_names.h"
#include "platform/text_windows.h"
#include "speaker/equalizer_tables.h"
#include "tools/level_display.h"

#include <commctrl.h>
#include <commdlg.h>
#include <shellapi.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace quorel {

namespace {

using platform::utf8;
using platform::wide;

constexpr wchar_t className[] = L"QuorelPanel";

constexpr UINT newsMessage = WM_APP; // w: what of
constexpr UINT trayMessage = WM_APP + 1;

constexpr std::int64_t stepsOfNotch = 3; // of the wheel, upwards more on every slider

enum Command : int {
    noCommand,
    undoCommand = 100,
    redoCommand,
    compareCommand,
    bypassCommand,
    presetCommand,
    saveCommand,
    saveAsCommand,
    revertCommand,
    surroundCommand,
    noiseReductionCommand,
    micCurveCommand,
    speakerCommand,
    importCommand,
    builtInCommand,
    speakerTestCommand,
    listenCommand,
    delayCommand,
    beforeCommand,
    nextPageCommand,
    showCommand,
    quitCommand,
    firstPreset = 1000
};

std::string number(double value, const char* form)
{
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), form, value);
    return text.data();
}

std::string maskText(std::uint32_t mask)
{
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "channel mask 0x%X", static_cast<unsigned>(mask));
    return text.data();
}

std::string textOf(HWND control)
{
    std::wstring text(static_cast<std::size_t>(GetWindowTextLengthW(control)) + 1, L'\0');
    text.resize(static_cast<std::size_t>(GetWindowTextW(control, text.data(), static_cast<int>(text.size()))));
    return utf8(text);
}

// A text that is set anew loses its selection, and flickers.
void show(HWND control, const std::string& text)
{
    if (textOf(control) != text)
        SetWindowTextW(control, wide(text).c_str());
}

// An edit control wants both signs at the end of a line.
std::string linesOf(const std::string& text)
{
    std::string lines;
    for (const char each : text) {
        if (each == '\n')
            lines += '\r';
        lines += each;
    }
    return lines;
}

void check(HWND box, bool on)
{
    SendMessageW(box, BM_SETCHECK, on ? BST_CHECKED : BST_UNCHECKED, 0);
}

LRESULT CALLBACK askName(HWND dialog, UINT message, WPARAM w, LPARAM l)
{
    if (message == WM_INITDIALOG) {
        SetWindowLongPtrW(dialog, DWLP_USER, l);
        SetDlgItemTextW(dialog, QUOREL_PANEL_NAME, wide(*reinterpret_cast<const std::string*>(l)).c_str());
        return TRUE;
    }
    if (message != WM_COMMAND || (LOWORD(w) != IDOK && LOWORD(w) != IDCANCEL))
        return FALSE;
    *reinterpret_cast<std::string*>(GetWindowLongPtrW(dialog, DWLP_USER)) = textOf(GetDlgItem(dialog, QUOREL_PANEL_NAME));
    EndDialog(dialog, LOWORD(w));
    return TRUE;
}

} // namespace

PanelWindow::PanelWindow()
{
    const INITCOMMONCONTROLSEX wanted{sizeof wanted, ICC_BAR_CLASSES | ICC_TAB_CLASSES | ICC_STANDARD_CLASSES};
    InitCommonControlsEx(&wanted);
    WNDCLASSW all{};
    all.lpfnWndProc = handleMessage;
    all.hInstance = GetModuleHandleW(nullptr);
    all.hIcon = LoadIconW(all.hInstance, MAKEINTRESOURCEW(QUOREL_PANEL_ICON));
    all.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    all.hbrBackground = GetSysColorBrush(COLOR_BTNFACE);
    all.lpszClassName = className;
    RegisterClassW(&all);
    window = CreateWindowExW(WS_EX_ACCEPTFILES | WS_EX_CONTROLPARENT, className, L"QUOREL", WS_OVERLAPPEDWINDOW | WS_CLIPCHILDREN,
                             CW_USEDEFAULT, CW_USEDEFAULT, CW_USEDEFAULT, CW_USEDEFAULT, nullptr, nullptr, all.hInstance, this);
    if (window == nullptr)
        throw std::runtime_error("the system gives no window");
    taskbarMade = RegisterWindowMessageW(L"TaskbarCreated");
    session = std::make_unique<PanelSession>(
        [to = window](PanelSession::News news) { PostMessageW(to, newsMessage, static_cast<WPARAM>(news), 0); });
    make();
    useScale(GetDpiForWindow(window));
    SetWindowPos(window, nullptr, 0, 0, MulDiv(880, static_cast<int>(scale), 96), MulDiv(600, static_cast<int>(scale), 96),
                 SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
    auto shortcuts = std::to_array<ACCEL>({{FVIRTKEY | FCONTROL, 'Z', undoCommand},
                                           {FVIRTKEY | FCONTROL | FSHIFT, 'Z', redoCommand},
                                           {FVIRTKEY | FCONTROL, 'B', bypassCommand},
                                           {FVIRTKEY | FCONTROL, 'D', compareCommand},
                                           {FVIRTKEY | FCONTROL, 'S', saveCommand},
                                           {FVIRTKEY | FCONTROL, VK_TAB, nextPageCommand}});
    keys = CreateAcceleratorTableW(shortcuts.data(), static_cast<int>(shortcuts.size()));
    putIntoTray();
    showResponses();
    refresh();
    refreshState();
}

PanelWindow::~PanelWindow()
{
    session.reset();
    if (IsWindow(window) != FALSE)
        DestroyWindow(window);
    DestroyAcceleratorTable(keys);
    DeleteObject(font);
}

// ---- What it is made of ---------------------------------------------------------------------------------------------

HWND PanelWindow::add(const wchar_t* kind, const wchar_t* text, DWORD style, std::optional<Page> page, int id)
{
    const HWND made = CreateWindowExW(std::wcscmp(kind, WC_EDITW) == 0 ? WS_EX_CLIENTEDGE : 0, kind, text,
                                      WS_CHILD | WS_VISIBLE | WS_CLIPSIBLINGS | style, 0, 0, 0, 0, window,
                                      reinterpret_cast<HMENU>(static_cast<INT_PTR>(id)), GetModuleHandleW(nullptr), nullptr);
    controls.push_back({made, page, page && *page != Page::running});
    return made;
}

PanelWindow::Level& PanelWindow::addLevel(const char* fieldName, const std::string& name, bool upright, Page page)
{
    const SettingsField& field = *settingsField(fieldName);
    const DWORD style = WS_TABSTOP | TBS_BOTH | (upright ? TBS_VERT : TBS_HORZ);
    Level level{&field, add(TRACKBAR_CLASSW, wide(name).c_str(), style, page),
                add(WC_EDITW, L"", WS_TABSTOP | ES_CENTER | ES_AUTOHSCROLL, page), upright};
    const auto low = static_cast<LPARAM>(upright ? -field.high : field.low);
    const auto high = static_cast<LPARAM>(upright ? -field.low : field.high);
    SendMessageW(level.fader, TBM_SETRANGEMIN, FALSE, low);
    SendMessageW(level.fader, TBM_SETRANGEMAX, FALSE, high);
    SendMessageW(level.fader, TBM_SETPAGESIZE, 0, 10);
    if (field.low < 0)
        SendMessageW(level.fader, TBM_SETTIC, 0, 0);
    SetWindowSubclass(level.fader, handleFader, 0, reinterpret_cast<DWORD_PTR>(this));
    names.name(level.fader, name);
    names.name(level.box, name + ", typed");
    levels.push_back(level);
    return levels.back();
}

void PanelWindow::make()
{
    state = add(WC_STATICW, L"", SS_NOPREFIX, std::nullopt);
    preset = add(WC_BUTTONW, L"&Preset", WS_TABSTOP, std::nullopt, presetCommand);
    undo = add(WC_BUTTONW, L"&Undo", WS_TABSTOP, std::nullopt, undoCommand);
    redo = add(WC_BUTTONW, L"R&edo", WS_TABSTOP, std::nullopt, redoCommand);
    compare = add(WC_BUTTONW, L"&A | b", WS_TABSTOP, std::nullopt, compareCommand);
    names.name(compare, "Compare two choices");
    bypassButton = add(WC_BUTTONW, L"&Bypass", WS_TABSTOP | BS_CHECKBOX | BS_PUSHLIKE, std::nullopt, bypassCommand);
    tabs = add(WC_TABCONTROLW, L"Pages", WS_TABSTOP, std::nullopt);
    for (const wchar_t* title : {L"Speaker", L"Microphone", L"What runs"}) {
        TCITEMW item{};
        item.mask = TCIF_TEXT;
        item.pszText = const_cast<wchar_t*>(title); // only read
        SendMessageW(tabs, TCM_INSERTITEMW, static_cast<WPARAM>(SendMessageW(tabs, TCM_GETITEMCOUNT, 0, 0)),
                     reinterpret_cast<LPARAM>(&item));
    }

    curveView = std::make_unique<Canvas>(window, L"Equaliser curve", [this](HDC dc, int width, int height) {
        const HGDIOBJ before = SelectObject(dc, font);
        paintEqualizer(dc, width, height, curve, std::ranges::all_of(bands, [](std::int64_t value) { return value == 0; }));
        SelectObject(dc, before);
    });
    controls.push_back({curveView->handle(), Page::speaker, false});
    for (std::size_t band = 0; band < bands.size(); ++band) {
        const double hz = equalizerCentres.at(band);
        addLevel(("EQBand" + std::to_string(band + 1)).c_str(), "Equaliser at " + number(hz, "%g") + " Hz", true, Page::speaker);
        const std::string caption = hz < 1000 ? number(hz, "%g") : number(hz / 1000, "%gk");
        bandCaptions.at(band) = add(WC_STATICW, wide(caption).c_str(), SS_CENTER, Page::speaker);
    }
    surround = add(WC_BUTTONW, L"Su&rround sound", WS_TABSTOP | BS_CHECKBOX, Page::speaker, surroundCommand);
    speakerTest = add(WC_BUTTONW, L"S&peaker test", WS_TABSTOP | BS_CHECKBOX | BS_PUSHLIKE, Page::speaker, speakerTestCommand);
    names.name(speakerTest, "Speaker test: each speaker says its name from its place");
    reverbLabel = add(WC_STATICW, L"Re&verb", 0, Page::speaker);
    addLevel("Reverb", "Reverb", false, Page::speaker);
    responses = add(WC_STATICW, L"", SS_NOPREFIX, Page::speaker);
    importButton = add(WC_BUTTONW, L"&Import…", WS_TABSTOP, Page::speaker, importCommand);
    names.name(importButton, "Import responses: a WAV file of fourteen channels at 48000 Hz");
    builtIn = add(WC_BUTTONW, L"Bui&lt in", WS_TABSTOP, Page::speaker, builtInCommand);
    speaker = add(WC_COMBOBOXW, L"", WS_TABSTOP | CBS_DROPDOWNLIST | WS_VSCROLL, Page::speaker, speakerCommand);
    names.name(speaker, "Speaker whose responses are shown");
    for (const char* name : speakerNames)
        SendMessageW(speaker, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(wide(name).c_str()));
    SendMessageW(speaker, CB_SETCURSEL, 0, 0);
    responseView = std::make_unique<Canvas>(window, L"Levels at the ears over frequency", [this](HDC dc, int width, int height) {
        const HGDIOBJ before = SelectObject(dc, font);
        paintResponses(dc, width, height, taps.at(static_cast<std::size_t>(SendMessageW(speaker, CB_GETCURSEL, 0, 0))));
        SelectObject(dc, before);
    });
    controls.push_back({responseView->handle(), Page::speaker, false});
    report = add(WC_EDITW, L"", WS_TABSTOP | WS_VSCROLL | ES_MULTILINE | ES_READONLY | ES_AUTOVSCROLL, Page::speaker);
    names.name(report, "Report of the import");

    noiseReduction = add(WC_BUTTONW, L"&Noise reduction", WS_TABSTOP | BS_CHECKBOX, Page::microphone, noiseReductionCommand);
    micCurveLabel = add(WC_STATICW, L"&Curve", 0, Page::microphone);
    micCurve = add(WC_COMBOBOXW, L"", WS_TABSTOP | CBS_DROPDOWNLIST, Page::microphone, micCurveCommand);
    names.name(micCurve, "Curve");
    for (const wchar_t* name : {L"off", L"Warm: lows +13 dB, highs +4 dB", L"Clear: nothing below 200 Hz"})
        SendMessageW(micCurve, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(name));
    gateLabel = add(WC_STATICW, L"Noise &gate, opens at", 0, Page::microphone);
    addLevel("noiseGate", "Noise gate, opens at", false, Page::microphone);
    late = add(WC_STATICW, L"", SS_NOPREFIX, Page::microphone);
    listen = add(WC_BUTTONW, L"&Listen to myself after", WS_TABSTOP | BS_CHECKBOX, Page::microphone, listenCommand);
    delay = add(WC_COMBOBOXW, L"", WS_TABSTOP | CBS_DROPDOWNLIST, Page::microphone, delayCommand);
    names.name(delay, "How much later");
    for (int half = 1; half <= 6; ++half)
        SendMessageW(delay, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(wide(number(0.5 * half, "%.1f s")).c_str()));
    SendMessageW(delay, CB_SETCURSEL, 1, 0);
    before = add(WC_BUTTONW, L"B&efore: without the three above", WS_TABSTOP | BS_CHECKBOX, Page::microphone, beforeCommand);
    levelsLabel = add(WC_STATICW, L"Levels in dB, from so many Hz on", 0, Page::microphone);
    for (std::size_t k = 0; k < meters.size(); ++k) {
        meters.at(k) = std::make_unique<Canvas>(
            window, L"Level", [this, k](HDC dc, int width, int height) { paintMeter(dc, width, height, meterLevels.at(k)); });
        controls.push_back({meters.at(k)->handle(), Page::microphone, false});
        meterCaptions.at(k) = add(WC_STATICW, L"", SS_CENTER, Page::microphone);
    }

    details = add(WC_EDITW, L"", WS_TABSTOP | WS_VSCROLL | ES_MULTILINE | ES_READONLY | ES_AUTOVSCROLL, Page::running);
    names.name(details, "What runs");
    message = add(WC_STATICW, L"", SS_NOPREFIX, std::nullopt);
    names.name(message, "Message");
}

void PanelWindow::useScale(UINT dotsAnInch)
{
    scale = dotsAnInch;
    NONCLIENTMETRICSW metrics{};
    metrics.cbSize = sizeof metrics;
    SystemParametersInfoForDpi(SPI_GETNONCLIENTMETRICS, sizeof metrics, &metrics, 0, scale);
    const HFONT before = std::exchange(font, CreateFontIndirectW(&metrics.lfMessageFont));
    for (const Control& control : controls)
        SendMessageW(control.handle, WM_SETFONT, reinterpret_cast<WPARAM>(font), TRUE);
    for (const Level& level : levels) // the font has brought margins of its own
        SendMessageW(level.box, EM_SETMARGINS, EC_LEFTMARGIN | EC_RIGHTMARGIN, 0);
    DeleteObject(before);
    arrange();
}

// In dots at 96 an inch, scaled at the end. What is to the right and at the bottom keeps its size, the charts get the rest.
void PanelWindow::arrange()
{
    RECT size{};
    GetClientRect(window, &size);
    const int dots = static_cast<int>(scale);
    const int width = MulDiv(size.right, 96, dots);
    const int height = MulDiv(size.bottom, 96, dots);
    const auto place = [dots](HWND control, int x, int y, int w, int h) {
        MoveWindow(control, MulDiv(x, dots, 96), MulDiv(y, dots, 96), MulDiv(std::max(w, 0), dots, 96),
                   MulDiv(std::max(h, 0), dots, 96), TRUE);
    };

    int x = width - 6;
    for (const auto& [control, w] : {std::pair{bypassButton, 90}, std::pair{compare, 56}, std::pair{redo, 56},
                                     std::pair{undo, 56}, std::pair{preset, 120}}) {
        x -= w;
        place(control, x, 6, w - 4, 30);
    }
    place(state, 8, 6, x - 16, 34);
    const int bottom = height - 24;
    place(message, 8, bottom + 2, width - 16, 20);
    place(tabs, 6, 42, width - 12, 24); // the pages themselves are the window's
    const int top = 72;
    const int left = 14;
    const int end = bottom - 8;

    const int split = left + (width - 28) * 2 / 3; // nine numbers with their units beside one another
    const int faders = (end - top) / 2;
    place(curveView->handle(), left, top, split - left - 8, end - top - faders - 6);
    const int column = (split - left - 8) / static_cast<int>(bands.size());
    const auto placeLevel = [&](const Level& level, int at, int y, int w) {
        place(level.fader, at, y, w - 66, 28);
        place(level.box, at + w - 64, y + 2, 62, 22);
    };
    for (std::size_t band = 0; band < bands.size(); ++band) {
        const int at = left + static_cast<int>(band) * column;
        place(levels.at(band).box, at, end - faders, column - 2, 22);
        place(levels.at(band).fader, at + column / 2 - 18, end - faders + 24, 36, faders - 44);
        place(bandCaptions.at(band), at, end - 18, column - 2, 18);
    }
    const int wide = width - 14 - split;
    place(surround, split, top, wide - 112, 22);
    place(speakerTest, split + wide - 108, top - 2, 108, 26);
    place(reverbLabel, split, top + 26, wide, 18);
    placeLevel(levels.at(9), split, top + 44, wide);
    place(responses, split, top + 78, wide, 34);
    place(importButton, split, top + 114, wide / 2 - 2, 26);
    place(builtIn, split + wide / 2 + 2, top + 114, wide / 2 - 2, 26);
    place(speaker, split, top + 146, wide, 240);
    const int rest = end - (top + 176);
    place(responseView->handle(), split, top + 176, wide, rest * 3 / 5 - 4);
    place(report, split, top + 176 + rest * 3 / 5, wide, rest - rest * 3 / 5);

    const int half = left + (width - 28) * 2 / 5;
    place(noiseReduction, left, top, half - left - 12, 22);
    place(micCurveLabel, left, top + 30, half - left - 12, 18);
    place(micCurve, left, top + 48, half - left - 12, 120);
    place(gateLabel, left, top + 84, half - left - 12, 18);
    placeLevel(levels.at(10), left, top + 102, half - left - 12);
    place(late, left, top + 142, half - left - 12, 34);
    place(listen, left, top + 184, half - left - 96, 22);
    place(delay, half - 80, top + 182, 68, 200);
    place(before, left, top + 212, half - left - 12, 22);
    place(levelsLabel, half, top, width - 14 - half, 18);
    const int meter = (width - 14 - half) / static_cast<int>(meters.size());
    for (std::size_t k = 0; k < meters.size(); ++k) {
        place(meters.at(k)->handle(), half + static_cast<int>(k) * meter, top + 22, meter - 6, end - top - 44);
        place(meterCaptions.at(k), half + static_cast<int>(k) * meter, end - 18, meter - 6, 18);
    }
    place(details, left, top, width - 28, end - top);
}

PanelWindow::Page PanelWindow::page() const
{
    return static_cast<Page>(std::max<LRESULT>(SendMessageW(tabs, TCM_GETCURSEL, 0, 0), 0));
}

void PanelWindow::showPage()
{
    const bool known = session->responses().has_value();
    for (const Control& control : controls) {
        const bool hidden = !known && (control.handle == speaker || control.handle == responseView->handle());
        ShowWindow(control.handle, !hidden && (!control.page || *control.page == page()) ? SW_SHOWNA : SW_HIDE);
    }
    watch();
}

void PanelWindow::putIntoTray()
{
    NOTIFYICONDATAW icon{};
    icon.cbSize = sizeof icon;
    icon.hWnd = window;
    icon.uFlags = NIF_MESSAGE | NIF_ICON | NIF_TIP;
    icon.uCallbackMessage = trayMessage;
    icon.hIcon = LoadIconW(GetModuleHandleW(nullptr), MAKEINTRESOURCEW(QUOREL_PANEL_ICON));
    std::wcscpy(static_cast<wchar_t*>(icon.szTip), L"QUOREL");
    inTray = Shell_NotifyIconW(NIM_ADD, &icon) != FALSE;
}

// ---- What its user does ---------------------------------------------------------------------------------------------

LRESULT CALLBACK PanelWindow::handleMessage(HWND window, UINT message, WPARAM w, LPARAM l)
{
    if (message == WM_NCCREATE)
        SetWindowLongPtrW(window, GWLP_USERDATA,
                          reinterpret_cast<LONG_PTR>(reinterpret_cast<const CREATESTRUCTW*>(l)->lpCreateParams));
    auto* panel = reinterpret_cast<PanelWindow*>(GetWindowLongPtrW(window, GWLP_USERDATA));
    // Not before it is made, nor while it is taken apart.
    return panel != nullptr && panel->session != nullptr && panel->message != nullptr ? panel->handle(message, w, l)
                                                                                      : DefWindowProcW(window, message, w, l);
}

LRESULT PanelWindow::handle(UINT what, WPARAM w, LPARAM l)
{
    switch (what) {
    case newsMessage:
        take(static_cast<PanelSession::News>(w));
        return 0;
    case trayMessage:
        if (l == WM_LBUTTONUP)
            ShowWindow(window, IsWindowVisible(window) != FALSE ? SW_HIDE : SW_SHOW);
        else if (l == WM_RBUTTONUP)
            offerTray();
        return 0;
    case WM_COMMAND:
        command(LOWORD(w), HIWORD(w), reinterpret_cast<HWND>(l));
        return 0;
    case WM_NOTIFY:
        if (reinterpret_cast<const NMHDR*>(l)->code == static_cast<UINT>(TCN_SELCHANGE))
            showPage();
        return 0;
    case WM_HSCROLL:
    case WM_VSCROLL:
        slide(reinterpret_cast<HWND>(l), LOWORD(w));
        return 0;
    case WM_DROPFILES: {
        const auto drop = reinterpret_cast<HDROP>(w);
        std::wstring path(DragQueryFileW(drop, 0, nullptr, 0) + 1, L'\0');
        path.resize(DragQueryFileW(drop, 0, path.data(), static_cast<UINT>(path.size())));
        const bool one = DragQueryFileW(drop, 0xFFFFFFFF, nullptr, 0) == 1;
        DragFinish(drop);
        if (one) {
            SendMessageW(tabs, TCM_SETCURSEL, 0, 0);
            showPage();
            importFile(utf8(path));
        }
        return 0;
    }
    case WM_SIZE:
        arrange();
        watch(); // minimised it is not seen
        return 0;
    case WM_DPICHANGED: {
        const RECT& wanted = *reinterpret_cast<const RECT*>(l);
        SetWindowPos(window, nullptr, wanted.left, wanted.top, wanted.right - wanted.left, wanted.bottom - wanted.top,
                     SWP_NOZORDER | SWP_NOACTIVATE);
        useScale(LOWORD(w));
        return 0;
    }
    case WM_SHOWWINDOW:
        // The window is counted as seen only after this message.
        PostMessageW(window, newsMessage, static_cast<WPARAM>(PanelSession::News::live), 0);
        return DefWindowProcW(window, what, w, l);
    case WM_SYSCOLORCHANGE:
        for (const Control& control : controls)
            SendMessageW(control.handle, what, w, l);
        InvalidateRect(window, nullptr, TRUE);
        return 0;
    case WM_CLOSE:
        if (inTray) {
            ShowWindow(window, SW_HIDE);
            watch();
        } else {
            DestroyWindow(window);
        }
        return 0;
    case WM_DESTROY: {
        NOTIFYICONDATAW icon{};
        icon.cbSize = sizeof icon;
        icon.hWnd = window;
        Shell_NotifyIconW(NIM_DELETE, &icon);
        PostQuitMessage(0);
        return 0;
    }
    default:
        if (what == taskbarMade)
            putIntoTray();
        return DefWindowProcW(window, what, w, l);
    }
}

// A double click or Delete is the default; the wheel is for the one with the focus.
LRESULT CALLBACK PanelWindow::handleFader(HWND fader, UINT message, WPARAM w, LPARAM l, UINT_PTR, DWORD_PTR self)
{
    auto& panel = *reinterpret_cast<PanelWindow*>(self);
    auto& level = *std::ranges::find(panel.levels, fader, &Level::fader);
    if (message == WM_MOUSEWHEEL) {
        if (GetFocus() != fader)
            return DefWindowProcW(fader, message, w, l);
        level.turned += GET_WHEEL_DELTA_WPARAM(w);
        const int notches = std::exchange(level.turned, level.turned % WHEEL_DELTA) / WHEEL_DELTA;
        const std::int64_t wanted = panel.session->model().shown(*level.field) + notches * stepsOfNotch;
        panel.edit(*level.field, std::clamp(wanted, level.field->low, level.field->high));
        return 0;
    }
    if (message == WM_KEYDOWN && w == VK_DELETE) {
        panel.edit(*level.field, neutralValue);
        return 0;
    }
    if (message == WM_LBUTTONDOWN) {
        const auto now = static_cast<DWORD>(GetMessageTime());
        const bool twice = level.pressed != 0 && now - level.pressed <= GetDoubleClickTime();
        level.pressed = twice ? 0 : now;
        if (twice)
            message = WM_LBUTTONDBLCLK;
    }
    if (message == WM_LBUTTONDBLCLK) {
        panel.edit(*level.field, neutralValue);
        return 0;
    }
    return DefSubclassProc(fader, message, w, l);
}

bool PanelWindow::translate(MSG& what)
{
    if (what.message == WM_KEYDOWN && (what.wParam == VK_RETURN || what.wParam == VK_ESCAPE))
        if (Level* level = levelOfBox(what.hwnd)) {
            if (what.wParam == VK_ESCAPE)
                SendMessageW(level->box, EM_SETMODIFY, FALSE, 0);
            finishTyping(*level);
            return true;
        }
    return (IsChild(window, what.hwnd) != FALSE || what.hwnd == window) &&
           (TranslateAcceleratorW(window, keys, &what) != 0 || IsDialogMessageW(window, &what) != FALSE);
}

PanelWindow::Level* PanelWindow::levelOfBox(HWND box)
{
    const auto found = std::ranges::find(levels, box, &Level::box);
    return found != levels.end() ? &*found : nullptr;
}

void PanelWindow::command(int id, int notification, HWND from)
{
    if (notification == EN_KILLFOCUS)
        if (Level* level = levelOfBox(from))
            finishTyping(*level);
    if (id >= firstPreset) {
        attempt([&](PanelModel& model) { model.loadPreset(offered.at(static_cast<std::size_t>(id - firstPreset))); });
        return;
    }
    const auto flip = [this](const char* name) {
        const SettingsField& field = *settingsField(name);
        edit(field, session->model().shown(field) != 0 ? 0 : 1);
    };
    switch (id) {
    case undoCommand:
        attempt(&PanelModel::undo);
        break;
    case redoCommand:
        attempt(&PanelModel::redo);
        break;
    case compareCommand:
        attempt(&PanelModel::compare);
        break;
    case bypassCommand:
        bypass(!session->bypassed());
        break;
    case presetCommand: {
        RECT under{};
        GetWindowRect(preset, &under);
        offerPresets({under.left, under.bottom});
        break;
    }
    case saveCommand:
        if (session->model().presetName().empty())
            saveAs();
        else
            attempt([](PanelModel& model) { model.savePreset(model.presetName()); });
        break;
    case saveAsCommand:
        saveAs();
        break;
    case revertCommand:
        attempt(&PanelModel::revert);
        break;
    case surroundCommand:
        flip("Settings");
        break;
    case noiseReductionCommand:
        flip("MicNR");
        break;
    case micCurveCommand:
        if (notification == CBN_SELCHANGE)
            edit(*settingsField("micEq"), SendMessageW(micCurve, CB_GETCURSEL, 0, 0));
        break;
    case speakerTestCommand:
        session->testSpeakers(!session->testingSpeakers());
        refresh();
        break;
    case listenCommand:
        listenToMyself(!session->listening());
        break;
    case delayCommand:
        if (notification == CBN_SELCHANGE && session->listening())
            listenToMyself(true);
        break;
    case beforeCommand:
        session->hearBefore(!session->hearingBefore());
        refresh();
        break;
    case speakerCommand:
        if (notification == CBN_SELCHANGE)
            showResponses();
        break;
    case importCommand:
        chooseFile();
        break;
    case builtInCommand:
        importFile({});
        break;
    case nextPageCommand:
        SendMessageW(tabs, TCM_SETCURSEL, (static_cast<WPARAM>(page()) + 1) % 3, 0);
        showPage();
        break;
    case showCommand:
        ShowWindow(window, SW_SHOW);
        SetForegroundWindow(window);
        break;
    case quitCommand:
        DestroyWindow(window);
        break;
    default:
        break;
    }
}

void PanelWindow::slide(HWND fader, int how)
{
    const auto found = std::ranges::find(levels, fader, &Level::fader);
    if (found == levels.end())
        return;
    const auto at = static_cast<std::int64_t>(SendMessageW(fader, TBM_GETPOS, 0, 0));
    const bool joined = found->moved && how == TB_THUMBTRACK;
    found->held = how == TB_THUMBTRACK;
    found->moved = found->held;
    edit(*found->field, found->upright ? -at : at, joined);
}

void PanelWindow::finishTyping(Level& level)
{
    if (SendMessageW(level.box, EM_GETMODIFY, 0, 0) != 0) {
        SendMessageW(level.box, EM_SETMODIFY, FALSE, 0);
        attempt([&](PanelModel& model) { model.edit(*level.field, typedValue(*level.field, textOf(level.box))); });
    }
    show(level.box, shownText(*level.field, session->model().shown(*level.field)));
}

void PanelWindow::attempt(const std::function<void(PanelModel&)>& edit)
{
    session->attempt(edit);
    refresh();
}

void PanelWindow::edit(const SettingsField& field, std::int64_t value, bool joined)
{
    attempt([&](PanelModel& model) { model.edit(field, value, joined ? PanelModel::Step::joined : PanelModel::Step::own); });
}

void PanelWindow::bypass(bool on)
{
    session->bypass(on);
    refresh();
}

void PanelWindow::listenToMyself(bool on)
{
    const auto seconds = 0.5 * static_cast<double>(SendMessageW(delay, CB_GETCURSEL, 0, 0) + 1);
    session->listen(on ? std::optional(seconds) : std::nullopt);
    refresh();
}

void PanelWindow::chooseFile()
{
    std::wstring path(32768, L'\0'); // the longest that the system takes
    OPENFILENAMEW dialog{};
    dialog.lStructSize = sizeof dialog;
    dialog.hwndOwner = window;
    dialog.lpstrTitle = L"Import responses: a WAV file of fourteen channels at 48000 Hz";
    dialog.lpstrFilter = L"WAV, fourteen channels at 48000 Hz (*.wav)\0*.wav\0All files (*.*)\0*.*\0";
    dialog.lpstrFile = path.data();
    dialog.nMaxFile = static_cast<DWORD>(path.size());
    dialog.Flags = OFN_FILEMUSTEXIST | OFN_HIDEREADONLY | OFN_NOCHANGEDIR;
    if (GetOpenFileNameW(&dialog) != FALSE)
        importFile(utf8(path.c_str()));
}

void PanelWindow::importFile(const std::string& path)
{
    if (!session->import(path))
        return;
    EnableWindow(importButton, FALSE);
    show(report, path.empty() ? "Bringing the built-in responses back…" : "Reading " + path + "…");
}

void PanelWindow::saveAs()
{
    std::string name = session->model().presetName();
    if (DialogBoxParamW(GetModuleHandleW(nullptr), MAKEINTRESOURCEW(QUOREL_PANEL_SAVE_AS), window,
                        reinterpret_cast<DLGPROC>(reinterpret_cast<void*>(askName)), reinterpret_cast<LPARAM>(&name)) == IDOK)
        attempt([&](PanelModel& model) { model.savePreset(name); });
}

void PanelWindow::fillPresets(HMENU menu)
{
    offered.clear();
    attempt([this](PanelModel&) { offered = presets(); });
    const PanelModel& model = session->model();
    for (std::size_t i = 0; i < offered.size(); ++i)
        AppendMenuW(menu, MF_STRING | (offered[i] == model.presetName() ? MF_CHECKED : 0U), firstPreset + i,
                    wide(offered[i]).c_str());
    AppendMenuW(menu, MF_SEPARATOR, 0, nullptr);
    const bool named = !model.presetName().empty();
    AppendMenuW(menu, MF_STRING | (named ? 0U : MF_GRAYED), saveCommand, L"&Save\tCtrl+S");
    AppendMenuW(menu, MF_STRING, saveAsCommand, L"Save &as…");
    AppendMenuW(menu, MF_STRING | (named && model.changed() ? 0U : MF_GRAYED), revertCommand, L"&Revert");
}

void PanelWindow::offerPresets(POINT at)
{
    const HMENU menu = CreatePopupMenu();
    fillPresets(menu);
    TrackPopupMenu(menu, TPM_LEFTALIGN, at.x, at.y, 0, window, nullptr);
    DestroyMenu(menu);
}

void PanelWindow::offerTray()
{
    session->watch(true, false); // what the menu does must not rest on an old look
    const HMENU menu = CreatePopupMenu();
    AppendMenuW(menu, MF_STRING, showCommand, L"&Show the panel");
    AppendMenuW(menu, MF_STRING | (session->bypassed() ? MF_CHECKED : 0U), bypassCommand, L"&Bypass");
    const HMENU inner = CreatePopupMenu();
    fillPresets(inner);
    AppendMenuW(menu, MF_POPUP, reinterpret_cast<UINT_PTR>(inner), L"&Presets");
    AppendMenuW(menu, MF_SEPARATOR, 0, nullptr);
    AppendMenuW(menu, MF_STRING, quitCommand, L"&Quit");
    POINT at{};
    GetCursorPos(&at);
    SetForegroundWindow(window); // or the menu would not go when another window is clicked
    const int chosen = TrackPopupMenu(menu, TPM_RETURNCMD, at.x, at.y, 0, window, nullptr);
    DestroyMenu(menu);
    if (chosen != 0)
        command(chosen, 0, nullptr);
    if (IsWindow(window) != FALSE)
        watch();
}

// ---- What is seen ---------------------------------------------------------------------------------------------------

void PanelWindow::take(PanelSession::News news)
{
    const bool changed = session->take(news);
    if (news == PanelSession::News::effect)
        showLevels();
    if (news == PanelSession::News::import) {
        const ImportReport& imported = session->imported();
        show(report, linesOf((imported.path.empty() ? "" : imported.path + "\n") + imported.text));
        showResponses();
    }
    if (news == PanelSession::News::live)
        watch();
    if (changed) {
        refresh();
        refreshState();
    }
    EnableWindow(importButton, session->model().usable() && !session->importing());
}

void PanelWindow::refresh()
{
    const PanelModel& model = session->model();
    const bool usable = model.usable();
    for (const Control& control : controls)
        if (control.usable && control.handle != importButton)
            EnableWindow(control.handle, usable);
    for (Level& level : levels) {
        const std::int64_t value = model.shown(*level.field);
        const auto at = static_cast<LPARAM>(std::clamp(value, level.field->low, level.field->high));
        if (!level.held)
            SendMessageW(level.fader, TBM_SETPOS, TRUE, level.upright ? -at : at);
        const std::string text = shownText(*level.field, value);
        if (SendMessageW(level.box, EM_GETMODIFY, 0, 0) == 0)
            show(level.box, text);
        names.value(level.fader, text);
    }
    auto newest = bands;
    for (std::size_t band = 0; band < newest.size(); ++band)
        newest.at(band) = model.shown(*levels.at(band).field);
    if (newest != bands) {
        curve.design(bands = newest);
        curveView->repaint();
    }
    check(surround, model.shown(*settingsField("Settings")) != 0);
    check(noiseReduction, model.shown(*settingsField("MicNR")) != 0);
    SendMessageW(micCurve, CB_SETCURSEL, static_cast<WPARAM>(model.shown(*settingsField("micEq"))), 0);

    EnableWindow(undo, usable && model.canUndo());
    EnableWindow(redo, usable && model.canRedo());
    EnableWindow(compare, usable);
    show(compare, model.side() == 'A' ? "&A | b" : "&a | B");
    EnableWindow(preset, usable);
    show(preset, model.presetName().empty() ? "&Preset" : model.presetName() + (model.changed() ? " *" : ""));
    EnableWindow(bypassButton, usable);
    check(bypassButton, session->bypassed());
    show(bypassButton, session->bypassed() ? "&Bypassed" : "&Bypass");
    check(speakerTest, session->testingSpeakers());
    check(listen, session->listening());
    check(before, session->hearingBefore());
    show(message, session->message());
}

void PanelWindow::refreshState()
{
    const PanelModel& model = session->model();
    const EffectView& view = model.seen();
    std::string text;
    switch (view.state) {
    case EffectView::State::absent:
        text = "No effect is running. Choose the headset with the effect as the sound device, and play something.";
        break;
    case EffectView::State::hidden:
        text = view.trouble;
        break;
    case EffectView::State::there:
        text = view.framesPerSecond > 0 ? "Running at " + number(static_cast<double>(view.framesPerSecond), "%g") + " Hz, " +
                                              (view.microphone ? "a microphone's stream" : maskText(view.channelMask))
                                        : "The effect is there, and no stream so far: play something on its device.";
        break;
    }
    if (model.bypassed())
        text += " Bypassed by settings: the down-mix to stereo, the limiters and a gain of 0.8 stay.";
    show(state, text);
    const double effectMs = session->lateness().effectMs;
    show(late, effectMs > 0 ? "Noise reduction makes your voice " + number(effectMs, "%.1f") + " ms late."
                            : "The effect makes your voice no later.");

    const std::string file = platform::textOf(platform::pathOf(view.responsesFile).filename());
    const std::uint32_t identity = view.settings.hrtfId;
    show(responses, (identity == 0   ? "In use: the built-in set"
                     : !file.empty() ? "In use: " + file
                                     : "In use: a set that another program delivered") +
                        (view.refusal.empty() ? "" : ". " + view.refusal));
    if (identity != shownIdentity)
        showResponses();
    show(details, linesOf(text));
}

// What another program delivered the panel has never seen.
void PanelWindow::showResponses()
{
    shownIdentity = session->model().seen().settings.hrtfId;
    if (const auto known = session->responses())
        taps = *known;
    responseView->repaint();
    showPage();
}

void PanelWindow::showLevels()
{
    if (page() != Page::microphone)
        return;
    const auto seconds = session->levelsDue();
    if (!seconds)
        return;
    if (session->levelRate() != meterRate) {
        const auto captions = levelCaptions(meterRate = session->levelRate());
        for (std::size_t k = 0; k < meters.size(); ++k) {
            const auto first = captions.at(k).find_first_not_of(' ');
            const std::string caption = captions.at(k).substr(first);
            show(meterCaptions.at(k), caption.substr(0, caption.find(' ')));
            show(meters.at(k)->handle(), "Level at " + caption);
        }
    }
    for (std::size_t k = 0; k < meters.size(); ++k) {
        const EffectView& view = session->model().seen();
        if (meterLevels.at(k).next(session->model().usable() ? static_cast<double>(view.levels.at(k)) : MeterLevel::lowest,
                                   *seconds)) {
            names.value(meters.at(k)->handle(), std::to_string(meterLevels.at(k).level()) + " dB, peak " +
                                                    std::to_string(meterLevels.at(k).peak()) + " dB");
            meters.at(k)->repaint();
        }
    }
}

void PanelWindow::watch()
{
    session->watch(IsWindowVisible(window) != FALSE && IsIconic(window) == FALSE, page() == Page::microphone);
    refresh(); // what is unseen plays no sound any more
}

} // namespace quorel
