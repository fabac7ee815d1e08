// SPDX-License-Identifier: MIT
// What quorel-control does by Linux's terminals and signals, and of a live host.
#include "tests/support/fake_host.h"
#include "tests/support/started.h"
#include "tests/tools/control_test.h"

#include <csignal>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace quorel {
namespace {

using testing::HasSubstr;

// ---- signals and terminals ------------------------------------------------------------------------------------------

class ControlProcess : public ControlOfAnEffect {
protected:
    // Starts the tool with its output on `fd` and its errors there too, or on `errors`, which is its input then.
    static pid_t start(const std::vector<const char*>& arguments, int fd, int errors = -1)
    {
        return started(QUOREL_CONTROL, arguments, [=] {
            dup2(fd, STDOUT_FILENO);
            dup2(errors != -1 ? errors : fd, STDERR_FILENO);
            if (errors != -1)
                dup2(errors, STDIN_FILENO);
            setenv("TERM", "xterm", 1);
        });
    }

    // Waits until the tool has switched the levels on.
    bool levelsComeOn()
    {
        return eventually([this] { return settings().levelsEnabled == 1; });
    }
};

TEST_F(ControlProcess, AnInterruptSwitchesTheLevelsBack)
{
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
        const pid_t child = start({"levels", "--watch"}, nowhere);
        close(nowhere);
        ASSERT_TRUE(levelsComeOn());
        kill(child, signal);
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal) << status;
        EXPECT_EQ(settings().levelsEnabled, 0);
    }
}

// As `levels --watch | head -2` has it.
TEST_F(ControlProcess, AReaderThatLeavesSwitchesTheLevelsBack)
{
    for (const bool ignored : {false, true}) { // by whoever started it, as some programs leave it
        int pipe[2];
        ASSERT_EQ(::pipe2(pipe, O_CLOEXEC), 0);
        const auto before = std::signal(SIGPIPE, ignored ? SIG_IGN : SIG_DFL);
        const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
        const pid_t child = start({"levels", "--watch"}, pipe[1], nowhere);
        std::signal(SIGPIPE, before);
        close(nowhere);
        close(pipe[1]);
        char first = 0;
        EXPECT_EQ(read(pipe[0], &first, 1), 1);
        EXPECT_EQ(settings().levelsEnabled, 1);
        close(pipe[0]);
        int status = 0;
        waitpid(child, &status, 0);
        if (ignored)
            EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 2) << status;
        else
            EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGPIPE) << status;
        EXPECT_EQ(settings().levelsEnabled, 0);
    }
}

// The two ends of a terminal.
struct Terminal {
    explicit Terminal(unsigned short columns = 0) : near(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC))
    {
        EXPECT_EQ(grantpt(near), 0);
        EXPECT_EQ(unlockpt(near), 0);
        const winsize size{24, columns, 0, 0};
        EXPECT_EQ(ioctl(near, TIOCSWINSZ, &size), 0);
        far = open(ptsname(near), O_RDWR | O_NOCTTY | O_CLOEXEC);
    }
    ~Terminal() { close(near); }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    // What a program writes up to `ending`, or to its end.
    std::string seen(const std::string& ending = {})
    {
        std::string text;
        char part[4096];
        for (ssize_t got = 0;
             (ending.empty() || text.find(ending) == std::string::npos) && (got = read(near, part, sizeof part)) > 0;)
            text.append(part, static_cast<std::size_t>(got));
        return text;
    }

    int near;
    int far = -1; // the program's; to be closed once it has it
};

TEST_F(ControlProcess, BarsFitTheTerminalsWidth)
{
    handler->writeActiveFormat(0, 48000.0F);
    std::array<float, 9> levels{};
    levels[1] = -30; // half of the bar
    handler->writeLevels(levels.data());
    for (const auto& [columns, bar] : {std::pair{200, 60U}, {86, 60U}, {85, 59U}, {80, 54U}, {0, 54U}, {40, 14U}, {31, 0U}}) {
        Terminal terminal(static_cast<unsigned short>(columns));
        const pid_t child = start({"levels", "--watch", "--seconds", "0.05"}, terminal.far);
        close(terminal.far);
        std::istringstream lines(terminal.seen());
        waitpid(child, nullptr, 0);
        std::string first;
        std::string second;
        std::getline(lines, first);
        std::getline(lines, second);
        EXPECT_THAT(first, testing::StartsWith("   94 to   141 Hz " + std::string(bar, '#') + "   0 dB")) << columns;
        EXPECT_EQ(std::count(second.begin(), second.end(), '#'), std::lround(bar / 2.0)) << columns;
        EXPECT_EQ(second.find(" dB"), 18 + bar + 4) << columns; // so the line has one character less than the terminal
    }
}

