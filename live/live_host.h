// SPDX-License-Identifier: MIT
// LiveHost is the running quorel-live: one or both sides at the audio server, the settings that steer them, and what it tells
// about itself.
#pragma once

#include "live/audio_server.h"
#include "live/effect_stream.h"
#include "live/instance.h"
#include "live/loop_source.h"
#include "live/path_change.h"
#include "live/stream_pair.h"

#include <functional>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

namespace quorel {

struct LiveOptions {
    bool speaker = true;
    bool microphone = true;
    std::uint32_t channels = 8; // of the speaker side: 8, 6 or 2
    std::string output;         // node names; empty: the default device
    std::string input;
    bool makeDefault = false;
    bool verbose = false;
};

class LiveHost {
public:
    // notice: tells the user one line. Throws std::runtime_error when the settings, the socket or the server are not to be had.
    LiveHost(const LiveOptions& options, std::function<void(const std::string&)> notice);
    ~LiveHost();
    LiveHost(const LiveHost&) = delete;
    LiveHost& operator=(const LiveHost&) = delete;

    // Until SIGTERM or SIGINT.
    void run();

private:
    class Side;

    struct LoopDestroy {
        void operator()(pw_main_loop* main) const noexcept { pw_main_loop_destroy(main); }
    };

    void open();
    bool openSides();
    void close();
    void closeSides();
    void reopen();
    void wait();
    void relinked();
    void tick();
    std::string answer(const std::string& command);
    nlohmann::json status();

    LiveOptions options;
    std::function<void(const std::string&)> notice;
    InstanceLock lock;
    std::unique_ptr<pw_main_loop, LoopDestroy> loop;
    std::shared_ptr<SettingsHandler> settings;
    std::atomic<bool> bypass = false;
    std::unique_ptr<AudioServer> server; // outlives the sides' streams
    std::unique_ptr<Side> speaker;
    std::unique_ptr<Side> microphone;
    std::unique_ptr<CommandSocket> commands;
    std::optional<LoopTimer> everySecond; // with --verbose
    bool gone = false;                    // the server, as its user was told
    bool hanging = false;                 // the session manager, likewise
};

// What the server has, for a user to choose from: a line a device.
std::string listDevices();

} // namespace quorel
