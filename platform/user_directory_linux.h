// SPDX-License-Identifier: MIT
// The two private directories of a user, which hold whatever processes of one user share by name:
//
//   Place::runtime   what lives as long as its holders: $XDG_RUNTIME_DIR/quorel, where there is such a directory of this user;
//                    elsewhere the other one
//   Place::state     what is kept: <home>/.local/state/quorel, home being the variable HOME, else that of the user's account
//
// Only their owner may enter them, so what stands in them was put there by this user and nobody else can read, write or squat
// on it. What they refuse is kept as the process's last refusal.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace quorel::platform {

// An open file of the system, closed with the object.
class File {
public:
    File() = default;
    explicit File(int descriptor) noexcept : descriptor(descriptor) {}
    ~File();
    File(File&& other) noexcept : descriptor(other.release()) {}
    File& operator=(File&& other) noexcept;

    explicit operator bool() const noexcept { return descriptor >= 0; }
    int get() const noexcept { return descriptor; }
    int release() noexcept;

private:
    int descriptor = -1;
};

enum class Place { runtime, state };
enum class IfMissing { isNone, isMade };

inline constexpr std::uint32_t patience = 2000; // ms, for whoever holds a lock among the user's processes

class UserDirectory {
public:
    // False when there is none, or when anybody but its owner could enter it. It is made only in a directory of this user:
    // a program that runs as another user with this one's variables locks nobody out.
    UserDirectory(Place place, IfMissing missing);
    explicit operator bool() const noexcept { return static_cast<bool>(directory); }
    int get() const noexcept { return directory.get(); }
    int error() const noexcept { return failure; } // why it is false
    std::string pathOf(const std::string& name) const { return path + '/' + name; }

    // Keeps other processes (and threads) that ask for it out until the object goes; false when the patience is over.
    bool keepOthersOut() noexcept;

private:
    std::string path;
    File directory;
    int failure = 0;
};

// True where the system only lacks something just now: then it has told nothing about what was asked for.
bool isLack(int error) noexcept;

// Takes the exclusive lock of an open file within so many milliseconds. On failure errno tells why: EBUSY for one that another
// has.
bool takeLock(int file, std::uint32_t milliseconds) noexcept;

// A file of the directory, made when it is missing, with its exclusive lock; none when that takes longer, or when somebody
// else could use the file. The kernel gives the lock up with the process.
File openLock(const UserDirectory& directory, const std::string& name, std::uint32_t milliseconds);

// True for an open file of the wanted type (S_IFREG, S_IFIFO, S_IFDIR) that belongs to this user and that nobody else may
// use.
bool isPrivate(int file, unsigned type) noexcept;

// 32 hexadecimal digits that nobody can guess; empty on failure.
std::string unguessableDigits();

// The names in a directory but for "." and ".."; false when it can't be read.
bool listDirectory(int directory, std::vector<std::string>& names);

// Replaces the file `name` in the directory by one with this content, so that a power failure leaves the old one or the new,
// whoever else replaces it at the same time. Removes what killed processes left half-written. On failure errno tells why.
bool replaceFile(int directory, const std::string& name, const std::string& content);

// Reads a private file of at most so many bytes; 0, or the system's error number, which is ENOENT only when nothing is there.
int readFile(int directory, const std::string& name, std::size_t most, std::string& content);

} // namespace quorel::platform
