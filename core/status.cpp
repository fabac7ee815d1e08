// SPDX-License-Identifier: MIT
#include "core/status.h"

namespace quorel {

const char* statusText(Status status) noexcept
{
    switch (status) {
#define QUOREL_STATUS(number, name) \
    case name:                      \
        return #name;
#include "core/status_names.inc"
#undef QUOREL_STATUS
    }
    return "Unknown IPP Error!";
}

} // namespace quorel
