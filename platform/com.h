// SPDX-License-Identifier: MIT
// The component object model's vocabulary under its own names: GUID, HRESULT, IUnknown, the property store, wave formats,
// notifications, task memory. Windows has it in its headers; elsewhere our own declarations have the same names, layouts and
// order of operations, so that an object built on them can be driven in the same way.
//
// WCHAR holds a unit of UTF-16 on every system: wchar_t on Windows, char16_t elsewhere.
#pragma once

#ifdef _WIN32
#include "platform/com_windows.h"
#else
#include "platform/com_linux.h"
#endif
