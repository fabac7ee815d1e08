// SPDX-License-Identifier: MIT
#include "platform/programs/local_question.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

namespace quorel::platform {

std::optional<std::string> askLocally(const std::string& socketPath, const std::string& line)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (socketPath.size() >= sizeof address.sun_path)
        throw std::runtime_error(socketPath + " is too long for a socket's name");
    std::memcpy(address.sun_path, socketPath.c_str(), socketPath.size());

    const int file = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (file < 0)
        throw std::runtime_error(std::string("socket: ") + std::strerror(errno));
    const timeval patience{2, 0};
    setsockopt(file, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    setsockopt(file, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    if (::connect(file, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        close(file);
        return std::nullopt;
    }
    const std::string sent = line + '\n';
    std::string reply;
    if (send(file, sent.c_str(), sent.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(sent.size())) {
        std::array<char, 4096> part{};
        for (ssize_t got = 0; (got = recv(file, part.data(), part.size(), 0)) > 0;)
            reply.append(part.data(), static_cast<std::size_t>(got));
    }
    close(file);
    if (!reply.ends_with('\n'))
        throw std::runtime_error("the program at " + socketPath + " does not answer");
    reply.pop_back();
    return reply;
}

} // namespace quorel::platform
