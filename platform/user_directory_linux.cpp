// SPDX-License-Identifier: MIT
#include "platform/user_directory_linux.h"

#include "platform/refusal.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <initializer_list>
#include <memory>
#include <pwd.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace quorel::platform {

namespace {

constexpr const char* temporaryPrefix = ".new.";

// An absolute path, or empty.
std::string pathFrom(const char* variable)
{
    const char* value = secure_getenv(variable);
    return value != nullptr && *value == '/' ? value : "";
}

std::string homeDirectory()
{
    auto home = pathFrom("HOME");
    if (!home.empty())
        return home;
    std::array<char, 4096> texts{};
    passwd entry{};
    passwd* found = nullptr;
    if (getpwuid_r(geteuid(), &entry, texts.data(), texts.size(), &found) != 0 || found == nullptr)
        return {};
    return found->pw_dir;
}

bool isOwn(int file)
{
    struct stat found {};
    return fstat(file, &found) == 0 && found.st_uid == geteuid();
}

File openPlace(const char* path)
{
    return File(open(path, O_PATH | O_DIRECTORY | O_CLOEXEC));
}

// Goes down the parts from `directory`, and makes those that are missing when told to. The last one is opened for use, and
// is no link. Empty on failure, with errno.
File goDown(File directory, std::initializer_list<const char*> parts, IfMissing missing)
{
    for (const auto* part = parts.begin(); part != parts.end(); ++part) {
        const int how = (part + 1 == parts.end() ? O_RDONLY | O_NOFOLLOW : O_PATH) | O_DIRECTORY | O_CLOEXEC;
        File below(openat(directory.get(), *part, how));
        if (!below && errno == ENOENT && missing == IfMissing::isMade) {
            if (!isOwn(directory.get())) {
                errno = EPERM;
                return {};
            }
            if (mkdirat(directory.get(), *part, 0700) == 0) {
                const File parent(openat(directory.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
                static_cast<void>(fsync(parent.get())); // a power failure takes it and what is in it otherwise
            } else if (errno != EEXIST)
                return {};
            below = File(openat(directory.get(), *part, how));
        }
        if (!below)
            return {};
        directory = std::move(below);
    }
    return directory;
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

// Who writes a temporary file holds its lock: what has no lock was left by a process that is gone.
void removeLeftOvers(int directory)
{
    std::vector<std::string> names;
    static_cast<void>(listDirectory(directory, names));
    for (const auto& name : names) {
        if (!name.starts_with(temporaryPrefix))
            continue;
        const File file(openat(directory, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        if (file && isPrivate(file.get(), S_IFREG) && flock(file.get(), LOCK_EX | LOCK_NB) == 0)
            unlinkat(directory, name.c_str(), 0);
    }
}

// A new file that nobody takes for a left-over: it has its lock, and was still there when it got it. On a file system without
// locks nobody takes any for one.
File makeTemporary(int directory, std::string& name)
{
    for (int attempt = 0; attempt < 8; ++attempt) {
        const auto digits = unguessableDigits();
        if (digits.empty())
            return {};
        name = temporaryPrefix + digits;
        File file(openat(directory, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        struct stat made {};
        if (!file)
            return {};
        const bool taken = flock(file.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
        if (!taken && fstat(file.get(), &made) == 0 && made.st_nlink == 1)
            return file;
    }
    errno = EBUSY;
    return {};
}

} // namespace

File::~File()
{
    if (descriptor >= 0)
        close(descriptor);
}

File& File::operator=(File&& other) noexcept
{
    std::swap(descriptor, other.descriptor);
    return *this;
}

int File::release() noexcept
{
    return std::exchange(descriptor, -1);
}

UserDirectory::UserDirectory(Place place, IfMissing missing)
{
    if (place == Place::runtime) {
        path = pathFrom("XDG_RUNTIME_DIR");
        auto runtime = openPlace(path.c_str());
        if (runtime && isOwn(runtime.get())) {
            path += "/quorel";
            directory = goDown(std::move(runtime), {"quorel"}, missing);
        } else if (runtime || !isLack(errno)) // else others would stay in the one, and this process go to the other
            place = Place::state;
    }
    if (place == Place::state) {
        path = homeDirectory();
        auto home = openPlace(path.c_str());
        path += "/.local/state/quorel";
        if (home)
            directory = goDown(std::move(home), {".local", "state", "quorel"}, missing);
    }
    failure = directory ? 0 : errno;
    if (directory && !isPrivate(directory.get(), S_IFDIR)) {
        failure = EACCES;
        directory = File();
    }
    if (failure != 0 && (failure != ENOENT || missing == IfMissing::isMade))
        keepRefusal(path, failure);
}

bool UserDirectory::keepOthersOut() noexcept
{
    if (takeLock(directory.get(), patience))
        return true;
    keepRefusal(path, errno);
    return false;
}

bool isLack(int error) noexcept
{
    return error == EMFILE || error == ENFILE || error == ENOMEM || error == EINTR;
}

bool takeLock(int file, std::uint32_t milliseconds) noexcept
{
    const auto now = [] {
        timespec time{};
        clock_gettime(CLOCK_MONOTONIC, &time);
        return std::int64_t{time.tv_sec} * 1000000000 + time.tv_nsec;
    };
    const auto end = now() + std::int64_t{milliseconds} * 1000000;
    while (flock(file, LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR)
            return false;
        if (now() >= end) {
            errno = EBUSY;
            return false;
        }
        const timespec millisecond{0, 1000000};
        nanosleep(&millisecond, nullptr);
    }
    return true;
}

File openLock(const UserDirectory& directory, const std::string& name, std::uint32_t milliseconds)
{
    File lock(openat(directory.get(), name.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600));
    int error = lock ? EACCES : errno;
    if (lock && isPrivate(lock.get(), S_IFREG)) {
        if (takeLock(lock.get(), milliseconds))
            return lock;
        error = errno;
    }
    keepRefusal(directory.pathOf(name), error);
    return {};
}

bool isPrivate(int file, unsigned type) noexcept
{
    struct stat found {};
    return fstat(file, &found) == 0 && (found.st_mode & S_IFMT) == type && found.st_uid == geteuid() &&
           (found.st_mode & 077) == 0;
}

std::string unguessableDigits()
{
    std::array<unsigned char, 16> bytes{};
    if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size()))
        return {};
    std::string digits;
    for (const auto byte : bytes) {
        std::array<char, 3> two{};
        std::snprintf(two.data(), two.size(), "%02x", byte);
        digits += two.data();
    }
    return digits;
}

bool listDirectory(int directory, std::vector<std::string>& names)
{
    File own(openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)); // with a place of its own to read at
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(fdopendir(own.get()), closedir);
    if (!entries)
        return false;
    static_cast<void>(own.release());
    while (const auto* entry = readdir(entries.get())) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..")
            names.push_back(name);
    }
    return true;
}

bool replaceFile(int directory, const std::string& name, const std::string& content)
{
    removeLeftOvers(directory);
    std::string temporary;
    const File file = makeTemporary(directory, temporary);
    if (!file)
        return false;
    if (writeAll(file.get(), content) && fsync(file.get()) == 0 &&
        renameat(directory, temporary.c_str(), directory, name.c_str()) == 0)
        return fsync(directory) == 0;
    const int error = errno;
    unlinkat(directory, temporary.c_str(), 0);
    errno = error;
    return false;
}

int readFile(int directory, const std::string& name, std::size_t most, std::string& content)
{
    content.clear();
    const File file(openat(directory, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!file)
        return errno;
    if (!isPrivate(file.get(), S_IFREG))
        return EACCES;
    std::array<char, 4096> part{};
    for (;;) {
        const auto count = read(file.get(), part.data(), part.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return count == 0 ? 0 : errno;
        content.append(part.data(), static_cast<std::size_t>(count));
        if (content.size() > most)
            return EFBIG;
    }
}

} // namespace quorel::platform
