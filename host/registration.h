// SPDX-License-Identifier: MIT
// Entering the effect into the registry and taking it out again. An audio engine finds it by two entries below
// HKEY_CLASSES_ROOT: the engine's own list AudioEngine\AudioProcessingObjects, and the class by which it is created.
#pragma once

#include "host/audio_interfaces.h"

#include <string>
#include <string_view>

namespace quorel {

// The engine's list. An entry that is there is replaced. A failure may leave a part of the entry.
HRESULT registerWithEngine(const APO_REG_PROPERTIES* properties);
HRESULT unregisterFromEngine(REFCLSID id);

// Both entries. script: of the classes, with the replacements APPID and MODULE, the module's path. A failure takes the engine's
// entry out again, an earlier registration's as well: no engine finds the effect then. An earlier registration's class stays
// unless the failure came while the class was entered anew.
HRESULT registerServer(std::string_view script, const std::string& modulePath);
HRESULT unregisterServer(std::string_view script, const std::string& modulePath);

} // namespace quorel
