// SPDX-License-Identifier: MIT
// What the tests of the tools share: a folder for files, audio files of every kind, and the tool as its user meets it, started
// as a process.
#pragma once

#include "client/audio_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace quorel {

namespace fs = std::filesystem;

constexpr int anyRate = 48000;

// What became of a process.
struct Outcome {
    int status = 0; // as of waitpid
    std::string out;
    std::string err;

    bool exited(int code) const { return WIFEXITED(status) && WEXITSTATUS(status) == code; }
};

inline std::ostream& operator<<(std::ostream& stream, const Outcome& outcome)
{
    return stream << "status " << outcome.status << ", output \"" << outcome.out << "\", errors \"" << outcome.err << '"';
}

struct Sound {
    SF_INFO info{};
    std::vector<float> samples; // interleaved
    std::vector<int> speakers;  // channel map, empty if the file has none

    float at(std::size_t frame, std::size_t channel) const
    {
        return samples.at(frame * static_cast<std::size_t>(info.channels) + channel);
    }
};

// A folder for files that are made here, and the tool that is tested.
class ToolTest : public testing::Test {
protected:
    // tool: its program. calledAs: how it names itself.
    ToolTest(const char* tool, const char* calledAs) : tool(tool), calledAs(calledAs)
    {
        std::string pattern = (fs::temp_directory_path() / "quorel_tool_XXXXXX").string();
        folder = mkdtemp(pattern.data());
    }
    ~ToolTest() override { fs::remove_all(folder); }

    std::string path(const std::string& name) const { return (folder / name).string(); }

    // Starts the tool with standard error on `errors`; `prepare` runs in the new process before the tool does.
    pid_t start(
        const std::vector<std::string>& arguments, int output, int errors, const std::function<void()>& prepare = [] {})
    {
        std::vector<char*> argv{const_cast<char*>(tool)};
        for (const std::string& argument : arguments)
            argv.push_back(const_cast<char*>(argument.c_str()));
        argv.push_back(nullptr);

        const pid_t child = fork();
        if (child == 0) {
            dup2(output, STDOUT_FILENO);
            dup2(errors, STDERR_FILENO);
            prepare();
            execv(tool, argv.data());
            _exit(127);
        }
        return child;
    }

    // Runs the tool with its output and errors in pipes.
    Outcome run(
        const std::vector<std::string>& arguments, const std::function<void()>& prepare = [] {})
    {
        int out[2];
        int err[2];
        EXPECT_EQ(pipe2(out, O_CLOEXEC), 0);
        EXPECT_EQ(pipe2(err, O_CLOEXEC), 0);
        Outcome outcome;
        const pid_t child = start(arguments, out[1], err[1], prepare);
        close(out[1]);
        close(err[1]);
        outcome.out = readAll(out[0]); // a few lines on the other pipe fit into it
        outcome.err = readAll(err[0]);
        waitpid(child, &outcome.status, 0);
        return outcome;
    }

    static std::string readAll(int fd)
    {
        std::string text;
        char part[4096];
        for (ssize_t got = 0; (got = read(fd, part, sizeof part)) > 0;)
            text.append(part, static_cast<std::size_t>(got));
        close(fd);
        return text;
    }

    // Runs the tool on `input` and returns what it wrote, which it must do without a word, or with one line that says `told`.
    Sound treat(const std::string& input, const std::vector<std::string>& options = {}, const std::string& told = "")
    {
        std::vector<std::string> arguments{input, path("out.wav")};
        arguments.insert(arguments.end(), options.begin(), options.end());
        const Outcome outcome = run(arguments);
        EXPECT_TRUE(outcome.exited(0)) << outcome;
        EXPECT_EQ(outcome.out, "");
        if (told.empty())
            EXPECT_EQ(outcome.err, "");
        else
            expectOneLine(outcome.err, told);
        return load(path("out.wav"));
    }

