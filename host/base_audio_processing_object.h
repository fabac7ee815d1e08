// SPDX-License-Identifier: MIT
// CBaseAudioProcessingObject: what any audio processing object does the same way, whatever its effect. It knows the object
// by its registered properties alone: it answers the engine's format questions in general, checks the connections of a lock,
// and keeps the locked state.
//
// What depends on the effect is left to the class that derives from it: IUnknown, Initialize, GetLatency, APOProcess.
#pragma once

#include "host/audio_interfaces.h"
#include "platform/lock.h"

namespace quorel {

class CBaseAudioProcessingObject : public IAudioProcessingObject,
                                   public IAudioProcessingObjectRT,
                                   public IAudioProcessingObjectConfiguration {
public:
    CBaseAudioProcessingObject(const CBaseAudioProcessingObject&) = delete;
    CBaseAudioProcessingObject& operator=(const CBaseAudioProcessingObject&) = delete;

    HRESULT Reset() override { return S_OK; }
    HRESULT GetRegistrationProperties(APO_REG_PROPERTIES** properties) override;
    HRESULT IsInputFormatSupported(IAudioMediaType* opposite, IAudioMediaType* requested, IAudioMediaType** supported) override;
    HRESULT IsOutputFormatSupported(IAudioMediaType* opposite, IAudioMediaType* requested, IAudioMediaType** supported) override;
    HRESULT GetInputChannelCount(UINT32* count) override;

    UINT32 CalcInputFrames(UINT32 frames) override { return frames; }
    UINT32 CalcOutputFrames(UINT32 frames) override { return frames; }

    HRESULT LockForProcess(UINT32 inCount, APO_CONNECTION_DESCRIPTOR** inConnections, UINT32 outCount,
                           APO_CONNECTION_DESCRIPTOR** outConnections) override;
    HRESULT UnlockForProcess() override;

    // Corrects a format in place; S_FALSE when anything was changed. An object with wishes of its own overrides it.
    virtual HRESULT validateDefaultFormat(UNCOMPRESSEDAUDIOFORMAT& format, bool isInput);

protected:
    // `registration` stays for good.
    explicit CBaseAudioProcessingObject(const APO_REG_PROPERTIES& registration) noexcept : registration(&registration) {}
    ~CBaseAudioProcessingObject() = default;

private:
    // The format of a connection, as far as all connections share it.
    struct ConnectionFormat {
        UINT32 samplesPerFrame = 0;
        UINT32 bytesPerContainer = 0;
        UINT32 validBitsPerSample = 0;
        FLOAT framesPerSecond = 0.0F;

        bool operator==(const ConnectionFormat&) const = default;
    };

    static HRESULT readFormat(IAudioMediaType* mediaType, ConnectionFormat& format);
    HRESULT answerFormatQuestion(IAudioMediaType* opposite, IAudioMediaType* requested, IAudioMediaType** supported,
                                 bool isInput);
    bool accepts(IAudioMediaType* in, IAudioMediaType* out);
    HRESULT checkConnection(const APO_CONNECTION_DESCRIPTOR& connection) const;
    bool overlap(const APO_CONNECTION_DESCRIPTOR& in, const APO_CONNECTION_DESCRIPTOR& out) const;

    bool isLocked = false;      // between a successful lock and the unlock
    bool isInitialized = false; // Required: nothing sets it, so GetInputChannelCount always fails.
    const APO_REG_PROPERTIES* registration;
    platform::Lock configLock;         // held by LockForProcess and UnlockForProcess
    ConnectionFormat connectionFormat; // of the last lock; zero before it
};

} // namespace quorel
