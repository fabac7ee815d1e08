// SPDX-License-Identifier: MIT
#include "live/audio_server.h"

#include "live/scheduling.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <sys/inotify.h>
#include <unistd.h>

namespace quorel {

namespace {

constexpr std::int64_t retryPeriod = 250'000'000; // ns
constexpr auto answerPatience = std::chrono::nanoseconds(5'000'000'000);
constexpr std::int64_t managerStart = 500'000'000;    // ns that a new session manager is given before anything is asked of it
constexpr std::int64_t longestStart = 32'000'000'000; // and at most that one is given which has not answered

const char* keyOf(bool sink)
{
    return sink ? "default.configured.audio.sink" : "default.configured.audio.source";
}

std::string folderOfSocket()
{
    for (const char* name : {"PIPEWIRE_RUNTIME_DIR", "XDG_RUNTIME_DIR"})
        if (const char* folder = std::getenv(name); folder != nullptr && *folder != '\0')
            return folder;
    return {};
}

std::string textOf(const spa_dict* properties, const char* key)
{
    const char* value = properties != nullptr ? spa_dict_lookup(properties, key) : nullptr;
    return value != nullptr ? value : "";
}

std::uint32_t numberOf(const spa_dict* properties, const char* key)
{
    return static_cast<std::uint32_t>(std::strtoul(textOf(properties, key).c_str(), nullptr, 10));
}

// The node that a default device's value names; anybody may have written the value.
std::string nodeIn(const std::string& value)
{
    const nlohmann::json device = nlohmann::json::parse(value, nullptr, false);
    const auto name = device.is_object() ? device.find("name") : device.end();
    return name != device.end() && name->is_string() ? name->get<std::string>() : "";
}

} // namespace

AudioServer::AudioServer(pw_loop* loop, Events events) : loop(loop), events(std::move(events)), askingAfter(managerStart)
{
    // This configuration gives the audio thread real-time scheduling, by the user's limits, the portal or the system's helper.
    context = pw_context_new(loop, pw_properties_new(PW_KEY_CONFIG_NAME, "client-rt.conf", nullptr), 0);
    if (context == nullptr)
        throw std::runtime_error(std::string("PipeWire's client library does not start: ") + std::strerror(errno));

    coreEvents.version = PW_VERSION_CORE_EVENTS;
    coreEvents.info = [](void* data, const pw_core_info*) { static_cast<AudioServer*>(data)->welcome(); };
    coreEvents.done = [](void* data, std::uint32_t id, int answer) {
        auto& server = *static_cast<AudioServer*>(data);
        if (id != PW_ID_CORE)
            return;
        server.settled = server.settled || answer == server.settling;
        if (answer == server.claiming) {
            server.heard();
            server.claim(true);
            server.claim(false);
        }
    };
    coreEvents.error = [](void* data, std::uint32_t id, int, int result, const char*) {
        auto& server = *static_cast<AudioServer*>(data);
        if (id != PW_ID_CORE || (result != -EPIPE && result != -ECONNRESET))
            return;
        server.broken = true;
        server.ended.signal(); // not from within the connection
    };
    registryEvents.version = PW_VERSION_REGISTRY_EVENTS;
    registryEvents.global = [](void* data, std::uint32_t id, std::uint32_t, const char* type, std::uint32_t,
                               const spa_dict* properties) { static_cast<AudioServer*>(data)->addGlobal(id, type, properties); };
    registryEvents.global_remove = [](void* data, std::uint32_t id) { static_cast<AudioServer*>(data)->removeGlobal(id); };
    defaultsEvents.version = PW_VERSION_METADATA_EVENTS;
    defaultsEvents.property = [](void* data, std::uint32_t subject, const char* key, const char*, const char* value) {
        for (const bool sink : {true, false})
            if (subject == PW_ID_CORE && key != nullptr && std::strcmp(key, keyOf(sink)) == 0)
                static_cast<AudioServer*>(data)->takeDefault(sink, value != nullptr ? value : "");
        return 0;
    };
}

AudioServer::~AudioServer()
{
    drop();
    pw_context_destroy(context);
}

bool AudioServer::connect()
{
    if (connection != nullptr)
        return true;
    connection = pw_context_connect(context, nullptr, 0);
    if (connection == nullptr) {
        if (trying)
            watchForServer();
        return false;
    }
    stopWatching();
    pw_core_add_listener(connection, &coreHook, &coreEvents, this);
    registry = pw_core_get_registry(connection, PW_VERSION_REGISTRY, 0);
    pw_registry_add_listener(registry, &registryHook, &registryEvents, this);
    return true;
}

// The first thing that a server tells.
void AudioServer::welcome()
{
    if (answered)
        return;
    answered = true;
    reconnects_ += static_cast<std::uint64_t>(trying);
    trying = false;
    events.connected();
}

void AudioServer::keepTrying()
{
    trying = true;
    static_cast<void>(connect());
}

// The streams that go tell the end once more, maybe after the next connection stands: that one is not broken.
void AudioServer::lose()
{
    if (connection == nullptr || !broken)
        return;
    if (answered)
        events.lost();
    drop();
    keepTrying();
}

void AudioServer::drop()
{
    forgetManager();
    if (registry != nullptr) {
        spa_hook_remove(&registryHook);
        pw_proxy_destroy(reinterpret_cast<pw_proxy*>(registry));
    }
    if (connection != nullptr) {
        spa_hook_remove(&coreHook);
        pw_core_disconnect(connection);
    }
    registry = nullptr;
    connection = nullptr;
    answered = false;
    broken = false;
    nodes_.clear();
    links.clear();
}

void AudioServer::watchForServer()
{
    again.once(retryPeriod);
    if (appeared != nullptr)
        return;
    const int watch = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    if (watch < 0)
        return; // the timer is enough
    if (inotify_add_watch(watch, folderOfSocket().c_str(), IN_CREATE | IN_MOVED_TO) < 0) {
        close(watch);
        return;
    }
    appeared = LoopInput::of(loop, watch, [this, watch] {
        char names[4096];
        while (read(watch, names, sizeof names) > 0) {
        }
        static_cast<void>(connect());
    });
}

void AudioServer::stopWatching()
{
    again.stop();
    appeared.reset();
}

void AudioServer::addGlobal(std::uint32_t id, const char* type, const spa_dict* properties)
{
    const std::string kind = type;
    if (kind == PW_TYPE_INTERFACE_Node) {
        nodes_[id] = {textOf(properties, PW_KEY_NODE_NAME), textOf(properties, PW_KEY_NODE_DESCRIPTION),
                      textOf(properties, PW_KEY_MEDIA_CLASS)};
    } else if (kind == PW_TYPE_INTERFACE_Link) {
        links[id] = {numberOf(properties, PW_KEY_LINK_OUTPUT_NODE), numberOf(properties, PW_KEY_LINK_INPUT_NODE)};
        events.relinked();
    } else if (kind == PW_TYPE_INTERFACE_Metadata && textOf(properties, PW_KEY_METADATA_NAME) == "default" &&
               defaultsId == SPA_ID_INVALID) {
        defaultsId = id;
        if (claims())
            started.once(askingAfter);
    }
}

void AudioServer::removeGlobal(std::uint32_t id)
{
    nodes_.erase(id);
    if (links.erase(id) != 0)
        events.relinked();
    if (id == defaultsId) { // the session manager went; another one brings its own
        forgetManager();
        askingAfter = managerStart;
        orphaned.signal(); // not from within the connection
    }
}

void AudioServer::leaveManager()
{
    if (answered && defaultsId == SPA_ID_INVALID)
        events.unmanaged();
}

std::vector<std::string> AudioServer::peersOf(std::uint32_t node) const
{
    std::vector<std::string> names;
    for (const auto& [id, link] : links) {
        const std::uint32_t peer = link.from == node ? link.to : link.to == node ? link.from : SPA_ID_INVALID;
        const auto found = nodes_.find(peer);
        if (found == nodes_.end() || found->second.name.starts_with("quorel."))
            continue;
        const std::string& name = found->second.description.empty() ? found->second.name : found->second.description;
        if (std::find(names.begin(), names.end(), name) == names.end())
            names.push_back(name);
    }
    return names;
}

// ---- default devices ------------------------------------------------------------------------------------------------

// The session manager keeps them. To a new binding it tells all it has, ahead of the answer to the next `pw_core_sync`. Until it
// has, the server holds back whatever else it would tell this client. One that is bound as it starts may wait for the server for
// good, and the server for it; so it is bound where there is something to claim alone, and a little later. Behind one that does
// not answer, a new connection is heard again.
void AudioServer::bindDefaults()
{
    unbindDefaults();
    sinkDefault.now.clear();
    sourceDefault.now.clear();
    defaults =
        static_cast<pw_metadata*>(pw_registry_bind(registry, defaultsId, PW_TYPE_INTERFACE_Metadata, PW_VERSION_METADATA, 0));
    pw_metadata_add_listener(defaults, &defaultsHook, &defaultsEvents, this);
    claiming = ask();
    unheard.once(answerPatience.count());
}

void AudioServer::heard()
{
    unheard.stop();
    askingAfter = managerStart;
}

void AudioServer::giveUp()
{
    askingAfter = std::min(4 * askingAfter, longestStart);
    events.unheard();
    drop();
    keepTrying();
}

void AudioServer::unbindDefaults()
{
    started.stop();
    unheard.stop();
    if (defaults != nullptr) {
        spa_hook_remove(&defaultsHook);
        pw_proxy_destroy(reinterpret_cast<pw_proxy*>(defaults));
    }
    defaults = nullptr;
}

void AudioServer::forgetManager()
{
    unbindDefaults();
    defaultsId = SPA_ID_INVALID;
}

bool AudioServer::claims() const
{
    return !sinkDefault.ours.empty() || !sourceDefault.ours.empty();
}

void AudioServer::takeDefault(bool sink, const std::string& value)
{
    (sink ? sinkDefault : sourceDefault).now = value;
}

void AudioServer::makeDefault(bool sink, const std::string& node)
{
    (sink ? sinkDefault : sourceDefault).ours = node;
}

// What a run that was killed has left names our own node: it is not what the user had.
void AudioServer::claim(bool sink)
{
    Default& device = sink ? sinkDefault : sourceDefault;
    if (device.ours.empty() || defaults == nullptr)
        return;
    if (!device.was)
        device.was = nodeIn(device.now) == device.ours ? "" : device.now;
    write(sink, nlohmann::json{{"name", device.ours}}.dump());
}

// What was told so far may be older than what the user has chosen, and than our own claim: it is asked for anew.
bool AudioServer::restoreDefaults()
{
    if (!claims())
        return true;
    if (!settle() || defaultsId == SPA_ID_INVALID)
        return false;
    bindDefaults();
    claiming = -1; // too late for that
    if (!settle() || defaults == nullptr)
        return false;
    for (const bool sink : {true, false}) {
        Default& device = sink ? sinkDefault : sourceDefault;
        if (!device.ours.empty() && nodeIn(device.now) == device.ours)
            write(sink, device.was.value_or(""));
    }
    return settle();
}

void AudioServer::write(bool sink, const std::string& value)
{
    const char* type = value.empty() ? nullptr : "Spa:String:JSON";
    const char* text = value.empty() ? nullptr : value.c_str();
    pw_metadata_set_property(defaults, PW_ID_CORE, keyOf(sink), type, text);
}

// The number of the answer.
int AudioServer::ask()
{
    return pw_core_sync(connection, PW_ID_CORE, 0);
}

bool AudioServer::settle()
{
    const pw_core* asked = connection;
    if (asked == nullptr)
        return false;
    settled = false;
    settling = ask();
    const auto end = std::chrono::steady_clock::now() + answerPatience;
    pw_loop_enter(loop);
    while (!settled && connection == asked && std::chrono::steady_clock::now() < end)
        pw_loop_iterate(loop, 50);
    pw_loop_leave(loop);
    return settled && connection == asked;
}

// ---- scheduling -----------------------------------------------------------------------------------------------------

std::string AudioServer::scheduling()
{
    if (audioThread == 0)
        pw_data_loop_invoke(
            pw_context_get_data_loop(context),
            [](spa_loop*, bool, std::uint32_t, const void*, std::size_t, void* data) {
                *static_cast<int*>(data) = gettid();
                return 0;
            },
            0, nullptr, 0, true, &audioThread);
    return schedulingOf(audioThread);
}

} // namespace quorel