    // Runs the tool with an output that exists: it must fail with one line that says `reason`, and leave the output and
    // the folder as they were.
    void expectRefusal(
        const std::string& input, const std::string& reason, const std::vector<std::string>& options = {},
        const std::function<void()>& prepare = [] {})
    {
        store("old.wav", "an older file");
        const std::vector<fs::path> before = entries();
        std::vector<std::string> arguments{input, path("old.wav")};
        arguments.insert(arguments.end(), options.begin(), options.end());
        const Outcome outcome = run(arguments, prepare);
        EXPECT_TRUE(outcome.exited(2)) << outcome;
        EXPECT_EQ(outcome.out, "");
        expectOneLine(outcome.err, reason);
        EXPECT_TRUE(bytes("old.wav") == "an older file");
        EXPECT_EQ(entries(), before);
    }

    // The tool treats a file with samples that no effect can take as the same file with zeros in their places, and says so.
    void expectReplacements(int rate, const std::vector<std::string>& options = {})
    {
        std::vector<float> samples = noise(2, 3000);
        std::vector<float> clean = samples;
        const auto set = [&](std::size_t frame, std::size_t channel, float value) {
            samples[2 * frame + channel] = value;
            clean[2 * frame + channel] = 0;
        };
        set(1000, 1, std::numeric_limits<float>::quiet_NaN());
        set(1001, 0, -std::numeric_limits<float>::infinity());
        set(2500, 0, 1e15F);
        const std::string other = rate == 48000 ? "" : "resampled to";
        treat(save("clean.wav", 2, clean, SF_FORMAT_WAV | SF_FORMAT_FLOAT, 0, rate), options, other);
        const std::string expected = bytes("out.wav");
        std::vector<std::string> arguments{save("wild.wav", 2, samples, SF_FORMAT_WAV | SF_FORMAT_FLOAT, 0, rate),
                                           path("out.wav")};
        arguments.insert(arguments.end(), options.begin(), options.end());
        const Outcome outcome = run(arguments);
        EXPECT_TRUE(outcome.exited(1)) << outcome;
        EXPECT_THAT(outcome.err, testing::HasSubstr("3 samples of " + path("wild.wav") + " that no effect can take"));
        EXPECT_THAT(outcome.err, testing::HasSubstr("the first in frame 1000, channel 2\n"));
        EXPECT_TRUE(bytes("out.wav") == expected);
    }

    // The tool treats what comes through a pipe as it treats the file.
    void expectPipeLikeFile(const std::string& input)
    {
        treat(input);
        const std::string expected = bytes("out.wav");
        const std::string pipe = path("pipe");
        ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
        std::thread writer([&] {
            std::ofstream to(pipe, std::ios::binary);
            const std::string all = bytes(fs::path(input).filename());
            to << all.substr(0, all.size() / 2) << std::flush;
            std::this_thread::sleep_for(std::chrono::milliseconds(20)); // a pipe may pause
            to << all.substr(all.size() / 2);
        });
        treat(pipe);
        writer.join();
        EXPECT_TRUE(bytes("out.wav") == expected);
    }

    // A tool that waits for a pipe hears its user.
    void expectWaitingEndsBy(int signal)
    {
        const std::string pipe = path("silent_pipe");
        ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
        const std::vector<fs::path> before = entries();
        const pid_t child = start({pipe, path("out.wav")}, STDOUT_FILENO, STDERR_FILENO,
                                  [signal] { std::signal(signal, SIG_DFL); }); // a shell's background job begins with it ignored
        int writer = -1;
        for (int i = 0; writer < 0 && i < 10000; ++i) { // the pipe can be opened without waiting once the tool has
            writer = open(pipe.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        ASSERT_GE(writer, 0);
        kill(child, signal);
        int status = 0;
        waitpid(child, &status, 0);
        close(writer);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal) << status;
        EXPECT_EQ(entries(), before);
    }

    void expectOneLine(const std::string& text, const std::string& reason) const
    {
        EXPECT_THAT(text, testing::StartsWith(std::string(calledAs) + ": "));
        EXPECT_THAT(text, testing::HasSubstr(reason));
        EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1) << text;
        EXPECT_TRUE(text.ends_with('\n')) << text;
    }

    std::vector<fs::path> entries() const
    {
        std::vector<fs::path> names;
        for (const auto& entry : fs::directory_iterator(folder))
            names.push_back(entry.path());
        std::sort(names.begin(), names.end());
        return names;
    }

