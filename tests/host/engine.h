// SPDX-License-Identifier: MIT
// An audio engine in miniature: what the tests hand to an effect object, and how they hold what it gives.
#pragma once

#include "host/audio_interfaces.h"
#include "host/effect_object.h"
#include "host/registration_properties.h"
#include "platform/registry.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

namespace quorel {

// Memory that is let go of in this scope on purpose is no finding of the sanitizer's.
class LeaksAreMeant {
public:
#ifdef __SANITIZE_ADDRESS__
    LeaksAreMeant()
    {
        __lsan_disable();
    }
    ~LeaksAreMeant()
    {
        __lsan_enable();
    }
#else
    LeaksAreMeant() {} // an object of it is no unused variable then
#endif
};

// An object of the engine's: it lives in the test and counts its references.
template <class Interface>
class Counted : public Interface {
public:
    HRESULT QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    ULONG AddRef() override { return ++references; }
    ULONG Release() override { return --references; }

    ULONG references = 1;
};

// A media type whose answers a test decides.
class Format final : public Counted<IAudioMediaType> {
public:
    explicit Format(const UNCOMPRESSEDAUDIOFORMAT& format) : format(format) {}

    HRESULT IsCompressedFormat(BOOL* answer) override
    {
        const bool changed = plainAnswersLeft-- <= 0;
        *answer = compressed || changed ? TRUE : FALSE;
        return changed ? changedResult : compressedResult;
    }
    HRESULT IsEqual(IAudioMediaType*, DWORD*) override { return E_NOTIMPL; }
    const WAVEFORMATEX* GetAudioFormat() override { return nullptr; }
    HRESULT GetUncompressedAudioFormat(UNCOMPRESSEDAUDIOFORMAT* answer) override
    {
        if (readsLeft-- <= 0)
            return readFailure;
        *answer = format;
        return S_OK;
    }

    UNCOMPRESSEDAUDIOFORMAT format;
    bool compressed = false;
    HRESULT compressedResult = S_OK;
    int plainAnswersLeft = 1'000'000;
    HRESULT changedResult = S_OK; // once no plain answers are left
    int readsLeft = 1'000'000;
    HRESULT readFailure = E_NOTIMPL; // once no reads are left
};

inline UNCOMPRESSEDAUDIOFORMAT floatFormat(DWORD channels, FLOAT rate, DWORD mask)
{
    return {KSDATAFORMAT_SUBTYPE_IEEE_FLOAT, channels, 4, 32, rate, mask};
}

inline UNCOMPRESSEDAUDIOFORMAT surroundFormat(DWORD channels = 8)
{
    return floatFormat(channels, 48000.0F, 0x63F);
}

inline UNCOMPRESSEDAUDIOFORMAT stereoFormat()
{
    return floatFormat(2, 96000.0F, 3);
}

inline UNCOMPRESSEDAUDIOFORMAT voiceFormat(FLOAT rate = 48000.0F)
{
    return floatFormat(1, rate, 0);
}

// One input and one output of the same format, ready to be locked.
struct Connections {
    explicit Connections(const UNCOMPRESSEDAUDIOFORMAT& format, UINT32 maxFrames = 480)
        : inFormat(format),
          outFormat(format),
          in{APO_CONNECTION_BUFFER_TYPE_EXTERNAL, 0, maxFrames, &inFormat, APO_CONNECTION_DESCRIPTOR_SIGNATURE},
          out{APO_CONNECTION_BUFFER_TYPE_EXTERNAL, 0, maxFrames, &outFormat, APO_CONNECTION_DESCRIPTOR_SIGNATURE}
    {
    }
    Connections(const Connections&) = delete;
    Connections& operator=(const Connections&) = delete;

    HRESULT lock(IAudioProcessingObjectConfiguration& effect) { return effect.LockForProcess(1, ins, 1, outs); }

    Format inFormat;
    Format outFormat;
    APO_CONNECTION_DESCRIPTOR in;
    APO_CONNECTION_DESCRIPTOR out;
    APO_CONNECTION_DESCRIPTOR* ins[1] = {&in};
    APO_CONNECTION_DESCRIPTOR* outs[1] = {&out};
};

// An endpoint's properties: its identifier alone.
class Properties final : public Counted<IPropertyStore> {
public:
    explicit Properties(std::string guid) : guid(std::move(guid)) {}

    HRESULT GetCount(DWORD*) override { return E_NOTIMPL; }
    HRESULT GetAt(DWORD, PROPERTYKEY*) override { return E_NOTIMPL; }
    HRESULT SetValue(REFPROPERTYKEY, const PROPVARIANT&) override { return E_NOTIMPL; }
    HRESULT Commit() override { return E_NOTIMPL; }
    HRESULT GetValue(REFPROPERTYKEY key, PROPVARIANT* value) override
    {
        asked.push_back(key);
        if (FAILED(result))
            return result;
        *value = PROPVARIANT{};
        value->vt = type;
        if (type == VT_UI4)
            value->ulVal = 0xFFFFFFFF; // no address
        if (type != VT_LPWSTR || guid.empty())
            return result;
        value->pwszVal = static_cast<WCHAR*>(CoTaskMemAlloc((guid.size() + 1) * sizeof(WCHAR)));
        if (value->pwszVal == nullptr)
            return E_OUTOFMEMORY;
        for (std::size_t i = 0; i <= guid.size(); ++i)
            value->pwszVal[i] = static_cast<WCHAR>(guid.c_str()[i]);
        return result;
    }

