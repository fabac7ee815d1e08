// Texts are UTF-8 inside the effect; COM's are UTF-16.
#pragma once

#include "platform/com.h"

#include <string>

namespace quorel {

// Null gives an empty text. Half of a pair that stands alone becomes the replacement character.
std::string utf8(LPCWSTR text);

} // namespace quorel
