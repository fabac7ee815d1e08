// SPDX-License-Identifier: MIT
// quorel-live among an audio server, a session manager and its user: what it restores and what it tells.
#include "tests/live/session/live_behaviour.h"
#include "tests/support/control_application.h"
#include "tests/support/wished.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <random>
#include <sys/stat.h>
#include <thread>

namespace quorel {
namespace {

using namespace std::chrono_literals;
using testing::Contains;
using testing::HasSubstr;
using testing::StartsWith;

TEST_F(LiveBehaviour, IsListedAsDevicesWithTheirChannels)
{
    const auto live = session.live();
    const nlohmann::json all = nlohmann::json::parse(session.command("pw-dump"));
    int found = 0;
    for (const auto& object : all) {
        if (!object.contains("info") || !object["info"].contains("props"))
            continue;
        const nlohmann::json properties = object["info"]["props"];
        const std::string name = properties.value("node.name", "");
        if (name == "quorel.speaker") {
            ++found;
            EXPECT_EQ(properties.value("media.class", ""), "Audio/Sink");
            EXPECT_EQ(properties.value("node.description", ""), "QUOREL headphones");
            const nlohmann::json format = object["info"]["params"]["EnumFormat"][0];
            EXPECT_EQ(format["channels"], 8);
            EXPECT_EQ(format["rate"], 48000);
            EXPECT_EQ(format["position"], nlohmann::json({"FL", "FR", "FC", "LFE", "RL", "RR", "SL", "SR"}));
        } else if (name == "quorel.microphone") {
            ++found;
            EXPECT_EQ(properties.value("media.class", ""), "Audio/Source");
        }
    }
    EXPECT_EQ(found, 2);
    const std::string listed = session.command(QUOREL_LIVE " --list");
    EXPECT_EQ(listed, "output  speakers  Test speakers\ninput  testmic  Test microphone\n");
}

TEST_F(LiveBehaviour, RunsOnceForAUser)
{
    const auto live = session.live();
    EXPECT_EQ(session.command(QUOREL_LIVE), "quorel-live: another one is running already; --status tells what it does\n");
    EXPECT_EQ(session.code, 2);
    struct stat socket {};
    ASSERT_EQ(stat((session.folder / "quorel/live.sock").c_str(), &socket), 0);
    EXPECT_EQ(socket.st_mode & 0777, 0600U);

    live->signal(SIGTERM);
    EXPECT_EQ(live->ended(patience), 0);
    EXPECT_EQ(live->written(), "");
    EXPECT_FALSE(std::filesystem::exists(session.folder / "quorel/live.sock"));
    EXPECT_EQ(session.command(QUOREL_LIVE " --status"), "quorel-live: no quorel-live is running\n");
    EXPECT_EQ(session.code, 3);
}

TEST_F(LiveBehaviour, EndsWhereTheServerDoesNotAnswer)
{
    session.signalServer(SIGSTOP);
    EXPECT_EQ(session.command(QUOREL_LIVE), "quorel-live: the PipeWire server does not answer\n");
    EXPECT_EQ(session.code, 2);
    session.signalServer(SIGCONT);
}

TEST_F(LiveBehaviour, SaysWhereAFoldersNameIsTooLongForItsSocket)
{
    const std::string folder = (session.folder / std::string(100, 'x')).string(); // a socket's name has 107 letters at most
    std::filesystem::create_directory(folder);
    EXPECT_EQ(session.command("env XDG_RUNTIME_DIR=" + folder + " " QUOREL_LIVE),
              "quorel-live: " + folder + "/quorel/live.sock is too long for a socket's name\n");
    EXPECT_EQ(session.code, 2);
}

TEST_F(LiveBehaviour, SaysWhyWhereItsSettingsAreNotToBeHad)
{
    const auto folder = session.folder / "quorel"; // of the objects that it shares with control applications
    std::filesystem::create_directory(folder);
    std::filesystem::permissions(folder, std::filesystem::perms::all); // anybody could write them
    EXPECT_EQ(session.command(QUOREL_LIVE), "quorel-live: CreateFileMapping for SHARED_MEM failed\n");
    EXPECT_EQ(session.code, 2);
}

TEST_F(LiveBehaviour, SaysThatItsLockIsNotToBeHad)
{
    const auto lock = session.folder / "quorel/live.lock";
    std::filesystem::create_directories(lock);
    std::filesystem::permissions(lock.parent_path(), std::filesystem::perms::owner_all);
    EXPECT_EQ(session.command(QUOREL_LIVE), "quorel-live: " + lock.string() + ": Is a directory\n");
    EXPECT_EQ(session.code, 2);
}

// So many files may be open: too few for each of the things in turn that a start makes.
TEST_F(LiveBehaviour, SaysThatItLacksDescriptors)
{
    const auto limited = [&](int limit, const std::string& command) {
        return session.command("prlimit --nofile=" + std::to_string(limit) + " timeout 60 " + command);
    };
    int first = 5; // with it a program can load its libraries at all; more where whoever runs this test left files open
    for (limited(first, "true"); session.code != 0 && first < 100; limited(first, "true"))
        ++first;
    std::vector<std::string> lines;
    for (int limit = first; limit < first + 33; ++limit) {
        const std::string said = limited(limit, QUOREL_LIVE);
        EXPECT_EQ(session.code, 2) << limit << ": " << said;
        lines.push_back(said.substr(said.rfind('\n', said.size() - 2) + 1));
        EXPECT_THAT(lines.back(), StartsWith("quorel-live: ")) << limit;
    }
    EXPECT_THAT(lines, Contains("quorel-live: PipeWire's client library does not start\n"));
    EXPECT_THAT(lines, Contains("quorel-live: PipeWire's loop: Too many open files\n"));
    EXPECT_THAT(lines, Contains("quorel-live: PipeWire's client library does not start: Too many open files\n"));
    EXPECT_THAT(lines, Contains("quorel-live: the audio server refuses the streams\n"));
}

TEST_F(LiveBehaviour, SaysThatNoServerRuns)
{
    session.killServer();
    for (const char* question : {"", " --list"}) {
        EXPECT_EQ(session.command(QUOREL_LIVE + std::string(question)), "quorel-live: no PipeWire server is running\n");
        EXPECT_EQ(session.code, 2);
    }
}

TEST_F(LiveBehaviour, SaysThatTheServerDoesNotAnswer)
{
    session.signalServer(SIGSTOP);
    EXPECT_EQ(session.command(QUOREL_LIVE " --list"), "quorel-live: the PipeWire server does not answer\n");
    EXPECT_EQ(session.code, 2);
    session.signalServer(SIGCONT);
}

TEST_F(LiveBehaviour, LeavesIdleLevelsAtItsEnd)
{
    const auto live = session.live({"--microphone"});
    const ControlApplication control; // which keeps the levels when it has gone
    const auto& levels = control.block->levels;
    ASSERT_NO_FATAL_FAILURE(this->control("set levelsEnabled=1"));
    GraphClient client({"MONO"}, {"MONO"});
    client.link({"testmic:input_MONO"}, {"quorel.microphone:capture_MONO"});
    Channels buzz(1, std::vector<float>(9600));
    for (std::size_t i = 0; i < buzz[0].size(); ++i)
        buzz[0][i] = i % 480 < 240 ? 0.25F : -0.25F;
    EXPECT_TRUE(within(patience, [&] {
        client.play(buzz, 9600);
        return std::all_of(levels.begin(), levels.end(), [](float level) { return level > -120.0F; });
    }));
    live->signal(SIGTERM);
    EXPECT_EQ(live->ended(patience), 0);
    EXPECT_THAT(levels, testing::Each(-120.0F));
}

// Killed in its start, and when it is there; four times, or as often as QUOREL_KILLS says, at moments that QUOREL_SEED chooses.
TEST_F(LiveBehaviour, LeavesNothingThatStopsTheNextStartWhenKilled)
{
    const auto kills = wished("QUOREL_KILLS", 4);
    std::mt19937 random(wished("QUOREL_SEED", 1));
    for (std::uint32_t i = 0; i < kills; ++i) {
        const auto live = i % 4 == 0 ? session.live() : session.startLive();
        std::this_thread::sleep_for(std::chrono::milliseconds(random() % 200));
        live->signal(SIGKILL);
        ASSERT_EQ(live->ended(patience), -SIGKILL) << "kill " << i << live->written();
    }
    std::cout << kills << " killed\n";
    const auto live = session.live();
    EXPECT_TRUE(sounds());
}

TEST_F(LiveBehaviour, SwitchesItsBypassOnCommand)
{
    const auto live = session.live();
    EXPECT_EQ(session.status()["bypass"], false);
    session.command(QUOREL_LIVE " --bypass on");
    EXPECT_EQ(session.code, 0);
    EXPECT_EQ(session.status()["bypass"], true);
    session.command(QUOREL_LIVE " --bypass off");
    EXPECT_EQ(session.status()["bypass"], false);
}

TEST_F(LiveBehaviour, TellsItsStatusAsText)
{
    const auto live = session.live();
    session.command(QUOREL_CONTROL " set EQBand5=-40");
    const nlohmann::json status = session.status();
    const std::string text = session.command(QUOREL_LIVE " --status");
    EXPECT_THAT(text, StartsWith("server: connected, 0 reconnects, scheduling "));
    EXPECT_THAT(text, HasSubstr("\nspeaker: Test speakers, "));
    EXPECT_THAT(text, HasSubstr("\nmicrophone: Test microphone, "));
    std::string settings = "\nsettings:";
    for (const auto& [name, value] : status["settings"].items())
        settings += ' ' + name + '=' + value.dump();
    EXPECT_THAT(text, testing::EndsWith(settings + '\n'));
    EXPECT_THAT(settings, HasSubstr(" EQBand5=-40 "));
}

// The down-mix's gains are 0.8 times 1 for front left and 0.8 times 0.707 for side left.
TEST_F(LiveBehaviour, LetsItsBypassBeHeard)
{
    const auto live = session.live({"--speaker"});
    control("set Settings=1");
    GraphClient client({"SL"}, {"FL", "FR"});
    client.link({"quorel.speaker:playback_SL"}, {"speakers:monitor_FL", "speakers:monitor_FR"});
    Channels click(1, std::vector<float>(9600, 0.25F));
    session.command(QUOREL_LIVE " --bypass on");
    EXPECT_TRUE(hears(client, click, {0.1414F, 0}));
    session.command(QUOREL_LIVE " --bypass off");
    EXPECT_TRUE(within(patience, [&] {
        client.play(click, 9600);
        const auto& right = client.recorded()[1];
        return std::any_of(right.begin(), right.end(), [](float x) { return std::abs(x) > 0.01F; });
    }));
}

// A mixer's volume is the third root of the factor.
TEST_F(LiveBehaviour, HasTheVolumeOfASinkAndNoneBehindTheEffect)
{
    auto live = session.live({"--speaker"});
    session.command(QUOREL_LIVE " --bypass on");
    const Channels sound(1, std::vector<float>(9600, 0.25F));
    {
        GraphClient client({"FL"}, {"FL", "FR"});
        client.link({"quorel.speaker:playback_FL"}, {"speakers:monitor_FL", "speakers:monitor_FR"});
        ASSERT_TRUE(hears(client, sound, {0.2F, 0}));
        const std::string sink = idOf("quorel.speaker");
        session.command("wpctl set-volume " + sink + " 0.5");
        ASSERT_TRUE(hears(client, sound, {0.025F, 0}));
        session.command("wpctl set-mute " + sink + " 1");
        ASSERT_TRUE(hears(client, sound, {0, 0}));
        session.command("wpctl set-mute " + sink + " 0");
        session.command("wpctl set-volume " + sink + " 1.0");
        ASSERT_TRUE(hears(client, sound, {0.2F, 0}));
        session.command("wpctl set-volume " + idOf("quorel.speaker.output") + " 0.5");
        ASSERT_TRUE(hears(client, sound, {0.025F, 0}));
    }
    std::this_thread::sleep_for(2s); // the session manager stores volumes after a second
    live->signal(SIGTERM);
    ASSERT_EQ(live->ended(patience), 0);
    live = session.live({"--speaker"});
    session.command(QUOREL_LIVE " --bypass on");
    GraphClient client({"FL"}, {"FL", "FR"});
    client.link({"quorel.speaker:playback_FL"}, {"speakers:monitor_FL", "speakers:monitor_FR"});
    ASSERT_TRUE(hears(client, sound, {0.2F, 0}));
}

// What the server makes of channels that a player does not have is told in docs/live.md, and not ours.
TEST_F(LiveBehaviour, PutsPlayersOfFewerChannelsInTheirPlaces)
{
    const auto live = session.live({"--speaker"});
    for (const std::uint32_t channels : {2U, 6U}) {
        const Service player(again("pw-cat -p --target quorel.speaker " + steps(channels, 48000 * 60)), session.folder / "cat");
        const std::vector<std::string> names{"FL", "FR", "FC", "LFE", "RL", "RR"};
        const std::vector<std::string> some(names.begin(), names.begin() + channels);
        GraphClient client({}, some);
        std::vector<std::string> ports;
        std::vector<float> values;
        for (const std::string& name : some) {
            ports.push_back("quorel.speaker:monitor_" + name);
            values.push_back(static_cast<float>(values.size() + 1) / 20.0F);
        }
        client.link({}, ports);
        EXPECT_TRUE(hears(client, {}, values)) << channels << " channels: " << client.recorded()[0].back();
    }
}

TEST_F(LiveBehaviour, HasThePlacesOfItsOption)
{
    for (const std::uint32_t channels : {2U, 6U}) {
        const auto live = session.live({"--speaker", "--channels", std::to_string(channels)});
        EXPECT_EQ(session.status()["speaker"]["channels"], channels);
        EXPECT_TRUE(sounds());
        EXPECT_EQ(session.status()["speaker"]["refused_blocks"], 0);
        live->signal(SIGTERM);
        EXPECT_EQ(live->ended(patience), 0);
    }
}

TEST_F(LiveBehaviour, PlaysWhatPulseAudioApplicationsPlay)
{
    const auto live = session.live({"--speaker"});
    session.command(QUOREL_LIVE " --bypass on");
    const Service pulse({"pipewire-pulse"}, session.folder / "pulse.txt");
    ASSERT_TRUE(within(patience, [&] { return session.command("pactl info").find("PipeWire") != std::string::npos; }));
    const Service player(again("paplay --device=quorel.speaker " + steps(6, 48000 * 60)), session.folder / "paplay.txt");
    ASSERT_TRUE(within(patience, [&] { return !session.status()["speaker"]["players"].empty(); }));
    GraphClient client({}, {"FL", "FR"});
    client.link({}, {"quorel.speaker:monitor_FL", "quorel.speaker:monitor_FR"});
    EXPECT_TRUE(hears(client, {}, {0.05F, 0.1F}));
}

TEST_F(LiveBehaviour, PlaysWhatJackApplicationsPlay)
{
    const auto live = session.live({"--speaker"});
    const Service player({"pw-jack", "jack_metro", "--bpm", "240", "--amplitude", "0.9"}, session.folder / "jack.txt");
    GraphClient client({}, {"FL"});
    ASSERT_TRUE(within(patience, [&] {
        session.command("pw-link metro:240_bpm quorel.speaker:playback_FL");
        return session.command("pw-link -l").find("|<- metro:240_bpm") != std::string::npos;
    })) << player.written();
    client.link({}, {"speakers:monitor_FL"});
    EXPECT_TRUE(within(patience, [&] {
        client.play({}, 9600);
        return std::any_of(client.recorded()[0].begin(), client.recorded()[0].end(), [](float x) { return x > 0.01F; });
    }));
}

// The plug-in in a filter chain of the server's is the other way to a 7.1 device: side left reaches the right ear through the
// responses alone.
TEST_F(LiveBehaviour, HasAPlugInThatMakesASevenOneSinkInAFilterChain)
{
    const std::string path = (session.folder / "chain.conf").string();
    std::ofstream(path)
        << R"(context.spa-libs = { audio.convert.* = audioconvert/libspa-audioconvert support.* = support/libspa-support }
context.modules = [
  { name = libpipewire-module-rt flags = [ ifexists nofail ] }
  { name = libpipewire-module-protocol-native } { name = libpipewire-module-client-node } { name = libpipewire-module-adapter }
  { name = libpipewire-module-filter-chain args = {
      filter.graph = {
        nodes = [ { type = lv2 name = quorel plugin = "urn:quorel:speaker" control = { Settings = 1 } } ]
        inputs = [ "quorel:in_FL" "quorel:in_FR" "quorel:in_FC" "quorel:in_LFE" "quorel:in_RL" "quorel:in_RR" "quorel:in_SL" "quorel:in_SR" ]
        outputs = [ "quorel:out_L" "quorel:out_R" ] }
      capture.props = { node.name = chain media.class = Audio/Sink audio.channels = 8 audio.position = [ FL FR FC LFE RL RR SL SR ] }
      playback.props = { node.name = chain.output node.passive = true audio.channels = 2 audio.position = [ FL FR ] } } }
]
)";
    setenv("LV2_PATH", QUOREL_LV2_FOLDER, 1);
    const Service chain({"pipewire", "-c", path}, session.folder / "chain.txt");
    GraphClient client({"SL"}, {"FL", "FR"});
    client.link({"chain:playback_SL"}, {"speakers:monitor_FL", "speakers:monitor_FR"});
    Channels steps(1, std::vector<float>(9600));
    for (std::size_t i = 0; i < steps[0].size(); ++i)
        steps[0][i] = i % 64 < 32 ? 0.25F : -0.25F;
    EXPECT_TRUE(within(patience, [&] {
        client.play(steps, 9600);
        const auto& right = client.recorded()[1];
        return std::any_of(right.begin(), right.end(), [](float x) { return x > 0.01F; });
    })) << chain.written();
}

TEST_F(LiveBehaviour, IsTheDefaultAsLongAsItRuns)
{
    session.command("pw-metadata 0 default.configured.audio.sink '{\"name\":\"speakers\"}'");
    const auto live = session.live({"--default"});
    EXPECT_TRUE(within(patience, [&] { return configuredSink() == "quorel.speaker"; }));
    EXPECT_TRUE(within(patience, [this] { return linked(); })); // its own output stays on the hardware
    live->signal(SIGINT);
    EXPECT_EQ(live->ended(patience), 0);
    EXPECT_EQ(configuredSink(), "speakers");
}

TEST_F(LiveBehaviour, DoesNotTakeItselfForWhatWasTheDefault)
{
    {
        const auto killed = session.live({"--default"});
        EXPECT_TRUE(within(patience, [&] { return configuredSink() == "quorel.speaker"; }));
        killed->signal(SIGKILL);
    }
    const auto live = session.live({"--default"});
    live->signal(SIGTERM);
    EXPECT_EQ(live->ended(patience), 0);
    EXPECT_EQ(configuredSink(), "");
}

TEST_F(LiveBehaviour, SaysThatTheDefaultStaysWhenNoSessionManagerAnswers)
{
    const auto live = session.live({"--default"});
    EXPECT_TRUE(within(patience, [&] { return configuredSink() == "quorel.speaker"; }));
    session.killManager();
    ASSERT_TRUE(
        within(patience, [this] { return session.command("pw-cli ls Metadata").find("\"default\"") == std::string::npos; }));
    live->signal(SIGTERM);
    EXPECT_EQ(live->ended(patience), 0);
    EXPECT_EQ(live->written(), "quorel-live: no session manager answers: the default devices stay as they are\n");
}

// The server tells a client nothing more that has asked for the defaults, until the session manager has answered it.
TEST_F(LiveBehaviour, AsksAgainWhereTheSessionManagerDoesNotAnswer)
{
    session.signalManager(SIGSTOP);
    const auto live = session.startLive({"--speaker", "--default"});
    EXPECT_TRUE(within(patience, [&] { return session.status().value("reconnects", 0) >= 1; })) << live->written();
    session.signalManager(SIGCONT);
    EXPECT_TRUE(within(patience, [&] { return configuredSink() == "quorel.speaker"; })) << live->written();
    EXPECT_TRUE(sounds());
    EXPECT_EQ(live->written(), "quorel-live: the session manager does not answer; asking it again from time to time\n");
    live->signal(SIGTERM);
    EXPECT_EQ(live->ended(patience), 0);
    EXPECT_EQ(configuredSink(), "");
}

TEST_F(LiveBehaviour, LeavesADefaultAloneThatItsUserChoseMeanwhile)
{
    const auto live = session.live({"--default"});
    EXPECT_TRUE(within(patience, [&] { return configuredSink() == "quorel.speaker"; }));
    session.command("pw-metadata 0 default.configured.audio.sink '{\"name\":\"speakers\"}'");
    live->signal(SIGTERM);
    EXPECT_EQ(live->ended(patience), 0);
    EXPECT_EQ(configuredSink(), "speakers");
}

TEST_F(LiveBehaviour, RefusesItsOwnDeviceAsItsOutput)
{
    EXPECT_THAT(session.command(QUOREL_LIVE " --output quorel.speaker"),
                HasSubstr("quorel.speaker is a device of quorel-live itself: its sound would go round in a loop"));
    EXPECT_EQ(session.code, 2);
}

TEST_F(LiveBehaviour, KeepsItsSettings)
{
    {
        const auto live = session.live();
        control("set Reverb=77");
        live->signal(SIGTERM);
        EXPECT_EQ(live->ended(patience), 0);
    }
    const auto live = session.live();
    EXPECT_EQ(session.status()["settings"]["Reverb"], 77);
    EXPECT_EQ(session.command(std::string(QUOREL_CONTROL) + " get Reverb"), "Reverb=77\n");
}

// A read-only system, devices, temporary files and a network of its own: what the unit asks for. The session's folder is home and
// run-time folder.
TEST_F(LiveBehaviour, WorksWithinTheRestrictionsOfItsUnit)
{
    if (const std::string refusal = session.command("bwrap --ro-bind / / true 2>&1"); session.code != 0)
        GTEST_SKIP() << "no view of the files of one's own here: " << refusal; // as where / is a folder of another system

    std::string scheduling;
    {
        const auto free = session.live();
        scheduling = session.status()["scheduling"];
        free->signal(SIGTERM);
        ASSERT_EQ(free->ended(patience), 0);
    }
    const std::string folder = session.folder.string();
    const std::vector<std::string> box{"bwrap",         "--ro-bind",     "/",       "/",    "--dev",  "/dev", "--bind",
                                       "/dev/shm",      "/dev/shm",      "--tmpfs", "/tmp", "--bind", folder, folder,
                                       "--unshare-net", "--unshare-uts", "--proc",  "/proc"};
    const auto live = session.live({}, box);
    EXPECT_EQ(session.status()["scheduling"], scheduling);
    control("set Reverb=78");
    EXPECT_TRUE(sounds());
    EXPECT_EQ(session.status()["settings"]["Reverb"], 78);
    const std::string own = std::to_string(live->id());
    session.command("kill -TERM $(cat /proc/" + own + "/task/" + own + "/children)");
    EXPECT_EQ(live->ended(patience), 0) << live->written();
    const auto again = session.live();
    EXPECT_EQ(session.status()["settings"]["Reverb"], 78);
}

TEST_F(LiveBehaviour, TellsTheRenderStreamToControlApplications)
{
    const auto live = session.live();
    const std::string status = session.command(std::string(QUOREL_CONTROL) + " status");
    EXPECT_THAT(status, HasSubstr("48000"));
    EXPECT_THAT(status, HasSubstr("0x63F"));
    for (const char* figure : {"speaker: Test speakers", "microphone: Test microphone", "blocks of 240", "latency: ", "gaps: 0"})
        EXPECT_THAT(status, HasSubstr(figure));
    live->signal(SIGTERM);
    EXPECT_EQ(live->ended(patience), 0);
    EXPECT_THAT(session.command(std::string(QUOREL_CONTROL) + " status"), testing::Not(HasSubstr("speaker:")));
}

} // namespace
} // namespace quorel
