// SPDX-License-Identifier: MIT
// SpeakerPath is the render effect: N interleaved channels in, binaural stereo in frames of eight slots out.
//
//   in --> input --> FFT --> DirectPath --> inverse FFT --> directCompressor --> mix --+--> equalizer --> outputCompressor
//                \-> FDN --> reverb gain ------------------------------------> side --/          --> gain 0.8 --> out
//
// With the surround effect off a stereo down-mix and directCompressor take the place of all that stands before the equaliser.
// Every change of what is heard is faded over one block. At any rate but 48000 frames per second a block is copied.
//
// Between blocks persist: the last 176 frames of `input`, the states of the room, the filters and the envelopes. What the
// current settings do not run stays frozen as it is.
#pragma once

#include "core/buffer_arithmetic.h"
#include "core/fft.h"
#include "core/interleaved_view.h"
#include "core/settings_record.h"
#include "core/signal_path.h"
#include "speaker/direct_path.h"
#include "speaker/equalizer.h"
#include "speaker/fdn.h"
#include "speaker/scale_mixer.h"
#include "stages/compressor.h"
#include "stages/crossfader.h"
#include "stages/pending_value.h"

#include <array>

namespace quorel {

template <std::size_t N, typename T>
class SpeakerPath;

template <std::size_t N>
class SpeakerPath<N, float> {
public:
    // channelMask: must name exactly N of the speakers of `speakerTable`; other bits are ignored. maxFrames: the most frames
    // of one block, at most 1072, the shortest line of the room; of these 848 fit the convolver. sampleRate: frames per
    // second.
    SpeakerPath(std::uint32_t channelMask, std::uint32_t maxFrames, std::uint32_t sampleRate);

    // `in` has N samples a frame, `out` eight slots, of which the first two are used. A failure leaves what the finished
    // steps wrote.
    void process(InterleavedView in, InterleavedView out);

    // The path's own record, which it takes over at the start of a block when `applied` is 0.
    SettingsRecord& settings() noexcept { return record; }

    // Steps of the pipeline that no setting turns off.
    struct Steps {
        bool direct = true;
        bool equalizer = true;
        bool compressor = true;
    };
    Steps& steps() noexcept { return steps_; }

    // What the last record asks for, and the identity of the set in use.
    bool wantsSurround() const noexcept { return surround; }
    bool wantsReverb() const noexcept { return reverbOn; }
    const PendingValue<std::array<double, 9>>& wantedEqualizer() const noexcept { return equalizerTarget; }
    const PendingValue<float>& wantedReverbGain() const noexcept { return reverbTarget; }
    std::uint32_t hrtfId() const noexcept { return lastHrtfId; }

private:
    // After the room was switched off it runs for the one block that fades it out.
    bool hasRoom() const noexcept { return reverbOn || reverbTarget.changed; }

    // A block to `side`, and its steps, in signal order.
    void applyRecord();
    void copyThrough(InterleavedView in, InterleavedView out) const;
    void playSettled(InterleavedView in);
    void playInSteps(InterleavedView in);
    void loadInput(InterleavedView in);
    void convolve();
    void limitDirect();
    void reverberate();
    void mixDown(InterleavedView in);
    void fadeBetweenEffects();
    void equalize();

    // The block on its way; of the first the last 176 frames of the previous block persist.
    PaddedBuffer<N> input;          // the history, the new block, zeros
    PaddedBuffer<2> directTime;     // result of the convolver; valid behind its overlap
    Buffer<float, N> inputSpectrum; // packed, one spectrum a channel
    Buffer<float, 2> sumSpectrum;   // packed, one spectrum an ear
    Buffer<float, 2> mix;           // the direct signal, then with the reverb, then the faded result
    Buffer<float, 2> side;          // the reverb, or the down-mix in a transition; at the end what leaves the path

    // The stages, with their state
    ScaleMixer<N> downmix;          // takes the whole effect's place when it is off
    FFT<float> fft;                 // of 1024 frames
    DirectPath<N, float> direct;    // the HRTFs
    Equalizer equalizer;            // nine bands on the stereo bus
    Crossfader<2> fade;             // for every change
    FDN<N> fdn;                     // the room
    Compressor<2> directCompressor; // on the direct signal and on the down-mix
    Compressor<2> outputCompressor; // ahead of the output gain

    // The settings, and what the last record asks for
    SettingsRecord record;
    float reverbGain = 0.0F;                               // linear, as applied
    PendingValue<std::array<double, 9>> equalizerTarget{}; // requested band gains in dB
    PendingValue<float> reverbTarget{};                    // requested linear gain
    std::uint32_t lastSequence = 0xFFFFFFFF;               // blockSequence of the last translated record
    std::uint32_t lastHrtfId = 0;                          // identity of the set in `direct`
    bool surround = true;                                  // the effect is wanted
    bool surroundPrevious = true;                          // it was, at the end of the previous block
    bool reverbOn = true;                                  // the room is wanted

    // Configuration
    std::uint32_t maxFrames;  // of a block
    std::uint32_t sampleRate; // frames per second
    Steps steps_;
};

} // namespace quorel
