// SPDX-License-Identifier: MIT
// AudioServer is the connection to the PipeWire server of this session: what nodes and links it has, which devices are the
// default ones, and that it is there again after it was away.
//
// All on the main loop's thread. While there is no connection it looks for the server's socket whenever something appears in
// its folder, and every 250 ms.
#pragma once

#include "live/loop_source.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <pipewire/extensions/metadata.h>
#include <pipewire/pipewire.h>
#include <string>
#include <vector>

namespace quorel {

class AudioServer {
public:
    struct Node {
        std::string name;
        std::string description;
        std::string mediaClass; // "Audio/Sink", "Audio/Source" and others
    };

    struct Events {
        std::function<void()> connected; // streams can be made
        std::function<void()> lost;      // they must go
        std::function<void()> relinked;  // links have come or gone
        std::function<void()> unmanaged; // the session manager has gone
        std::function<void()> unheard;   // it does not answer: the streams must go, and come with the next connection
    };

    AudioServer(pw_loop* loop, Events events);
    ~AudioServer();
    AudioServer(const AudioServer&) = delete;
    AudioServer& operator=(const AudioServer&) = delete;

    // False when there is no server. Otherwise `connected` is called when it has answered: one that is being killed takes
    // connections to its end.
    bool connect();

    // From now on it connects whenever there is a server.
    void keepTrying();

    pw_core* core() const noexcept { return connection; }
    bool connected() const noexcept { return answered; }
    std::uint64_t reconnects() const noexcept { return reconnects_; }

    const std::map<std::uint32_t, Node>& nodes() const noexcept { return nodes_; }

    // The nodes that a node gives to, or that it takes from, but for our own.
    std::vector<std::string> peersOf(std::uint32_t node) const;

    // Before `connect`: makes a node the default sink or source until `restoreDefaults`, also of a session manager that comes
    // later.
    void makeDefault(bool sink, const std::string& node);

    // Puts back what was configured before, unless somebody has chosen something else meanwhile. False when there is no session
    // manager to take it, or none that answers.
    bool restoreDefaults();

    // Not from within an event: waits until the server has done and told everything up to here. False when it does not answer
    // or is gone.
    bool settle();

    // The audio thread's scheduling as the system tells it, such as "FIFO 88" or "normal".
    std::string scheduling();

private:
    struct Default {
        std::string ours;               // the name of our node; empty: not asked for
        std::string now;                // what is configured, as the server has it
        std::optional<std::string> was; // what was configured before us; empty text: nothing
    };

    struct Link {
        std::uint32_t from;
        std::uint32_t to;
    };

    int ask();
    void welcome();
    void drop();
    void lose();
    void leaveManager();
    void heard();
    void giveUp();
    void watchForServer();
    void stopWatching();
    void addGlobal(std::uint32_t id, const char* type, const spa_dict* properties);
    void removeGlobal(std::uint32_t id);
    void takeDefault(bool sink, const std::string& value);
    void claim(bool sink);
    void write(bool sink, const std::string& value);
    void bindDefaults();
    void unbindDefaults();
    void forgetManager();
    bool claims() const;

    pw_loop* loop;
    Events events;
    pw_context* context = nullptr;
    pw_core* connection = nullptr;
    pw_registry* registry = nullptr;
    pw_metadata* defaults = nullptr;
    std::uint32_t defaultsId = SPA_ID_INVALID;                       // at the server; invalid while there is no session manager
    LoopTimer again{loop, [this] { static_cast<void>(connect()); }}; // a look for the server, after a while
    std::unique_ptr<LoopInput> appeared;                             // something has appeared in the folder of its socket
    LoopEvent ended{loop, [this] { lose(); }};                       // the connection is gone
    LoopEvent orphaned{loop, [this] { leaveManager(); }};            // the session manager is
    LoopTimer started{loop, [this] { bindDefaults(); }};             // one has been there for a while
    LoopTimer unheard{loop, [this] { giveUp(); }};                   // one that was asked has not answered
    std::int64_t askingAfter; // ns until one is asked, longer after each that did not answer
    bool answered = false;    // by the server, on this connection
    bool broken = false;      // and `ended` has been told so
    bool trying = false;
    std::uint64_t reconnects_ = 0;
    std::map<std::uint32_t, Node> nodes_;
    std::map<std::uint32_t, Link> links;
    Default sinkDefault;
    Default sourceDefault;
    int claiming = -1; // the answer behind which a new session manager's defaults are known
    int settling = -1; // the answer that `settle` waits for
    bool settled = false;
    int audioThread = 0; // its number at the system
    spa_hook coreHook{};
    spa_hook registryHook{};
    spa_hook defaultsHook{};
    pw_core_events coreEvents{};
    pw_registry_events registryEvents{};
    pw_metadata_events defaultsEvents{};
};

} // namespace quorel
