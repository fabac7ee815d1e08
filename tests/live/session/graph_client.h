// SPDX-License-Identifier: MIT
// GraphClient plays into ports of the audio graph and records from others, sample by sample. It is the graph's clock as well,
// unless the device shall be: a cycle begins when all nodes have done the one before. So no frame is lost however busy the
// machine is, and sound takes less time than it lasts.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

struct pw_stream;
struct pw_thread_loop;
struct spa_io_position;

namespace quorel {

using Channels = std::vector<std::vector<float>>; // one row a channel

class GraphClient {
public:
    // One node that plays, with a port for each name, and one that records.
    enum class Clock { own, ofTheDevice };
    GraphClient(const std::vector<std::string>& outputs, const std::vector<std::string>& inputs, Clock clock = Clock::own);
    ~GraphClient();
    GraphClient(const GraphClient&) = delete;
    GraphClient& operator=(const GraphClient&) = delete;

    // Links port k of the player to the k-th of these, and the k-th of those to port k of the recorder.
    void link(const std::vector<std::string>& to, const std::vector<std::string>& from);

    // Plays the sound from the start of the next quantum on and records from then on for so many frames. Waits for the end.
    // False when the graph did not get there in time.
    bool play(const Channels& sound, std::size_t frames);

    // Frames of the cycles from now on, by its own clock.
    void setQuantum(std::uint32_t frames) { quantum = frames; }

    // What its own clock tells of the device's: 1 where that goes as the system's does.
    void setDrift(double ratio) { drift = ratio; }

    // Cycles of its own clock that did not end.
    std::uint64_t lostCycles() const;

    const Channels& recorded() const { return recording; }
    std::uint64_t playedAt() const { return playTick; } // the graph's clock at the first frame that was played
    std::uint64_t recordedAt() const { return recordTick; }

private:
    struct Node;
    struct Pacemaker;
    static void onPlay(void* data, spa_io_position* position);
    static void onRecord(void* data, spa_io_position* position);

    pw_thread_loop* loop;
    std::unique_ptr<Node> player;
    std::unique_ptr<Node> recorder;
    std::unique_ptr<Pacemaker> pacemaker;
    std::vector<std::string> outputNames;
    std::vector<std::string> inputNames;
    std::mutex playing; // the two audio threads and the one that plays
    const Channels* sound = nullptr;
    Channels recording;
    std::atomic<bool> armed = false;
    std::atomic<std::uint32_t> quantum = 1024;
    std::atomic<double> drift = 1;
    std::atomic<std::size_t> played = 0;
    std::atomic<std::size_t> taken = 0;
    std::atomic<std::uint64_t> playTick = 0;
    std::atomic<std::uint64_t> recordTick = 0;
};

} // namespace quorel
