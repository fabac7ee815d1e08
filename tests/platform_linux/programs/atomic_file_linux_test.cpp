// SPDX-License-Identifier: MIT
#include "platform/programs/atomic_file.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

std::vector<std::string> calls; // of the first two below, in their order
int noLocks = 0;                // the error of every lock; 0: there are locks

} // namespace

extern "C" {
int __real_fsync(int file);
int __real_rename(const char* from, const char* to);
int __real_flock(int file, int how);

int __wrap_fsync(int file)
{
    calls.emplace_back("fsync");
    return __real_fsync(file);
}

int __wrap_rename(const char* from, const char* to)
{
    calls.emplace_back("rename");
    return __real_rename(from, to);
}

int __wrap_flock(int file, int how)
{
    errno = noLocks;
    return noLocks != 0 ? -1 : __real_flock(file, how);
}
}

namespace quorel::platform {
namespace {

namespace fs = std::filesystem;

class AtomicFileOnLinux : public testing::Test {
protected:
    AtomicFileOnLinux()
    {
        std::string pattern = (fs::temp_directory_path() / "quorel_atomic_XXXXXX").string();
        folder = mkdtemp(pattern.data());
    }
    ~AtomicFileOnLinux() override
    {
        umask(oldMask);
        fs::remove_all(folder);
    }

    void write(const std::string& name) const
    {
        AtomicFile file((folder / name).string());
        file.write("x");
        file.commit();
    }

    unsigned mode(const std::string& name) const
    {
        struct stat found {};
        EXPECT_EQ(stat((folder / name).c_str(), &found), 0);
        return found.st_mode & 07777;
    }

    std::size_t entries() const
    {
        return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
    }

    fs::path folder;
    mode_t oldMask = umask(022);
};

TEST_F(AtomicFileOnLinux, ANewFileGetsWhatTheMaskLeaves)
{
    for (const mode_t mask : {0U, 022U, 027U, 077U}) {
        umask(mask);
        const std::string name = "new" + std::to_string(mask);
        write(name);
        EXPECT_EQ(mode(name), 0666U & ~mask);
    }
}

TEST_F(AtomicFileOnLinux, AReplacedFileKeepsItsMode)
{
    for (const mode_t kept : {0600U, 0644U, 0660U, 0755U}) {
        std::ofstream(folder / "old") << "old";
        ASSERT_EQ(chmod((folder / "old").c_str(), kept), 0);
        write("old");
        EXPECT_EQ(mode("old"), kept);
    }
}

TEST_F(AtomicFileOnLinux, IsOnTheDiskBeforeItGetsItsName)
{
    calls.clear();
    write("file");
    EXPECT_EQ(calls, (std::vector<std::string>{"fsync", "rename"}));
}

TEST_F(AtomicFileOnLinux, IsWrittenOnAFileSystemWithoutLocksToo)
{
    for (const int error : {ENOLCK, EOPNOTSUPP, ENOSYS}) {
        noLocks = error;
        write("file");
        noLocks = 0;
        EXPECT_EQ(entries(), 1U) << "the file alone";
    }
}

TEST_F(AtomicFileOnLinux, TheNextStartRemovesWhatAKilledProgramLeft)
{
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t child = fork();
    if (child == 0) {
        const AtomicFile file((folder / "killed").string());
        static_cast<void>(::write(ready[1], "", 1));
        pause();
        _exit(0);
    }
    char byte = 0;
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
    write("first");
    EXPECT_EQ(entries(), 2U) << "the child's file is held";
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    write("second");
    EXPECT_EQ(entries(), 2U) << "first and second alone";
    close(ready[0]);
    close(ready[1]);
}

TEST_F(AtomicFileOnLinux, ALinkOrAFifoOfSuchANameStays)
{
    fs::create_symlink("nowhere", folder / ".quorel-abcdef");
    ASSERT_EQ(mkfifo((folder / ".quorel-ghijkl").c_str(), 0600), 0);
    write("file");
    EXPECT_EQ(entries(), 3U);
}

TEST_F(AtomicFileOnLinux, AFolderOrAPipeIsNotReplaced)
{
    const fs::path pipe = folder / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (const fs::path& path : {pipe, fs::path(folder)}) {
        try {
            const AtomicFile file(path.string());
            ADD_FAILURE() << path << " is replaced";
        } catch (const std::runtime_error& error) {
            EXPECT_EQ(error.what(), "cannot write " + path.string() + ": not a regular file");
        }
    }
    EXPECT_TRUE(fs::is_fifo(pipe));
    EXPECT_EQ(std::distance(fs::directory_iterator(folder), fs::directory_iterator()), 1) << "nothing else is left";
}

} // namespace
} // namespace quorel::platform
