// SPDX-License-Identifier: MIT
#include "tests/live/session/private_session.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace quorel {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace {

const char* const configuration =
    R"(context.properties = { default.clock.rate = 48000 default.clock.quantum = 1024 default.clock.min-quantum = 16 default.clock.max-quantum = 8192 }
context.objects = [
  { factory = adapter args = { factory.name = support.null-audio-sink node.name = speakers node.description = "Test speakers"
      media.class = Audio/Sink audio.position = "FL,FR" object.linger = true monitor.channel-volumes = true
      priority.session = 1000 } }
  { factory = adapter args = { factory.name = support.null-audio-sink node.name = testmic node.description = "Test microphone"
      media.class = Audio/Source/Virtual audio.position = "MONO" object.linger = true priority.session = 1000 } }
]
)";

void need(bool reached, const std::string& what)
{
    if (!reached)
        throw std::runtime_error(what);
}

} // namespace

bool within(std::chrono::milliseconds time, const std::function<bool()>& reached)
{
    const auto end = std::chrono::steady_clock::now() + time;
    while (!reached()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(20ms);
    }
    return true;
}

Service::Service(const std::vector<std::string>& words, fs::path output) : process(-1), output(std::move(output))
{
    std::vector<char*> argv;
    for (const std::string& word : words)
        argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    const int file = open(this->output.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    process = fork();
    if (process == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        setpgid(0, 0);
        dup2(file, STDOUT_FILENO);
        dup2(file, STDERR_FILENO);
        execvp(argv[0], argv.data());
        _exit(127);
    }
    close(file);
    need(process > 0, "no process");
}

Service::~Service()
{
    signal(SIGTERM); // what it leaves behind then, such as counts, stays
    static_cast<void>(ended(2s));
    kill(-process, SIGKILL); // what it has started too
    static_cast<void>(ended(patience));
}

void Service::signal(int number) const
{
    if (!code)
        kill(process, number);
}

std::optional<int> Service::ended(std::chrono::milliseconds time)
{
    within(time, [this] {
        int status = 0;
        if (!code && waitpid(process, &status, WNOHANG) == process)
            code = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
        return code.has_value();
    });
    return code;
}

std::string Service::written() const
{
    std::ifstream file(output, std::ios::binary | std::ios::ate);
    if (!file)
        return {};
    std::string text(static_cast<std::size_t>(file.tellg()), '\0'); // recordings are long: not letter by letter
    file.seekg(0).read(text.data(), static_cast<std::streamsize>(text.size()));
    return text;
}

PrivateSession::PrivateSession()
{
    std::string pattern = (fs::temp_directory_path() / "quorel_session_XXXXXX").string();
    folder = mkdtemp(pattern.data());
    for (const char* name : {"HOME", "XDG_RUNTIME_DIR", "PIPEWIRE_RUNTIME_DIR"})
        setenv(name, folder.c_str(), 1);
    setenv("XDG_CONFIG_HOME", (folder / "config").c_str(), 1);
    setenv("XDG_STATE_HOME", (folder / "state").c_str(), 1);
    setenv("XDG_DATA_HOME", (folder / "data").c_str(), 1);
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "PULSE_SERVER", "PIPEWIRE_REMOTE", "PIPEWIRE_LATENCY"})
        unsetenv(name);
    const fs::path settings = folder / "config/pipewire/pipewire.conf.d";
    fs::create_directories(settings);
    std::ofstream(settings / "test.conf") << configuration;

    const std::string address = "unix:path=" + (folder / "bus").string();
    setenv("DBUS_SESSION_BUS_ADDRESS", address.c_str(), 1);
    bus = std::make_unique<Service>(
        std::vector<std::string>{"dbus-daemon", "--session", "--nofork", "--nopidfile", "--address=" + address},
        folder / "bus.txt");
    need(within(patience, [this] { return fs::exists(folder / "bus"); }), "no message bus");
    startServer();
    startManager();
}

