// SPDX-License-Identifier: MIT
// Including this header gives a test program a home of its own from its start to its end.
#pragma once

#include "tests/support/temporary_home.h"

namespace quorel {

inline const TemporaryHome privateHome;

} // namespace quorel
