// SPDX-License-Identifier: MIT
#include "live/live_host.h"

#include "client/settings_fields.h"

#include <csignal>
#include <cstdio>
#include <iomanip>
#include <nlohmann/json.hpp>
#include <sstream>
#include <utility>

namespace quorel {

namespace {

constexpr std::uint32_t usualQuantum = 1024;            // frames; what a path is built for before the first call tells
constexpr std::int64_t holdPeriod = 100'000'000;        // ns between two looks at what still sounds
constexpr std::uint32_t quietEnough = effectRate / 5;   // frames below -100 dB, after which nothing more is heard
constexpr std::uint32_t idlePatience = 10 * effectRate; // such frames, after which an application that is linked has paused

std::uint32_t maskOf(std::uint32_t channels)
{
    return channels == 8 ? everySpeaker : channels == 6 ? 0x3F : 0x3;
}

double milliseconds(std::uint64_t frames)
{
    return 1000.0 * static_cast<double>(frames) / effectRate;
}

double percent(std::uint64_t part, std::uint64_t whole)
{
    return whole != 0 ? 100.0 * static_cast<double>(part) / static_cast<double>(whole) : 0.0;
}

} // namespace

// One side: its streams as long as there is a server, its path, its status.
class LiveHost::Side final : public LiveEffect {
public:
    Side(LiveHost& host, const StreamKind& kind, std::string target)
        : host(host),
          kind(kind),
          target(std::move(target)),
          work(pw_main_loop_get_loop(host.loop.get()), [this] { serve(); }),
          holding(pw_main_loop_get_loop(host.loop.get()), [this] { look(); }),
          change(
              speakerPlan, status, [](void* side) { static_cast<Side*>(side)->wake(); }, this)
    {
    }

    void open()
    {
        status.frames = 0;
        const auto block = status.quantum != 0 ? status.quantum.load() : usualQuantum;
        if (kind.microphone)
            gathered = build({microphoneBlock, 0});
        else
            change.begin(build(speakerPlan(block, false)));
        status.block = kind.microphone ? microphoneBlock : status.block.load();
        host.settings->writeActiveFormat(kind.mask, static_cast<float>(effectRate));
        pair = std::make_unique<StreamPair>(host.server->core(), kind, target, *this, status, [this] { watch(); });
    }

    void close()
    {
        pair.reset();
        watch();
    }

    bool opened() const { return pair != nullptr; }

    // From the first frame on the graph is held until nothing is heard any more; for longer while an application is linked,
    // whose last sound may be short. Never without a device: a session manager that starts does not link what is held.
    void settleHold()
    {
        if (!pair || kind.microphone)
            return;
        const bool played = !host.server->peersOf(pair->deviceNode()).empty();
        const bool sounding = pair->streaming() && pair->quietFor() < (played ? idlePatience : quietEnough);
        pair->hold(sounding && !host.server->peersOf(pair->hardwareNode()).empty());
    }

    // The audio thread.
    void process(const float* const* in, float* const* out, std::uint32_t n, bool varying) override
    {
        if (!kind.microphone) {
            change.process(in, out, n, varying);
            return;
        }
        gathered->process(in, out, n);
        status.delay.store(gathered->delay(), std::memory_order_relaxed);
        status.frames.fetch_add(n, std::memory_order_relaxed);
    }

    nlohmann::json tell() const
    {
        const std::uint64_t delay = status.delay;
        const double serverMs = pair ? pair->serverLatency() : 0;
        nlohmann::json told;
        told["channels"] = kind.channels;
        told["devices"] = pair ? host.server->peersOf(pair->hardwareNode()) : std::vector<std::string>();
        told["players"] = pair ? host.server->peersOf(pair->deviceNode()) : std::vector<std::string>();
        told["running"] = pair && pair->streaming();
        told["rate"] = status.rate.load();
        told["drift_ppm"] = 1e6 * (status.drift - 1.0);
        told["quantum"] = status.quantum.load();
        told["block"] = status.block.load();
        told["added_frames"] = delay;
        told["added_ms"] = milliseconds(delay);
        told["total_ms"] = serverMs + milliseconds(delay);
        told["load_mean"] = percent(status.busy, status.available);
        told["load_worst"] = 100.0 * static_cast<double>(status.worst.load());
        told["gaps"] = status.gaps.load();
        told["gap_frames"] = status.gapFrames.load();
        told["refused_blocks"] = status.refused.load();
        told["refusal"] = status.refusal.read();
        told["bad_samples"] = status.badSamples.load();
        told["path_changes"] = status.changes.load();
        told["lost_frames"] = status.lostFrames.load();
        told["frames"] = status.frames.load();
        told["in_energy"] = status.inEnergy.load();
        told["out_energy"] = status.outEnergy.load();
        told["first_tick"] = status.firstTick.load();
        return told;
    }

