// SPDX-License-Identifier: MIT
// AccessibleNames tells screen readers what a control is called and what it stands at, in words, where the control itself tells
// only a number without a unit.
#pragma once

#include <string>
#include <windows.h>

struct IAccPropServices;

namespace quorel {

class AccessibleNames {
public:
    AccessibleNames(); // where the system has no such service the controls' own words remain
    ~AccessibleNames();
    AccessibleNames(const AccessibleNames&) = delete;
    AccessibleNames& operator=(const AccessibleNames&) = delete;

    void name(HWND control, const std::string& text);
    void value(HWND control, const std::string& text);

private:
    IAccPropServices* services = nullptr;
};

} // namespace quorel