TEST_F(ControlProcess, ATerminalSeesNineBars)
{
    handler->writeActiveFormat(0, 48000.0F);
    // Levels beyond the scale, and none at all, as another process may write them.
    const std::array<float, 9> levels = {-20, -30, 0, 7, 1e30F, -60, -120, -INFINITY, NAN};
    handler->writeLevels(levels.data());

    Terminal terminal(100);
    const pid_t child = start({"levels", "--watch", "--seconds", "0.3"}, terminal.far);
    close(terminal.far);
    const std::string seen = terminal.seen();
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_THAT(seen, HasSubstr("   94 to   141 Hz " + std::string(40, '#') + std::string(20, '.') + " -20 dB"));
    EXPECT_THAT(seen, HasSubstr(std::string(" ") + std::string(60, '#') + "   7 dB"));
    EXPECT_THAT(seen, HasSubstr(std::string(" ") + std::string(60, '.') + "-120 dB"));
    EXPECT_THAT(seen, HasSubstr("\x1b[A")); // up, for the next picture
}

TEST_F(ControlProcess, ATerminalSeesThatNoMicrophoneRuns)
{
    handler->writeIdleLevels();
    Terminal terminal(100);
    const pid_t child = start({"levels", "--watch", "--seconds", "0.05"}, terminal.far);
    close(terminal.far);
    EXPECT_THAT(terminal.seen(), HasSubstr(" s, no microphone runs"));
    waitpid(child, nullptr, 0);
}

TEST_F(ControlProcess, LevelsThatNobodyTakesEndTheWatchWithAReason)
{
    int errors[2];
    ASSERT_EQ(::pipe2(errors, O_CLOEXEC), 0);
    const int full = open("/dev/full", O_RDWR | O_CLOEXEC);
    const pid_t child = start({"levels", "--watch"}, full, errors[1]);
    close(full);
    close(errors[1]);
    std::string said;
    for (char part = 0; read(errors[0], &part, 1) == 1;)
        said += part;
    close(errors[0]);
    EXPECT_THAT(said, testing::EndsWith("quorel-control: cannot write the levels\n"));
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 2) << status;
    EXPECT_EQ(settings().levelsEnabled, 0);
}

// ---- questions ------------------------------------------------------------------------------------------------------

class AskedResponses : public Responses {
protected:
    // Loads a set for two channels under a stream of eight on a terminal and types `answer`.
    int load(const std::string& answer, const std::string& told = "")
    {
        const std::string file = wav("set.wav", 14, interleaved(someSet(100, 10, 200)));
        Terminal terminal;
        const pid_t child = fork();
        if (child == 0) {
            setsid(); // so that an interrupt that is typed comes to it
            ioctl(terminal.far, TIOCSCTTY, 0);
            for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
                dup2(terminal.far, fd);
            std::signal(SIGINT, SIG_DFL);
            execl(QUOREL_CONTROL, QUOREL_CONTROL, "hrtf", "load", file.c_str(), "--channels", "2", nullptr);
            _exit(127);
        }
        close(terminal.far);
        EXPECT_THAT(terminal.seen("[y/N] "), HasSubstr("the running stream has 8 channels: with a set for 2 it refuses every "
                                                       "block, and is silent, until hrtf clear. Deliver it? [y/N] "));
        EXPECT_EQ(settings().hrtfId, 0U);
        EXPECT_EQ(write(terminal.near, answer.data(), answer.size()), static_cast<ssize_t>(answer.size()));
        EXPECT_THAT(terminal.seen(), HasSubstr(told));
        int status = 0;
        waitpid(child, &status, 0);
        return status;
    }
};

TEST_F(AskedResponses, ASetThatStopsTheSoundGoesOutAfterAYes)
{
    for (const char* no : {"\n", "n\n", "\x04"}) {
        const int status = load(no, "quorel-control: nothing was delivered");
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 2) << status;
        EXPECT_EQ(settings().hrtfId, 0U);
    }
    const int interrupted = load("\x03");
    EXPECT_TRUE(WIFSIGNALED(interrupted) && WTERMSIG(interrupted) == SIGINT) << interrupted;
    EXPECT_EQ(settings().hrtfId, 0U);
    EXPECT_EQ(load("y\n"), 0);
    EXPECT_EQ(settings().hrtfChannels, 2U);
}

// ---- the live host --------------------------------------------------------------------------------------------------

