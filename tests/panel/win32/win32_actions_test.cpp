// SPDX-License-Identifier: MIT
// What its user does to the window on Windows beside moving sliders and typing: the wheel, a dropped file, the menus of presets and
// of the tray's icon; and what a long drag sends.
#include "panel/win32/window.h"

#include "client/preset.h"
#include "platform/sharing.h"
#include "tests/panel/win32/win32_window.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <random>
#include <shellapi.h>
#include <shlobj.h>
#include <string>
#include <utility>
#include <vector>

namespace quorel {
namespace {

// What the last menus of the window offered, by their texts: whether an entry is checked.
std::map<std::string, bool> offered;

void CALLBACK endMenu(HWND, UINT, UINT_PTR, DWORD)
{
    EndMenu();
}

LRESULT CALLBACK noteMenus(HWND window, UINT message, WPARAM w, LPARAM l, UINT_PTR, DWORD_PTR)
{
    if (message == WM_INITMENUPOPUP) {
        const auto menu = reinterpret_cast<HMENU>(w);
        for (int i = 0; i < GetMenuItemCount(menu); ++i) {
            std::array<char, 100> text{};
            GetMenuStringA(menu, static_cast<UINT>(i), text.data(), static_cast<int>(text.size()), MF_BYPOSITION);
            offered[text.data()] = (GetMenuState(menu, static_cast<UINT>(i), MF_BYPOSITION) & MF_CHECKED) != 0;
        }
    }
    return DefSubclassProc(window, message, w, l);
}

class Win32Actions : public Win32Window {
protected:
    Win32Actions()
    {
        offered.clear();
        SetWindowSubclass(panel->handle(), noteMenus, 0, 0);
        for (const std::string& name : presets())
            deletePreset(name);
    }
    ~Win32Actions() override
    {
        for (const std::string& name : presets())
            deletePreset(name);
    }

    // Presses the keys in the menu that `open` lets appear. It is ended after ten seconds if they do not end it.
    void choose(const std::vector<std::pair<UINT, WPARAM>>& keys, const std::function<void()>& open)
    {
        for (const auto& [message, key] : keys)
            PostMessageW(panel->handle(), message, key, 0);
        const UINT_PTR limit = SetTimer(nullptr, 0, 10000, endMenu);
        open();
        KillTimer(nullptr, limit);
        pump();
    }
    void tray(LPARAM button) const { SendMessageW(panel->handle(), WM_APP + 1, 0, button); } // as the icon tells it

