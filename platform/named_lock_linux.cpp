// The lock is a file in the user's private directory, and holding it is an exclusive file lock: the kernel gives it up with
// the process.
#include "platform/named_lock.h"

#include "platform/user_directory_linux.h"

#include <ctime>
#include <exception>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>

namespace quorel::platform {

namespace {

File openLock(const char* name)
{
    const UserDirectory directory;
    if (!directory)
        return {};
    const std::string_view text(name);
    const std::string file = "lock." + std::string(text.substr(text.rfind('\\') + 1));
    File lock(openat(directory.get(), file.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600));
    return lock && isPrivate(lock.get(), S_IFREG) ? std::move(lock) : File();
}

} // namespace

NamedLock::NamedLock(const char* name, const Descriptor*, std::uint32_t milliseconds) noexcept
try {
    File lock = openLock(name);
    if (!lock)
        return;
    for (std::uint32_t waited = 0; flock(lock.get(), LOCK_EX | LOCK_NB) != 0; ++waited) {
        if (waited >= milliseconds)
            return;
        const timespec millisecond{0, 1000000};
        nanosleep(&millisecond, nullptr);
    }
    held = lock.release();
} catch (const std::exception&) {
    // There is no lock then.
}

NamedLock::~NamedLock()
{
    if (held != none)
        File(static_cast<int>(held)); // closed with this
}

} // namespace quorel::platform
