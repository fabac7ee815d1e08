// SPDX-License-Identifier: MIT
// The lock and the command socket of quorel-live, in a loop of the client library's that no server is needed for.
#include "live/instance.h"
#include "tests/support/failure.h"
#include "tests/support/private_home.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <pipewire/pipewire.h>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

namespace quorel {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

std::string failed(const std::function<void()>& act)
{
    return failureText<std::runtime_error>(act);
}

class Instance : public testing::Test {
protected:
    Instance() { fs::remove_all(folder); }

    // A caller that sends a text and ends its side.
    class Caller {
    public:
        explicit Caller(const Instance& test) : file(socket(AF_UNIX, SOCK_STREAM, 0))
        {
            sockaddr_un address{};
            address.sun_family = AF_UNIX;
            test.path().copy(static_cast<char*>(address.sun_path), sizeof address.sun_path - 1);
            EXPECT_EQ(connect(file, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        }
        ~Caller() { close(file); }
        Caller(const Caller&) = delete;
        Caller& operator=(const Caller&) = delete;

        void say(const std::string& text) const
        {
            EXPECT_EQ(send(file, text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
        }
        void leave() const { EXPECT_EQ(shutdown(file, SHUT_WR), 0); }

        // All that it is told until the door is closed before it.
        std::string told() const
        {
            std::string text(1000, '\0');
            std::size_t length = 0;
            for (ssize_t got = 1; got > 0; length += static_cast<std::size_t>(std::max<ssize_t>(got, 0)))
                got = recv(file, text.data() + length, text.size() - length, 0);
            text.resize(length);
            return text;
        }

    private:
        int file;
    };

    CommandSocket serving()
    {
        return {events(), [this](const std::string& command) {
                    commands.push_back(command);
                    return "answer to " + command;
                }};
    }

    // What has come in until now.
    void serve()
    {
        pw_loop_enter(events());
        while (pw_loop_iterate(events(), 0) > 0) {
        }
        pw_loop_leave(events());
    }

    pw_loop* events() const { return pw_main_loop_get_loop(loop.get()); }
    std::string path() const { return (folder / "live.sock").string(); }

    fs::path folder = privateHome.path() / "run/quorel";
    std::unique_ptr<pw_main_loop, void (*)(pw_main_loop*)> loop{(pw_init(nullptr, nullptr), pw_main_loop_new(nullptr)),
                                                                pw_main_loop_destroy};
    std::vector<std::string> commands;
};

TEST_F(Instance, HasOneLock)
{
    {
        const InstanceLock lock;
        EXPECT_EQ(failed([] { const InstanceLock second; }), "another one is running already; --status tells what it does");
    }
    EXPECT_EQ(failed([] { const InstanceLock again; }), "");
}

TEST_F(Instance, SaysThatThereIsNoPlaceForItsFolder)
{
    setenv("XDG_RUNTIME_DIR", "/nowhere", 1);
    EXPECT_EQ(failed([] { const InstanceLock lock; }), "/nowhere/quorel: No such file or directory");
    setenv("XDG_RUNTIME_DIR", (privateHome.path() / "run").c_str(), 1);
}

TEST_F(Instance, AnswersACommandAndClosesTheDoor)
{
    const CommandSocket socket = serving();
    const Caller first(*this);
    const Caller second(*this);
    second.say("status\nbypass on\n"); // one command a call
    serve();
    EXPECT_EQ(second.told(), "answer to status\n");
    EXPECT_THAT(commands, ElementsAre("status"));
    first.say("bypass off\n"); // it has taken its time
    serve();
    EXPECT_EQ(first.told(), "answer to bypass off\n");
}

TEST_F(Instance, TakesNoCommandThatIsNotALine)
{
    const CommandSocket socket = serving();
    for (const std::string& said : {std::string("status"), std::string(300, 'x') + '\n'}) {
        const Caller caller(*this);
        caller.say(said);
        serve();
        EXPECT_THAT(caller.told(), testing::StartsWith("{\"error\": \"no command\"}\n"));
    }
    const Caller silent(*this);
    silent.leave();
    serve();
    EXPECT_EQ(silent.told(), "");
    EXPECT_THAT(commands, IsEmpty());
}

TEST_F(Instance, LeavesNoSocketAtItsEnd)
{
    {
        const CommandSocket socket = serving();
        EXPECT_TRUE(fs::is_socket(path()));
    }
    EXPECT_FALSE(fs::exists(path()));
    fs::create_directories(folder);
    std::ofstream(path()) << "left by one that was killed";
    const CommandSocket socket = serving();
    EXPECT_TRUE(fs::is_socket(path()));
}

TEST_F(Instance, SaysWhyItHasNoSocket)
{
    fs::create_directories(path()); // which is not taken away
    EXPECT_EQ(failed([this] { serving(); }), path() + ": Address already in use");
    fs::remove(path());

    const int next = dup(0); // all below it are taken
    close(next);
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    for (const int left : {0, 1}) {
        const rlimit limit{static_cast<rlim_t>(next + left), before.rlim_max};
        setrlimit(RLIMIT_NOFILE, &limit);
        const std::string said = failed([this] { serving(); });
        setrlimit(RLIMIT_NOFILE, &before);
        EXPECT_EQ(said, left == 0 ? path() + ": Too many open files" : "");
    }
}

} // namespace
} // namespace quorel