    std::string guid; // ASCII; empty gives a null text
    VARTYPE type = VT_LPWSTR;
    HRESULT result = S_OK;
    std::vector<PROPERTYKEY> asked;
};

inline constexpr const char* testEndpoint = "{5E0AD0D5-6C11-4C1E-9D5B-3B1F6A2C7E90}";
inline constexpr const char* endpointLists = R"(SOFTWARE\Microsoft\Windows\CurrentVersion\MMDevices\Audio\)";

// An endpoint's entry in one of the two lists of the registry, "Capture" or "Render", as long as this object lives.
class EndpointEntry {
public:
    explicit EndpointEntry(const std::string& list, const std::string& endpoint = testEndpoint)
        : path(endpointLists + list + '\\' + endpoint)
    {
        platform::RegistryKey key = nullptr;
        EXPECT_EQ(platform::createKey(machine(), path, writeAccess, key), 0);
        platform::closeKey(key);
    }
    ~EndpointEntry() { EXPECT_EQ(platform::deleteKey(machine(), path, view64), 0); }
    EndpointEntry(const EndpointEntry&) = delete;
    EndpointEntry& operator=(const EndpointEntry&) = delete;

private:
    static constexpr std::uint32_t view64 = 0x100;
    static constexpr std::uint32_t writeAccess = 0x20006 | view64;

    static platform::RegistryKey machine() { return platform::rootKey(platform::RootKey::localMachine); }

    std::string path;
};

// The record that Initialize takes, in its longer form; its beginning is the shorter one.
inline APOInitSystemEffects2 initRecord(Properties& properties)
{
    APOInitSystemEffects2 record{};
    record.APOInit.cbSize = sizeof(APOInitSystemEffects2);
    record.pAPOEndpointProperties = &properties;
    record.AudioProcessingMode = AUDIO_SIGNALPROCESSINGMODE_DEFAULT;
    return record;
}

inline HRESULT initialize(IAudioProcessingObject& effect, APOInitSystemEffects2& record,
                          UINT32 size = sizeof(APOInitSystemEffects2))
{
    return effect.Initialize(size, reinterpret_cast<BYTE*>(&record));
}

// An effect object, met through its interfaces.
class Effect {
public:
    Effect() : Effect(create()) {}

    // Takes over the caller's reference.
    explicit Effect(IUnknown* made) : unknown(made)
    {
        object = get<IAudioProcessingObject>(IID_IAudioProcessingObject);
        configuration = get<IAudioProcessingObjectConfiguration>(IID_IAudioProcessingObjectConfiguration);
        realTime = get<IAudioProcessingObjectRT>(IID_IAudioProcessingObjectRT);
        effects = get<IAudioSystemEffects2>(IID_IAudioSystemEffects2);
        self = static_cast<QUOREL*>(get<IQUORELSFX>(IID_IQUORELSFX));
    }

    ~Effect() { EXPECT_EQ(unknown->Release(), 0U); }

    Effect(const Effect&) = delete;
    Effect& operator=(const Effect&) = delete;

    // The record of the path of the last lock.
    SettingsRecord& record() const { return *self->signalPath()->settings(); }

    HRESULT initialize(const GUID& mode = AUDIO_SIGNALPROCESSINGMODE_DEFAULT, BOOL discovery = FALSE,
                       const std::string& endpoint = testEndpoint)
    {
        const LeaksAreMeant kept; // the settings, when a busy machine keeps their thread from ending in time
        Properties properties(endpoint);
        auto record = initRecord(properties);
        record.AudioProcessingMode = mode;
        record.InitializeForDiscoveryOnly = discovery;
        return quorel::initialize(*object, record);
    }

    HRESULT lock(const UNCOMPRESSEDAUDIOFORMAT& format, UINT32 maxFrames = 480)
    {
        Connections connections(format, maxFrames);
        return connections.lock(*configuration);
    }

    // One block of a locked stream. Returns the output's flags.
    APO_BUFFER_FLAGS process(const float* in, float* out, UINT32 frames, APO_BUFFER_FLAGS flags = BUFFER_VALID)
    {
        APO_CONNECTION_PROPERTY input{reinterpret_cast<UINT_PTR>(in), frames, flags, APO_CONNECTION_PROPERTY_SIGNATURE};
        APO_CONNECTION_PROPERTY output{reinterpret_cast<UINT_PTR>(out), frames, BUFFER_INVALID,
                                       APO_CONNECTION_PROPERTY_SIGNATURE};
        APO_CONNECTION_PROPERTY* ins[] = {&input};
        APO_CONNECTION_PROPERTY* outs[] = {&output};
        realTime->APOProcess(1, ins, 1, outs);
        return output.u32BufferFlags;
    }

    // The result has no reference of its own: this object's keeps it alive.
    template <class Interface>
    Interface* get(REFIID id)
    {
        Interface* found = nullptr;
        EXPECT_EQ(unknown->QueryInterface(id, reinterpret_cast<void**>(&found)), S_OK);
        if (found != nullptr)
            found->Release();
        return found;
    }

    IUnknown* unknown;
    IAudioProcessingObject* object = nullptr;
    IAudioProcessingObjectConfiguration* configuration = nullptr;
    IAudioProcessingObjectRT* realTime = nullptr;
    IAudioSystemEffects2* effects = nullptr;
    QUOREL* self = nullptr; // for views alone

private:
    static IUnknown* create()
    {
        void* made = nullptr;
        EXPECT_EQ(QUOREL::create(nullptr, IID_IUnknown, &made), S_OK);
        return static_cast<IUnknown*>(made);
    }
};

} // namespace quorel