    const char* name() const { return kind.microphone ? "microphone" : "speaker"; }

private:
    std::unique_ptr<EffectStream> build(BlockPlan plan)
    {
        return std::make_unique<EffectStream>(kind, plan, host.settings, host.bypass, status);
    }

    // The audio thread.
    void wake() { work.signal(); }

    void serve()
    {
        try {
            change.serve([this](BlockPlan plan) { return build(plan); });
        } catch (const std::exception& error) {
            host.notice(std::string("no path for the new quantum: ") + error.what());
        }
    }

    // While frames go through, it looks ten times a second what must still be done.
    void watch()
    {
        settleHold();
        if (pair && pair->streaming())
            holding.every(holdPeriod);
        else
            holding.stop();
    }

    void look()
    {
        serve(); // again, if it failed
        if (!pair)
            return;
        pair->tellLatency();
        settleHold();
    }

    LiveHost& host;
    StreamKind kind;
    std::string target;
    LoopEvent work;
    LoopTimer holding;
    StreamStatus status;
    PathChange change;                      // the speaker side's path
    std::unique_ptr<EffectStream> gathered; // the microphone side's
    std::unique_ptr<StreamPair> pair;
};

LiveHost::LiveHost(const LiveOptions& options, std::function<void(const std::string&)> tell)
    : options(options), notice(std::move(tell)), loop((pw_init(nullptr, nullptr), pw_main_loop_new(nullptr)))
{
    if (!loop)
        throw std::runtime_error("PipeWire's client library does not start");
    pw_loop* events = pw_main_loop_get_loop(loop.get());
    // Ahead of the audio thread, which would be ended by a signal otherwise.
    for (const int signal : {SIGTERM, SIGINT})
        pw_loop_add_signal(
            events, signal, [](void* main, int) { pw_main_loop_quit(static_cast<pw_main_loop*>(main)); }, loop.get());

    settings = SettingsHandler::instance(SettingsHandler::layoutVersion);
    if (options.microphone)
        microphone = std::make_unique<Side>(*this, StreamKind{true, 1, 0x4}, options.input);
    if (options.speaker)
        speaker = std::make_unique<Side>(*this, StreamKind{false, options.channels, maskOf(options.channels)}, options.output);

    server =
        std::make_unique<AudioServer>(events, AudioServer::Events{[this] { open(); }, [this] { close(); }, [this] { relinked(); },
                                                                  [this] { reopen(); }, [this] { wait(); }});
    if (options.makeDefault) {
        if (speaker)
            server->makeDefault(true, "quorel.speaker");
        if (microphone)
            server->makeDefault(false, "quorel.microphone");
    }
    if (!server->connect())
        throw std::runtime_error("no PipeWire server is running");
    if (!server->settle())
        throw std::runtime_error("the PipeWire server does not answer");
    for (const Side* side : {speaker.get(), microphone.get()})
        if (side != nullptr && !side->opened())
            throw std::runtime_error("the audio server refuses the streams");
    commands = std::make_unique<CommandSocket>(events, [this](const std::string& command) { return answer(command); });
    if (options.verbose) {
        everySecond.emplace(events, [this] { tick(); });
        everySecond->every(1'000'000'000);
    }
}

LiveHost::~LiveHost()
{
    everySecond.reset();
    commands.reset();
    if (speaker)
        speaker->close();
    if (microphone) {
        microphone->close();
        settings->writeIdleLevels();
    }
    server.reset();
    speaker.reset();
    microphone.reset();
    settings.reset(); // writes what is to be kept
}

void LiveHost::run()
{
    pw_main_loop_run(loop.get());
    if (!server->restoreDefaults())
        notice("no session manager answers: the default devices stay as they are");
}

void LiveHost::open()
{
    if (openSides() && std::exchange(gone, false))
        notice("the audio server is back");
}

// The speaker last: its format is the one that a control application finds.
bool LiveHost::openSides()
{
    try {
        for (Side* side : {microphone.get(), speaker.get()})
            if (side != nullptr)
                side->open();
        return true;
    } catch (const std::exception& error) {
        notice(error.what());
        return false;
    }
}

// A session manager that was killed leaves nodes that have played in a state in which its successor does not link them.
void LiveHost::reopen()
{
    hanging = false;
    closeSides();
    openSides();
}

void LiveHost::close()
{
    gone = true;
    notice("the audio server is gone; waiting for it");
    closeSides();
}

// Told once, though it is asked again and again.
void LiveHost::wait()
{
    if (!std::exchange(hanging, true))
        notice("the session manager does not answer; asking it again from time to time");
    closeSides();
}

void LiveHost::closeSides()
{
    for (Side* side : {speaker.get(), microphone.get()})
        if (side != nullptr)
            side->close();
}

void LiveHost::relinked()
{
    for (Side* side : {speaker.get(), microphone.get()})
        if (side != nullptr)
            side->settleHold();
}

void LiveHost::tick()
{
    for (const Side* side : {speaker.get(), microphone.get()}) {
        if (side == nullptr)
            continue;
        const nlohmann::json told = side->tell();
        std::ostringstream line;
        line << side->name() << ": quantum " << told["quantum"] << ", block " << told["block"] << std::fixed
             << std::setprecision(1) << ", load " << told["load_mean"].get<double>() << " %, worst "
             << told["load_worst"].get<double>() << " %, gaps " << told["gaps"] << ", refused " << told["refused_blocks"];
        notice(line.str());
    }
}

std::string LiveHost::answer(const std::string& command)
{
    if (command == "status")
        return status().dump(-1, ' ', false, nlohmann::json::error_handler_t::replace); // devices' names may be any bytes
    if (command == "bypass on" || command == "bypass off") {
        bypass = command == "bypass on";
        return nlohmann::json{{"bypass", bypass.load()}}.dump();
    }
    return nlohmann::json{{"error", "unknown command"}}.dump();
}

nlohmann::json LiveHost::status()
{
    SettingsRecord record;
    settings->poll(record);
    nlohmann::json values;
    for (const SettingsField& field : settingsFields())
        values[field.name] = settingOf(record, field);
    values["hrtfId"] = record.hrtfId;

    nlohmann::json told{{"connected", server->connected()},
                        {"reconnects", server->reconnects()},
                        {"scheduling", server->scheduling()},
                        {"bypass", bypass.load()},
                        {"settings", values}};
    for (const Side* side : {speaker.get(), microphone.get()})
        if (side != nullptr)
            told[side->name()] = side->tell();
    return told;
}

std::string listDevices()
{
    pw_init(nullptr, nullptr);
    const std::unique_ptr<pw_main_loop, void (*)(pw_main_loop*)> loop(pw_main_loop_new(nullptr), pw_main_loop_destroy);
    AudioServer server(pw_main_loop_get_loop(loop.get()), {[] {}, [] {}, [] {}, [] {}, [] {}});
    if (!server.connect())
        throw std::runtime_error("no PipeWire server is running");
    if (!server.settle())
        throw std::runtime_error("the PipeWire server does not answer");
    std::string text;
    for (const auto& [kind, label] : {std::pair{"Audio/Sink", "output"}, std::pair{"Audio/Source", "input"}})
        for (const auto& [id, node] : server.nodes())
            if (node.mediaClass.starts_with(kind) && !node.name.starts_with("quorel."))
                text += std::string(label) + "  " + node.name + "  " + node.description + '\n';
    return text;
}

} // namespace quorel
