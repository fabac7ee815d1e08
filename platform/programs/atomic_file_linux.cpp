#include "platform/programs/atomic_file.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace quorel::platform {

AtomicFile::AtomicFile(const std::string& path) : shown(path)
{
    std::error_code unresolved; // a path that leads nowhere is told by mkstemp below
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

    temporary = (target.parent_path() / ".quorel-XXXXXX").string();
    fd = mkstemp(temporary.data());
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
