// SPDX-License-Identifier: MIT
// What an audio engine and an audio processing object say to each other: interfaces, records, flags and results, under the
// platform's names, for every system. Order of operations, sizes and offsets are a binary contract and checked below.
//
// Formats reach the object as media types of the caller's: no pointer to one is kept past a call without AddRef. What
// GetEffectsList and GetRegistrationProperties give is task memory that the caller frees.
#pragma once

#include "platform/com.h"

#include <cstddef>

namespace quorel {

// --- Identifiers -------------------------------------------------------------------------------------------------------
// Values, not the declarations of a system's library: an identifier here needs nothing to link.

inline constexpr IID IID_IUnknown = {0x00000000, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
inline constexpr IID IID_IClassFactory = {0x00000001, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
inline constexpr IID IID_IAudioMediaType = {0x4E997F73, 0xB71F, 0x4798, {0x87, 0x3B, 0xED, 0x7D, 0xFC, 0xF1, 0x5B, 0x4D}};
inline constexpr IID IID_IAudioProcessingObject = {0xFD7F2B29, 0x24D0, 0x4B5C, {0xB1, 0x77, 0x59, 0x2C, 0x39, 0xF9, 0xCA, 0x10}};
inline constexpr IID IID_IAudioProcessingObjectRT = {
    0x9E1D6A6D, 0xDDBC, 0x4E95, {0xA4, 0xC7, 0xAD, 0x64, 0xBA, 0x37, 0x84, 0x6C}};
inline constexpr IID IID_IAudioProcessingObjectConfiguration = {
    0x0E5ED805, 0xABA6, 0x49C3, {0x8F, 0x9A, 0x2B, 0x8C, 0x88, 0x9C, 0x4F, 0xA8}};
inline constexpr IID IID_IAudioSystemEffects = {0x5FA00F27, 0xADD6, 0x499A, {0x8A, 0x9D, 0x6B, 0x98, 0x52, 0x1F, 0xA7, 0x5B}};
inline constexpr IID IID_IAudioSystemEffects2 = {0xBAFE99D2, 0x7436, 0x44CE, {0x9E, 0x0E, 0x4D, 0x89, 0xAF, 0xBF, 0xFF, 0x56}};
inline constexpr IID IID_IMMNotificationClient = {0x7991EEC9, 0x7E89, 0x4D85, {0x83, 0x90, 0x6C, 0x70, 0x3C, 0xEC, 0x60, 0xC0}};
inline constexpr IID IID_IPropertyStore = {0x886D8EEB, 0x8CF2, 0x4446, {0x8D, 0x02, 0xCD, 0xBA, 0x1D, 0xBD, 0xCF, 0x99}};
inline constexpr IID IID_IMMDeviceCollection = {0x0BD7A1BE, 0x7A1A, 0x44DB, {0x83, 0x97, 0xCC, 0x53, 0x92, 0x38, 0x7B, 0x5E}};

inline constexpr GUID KSDATAFORMAT_SUBTYPE_PCM = {0x00000001, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};
inline constexpr GUID KSDATAFORMAT_SUBTYPE_IEEE_FLOAT = {
    0x00000003, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};
inline constexpr GUID AUDIO_SIGNALPROCESSINGMODE_DEFAULT = {
    0xC18E2F7E, 0x933D, 0x4965, {0xB7, 0xD1, 0x1E, 0xEF, 0x22, 0x8D, 0x2A, 0xF3}};
inline constexpr GUID AUDIO_SIGNALPROCESSINGMODE_RAW = {
    0x9E90EA20, 0xB493, 0x4FD1, {0xA1, 0xA8, 0x7E, 0x13, 0x61, 0xA9, 0x56, 0xCF}};
inline constexpr GUID AUDIO_SIGNALPROCESSINGMODE_COMMUNICATIONS = {
    0x98951333, 0xB9CD, 0x48B1, {0xA0, 0xA3, 0xFF, 0x40, 0x68, 0x2D, 0x73, 0xF7}};
inline constexpr GUID AUDIO_EFFECT_TYPE_EQUALIZER = {
    0x6F64ADC3, 0x8211, 0x11E2, {0x8C, 0x70, 0x2C, 0x27, 0xD7, 0xF0, 0x01, 0xFA}};

// An endpoint's own identifier: a VT_LPWSTR, "{...}" with braces.
inline constexpr PROPERTYKEY PKEY_AudioEndpoint_GUID = {
    {0x1DA5D803, 0xD492, 0x4EDD, {0x8C, 0x23, 0xE0, 0xC0, 0xFF, 0xEE, 0x7F, 0x0E}}, 4};

// --- Results -----------------------------------------------------------------------------------------------------------

inline constexpr HRESULT APOERR_ALREADY_INITIALIZED = static_cast<HRESULT>(0x887D0001);
inline constexpr HRESULT APOERR_NOT_INITIALIZED = static_cast<HRESULT>(0x887D0002);
inline constexpr HRESULT APOERR_FORMAT_NOT_SUPPORTED = static_cast<HRESULT>(0x887D0003);
inline constexpr HRESULT APOERR_INVALID_APO_CLSID = static_cast<HRESULT>(0x887D0004);
inline constexpr HRESULT APOERR_BUFFERS_OVERLAP = static_cast<HRESULT>(0x887D0005);
inline constexpr HRESULT APOERR_ALREADY_UNLOCKED = static_cast<HRESULT>(0x887D0006);
inline constexpr HRESULT APOERR_NUM_CONNECTIONS_INVALID = static_cast<HRESULT>(0x887D0007);
inline constexpr HRESULT APOERR_INVALID_OUTPUT_MAXFRAMECOUNT = static_cast<HRESULT>(0x887D0008);
inline constexpr HRESULT APOERR_INVALID_CONNECTION_FORMAT = static_cast<HRESULT>(0x887D0009);
inline constexpr HRESULT APOERR_APO_LOCKED = static_cast<HRESULT>(0x887D000A);

// --- Formats -----------------------------------------------------------------------------------------------------------

inline constexpr FLOAT lowestFrameRate = 10.0F;      // frames per second that an engine handles
inline constexpr FLOAT highestFrameRate = 384000.0F; // the same
inline constexpr DWORD fewestChannels = 1;
inline constexpr DWORD mostChannels = 4096;

struct UNCOMPRESSEDAUDIOFORMAT {
    GUID guidFormatType;
    DWORD dwSamplesPerFrame;         // channels
    DWORD dwBytesPerSampleContainer; // of one sample
    DWORD dwValidBitsPerSample;
    FLOAT fFramesPerSecond;
    DWORD dwChannelMask; // speakers
};

// How far two media types agree.
inline constexpr DWORD AUDIOMEDIATYPE_EQUAL_FORMAT_TYPES = 2;
inline constexpr DWORD AUDIOMEDIATYPE_EQUAL_FORMAT_DATA = 4;
inline constexpr DWORD AUDIOMEDIATYPE_EQUAL_FORMAT_USER_DATA = 8;

struct IAudioMediaType : IUnknown {
    virtual HRESULT IsCompressedFormat(BOOL* compressed) = 0;
    virtual HRESULT IsEqual(IAudioMediaType* other, DWORD* flags) = 0; // S_FALSE when they differ
    virtual const WAVEFORMATEX* GetAudioFormat() = 0;                  // lives as long as the media type
    virtual HRESULT GetUncompressedAudioFormat(UNCOMPRESSEDAUDIOFORMAT* format) = 0;

protected:
    ~IAudioMediaType() = default;
};

// --- Connections -------------------------------------------------------------------------------------------------------

inline constexpr UINT32 APO_CONNECTION_DESCRIPTOR_SIGNATURE = 0x41434453; // 'ACDS'
inline constexpr UINT32 APO_CONNECTION_PROPERTY_SIGNATURE = 0x41435053;   // 'ACPS'

enum APO_CONNECTION_BUFFER_TYPE : int {
    APO_CONNECTION_BUFFER_TYPE_ALLOCATED = 0,
    APO_CONNECTION_BUFFER_TYPE_EXTERNAL = 1,
    APO_CONNECTION_BUFFER_TYPE_DEPENDANT = 2
};

struct APO_CONNECTION_DESCRIPTOR {
    APO_CONNECTION_BUFFER_TYPE Type;
    UINT_PTR pBuffer;
    UINT32 u32MaxFrameCount;
    IAudioMediaType* pFormat;
    UINT32 u32Signature;
};

// --- What an object says of itself -------------------------------------------------------------------------------------

enum APO_FLAG : int {
    APO_FLAG_NONE = 0,
    APO_FLAG_INPLACE = 1,
    APO_FLAG_SAMPLESPERFRAME_MUST_MATCH = 2,
    APO_FLAG_FRAMESPERSECOND_MUST_MATCH = 4,
    APO_FLAG_BITSPERSAMPLE_MUST_MATCH = 8,
    APO_FLAG_MIXER = 0x10,
    APO_FLAG_DEFAULT = 0xE
};

struct APO_REG_PROPERTIES {
    CLSID clsid;
    APO_FLAG Flags;
    WCHAR szFriendlyName[256];
    WCHAR szCopyrightInfo[256];
    UINT32 u32MajorVersion;
    UINT32 u32MinorVersion;
    UINT32 u32MinInputConnections;
    UINT32 u32MaxInputConnections;
    UINT32 u32MinOutputConnections;
    UINT32 u32MaxOutputConnections;
    UINT32 u32MaxInstances;
    UINT32 u32NumAPOInterfaces;
    IID iidAPOInterfaceList[1]; // u32NumAPOInterfaces of them
};

// --- What an object is initialised with --------------------------------------------------------------------------------

struct APOInitBaseStruct {
    UINT32 cbSize;
    CLSID clsid;
};

struct APOInitSystemEffects {
    APOInitBaseStruct APOInit;
    IPropertyStore* pAPOEndpointProperties;
    IPropertyStore* pAPOSystemEffectsProperties;
    void* pReserved;
    IMMDeviceCollection* pDeviceCollection;
};

struct APOInitSystemEffects2 {
    APOInitBaseStruct APOInit;
    IPropertyStore* pAPOEndpointProperties;
    IPropertyStore* pAPOSystemEffectsProperties;
    void* pReserved;
    IMMDeviceCollection* pDeviceCollection;
    UINT nSoftwareIoDeviceInCollection;
    UINT nSoftwareIoConnectorIndex;
    GUID AudioProcessingMode;
    BOOL InitializeForDiscoveryOnly;
};

// --- The object --------------------------------------------------------------------------------------------------------

struct IAudioProcessingObject : IUnknown {
    virtual HRESULT Reset() = 0;
    virtual HRESULT GetLatency(HNSTIME* time) = 0;
    virtual HRESULT GetRegistrationProperties(APO_REG_PROPERTIES** properties) = 0;
    virtual HRESULT Initialize(UINT32 size, BYTE* data) = 0;
    virtual HRESULT IsInputFormatSupported(IAudioMediaType* opposite, IAudioMediaType* requested,
                                           IAudioMediaType** supported) = 0;
    virtual HRESULT IsOutputFormatSupported(IAudioMediaType* opposite, IAudioMediaType* requested,
                                            IAudioMediaType** supported) = 0;
    virtual HRESULT GetInputChannelCount(UINT32* count) = 0;

protected:
    ~IAudioProcessingObject() = default;
};

struct IAudioProcessingObjectRT : IUnknown {
    virtual void APOProcess(UINT32 inCount, APO_CONNECTION_PROPERTY** inConnections, UINT32 outCount,
                            APO_CONNECTION_PROPERTY** outConnections) = 0;
    virtual UINT32 CalcInputFrames(UINT32 frames) = 0;
    virtual UINT32 CalcOutputFrames(UINT32 frames) = 0;

protected:
    ~IAudioProcessingObjectRT() = default;
};

struct IAudioProcessingObjectConfiguration : IUnknown {
    virtual HRESULT LockForProcess(UINT32 inCount, APO_CONNECTION_DESCRIPTOR** inConnections, UINT32 outCount,
                                   APO_CONNECTION_DESCRIPTOR** outConnections) = 0;
    virtual HRESULT UnlockForProcess() = 0;

protected:
    ~IAudioProcessingObjectConfiguration() = default;
};

struct IAudioSystemEffects : IUnknown {
protected:
    ~IAudioSystemEffects() = default;
};

struct IAudioSystemEffects2 : IAudioSystemEffects {
    virtual HRESULT GetEffectsList(GUID** effects, UINT* count, HANDLE event) = 0;

protected:
    ~IAudioSystemEffects2() = default;
};

// ---------------------------------------------------------------------------------------------------------------------

static_assert(sizeof(void*) == 8);
static_assert(sizeof(GUID) == 16 && alignof(GUID) == 4);
static_assert(sizeof(WCHAR) == 2);
static_assert(sizeof(HRESULT) == 4 && sizeof(BOOL) == 4 && sizeof(DWORD) == 4 && sizeof(ULONG) == 4 && sizeof(HNSTIME) == 8);

static_assert(sizeof(UNCOMPRESSEDAUDIOFORMAT) == 36);
static_assert(offsetof(UNCOMPRESSEDAUDIOFORMAT, guidFormatType) == 0);
static_assert(offsetof(UNCOMPRESSEDAUDIOFORMAT, dwSamplesPerFrame) == 16);
static_assert(offsetof(UNCOMPRESSEDAUDIOFORMAT, dwBytesPerSampleContainer) == 20);
static_assert(offsetof(UNCOMPRESSEDAUDIOFORMAT, dwValidBitsPerSample) == 24);
static_assert(offsetof(UNCOMPRESSEDAUDIOFORMAT, fFramesPerSecond) == 28);
static_assert(offsetof(UNCOMPRESSEDAUDIOFORMAT, dwChannelMask) == 32);

static_assert(sizeof(APO_CONNECTION_DESCRIPTOR) == 40);
static_assert(offsetof(APO_CONNECTION_DESCRIPTOR, Type) == 0);
static_assert(offsetof(APO_CONNECTION_DESCRIPTOR, pBuffer) == 8);
static_assert(offsetof(APO_CONNECTION_DESCRIPTOR, u32MaxFrameCount) == 16);
static_assert(offsetof(APO_CONNECTION_DESCRIPTOR, pFormat) == 24);
static_assert(offsetof(APO_CONNECTION_DESCRIPTOR, u32Signature) == 32);

static_assert(sizeof(APO_CONNECTION_PROPERTY) == 24);
static_assert(offsetof(APO_CONNECTION_PROPERTY, pBuffer) == 0);
static_assert(offsetof(APO_CONNECTION_PROPERTY, u32ValidFrameCount) == 8);
static_assert(offsetof(APO_CONNECTION_PROPERTY, u32BufferFlags) == 12);
static_assert(offsetof(APO_CONNECTION_PROPERTY, u32Signature) == 16);

static_assert(sizeof(APO_REG_PROPERTIES) == 1092);
static_assert(offsetof(APO_REG_PROPERTIES, clsid) == 0);
static_assert(offsetof(APO_REG_PROPERTIES, Flags) == 16);
static_assert(offsetof(APO_REG_PROPERTIES, szFriendlyName) == 20);
static_assert(offsetof(APO_REG_PROPERTIES, szCopyrightInfo) == 532);
static_assert(offsetof(APO_REG_PROPERTIES, u32MajorVersion) == 1044);
static_assert(offsetof(APO_REG_PROPERTIES, u32MinorVersion) == 1048);
static_assert(offsetof(APO_REG_PROPERTIES, u32MinInputConnections) == 1052);
static_assert(offsetof(APO_REG_PROPERTIES, u32MaxInputConnections) == 1056);
static_assert(offsetof(APO_REG_PROPERTIES, u32MinOutputConnections) == 1060);
static_assert(offsetof(APO_REG_PROPERTIES, u32MaxOutputConnections) == 1064);
static_assert(offsetof(APO_REG_PROPERTIES, u32MaxInstances) == 1068);
static_assert(offsetof(APO_REG_PROPERTIES, u32NumAPOInterfaces) == 1072);
static_assert(offsetof(APO_REG_PROPERTIES, iidAPOInterfaceList) == 1076);

static_assert(sizeof(APOInitBaseStruct) == 20);
static_assert(offsetof(APOInitBaseStruct, cbSize) == 0);
static_assert(offsetof(APOInitBaseStruct, clsid) == 4);

static_assert(sizeof(APOInitSystemEffects) == 56);
static_assert(offsetof(APOInitSystemEffects, APOInit) == 0);
static_assert(offsetof(APOInitSystemEffects, pAPOEndpointProperties) == 24);
static_assert(offsetof(APOInitSystemEffects, pAPOSystemEffectsProperties) == 32);
static_assert(offsetof(APOInitSystemEffects, pReserved) == 40);
static_assert(offsetof(APOInitSystemEffects, pDeviceCollection) == 48);

static_assert(sizeof(APOInitSystemEffects2) == 88);
static_assert(offsetof(APOInitSystemEffects2, pAPOEndpointProperties) == 24);
static_assert(offsetof(APOInitSystemEffects2, pAPOSystemEffectsProperties) == 32);
static_assert(offsetof(APOInitSystemEffects2, pReserved) == 40);
static_assert(offsetof(APOInitSystemEffects2, pDeviceCollection) == 48);
static_assert(offsetof(APOInitSystemEffects2, nSoftwareIoDeviceInCollection) == 56);
static_assert(offsetof(APOInitSystemEffects2, nSoftwareIoConnectorIndex) == 60);
static_assert(offsetof(APOInitSystemEffects2, AudioProcessingMode) == 64);
static_assert(offsetof(APOInitSystemEffects2, InitializeForDiscoveryOnly) == 80);

static_assert(sizeof(PROPERTYKEY) == 20 && offsetof(PROPERTYKEY, pid) == 16);
static_assert(sizeof(PROPVARIANT) == 24 && offsetof(PROPVARIANT, vt) == 0 && offsetof(PROPVARIANT, pwszVal) == 8);

static_assert(sizeof(WAVEFORMATEX) == 18);
static_assert(offsetof(WAVEFORMATEX, nChannels) == 2);
static_assert(offsetof(WAVEFORMATEX, nSamplesPerSec) == 4);
static_assert(offsetof(WAVEFORMATEX, nAvgBytesPerSec) == 8);
static_assert(offsetof(WAVEFORMATEX, nBlockAlign) == 12);
static_assert(offsetof(WAVEFORMATEX, wBitsPerSample) == 14);
static_assert(offsetof(WAVEFORMATEX, cbSize) == 16);

static_assert(sizeof(WAVEFORMATEXTENSIBLE) == 40);
static_assert(offsetof(WAVEFORMATEXTENSIBLE, Samples) == 18);
static_assert(offsetof(WAVEFORMATEXTENSIBLE, dwChannelMask) == 20);
static_assert(offsetof(WAVEFORMATEXTENSIBLE, SubFormat) == 24);

} // namespace quorel
