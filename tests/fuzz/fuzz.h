// SPDX-License-Identifier: MIT
// What the fuzz targets share. A target is one function of bytes, fuzzTarget, that a fuzzer calls with whatever it makes up and a
// check with the files of tests/fuzz/corpus/<target>: nothing that it calls may crash, hang, leak or leave its memory, and `require`
// says what else holds. What is refused is refused by an exception of the kind that the target catches, and by none other.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <type_traits>
#include <unistd.h>

namespace quorel {

inline void require(bool holds, const char* what)
{
    if (holds)
        return;
    std::fprintf(stderr, "does not hold: %s\n", what);
    std::abort();
}

// Takes what a target needs out of its bytes, one after the other; behind their end there are zeros.
class FuzzInput {
public:
    FuzzInput(const std::uint8_t* data, std::size_t size) : rest(reinterpret_cast<const char*>(data), size) {}

    bool ended() const { return rest.empty(); }

    template <typename T>
    T number()
    {
        static_assert(std::is_trivially_copyable_v<T>);
        T value{};
        const auto bytes = text(sizeof value);
        std::memcpy(&value, bytes.data(), bytes.size());
        return value;
    }

    std::uint32_t below(std::uint32_t limit) { return (limit <= 256 ? number<std::uint8_t>() : number<std::uint16_t>()) % limit; }

    std::string_view text(std::size_t most)
    {
        const auto taken = rest.substr(0, most);
        rest.remove_prefix(taken.size());
        return taken;
    }

    std::string_view line()
    {
        const auto taken = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(taken.size() + (taken.size() < rest.size()));
        return taken;
    }

    std::string_view all() const { return rest; }

private:
    std::string_view rest;
};

// A file in memory that can be opened by its path.
class MemoryFile {
public:
    MemoryFile(const std::uint8_t* data, std::size_t size) : fd(memfd_create("fuzz", MFD_CLOEXEC))
    {
        require(fd >= 0 && write(fd, data, size) == static_cast<ssize_t>(size), "there is memory for the file");
    }
    ~MemoryFile() { close(fd); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    std::string path() const { return "/proc/self/fd/" + std::to_string(fd); }

private:
    int fd;
};

} // namespace quorel

// -1 where the bytes are of no use for the target, else 0.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
