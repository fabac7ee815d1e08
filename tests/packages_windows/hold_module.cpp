// SPDX-License-Identifier: MIT
// hold_module MODULE: has the module loaded, as an audio engine has, until the file MODULE.release is there.
#include <windows.h>

#include <cstdio>
#include <string>

int main(int count, char** arguments)
{
    if (count != 2)
        return 2;
    const HMODULE module = LoadLibraryA(arguments[1]);
    if (module == nullptr)
        return 1;
    std::puts("held");
    std::fflush(stdout);
    const std::string release = std::string(arguments[1]) + ".release";
    while (GetFileAttributesA(release.c_str()) == INVALID_FILE_ATTRIBUTES)
        Sleep(50); // milliseconds
    FreeLibrary(module);
    return 0;
}
