// SPDX-License-Identifier: MIT
#include "live/instance.h"

#include "client/live_status.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace quorel {

namespace {

constexpr std::size_t longestCommand = 255; // bytes

std::runtime_error failure(const std::string& what)
{
    return std::runtime_error(what + ": " + std::strerror(errno));
}

std::string madeFolder()
{
    std::string path = liveFolder();
    if (mkdir(path.c_str(), 0700) != 0 && errno != EEXIST)
        throw failure(path);
    return path;
}

sockaddr_un addressOf(const std::string& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path)
        throw std::runtime_error(path + " is too long for a socket's name");
    std::memcpy(address.sun_path, path.c_str(), path.size());
    return address;
}

} // namespace

InstanceLock::InstanceLock() : file(open((madeFolder() + "/live.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600))
{
    if (file < 0)
        throw failure(liveFolder() + "/live.lock");
    if (flock(file, LOCK_EX | LOCK_NB) == 0)
        return;
    const bool taken = errno == EWOULDBLOCK;
    close(file);
    throw taken ? std::runtime_error("another one is running already; --status tells what it does") : failure("live.lock");
}

InstanceLock::~InstanceLock()
{
    close(file);
}

CommandSocket::CommandSocket(pw_loop* loop, std::function<std::string(const std::string&)> answer)
    : loop(loop), answer(std::move(answer)), path(madeFolder() + "/live.sock")
{
    const sockaddr_un address = addressOf(path);
    const int file = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (file < 0)
        throw failure(path);
    unlink(path.c_str()); // of one that was killed
    const mode_t before = umask(0177);
    const bool bound = bind(file, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    umask(before);
    if (!bound || listen(file, 8) != 0) {
        const std::runtime_error error = failure(path);
        close(file);
        throw error;
    }
    door = LoopInput::of(loop, file, [this, file] { admit(file); });
    if (!door)
        throw failure(path);
}

CommandSocket::~CommandSocket()
{
    unlink(path.c_str());
}

void CommandSocket::admit(int file)
{
    const int caller = accept4(file, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (caller >= 0)
        callers[caller] = LoopInput::of(loop, caller, [this, caller] { serve(caller); });
}

// A command is short enough to come in one piece. An answer fits into a socket's memory; a caller that does not read loses it.
void CommandSocket::serve(int file)
{
    std::array<char, longestCommand + 1> text{};
    const ssize_t got = recv(file, text.data(), text.size(), 0);
    if (got < 0 && (errno == EAGAIN || errno == EINTR))
        return;
    if (got > 0) {
        const std::string reply = replyTo({text.data(), static_cast<std::size_t>(got)}) + '\n';
        static_cast<void>(send(file, reply.c_str(), reply.size(), MSG_NOSIGNAL | MSG_DONTWAIT));
    }
    callers.erase(file);
}

std::string CommandSocket::replyTo(std::string_view received) const
{
    const auto end = received.find('\n');
    if (end == std::string_view::npos)
        return R"({"error": "no command"})";
    return answer(std::string(received.substr(0, end)));
}

} // namespace quorel
