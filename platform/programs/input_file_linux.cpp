// SPDX-License-Identifier: MIT
#include "platform/programs/input_file.h"

#include "platform/programs/unnamed_file_linux.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace quorel::platform {

namespace {

struct Descriptor {
    explicit Descriptor(int fd) : fd(fd) {}
    ~Descriptor()
    {
        if (fd >= 0)
            close(fd);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int fd;
};

[[noreturn]] void fail(const std::string& path, const std::string& reason)
{
    throw std::runtime_error("cannot read " + path + ": " + reason);
}

// The pipe is open without waiting: a read gives nothing while nobody has it open for writing, so poll tells when to read. It
// tells nothing of a pipe that nobody has ever opened for writing, and of the end of one that everybody has closed. Returns how many
// bytes it held.
std::uint64_t keepPipe(const std::string& path, int pipe, int file, const std::function<void()>& wait)
{
    std::array<char, 65536> part{};
    for (std::uint64_t bytes = 0;;) {
        wait();
        pollfd waited{pipe, POLLIN, 0};
        constexpr int patience = 100; // ms
        if (poll(&waited, 1, patience) <= 0)
            continue;
        const ssize_t got = read(pipe, part.data(), part.size());
        if (got == 0)
            return bytes;
        if (got < 0 && errno != EAGAIN && errno != EINTR)
            fail(path, std::strerror(errno));
        for (ssize_t done = 0; done < got;) {
            const ssize_t count = write(file, part.data() + done, static_cast<std::size_t>(got - done));
            if (count < 0 && errno != EINTR)
                fail(path, "what the pipe holds can't be kept in " + std::filesystem::temp_directory_path().string() + ": " +
                               std::strerror(errno));
            done += std::max<ssize_t>(count, 0);
        }
        bytes += static_cast<std::uint64_t>(std::max<ssize_t>(got, 0));
    }
}

} // namespace

InputFile::InputFile(const std::string& path, const std::function<void()>& wait)
{
    // Standard input is not opened anew: the end of a pipe that everybody has closed by now would never be told.
    Descriptor opened(path == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)
                                  : open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (opened.fd < 0)
        fail(path, std::strerror(errno));
    struct stat status {};
    if (fstat(opened.fd, &status) != 0 || !(S_ISREG(status.st_mode) || S_ISFIFO(status.st_mode)))
        fail(path, "not a regular file or a pipe");
    size = static_cast<std::uint64_t>(status.st_size);
    if (S_ISFIFO(status.st_mode)) {
        Descriptor kept(unnamedFile());
        if (kept.fd < 0)
            fail(path, "there is no place for what the pipe holds: " + std::string(std::strerror(errno)));
        size = keepPipe(path, opened.fd, kept.fd, wait);
        std::swap(opened.fd, kept.fd);
    }
    fd = std::exchange(opened.fd, -1);
}

InputFile::~InputFile()
{
    if (fd >= 0)
        close(fd);
}

std::string InputFile::read(std::size_t place, std::size_t bytes) const
{
    std::string text(bytes, '\0');
    std::size_t done = 0;
    while (done < bytes) {
        const ssize_t got = pread(fd, text.data() + done, bytes - done, static_cast<off_t>(place + done));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            throw std::runtime_error(std::strerror(errno));
        if (got == 0)
            break;
        done += static_cast<std::size_t>(got);
    }
    text.resize(done);
    return text;
}

int InputFile::release() noexcept
{
    lseek(fd, 0, SEEK_SET);
    return std::exchange(fd, -1);
}

} // namespace quorel::platform
