// SPDX-License-Identifier: MIT
// What noise reduction is worth: real voices in white, pink and babble noise at three signal-to-noise ratios and both rates,
// cleaned by the capture effect and by two well-known suppressors at their own defaults, as a table.
//
// Each recording is eight voices with pauses, twice; the second round is measured, when the estimates have settled.
//   pauses   power of the noise in the pauses, after over before, dB
//   speech   gain of the voice: projection of the output on the clean voice where there is voice, dB
//   segSNR   mean over 20 ms frames with voice of the signal-to-noise ratio, each kept within -10 and 35 dB: after less before
// Outputs are shifted back by the latency, which is measured on the clean voices: the lag of the largest correlation.
//
//   quality                                     the table
//   quality recordings FOLDER NOISE SNR TAKE... writes into FOLDER what a recogniser can listen to: the takes, files of mono, in
//                                               one noise at 16000 Hz as before.N.wav, and as <suppressor>.N.wav; N counts from 0.
//                                               NOISE none leaves the takes clean
#include "client/audio_file.h"
#include "core/signal_path.h"
#include "tools/resampler.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdio>
#include <exception>
#include <random>
#include <span>
#include <speex/speex_preprocess.h>
#include <string>
#include <vector>
#include <webrtc/modules/audio_processing/include/audio_processing.h>