PrivateSession::~PrivateSession()
{
    manager.reset();
    server.reset();
    bus.reset();
    // The effects' shared memory stands elsewhere; each record in their folder is the name of one.
    const fs::path shared = folder / ".local/state/quorel";
    if (fs::is_directory(shared))
        for (const auto& entry : fs::directory_iterator(shared)) {
            std::string name;
            if (entry.is_regular_file() && std::ifstream(entry.path()) >> name)
                shm_unlink(name.c_str());
        }
    fs::remove_all(folder);
}

std::string PrivateSession::command(const std::string& line)
{
    std::string text;
    FILE* pipe = popen(("timeout 60 " + line + " 2>&1").c_str(), "r");
    char part[4096];
    while (const std::size_t got = std::fread(part, 1, sizeof part, pipe))
        text.append(part, got);
    const int status = pclose(pipe);
    code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return text;
}

void PrivateSession::startServer()
{
    server = std::make_unique<Service>(std::vector<std::string>{"pipewire"}, folder / ("server" + std::to_string(++started)));
    need(within(patience, [this] { return command("pw-cli ls Node").find("testmic") != std::string::npos; }), "no audio server");
}

void PrivateSession::killServer()
{
    server->signal(SIGKILL);
    need(server->ended(patience).has_value(), "the audio server does not end");
    killManager(); // it ends with its server
}

// As a real one does with the hardware: what a killed one has left has gone with it, and it makes it anew. The null devices are
// the server's own, and stay.
void PrivateSession::replugSpeakers()
{
    command("pw-cli destroy speakers");
    need(within(patience, [this] { return command("pw-cli ls Node").find("\"speakers\"") == std::string::npos; }),
         "the null sink stays");
    command("pw-cli create-node adapter '{ factory.name=support.null-audio-sink node.name=speakers "
            "node.description=\"Test speakers\" media.class=Audio/Sink audio.position=\"FL,FR\" object.linger=true "
            "monitor.channel-volumes=true priority.session=1000 }'");
}

// It happens that server and manager wait for each other as the manager starts: whoever asks for the defaults then gets no answer.
// That one is killed, and another one started.
void PrivateSession::startManager()
{
    std::string defaults;
    bool stuck = false;
    const bool there = within(patience, [&] {
        if (!manager || stuck) {
            manager.reset();
            manager = std::make_unique<Service>(std::vector<std::string>{"wireplumber"},
                                                folder / ("manager" + std::to_string(++started)));
        }
        defaults = command("timeout 10 pw-metadata 0 default.audio.sink");
        stuck = code == 124;
        return defaults.find("speaker") != std::string::npos;
    });
    need(there, "no session manager: " + defaults + manager->written());
}

void PrivateSession::killManager()
{
    manager->signal(SIGKILL);
    need(manager->ended(patience).has_value(), "the session manager does not end");
    manager.reset();
}

void PrivateSession::signalServer(int number)
{
    server->signal(number);
}

void PrivateSession::signalManager(int number)
{
    manager->signal(number);
}

std::unique_ptr<Service> PrivateSession::startLive(const std::vector<std::string>& options, const std::vector<std::string>& under)
{
    std::vector<std::string> words = under;
    words.emplace_back(QUOREL_LIVE);
    words.insert(words.end(), options.begin(), options.end());
    return std::make_unique<Service>(words, folder / ("live" + std::to_string(++started)));
}

std::unique_ptr<Service> PrivateSession::live(const std::vector<std::string>& options, const std::vector<std::string>& under)
{
    auto service = startLive(options, under);
    const bool there = within(patience, [&] {
        const nlohmann::json told = status();
        bool linked = told.contains("speaker") || told.contains("microphone");
        for (const char* side : {"speaker", "microphone"})
            linked = linked && (!told.contains(side) || !told[side]["devices"].empty());
        return linked || service->ended(0ms);
    });
    need(there && !service->ended(0ms), service->written());
    return service;
}

nlohmann::json PrivateSession::status()
{
    std::string said;
    within(patience, [&] {
        said = command(QUOREL_LIVE " --status --json");
        return said.find("does not answer") == std::string::npos; // it is there and waits for the audio server, say
    });
    const auto told = nlohmann::json::parse(said, nullptr, false);
    return told.is_object() ? told : nlohmann::json::object();
}

} // namespace quorel
