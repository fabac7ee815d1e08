// SPDX-License-Identifier: MIT
// The memory of a mapping is taken when it is made: what is only promised would kill the process that touches it when the system
// has none left.
#include "platform/sharing.h"

#include "tests/support/temporary_home.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>
#include <sys/stat.h>

namespace quorel::platform {
namespace {

std::set<int> openFiles()
{
    std::set<int> files;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
        files.insert(std::stoi(entry.path().filename().string()));
    return files;
}

TEST(SharedPages, AreAllocatedWhenAMappingIsMade)
{
    const TemporaryHome home;
    auto* everybody = convertDescriptor("D:(A;OICI;GA;;;BA)(A;OICI;FA;;;BU)(A;OICI;FA;;;LS)(A;OICI;FA;;;SY)");
    for (const std::uint32_t bytes : {1060U, 65536U}) {
        const auto before = openFiles();
        const auto mapping = createMapping(bytes == 1060 ? "Global\\QUORELTestMem" : "Global\\QUORELTestHRTF", bytes, everybody);
        ASSERT_NE(mapping, nullptr);
        std::uint64_t allocated = 0;
        for (const int file : openFiles()) {
            struct stat found {};
            if (!before.contains(file) && fstat(file, &found) == 0 && S_ISREG(found.st_mode) &&
                found.st_size >= static_cast<off_t>(bytes))
                allocated = static_cast<std::uint64_t>(found.st_blocks) * 512;
        }
        EXPECT_GE(allocated, bytes);
        closeHandle(mapping);
    }
    freeDescriptor(everybody);
}

} // namespace
} // namespace quorel::platform
