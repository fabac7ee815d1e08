// SPDX-License-Identifier: MIT
// Status is what every kernel returns: zero for success, negative for an error, positive for a warning.
//
// The numbers and names are those of the flat kernel layer; `statusText` turns one into the other. Call sites treat
// every value but zero as failure, warnings included: `check()` throws the status as `ipps::Error`.
#pragma once

#include <cstdint>
#include <exception>

namespace quorel {

enum [[nodiscard]] Status : std::int32_t{
#define QUOREL_STATUS(number, name) name = (number),
#include "core/status_names.inc"
#undef QUOREL_STATUS
};

// The name of a status, "Unknown IPP Error!" for a number that has none. A string constant.
const char* statusText(Status status) noexcept;

namespace ipps {

// Carries the status of a failed kernel. Throwing, copying and reading it allocates no text.
class Error : public std::exception {
public:
    explicit Error(Status status) noexcept : status(status) {}

    const char* what() const noexcept override { return statusText(status); }

    Status status;
};

} // namespace ipps

inline void check(Status status)
{
    if (status != ippStsNoErr)
        throw ipps::Error(status);
}

} // namespace quorel
