// SPDX-License-Identifier: MIT
#include "host/media_type.h"

#include "host/com_object.h"

#include <atomic>
#include <cstring>
#include <new>

namespace quorel {

namespace {

constexpr DWORD bitsOfByte = 8;
constexpr WORD extraBytes = sizeof(WAVEFORMATEXTENSIBLE) - sizeof(WAVEFORMATEX);

// The fraction is dropped; what no DWORD holds gives 0.
DWORD wholeRate(FLOAT framesPerSecond)
{
    return framesPerSecond >= 0.0F && framesPerSecond < 0x1p32F ? static_cast<DWORD>(framesPerSecond) : 0;
}

class MediaType final : public IAudioMediaType {
public:
    explicit MediaType(const WAVEFORMATEXTENSIBLE& wave) noexcept : wave(wave) {}

    HRESULT QueryInterface(REFIID id, void** object) override;
    ULONG AddRef() override { return ++references; }
    ULONG Release() override;

    HRESULT IsCompressedFormat(BOOL* compressed) override;
    HRESULT IsEqual(IAudioMediaType* other, DWORD* flags) override;
    const WAVEFORMATEX* GetAudioFormat() override { return &wave.Format; }
    HRESULT GetUncompressedAudioFormat(UNCOMPRESSEDAUDIOFORMAT* format) override;

private:
    bool isUncompressed() const;

