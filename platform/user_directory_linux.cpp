#include "platform/user_directory_linux.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace quorel::platform {

namespace {

std::string homeDirectory()
{
    const char* variable = secure_getenv("HOME");
    if (variable != nullptr && *variable == '/')
        return variable;
    std::array<char, 4096> texts{};
    passwd entry{};
    passwd* found = nullptr;
    if (getpwuid_r(geteuid(), &entry, texts.data(), texts.size(), &found) != 0 || found == nullptr)
        return {};
    return found->pw_dir;
}

bool writeAll(int file, const std::string& content)
{
    for (std::size_t done = 0; done < content.size();) {
        const auto written = write(file, content.data() + done, content.size() - done);
        if (written < 0 && errno != EINTR)
            return false;
        if (written > 0)
            done += static_cast<std::size_t>(written);
    }
    return true;
}

} // namespace

File::~File()
{
    if (descriptor >= 0)
        close(descriptor);
}

int File::release() noexcept
{
    return std::exchange(descriptor, -1);
}

UserDirectory::UserDirectory()
    : directory([] {
          auto path = homeDirectory();
          if (path.empty())
              return -1;
          for (const char* part : {"/.local", "/state", "/quorel"}) {
              path += part;
              if (mkdir(path.c_str(), 0700) != 0 && errno != EEXIST)
                  return -1;
          }
          File opened(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
          if (!opened || !isPrivate(opened.get(), S_IFDIR))
              return -1;
          int result = 0;
          do
              result = flock(opened.get(), LOCK_EX);
          while (result != 0 && errno == EINTR);
          return result == 0 ? opened.release() : -1;
      }())
{
}

bool isPrivate(int file, unsigned type) noexcept
{
    struct stat found {};
    return fstat(file, &found) == 0 && (found.st_mode & S_IFMT) == type && found.st_uid == geteuid() &&
           (found.st_mode & 077) == 0;
}

bool replaceFile(int directory, const std::string& name, const std::string& content)
{
    const auto temporary = name + ".new";
    {
        if (unlinkat(directory, temporary.c_str(), 0) != 0 && errno != ENOENT)
            return false;
        const File file(openat(directory, temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (!file || !writeAll(file.get(), content) || fsync(file.get()) != 0)
            return false;
    }
    return renameat(directory, temporary.c_str(), directory, name.c_str()) == 0 && fsync(directory) == 0;
}

bool readFile(int directory, const std::string& name, std::string& content)
{
    const File file(openat(directory, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!file || !isPrivate(file.get(), S_IFREG))
        return false;
    content.clear();
    std::array<char, 4096> part{};
    for (;;) {
        const auto count = read(file.get(), part.data(), part.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return count == 0;
        content.append(part.data(), static_cast<std::size_t>(count));
    }
}

} // namespace quorel::platform
