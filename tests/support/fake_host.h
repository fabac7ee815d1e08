// SPDX-License-Identifier: MIT
// A live host that our programs find and that answers what a test likes.
#pragma once

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace quorel {

// A side as a host tells of it; `more` begins with a comma or is empty.
inline std::string hostSide(const std::string& device, bool running, int channels, const std::string& more = "")
{
    return R"({"devices": [)" + (device.empty() ? "" : '"' + device + '"') + R"(], "running": )" + (running ? "true" : "false") +
           R"(, "channels": )" + std::to_string(channels) + R"(, "rate": 48000, "drift_ppm": 0, "quantum": 256, "block": 240, )" +
           R"("added_frames": 0, "added_ms": 0, "total_ms": 10.5, "load_mean": 1.5, "load_worst": 2, "gaps": 3, )" +
           R"("gap_frames": 0, "refused_blocks": 0, "refusal": "", "bad_samples": 0, "path_changes": 0, "lost_frames": 0)" +
           more + '}';
}

// What a host answers; `sides` are names and sides, each behind a comma.
inline std::string hostStatus(bool bypass, const std::string& sides = {})
{
    return std::string(R"({"connected": true, "reconnects": 0, "scheduling": "FIFO", "bypass": )") + (bypass ? "true" : "false") +
           sides + '}';
}

// Listens where quorel-live does, in the test program's own home. `answer` says what to answer; a door without one lets everybody
// wait.
class FakeHost {
public:
    using Answer = std::function<std::string(const std::string&)>;

    explicit FakeHost(Answer answer) : door(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        const auto folder = std::filesystem::path(std::getenv("XDG_RUNTIME_DIR")) / "quorel";
        std::filesystem::create_directories(folder);
        std::filesystem::permissions(folder, std::filesystem::perms::owner_all); // or nothing else of it is trusted
        path = folder / "live.sock";
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.string().copy(static_cast<char*>(address.sun_path), sizeof address.sun_path - 1);
        if (bind(door, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 || listen(door, 8) != 0)
            throw std::runtime_error("FakeHost: no socket");
        if (answer)
            thread = std::thread([this, answer = std::move(answer)] { serve(answer); });
    }
    ~FakeHost()
    {
        shutdown(door, SHUT_RDWR);
        if (thread.joinable())
            thread.join();
        close(door);
        std::filesystem::remove(path);
    }
    FakeHost(const FakeHost&) = delete;
    FakeHost& operator=(const FakeHost&) = delete;

    bool called() const
    {
        pollfd caller{door, POLLIN, 0};
        return poll(&caller, 1, 0) == 1;
    }

private:
    void serve(const Answer& answer)
    {
        for (;;) {
            const int caller = accept(door, nullptr, nullptr);
            if (caller < 0)
                return;
            std::array<char, 256> text{};
            const ssize_t got = read(caller, text.data(), text.size());
            const std::string line =
                answer(std::string(text.data(), static_cast<std::size_t>(std::max<ssize_t>(got, 1) - 1))) + '\n';
            static_cast<void>(send(caller, line.c_str(), line.size(), MSG_NOSIGNAL));
            close(caller);
        }
    }

    int door;
    std::filesystem::path path;
    std::thread thread;
};

} // namespace quorel
