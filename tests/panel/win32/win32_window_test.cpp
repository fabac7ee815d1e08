// SPDX-License-Identifier: MIT
// The window on Windows as its user's messages meet it.
#include "panel/win32/window.h"

#include "panel/chart_scale.h"
#include "tests/panel/sounding_effect.h"
#include "tests/panel/win32/win32_window.h"

#include <gtest/gtest.h>

#include <oleacc.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <random>
#include <string>
#include <tuple>

namespace quorel {
namespace {

TEST_F(Win32Window, ASliderMovedByMessagesArrivesInTheEffect)
{
    const HWND slider = fader("Equaliser at 1000 Hz");
    drag(slider, -40); // upwards
    EXPECT_TRUE(becomes([&] { return settings().EQBand.at(4) == 40; }));
    EXPECT_EQ(SendMessageW(slider, TBM_GETPOS, 0, 0), -40);
    press(slider, VK_UP);
    EXPECT_TRUE(becomes([&] { return settings().EQBand.at(4) == 41; }));
    press(slider, VK_PRIOR);
    EXPECT_TRUE(becomes([&] { return settings().EQBand.at(4) == 51; }));
}

// How long it takes is printed, as the machine's load has its part in it.
TEST_F(Win32Window, ASlidersMoveSoundsInABlockSoonAfter)
{
    SoundingEffect sound;
    const HWND slider = fader("Equaliser at 1000 Hz");
    std::array<double, 21> late{}; // ms
    for (std::size_t i = 0; i < late.size(); ++i) {
        ASSERT_TRUE(becomes([&] { return sound.steady(); }));
        const auto moved = SoundingEffect::Clock::now();
        drag(slider, i % 2 == 0 ? -127 : 0);
        ASSERT_TRUE(becomes([&] { return sound.changed().has_value(); }));
        late.at(i) = std::chrono::duration<double, std::milli>(*sound.changed() - moved).count();
    }
    std::sort(late.begin(), late.end());
    EXPECT_GT(late.front(), 0);
    std::cout << "a slider's move is heard in a block that ends " << late[10] << " ms later, at worst " << late[20] << '\n';
}

TEST_F(Win32Window, DeleteAndADoubleClickBringTheDefault)
{
    const HWND slider = fader("Reverb");
    for (const auto& [message, key] : {std::pair{WM_KEYDOWN, VK_DELETE}, std::pair{WM_LBUTTONDBLCLK, MK_LBUTTON}}) {
        drag(slider, 120);
        ASSERT_TRUE(becomes([&] { return settings().Reverb == 120; }));
        SendMessageW(slider, static_cast<UINT>(message), static_cast<WPARAM>(key), 0);
        EXPECT_TRUE(becomes([&] { return settings().Reverb == 0; }));
    }
}

// -3.04 dB is nearest to -64 of 127 steps for 6 dB.
TEST_F(Win32Window, ATypedNumberIsTakenAndARefusedOneIsTold)
{
    const HWND box = boxOf(fader("Equaliser at 250 Hz"));
    for (const wchar_t* typed : {L"-3,04", L"-3.04 dB"}) {
        drag(fader("Equaliser at 250 Hz"), 5);
        SetWindowTextW(box, typed);
        SendMessageW(box, EM_SETMODIFY, TRUE, 0);
        press(box, VK_RETURN);
        EXPECT_TRUE(becomes([&] { return settings().EQBand.at(2) == -64; }));
        EXPECT_EQ(text(box), "-3.0 dB");
    }
    SetWindowTextW(box, L"99");
    SendMessageW(box, EM_SETMODIFY, TRUE, 0);
    press(box, VK_RETURN);
    EXPECT_EQ(text(box), "-3.0 dB");
    bool told = false;
    for (HWND each = nullptr; (each = FindWindowExW(panel->handle(), each, WC_STATICW, nullptr)) != nullptr;)
        told = told || text(each).find("-6.0 to +6.0 dB") != std::string::npos;
    EXPECT_TRUE(told);
}

TEST_F(Win32Window, AnotherProgramsChangeIsShown)
{
    ControlClient().update([](SettingsRecord& changed) { changed.Reverb = 170; });
    EXPECT_TRUE(becomes([&] { return SendMessageW(fader("Reverb"), TBM_GETPOS, 0, 0) == 170; }));
    EXPECT_EQ(text(boxOf(fader("Reverb"))), "0.0 dB");
}

TEST_F(Win32Window, ButtonsBypassAndUndo)
{
    drag(fader("Reverb"), 120);
    ASSERT_TRUE(becomes([&] { return settings().Reverb == 120; }));
    SendMessageW(child(WC_BUTTONW, "&Bypass"), BM_CLICK, 0, 0);
    EXPECT_TRUE(becomes([&] { return settings().Reverb == 0; }));
    SendMessageW(child(WC_BUTTONW, "&Bypassed"), BM_CLICK, 0, 0);
    EXPECT_TRUE(becomes([&] { return settings().Reverb == 120; }));
    SendMessageW(child(WC_BUTTONW, "&Undo"), BM_CLICK, 0, 0);
    EXPECT_TRUE(becomes([&] { return settings().Reverb == 0; }));
}

TEST_F(Win32Window, LevelsAreMeasuredOnTheirPageAlone)
{
    EXPECT_EQ(settings().levelsEnabled, 0);
    turnTo(1);
    EXPECT_TRUE(becomes([&] { return settings().levelsEnabled == 1; }));
    turnTo(0);
    EXPECT_TRUE(becomes([&] { return settings().levelsEnabled == 0; }));
}

TEST_F(Win32Window, LevelsAreNotMeasuredWhileItIsMinimised)
{
    turnTo(1);
    ASSERT_TRUE(becomes([&] { return settings().levelsEnabled == 1; }));
    ShowWindow(panel->handle(), SW_MINIMIZE);
    EXPECT_TRUE(becomes([&] { return settings().levelsEnabled == 0; }));
    ShowWindow(panel->handle(), SW_RESTORE);
    EXPECT_TRUE(becomes([&] { return settings().levelsEnabled == 1; }));
    turnTo(0);
}

TEST_F(Win32Window, AFileThatIsNoneIsRefusedInWords)
{
    const auto path = std::filesystem::temp_directory_path() / ("none" + std::to_string(std::random_device()()) + ".wav");
    std::ofstream(path) << "nothing of a head";
    panel->importFile(path.string());
    const auto reported = [&] {
        for (HWND each = nullptr; (each = FindWindowExW(panel->handle(), each, WC_EDITW, nullptr)) != nullptr;)
            if (text(each).find("cannot read") != std::string::npos)
                return true;
        return false;
    };
    EXPECT_TRUE(becomes(reported));
    std::filesystem::remove(path);
}

// No wave device is here, which the system says.
TEST_F(Win32Window, ASpeakerTestAndListeningThatFailSayWhy)
{
    const auto told = [&](const std::string& expected) {
        for (HWND each = nullptr; (each = FindWindowExW(panel->handle(), each, WC_STATICW, nullptr)) != nullptr;)
            if (text(each).starts_with(expected))
                return true;
        return false;
    };
    for (const auto& [button, page, expected] : {std::tuple{"S&peaker test", 0, "no device plays this: "},
                                                 std::tuple{"&Listen to myself after", 1, "no device plays this: "}}) {
        turnTo(page);
        const HWND control = child(WC_BUTTONW, button);
        SendMessageW(control, BM_CLICK, 0, 0);
        EXPECT_TRUE(becomes([&] { return told(expected); })) << button;
        EXPECT_EQ(SendMessageW(control, BM_GETCHECK, 0, 0), BST_UNCHECKED);
    }
}

TEST_F(Win32Window, BeforeTurnsTheMicrophonesEffectsOffAndBackOn)
{
    ControlClient().update([](SettingsRecord& changed) {
        changed.MicNR = 1;
        changed.noiseGate = 60;
        changed.Reverb = 99;
    });
    ASSERT_TRUE(becomes([&] { return SendMessageW(child(WC_BUTTONW, "&Noise reduction"), BM_GETCHECK, 0, 0) == BST_CHECKED; }));
    turnTo(1);
    const HWND before = child(WC_BUTTONW, "B&efore: without the three above");
    SendMessageW(before, BM_CLICK, 0, 0);
    EXPECT_TRUE(becomes([&] { return settings().MicNR == 0 && settings().noiseGate == 0; }));
    EXPECT_EQ(settings().Reverb, 99U);
    SendMessageW(before, BM_CLICK, 0, 0);
    EXPECT_TRUE(becomes([&] { return settings().MicNR == 1 && settings().noiseGate == 60; }));
}

TEST_F(Win32Window, TellsHowLateTheVoiceIsAndWhatTheStreamIs)
{
    const auto shown = [&](const std::string& expected) {
        for (HWND each = nullptr; (each = FindWindowExW(panel->handle(), each, WC_STATICW, nullptr)) != nullptr;)
            if (text(each) == expected)
                return true;
        return false;
    };
    EXPECT_TRUE(becomes([&] { return shown("Running at 48000 Hz, channel mask 0x63F"); }));
    EXPECT_TRUE(becomes([&] { return shown("The effect makes your voice no later."); }));
    ControlClient().update([](SettingsRecord& changed) { changed.MicNR = 1; });
    EXPECT_TRUE(becomes([&] { return shown("Noise reduction makes your voice 16.3 ms late."); })); // 782 samples
    effect->writeActiveFormat(0x4, 16000);
    EXPECT_TRUE(becomes([&] { return shown("Noise reduction makes your voice 26.9 ms late."); })); // 431 samples
    EXPECT_TRUE(becomes([&] { return shown("Running at 16000 Hz, a microphone's stream"); }));
}

// As the system's interface for screen readers tells it. Wine's takes no words of a program's own: there a fader's value is what
// the box beside it says, and a box of text without a label ahead of it, the one about what runs, has no name.
TEST_F(Win32Window, EveryControlHasANameAndEveryFaderItsValueAndUnit)
{
    drag(fader("Equaliser at 1000 Hz"), -127);
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    const auto told = [](HWND control, HRESULT (IAccessible::*what)(VARIANT, BSTR*)) {
        IAccessible* object = nullptr;
        std::string narrow;
        if (FAILED(AccessibleObjectFromWindow(control, static_cast<DWORD>(OBJID_CLIENT), IID_IAccessible,
                                              reinterpret_cast<void**>(&object))))
            return narrow;
        VARIANT self{};
        self.vt = VT_I4;
        BSTR words = nullptr;
        if (SUCCEEDED((object->*what)(self, &words)) && words != nullptr)
            for (const wchar_t* each = words; *each != L'\0'; ++each)
                narrow += static_cast<char>(*each);
        SysFreeString(words);
        object->Release();
        return narrow;
    };
    IAccPropServices* services = nullptr;
    ASSERT_TRUE(SUCCEEDED(CoCreateInstance(CLSID_AccPropServices, nullptr, CLSCTX_INPROC_SERVER, IID_IAccPropServices,
                                           reinterpret_cast<void**>(&services))));
    const bool known = SUCCEEDED(services->SetHwndPropStr(panel->handle(), static_cast<DWORD>(OBJID_CLIENT), CHILDID_SELF,
                                                          PROPID_ACC_DESCRIPTION, L"of the program's own"));
    services->Release();
    const HWND lastBox = lastOf(WC_EDITW);
    int controls = 0;
    for (HWND each = GetWindow(panel->handle(), GW_CHILD); each != nullptr; each = GetWindow(each, GW_HWNDNEXT)) {
        if ((GetWindowLongW(each, GWL_STYLE) & WS_TABSTOP) == 0)
            continue;
        ++controls;
        if (known || each != lastBox) {
            EXPECT_FALSE(told(each, &IAccessible::get_accName).empty()) << controls << ' ' << text(each);
        }
    }
    EXPECT_GE(controls, 6 + 2 * 11 + 6 + 5 + 1); // head, sliders with numbers, speakers, microphone, what runs
    EXPECT_EQ(told(fader("Equaliser at 1000 Hz"), &IAccessible::get_accName), "Equaliser at 1000 Hz");
    EXPECT_EQ(text(boxOf(fader("Equaliser at 1000 Hz"))), "+6.0 dB");
    if (known) {
        EXPECT_EQ(told(fader("Equaliser at 1000 Hz"), &IAccessible::get_accValue), "+6.0 dB");
    }
    CoUninitialize();
}

TEST_F(Win32Window, HasRoomForAllInASmallWindowAndAtTwiceTheScale)
{
    SetWindowSubclass(panel->handle(), letGrow, 0, 0);
    SetWindowPos(panel->handle(), nullptr, 0, 0, 800, 500, SWP_NOMOVE | SWP_NOZORDER);
    for (int page = 0; page < 3; ++page) {
        turnTo(page);
        expectRoomForAll();
    }
    const RECT wanted{0, 0, 1600, 1000};
    SendMessageW(panel->handle(), WM_DPICHANGED, MAKEWPARAM(192, 192), reinterpret_cast<LPARAM>(&wanted));
    RECT got{};
    GetWindowRect(panel->handle(), &got);
    ASSERT_EQ(got.right - got.left, 1600);
    for (int page = 0; page < 3; ++page) {
        turnTo(page);
        expectRoomForAll();
    }
    RECT button{};
    GetWindowRect(child(WC_BUTTONW, "&Bypass"), &button);
    EXPECT_EQ(button.bottom - button.top, 60); // 30 at 96 dots an inch
}

TEST_F(Win32Window, EachBoxHasRoomForItsWidestNumber)
{
    const auto expectRoom = [&](const std::string& when) {
        for (const SettingsField& field : settingsFields()) {
            const std::string name = field.name;
            HWND slider = nullptr;
            if (name.starts_with("EQBand"))
                slider = fader("Equaliser at " +
                               std::to_string(std::lround(std::ceil(62.5 * std::exp2(std::stoi(name.substr(6)) - 1)))) + " Hz");
            else if (name == "Reverb" || name == "noiseGate")
                slider = fader(name == "Reverb" ? "Reverb" : "Noise gate, opens at");
            else
                continue;
            const HWND box = boxOf(slider);
            const HDC dc = GetDC(box);
            const HGDIOBJ before = SelectObject(dc, reinterpret_cast<HGDIOBJ>(SendMessageW(box, WM_GETFONT, 0, 0)));
            RECT room{};
            SendMessageW(box, EM_GETRECT, 0, reinterpret_cast<LPARAM>(&room));
            for (std::int64_t value = field.low; value <= field.high; ++value) {
                const std::string shown = shownText(field, value);
                SIZE needed{};
                GetTextExtentPoint32A(dc, shown.c_str(), static_cast<int>(shown.size()), &needed);
                EXPECT_LE(needed.cx, room.right - room.left) << when << ' ' << name << ' ' << shown;
                EXPECT_LE(needed.cy, room.bottom - room.top) << when << ' ' << name << ' ' << shown;
            }
            SelectObject(dc, before);
            ReleaseDC(box, dc);
        }
    };
    expectRoom("at first");
    SetWindowPos(panel->handle(), nullptr, 0, 0, 800, 500, SWP_NOMOVE | SWP_NOZORDER);
    expectRoom("small");
    SetWindowSubclass(panel->handle(), letGrow, 0, 0);
    const RECT wanted{0, 0, 1600, 1000};
    SendMessageW(panel->handle(), WM_DPICHANGED, MAKEWPARAM(192, 192), reinterpret_cast<LPARAM>(&wanted));
    expectRoom("at twice the scale");
}

// As far as a pen of two pixels and the rounding to whole ones let it be: the curve's course over the neighbouring columns, two
// pixels up and down.
TEST_F(Win32Window, ThePaintedCurveIsTheComputedOne)
{
    std::array<std::int64_t, 9> bands{};
    for (std::size_t band = 0; band < bands.size(); ++band) {
        bands.at(band) = band % 2 == 0 ? 100 : -80;
        const double hz = 62.5 * std::pow(2.0, static_cast<double>(band));
        drag(fader("Equaliser at " + std::to_string(static_cast<int>(std::ceil(hz))) + " Hz"), static_cast<int>(-bands.at(band)));
    }
    ASSERT_TRUE(becomes([&] { return settings().EQBand.at(8) == 100; }));
    EqualizerCurve computed;
    computed.design(bands);
    const HWND canvas = child(L"QuorelCanvas", "Equaliser curve");
    RECT size{};
    GetClientRect(canvas, &size);
    const HDC screen = GetDC(canvas);
    const HDC dc = CreateCompatibleDC(screen);
    const HBITMAP picture = CreateCompatibleBitmap(screen, size.right, size.bottom);
    const HGDIOBJ before = SelectObject(dc, picture);
    SendMessageW(canvas, WM_PRINTCLIENT, reinterpret_cast<WPARAM>(dc), PRF_CLIENT);
    int met = 0;
    for (int x = 1; x + 1 < size.right; ++x) {
        double top = 1e9;
        double bottom = -1e9;
        for (double at = x - 1; at <= x + 1; at += 0.125) {
            const double y = equalizerScale.yOf(computed.curveDb(equalizerScale.hzAt(at, size.right)), size.bottom);
            top = std::min(top, y);
            bottom = std::max(bottom, y);
        }
        bool here = false;
        for (int y = 0; y < size.bottom; ++y)
            if (GetPixel(dc, x, y) == GetSysColor(COLOR_HIGHLIGHT)) {
                EXPECT_GE(y, top - 2) << x;
                EXPECT_LE(y, bottom + 2) << x;
                here = true;
            }
        met += here ? 1 : 0;
    }
    EXPECT_EQ(met, size.right - 2);
    SelectObject(dc, before);
    DeleteObject(picture);
    DeleteDC(dc);
    ReleaseDC(canvas, screen);
}

} // namespace
} // namespace quorel
