// SPDX-License-Identifier: MIT
#include "platform/text_windows.h"

#include <initguid.h>

// The identifiers of the next header are defined here.
#include "panel/win32/names.h"

#include <oleacc.h>

namespace quorel {

AccessibleNames::AccessibleNames()
{
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    if (FAILED(CoCreateInstance(CLSID_AccPropServices, nullptr, CLSCTX_INPROC_SERVER, IID_IAccPropServices,
                                reinterpret_cast<void**>(&services))))
        services = nullptr;
}

AccessibleNames::~AccessibleNames()
{
    if (services != nullptr)
        services->Release();
    CoUninitialize();
}

void AccessibleNames::name(HWND control, const std::string& text)
{
    if (services != nullptr)
        services->SetHwndPropStr(control, static_cast<DWORD>(OBJID_CLIENT), CHILDID_SELF, PROPID_ACC_NAME,
                                 platform::wide(text).c_str());
}

void AccessibleNames::value(HWND control, const std::string& text)
{
    if (services != nullptr)
        services->SetHwndPropStr(control, static_cast<DWORD>(OBJID_CLIENT), CHILDID_SELF, PROPID_ACC_VALUE,
                                 platform::wide(text).c_str());
}

} // namespace quorel
