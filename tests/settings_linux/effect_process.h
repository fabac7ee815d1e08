// SPDX-License-Identifier: MIT
// A process with effects of its own that does what a test tells it, in the order of the telling:
//
//   start          starts a handler: "started <Reverb>", or "failed <why>; <path> <error number>"
//   value          "<Reverb>" of a record that has polled
//   await <n>      polls until Reverb is n: "there"; after ten seconds "<Reverb>"
//   lives <n>      starts and ends a handler so often: "<open files and mappings after two lives> <after all>"
//   stop           ends the handler: "stopped"
//   leave          ends the process by exit, with a handler in a static object
#pragma once

#include "platform/refusal.h"
#include "settings/settings_handler.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <poll.h>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace quorel {

class EffectProcess {
public:
    // `first` is done before anything else.
    explicit EffectProcess(const std::function<void()>& first = [] {})
    {
        std::array<int, 2> toChild{};
        std::array<int, 2> fromChild{};
        if (pipe2(toChild.data(), O_CLOEXEC) != 0 || pipe2(fromChild.data(), O_CLOEXEC) != 0)
            throw std::runtime_error("EffectProcess: no pipe");
        std::fflush(nullptr); // said once, by this process
        id = fork();
        if (id == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL); // even one that is stopped ends with the test
            close(toChild[1]);
            close(fromChild[0]);
            first();
            obey(toChild[0], fromChild[1]);
        }
        close(toChild[0]);
        close(fromChild[1]);
        to = toChild[1];
        from = fromChild[0];
    }

    ~EffectProcess()
    {
        kill();
        close(to);
        close(from);
    }

    EffectProcess(const EffectProcess&) = delete;
    EffectProcess& operator=(const EffectProcess&) = delete;

    void tell(const std::string& order) const
    {
        const auto line = order + '\n';
        if (write(to, line.data(), line.size()) != static_cast<ssize_t>(line.size()))
            throw std::runtime_error("EffectProcess: it is gone");
    }

    // Its next answer; "silent" when there is none within 15 seconds, "gone" when there will be none.
    std::string answer()
    {
        std::string line;
        for (char next = 0;; line += next) {
            pollfd waited{from, POLLIN, 0};
            if (poll(&waited, 1, 15000) != 1)
                return "silent";
            if (read(from, &next, 1) != 1)
                return "gone";
            if (next == '\n')
                return line;
        }
    }

    std::string ask(const std::string& order)
    {
        tell(order);
        return answer();
    }

    pid_t process() const { return id; }

    void signal(int number) const { ::kill(id, number); }

    // At once, wherever it stands.
    void kill()
    {
        if (id == 0)
            return;
        signal(SIGKILL);
        waitpid(id, nullptr, 0);
        id = 0;
    }

    // Its exit code, once it has ended by itself.
    int end()
    {
        int status = -1;
        waitpid(id, &status, 0);
        id = 0;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    static std::shared_ptr<SettingsHandler> instance() { return SettingsHandler::instance(SettingsHandler::layoutVersion); }

    static std::uint32_t reverb(SettingsHandler& handler)
    {
        SettingsRecord record;
        handler.poll(record);
        return record.Reverb;
    }

    static std::size_t filesAndMappings()
    {
        std::size_t count = 0;
        for ([[maybe_unused]] const auto& file : std::filesystem::directory_iterator("/proc/self/fd"))
            ++count;
        std::ifstream maps("/proc/self/maps");
        for (std::string line; std::getline(maps, line);)
            count += line.find("/dev/shm") != std::string::npos ? 1 : 0;
        return count;
    }

    static std::string start(std::shared_ptr<SettingsHandler>& handler)
    {
        try {
            handler = instance();
        } catch (const std::exception& failure) {
            const auto refusal = platform::lastRefusal();
            return std::string("failed ") + failure.what() + "; " + refusal.path + ' ' + std::to_string(refusal.error);
        }
        return "started " + std::to_string(reverb(*handler));
    }

    static std::string await(SettingsHandler& handler, std::uint32_t value)
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (reverb(handler) != value) {
            if (std::chrono::steady_clock::now() > end)
                return std::to_string(reverb(handler));
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        }
        return "there";
    }

    static std::string lives(int count)
    {
        std::size_t early = 0;
        for (int life = 0; life < count; ++life) {
            std::shared_ptr<SettingsHandler> handler;
            if (const auto result = start(handler); !result.starts_with("started"))
                return "life " + std::to_string(life) + ' ' + result;
            handler.reset();
            if (life == 1)
                early = filesAndMappings();
        }
        return std::to_string(early) + ' ' + std::to_string(filesAndMappings());
    }

    [[noreturn]] static void obey(int orders, int answers)
    {
        static std::shared_ptr<SettingsHandler> handler; // destroyed after all statics of a handler's first life
        std::string line;
        for (char next = 0; read(orders, &next, 1) == 1;) {
            if (next != '\n') {
                line += next;
                continue;
            }
            std::istringstream text(std::exchange(line, {}));
            std::string order;
            std::uint32_t number = 0;
            text >> order >> number;
            if (order == "leave")
                std::exit(0);
            std::string answer = "stopped";
            if (order == "start")
                answer = start(handler);
            else if (order == "value")
                answer = std::to_string(reverb(*handler));
            else if (order == "await")
                answer = await(*handler, number);
            else if (order == "lives")
                answer = lives(static_cast<int>(number));
            else
                handler.reset();
            answer += '\n';
            static_cast<void>(write(answers, answer.data(), answer.size()));
        }
        std::_Exit(1);
    }

    pid_t id = 0;
    int to = -1;
    int from = -1;
};

} // namespace quorel