    const ModuleUse use;             // whoever holds it calls this module's code
    const WAVEFORMATEXTENSIBLE wave; // zeros behind a plain format
    std::atomic<ULONG> references{1};
};

bool isExtensible(const WAVEFORMATEX& wave)
{
    return wave.wFormatTag == WAVE_FORMAT_EXTENSIBLE && wave.cbSize >= extraBytes;
}

// The tag of a plain format takes the first field of a sub-format that is otherwise that of PCM.
GUID formatType(const WAVEFORMATEX& wave)
{
    if (isExtensible(wave))
        return reinterpret_cast<const WAVEFORMATEXTENSIBLE&>(wave).SubFormat;
    GUID type = KSDATAFORMAT_SUBTYPE_PCM;
    type.Data1 = wave.wFormatTag;
    return type;
}

bool MediaType::isUncompressed() const
{
    const GUID type = formatType(wave.Format);
    return type == KSDATAFORMAT_SUBTYPE_PCM || type == KSDATAFORMAT_SUBTYPE_IEEE_FLOAT;
}

HRESULT MediaType::QueryInterface(REFIID id, void** object)
{
    if (object == nullptr)
        return E_POINTER;
    *object = nullptr;
    if (!(id == IID_IUnknown) && !(id == IID_IAudioMediaType))
        return E_NOINTERFACE;
    AddRef();
    *object = static_cast<IAudioMediaType*>(this);
    return S_OK;
}

ULONG MediaType::Release()
{
    const ULONG left = --references;
    if (left == 0)
        delete this;
    return left;
}

HRESULT MediaType::IsCompressedFormat(BOOL* compressed)
{
    if (compressed == nullptr)
        return E_POINTER;
    *compressed = isUncompressed() ? FALSE : TRUE;
    return S_OK;
}

HRESULT MediaType::IsEqual(IAudioMediaType* other, DWORD* flags)
{
    if (other == nullptr || flags == nullptr)
        return E_POINTER;
    const WAVEFORMATEX& a = wave.Format;
    const WAVEFORMATEX* b = other->GetAudioFormat();
    if (b == nullptr)
        return E_INVALIDARG;

    *flags = 0;
    if (formatType(a) == formatType(*b))
        *flags |= AUDIOMEDIATYPE_EQUAL_FORMAT_TYPES;
    if (std::memcmp(&a, b, offsetof(WAVEFORMATEX, cbSize)) == 0)
        *flags |= AUDIOMEDIATYPE_EQUAL_FORMAT_DATA;
    if (a.cbSize == b->cbSize && std::memcmp(&a + 1, b + 1, a.cbSize) == 0)
        *flags |= AUDIOMEDIATYPE_EQUAL_FORMAT_USER_DATA;
    constexpr DWORD all =
        AUDIOMEDIATYPE_EQUAL_FORMAT_TYPES | AUDIOMEDIATYPE_EQUAL_FORMAT_DATA | AUDIOMEDIATYPE_EQUAL_FORMAT_USER_DATA;
    return *flags == all ? S_OK : S_FALSE;
}

HRESULT MediaType::GetUncompressedAudioFormat(UNCOMPRESSEDAUDIOFORMAT* format)
{
    if (format == nullptr)
        return E_POINTER;
    if (!isUncompressed())
        return E_FAIL;
    const bool extensible = isExtensible(wave.Format);
    format->guidFormatType = formatType(wave.Format);
    format->dwSamplesPerFrame = wave.Format.nChannels;
    format->dwBytesPerSampleContainer = wave.Format.nChannels == 0 ? 0U : wave.Format.nBlockAlign / DWORD{wave.Format.nChannels};
    format->dwValidBitsPerSample = extensible ? wave.Samples.wValidBitsPerSample : wave.Format.wBitsPerSample;
    format->fFramesPerSecond = static_cast<FLOAT>(wave.Format.nSamplesPerSec);
    format->dwChannelMask = extensible ? DWORD{wave.dwChannelMask} : 0U;
    return S_OK;
}

} // namespace

HRESULT CreateAudioMediaType(const WAVEFORMATEX* format, UINT32 size, IAudioMediaType** mediaType)
{
    if (format == nullptr || mediaType == nullptr)
        return E_POINTER;
    *mediaType = nullptr;
    if (size < sizeof(WAVEFORMATEX) || size != sizeof(WAVEFORMATEX) + format->cbSize || size > sizeof(WAVEFORMATEXTENSIBLE))
        return E_INVALIDARG;
    WAVEFORMATEXTENSIBLE wave{};
    std::memcpy(&wave, format, size);
    *mediaType = new (std::nothrow) MediaType(wave);
    return *mediaType != nullptr ? S_OK : E_OUTOFMEMORY;
}

HRESULT CreateAudioMediaTypeFromUncompressedAudioFormat(const UNCOMPRESSEDAUDIOFORMAT* format, IAudioMediaType** mediaType)
{
    if (format == nullptr || mediaType == nullptr)
        return E_POINTER;
    const DWORD containerBits = format->dwBytesPerSampleContainer * bitsOfByte;
    const bool isPcm = format->guidFormatType == KSDATAFORMAT_SUBTYPE_PCM;
    const bool isFloat = format->guidFormatType == KSDATAFORMAT_SUBTYPE_IEEE_FLOAT;
    const bool isPlain = format->dwSamplesPerFrame < 3 && format->dwValidBitsPerSample == containerBits && (isPcm || isFloat) &&
                         format->dwChannelMask == 0;

    WAVEFORMATEXTENSIBLE wave{};
    wave.Format.nChannels = static_cast<WORD>(format->dwSamplesPerFrame);
    wave.Format.wBitsPerSample = static_cast<WORD>(containerBits);
    wave.Format.nSamplesPerSec = wholeRate(format->fFramesPerSecond);
    wave.Format.nBlockAlign = static_cast<WORD>(format->dwBytesPerSampleContainer * format->dwSamplesPerFrame);
    wave.Format.nAvgBytesPerSec = wave.Format.nBlockAlign * wave.Format.nSamplesPerSec;
    if (isPlain) {
        wave.Format.wFormatTag = isPcm ? WAVE_FORMAT_PCM : WAVE_FORMAT_IEEE_FLOAT;
    } else {
        wave.Format.wFormatTag = WAVE_FORMAT_EXTENSIBLE;
        wave.Format.cbSize = extraBytes;
        wave.Samples.wValidBitsPerSample = static_cast<WORD>(format->dwValidBitsPerSample);
        wave.dwChannelMask = format->dwChannelMask;
        wave.SubFormat = format->guidFormatType;
    }
    return CreateAudioMediaType(&wave.Format, static_cast<UINT32>(sizeof(WAVEFORMATEX) + wave.Format.cbSize), mediaType);
}

} // namespace quorel
