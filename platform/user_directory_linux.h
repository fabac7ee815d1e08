// The user's private directory <home>/.local/state/quorel, which holds whatever processes of one user share by name.
//
// Only its owner may enter it, so what stands in it was put there by this user and nobody else can read, write or squat on
// it. Home is the variable HOME, else the home directory of the user's account.
#pragma once

#include <string>

namespace quorel::platform {

// An open file of the system, closed with the object.
class File {
public:
    File() = default;
    explicit File(int descriptor) noexcept : descriptor(descriptor) {}
    ~File();
    File(File&& other) noexcept : descriptor(other.release()) {}
    File& operator=(File&&) = delete;

    explicit operator bool() const noexcept { return descriptor >= 0; }
    int get() const noexcept { return descriptor; }
    int release() noexcept;

private:
    int descriptor = -1;
};

class UserDirectory {
public:
    // Opens the directory, which is made when it is missing, and keeps other processes (and threads) that ask for it out
    // until the object goes. False when there is none, or when anybody but its owner could enter it.
    UserDirectory();
    explicit operator bool() const noexcept { return static_cast<bool>(directory); }
    int get() const noexcept { return directory.get(); }

private:
    File directory;
};

// True for an open file of the wanted type (S_IFREG, S_IFIFO, S_IFDIR) that belongs to this user and that nobody else may
// use.
bool isPrivate(int file, unsigned type) noexcept;

// Replaces the file `name` in the directory by one with this content, so that a power failure leaves the old one or the new.
bool replaceFile(int directory, const std::string& name, const std::string& content);

// The content of a private file; false when it is not there or not private.
bool readFile(int directory, const std::string& name, std::string& content);

} // namespace quorel::platform
