// SPDX-License-Identifier: MIT
// quorel-panel.exe: the effects' settings, levels and responses in a window.
#include "panel/win32/window.h"

#include <clocale>
#include <exception>

int WINAPI wWinMain(HINSTANCE, HINSTANCE, PWSTR, int show)
{
    try {
        std::setlocale(LC_ALL, "C"); // settings' texts have a point
        quorel::PanelWindow window;
        ShowWindow(window.handle(), show);
        MSG message{};
        while (GetMessageW(&message, nullptr, 0, 0) > 0)
            if (!window.translate(message)) {
                TranslateMessage(&message);
                DispatchMessageW(&message);
            }
        return 0;
    } catch (const std::exception& error) {
        MessageBoxA(nullptr, error.what(), "QUOREL", MB_OK | MB_ICONERROR);
        return 2;
    }
}
