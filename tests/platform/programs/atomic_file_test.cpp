// SPDX-License-Identifier: MIT
#include "platform/programs/atomic_file.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <sstream>

namespace quorel::platform {
namespace {

namespace fs = std::filesystem;

class AtomicFileTest : public testing::Test {
protected:
    AtomicFileTest() : folder(fs::temp_directory_path() / ("quorel_atomic_" + std::to_string(std::random_device()())))
    {
        fs::create_directories(folder);
    }
    ~AtomicFileTest() override { fs::remove_all(folder); }

    std::string path(const std::string& name) const { return (folder / name).string(); }

    void store(const std::string& name, const std::string& text) const { std::ofstream(path(name), std::ios::binary) << text; }

    std::string contents(const std::string& name) const
    {
        std::ostringstream text;
        text << std::ifstream(path(name), std::ios::binary).rdbuf();
        return text.str();
    }

    std::set<std::string> names() const
    {
        std::set<std::string> found;
        for (const auto& entry : fs::directory_iterator(folder))
            found.insert(entry.path().filename().string());
        return found;
    }

    fs::path folder;
};

TEST_F(AtomicFileTest, GetsItsNameWhenItIsCommitted)
{
    store("file", "old");
    {
        AtomicFile file(path("file"));
        file.write("new and ");
        file.write("longer");
        EXPECT_EQ(contents("file"), "old");
        file.commit();
    }
    EXPECT_EQ(contents("file"), "new and longer");
    EXPECT_EQ(names(), std::set<std::string>{"file"});
}

TEST_F(AtomicFileTest, LeavesNothingWhenItIsGivenUp)
{
    {
        AtomicFile file(path("file"));
        file.write("new");
    }
    EXPECT_EQ(names(), std::set<std::string>{});
}

TEST_F(AtomicFileTest, TwoOfOneProcessAreTwoFiles)
{
    AtomicFile first(path("first"));
    AtomicFile second(path("second"));
    first.write("1");
    second.write("2");
    first.commit();
    second.commit();
    EXPECT_EQ(contents("first"), "1");
    EXPECT_EQ(contents("second"), "2");
}

// A killed program's file has such a name; what only looks like it is somebody else's.
TEST_F(AtomicFileTest, RemovesWhatNobodyHolds)
{
    store(".quorel-123456", "left over");
    const std::set<std::string> others = {".quorel-notes.txt", ".quorel-", "quorel-123456"};
    for (const std::string& name : others)
        store(name, "");
    fs::create_directory(folder / ".quorel-234567");
    AtomicFile held(path("held"));
    AtomicFile(path("another"));
    held.write("x");
    held.commit();
    std::set<std::string> expected = others;
    expected.insert({".quorel-234567", "held"});
    EXPECT_EQ(names(), expected);
}

} // namespace
} // namespace quorel::platform
