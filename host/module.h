// SPDX-License-Identifier: MIT
// What the module exports, and nothing else.
#pragma once

#include "platform/com.h"

extern "C" {

// S_OK when no object, no factory and no lock needs the module any more, else S_FALSE.
HRESULT DllCanUnloadNow();

// The class factory of the effect. A null result pointer is refused before the class is looked at.
HRESULT DllGetClassObject(REFCLSID id, REFIID interfaceId, void** object);

// Enters the effect into the registry, and takes it out.
HRESULT DllRegisterServer();
HRESULT DllUnregisterServer();

// Shows the build identifier in a box above the window `owner`; the box's result.
int GetBuildInfo(void* owner);

// "$Build guid$: " and the build identifier, by which builds are told apart.
extern const char* const build_guid;
}
