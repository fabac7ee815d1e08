// SPDX-License-Identifier: MIT
// The window on Windows, on a screen that nobody sees, with the settings of a real effect.
#pragma once

#include "client/control_client.h"
#include "panel/kept_values.h"
#include "panel/win32/window.h"
#include "settings/settings_handler.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <commctrl.h>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace quorel {
// A window may then be larger than the screen.
inline LRESULT CALLBACK letGrow(HWND window, UINT message, WPARAM w, LPARAM l, UINT_PTR, DWORD_PTR)
{
    const LRESULT result = DefSubclassProc(window, message, w, l);
    if (message == WM_GETMINMAXINFO)
        reinterpret_cast<MINMAXINFO*>(l)->ptMaxTrackSize = {4000, 4000};
    return result;
}

// A desktop of its own has the screen of this process, whatever processes without one share the system. Presets and what a bypass
// keeps have a folder of their own.
class Surroundings : public testing::Environment {
public:
    void SetUp() override
    {
        std::filesystem::create_directories(folder);
        _wputenv_s(L"APPDATA", folder.c_str());
        // Its first window starts what paints it, which on a machine that is busy may come too late for that window.
        for (int i = 0; i < 30 && !canMakeWindows(); ++i)
            Sleep(1000);
    }
    void TearDown() override { std::filesystem::remove_all(folder); }

private:
    static bool canMakeWindows()
    {
        const std::wstring name = L"quorel" + std::to_wstring(std::random_device()());
        const HDESK desktop = CreateDesktopW(name.c_str(), nullptr, nullptr, 0, GENERIC_ALL, nullptr); // to the process's end
        if (desktop == nullptr || SetThreadDesktop(desktop) == FALSE)
            return false;
        const HWND window = CreateWindowExW(0, WC_STATICW, L"", WS_OVERLAPPED, 0, 0, 9, 9, nullptr, nullptr, nullptr, nullptr);
        return window != nullptr && DestroyWindow(window) != FALSE;
    }

    std::filesystem::path folder =
        std::filesystem::temp_directory_path() / ("quorel_panel_" + std::to_string(std::random_device()()));
};

inline const auto* const surroundings = testing::AddGlobalTestEnvironment(new Surroundings);

class Win32Window : public testing::Test {
protected:
    Win32Window()
    {
        ControlClient().update([](SettingsRecord& record) {
            for (const SettingsField& field : settingsFields())
                if (field.kept)
                    setSetting(record, field, 0);
            record.hrtfId = 0;
        });
        effect->writeActiveFormat(0x63F, 48000);
        saveKeptValues({}); // of a panel that ended before it saw its bypass put back
        panel.emplace();
        ShowWindow(panel->handle(), SW_SHOW);
        EXPECT_TRUE(becomes([this] { return IsWindowEnabled(fader("Reverb")) != FALSE; }));
    }

    // Whether it comes to that within a minute, while the window goes on.
    bool becomes(const std::function<bool()>& reached)
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
        while (!reached()) {
            if (std::chrono::steady_clock::now() > end)
                return false;
            MsgWaitForMultipleObjects(0, nullptr, FALSE, 20, QS_ALLINPUT);
            pump();
        }
        return true;
    }

    void pump()
    {
        for (MSG message{}; PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE) != FALSE;)
            if (!panel->translate(message)) {
                TranslateMessage(&message);
                DispatchMessageW(&message);
            }
    }

    // What the effect's streams take over.
    const SettingsRecord& settings()
    {
        effect->poll(record);
        return record;
    }

    HWND child(const wchar_t* kind, const std::string& text) const
    {
        const HWND found = FindWindowExW(panel->handle(), nullptr, kind, std::wstring(text.begin(), text.end()).c_str());
        EXPECT_NE(found, nullptr) << text;
        return found;
    }
    HWND fader(const std::string& name) const { return child(TRACKBAR_CLASSW, name); }
    static HWND boxOf(HWND slider) { return GetWindow(slider, GW_HWNDNEXT); } // by the order of the Tab key

    HWND lastOf(const wchar_t* kind) const
    {
        HWND last = nullptr;
        for (HWND each = nullptr; (each = FindWindowExW(panel->handle(), each, kind, nullptr)) != nullptr;)
            last = each;
        return last;
    }

    static std::string text(HWND control)
    {
        std::array<wchar_t, 2000> wide{};
        const int length = GetWindowTextW(control, wide.data(), static_cast<int>(wide.size()));
        std::string narrow;
        for (int i = 0; i < length; ++i)
            narrow += static_cast<char>(wide.at(static_cast<std::size_t>(i)));
        return narrow;
    }

    void drag(HWND slider, int to)
    {
        SendMessageW(slider, TBM_SETPOS, TRUE, to);
        SendMessageW(panel->handle(), WM_VSCROLL, TB_THUMBTRACK, reinterpret_cast<LPARAM>(slider));
        SendMessageW(panel->handle(), WM_VSCROLL, TB_ENDTRACK, reinterpret_cast<LPARAM>(slider));
    }

    void press(HWND control, WPARAM key)
    {
        PostMessageW(control, WM_KEYDOWN, key, 0);
        pump();
    }

    void turnTo(int page)
    {
        const HWND tabs = child(WC_TABCONTROLW, "Pages");
        SendMessageW(tabs, TCM_SETCURSEL, static_cast<WPARAM>(page), 0);
        NMHDR change{};
        change.hwndFrom = tabs;
        change.code = static_cast<UINT>(TCN_SELCHANGE);
        SendMessageW(panel->handle(), WM_NOTIFY, 0, reinterpret_cast<LPARAM>(&change));
    }

    // Nothing of a page lies outside of the window or upon another.
    void expectRoomForAll() const
    {
        RECT inside{};
        GetClientRect(panel->handle(), &inside);
        std::vector<std::pair<HWND, RECT>> places;
        for (HWND each = GetWindow(panel->handle(), GW_CHILD); each != nullptr; each = GetWindow(each, GW_HWNDNEXT)) {
            if (IsWindowVisible(each) == FALSE)
                continue;
            RECT place{};
            GetWindowRect(each, &place);
            MapWindowPoints(nullptr, panel->handle(), reinterpret_cast<POINT*>(&place), 2);
            EXPECT_GT(place.right, place.left) << text(each);
            EXPECT_GT(place.bottom, place.top) << text(each);
            EXPECT_TRUE(place.left >= 0 && place.top >= 0 && place.right <= inside.right && place.bottom <= inside.bottom)
                << text(each) << ' ' << place.right << ' ' << place.bottom;
            for (const auto& [other, taken] : places) {
                RECT common{};
                EXPECT_FALSE(IntersectRect(&common, &place, &taken)) << text(each) << " on " << text(other);
            }
            places.emplace_back(each, place);
        }
        EXPECT_GT(places.size(), 5U);
    }

    std::shared_ptr<SettingsHandler> effect = SettingsHandler::instance(SettingsHandler::layoutVersion);
    SettingsRecord record;
    std::optional<PanelWindow> panel;
};

} // namespace quorel
