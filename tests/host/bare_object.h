// SPDX-License-Identifier: MIT
// A processing object without an effect, which writes down what it is asked and can be made to answer anything.
#pragma once

#include "host/base_audio_processing_object.h"
#include "host/registration_properties.h"

#include <functional>
#include <optional>
#include <string>

namespace quorel {

class Bare final : public CBaseAudioProcessingObject {
public:
    explicit Bare(const APO_REG_PROPERTIES& registration = registrationProperties) : CBaseAudioProcessingObject(registration) {}

    HRESULT QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    ULONG AddRef() override { return 1; }
    ULONG Release() override { return 1; }
    HRESULT GetLatency(HNSTIME*) override { return E_NOTIMPL; }
    HRESULT Initialize(UINT32, BYTE*) override { return E_NOTIMPL; }
    void APOProcess(UINT32, APO_CONNECTION_PROPERTY**, UINT32, APO_CONNECTION_PROPERTY**) override {}

    HRESULT IsInputFormatSupported(IAudioMediaType* opposite, IAudioMediaType* requested, IAudioMediaType** supported) override
    {
        questions += 'i';
        amidQuestion();
        return inputAnswer ? *inputAnswer : CBaseAudioProcessingObject::IsInputFormatSupported(opposite, requested, supported);
    }
    HRESULT IsOutputFormatSupported(IAudioMediaType* opposite, IAudioMediaType* requested, IAudioMediaType** supported) override
    {
        questions += 'o';
        amidQuestion();
        return outputAnswer ? *outputAnswer : CBaseAudioProcessingObject::IsOutputFormatSupported(opposite, requested, supported);
    }
    HRESULT validateDefaultFormat(UNCOMPRESSEDAUDIOFORMAT& format, bool isInput) override
    {
        directions += isInput ? 'i' : 'o';
        return CBaseAudioProcessingObject::validateDefaultFormat(format, isInput);
    }

    void agreeToAnyFormat() { inputAnswer = outputAnswer = S_OK; }

    std::optional<HRESULT> inputAnswer;
    std::optional<HRESULT> outputAnswer;
    std::string questions; // the format questions in their order
    std::function<void()> amidQuestion = [] {};
    std::string directions; // in which formats were corrected
};

} // namespace quorel
