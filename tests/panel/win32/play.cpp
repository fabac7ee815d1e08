// SPDX-License-Identifier: MIT
// What the panel plays on Windows, as a program: `play speakers` says the speakers' names and ends, `play late SECONDS` plays the
// microphone so late until it is ended. What fails is told, with 1 as exit code.
#include "panel/speaker_test.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <windows.h>

int main(int count, char** words)
{
    using quorel::platform::PlayedSound;
    auto sound = count > 2 && std::string(words[1]) == "late" ? PlayedSound::late("", std::atof(words[2]))
                                                              : PlayedSound::once(quorel::speakerTest(0), "");
    for (;;) {
        if (const auto trouble = sound.ended()) {
            std::printf("%s\n", trouble->c_str());
            return trouble->empty() ? 0 : 1;
        }
        Sleep(20);
    }
}
