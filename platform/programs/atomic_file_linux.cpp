// SPDX-License-Identifier: MIT
#include "platform/programs/atomic_file.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quorel::platform {

namespace {

constexpr std::string_view prefix = ".quorel-";
constexpr std::string_view pattern = "XXXXXX"; // of mkstemp

// Whoever writes such a file holds a lock on it, which the kernel takes away when the process ends, however it ends.
void removeAbandoned(const std::filesystem::path& folder)
{
    std::error_code unreadable; // then they stay
    for (const auto& entry : std::filesystem::directory_iterator(folder.empty() ? "." : folder, unreadable)) {
        const std::string name = entry.path().filename().string();
        if (!name.starts_with(prefix) || name.size() != prefix.size() + pattern.size())
            continue;
        const int file = open(entry.path().c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
        if (file < 0)
            continue;
        struct stat found {};
        if (fstat(file, &found) == 0 && S_ISREG(found.st_mode) && found.st_uid == geteuid() &&
            flock(file, LOCK_EX | LOCK_NB) == 0)
            unlink(entry.path().c_str());
        close(file);
    }
}

// A new file that this process holds; -1 on failure. Between its making and its locking another program may have removed it, or
// be about to; on a file system without locks nobody does.
int makeHeld(std::string& path)
{
    for (const std::string wanted = path;; path = wanted) {
        const int file = mkostemp(path.data(), O_CLOEXEC);
        struct stat made {};
        if (file < 0)
            return file;
        const bool taken = flock(file, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
        if (!taken && fstat(file, &made) == 0 && made.st_nlink > 0)
            return file;
        close(file);
    }
}

} // namespace

AtomicFile::AtomicFile(const std::string& path) : shown(path)
{
    std::error_code unresolved; // a path that leads nowhere is told when the file is made
    target = std::filesystem::weakly_canonical(path, unresolved);
    if (unresolved || target.empty())
        target = path;

    // A new file gets what the process's mask leaves, a replaced one keeps its permissions.
    const mode_t mask = umask(0);
    umask(mask);
    mode_t mode = 0666 & ~mask;
    struct stat old {};
    if (stat(target.c_str(), &old) == 0) {
        if (!S_ISREG(old.st_mode))
            fail("not a regular file");
        if (access(target.c_str(), W_OK) != 0)
            fail(std::strerror(errno));
        mode = old.st_mode & 0777;
    }

    removeAbandoned(target.parent_path());
    temporary = (target.parent_path() / (std::string(prefix) + std::string(pattern))).string();
    fd = makeHeld(temporary);
    if (fd < 0)
        fail(std::strerror(errno));
    if (fchmod(fd, mode) != 0) {
        const int error = errno;
        unlink(temporary.c_str());
        close(fd);
        fail(std::strerror(error));
    }
}

AtomicFile::~AtomicFile()
{
    if (!temporary.empty())
        unlink(temporary.c_str());
    close(fd);
}

void AtomicFile::write(const std::string& text)
{
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t count = ::write(fd, text.data() + done, text.size() - done);
        if (count < 0 && errno != EINTR)
            fail(std::strerror(errno));
        done += static_cast<std::size_t>(std::max<ssize_t>(count, 0));
    }
}

void AtomicFile::commit()
{
    if (fsync(fd) != 0 || std::rename(temporary.c_str(), target.c_str()) != 0)
        fail(std::strerror(errno));
    temporary.clear();
}

void AtomicFile::fail(const char* reason) const
{
    throw std::runtime_error("cannot write " + shown + ": " + reason);
}

} // namespace quorel::platform
