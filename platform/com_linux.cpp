// SPDX-License-Identifier: MIT
#include "platform/com_linux.h"

#include <cstdlib>

int StringFromGUID2(REFGUID guid, LPOLESTR text, int count)
{
    constexpr int length = 39; // 32 digits, four hyphens, two braces, the end mark
    if (text == nullptr || count < length)
        return 0;

    *text++ = u'{';
    const auto put = [&text](std::uint32_t value, int digits) {
        while (digits-- > 0)
            *text++ = static_cast<WCHAR>(u"0123456789ABCDEF"[(value >> (4 * digits)) & 15U]);
    };
    put(guid.Data1, 8);
    *text++ = u'-';
    put(guid.Data2, 4);
    *text++ = u'-';
    put(guid.Data3, 4);
    for (int i = 0; i < 8; ++i) {
        if (i == 0 || i == 2)
            *text++ = u'-';
        put(guid.Data4[i], 2);
    }
    *text++ = u'}';
    *text = u'\0';
    return length;
}

void* CoTaskMemAlloc(SIZE_T bytes)
{
    return std::malloc(bytes == 0 ? 1 : bytes);
}

void CoTaskMemFree(void* block)
{
    std::free(block);
}

HRESULT PropVariantClear(PROPVARIANT* value)
{
    if (value == nullptr)
        return S_OK;
    if (value->vt == VT_LPWSTR)
        CoTaskMemFree(value->pwszVal);
    *value = PROPVARIANT{};
    return S_OK;
}
