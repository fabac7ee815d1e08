// SPDX-License-Identifier: MIT
// Power that fails while values are saved: what the disk holds then is worked out from the steps that were asked of it. A file
// that was not brought there has nothing of its content, a part of it, or zeros; of a folder's changes that were not brought
// there any may be missing, and they come in any order. Whatever of this happens, the values are those of one save, whole, and
// of none before the last one that had ended.
//
//   QUOREL_LOSSES=100000    so many losses instead of 500
//   QUOREL_SEED=7           other ones
#include "platform/registry.h"

#include "tests/support/temporary_home.h"
#include "tests/support/wished.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

// A file or folder, by the order in which they were made; 0 is the home.
using Node = std::size_t;

// A step that a program asked of the disk.
struct Step {
    enum Kind { makeFile, makeFolder, rename, remove, write, bringFile, bringFolder, saved };

    Kind kind;
    Node place = 0;      // the folder that is changed or brought to the disk, or the file
    std::string text{};  // the name in the folder; what is written
    std::string other{}; // the new name
    Node named = 0;      // what is made or renamed
};

// What was asked below the home since `begin`.
struct Journal {
    std::vector<Step> steps;
    std::map<ino_t, Node> nodes; // none of what was there before, and of nothing while the journal is closed
    Node last = 0;

    void begin(const char* home)
    {
        struct stat found {};
        stat(home, &found);
        nodes = {{found.st_ino, last = 0}};
        steps.clear();
    }

    void close() { nodes.clear(); }

    std::optional<Node> nodeOf(int file) const
    {
        struct stat found {};
        return fstat(file, &found) == 0 ? nodeOf(found) : std::nullopt;
    }

    std::optional<Node> nodeOf(int folder, const char* name) const
    {
        struct stat found {};
        return fstatat(folder, name, &found, AT_SYMLINK_NOFOLLOW) == 0 ? nodeOf(found) : std::nullopt;
    }

    // The name may be a path.
    void made(Step::Kind kind, int folder, const std::string& name)
    {
        const auto slash = name.rfind('/');
        const auto place = slash == std::string::npos ? nodeOf(folder) : nodeOf(folder, name.substr(0, slash).c_str());
        struct stat found {};
        if (place && fstatat(folder, name.c_str(), &found, AT_SYMLINK_NOFOLLOW) == 0) {
            nodes[found.st_ino] = ++last; // the number may be that of something gone
            steps.push_back({kind, *place, name.substr(slash + 1), {}, last});
        }
    }

private:
    std::optional<Node> nodeOf(const struct stat& found) const
    {
        const auto node = nodes.find(found.st_ino);
        return node != nodes.end() ? std::optional(node->second) : std::nullopt;
    }
};

Journal journal;

} // namespace

