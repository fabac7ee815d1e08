// SPDX-License-Identifier: MIT
// By the system's wave devices, on a thread of its own: opening one may take its time.
#include "platform/programs/sound.h"

#include "platform/text_windows.h"

#include <array>
#include <atomic>
#include <bit>
#include <functional>
#include <list>
#include <stdexcept>
#include <thread>
#include <utility>
#include <windows.h>

#include <mmsystem.h>

#include <mmreg.h>

namespace quorel::platform {

namespace {

constexpr std::uint32_t listeningRate = 48000;                                       // frames per second
constexpr std::size_t listeningBlock = listeningRate / 50;                           // frames of a buffer
constexpr std::size_t buffersTaken = 8;                                              // that the microphone fills
constexpr std::uint32_t mono = 0x4;                                                  // the centre
constexpr GUID wholeNumbers = {1, 0, 0x10, {0x80, 0, 0, 0xAA, 0, 0x38, 0x9B, 0x71}}; // samples of PCM, by the system's name

struct Event {
    Event() : handle(CreateEventW(nullptr, FALSE, FALSE, nullptr)) {}
    ~Event() { CloseHandle(handle); }
    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;

    HANDLE handle;
};

WAVEFORMATEXTENSIBLE formatOf(std::uint32_t rate, std::uint32_t speakers)
{
    WAVEFORMATEXTENSIBLE format{};
    format.Format.wFormatTag = WAVE_FORMAT_EXTENSIBLE;
    format.Format.nChannels = static_cast<WORD>(std::popcount(speakers));
    format.Format.nSamplesPerSec = rate;
    format.Format.wBitsPerSample = 16;
    format.Format.nBlockAlign = static_cast<WORD>(format.Format.nChannels * sizeof(std::int16_t));
    format.Format.nAvgBytesPerSec = rate * format.Format.nBlockAlign;
    format.Format.cbSize = sizeof format - sizeof format.Format;
    format.Samples.wValidBitsPerSample = 16;
    format.dwChannelMask = speakers;
    format.SubFormat = wholeNumbers;
    return format;
}

void check(MMRESULT result, const char* what)
{
    if (result == MMSYSERR_NOERROR)
        return;
    std::array<wchar_t, MAXERRORLENGTH> text{};
    waveOutGetErrorTextW(result, text.data(), static_cast<UINT>(text.size()));
    throw std::runtime_error(what + (": " + utf8(text.data())));
}

class Output {
public:
    Output(const WAVEFORMATEXTENSIBLE& format, HANDLE done)
    {
        check(waveOutOpen(&device, WAVE_MAPPER, &format.Format, reinterpret_cast<DWORD_PTR>(done), 0, CALLBACK_EVENT),
              "no device plays this");
    }
    ~Output()
    {
        waveOutReset(device);
        for (Buffer& buffer : buffers)
            waveOutUnprepareHeader(device, &buffer.header, sizeof buffer.header);
        waveOutClose(device);
    }
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    // Behind all that was given before.
    void give(std::vector<std::int16_t> samples)
    {
        Buffer* free = nullptr;
        for (Buffer& buffer : buffers)
            if ((buffer.header.dwFlags & WHDR_DONE) != 0)
                free = &buffer;
        if (free == nullptr)
            free = &buffers.emplace_back();
        else
            waveOutUnprepareHeader(device, &free->header, sizeof free->header);
        free->samples = std::move(samples);
        free->header = {};
        free->header.lpData = reinterpret_cast<char*>(free->samples.data());
        free->header.dwBufferLength = static_cast<DWORD>(free->samples.size() * sizeof(std::int16_t));
        check(waveOutPrepareHeader(device, &free->header, sizeof free->header), "the device plays nothing");
        check(waveOutWrite(device, &free->header, sizeof free->header), "the device plays nothing");
    }

    bool played() const
    {
        for (const Buffer& buffer : buffers)
            if ((buffer.header.dwFlags & WHDR_DONE) == 0)
                return false;
        return true;
    }

private:
    struct Buffer {
        std::vector<std::int16_t> samples;
        WAVEHDR header{};
    };

