// SPDX-License-Identifier: MIT
// A private session with what its tests ask of a running quorel-live.
#pragma once

#include "client/audio_file.h"
#include "tests/live/session/graph_client.h"
#include "tests/live/session/private_session.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

namespace quorel {

class LiveBehaviour : public testing::Test {
protected:
    void control(const std::string& words)
    {
        const std::string said = session.command(std::string(QUOREL_CONTROL) + " " + words);
        ASSERT_EQ(session.code, 0) << said;
    }

    // The configured default sink, as the session manager keeps it; empty if there is none.
    std::string configuredSink()
    {
        const std::string told = session.command("pw-metadata 0 default.configured.audio.sink");
        const auto from = told.find("{\"name\":\"");
        return from == std::string::npos ? "" : told.substr(from + 9, told.find('"', from + 9) - from - 9);
    }

    // Whether the speaker side is linked to the null sink.
    bool linked()
    {
        const nlohmann::json status = session.status();
        return status.contains("speaker") && status["speaker"]["devices"] == nlohmann::json({"Test speakers"});
    }

    // A tone on front left reaches the null sink. It begins when the graph goes through both.
    bool sounds()
    {
        if (!within(patience, [this] { return linked(); }))
            return false;
        GraphClient client({"FL"}, {"FL"});
        client.link({"quorel.speaker:playback_FL"}, {"speakers:monitor_FL"});
        const auto frames = [this] { return session.status().value("/speaker/frames"_json_pointer, std::uint64_t{0}); };
        const std::uint64_t before = frames();
        if (!within(patience, [&] { return frames() > before; }))
            return false;
        const Channels tone(1, std::vector<float>(9600, 0.25F));
        return within(patience, [&] {
            client.play(tone, 9600);
            return std::any_of(client.recorded()[0].begin(), client.recorded()[0].end(), [](float x) { return x > 0.01F; });
        });
    }

    // Whether what the recorder hears settles to these values, one a channel. The client plays `sound` meanwhile.
    static bool hears(GraphClient& client, const Channels& sound, const std::vector<float>& values)
    {
        return within(patience, [&] {
            client.play(sound, 9600);
            for (std::size_t c = 0; c < values.size(); ++c)
                if (!(std::abs(client.recorded()[c].back() - values[c]) < 1e-4F)) // no volume comes nearer than this to another
                    return false;
            return true;
        });
    }

    // A file in which channel k has the value (k + 1) / 20 throughout.
    std::string steps(std::uint32_t channels, std::size_t frames)
    {
        std::vector<float> samples(frames * channels);
        for (std::size_t i = 0; i < samples.size(); ++i)
            samples[i] = static_cast<float>(i % channels + 1) / 20.0F;
        const std::string path = (session.folder / ("steps" + std::to_string(channels) + ".wav")).string();
        const int count = static_cast<int>(channels);
        AudioWriter writer(path, {count, 48000, usualMask(count), SampleFormat::float32}, frames);
        writer.write(samples.data(), frames);
        writer.commit();
        return path;
    }

    // A player that begins anew at the end of its file: the client's clock is faster than the sound.
    static std::vector<std::string> again(const std::string& player) { return {"sh", "-c", "while " + player + "; do :; done"}; }

    // The server's number of a node.
    std::string idOf(const std::string& node)
    {
        for (const auto& object : nlohmann::json::parse(session.command("pw-dump")))
            if (object.contains("info") && object["info"].contains("props") &&
                object["info"]["props"].value("node.name", "") == node)
                return std::to_string(object["id"].get<int>());
        return "none";
    }

    static int linesOf(const std::string& text, const std::string& words)
    {
        int count = 0;
        for (auto at = text.find(words); at != std::string::npos; at = text.find(words, at + 1))
            ++count;
        return count;
    }

    PrivateSession session;
};

} // namespace quorel
