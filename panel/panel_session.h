// SPDX-License-Identifier: MIT
// PanelSession is the panel at work, whatever its window is made of: the model, the threads that look and write for it, and what
// follows from their news. It waits for nobody.
#pragma once

#include "panel/effect_link.h"
#include "panel/live_watch.h"
#include "panel/panel_model.h"
#include "panel/response_curve.h"
#include "panel/response_import.h"
#include "panel/taken_away.h"
#include "platform/programs/sound.h"

#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <optional>
#include <string>

namespace quorel {

class PanelSession {
public:
    enum class News : std::uint8_t { effect, live, import };

    // announce: called on the session's threads; the window then calls `take` on its own, once for each announcement.
    explicit PanelSession(std::function<void(News)> announce);

    // What follows is for the window's thread alone.

    // True when anything but the levels may show something else now.
    bool take(News news);

    const PanelModel& model() const { return panel; }
    const LiveView& live() const { return toldLast; }
    const ImportReport& imported() const { return report; }

    // Lets `edit` change the model and sends what it changed; what it throws is the message.
    void attempt(const std::function<void(PanelModel&)>& edit);

    // What the user is to be told; empty: nothing.
    const std::string& message() const { return text; }
    void tell(std::string message) { text = std::move(message); }

    // By quorel-live's own bypass where that runs, else by the settings.
    void bypass(bool on);
    bool bypassed() const;

    // Delivers the responses of a file, without one the built-in set. False while another import is under way.
    bool import(const std::string& path);
    bool importing() const { return responseImport.running(); }

    // The responses in use; nothing when another program delivered them, which this one has never seen.
    std::optional<ResponseTaps> responses() const;

    // Each speaker's name from its place, on quorel-live's device where that runs.
    void testSpeakers(bool on);
    bool testingSpeakers() const { return test.has_value(); }

    // What the microphone hears, with its effect, so many seconds late; nothing: no more. Delays are limited to 0.5 to 3 s.
    void listen(std::optional<double> secondsLate);
    bool listening() const { return ownVoice.has_value(); }

    // The microphone as it is without its effect, by the settings; they are put back as those of a bypass are.
    void hearBefore(bool on);
    bool hearingBefore() const { return panel.bypassed(PanelModel::Part::microphone); }

    // What the capture effect took in and gave since quorel-live's answer before; nothing where nobody tells.
    const std::optional<MeanLevels>& microphoneLevels() const { return taken; }

    // By how much the voice comes late: by noise reduction, while it is on, and by quorel-live and the server where one runs.
    struct Lateness {
        double effectMs;
        std::optional<double> hostMs;
    };
    Lateness lateness() const;

    // Only what is seen is looked at, and levels are measured only while they are shown. No sound is played unseen.
    void watch(bool seen, bool levelsShown);

    // Seconds since the meters were shown last; nothing while that is too short for another picture.
    std::optional<double> levelsDue();

    // Frames per second, 16000 or 48000: the bands for which the levels stand.
    std::uint32_t levelRate() const;

private:
    std::function<void()> announcing(News news);
    void keep();
    bool takeEffect();
    bool takeSounds();
    void play(std::optional<platform::PlayedSound>& sound, const std::function<platform::PlayedSound()>& begin);

    std::function<void(News)> announce;
    std::array<std::atomic<bool>, 3> announced{}; // and not taken yet
    Values savedKept;                             // what the bypass keeps, as its file has it
    PanelModel panel;
    ImportReport report;
    LiveView toldLast; // by quorel-live, and taken: all that is shown of it is of one answer
    std::string text;
    std::optional<MeanLevels> taken;
    TakenAway takenAway;
    std::optional<platform::PlayedSound> test;     // of the speakers
    std::optional<platform::PlayedSound> ownVoice; // that its user listens to
    std::chrono::steady_clock::time_point levelsShown = std::chrono::steady_clock::now();

    ResponseImport responseImport;
    LiveWatch host;
    EffectLink link;
};

} // namespace quorel