    HWAVEOUT device = nullptr;
    std::list<Buffer> buffers; // which stay where they are
};

class Input {
public:
    Input(const WAVEFORMATEXTENSIBLE& format, HANDLE full)
    {
        check(waveInOpen(&device, WAVE_MAPPER, &format.Format, reinterpret_cast<DWORD_PTR>(full), 0, CALLBACK_EVENT),
              "no microphone is to be had");
        for (std::size_t k = 0; k < buffersTaken; ++k) {
            samples[k].resize(listeningBlock);
            headers[k].lpData = reinterpret_cast<char*>(samples[k].data());
            headers[k].dwBufferLength = static_cast<DWORD>(listeningBlock * sizeof(std::int16_t));
            waveInPrepareHeader(device, &headers[k], sizeof headers[k]);
            waveInAddBuffer(device, &headers[k], sizeof headers[k]);
        }
        waveInStart(device);
    }
    ~Input()
    {
        waveInReset(device);
        for (WAVEHDR& header : headers)
            waveInUnprepareHeader(device, &header, sizeof header);
        waveInClose(device);
    }
    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;

    // In the order in which they were filled.
    void take(const std::function<void(std::vector<std::int16_t>)>& given)
    {
        for (; (headers[next].dwFlags & WHDR_DONE) != 0; next = (next + 1) % buffersTaken) {
            const auto count = headers[next].dwBytesRecorded / sizeof(std::int16_t);
            given({samples[next].begin(), samples[next].begin() + static_cast<std::ptrdiff_t>(count)});
            headers[next].dwFlags &= ~static_cast<DWORD>(WHDR_DONE);
            check(waveInAddBuffer(device, &headers[next], sizeof headers[next]), "the microphone has gone");
        }
    }

private:
    HWAVEIN device = nullptr;
    std::array<std::vector<std::int16_t>, buffersTaken> samples;
    std::array<WAVEHDR, buffersTaken> headers{};
    std::size_t next = 0; // to be full
};

} // namespace

class PlayedSound::Work {
public:
    // work: on the thread; it ends soon after `stop` is set.
    using Task = std::function<void(HANDLE stop)>;

    explicit Work(Task task) : thread([this, task = std::move(task)] { run(task); }) {}
    ~Work()
    {
        SetEvent(stop.handle);
        thread.join();
    }
    Work(const Work&) = delete;
    Work& operator=(const Work&) = delete;

    std::optional<std::string> ended() const { return done ? std::optional(trouble) : std::nullopt; }

private:
    void run(const Task& task)
    {
        try {
            task(stop.handle);
        } catch (const std::exception& error) {
            trouble = error.what();
        }
        done = true;
    }

    Event stop;
    std::string trouble; // written before `done`
    std::atomic<bool> done = false;
    std::thread thread; // last: it uses the others
};

PlayedSound::PlayedSound(std::unique_ptr<Work> work) : work(std::move(work)) {}
PlayedSound::~PlayedSound() = default;
PlayedSound::PlayedSound(PlayedSound&&) noexcept = default;
PlayedSound& PlayedSound::operator=(PlayedSound&&) noexcept = default;

// The system's numbers of devices say nothing to its user, so there are no names.
PlayedSound PlayedSound::once(Sound sound, const std::string&)
{
    return PlayedSound(std::make_unique<Work>([sound = std::move(sound)](HANDLE stop) {
        const Event done;
        Output output(formatOf(sound.framesPerSecond, sound.speakers), done.handle);
        output.give(sound.samples);
        const std::array<HANDLE, 2> either = {stop, done.handle};
        while (!output.played() && WaitForMultipleObjects(2, either.data(), FALSE, INFINITE) != WAIT_OBJECT_0) {
        }
    }));
}

// What is given first is silence, and the device's queue keeps its length from then on.
PlayedSound PlayedSound::late(const std::string&, double seconds)
{
    return PlayedSound(std::make_unique<Work>([seconds](HANDLE stop) {
        const Event moved;
        Output output(formatOf(listeningRate, mono), moved.handle);
        Input input(formatOf(listeningRate, mono), moved.handle);
        output.give(std::vector<std::int16_t>(static_cast<std::size_t>(seconds * listeningRate)));
        const std::array<HANDLE, 2> either = {stop, moved.handle};
        while (WaitForMultipleObjects(2, either.data(), FALSE, INFINITE) != WAIT_OBJECT_0)
            input.take([&](std::vector<std::int16_t> samples) { output.give(std::move(samples)); });
    }));
}

std::optional<std::string> PlayedSound::ended()
{
    return work->ended();
}

} // namespace quorel::platform