    static LRESULT at(HWND slider) { return SendMessageW(slider, TBM_GETPOS, 0, 0); }
};

TEST_F(Win32Actions, TheWheelMovesASliderOnlyWithTheFocus)
{
    const HWND slider = fader("Reverb");
    drag(slider, 120);
    SetFocus(fader("Equaliser at 1000 Hz"));
    const auto turn = [&](int by) { SendMessageW(slider, WM_MOUSEWHEEL, MAKEWPARAM(0, static_cast<WORD>(by)), 0); };
    turn(WHEEL_DELTA);
    pump();
    EXPECT_EQ(at(slider), 120);
    SetFocus(slider);
    ASSERT_EQ(GetFocus(), slider);
    turn(WHEEL_DELTA);
    EXPECT_EQ(at(slider), 123);
    for (int third = 0; third < 3; ++third) // a wheel without notches
        turn(-WHEEL_DELTA / 3);
    EXPECT_EQ(at(slider), 120);
    turn(-100 * WHEEL_DELTA);
    EXPECT_EQ(at(slider), 0);
    EXPECT_TRUE(becomes([&] { return settings().Reverb == 0; }));
}

TEST_F(Win32Actions, ADroppedFileIsImported)
{
    turnTo(1);
    const auto path = std::filesystem::temp_directory_path() / ("dropped" + std::to_string(std::random_device()()) + ".wav");
    std::ofstream(path) << "nothing of a head";
    const std::wstring names = path.wstring() + L'\0'; // and one behind the last
    const std::size_t bytes = (names.size() + 1) * sizeof(wchar_t);
    const HGLOBAL memory = GlobalAlloc(GHND, sizeof(DROPFILES) + bytes);
    auto* drop = static_cast<DROPFILES*>(GlobalLock(memory));
    drop->pFiles = sizeof(DROPFILES);
    drop->fWide = TRUE;
    std::memcpy(drop + 1, names.c_str(), bytes);
    GlobalUnlock(memory);
    SendMessageW(panel->handle(), WM_DROPFILES, reinterpret_cast<WPARAM>(memory), 0); // which frees it
    EXPECT_EQ(SendMessageW(child(WC_TABCONTROLW, "Pages"), TCM_GETCURSEL, 0, 0), 0);
    const auto told = [&] {
        for (HWND each = nullptr; (each = FindWindowExW(panel->handle(), each, WC_EDITW, nullptr)) != nullptr;)
            if (text(each).find("cannot read") != std::string::npos &&
                text(each).find(path.filename().string()) != std::string::npos)
                return true;
        return false;
    };
    EXPECT_TRUE(becomes(told));
    std::filesystem::remove(path);
}

TEST_F(Win32Actions, TheMenuOfPresetsLoadsTheChosenOne)
{
    SettingsRecord evening;
    evening.Reverb = 77;
    savePreset("evening", evening);
    choose({{WM_KEYDOWN, VK_DOWN}, {WM_KEYDOWN, VK_RETURN}},
           [this] { SendMessageW(child(WC_BUTTONW, "&Preset"), BM_CLICK, 0, 0); });
    EXPECT_TRUE(offered.contains("evening"));
    EXPECT_TRUE(offered.contains("&Revert"));
    EXPECT_TRUE(becomes([&] { return settings().Reverb == 77; }));
    EXPECT_TRUE(becomes([&] { return FindWindowExW(panel->handle(), nullptr, WC_BUTTONW, L"evening") != nullptr; }));
    drag(fader("Reverb"), 90);
    EXPECT_TRUE(becomes([&] { return FindWindowExW(panel->handle(), nullptr, WC_BUTTONW, L"evening *") != nullptr; }));
    choose({{WM_CHAR, 'r'}}, [this] { SendMessageW(child(WC_BUTTONW, "evening *"), BM_CLICK, 0, 0); });
    EXPECT_TRUE(offered["evening"]); // the one in use
    EXPECT_TRUE(becomes([&] { return settings().Reverb == 77; }));
}

TEST_F(Win32Actions, TheTraysMenuBypassesWhileTheWindowIsHidden)
{
    drag(fader("Reverb"), 120);
    ASSERT_TRUE(becomes([&] { return settings().Reverb == 120; }));
    tray(WM_LBUTTONUP);
    EXPECT_FALSE(IsWindowVisible(panel->handle()));
    choose({{WM_CHAR, 'b'}}, [this] { tray(WM_RBUTTONUP); });
    EXPECT_FALSE(offered.at("&Bypass"));
    EXPECT_TRUE(becomes([&] { return settings().Reverb == 0; }));
    choose({{WM_CHAR, 'b'}}, [this] { tray(WM_RBUTTONUP); });
    EXPECT_TRUE(offered.at("&Bypass"));
    EXPECT_TRUE(becomes([&] { return settings().Reverb == 120; }));
    choose({{WM_CHAR, 's'}}, [this] { tray(WM_RBUTTONUP); });
    EXPECT_TRUE(IsWindowVisible(panel->handle()));
}

TEST_F(Win32Actions, TheTraysMenuEndsThePanel)
{
    choose({{WM_CHAR, 'q'}}, [this] { tray(WM_RBUTTONUP); });
    EXPECT_TRUE(becomes([&] { return IsWindow(panel->handle()) == FALSE; }));
}

// However long it takes: at most one update at once and one more for each 10 ms that have passed.
TEST_F(Win32Actions, ASliderDraggedFromEndToEndSendsAHundredASecond)
{
    const platform::Handle mapping = platform::openMapping(controlBlockName);
    ASSERT_NE(mapping, nullptr);
    const auto* block = static_cast<const ControlBlock*>(platform::mapView(mapping, sizeof(ControlBlock)));
    ASSERT_NE(block, nullptr);
    const auto sequence = [&] {
        return std::atomic_ref(const_cast<ControlBlock*>(block)->sequence).load(); // other threads write it
    };
    const HWND slider = fader("Equaliser at 1000 Hz");
    drag(slider, 127);
    ASSERT_TRUE(becomes([&] { return settings().EQBand.at(4) == -127; }));
    const auto before = sequence();
    const auto start = std::chrono::steady_clock::now();
    for (int to = 127; to >= -127; --to) {
        SendMessageW(slider, TBM_SETPOS, TRUE, to);
        SendMessageW(panel->handle(), WM_VSCROLL, TB_THUMBTRACK, reinterpret_cast<LPARAM>(slider));
        Sleep(1); // so that each could be written by itself
    }
    SendMessageW(panel->handle(), WM_VSCROLL, TB_ENDTRACK, reinterpret_cast<LPARAM>(slider));
    EXPECT_TRUE(becomes([&] { return settings().EQBand.at(4) == 127; }));
    const auto passed = std::chrono::steady_clock::now() - start;
    EXPECT_GT(sequence() - before, 0U);
    EXPECT_LE(sequence() - before, passed / std::chrono::milliseconds(10) + 2);
    platform::unmapView(const_cast<ControlBlock*>(block), sizeof(ControlBlock));
    platform::closeHandle(mapping);
}

} // namespace
} // namespace quorel