extern "C" {
int __real_openat(int folder, const char* name, int how, ...);
int __real_mkdirat(int folder, const char* name, mode_t mode);
int __real_renameat(int oldFolder, const char* from, int newFolder, const char* to);
int __real_unlinkat(int folder, const char* name, int how);
int __real_fsync(int file);
ssize_t __real_write(int file, const void* data, std::size_t bytes);

int __wrap_openat(int folder, const char* name, int how, ...)
{
    va_list rest;
    va_start(rest, how);
    const mode_t mode = (how & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
    va_end(rest);
    const int file = __real_openat(folder, name, how, mode);
    if (file >= 0 && (how & O_EXCL) != 0)
        journal.made(Step::makeFile, folder, name);
    return file;
}

int __wrap_mkdirat(int folder, const char* name, mode_t mode)
{
    const int result = __real_mkdirat(folder, name, mode);
    if (result == 0)
        journal.made(Step::makeFolder, folder, name);
    return result;
}

int __wrap_renameat(int oldFolder, const char* from, int newFolder, const char* to)
{
    if (const auto node = journal.nodeOf(oldFolder, from))
        journal.steps.push_back({Step::rename, *journal.nodeOf(oldFolder), from, to, *node});
    return __real_renameat(oldFolder, from, newFolder, to);
}

int __wrap_unlinkat(int folder, const char* name, int how)
{
    if (const auto place = journal.nodeOf(folder))
        journal.steps.push_back({Step::remove, *place, name});
    return __real_unlinkat(folder, name, how);
}

// The disk is the journal's: nothing else has to be brought there.
int __wrap_fsync(int file)
{
    struct stat found {};
    fstat(file, &found);
    if (const auto node = journal.nodeOf(file))
        journal.steps.push_back({S_ISDIR(found.st_mode) ? Step::bringFolder : Step::bringFile, *node});
    return 0;
}

ssize_t __wrap_write(int file, const void* data, std::size_t bytes)
{
    const auto written = __real_write(file, data, bytes);
    if (const auto node = journal.nodeOf(file); node && written > 0)
        journal.steps.push_back(
            {Step::write, *node, std::string(static_cast<const char*>(data), static_cast<std::size_t>(written))});
    return written;
}
}

namespace quorel::platform {
namespace {

namespace fs = std::filesystem;

constexpr const char* key = "Software\\VEDRA\\QUOREL";
constexpr std::array names{"Enabled", "Settings", "noiseGate", "micEq",   "Reverb",  "MicNR",   "EQBand1", "EQBand2",
                           "EQBand3", "EQBand4",  "EQBand5",   "EQBand6", "EQBand7", "EQBand8", "EQBand9"};

// The stamp stands in each value.
void save(std::uint32_t stamp)
{
    RegistryKey opened = nullptr;
    ASSERT_EQ(createKey(rootKey(RootKey::currentUser), key, 0x20006, opened), 0);
    for (const char* name : names)
        ASSERT_EQ(setNumber(opened, name, stamp), 0);
    closeKey(opened);
}

// The stamp of the values, 0 where there are none at all; none of a mixture.
std::optional<std::uint32_t> stampOfKept()
{
    RegistryKey opened = nullptr;
    if (openKey(rootKey(RootKey::currentUser), key, 0x20019, opened) != 0)
        return 0;
    std::optional<std::uint32_t> stamp;
    bool same = true;
    for (const char* name : names) {
        std::uint32_t value = 0;
        std::uint32_t bytes = sizeof value;
        if (queryValue(opened, name, &value, bytes) != 0)
            value = 0;
        same = same && (!stamp || *stamp == value);
        stamp = value;
    }
    closeKey(opened);
    return same ? stamp : std::nullopt;
}

// What a disk holds, and what is on the way to it.
class Disk {
public:
    explicit Disk(std::mt19937& random) : random(random) {}

    void take(const Step& step)
    {
        switch (step.kind) {
        case Step::saved:
            break;
        case Step::write:
            files[step.place].fresh += step.text;
            break;
        case Step::bringFile:
            files[step.place].brought += std::exchange(files[step.place].fresh, {});
            break;
        case Step::bringFolder:
            for (const auto& change : std::exchange(folders[step.place].fresh, {}))
                apply(change);
            break;
        default:
            if (step.kind == Step::makeFolder)
                folders[step.named];
            folders[step.place].fresh.push_back(step);
        }
    }

    // Of what was on the way some comes, and some not.
    void losePower()
    {
        for (auto& [node, file] : files) {
            auto fresh = std::exchange(file.fresh, {});
            const auto part = random() % (fresh.size() + 1);
            if (random() % 2 == 0)
                fresh.resize(part);
            else
                std::fill(fresh.begin() + static_cast<std::ptrdiff_t>(part), fresh.end(),
                          '\0'); // the length came before the rest
            file.brought += fresh;
        }
        for (auto& [node, folder] : folders) {
            auto changes = std::exchange(folder.fresh, {});
            std::shuffle(changes.begin(), changes.end(), random);
            for (const auto& change : changes) {
                if (random() % 2 == 0)
                    apply(change);
            }
        }
    }

    void writeTo(const fs::path& place, Node folder = 0)
    {
        for (const auto& [name, node] : folders[folder].entries) {
            if (folders.contains(node)) {
                fs::create_directory(place / name);
                fs::permissions(place / name, fs::perms::owner_all);
                writeTo(place / name, node);
            } else {
                std::ofstream(place / name, std::ios::binary) << files[node].brought;
                fs::permissions(place / name, fs::perms::owner_read | fs::perms::owner_write);
            }
        }
    }

private:
    struct Folder {
        std::map<std::string, Node> entries{};
        std::vector<Step> fresh{}; // changes on the way
    };
    struct File {
        std::string brought{};
        std::string fresh{}; // what is on the way
    };

    void apply(const Step& step)
    {
        auto& entries = folders[step.place].entries;
        if (step.kind == Step::rename || step.kind == Step::remove)
            entries.erase(step.text);
        if (step.kind != Step::remove)
            entries[step.kind == Step::rename ? step.other : step.text] = step.named;
    }

    std::mt19937& random;
    std::map<Node, Folder> folders{{0, {}}};
    std::map<Node, File> files;
};

TEST(PowerLoss, LeavesTheValuesOfOneSaveWhole)
{
    constexpr std::uint32_t saves = 3;
    setenv("TMPDIR", "/dev/shm", 1); // many homes come and go, and no disk has to keep them
    {
        const TemporaryHome home;
        journal.begin(home.path().c_str());
        for (std::uint32_t stamp = 1; stamp <= saves; ++stamp) {
            save(stamp);
            journal.steps.push_back({Step::saved});
        }
        journal.close();
    }
    const auto seed = wished("QUOREL_SEED", 1);
    const auto losses = wished("QUOREL_LOSSES", 500);
    std::mt19937 random(seed);
    for (std::uint32_t loss = 0; loss < losses; ++loss) {
        Disk disk(random);
        const auto steps = random() % (journal.steps.size() + 1);
        std::uint32_t ended = 0;
        for (std::size_t i = 0; i < steps; ++i) {
            disk.take(journal.steps[i]);
            ended += journal.steps[i].kind == Step::saved ? 1 : 0;
        }
        disk.losePower();
        const TemporaryHome home;
        disk.writeTo(home.path());
        const auto kept = stampOfKept();
        ASSERT_TRUE(kept && *kept >= ended && *kept <= ended + 1)
            << (kept ? std::to_string(*kept) : "a mixture") << " after " << ended << " saves, " << steps << " steps, loss "
            << loss << " of seed " << seed;

        // What the loss left in the way stops no save, and goes with it.
        save(saves + 1);
        ASSERT_EQ(stampOfKept(), saves + 1) << "loss " << loss << " of seed " << seed;
        for (const auto& entry : fs::recursive_directory_iterator(home.path() / ".local"))
            ASSERT_FALSE(entry.path().filename().string().starts_with(".new.")) << "loss " << loss << " of seed " << seed;
    }
    std::printf("%u losses\n", losses);
}

} // namespace
} // namespace quorel::platform
