// SPDX-License-Identifier: MIT
// QUOREL is the effect as an audio engine drives it: one object for the stream of one endpoint.
//
//   create -> Initialize -> format questions -> LockForProcess -> APOProcess once a block -> UnlockForProcess -> Release
//
// Initialize finds out whether the endpoint renders or captures and joins the process's settings. A lock builds the path for
// the stream, which stays beyond the unlock until the next lock or the end of the object.
//
// The configuration operations come one at a time, from threads that may wait. APOProcess comes from the audio thread while
// the stream is locked: `path` and `settingsHandler` don't change then, and are read without a lock.
#pragma once

#include "core/signal_path.h"
#include "host/base_audio_processing_object.h"
#include "host/com_object.h"
#include "host/format_rules.h"
#include "settings/settings_handler.h"

#include <memory>
#include <string>

namespace quorel {

// The effect's own interface, which adds no operation.
struct IQUORELSFX : IUnknown {
protected:
    ~IQUORELSFX() = default;
};

class QUOREL final : public ComObject<QUOREL>,
                     public CBaseAudioProcessingObject,
                     public IMMNotificationClient,
                     public IAudioSystemEffects2,
                     public IQUORELSFX {
public:
    // IUnknown
    HRESULT QueryInterface(REFIID id, void** object) override { return controlling->QueryInterface(id, object); }
    ULONG AddRef() override { return controlling->AddRef(); }
    ULONG Release() override { return controlling->Release(); }

    // IAudioProcessingObject
    HRESULT GetLatency(HNSTIME* time) override;
    HRESULT Initialize(UINT32 size, BYTE* data) override;
    HRESULT IsInputFormatSupported(IAudioMediaType* opposite, IAudioMediaType* requested, IAudioMediaType** supported) override;
    HRESULT IsOutputFormatSupported(IAudioMediaType* opposite, IAudioMediaType* requested, IAudioMediaType** supported) override;
    HRESULT GetInputChannelCount(UINT32* count) override;

    // IAudioProcessingObjectRT
    void APOProcess(UINT32 inCount, APO_CONNECTION_PROPERTY** inConnections, UINT32 outCount,
                    APO_CONNECTION_PROPERTY** outConnections) override;

    // IAudioProcessingObjectConfiguration
    HRESULT LockForProcess(UINT32 inCount, APO_CONNECTION_DESCRIPTOR** inConnections, UINT32 outCount,
                           APO_CONNECTION_DESCRIPTOR** outConnections) override;
    HRESULT UnlockForProcess() override;

    // IMMNotificationClient, which is offered and never registered
    HRESULT OnDeviceStateChanged(LPCWSTR, DWORD) override { return S_OK; }
    HRESULT OnDeviceAdded(LPCWSTR) override { return S_OK; }
    HRESULT OnDeviceRemoved(LPCWSTR) override { return S_OK; }
    HRESULT OnDefaultDeviceChanged(EDataFlow, ERole, LPCWSTR) override { return S_OK; }
    HRESULT OnPropertyValueChanged(LPCWSTR, const PROPERTYKEY) override { return S_OK; }

    // IAudioSystemEffects2
    HRESULT GetEffectsList(GUID** effects, UINT* count, HANDLE event) override;

    static const InterfaceEntry<QUOREL> interfaces[7];

    // What the object holds, for whoever has the object itself; empty until Initialize, the last until the first lock.
    const std::string& endpoint() const { return endpointGuid; }
    const SettingsHandler* settings() const { return settingsHandler.get(); }
    const SignalPath& signalPath() const { return path; }

private:
    friend class ComObject<QUOREL>;

    explicit QUOREL(IUnknown* outer) noexcept;
    ~QUOREL() = default;

    HRESULT join(const APOInitSystemEffects2& record, bool hasMode);
    HRESULT judge(HRESULT generalAnswer, IAudioMediaType* opposite, IAudioMediaType* requested,
                  IAudioMediaType** supported) const;

    GUID processingMode{};          // of this instance
    bool isCapture = false;         // the endpoint's kind
    bool isInitializedOnce = false; // Initialize has succeeded
    std::string endpointGuid;       // as the property store gives it
    std::uint32_t maxFrames = 0;    // of one block; these three are zero until the first lock
    std::uint32_t channels = 0;     // samples per frame
    std::uint32_t sampleRate = 0;   // frames per second
    SignalPath path;                // empty until the first lock

    // Empty until Initialize, and in an object that was initialised for discovery only. Given up ahead of the path.
    std::shared_ptr<SettingsHandler> settingsHandler;
};

extern template class ComObject<QUOREL>; // once, in effect_object.cpp

} // namespace quorel
