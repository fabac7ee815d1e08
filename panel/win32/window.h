// SPDX-License-Identifier: MIT
// PanelWindow shows the panel's session in a window of the system's common controls. All of them are children of one window, each
// on one of its pages; their places are worked out anew whenever its size or the screen's scale changes.
#pragma once

#include "panel/panel_session.h"
#include "panel/win32/canvas.h"
#include "panel/win32/names.h"

#include <deque>
#include <functional>
#include <memory>
#include <vector>
#include <windows.h>

namespace quorel {

class PanelWindow {
public:
    enum class Page : std::uint8_t { speaker, microphone, running };

    PanelWindow();
    ~PanelWindow();
    PanelWindow(const PanelWindow&) = delete;
    PanelWindow& operator=(const PanelWindow&) = delete;

    HWND handle() const { return window; }

    // The window's part in the program's loop: true when the message is done with.
    bool translate(MSG& message);

    void importFile(const std::string& path);

private:
    struct Control {
        HWND handle;
        std::optional<Page> page; // none: on each
        bool usable;              // only while an effect is there
    };

    struct Level { // a slider and the number beside it
        const SettingsField* field;
        HWND fader;
        HWND box;
        bool upright;
        bool moved = false; // since its thumb was taken
        bool held = false;  // the thumb
        DWORD pressed = 0;  // when, in ms
        int turned = 0;     // by the wheel, less than a notch
    };

    static LRESULT CALLBACK handleMessage(HWND window, UINT message, WPARAM w, LPARAM l);
    static LRESULT CALLBACK handleFader(HWND fader, UINT message, WPARAM w, LPARAM l, UINT_PTR, DWORD_PTR self);
    LRESULT handle(UINT message, WPARAM w, LPARAM l);

    HWND add(const wchar_t* className, const wchar_t* text, DWORD style, std::optional<Page> page, int id = 0);
    Level& addLevel(const char* field, const std::string& name, bool upright, Page page);
    void make();
    void arrange();
    void showPage();
    void useScale(UINT dotsAnInch);

    void command(int id, int notification, HWND from);
    void slide(HWND fader, int how);
    void finishTyping(Level& level);
    Level* levelOfBox(HWND box);
    void attempt(const std::function<void(PanelModel&)>& edit);
    void edit(const SettingsField& field, std::int64_t value, bool joined = false);
    void bypass(bool on);
    void listenToMyself(bool on);
    void chooseFile();
    void saveAs();
    void offerPresets(POINT at);
    void offerTray();
    void fillPresets(HMENU menu);
    void putIntoTray();

    void take(PanelSession::News news);
    void refresh();
    void refreshState();
    void showResponses();
    void showLevels();
    void watch();
    Page page() const;

    HWND window = nullptr;
    HFONT font = nullptr;
    HACCEL keys = nullptr;
    UINT scale = 96; // dots an inch
    UINT taskbarMade = 0;
    bool inTray = false;
    AccessibleNames names;
    std::vector<Control> controls;
    std::deque<Level> levels;
    std::vector<std::string> offered; // presets, in the order of the menu

    EqualizerCurve curve;
    std::array<std::int64_t, EqualizerCurve::bands> bands{};
    ResponseTaps taps{};
    std::array<MeterLevel, 9> meterLevels;
    std::uint32_t meterRate = 0; // frames per second for which the captions stand
    std::uint32_t shownIdentity = 0;

    HWND tabs = nullptr;
    HWND state = nullptr;
    HWND preset = nullptr;
    HWND undo = nullptr;
    HWND redo = nullptr;
    HWND compare = nullptr;
    HWND bypassButton = nullptr;
    HWND message = nullptr;
    HWND surround = nullptr;
    HWND speakerTest = nullptr;
    HWND reverbLabel = nullptr;
    HWND responses = nullptr;
    HWND importButton = nullptr;
    HWND builtIn = nullptr;
    HWND speaker = nullptr;
    HWND report = nullptr;
    HWND noiseReduction = nullptr;
    HWND micCurveLabel = nullptr;
    HWND micCurve = nullptr;
    HWND gateLabel = nullptr;
    HWND late = nullptr;
    HWND listen = nullptr;
    HWND delay = nullptr;
    HWND before = nullptr;
    HWND levelsLabel = nullptr;
    HWND details = nullptr;
    std::array<HWND, EqualizerCurve::bands> bandCaptions{};
    std::array<HWND, 9> meterCaptions{};
    std::unique_ptr<Canvas> curveView;
    std::unique_ptr<Canvas> responseView;
    std::array<std::unique_ptr<Canvas>, 9> meters;

    std::unique_ptr<PanelSession> session; // last: its threads end before what they announce to
};

} // namespace quorel
