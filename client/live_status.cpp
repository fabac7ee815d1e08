// SPDX-License-Identifier: MIT
#include "client/live_status.h"

#include "platform/programs/local_question.h"

#include <cstdlib>
#include <iomanip>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>

namespace quorel {

namespace {

std::string layoutName(unsigned channels)
{
    switch (channels) {
    case 1:
        return "mono";
    case 2:
        return "stereo";
    case 6:
        return "5.1";
    case 8:
        return "7.1";
    default:
        return std::to_string(channels) + " channels";
    }
}

} // namespace

std::string liveFolder()
{
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    if (runtime == nullptr || *runtime != '/')
        throw std::runtime_error("XDG_RUNTIME_DIR is not set: there is no place for this user's running programs");
    return std::string(runtime) + "/quorel";
}

std::optional<nlohmann::json> askLive(const std::string& command)
{
    const auto reply = platform::askLocally(liveFolder() + "/live.sock", command);
    if (!reply)
        return std::nullopt;
    nlohmann::json told = nlohmann::json::parse(*reply, nullptr, false);
    if (!told.is_object())
        throw std::runtime_error("quorel-live answers what is no status");
    if (told.contains("error"))
        throw std::runtime_error(told["error"].get<std::string>());
    return told;
}

std::optional<unsigned> liveSpeakers(const nlohmann::json& status)
{
    if (!status.contains("speaker"))
        return std::nullopt;
    return status["speaker"].value("channels", 0U);
}

std::string readableSides(const nlohmann::json& status)
{
    std::ostringstream text;
    text << std::fixed << std::setprecision(1);
    text << "server: " << (status["connected"].get<bool>() ? "connected" : "gone, waiting for it") << ", " << status["reconnects"]
         << " reconnects, scheduling " << status["scheduling"].get<std::string>() << ", bypass "
         << (status["bypass"].get<bool>() ? "on" : "off") << '\n';
    for (const char* side : {"speaker", "microphone"}) {
        if (!status.contains(side))
            continue;
        const nlohmann::json& told = status[side];
        std::string devices;
        for (const auto& device : told["devices"])
            devices += (devices.empty() ? "" : ", ") + device.get<std::string>();
        text << side << ": " << (devices.empty() ? "no device linked" : devices) << ", "
             << (told["running"].get<bool>() ? "running" : "idle") << ", " << layoutName(told["channels"].get<unsigned>()) << '\n'
             << "  graph at " << told["rate"] << " Hz, drift " << told["drift_ppm"].get<double>() << " ppm, quantum "
             << told["quantum"] << ", blocks of " << told["block"] << '\n'
             << "  latency: " << told["added_frames"] << " frames (" << told["added_ms"].get<double>() << " ms) added, "
             << told["total_ms"].get<double>() << " ms to the device\n"
             << "  load: " << told["load_mean"].get<double>() << " % of the period, worst " << told["load_worst"].get<double>()
             << " %; gaps: " << told["gaps"] << " (" << told["gap_frames"] << " frames)\n"
             << "  refused blocks: " << told["refused_blocks"];
        if (!told["refusal"].get<std::string>().empty())
            text << " (" << told["refusal"].get<std::string>() << ')';
        text << "; bad samples: " << told["bad_samples"] << "; changes of the block: " << told["path_changes"] << ", "
             << told["lost_frames"] << " frames lost in them\n";
    }
    return text.str();
}

} // namespace quorel
