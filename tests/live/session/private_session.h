// SPDX-License-Identifier: MIT
// A desktop's audio without a desktop: a message bus, an audio server and its session manager of the test's own, with a null
// sink "speakers" and a null source "testmic" in place of hardware, and a home and run-time folder of their own.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace quorel {

// For what takes less than a second on an idle machine.
constexpr std::chrono::seconds patience{60};

// A process that ends with the test at the latest, with what it has started. What it writes goes into a file.
class Service {
public:
    Service(const std::vector<std::string>& words, std::filesystem::path output);
    ~Service();
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    void signal(int number) const;

    // The exit code, negative after a signal; none while it runs after this time.
    std::optional<int> ended(std::chrono::milliseconds time);

    std::string written() const;
    pid_t id() const { return process; }

private:
    pid_t process;
    std::filesystem::path output;
    std::optional<int> code;
};

class PrivateSession {
public:
    PrivateSession();
    ~PrivateSession();

    // A command's output; the test goes on whatever its exit code, which is kept.
    std::string command(const std::string& line);
    int code = 0; // of the last command

    void startServer();
    void killServer();
    void signalServer(int number);
    void startManager();
    void killManager();
    void signalManager(int number);
    void replugSpeakers(); // takes the null sink away and brings it back

    // quorel-live with these options, once its devices are there. under: a command that runs it.
    std::unique_ptr<Service> live(const std::vector<std::string>& options = {}, const std::vector<std::string>& under = {});

    // The same without waiting for anything.
    std::unique_ptr<Service> startLive(const std::vector<std::string>& options = {}, const std::vector<std::string>& under = {});

    // What the running quorel-live tells of itself; empty where none runs.
    nlohmann::json status();

    std::filesystem::path folder;

private:
    std::unique_ptr<Service> bus;
    std::unique_ptr<Service> server;
    std::unique_ptr<Service> manager;
    int started = 0; // services, for the names of their files
};

// True as soon as `reached` is; false when it is not in this time.
bool within(std::chrono::milliseconds time, const std::function<bool()>& reached);

} // namespace quorel
