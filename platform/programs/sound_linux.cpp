// SPDX-License-Identifier: MIT
// The audio server's own players do it, each in a process of its own: one that hangs keeps nobody from going on.
#include "platform/programs/sound.h"

#include "platform/programs/unnamed_file_linux.h"

#include <array>
#include <csignal>
#include <string_view>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <utility>

namespace quorel::platform {

namespace {

std::string channelMap(std::uint32_t speakers)
{
    constexpr auto names = std::to_array<std::string_view>({"FL", "FR", "FC", "LFE", "RL", "RR", "FLC", "FRC", "RC", "SL", "SR"});
    std::string map;
    for (std::size_t bit = 0; bit < 32; ++bit)
        if ((speakers >> bit & 1U) != 0)
            (map += map.empty() ? "" : ",") += bit < names.size() ? names.at(bit) : "UNK";
    return map;
}

// The last line that a player wrote, which says why it ended.
std::string lastLine(int file)
{
    std::array<char, 1024> text{};
    const off_t size = lseek(file, 0, SEEK_END);
    const auto most = static_cast<off_t>(text.size());
    const ssize_t got = pread(file, text.data(), text.size(), size > most ? size - most : 0);
    std::string_view told(text.data(), got > 0 ? static_cast<std::size_t>(got) : 0);
    while (told.ends_with('\n'))
        told.remove_suffix(1);
    const auto line = told.rfind('\n');
    return std::string(line == std::string_view::npos ? told : told.substr(line + 1));
}

} // namespace

class PlayedSound::Work {
public:
    // samples: what the player gets on its standard input; -1: nothing. It is closed at once.
    Work(const std::vector<std::string>& words, int samples) : name(words.front()), told(unnamedFile())
    {
        std::vector<char*> arguments;
        arguments.reserve(words.size() + 1);
        for (const std::string& word : words)
            arguments.push_back(const_cast<char*>(word.c_str())); // only read
        arguments.push_back(nullptr);
        const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
        const pid_t parent = getpid();
        player = fork();
        if (player == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL); // a panel that is killed leaves no sound behind
            if (getppid() != parent)
                _exit(1);
            dup2(samples >= 0 ? samples : nothing, STDIN_FILENO);
            dup2(nothing, STDOUT_FILENO);
            dup2(told >= 0 ? told : nothing, STDERR_FILENO);
            execvp(arguments.front(), arguments.data());
            _exit(notFound);
        }
        if (player < 0)
            trouble = "there is no process to be had for " + name;
        close(nothing);
        if (samples >= 0)
            close(samples);
    }
    ~Work()
    {
        if (player > 0) {
            kill(player, SIGKILL);
            waitpid(player, nullptr, 0);
        }
        if (told >= 0)
            close(told);
    }
    Work(const Work&) = delete;
    Work& operator=(const Work&) = delete;

    std::optional<std::string> ended()
    {
        int status = 0;
        if (player > 0 && waitpid(player, &status, WNOHANG) == player) {
            player = -1;
            if (WIFEXITED(status) && WEXITSTATUS(status) == notFound)
                trouble = name + " is not installed; it comes with PipeWire";
            else if (status != 0)
                trouble = name + " has failed: " + lastLine(told);
        }
        return player > 0 ? std::nullopt : std::optional(trouble);
    }

private:
    static constexpr int notFound = 127; // exit code

    std::string name;
    int told; // file of what it writes on standard error
    pid_t player = -1;
    std::string trouble;
};

PlayedSound::PlayedSound(std::unique_ptr<Work> work) : work(std::move(work)) {}
PlayedSound::~PlayedSound() = default;
PlayedSound::PlayedSound(PlayedSound&&) noexcept = default;
PlayedSound& PlayedSound::operator=(PlayedSound&&) noexcept = default;

PlayedSound PlayedSound::once(Sound sound, const std::string& device)
{
    const int file = unnamedFile();
    const auto* bytes = reinterpret_cast<const char*>(sound.samples.data());
    for (std::size_t done = 0, all = sound.samples.size() * sizeof(std::int16_t); file >= 0 && done < all;) {
        const ssize_t put = write(file, bytes + done, all - done);
        if (put <= 0)
            break; // a full disk: what is there is played
        done += static_cast<std::size_t>(put);
    }
    if (file >= 0)
        lseek(file, 0, SEEK_SET);
    const std::string map = channelMap(sound.speakers);
    std::size_t channels = 1;
    for (const char each : map)
        channels += each == ',' ? 1 : 0;
    std::vector<std::string> words = {"pw-play",
                                      "--rate",
                                      std::to_string(sound.framesPerSecond),
                                      "--channels",
                                      std::to_string(channels),
                                      "--channel-map",
                                      map,
                                      "--format",
                                      "s16",
                                      "--media-role",
                                      "Test"};
    if (!device.empty())
        words.insert(words.end(), {"--target", device});
    words.emplace_back("-");
    return PlayedSound(std::make_unique<Work>(words, file));
}

PlayedSound PlayedSound::late(const std::string& microphone, double seconds)
{
    std::vector<std::string> words = {"pw-loopback", "--name",   "quorel-panel", "--channels",           "1",
                                      "-m",          "[ MONO ]", "--delay",      std::to_string(seconds)};
    if (!microphone.empty())
        words.insert(words.end(), {"--capture", microphone});
    return PlayedSound(std::make_unique<Work>(words, -1));
}

std::optional<std::string> PlayedSound::ended()
{
    return work->ended();
}

} // namespace quorel::platform
