// SPDX-License-Identifier: MIT
// Both effects beside what a Debian system offers for the same purpose, each in its own library: nanoseconds a block at their
// least, and the share of one core. Blocks of noise; what comes out is looked at.
//
//   render/480, /128        7.1 sound to headphones with a room and a limiter
//   capture/48000, /16000   noise reduction, 10 ms of mono
//   frames, channels        the render effect by block size and by channel count, alone
//
// OpenAL Soft plays eight sources at the places of the speakers through its HRTF, its reverb and its limiter, into a loopback
// device. SpeexDSP and webrtc-audio-processing have their noise suppression on and nothing else.
#include "bench/inputs.h"
#include "bench/yardstick.h"
#include "core/kernels/select.h"
#include "core/signal_path.h"

#include <AL/alext.h>
#include <AL/efx.h>

#include <cmath>
#include <speex/speex_preprocess.h>
#include <string>
#include <webrtc/modules/audio_processing/include/audio_processing.h>

namespace quorel::bench {
namespace {

// The least time of one call, and its share of the `frames` frames that it makes.
template <class Call>
void measureLeast(benchmark::State& state, std::size_t frames, double rate, Call&& call)
{
    double least = std::numeric_limits<double>::infinity();
    for ([[maybe_unused]] auto _ : state) {
        const double time = burst(call, 4);
        least = std::min(least, time);
        state.SetIterationTime(time * 1e-9);
    }
    state.counters["ns"] = least;
    state.counters["% of core"] = least * 100 * rate / (1e9 * static_cast<double>(frames));
}

void expectSound(benchmark::State& state, const std::vector<float>& out)
{
    float largest = 0.0F;
    for (const float y : out)
        largest = std::max(largest, std::fabs(y));
    if (!(largest > 1e-4F && largest <= 2.0F))
        state.SkipWithError("the output is no cleaned or limited sound");
}

// --- Render ----------------------------------------------------------------------------------------------------------

constexpr std::array<std::uint32_t, 9> masks = {0, 0x4, 0x3, 0x7, 0x33, 0x37, 0x3F, 0x61F, 0x63F}; // by channel count

void renderByQuorel(benchmark::State& state, std::size_t channels, std::size_t frames, bool surround = true)
{
    SignalPath path(SignalPath::Speaker{}, static_cast<std::int32_t>(channels), masks[channels],
                    static_cast<std::uint32_t>(frames), 48000);
    path->settings()->Settings = surround;
    path->settings()->Reverb = 170;
    path->settings()->EQBand = {90, -50, 30, 70, -20, 110, -90, 40, 60};
    std::vector<float> in(frames * channels), out(frames * 8);
    fillWithNoise(in.data(), in.size(), 0.5F);
    const auto block = [&] { path->process(in.data(), frames, out.data(), frames); };
    for (int i = 0; i < 200; ++i)
        block();
    measureLeast(state, frames, 48000, block);
    expectSound(state, out);
}

void renderByOpenAl(benchmark::State& state, std::size_t frames)
{
    const auto function = [](const char* name) { return alcGetProcAddress(nullptr, name); };
    const auto open = reinterpret_cast<LPALCLOOPBACKOPENDEVICESOFT>(function("alcLoopbackOpenDeviceSOFT"));
    const auto render = reinterpret_cast<LPALCRENDERSAMPLESSOFT>(function("alcRenderSamplesSOFT"));
    ALCdevice* device = open(nullptr);
    const std::array<ALCint, 13> wanted = {ALC_FREQUENCY,
                                           48000,
                                           ALC_FORMAT_CHANNELS_SOFT,
                                           ALC_STEREO_SOFT,
                                           ALC_FORMAT_TYPE_SOFT,
                                           ALC_FLOAT_SOFT,
                                           ALC_HRTF_SOFT,
                                           ALC_TRUE,
                                           ALC_OUTPUT_LIMITER_SOFT,
                                           ALC_TRUE,
                                           ALC_MAX_AUXILIARY_SENDS,
                                           1,
                                           0};
    ALCcontext* context = alcCreateContext(device, wanted.data());
    alcMakeContextCurrent(context);
    ALCint hrtf = 0;
    alcGetIntegerv(device, ALC_HRTF_SOFT, 1, &hrtf);

    const auto effects = [](const char* name) { return alGetProcAddress(name); };
    ALuint effect = 0, slot = 0;
    reinterpret_cast<LPALGENEFFECTS>(effects("alGenEffects"))(1, &effect);
    reinterpret_cast<LPALEFFECTI>(effects("alEffecti"))(effect, AL_EFFECT_TYPE, AL_EFFECT_EAXREVERB);
    reinterpret_cast<LPALGENAUXILIARYEFFECTSLOTS>(effects("alGenAuxiliaryEffectSlots"))(1, &slot);
    reinterpret_cast<LPALAUXILIARYEFFECTSLOTI>(effects("alAuxiliaryEffectSloti"))(slot, AL_EFFECTSLOT_EFFECT,
                                                                                  static_cast<ALint>(effect));
    std::vector<float> noise(48000);
    fillWithNoise(noise.data(), noise.size(), 0.5F);
    std::array<ALuint, 8> source{};
    ALuint buffer = 0;
    alGenBuffers(1, &buffer);
    alBufferData(buffer, AL_FORMAT_MONO_FLOAT32, noise.data(), static_cast<ALsizei>(noise.size() * sizeof(float)), 48000);
    alGenSources(8, source.data());
    constexpr std::array<float, 8> degrees = {-30, 30, 0, 0, -150, 150, -90, 90}; // clockwise from ahead
    for (std::size_t s = 0; s < source.size(); ++s) {
        const float angle = degrees[s] * 3.14159265F / 180.0F;
        alSource3f(source[s], AL_POSITION, std::sin(angle), 0.0F, -std::cos(angle));
        alSourcei(source[s], AL_BUFFER, static_cast<ALint>(buffer));
        alSourcei(source[s], AL_LOOPING, AL_TRUE);
        alSourcei(source[s], AL_SAMPLE_OFFSET, static_cast<ALint>(5000 * s));
        alSource3i(source[s], AL_AUXILIARY_SEND_FILTER, static_cast<ALint>(slot), 0, AL_FILTER_NULL);
    }
    alSourcePlayv(8, source.data());

    std::vector<float> out(2 * frames);
    const auto block = [&] { render(device, out.data(), static_cast<ALCsizei>(frames)); };
    for (int i = 0; i < 200; ++i)
        block();
    measureLeast(state, frames, 48000, block);
    expectSound(state, out);
    if (hrtf != ALC_TRUE || alGetError() != AL_NO_ERROR)
        state.SkipWithError("OpenAL Soft plays without what is asked of it");

    alcMakeContextCurrent(nullptr);
    alcDestroyContext(context);
    alcCloseDevice(device);
}

// --- Capture ---------------------------------------------------------------------------------------------------------

void captureByQuorel(benchmark::State& state, std::size_t rate, bool all)
{
    const std::size_t frames = rate / 100;
    SignalPath path(SignalPath::Microphone{}, 1, 0, static_cast<std::uint32_t>(frames), static_cast<std::uint32_t>(rate));
    path->settings()->MicNR = 1;
    path->settings()->levelsEnabled = 1;
    path->settings()->micEq = all ? 2 : 0;
    path->settings()->noiseGate = all ? 100 : 0;
    std::vector<float> in(frames), out(frames);
    fillWithNoise(in.data(), in.size(), 0.2F);
    const auto block = [&] { path->process(in.data(), frames, out.data(), frames); };
    for (int i = 0; i < 400; ++i)
        block();
    measureLeast(state, frames, static_cast<double>(rate), block);
    expectSound(state, out);
}

void captureBySpeex(benchmark::State& state, std::size_t rate)
{
    const std::size_t frames = rate / 100;
    SpeexPreprocessState* suppressor = speex_preprocess_state_init(static_cast<int>(frames), static_cast<int>(rate));
    std::vector<float> in(frames), out(frames);
    fillWithNoise(in.data(), in.size(), 0.2F);
    std::vector<spx_int16_t> noise(frames), frame(frames);
    for (std::size_t i = 0; i < frames; ++i)
        noise[i] = static_cast<spx_int16_t>(in[i] * 32767.0F);
    const auto block = [&] {
        frame = noise;
        speex_preprocess_run(suppressor, frame.data());
    };
    for (int i = 0; i < 400; ++i)
        block();
    measureLeast(state, frames, static_cast<double>(rate), block);
    for (std::size_t i = 0; i < frames; ++i)
        out[i] = static_cast<float>(frame[i]) / 32768.0F;
    expectSound(state, out);
    speex_preprocess_state_destroy(suppressor);
}

void captureByWebrtc(benchmark::State& state, std::size_t rate)
{
    const std::size_t frames = rate / 100;
    const std::unique_ptr<webrtc::AudioProcessing> processing(webrtc::AudioProcessing::Create());
    processing->noise_suppression()->Enable(true);
    const webrtc::StreamConfig mono(static_cast<int>(rate), 1);
    std::vector<float> in(frames), out(frames);
    fillWithNoise(in.data(), in.size(), 0.2F);
    const float* from = in.data();
    float* to = out.data();
    const auto block = [&] {
        if (processing->ProcessStream(&from, mono, mono, &to) != webrtc::AudioProcessing::kNoError)
            state.SkipWithError("webrtc refuses a block");
    };
    for (int i = 0; i < 400; ++i)
        block();
    measureLeast(state, frames, static_cast<double>(rate), block);
    expectSound(state, out);
}

const bool registered = [] {
    const auto add = [](const std::string& name, auto call) {
        benchmark::RegisterBenchmark(name.c_str(), call)->UseManualTime()->Iterations(2000)->Unit(benchmark::kNanosecond);
    };
    const auto variants = kernels::availableVariants(); // the widest last
    const auto inVariants = [&](const std::string& name, auto call) {
        for (const kernels::KernelTable* variant : variants)
            add(name + ", " + variant->name, [=](auto& state) {
                const kernels::ForcedVariant forced(*variant);
                call(state);
            });
    };
    for (const std::size_t frames : {480, 128}) {
        const std::string size = "render/" + std::to_string(frames) + "/";
        inVariants(size + "QUOREL", [=](auto& state) { renderByQuorel(state, 8, frames); });
        inVariants(size + "QUOREL without the surround effect", [=](auto& state) { renderByQuorel(state, 8, frames, false); });
        add(size + "OpenAL Soft", [=](auto& state) { renderByOpenAl(state, frames); });
    }
    for (const std::size_t rate : {48000, 16000}) {
        const std::string name = "capture/" + std::to_string(rate) + "/";
        inVariants(name + "QUOREL", [=](auto& state) { captureByQuorel(state, rate, false); });
        inVariants(name + "QUOREL with curve and gate", [=](auto& state) { captureByQuorel(state, rate, true); });
        add(name + "SpeexDSP", [=](auto& state) { captureBySpeex(state, rate); });
        add(name + "webrtc-audio-processing", [=](auto& state) { captureByWebrtc(state, rate); });
    }
    for (const std::size_t frames : {32, 96, 128, 256, 480, 640, 848})
        inVariants("frames/" + std::to_string(frames) + "/QUOREL", [=](auto& state) { renderByQuorel(state, 8, frames); });
    for (std::size_t channels = 1; channels <= 8; ++channels)
        inVariants("channels/" + std::to_string(channels) + "/QUOREL",
                   [=](auto& state) { renderByQuorel(state, channels, 480); });
    return true;
}();

} // namespace
} // namespace quorel::bench
