// SPDX-License-Identifier: MIT
// What is said where a library, the system or what reads a file fails: each is made to fail here.
#include "client/hrtf_delivery.h"
#include "client/hrtf_file.h"
#include "client/live_status.h"
#include "client/preset.h"
#include "platform/programs/limited_work.h"
#include "tests/support/failure.h"
#include "tests/support/temporary_home.h"

#include <cstring>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <mysofa.h>
#include <optional>
#include <pwd.h>
#include <soxr.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace quorel {
namespace {

const std::string measured = "/usr/share/libmysofa/MIT_KEMAR_normal_pinna.sofa";

struct Faults {
    std::optional<std::string> answer;            // of what reads a file
    std::function<void(MYSOFA_HRTF&)> distortion; // of a file that the library has found good
    soxr_error_t resampling = nullptr;
    bool noAccount = false; // the system knows nothing of the user
};

Faults& faults()
{
    static Faults now;
    return now;
}

} // namespace

// In place of the process with limits.
std::string platform::doLimited(const std::function<std::string()>& work, const WorkLimits&, const std::function<void()>&)
{
    return faults().answer ? *faults().answer : work();
}

// In place of the libraries' operations.
extern "C" {
int __real_mysofa_check(MYSOFA_HRTF* file); // NOLINT(bugprone-reserved-identifier): the linker's names
int __wrap_mysofa_check(MYSOFA_HRTF* file)  // NOLINT(bugprone-reserved-identifier)
{
    const int code = __real_mysofa_check(file);
    if (faults().distortion)
        faults().distortion(*file);
    return code;
}

soxr_error_t __real_soxr_oneshot(double, double, unsigned, soxr_in_t, size_t, size_t*, soxr_out_t, size_t, size_t*, // NOLINT
                                 soxr_io_spec_t const*, soxr_quality_spec_t const*, soxr_runtime_spec_t const*);
soxr_error_t __wrap_soxr_oneshot(double from, double to, unsigned channels, soxr_in_t in, size_t inFrames, size_t* read, // NOLINT
                                 soxr_out_t out, size_t outFrames, size_t* written, soxr_io_spec_t const* io,
                                 soxr_quality_spec_t const* quality, soxr_runtime_spec_t const* runtime)
{
    if (faults().resampling != nullptr)
        return faults().resampling;
    return __real_soxr_oneshot(from, to, channels, in, inFrames, read, out, outFrames, written, io, quality, runtime);
}

passwd* __real_getpwuid(uid_t user); // NOLINT(bugprone-reserved-identifier)
passwd* __wrap_getpwuid(uid_t user)  // NOLINT(bugprone-reserved-identifier)
{
    return faults().noAccount ? nullptr : __real_getpwuid(user);
}
}

namespace {

class Refusals : public testing::Test {
protected:
    Refusals()
    {
        faults() = {};
        unsetenv("XDG_CONFIG_HOME");
    }
    ~Refusals() override { faults() = {}; }

    static std::string import()
    {
        return failureText([] { importHrtf(measured, Equalize::none, 0, [] {}); });
    }

