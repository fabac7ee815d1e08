// SPDX-License-Identifier: MIT
#include "host/base_audio_processing_object.h"

#include "host/media_type.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <span>

namespace quorel {

namespace {

constexpr DWORD floatBytes = 4;
constexpr DWORD floatBits = 32;

// A media type for a question that a lock asks of its own object: whatever references the answer adds end with the question,
// and the caller's media type keeps its count.
class BorrowedFormat final : public IAudioMediaType {
public:
    explicit BorrowedFormat(IAudioMediaType* lender) noexcept : lender(lender) {}

    // Null stands for null.
    IAudioMediaType* get() noexcept { return lender != nullptr ? this : nullptr; }

    HRESULT QueryInterface(REFIID id, void** object) override { return lender->QueryInterface(id, object); }
    ULONG AddRef() override { return 1; }
    ULONG Release() override { return 1; }

    HRESULT IsCompressedFormat(BOOL* compressed) override { return lender->IsCompressedFormat(compressed); }
    HRESULT IsEqual(IAudioMediaType* other, DWORD* flags) override { return lender->IsEqual(other, flags); }
    const WAVEFORMATEX* GetAudioFormat() override { return lender->GetAudioFormat(); }
    HRESULT GetUncompressedAudioFormat(UNCOMPRESSEDAUDIOFORMAT* format) override
    {
        return lender->GetUncompressedAudioFormat(format);
    }

private:
    IAudioMediaType* lender;
};

} // namespace

HRESULT CBaseAudioProcessingObject::GetRegistrationProperties(APO_REG_PROPERTIES** properties)
{
    if (properties == nullptr)
        return E_POINTER;
    const UINT32 interfaces = registration->u32NumAPOInterfaces;
    const SIZE_T bytes = sizeof(APO_REG_PROPERTIES) + (std::max(interfaces, 1U) - 1) * sizeof(IID);
    *properties = static_cast<APO_REG_PROPERTIES*>(CoTaskMemAlloc(bytes));
    if (*properties == nullptr)
        return E_OUTOFMEMORY;
    std::memcpy(*properties, registration, bytes);
    return S_OK;
}

HRESULT CBaseAudioProcessingObject::IsInputFormatSupported(IAudioMediaType* opposite, IAudioMediaType* requested,
                                                           IAudioMediaType** supported)
{
    return answerFormatQuestion(opposite, requested, supported, true);
}

HRESULT CBaseAudioProcessingObject::IsOutputFormatSupported(IAudioMediaType* opposite, IAudioMediaType* requested,
                                                            IAudioMediaType** supported)
{
    return answerFormatQuestion(opposite, requested, supported, false);
}

HRESULT CBaseAudioProcessingObject::GetInputChannelCount(UINT32* count)
{
    if (!isInitialized)
        return APOERR_NOT_INITIALIZED;
    if (count == nullptr)
        return E_POINTER;
    *count = connectionFormat.samplesPerFrame;
    return S_OK;
}

HRESULT CBaseAudioProcessingObject::validateDefaultFormat(UNCOMPRESSEDAUDIOFORMAT& format, bool)
{
    HRESULT result = S_OK;
    const auto correct = [&result](auto& field, const auto& value) {
        if (field == value)
            return;
        field = value;
        result = S_FALSE;
    };
    correct(format.guidFormatType, KSDATAFORMAT_SUBTYPE_IEEE_FLOAT);
    correct(format.dwSamplesPerFrame, std::clamp(format.dwSamplesPerFrame, fewestChannels, mostChannels));
    correct(format.dwBytesPerSampleContainer, floatBytes);
    correct(format.dwValidBitsPerSample, floatBits);
    if (format.fFramesPerSecond < lowestFrameRate) // a rate that is not a number passes
        correct(format.fFramesPerSecond, lowestFrameRate);
    else if (format.fFramesPerSecond > highestFrameRate)
        correct(format.fFramesPerSecond, highestFrameRate);
    return result;
}

// The general answer: corrects the requested format, first by itself and then towards the other side, which is already
// settled and can't be corrected. `supported` gets the requested format, or a new media type with the corrected one.
HRESULT CBaseAudioProcessingObject::answerFormatQuestion(IAudioMediaType* opposite, IAudioMediaType* requested,
                                                         IAudioMediaType** supported, bool isInput)
{
    if (requested == nullptr || supported == nullptr)
        return E_POINTER;
    *supported = nullptr;

    UNCOMPRESSEDAUDIOFORMAT settled{};
    if (opposite != nullptr) {
        const HRESULT read = opposite->GetUncompressedAudioFormat(&settled);
        if (FAILED(read))
            return read;
        if (validateDefaultFormat(settled, !isInput) == S_FALSE)
            return APOERR_FORMAT_NOT_SUPPORTED;
    }

    UNCOMPRESSEDAUDIOFORMAT format{};
    const HRESULT read = requested->GetUncompressedAudioFormat(&format);
    if (FAILED(read))
        return read;
    HRESULT result = validateDefaultFormat(format, isInput);
    if (opposite != nullptr) {
        const auto flags = registration->Flags;
        if ((flags & APO_FLAG_SAMPLESPERFRAME_MUST_MATCH) != 0 && format.dwSamplesPerFrame != settled.dwSamplesPerFrame) {
            format.dwSamplesPerFrame = settled.dwSamplesPerFrame;
            format.dwChannelMask = settled.dwChannelMask;
            result = S_FALSE;
        }
        if ((flags & APO_FLAG_BITSPERSAMPLE_MUST_MATCH) != 0 &&
            (format.dwValidBitsPerSample != settled.dwValidBitsPerSample ||
             format.dwBytesPerSampleContainer != settled.dwBytesPerSampleContainer)) {
            format.dwValidBitsPerSample = settled.dwValidBitsPerSample;
            format.dwBytesPerSampleContainer = settled.dwBytesPerSampleContainer;
            result = S_FALSE;
        }
        if ((flags & APO_FLAG_FRAMESPERSECOND_MUST_MATCH) != 0 && format.fFramesPerSecond != settled.fFramesPerSecond) {
            format.fFramesPerSecond = settled.fFramesPerSecond;
            result = S_FALSE;
        }
    }

    if (result == S_FALSE) {
        const HRESULT made = CreateAudioMediaTypeFromUncompressedAudioFormat(&format, supported);
        return FAILED(made) ? made : result;
    }
    requested->AddRef();
    *supported = requested;
    return result;
}

HRESULT CBaseAudioProcessingObject::readFormat(IAudioMediaType* mediaType, ConnectionFormat& format)
{
    if (mediaType == nullptr)
        return E_POINTER;
    UNCOMPRESSEDAUDIOFORMAT read{};
    const HRESULT result = mediaType->GetUncompressedAudioFormat(&read);
    if (FAILED(result))
        return result;
    format = {read.dwSamplesPerFrame, read.dwBytesPerSampleContainer, read.dwValidBitsPerSample, read.fFramesPerSecond};
    return S_OK;
}

HRESULT CBaseAudioProcessingObject::LockForProcess(UINT32 inCount, APO_CONNECTION_DESCRIPTOR** inConnections, UINT32 outCount,
                                                   APO_CONNECTION_DESCRIPTOR** outConnections)
{
    const std::lock_guard guard(configLock);
    if (isLocked)
        return APOERR_APO_LOCKED;

    const auto missing = [](UINT32 count, APO_CONNECTION_DESCRIPTOR** connections) {
        return count != 0 && (connections == nullptr || connections[0] == nullptr);
    };
    if (missing(inCount, inConnections) || missing(outCount, outConnections))
        return E_POINTER;

    const APO_REG_PROPERTIES& own = *registration;
    if (inCount < own.u32MinInputConnections || inCount > own.u32MaxInputConnections || outCount < own.u32MinOutputConnections ||
        outCount > own.u32MaxOutputConnections)
        return APOERR_NUM_CONNECTIONS_INVALID;
    const std::span ins(inConnections, inCount);
    const std::span outs(outConnections, outCount);

    if (!ins.empty() || !outs.empty()) {
        const HRESULT read = readFormat((ins.empty() ? outs : ins).front()->pFormat, connectionFormat);
        if (FAILED(read))
            return read;
    }

    for (const auto* in : ins)
        for (const auto* out : outs)
            if (!accepts(in->pFormat, out->pFormat))
                return APOERR_FORMAT_NOT_SUPPORTED;

    for (const auto connections : {ins, outs}) {
        for (const auto* connection : connections) {
            const HRESULT result = checkConnection(*connection);
            if (FAILED(result))
                return result;
        }
    }

    const bool sameRate = (own.Flags & APO_FLAG_FRAMESPERSECOND_MUST_MATCH) != 0 && (own.Flags & APO_FLAG_MIXER) == 0;
    if (sameRate && !ins.empty() && !outs.empty() && ins.front()->u32MaxFrameCount > outs.front()->u32MaxFrameCount)
        return APOERR_INVALID_OUTPUT_MAXFRAMECOUNT;

    if ((own.Flags & APO_FLAG_INPLACE) == 0)
        for (const auto* in : ins)
            for (const auto* out : outs)
                if (overlap(*in, *out))
                    return APOERR_BUFFERS_OVERLAP;

    isLocked = true;
    return S_OK;
}

// Both format questions, as an engine asks them; the effect's own rules answer too.
bool CBaseAudioProcessingObject::accepts(IAudioMediaType* in, IAudioMediaType* out)
{
    BorrowedFormat input(in);
    BorrowedFormat output(out);
    const auto ask = [this](auto question, BorrowedFormat& opposite, BorrowedFormat& requested) {
        IAudioMediaType* supported = nullptr;
        const HRESULT answer = (this->*question)(opposite.get(), requested.get(), &supported);
        if (supported != nullptr)
            supported->Release(); // a proposal, if it isn't one of the two
        return answer == S_OK;
    };
    return ask(&IAudioProcessingObject::IsOutputFormatSupported, input, output) &&
           ask(&IAudioProcessingObject::IsInputFormatSupported, output, input);
}

HRESULT CBaseAudioProcessingObject::checkConnection(const APO_CONNECTION_DESCRIPTOR& connection) const
{
    if (connection.u32Signature != APO_CONNECTION_DESCRIPTOR_SIGNATURE)
        return E_INVALIDARG;
    ConnectionFormat format;
    const HRESULT read = readFormat(connection.pFormat, format);
    if (FAILED(read))
        return read;
    return format == connectionFormat ? S_OK : APOERR_INVALID_CONNECTION_FORMAT;
}

bool CBaseAudioProcessingObject::overlap(const APO_CONNECTION_DESCRIPTOR& in, const APO_CONNECTION_DESCRIPTOR& out) const
{
    const auto end = [this](const APO_CONNECTION_DESCRIPTOR& connection) {
        return connection.pBuffer +
               UINT_PTR{connection.u32MaxFrameCount} * connectionFormat.samplesPerFrame * connectionFormat.bytesPerContainer;
    };
    return in.pBuffer < end(out) && out.pBuffer < end(in);
}

HRESULT CBaseAudioProcessingObject::UnlockForProcess()
{
    const std::lock_guard guard(configLock);
    if (!isLocked)
        return APOERR_ALREADY_UNLOCKED;
    isLocked = false;
    return S_OK;
}

} // namespace quorel