namespace quorel {
namespace {

using Samples = std::vector<float>;

Samples load(const std::string& path, std::uint32_t rate)
{
    AudioReader reader(path, [] {});
    if (reader.channels() != 1)
        throw std::runtime_error(path + " is not mono");
    Resampler resampler([&reader](float* x, std::uint64_t n) { return reader.read(x, n); }, 1, reader.rate(), rate);
    Samples samples;
    Samples part(4096);
    for (std::uint64_t got = part.size(); got == part.size();) {
        got = resampler.read(part.data(), part.size());
        samples.insert(samples.end(), part.begin(), part.begin() + static_cast<std::ptrdiff_t>(got));
    }
    return samples;
}

std::vector<Samples> voices(std::uint32_t rate)
{
    std::vector<Samples> all;
    for (const char* name :
         {"Front_Center", "Front_Left", "Front_Right", "Rear_Center", "Rear_Left", "Rear_Right", "Side_Left", "Side_Right"})
        all.push_back(load(std::string("/usr/share/sounds/alsa/") + name + ".wav", rate));
    return all;
}

// The takes with 0.8 s of silence before each, twice, in whole blocks of 20 ms.
Samples dialogue(const std::vector<Samples>& takes, std::uint32_t rate)
{
    Samples all;
    for (int round = 0; round < 2; ++round) {
        for (const Samples& take : takes) {
            all.resize(all.size() + rate * 4 / 5);
            all.insert(all.end(), take.begin(), take.end());
        }
        all.resize((all.size() + rate / 50 - 1) / (rate / 50) * (rate / 50));
    }
    return all;
}

double power(const Samples& x, std::size_t from, std::size_t to)
{
    double sum = 0.0;
    for (std::size_t i = from; i < to; ++i)
        sum += double{x[i]} * double{x[i]};
    return sum / static_cast<double>(to - from);
}

double db(double ratio)
{
    return 10.0 * std::log10(ratio);
}

Samples whiteNoise(std::size_t length)
{
    std::mt19937 random(1);
    std::normal_distribution<float> normal;
    Samples noise(length);
    std::generate(noise.begin(), noise.end(), [&] { return normal(random); });
    return noise;
}

// White noise through six poles an octave apart and more: 3 dB per octave from 40 Hz up.
Samples pinkNoise(std::size_t length, std::uint32_t rate)
{
    Samples noise = whiteNoise(length);
    std::array<double, 6> state{};
    for (float& sample : noise) {
        double sum = 0.0;
        double corner = 40.0; // Hz
        for (double& y : state) {
            const double pole = std::exp(-2.0 * 3.14159265358979 * corner / rate);
            y = pole * y + (1.0 - pole) * double{sample};
            sum += y / std::sqrt(corner);
            corner *= 3.2;
        }
        sample = static_cast<float>(sum * 10.0);
    }
    return noise;
}

// Sixteen talkers, each from another place in the voices, every second one backwards.
Samples babble(std::size_t length, std::uint32_t rate)
{
    Samples talk;
    for (const Samples& voice : voices(rate))
        talk.insert(talk.end(), voice.begin(), voice.end());
    std::mt19937 random(2);
    Samples noise(length);
    for (int talker = 0; talker < 16; ++talker) {
        std::size_t at = random() % talk.size();
        for (float& sample : noise) {
            sample += talk[at];
            at = talker % 2 == 0 ? (at + 1) % talk.size() : (at + talk.size() - 1) % talk.size();
        }
    }
    return noise;
}

Samples noiseNamed(const std::string& name, std::size_t length, std::uint32_t rate)
{
    if (name == "white")
        return whiteNoise(length);
    if (name == "pink")
        return pinkNoise(length, rate);
    if (name == "babble")
        return babble(length, rate);
    throw std::runtime_error("there is no noise " + name);
}

// --- The suppressors -------------------------------------------------------------------------------------------------

Samples byQuorel(const Samples& x, std::uint32_t rate)
{
    const std::size_t block = rate / 100;
    SignalPath path(SignalPath::Microphone{}, 1, 0, static_cast<std::uint32_t>(block), rate);
    path->settings()->MicNR = 1;
    Samples in = x;
    Samples out(x.size());
    for (std::size_t i = 0; i + block <= x.size(); i += block)
        path->process(in.data() + i, block, out.data() + i, block);
    return out;
}

Samples bySpeex(const Samples& x, std::uint32_t rate)
{
    const std::size_t block = rate / 50;
    SpeexPreprocessState* state = speex_preprocess_state_init(static_cast<int>(block), static_cast<int>(rate));
    std::vector<spx_int16_t> frame(block);
    Samples out(x.size());
    for (std::size_t i = 0; i + block <= x.size(); i += block) {
        for (std::size_t k = 0; k < block; ++k)
            frame[k] = static_cast<spx_int16_t>(std::lround(std::clamp(x[i + k] * 32768.0F, -32768.0F, 32767.0F)));
        speex_preprocess_run(state, frame.data());
        for (std::size_t k = 0; k < block; ++k)
            out[i + k] = static_cast<float>(frame[k]) / 32768.0F;
    }
    speex_preprocess_state_destroy(state);
    return out;
}

Samples byWebrtc(const Samples& x, std::uint32_t rate)
{
    const std::size_t block = rate / 100;
    const std::unique_ptr<webrtc::AudioProcessing> processing(webrtc::AudioProcessing::Create());
    processing->noise_suppression()->Enable(true);
    const webrtc::StreamConfig mono(static_cast<int>(rate), 1);
    Samples out(x.size());
    for (std::size_t i = 0; i + block <= x.size(); i += block) {
        const float* in = x.data() + i;
        float* to = out.data() + i;
        if (processing->ProcessStream(&in, mono, mono, &to) != webrtc::AudioProcessing::kNoError)
            throw std::runtime_error("the suppressor refuses a block");
    }
    return out;
}

struct Suppressor {
    const char* name;
    Samples (*run)(const Samples& x, std::uint32_t rate);
};

constexpr std::array<Suppressor, 3> suppressors = {{{"QUOREL", byQuorel}, {"SpeexDSP", bySpeex}, {"webrtc", byWebrtc}}};

// --- The measures ----------------------------------------------------------------------------------------------------

// The lag, in samples, at which the output resembles the input most; up to 50 ms.
std::size_t latencyOf(const Samples& x, const Samples& y, std::uint32_t rate)
{
    std::size_t best = 0;
    double most = 0.0;
    for (std::size_t lag = 0; lag <= rate / 20; ++lag) {
        double sum = 0.0;
        for (std::size_t i = x.size() / 2; i + lag < x.size(); i += 1)
            sum += double{x[i]} * double{y[i + lag]};
        if (sum > most)
            most = sum, best = lag;
    }
    return best;
}

struct Frames {
    std::vector<std::size_t> speech; // starts of frames of 20 ms in the second round
    std::vector<std::size_t> pause;
};

// Speech: within 30 dB of the loudest frame. A pause: digital silence, 300 ms clear of any voice before it.
Frames framesOf(const Samples& voice, std::uint32_t rate)
{
    const std::size_t length = rate / 50;
    double loudest = 0.0;
    for (std::size_t i = 0; i + length <= voice.size(); i += length)
        loudest = std::max(loudest, power(voice, i, i + length));
    Frames frames;
    for (std::size_t i = voice.size() / 2 / length * length; i + 4 * length <= voice.size(); i += length) {
        if (power(voice, i, i + length) > loudest * 1e-3)
            frames.speech.push_back(i);
        else if (power(voice, i - 15 * length, i + 2 * length) == 0.0)
            frames.pause.push_back(i);
    }
    return frames;
}

struct Figures {
    double pauses;
    double speech;
    double segmental;
};

double segmentalSnr(const Samples& voice, const Samples& heard, std::size_t lag, const Frames& frames, std::size_t length)
{
    double sum = 0.0;
    for (const std::size_t from : frames.speech) {
        double error = 0.0;
        for (std::size_t i = from; i < from + length; ++i)
            error += std::pow(double{heard[i + lag]} - double{voice[i]}, 2.0);
        sum += std::clamp(db(power(voice, from, from + length) * static_cast<double>(length) / error), -10.0, 35.0);
    }
    return sum / static_cast<double>(frames.speech.size());
}

Figures figuresOf(const Samples& voice, const Samples& noisy, Samples clean, std::size_t lag, std::uint32_t rate)
{
    clean.resize(clean.size() + lag); // what has not come out yet is not looked at
    const std::size_t length = rate / 50;
    const Frames frames = framesOf(voice, rate);
    double before = 0.0;
    double after = 0.0;
    for (const std::size_t from : frames.pause) {
        before += power(noisy, from, from + length);
        after += power(clean, from + lag, from + lag + length);
    }
    double common = 0.0;
    double own = 0.0;
    for (const std::size_t from : frames.speech)
        for (std::size_t i = from; i < from + length; ++i) {
            common += double{clean[i + lag]} * double{voice[i]};
            own += double{voice[i]} * double{voice[i]};
        }
    return {db(after / before), 2.0 * db(common / own),
            segmentalSnr(voice, clean, lag, frames, length) - segmentalSnr(voice, noisy, 0, frames, length)};
}

double speechPower(const Samples& voice, const Frames& frames, std::uint32_t rate)
{
    double speech = 0.0;
    for (const std::size_t from : frames.speech)
        speech += power(voice, from, from + rate / 50) / static_cast<double>(frames.speech.size());
    return speech;
}

// The voice, whose power is `speech`, with the noise so many dB below.
Samples mix(const Samples& voice, double speech, const Samples& noise, double snr)
{
    const double gain = std::sqrt(speech / power(noise, 0, noise.size()) / std::pow(10.0, snr / 10.0));
    Samples noisy = voice;
    for (std::size_t i = 0; i < noisy.size(); ++i)
        noisy[i] += static_cast<float>(gain) * noise[i];
    return noisy;
}

void table()
{
    for (const std::uint32_t rate : {16000U, 48000U}) {
        const Samples voice = dialogue(voices(rate), rate);
        const double speech = speechPower(voice, framesOf(voice, rate), rate);

        std::array<std::size_t, suppressors.size()> lags{};
        std::printf("\n%u Hz                ", rate);
        for (const Suppressor& suppressor : suppressors)
            std::printf("%-26s", suppressor.name);
        std::printf("\nlatency                 ");
        for (std::size_t s = 0; s < suppressors.size(); ++s) {
            lags[s] = latencyOf(voice, suppressors[s].run(voice, rate), rate);
            std::printf("%4zu samples = %4.1f ms     ", lags[s], 1000.0 * static_cast<double>(lags[s]) / rate);
        }
        std::printf("\nnoise    SNR  ");
        for (std::size_t s = 0; s < suppressors.size(); ++s)
            std::printf("  pauses  speech  segSNR  ");
        std::printf("\n");

        for (const char* name : {"white", "pink", "babble"}) {
            const Samples noise = noiseNamed(name, voice.size(), rate);
            for (const int snr : {0, 5, 10}) {
                const Samples noisy = mix(voice, speech, noise, snr);
                std::printf("%-7s %2d dB  ", name, snr);
                for (std::size_t s = 0; s < suppressors.size(); ++s) {
                    const Figures f = figuresOf(voice, noisy, suppressors[s].run(noisy, rate), lags[s], rate);
                    std::printf("%8.1f%8.1f%8.1f  ", f.pauses, f.speech, f.segmental);
                }
                std::printf("\n");
            }
        }
    }
}

// The second round of `heard`, take by take with 0.3 s about each, in which the latency is lost.
void writeTakes(Samples heard, const std::vector<Samples>& takes, std::uint32_t rate, const std::string& name)
{
    const std::size_t about = rate * 3 / 10;
    std::size_t at = heard.size() / 2;
    heard.resize(heard.size() + about);
    for (std::size_t n = 0; n < takes.size(); ++n) {
        at += rate * 4 / 5;
        AudioWriter writer(name + "." + std::to_string(n) + ".wav", {1, rate, 0, SampleFormat::pcm16}, std::nullopt);
        writer.write(heard.data() + at - about, takes[n].size() + 2 * about);
        writer.commit();
        at += takes[n].size();
    }
}

void recordings(const std::string& folder, const std::string& noise, double snr, std::span<char*> paths)
{
    constexpr std::uint32_t rate = 16000;
    std::vector<Samples> takes;
    for (const char* path : paths)
        takes.push_back(load(path, rate));
    const Samples voice = dialogue(takes, rate);
    Samples noisy = voice;
    if (noise != "none")
        noisy = mix(voice, speechPower(voice, framesOf(voice, rate), rate), noiseNamed(noise, voice.size(), rate), snr);
    writeTakes(noisy, takes, rate, folder + "/before");
    for (const Suppressor& suppressor : suppressors)
        writeTakes(suppressor.run(noisy, rate), takes, rate, folder + "/" + suppressor.name);
}

} // namespace
} // namespace quorel

int main(int argc, char** argv)
{
    try {
        const std::span<char*> arguments(argv + 1, argv + argc);
        if (arguments.empty())
            quorel::table();
        else if (arguments.size() >= 5 && std::string(arguments[0]) == "recordings")
            quorel::recordings(arguments[1], arguments[2], std::stod(arguments[3]), arguments.subspan(4));
        else {
            std::fputs("usage: quality [recordings FOLDER NOISE SNR TAKE...]\n", stderr);
            return 2;
        }
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "quality: %s\n", error.what());
        return 2;
    }
}