    std::string store(const std::string& name, const std::string& contents) const
    {
        std::ofstream(path(name), std::ios::binary) << contents;
        return path(name);
    }

    std::string bytes(const std::string& name) const
    {
        std::ostringstream contents;
        contents << std::ifstream(path(name), std::ios::binary).rdbuf();
        return contents.str();
    }

    // Writes interleaved samples. A mask other than 0 goes into the file, which is then an extensible WAV.
    std::string save(const std::string& name, int channels, const std::vector<float>& samples,
                     int format = SF_FORMAT_WAV | SF_FORMAT_FLOAT, std::uint32_t mask = 0, int rate = anyRate) const
    {
        SF_INFO info{};
        info.channels = channels;
        info.samplerate = rate;
        info.format = mask != 0 ? SF_FORMAT_WAVEX | SF_FORMAT_FLOAT : format;
        const SoundFile file(sf_open(path(name).c_str(), SFM_WRITE, &info));
        EXPECT_TRUE(file) << sf_strerror(nullptr);
        if (mask != 0) {
            // The library's speakers in the order of the mask's bits.
            constexpr int speakers[] = {SF_CHANNEL_MAP_LEFT,
                                        SF_CHANNEL_MAP_RIGHT,
                                        SF_CHANNEL_MAP_CENTER,
                                        SF_CHANNEL_MAP_LFE,
                                        SF_CHANNEL_MAP_REAR_LEFT,
                                        SF_CHANNEL_MAP_REAR_RIGHT,
                                        SF_CHANNEL_MAP_FRONT_LEFT_OF_CENTER,
                                        SF_CHANNEL_MAP_FRONT_RIGHT_OF_CENTER,
                                        SF_CHANNEL_MAP_REAR_CENTER,
                                        SF_CHANNEL_MAP_SIDE_LEFT,
                                        SF_CHANNEL_MAP_SIDE_RIGHT};
            std::vector<int> map;
            for (std::size_t bit = 0; bit < std::size(speakers); ++bit)
                if ((mask >> bit & 1) != 0)
                    map.push_back(speakers[bit]);
            EXPECT_EQ(map.size(), static_cast<std::size_t>(channels));
            const int size = static_cast<int>(map.size() * sizeof(int));
            EXPECT_EQ(sf_command(file.get(), SFC_SET_CHANNEL_MAP_INFO, map.data(), size), SF_TRUE);
        }
        const auto count = static_cast<sf_count_t>(samples.size());
        EXPECT_EQ(sf_write_float(file.get(), samples.data(), count), count);
        return path(name);
    }

    static Sound load(const std::string& path)
    {
        Sound sound;
        const SoundFile file(sf_open(path.c_str(), SFM_READ, &sound.info));
        if (!file) {
            ADD_FAILURE() << path << ": " << sf_strerror(nullptr);
            return sound;
        }
        sound.samples.resize(static_cast<std::size_t>(sound.info.frames * sound.info.channels));
        sf_read_float(file.get(), sound.samples.data(), static_cast<sf_count_t>(sound.samples.size()));
        sound.speakers.resize(static_cast<std::size_t>(sound.info.channels));
        const int size = static_cast<int>(sound.speakers.size() * sizeof(int));
        if (sf_command(file.get(), SFC_GET_CHANNEL_MAP_INFO, sound.speakers.data(), size) != SF_TRUE)
            sound.speakers.clear();
        return sound;
    }

    static std::vector<float> silence(int channels, std::size_t frames)
    {
        return std::vector<float>(frames * static_cast<std::size_t>(channels));
    }

    // Reproducible noise on every channel, exact in 16 bits.
    static std::vector<float> noise(int channels, std::size_t frames)
    {
        std::vector<float> samples(frames * static_cast<std::size_t>(channels));
        std::uint32_t state = 1;
        for (float& sample : samples) {
            state = state * 1664525U + 1013904223U;
            sample = static_cast<float>(static_cast<std::int32_t>(state >> 18) - 8192) / 32768.0F;
        }
        return samples;
    }

    const char* tool;
    const char* calledAs;
    fs::path folder;
};

} // namespace quorel
