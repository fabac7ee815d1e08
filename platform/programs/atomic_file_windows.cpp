// SPDX-License-Identifier: MIT
#include "platform/programs/atomic_file.h"

#include "platform/programs/file_names.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <io.h>
#include <stdexcept>
#include <sys/stat.h>
#include <windows.h>

namespace quorel::platform {

namespace {

constexpr const char* prefix = ".quorel-";

// A file that a process has open without sharing its removal can't be removed.
void removeAbandoned(const std::filesystem::path& folder)
{
    std::error_code unreadable; // then they stay
    for (const auto& entry : std::filesystem::directory_iterator(folder.empty() ? "." : folder, unreadable)) {
        const std::string name = textOf(entry.path().filename());
        std::error_code gone;
        if (name.starts_with(prefix) && name != prefix &&
            name.find_first_not_of("0123456789-", std::strlen(prefix)) == std::string::npos && entry.is_regular_file(gone))
            DeleteFileW(entry.path().c_str());
    }
}

} // namespace

AtomicFile::AtomicFile(const std::string& path) : shown(path)
{
    std::error_code unresolved;
    target = std::filesystem::weakly_canonical(pathOf(path), unresolved);
    if (unresolved || target.empty())
        target = pathOf(path);

    std::error_code absent;
    const auto status = std::filesystem::status(target, absent);
    if (std::filesystem::exists(status)) {
        if (!std::filesystem::is_regular_file(status))
            fail("not a regular file");
        if (_waccess(target.c_str(), 2) != 0) // for writing
            fail(std::strerror(errno));
    }

    removeAbandoned(target.parent_path());
    // The process's own name for it, since no other process has its number.
    static std::atomic<unsigned> made = 0;
    temporary = textOf(target.parent_path() / (prefix + std::to_string(GetCurrentProcessId()) + '-' + std::to_string(++made)));
    fd = _wopen(pathOf(temporary).c_str(), _O_RDWR | _O_CREAT | _O_TRUNC | _O_BINARY | _O_NOINHERIT, _S_IREAD | _S_IWRITE);
    if (fd < 0) {
        temporary.clear();
        fail(std::strerror(errno));
    }
}

AtomicFile::~AtomicFile()
{
    if (fd >= 0)
        _close(fd);
    if (!temporary.empty())
        _wunlink(pathOf(temporary).c_str());
}

void AtomicFile::write(const std::string& text)
{
    for (std::size_t done = 0; done < text.size();) {
        const int count = _write(fd, text.data() + done, static_cast<unsigned>(text.size() - done));
        if (count < 0)
            fail(std::strerror(errno));
        done += static_cast<std::size_t>(count);
    }
}

// An open file can't be renamed here.
void AtomicFile::commit()
{
    const bool onDisk = _commit(fd) == 0;
    const bool closed = _close(fd) == 0;
    fd = -1;
    if (!onDisk || !closed)
        fail(std::strerror(errno));
    if (MoveFileExW(pathOf(temporary).c_str(), target.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) == 0)
        fail("it could not be put in place");
    temporary.clear();
}

void AtomicFile::fail(const char* reason) const
{
    throw std::runtime_error("cannot write " + shown + ": " + reason);
}

} // namespace quorel::platform
