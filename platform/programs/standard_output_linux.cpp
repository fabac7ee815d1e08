// SPDX-License-Identifier: MIT
#include "platform/programs/standard_output.h"

#include "platform/programs/unnamed_file_linux.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

namespace quorel::platform {

namespace {

[[noreturn]] void fail(const std::string& reason)
{
    throw std::runtime_error("cannot write to standard output: " + reason);
}

} // namespace

StandardOutput::StandardOutput()
{
    if (isatty(STDOUT_FILENO) == 1)
        fail("it is a terminal");
    fd = unnamedFile();
    if (fd < 0)
        fail("there is no place for what goes there: " + std::string(std::strerror(errno)));
}

StandardOutput::~StandardOutput()
{
    if (fd >= 0)
        close(fd);
}

void StandardOutput::commit()
{
    std::array<char, 65536> part{};
    off_t place = 0;
    for (;;) {
        const ssize_t got = pread(fd, part.data(), part.size(), place);
        if (got < 0)
            fail(std::strerror(errno));
        if (got == 0)
            return;
        for (ssize_t done = 0; done < got;) {
            const ssize_t count = write(STDOUT_FILENO, part.data() + done, static_cast<std::size_t>(got - done));
            if (count < 0 && errno != EINTR)
                fail(std::strerror(errno));
            done += std::max<ssize_t>(count, 0);
        }
        place += got;
    }
}

} // namespace quorel::platform
