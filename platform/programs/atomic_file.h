// SPDX-License-Identifier: MIT
// AtomicFile gives a new file its name only when it is complete: until then, and for good when it is given up, whatever bore
// the name stays as it was.
#pragma once

#include <filesystem>
#include <string>

namespace quorel::platform {

class AtomicFile {
public:
    // Opens a neighbour of `path` with a name of our programs' own, ".quorel-" and some letters, in the same folder since
    // renaming does not cross file systems. A link is followed. Neighbours that killed programs have left there are removed:
    // those that no process has open. Fails with std::runtime_error when the file could not be put in place later.
    explicit AtomicFile(const std::string& path);
    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;

    // Removes what was written, unless it was committed.
    ~AtomicFile();

    // Open for reading and writing; it belongs to this object.
    int descriptor() const noexcept { return fd; }

    // Puts a text behind what was written.
    void write(const std::string& text);

    // Waits until the contents are on the disk, then puts the file in place.
    void commit();

private:
    [[noreturn]] void fail(const char* reason) const;

    std::string shown;            // the path as the user wrote it
    std::filesystem::path target; // the file that is replaced
    std::string temporary;        // its neighbour; empty once it has its name
    int fd = -1;
};

} // namespace quorel::platform
