// SPDX-License-Identifier: MIT
// The programs' files and children with each of their calls of the system refused once.
#include "platform/programs/atomic_file.h"
#include "platform/programs/limited_source.h"
#include "tests/support/refused_calls.h"
#include "tests/support/temporary_home.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/stat.h>

namespace quorel::platform {
namespace {

namespace fs = std::filesystem;

std::string contents(const fs::path& path)
{
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

// The old text or the new one, whole, with the file's permissions; what is left beside it goes with the next one that is written.
TEST(RefusedFiles, AFileIsReplacedOrIsNot)
{
    const TemporaryHome home;
    const fs::path folder = home.path() / "folder";
    const fs::path path = folder / "file";
    fs::create_directory(folder);
    std::ofstream(path) << "0";
    fs::permissions(path, fs::perms(0640));
    int last = 0; // that was to be kept
    expectSafeWhenRefused([&] {
        bool told = false;
        const std::string old = contents(path);
        const std::string wanted = std::to_string(++last);
        try {
            AtomicFile file(path.string());
            file.write(wanted);
            file.commit();
        } catch (const std::runtime_error& error) {
            told = true;
            EXPECT_EQ(std::string(error.what()).rfind("cannot write " + path.string() + ": ", 0), 0U) << error.what();
        }
        EXPECT_EQ(contents(path), told ? old : wanted);
        EXPECT_EQ(fs::status(path).permissions(), fs::perms(0640));
        if (!callFailed()) {
            EXPECT_EQ(std::distance(fs::directory_iterator(folder), {}), 1);
        }
        return !told;
    });
}

TEST(RefusedFiles, AChildGivesAllThatItWasToOrNothing)
{
    const WorkLimits limits{.processorSeconds = 10, .seconds = 20, .memoryBytes = std::uint64_t{1} << 30, .resultBytes = 100000};
    const std::string wanted(70000, 'x'); // more than a pipe holds
    std::multiset<std::string> told;
    expectSafeWhenRefused([&] {
        try {
            EXPECT_EQ(doInChild([&] { return wanted; }, limits, [] {}), wanted);
            return true;
        } catch (const std::runtime_error& error) {
            told.insert(error.what());
            return false;
        }
    });
    for (const int error : {EMFILE, ENOMEM, EINTR})
        EXPECT_EQ(told.count(std::strerror(error)), 2U) << "no pipe, no child";
}

} // namespace
} // namespace quorel::platform
