// The lock is a file in the user's private directory, and holding it is an exclusive file lock: the kernel gives it up with
// the process.
#include "platform/named_lock.h"

#include "platform/refusal.h"
#include "platform/user_directory_linux.h"

#include <cerrno>
#include <exception>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <sys/stat.h>

namespace quorel::platform {

NamedLock::NamedLock(const char* name, const Descriptor*, std::uint32_t milliseconds) noexcept
try {
    const UserDirectory directory(Place::runtime, IfMissing::isMade);
    if (!directory)
        return;
    const std::string_view text(name);
    const std::string file = "lock." + std::string(text.substr(text.rfind('\\') + 1));
    File lock(openat(directory.get(), file.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600));
    const int error = lock ? EACCES : errno;
    if (!lock || !isPrivate(lock.get(), S_IFREG))
        keepRefusal(directory.pathOf(file), error);
    else if (!takeLock(lock.get(), milliseconds))
        keepRefusal(directory.pathOf(file), EBUSY);
    else
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
