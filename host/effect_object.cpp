// SPDX-License-Identifier: MIT
#include "host/effect_object.h"

#include "core/kernels.h"
#include "core/rt_alloc.h"
#include "host/registration_properties.h"
#include "host/registry_key.h"
#include "host/text.h"
#include "platform/counter.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <exception>

namespace quorel {

namespace {

constexpr const char* captureEndpoints =
    R"(HKEY_LOCAL_MACHINE\SOFTWARE\Microsoft\Windows\CurrentVersion\MMDevices\Audio\Capture\)";
constexpr const char* renderEndpoints = R"(HKEY_LOCAL_MACHINE\SOFTWARE\Microsoft\Windows\CurrentVersion\MMDevices\Audio\Render\)";

constexpr HNSTIME unmeasuredLatency = 21; // units of 100 ns
constexpr double unitsPerSecond = 10'000'000;
constexpr std::uint32_t slotsOfRender = 8; // of an output frame

// Runs a step that may throw; what it throws becomes a result.
template <class Step>
HRESULT resultOf(Step step)
{
    try {
        return step();
    } catch (const std::exception&) {
        return E_UNEXPECTED;
    }
}

// The uncompressed format in a media type, which must not be a compressed one.
HRESULT readUncompressed(IAudioMediaType& mediaType, UNCOMPRESSEDAUDIOFORMAT& format)
{
    BOOL compressed = FALSE;
    const HRESULT asked = mediaType.IsCompressedFormat(&compressed);
    if (FAILED(asked))
        return asked;
    if (compressed != FALSE)
        return APOERR_INVALID_CONNECTION_FORMAT;
    return mediaType.GetUncompressedAudioFormat(&format);
}

// What isn't a text gives an empty one, as no text does.
HRESULT readEndpointGuid(IPropertyStore& properties, std::string& guid)
{
    struct Property {
        ~Property() { PropVariantClear(&value); }
        PROPVARIANT value{};
    } property;
    const HRESULT read = properties.GetValue(PKEY_AudioEndpoint_GUID, &property.value);
    if (FAILED(read))
        return read;
    guid = utf8(property.value.vt == VT_LPWSTR ? property.value.pwszVal : nullptr);
    return S_OK;
}

} // namespace

// In the order of lookup. With the virtual tables it stands in a section of its own.
[[gnu::section("RT_CONST")]] constinit const InterfaceEntry<QUOREL> QUOREL::interfaces[] = {
    {IID_IQUORELSFX, interfaceOf<IQUORELSFX>},
    {IID_IAudioSystemEffects, interfaceOf<IAudioSystemEffects>},
    {IID_IAudioSystemEffects2, interfaceOf<IAudioSystemEffects2>},
    {IID_IMMNotificationClient, interfaceOf<IMMNotificationClient>},
    {IID_IAudioProcessingObjectRT, interfaceOf<IAudioProcessingObjectRT>},
    {IID_IAudioProcessingObject, interfaceOf<IAudioProcessingObject>},
    {IID_IAudioProcessingObjectConfiguration, interfaceOf<IAudioProcessingObjectConfiguration>},
};

template class ComObject<QUOREL>;

// The kernels' version is asked for and dropped: the first call into them settles which variant serves this processor.
QUOREL::QUOREL(IUnknown* outer) noexcept : ComObject(outer), CBaseAudioProcessingObject(registrationProperties)
{
    static_cast<void>(ippGetLibVersion());
}

HRESULT QUOREL::Initialize(UINT32 size, BYTE* data)
{
    if (data == nullptr)
        return E_POINTER;
    if (size != sizeof(APOInitSystemEffects) && size != sizeof(APOInitSystemEffects2))
        return E_INVALIDARG;
    if (isInitializedOnce)
        return APOERR_ALREADY_INITIALIZED;
    processingMode = AUDIO_SIGNALPROCESSINGMODE_DEFAULT;

    APOInitSystemEffects2 record{}; // the shorter form is its beginning
    std::memcpy(&record, data, size);
    if (record.pAPOEndpointProperties == nullptr)
        return E_POINTER;

    return resultOf([&] { return join(record, size == sizeof(APOInitSystemEffects2)); });
}

// Finds out what endpoint the object is for, and takes part in the process's settings.
HRESULT QUOREL::join(const APOInitSystemEffects2& record, bool hasMode)
{
    const HRESULT read = readEndpointGuid(*record.pAPOEndpointProperties, endpointGuid);
    if (FAILED(read))
        return read;
    if (hasMode)
        processingMode = record.AudioProcessingMode;

    if (registryKeyExists(captureEndpoints + endpointGuid)) // first: an endpoint in both lists captures
        isCapture = true;
    else if (registryKeyExists(renderEndpoints + endpointGuid))
        isCapture = false;
    else
        return E_UNEXPECTED;

    if (record.InitializeForDiscoveryOnly == FALSE)
        settingsHandler = SettingsHandler::instance(SettingsHandler::layoutVersion);
    isInitializedOnce = true;
    return S_OK;
}

// What is listed follows from the mode alone and never changes, so nobody signals the event.
HRESULT QUOREL::GetEffectsList(GUID** effects, UINT* count, HANDLE)
{
    if (effects == nullptr || count == nullptr)
        return E_POINTER;
    if (processingMode == AUDIO_SIGNALPROCESSINGMODE_RAW) {
        *effects = nullptr;
        *count = 0;
        return S_OK;
    }
    auto* list = static_cast<GUID*>(CoTaskMemAlloc(sizeof(GUID)));
    if (list == nullptr)
        return E_OUTOFMEMORY;
    *list = AUDIO_EFFECT_TYPE_EQUALIZER;
    *effects = list;
    *count = 1;
    return S_OK;
}

HRESULT QUOREL::IsInputFormatSupported(IAudioMediaType* opposite, IAudioMediaType* requested, IAudioMediaType** supported)
{
    return judge(CBaseAudioProcessingObject::IsInputFormatSupported(opposite, requested, supported), opposite, requested,
                 supported);
}

HRESULT QUOREL::IsOutputFormatSupported(IAudioMediaType* opposite, IAudioMediaType* requested, IAudioMediaType** supported)
{
    return judge(CBaseAudioProcessingObject::IsOutputFormatSupported(opposite, requested, supported), opposite, requested,
                 supported);
}

// The effect's own rule on top of the general answer. The formats are those of the two media types, not the general layer's
// corrected ones: what that layer wanted to correct is accepted all the same if it meets the rule.
//
// Required: a proposal of the general layer is dropped without a release, and `requested` takes its place without a further
// reference. A caller thus gets a reference to `requested` when nothing was corrected, and none when something was.
HRESULT QUOREL::judge(HRESULT generalAnswer, IAudioMediaType* opposite, IAudioMediaType* requested,
                      IAudioMediaType** supported) const
{
    if (FAILED(generalAnswer))
        return generalAnswer;
    if (opposite == nullptr || requested == nullptr)
        return E_POINTER;

    UNCOMPRESSEDAUDIOFORMAT oppositeFormat{};
    UNCOMPRESSEDAUDIOFORMAT requestedFormat{};
    HRESULT read = readUncompressed(*opposite, oppositeFormat);
    if (SUCCEEDED(read))
        read = readUncompressed(*requested, requestedFormat);
    if (FAILED(read))
        return read;

    if (!admits(isCapture ? EndpointKind::capture : EndpointKind::render, oppositeFormat, requestedFormat))
        return APOERR_FORMAT_NOT_SUPPORTED;
    if (*supported != requested)
        --moduleUses; // the proposal's: nobody can reach it any more
    *supported = requested;
    return S_OK;
}

// Required: the general answer is a failure in every state, and the count is delivered all the same.
HRESULT QUOREL::GetInputChannelCount(UINT32* count)
{
    const HRESULT generalAnswer = CBaseAudioProcessingObject::GetInputChannelCount(count);
    if (count != nullptr)
        *count = channels;
    return generalAnswer;
}

// Required: a failure behind the general checks leaves the object locked, with its previous path; an unlock must follow.
HRESULT QUOREL::LockForProcess(UINT32 inCount, APO_CONNECTION_DESCRIPTOR** inConnections, UINT32 outCount,
                               APO_CONNECTION_DESCRIPTOR** outConnections)
{
    if (settingsHandler == nullptr) // never initialised, or for discovery only: there is nothing to run a stream with
        return APOERR_NOT_INITIALIZED;

    const HRESULT locked = CBaseAudioProcessingObject::LockForProcess(inCount, inConnections, outCount, outConnections);
    if (FAILED(locked))
        return locked;
    if (inCount != 1 || outCount != 1)
        return APOERR_NUM_CONNECTIONS_INVALID;

    UNCOMPRESSEDAUDIOFORMAT input{};
    UNCOMPRESSEDAUDIOFORMAT output{};
    HRESULT result = readUncompressed(*inConnections[0]->pFormat, input);
    if (SUCCEEDED(result))
        result = readUncompressed(*outConnections[0]->pFormat, output);
    if (FAILED(result))
        return result;

    maxFrames = inConnections[0]->u32MaxFrameCount;
    channels = input.dwSamplesPerFrame;
    sampleRate = static_cast<std::uint32_t>(input.fFramesPerSecond);

    result = resultOf([&] {
        const auto count = static_cast<std::int32_t>(channels);
        path = isCapture ? SignalPath(SignalPath::Microphone{}, count, 0, maxFrames, sampleRate)
                         : SignalPath(SignalPath::Speaker{}, count, input.dwChannelMask, maxFrames, sampleRate);
        return S_OK;
    });
    if (FAILED(result))
        return result;
    result = resultOf([&] {
        settingsHandler->poll(*path->settings());
        return S_OK;
    });
    if (FAILED(result))
        return result;

    settingsHandler->writeActiveFormat(input.dwChannelMask, input.fFramesPerSecond);
    return locked;
}

HRESULT QUOREL::UnlockForProcess()
{
    if (isCapture && settingsHandler != nullptr)
        settingsHandler->writeIdleLevels();
    return CBaseAudioProcessingObject::UnlockForProcess();
}

// How long the path takes for a frame, measured over one block. Not for a running stream: the two blocks advance the path.
//
// A render path writes eight slots a frame however many channels the stream has, and after a lock that failed `channels` and
// `maxFrames` are not those of the path that stayed: for it the buffer has at least eight samples a frame, the most that any
// path uses, and a path refuses more frames than it was built for. A capture path uses one sample a frame, as only streams of
// one channel get as far as `channels`. No path can write past the buffer.
HRESULT QUOREL::GetLatency(HNSTIME* time)
{
    if (time == nullptr)
        return E_POINTER;
    *time = unmeasuredLatency;
    if (channels == 0 || maxFrames == 0 || path.get() == nullptr)
        return E_FAIL;

    return resultOf([&] {
        const auto samplesPerFrame = isCapture ? channels : std::max(channels, slotsOfRender);
        const auto length = std::uint64_t{samplesPerFrame} * maxFrames;
        const RtPointer<float> buffer(static_cast<float*>(rt_alloc(length * sizeof(float))));
        std::fill_n(buffer.get(), length, 0.0F);
        const auto runBlock = [&] { path->process(buffer.get(), maxFrames, buffer.get(), maxFrames); };

        runBlock(); // its caches are cold, so it isn't timed
        const double countsPerUnit = static_cast<double>(platform::counterFrequency()) / unitsPerSecond;
        const auto begin = platform::counter();
        runBlock();
        const auto counts = static_cast<double>(platform::counter() - begin);
        *time = std::llround(counts / countsPerUnit / maxFrames); // halves go away from zero
        return S_OK;
    });
}

// The one entry of the audio thread. It never waits and allocates nothing but an exception that is raised anyway; it has a
// section of its own.
[[gnu::section("RT_CODE"), gnu::noinline]] void QUOREL::APOProcess(UINT32, APO_CONNECTION_PROPERTY** inConnections, UINT32,
                                                                   APO_CONNECTION_PROPERTY** outConnections)
{
    settingsHandler->poll(*path->settings());

    const APO_CONNECTION_PROPERTY& in = *inConnections[0];
    APO_CONNECTION_PROPERTY& out = *outConnections[0];
    if (in.u32BufferFlags != BUFFER_VALID) { // the path stands still: silence feeds neither the room nor the trackers
        out.u32ValidFrameCount = in.u32ValidFrameCount;
        out.u32BufferFlags = in.u32BufferFlags;
        return;
    }

    try {
        const auto frames = path->process(std::bit_cast<float*>(in.pBuffer), in.u32ValidFrameCount,
                                          std::bit_cast<float*>(out.pBuffer), out.u32ValidFrameCount);
        out.u32ValidFrameCount = static_cast<UINT32>(frames);
        out.u32BufferFlags = BUFFER_VALID;
    } catch (const std::exception&) {
        out.u32BufferFlags = BUFFER_INVALID;
    }

    // Behind a failed block too: the control application sees the last complete ones.
    if (const float* levels = path->levels(); levels != nullptr)
        settingsHandler->writeLevels(levels);
}

} // namespace quorel
