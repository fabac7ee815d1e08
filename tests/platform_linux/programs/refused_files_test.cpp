// SPDX-License-Identifier: MIT
// The programs' files, children and questions with each of their calls of the system refused once.
#include "platform/programs/atomic_file.h"
#include "platform/programs/input_file.h"
#include "platform/programs/limited_source.h"
#include "platform/programs/local_question.h"
#include "platform/programs/sound.h"
#include "tests/support/refused_calls.h"
#include "tests/support/temporary_home.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace quorel::platform {
namespace {

namespace fs = std::filesystem;

std::string contents(const fs::path& path)
{
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

constexpr std::array<int, 3> errors = {EMFILE, ENOMEM, EINTR}; // of the calls
using Texts = std::multiset<std::string>;

// The old text or the new one, whole, with the file's permissions; what is left beside it goes with the next one that is written.
TEST(RefusedFiles, AFileIsReplacedOrIsNot)
{
    const TemporaryHome home;
    const fs::path folder = home.path() / "folder";
    const fs::path path = folder / "file";
    fs::create_directory(folder);
    std::ofstream(path) << "0";
    fs::permissions(path, fs::perms(0640));
    int last = 0; // that was to be kept
    expectSafeWhenRefused([&] {
        bool told = false;
        const std::string old = contents(path);
        const std::string wanted = std::to_string(++last);
        try {
            AtomicFile file(path.string());
            file.write(wanted);
            file.commit();
        } catch (const std::runtime_error& error) {
            told = true;
            EXPECT_EQ(std::string(error.what()).rfind("cannot write " + path.string() + ": ", 0), 0U) << error.what();
        }
        EXPECT_EQ(contents(path), told ? old : wanted);
        EXPECT_EQ(fs::status(path).permissions(), fs::perms(0640));
        if (!callFailed()) {
            EXPECT_EQ(std::distance(fs::directory_iterator(folder), {}), 1);
        }
        return !told;
    });
}

TEST(RefusedFiles, AChildGivesAllThatItWasToOrNothing)
{
    const WorkLimits limits{.processorSeconds = 10, .seconds = 20, .memoryBytes = std::uint64_t{1} << 30, .resultBytes = 100000};
    const std::string wanted(70000, 'x'); // more than a pipe holds
    Texts told;
    expectSafeWhenRefused([&] {
        try {
            EXPECT_EQ(doInChild([&] { return wanted; }, limits, [] {}), wanted);
            return true;
        } catch (const std::runtime_error& error) {
            told.insert(error.what());
            return false;
        }
    });
    for (const int error : errors)
        EXPECT_EQ(told.count(std::strerror(error)), 2U) << "no pipe, no child";
}

// All of it, or which call it lacked. One that is interrupted is made once more, but for those that make a file.
TEST(RefusedFiles, APipeIsReadOrIsNot)
{
    const TemporaryHome home;
    const std::string path = (home.path() / "pipe").string();
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    Texts told;
    expectSafeWhenRefused([&] {
        std::fstream writer(path, std::ios::in | std::ios::out);
        writer << "text" << std::flush;
        try {
            const InputFile file(path, [&] { writer.close(); });
            EXPECT_EQ(file.read(0, 10), "text");
            return true;
        } catch (const std::runtime_error& error) {
            told.insert(error.what());
            return false;
        }
    });
    Texts expected;
    for (const int error : errors) {
        const std::string reason = std::strerror(error);
        expected.insert("cannot read " + path + ": " + reason);
        expected.insert("cannot read " + path + ": there is no place for what the pipe holds: " + reason);
        if (error == EINTR)
            continue;
        for (int read = 0; read < 2; ++read) { // of the text, and of the end
            expected.insert("cannot read " + path + ": " + reason);
            expected.insert(reason); // of what was kept
        }
        expected.insert("cannot read " + path + ": what the pipe holds can't be kept in " + fs::temp_directory_path().string() +
                        ": " + reason);
    }
    EXPECT_EQ(told, expected);
}

// What can't be kept for the player is not played; only without a process there is none.
TEST(RefusedFiles, ASoundIsPlayedOrIsNot)
{
    const TemporaryHome home;
    const fs::path heard = home.path() / "heard";
    const fs::path player = home.path() / "pw-play";
    std::ofstream(player) << "#!/bin/sh\ncat > '" << heard.string() << "'\n";
    fs::permissions(player, fs::perms(0700));
    setenv("PATH", (home.path().string() + ':' + std::getenv("PATH")).c_str(), 1);
    const std::string samples(200, 'x');
    Texts told;
    expectSafeWhenRefused([&] {
        fs::remove(heard);
        Sound sound{.framesPerSecond = 48000, .speakers = 1, .samples = std::vector<std::int16_t>(samples.size() / 2)};
        std::memcpy(sound.samples.data(), samples.data(), samples.size());
        PlayedSound played = PlayedSound::once(sound, "");
        std::optional<std::string> ended;
        while (!(ended = played.ended()))
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        if (!ended->empty())
            told.insert(*ended);
        EXPECT_TRUE(contents(heard) == samples || contents(heard).empty());
        return contents(heard) == samples;
    });
    EXPECT_EQ(told.count("there is no process to be had for pw-play"), errors.size());
    EXPECT_EQ(told.size(), errors.size());
}

// Answers whoever asks, as another process: what it holds open is none of the asker's.
class Answering {
public:
    explicit Answering(const std::string& path)
    {
        const int door = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(bind(door, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(listen(door, 8), 0);
        child = fork();
        if (child == 0)
            answerAll(door);
        close(door);
    }
    ~Answering()
    {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
    Answering(const Answering&) = delete;
    Answering& operator=(const Answering&) = delete;

private:
    [[noreturn]] static void answerAll(int door)
    {
        for (;;) {
            const int caller = accept(door, nullptr, nullptr);
            std::array<char, 64> line{};
            const ssize_t got = ::recv(caller, line.data(), line.size(), 0);
            const std::string answer = std::string(line.data(), got > 0 ? static_cast<std::size_t>(got - 1) : 0) + ", answered\n";
            if (got > 0)
                ::send(caller, answer.data(), answer.size(), MSG_NOSIGNAL);
            close(caller);
        }
    }

    pid_t child;
};

TEST(RefusedFiles, AQuestionIsAnsweredOrIsNot)
{
    const TemporaryHome home;
    const std::string path = (home.path() / "socket").string();
    const Answering answering(path);
    Texts told;
    expectSafeWhenRefused([&] {
        try {
            const auto answer = askLocally(path, "question");
            told.insert(answer.value_or("nobody is there"));
            return answer == "question, answered";
        } catch (const std::runtime_error& error) {
            told.insert(error.what());
            return false;
        }
    });
    for (const int error : errors)
        EXPECT_EQ(told.count(std::string("socket: ") + std::strerror(error)), 1U);
    EXPECT_EQ(told.count("nobody is there"), errors.size());
    EXPECT_EQ(told.count("the program at " + path + " does not answer"), 2 * errors.size()) << "not sent, not read";
}

} // namespace
} // namespace quorel::platform
