// SPDX-License-Identifier: MIT
// The vocabulary of platform/com.h, declared anew: as much of it as the effect and its tests use.
//
// An interface is a class of pure virtual operations without data; the compilers of both systems lay its virtual table out
// alike, one slot for each operation in the order of declaration.
#pragma once

#include <cstddef>
#include <cstdint>

using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using UINT = std::uint32_t;
using UINT32 = std::uint32_t;
using ULONG = std::uint32_t;
using UINT_PTR = std::uintptr_t;
using SIZE_T = std::size_t;
using BOOL = std::int32_t;
using FLOAT = float;
using HNSTIME = std::int64_t; // 100 ns
using HANDLE = void*;
using WCHAR = char16_t;
using LPWSTR = WCHAR*;
using LPOLESTR = WCHAR*;
using LPCWSTR = const WCHAR*;

inline constexpr BOOL FALSE = 0;
inline constexpr BOOL TRUE = 1;

// --- Results -----------------------------------------------------------------------------------------------------------

using HRESULT = std::int32_t; // negative: failure

inline constexpr HRESULT S_OK = 0;
inline constexpr HRESULT S_FALSE = 1;
inline constexpr HRESULT E_NOTIMPL = static_cast<HRESULT>(0x80004001);
inline constexpr HRESULT E_NOINTERFACE = static_cast<HRESULT>(0x80004002);
inline constexpr HRESULT E_POINTER = static_cast<HRESULT>(0x80004003);
inline constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005);
inline constexpr HRESULT E_UNEXPECTED = static_cast<HRESULT>(0x8000FFFF);
inline constexpr HRESULT E_OUTOFMEMORY = static_cast<HRESULT>(0x8007000E);
inline constexpr HRESULT E_INVALIDARG = static_cast<HRESULT>(0x80070057);
inline constexpr HRESULT CLASS_E_NOAGGREGATION = static_cast<HRESULT>(0x80040110);
inline constexpr HRESULT CLASS_E_CLASSNOTAVAILABLE = static_cast<HRESULT>(0x80040111);

constexpr bool SUCCEEDED(HRESULT result)
{
    return result >= 0;
}

constexpr bool FAILED(HRESULT result)
{
    return result < 0;
}

// A system's error code as a result; 0 is success.
constexpr HRESULT HRESULT_FROM_WIN32(std::int32_t error)
{
    return error <= 0 ? error : static_cast<HRESULT>((static_cast<std::uint32_t>(error) & 0xFFFFU) | 0x80070000U);
}

// --- Identifiers -------------------------------------------------------------------------------------------------------

struct GUID {
    std::uint32_t Data1;
    std::uint16_t Data2;
    std::uint16_t Data3;
    std::uint8_t Data4[8];

    friend bool operator==(const GUID&, const GUID&) = default;
};

using IID = GUID;
using CLSID = GUID;
using REFGUID = const GUID&;
using REFIID = const IID&;
using REFCLSID = const CLSID&;

struct PROPERTYKEY {
    GUID fmtid;
    DWORD pid;
};
using REFPROPERTYKEY = const PROPERTYKEY&;

// "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}" and its end mark, in upper case; 39, or 0 when `count` units don't hold them.
extern "C" int StringFromGUID2(REFGUID guid, LPOLESTR text, int count);

// --- Memory that changes its owner across an interface -----------------------------------------------------------------

extern "C" void* CoTaskMemAlloc(SIZE_T bytes);
extern "C" void CoTaskMemFree(void* block);

// --- Interfaces --------------------------------------------------------------------------------------------------------

struct IUnknown {
    virtual HRESULT QueryInterface(REFIID id, void** object) = 0;
    virtual ULONG AddRef() = 0;
    virtual ULONG Release() = 0;

protected:
    ~IUnknown() = default;
};

struct IClassFactory : IUnknown {
    virtual HRESULT CreateInstance(IUnknown* outer, REFIID id, void** object) = 0;
    virtual HRESULT LockServer(BOOL lock) = 0;
};

// --- Properties --------------------------------------------------------------------------------------------------------

using VARTYPE = std::uint16_t;
inline constexpr VARTYPE VT_EMPTY = 0;
inline constexpr VARTYPE VT_UI4 = 19;
inline constexpr VARTYPE VT_LPWSTR = 31;

struct PROPVARIANT {
    VARTYPE vt;
    WORD wReserved1;
    WORD wReserved2;
    WORD wReserved3;
    union {
        ULONG ulVal;
        LPWSTR pwszVal; // task memory
        std::uint64_t widest[2];
    };
};

// Releases what the value owns and makes it VT_EMPTY.
extern "C" HRESULT PropVariantClear(PROPVARIANT* value);

struct IPropertyStore : IUnknown {
    virtual HRESULT GetCount(DWORD* count) = 0;
    virtual HRESULT GetAt(DWORD index, PROPERTYKEY* key) = 0;
    virtual HRESULT GetValue(REFPROPERTYKEY key, PROPVARIANT* value) = 0;
    virtual HRESULT SetValue(REFPROPERTYKEY key, const PROPVARIANT& value) = 0;
    virtual HRESULT Commit() = 0;
};

// --- Devices -----------------------------------------------------------------------------------------------------------

enum EDataFlow : std::int32_t { eRender, eCapture, eAll };
enum ERole : std::int32_t { eConsole, eMultimedia, eCommunications };

struct IMMDevice;

struct IMMDeviceCollection : IUnknown {
    virtual HRESULT GetCount(UINT* count) = 0;
    virtual HRESULT Item(UINT index, IMMDevice** device) = 0;
};

struct IMMNotificationClient : IUnknown {
    virtual HRESULT OnDeviceStateChanged(LPCWSTR device, DWORD state) = 0;
    virtual HRESULT OnDeviceAdded(LPCWSTR device) = 0;
    virtual HRESULT OnDeviceRemoved(LPCWSTR device) = 0;
    virtual HRESULT OnDefaultDeviceChanged(EDataFlow flow, ERole role, LPCWSTR device) = 0;
    virtual HRESULT OnPropertyValueChanged(LPCWSTR device, const PROPERTYKEY key) = 0;
};

// --- Wave formats ------------------------------------------------------------------------------------------------------

inline constexpr WORD WAVE_FORMAT_PCM = 1;
inline constexpr WORD WAVE_FORMAT_IEEE_FLOAT = 3;
inline constexpr WORD WAVE_FORMAT_EXTENSIBLE = 0xFFFE;

#pragma pack(push, 1)
struct WAVEFORMATEX {
    WORD wFormatTag;
    WORD nChannels;
    DWORD nSamplesPerSec;
    DWORD nAvgBytesPerSec;
    WORD nBlockAlign;
    WORD wBitsPerSample;
    WORD cbSize; // bytes that follow
};

struct WAVEFORMATEXTENSIBLE {
    WAVEFORMATEX Format;
    union {
        WORD wValidBitsPerSample;
        WORD wSamplesPerBlock;
        WORD wReserved;
    } Samples;
    DWORD dwChannelMask;
    GUID SubFormat;
};
#pragma pack(pop)

// --- One block of a connection -----------------------------------------------------------------------------------------

enum APO_BUFFER_FLAGS : std::int32_t { BUFFER_INVALID = 0, BUFFER_VALID = 1, BUFFER_SILENT = 2 };

struct APO_CONNECTION_PROPERTY {
    UINT_PTR pBuffer;
    UINT32 u32ValidFrameCount;
    APO_BUFFER_FLAGS u32BufferFlags;
    UINT32 u32Signature;
};