// As quorel-live answers with a headphone device of so many channels.
std::string playing(int channels)
{
    return hostStatus(false, R"(, "speaker": )" + hostSide("a card", true, channels) + R"(, "microphone": )" +
                                 hostSide("a card", true, 1));
}

TEST_F(Responses, TheLiveHostsLayoutCountsWhateverWasLockedLast)
{
    const std::string file = wav("set.wav", 14, interleaved(someSet(100, 10, 200)));
    handler->writeActiveFormat(0x3, 44100.0F);
    {
        const FakeHost live([](const std::string&) { return playing(8); });
        const Outcome loaded = run({"hrtf", "load", file});
        EXPECT_EQ(loaded.code, 0) << loaded;
        EXPECT_THAT(loaded.err, testing::Not(HasSubstr("96 kHz")));
        const Outcome told = run({"status"});
        EXPECT_THAT(told.out, HasSubstr("speaker: a card, running, 7.1\n"));
        EXPECT_THAT(told.out, HasSubstr("microphone: a card, running, mono\n"));
        EXPECT_EQ(told.err, "");
        expectUntouched({"hrtf", "load", file, "--channels", "2"}, "the running stream has 8 channels: with a set for 2 ");
    }
    {
        handler->writeActiveFormat(0x63F, 48000.0F);
        const FakeHost live([](const std::string&) { return playing(2); });
        EXPECT_THAT(run({"status"}).err, HasSubstr("the delivered set is for 8 channels, the stream has 2"));
        expectUntouched({"hrtf", "load", file}, "the running stream has the channel mask 0x3 at 48000 Hz");
        done({"hrtf", "load", file, "--channels", "2"});
        EXPECT_EQ(settings().hrtfChannels, 2U);
    }
}

// A tool that was killed holds no lock; whatever it had written counts with the next update or not at all.
TEST_F(ControlProcess, AToolThatIsKilledAtAnyMomentLeavesTheEffectAndTheOthersWell)
{
    std::mt19937 random(1); // NOLINT: the same in every run
    const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
    for (int i = 0; i < 100; ++i) {
        const pid_t child = start({"set", "Reverb=170", "EQBand5=-40"}, nowhere);
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 6000));
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        const std::string value = std::to_string(i);
        done({"set", "noiseGate=" + value});
        EXPECT_EQ(done({"get", "noiseGate"}), "noiseGate=" + value + "\n");
    }
    close(nowhere);
    SettingsRecord record;
    follow(record);
    EXPECT_EQ(record.noiseGate, 99U);
    EXPECT_TRUE(record.Reverb == 0 || record.Reverb == 170);
    EXPECT_TRUE(record.EQBand[4] == 0 || record.EQBand[4] == -40);
}

// ---- what it finds of the user's directories ------------------------------------------------------------------------

TEST_F(Control, WithoutAnEffectNoDirectoryIsMade)
{
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"status"}, {"get"}, {"set", "Reverb=1"}, {"hrtf", "clear"}, {"preset", "list"}})
        run(arguments);
    std::vector<fs::path> found;
    for (const auto& entry : fs::recursive_directory_iterator(home.path()))
        found.push_back(entry.path());
    EXPECT_EQ(found, std::vector<fs::path>{home.path() / "run"}); // the test's own
}

TEST_F(Control, ADirectoryThatIsRefusedIsNamedWithTheCause)
{
    fs::create_directory(home.path() / "run/quorel");
    fs::permissions(home.path() / "run/quorel", fs::perms(0750));
    for (const char* command : {"status", "get"})
        expectRefusal({command}, (home.path() / "run/quorel").string() + ": Permission denied");
}

TEST_F(Control, StatusTellsOfKeptSettingsThatCannotBeRead)
{
    SettingsHandler::instance(SettingsHandler::layoutVersion).reset(); // keeps them
    const fs::path kept = home.path() / ".local/state/quorel/registry/HKEY_CURRENT_USER/Software/VEDRA/QUOREL/.values";
    ASSERT_TRUE(fs::exists(kept));
    EXPECT_THAT(run({"status"}).err, testing::Not(HasSubstr("kept settings")));
    fs::permissions(kept, fs::perms(0644)); // others could have read it, or written
    const std::string before = contents(kept);
    const auto handler = SettingsHandler::instance(SettingsHandler::layoutVersion);
    const Outcome outcome = run({"status"});
    EXPECT_EQ(outcome.code, 0) << outcome;
    EXPECT_THAT(outcome.err, HasSubstr("the kept settings cannot be read"));
    EXPECT_THAT(outcome.err, HasSubstr(kept.string() + ": Permission denied\n"));
    EXPECT_EQ(contents(kept), before);
}

} // namespace
} // namespace quorel