    TemporaryHome home;
};

TEST_F(Refusals, AReaderThatAnswersNonsenseIsTold)
{
    const std::string none(8, '\0'); // of a response's taps
    for (const std::string& answer : {std::string(), none, std::string(7, '\0'), std::string(8, '\xFF') + std::string(64, '\0'),
                                      std::string("\x02\0\0\0\0\0\0\0\0\0\0\0", 12)}) {
        faults().answer = answer;
        EXPECT_EQ(import(), "what reads the file answers nonsense") << answer.size();
    }
}

TEST_F(Refusals, ASetThatCannotBeFittedIsToldWithItsFile)
{
    faults().answer = std::string(16 * sizeof(std::uint64_t), '\0'); // sixteen responses without a tap
    EXPECT_EQ(import(), "cannot use " + measured + ": the response of front left, left ear is silent");
}

// The lengths that a file tells of its arrays are the library's to compare; ours is the memory that would be read beyond them.
TEST_F(Refusals, ArraysThatDoNotFitTogetherAreRefused)
{
    for (const auto& distortion : std::initializer_list<std::function<void(MYSOFA_HRTF&)>>{
             [](MYSOFA_HRTF& file) { file.M = 0; },
             [](MYSOFA_HRTF& file) { file.N = 0; },
             [](MYSOFA_HRTF& file) { --file.DataIR.elements; },
             [](MYSOFA_HRTF& file) { --file.SourcePosition.elements; },
             [](MYSOFA_HRTF& file) { file.DataSamplingRate.elements = 0; },
             [](MYSOFA_HRTF& file) { file.DataDelay.elements = 3; },
         }) {
        faults().distortion = distortion;
        EXPECT_EQ(import(), "cannot read " + measured + ": its arrays do not fit together");
    }
}

TEST_F(Refusals, AResamplerThatFailsIsToldWithItsReason)
{
    faults().resampling = "no memory";
    EXPECT_EQ(import(), "cannot resample: no memory"); // the measurement is at 44100 Hz
}

TEST_F(Refusals, ASetThatIsTooLoudForItsNumbersIsRefused)
{
    FittedSet set{};
    for (auto& speaker : set.taps)
        for (auto& taps : speaker)
            taps.fill(std::numeric_limits<float>::max());
    EXPECT_EQ(failureText([&] { packSet(set, 0x63F); }), "the set's values are too large");
}

TEST_F(Refusals, AUserWithoutAFolderHasNeitherPresetsNorNamesOfFiles)
{
    unsetenv("HOME");
    faults().noAccount = true;
    EXPECT_EQ(failureText([] { savePreset("mine", {}); }), "there is no folder for this user's presets");
    EXPECT_EQ(failureText([] { rememberFile(1, "file"); }), "there is no folder for this user's files");
    EXPECT_EQ(rememberedFile(1), "");
}

TEST_F(Refusals, AFolderThatCannotBeMadeIsTold)
{
    const std::string place = (home.path() / ".config").string();
    std::ofstream(place) << "a file";
    EXPECT_EQ(failureText([] { savePreset("mine", {}); }),
              "cannot make the folder " + place + "/quorel/presets: Not a directory");
    EXPECT_EQ(failureText([] { rememberFile(1, "file"); }), "cannot make the folder " + place + "/quorel: Not a directory");
}

// A program that says one line to whoever asks.
class Answering {
public:
    Answering(const std::string& path, const std::string& said) : file(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(bind(file, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(listen(file, 1), 0);
        thread = std::thread([this, said] {
            const int asked = accept4(file, nullptr, nullptr, SOCK_CLOEXEC);
            char question[64];
            EXPECT_GT(read(asked, question, sizeof question), 0);
            EXPECT_EQ(write(asked, said.data(), said.size()), static_cast<ssize_t>(said.size()));
            close(asked);
        });
    }
    ~Answering()
    {
        thread.join();
        close(file);
    }
    Answering(const Answering&) = delete;
    Answering& operator=(const Answering&) = delete;

private:
    int file;
    std::thread thread;
};

TEST_F(Refusals, WhatTheLiveHostAnswersHasToBeAStatus)
{
    const std::string folder = (home.path() / "run/quorel").string();
    std::filesystem::create_directory(folder);
    for (const auto& [said, told] : std::initializer_list<std::pair<const char*, std::string>>{
             {"17\n", "quorel-live answers what is no status"},
             {"{\n", "quorel-live answers what is no status"},
             {"{\"error\": \"it is ending\"}\n", "it is ending"},
             {"{}", "the program at " + folder + "/live.sock does not answer"},
         }) {
        const Answering live(folder + "/live.sock", said);
        EXPECT_EQ(failureText([] { askLive("status"); }), told);
        std::filesystem::remove(folder + "/live.sock");
    }
}

TEST_F(Refusals, TheLiveHostIsSoughtInAFolderOfTheUsers)
{
    setenv("XDG_RUNTIME_DIR", ("/" + std::string(120, 'x')).c_str(), 1);
    EXPECT_EQ(failureText([] { askLive("status"); }),
              "/" + std::string(120, 'x') + "/quorel/live.sock is too long for a socket's name");
    for (const char* const folder : {"", "run"}) {
        setenv("XDG_RUNTIME_DIR", folder, 1);
        EXPECT_EQ(failureText([] { askLive("status"); }),
                  "XDG_RUNTIME_DIR is not set: there is no place for this user's running programs");
    }
}

} // namespace
} // namespace quorel
