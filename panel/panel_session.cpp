// SPDX-License-Identifier: MIT
#include "panel/panel_session.h"

#include "microphone/microphone_rates.h"
#include "panel/kept_values.h"
#include "panel/speaker_test.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <utility>

namespace quorel {

namespace {

constexpr auto levelInterval = std::chrono::milliseconds(90); // a look comes every 40, and an eye needs ten pictures a second

constexpr double shortestDelay = 0.5; // seconds, of one's own voice: below it speaking gets hard
constexpr double longestDelay = 3;

bool sameBesideLevels(const EffectView& a, const EffectView& b)
{
    return a.state == b.state && std::memcmp(&a.settings, &b.settings, sizeof a.settings) == 0 &&
           a.channelMask == b.channelMask && a.framesPerSecond == b.framesPerSecond && a.microphone == b.microphone &&
           a.trouble == b.trouble && a.refusal == b.refusal && a.responsesFile == b.responsesFile;
}

} // namespace

PanelSession::PanelSession(std::function<void(News)> announce)
    : announce(std::move(announce)),
      savedKept(loadKeptValues()),
      responseImport(announcing(News::import)),
      host(announcing(News::live)),
      link(announcing(News::effect))
{
    panel.keepValues(savedKept);
}

std::function<void()> PanelSession::announcing(News news)
{
    return [this, news] {
        if (!announced.at(static_cast<std::size_t>(news)).exchange(true))
            announce(news);
    };
}

bool PanelSession::take(News news)
{
    announced.at(static_cast<std::size_t>(news)) = false;
    switch (news) {
    case News::effect: {
        const bool ended = takeSounds();
        return takeEffect() || ended;
    }
    case News::live:
        toldLast = host.view();
        link.hostTells(toldLast.speakers);
        taken = takenAway.next(toldLast.microphone);
        break;
    case News::import:
        report = responseImport.report();
        break;
    }
    return true;
}

bool PanelSession::takeEffect()
{
    const EffectView view = link.view();
    const bool changed = !panel.settled() || !sameBesideLevels(view, panel.seen());
    panel.see(view);
    if (!changed)
        return false;
    if (panel.usable() && !view.trouble.empty())
        text = view.trouble;
    if (panel.settled()) {
        try {
            keep(); // less, when it has been put back or set by another program
        } catch (const std::exception& error) {
            text = error.what();
        }
    }
    return true;
}

bool PanelSession::takeSounds()
{
    bool ended = false;
    for (auto* sound : {&test, &ownVoice}) {
        const auto trouble = *sound ? (*sound)->ended() : std::nullopt;
        if (!trouble)
            continue;
        sound->reset();
        ended = true;
        if (!trouble->empty())
            text = *trouble;
    }
    return ended;
}

void PanelSession::play(std::optional<platform::PlayedSound>& sound, const std::function<platform::PlayedSound()>& begin)
{
    text.clear();
    sound.reset();
    if (begin)
        sound.emplace(begin());
}

void PanelSession::testSpeakers(bool on)
{
    const auto begin = [this] {
        const auto told = toldLast.speakers;
        const EffectView& seen = panel.seen();
        return platform::PlayedSound::once(speakerTest(told.value_or(seen.microphone ? 0 : seen.channelMask)),
                                           told ? "quorel.speaker" : "");
    };
    play(test, on ? std::function<platform::PlayedSound()>(begin) : nullptr);
}

void PanelSession::listen(std::optional<double> secondsLate)
{
    const auto begin = [&] {
        return platform::PlayedSound::late(toldLast.microphone ? "quorel.microphone" : "",
                                           std::clamp(*secondsLate, shortestDelay, longestDelay));
    };
    play(ownVoice, secondsLate ? std::function<platform::PlayedSound()>(begin) : nullptr);
}

void PanelSession::hearBefore(bool on)
{
    attempt([on](PanelModel& model) { model.bypass(on, PanelModel::Part::microphone); });
}

PanelSession::Lateness PanelSession::lateness() const
{
    Lateness late{};
    const std::uint32_t rate = levelRate();
    if (const MicrophoneRateRow* row = microphoneRate(rate); row != nullptr && panel.seen().settings.MicNR != 0)
        late.effectMs = 1000.0 * static_cast<double>(row->latency) / rate;
    if (const auto microphone = toldLast.microphone)
        late.hostMs = microphone->lateMs;
    return late;
}

void PanelSession::attempt(const std::function<void(PanelModel&)>& edit)
{
    text.clear();
    try {
        edit(panel);
        // Kept first, so that no end of this program loses what the bypass is about to turn off.
        if (panel.bypassed())
            keep();
    } catch (const std::exception& error) {
        text = error.what();
    }
    if (const auto changes = panel.take())
        link.send(*changes);
}

void PanelSession::keep()
{
    if (panel.keptValues() == savedKept)
        return;
    saveKeptValues(panel.keptValues());
    savedKept = panel.keptValues();
}

void PanelSession::bypass(bool on)
{
    if (toldLast.state == LiveView::State::there && !panel.bypassed())
        host.bypass(on);
    else
        attempt([on](PanelModel& model) { model.bypass(on); });
}

bool PanelSession::bypassed() const
{
    return panel.bypassed() || (toldLast.state == LiveView::State::there && toldLast.bypass);
}

bool PanelSession::import(const std::string& path)
{
    return responseImport.start(path, toldLast.speakers);
}

std::optional<ResponseTaps> PanelSession::responses() const
{
    const std::uint32_t identity = panel.seen().settings.hrtfId;
    if (identity == 0)
        return builtInTaps();
    if (report.delivered && report.identity == identity && report.set)
        return report.set->taps;
    return std::nullopt;
}

void PanelSession::watch(bool seen, bool levels)
{
    link.watch(seen);
    host.watch(seen);
    link.measureLevels(seen && levels);
    if (!seen) {
        test.reset();
        ownVoice.reset();
    }
}

std::optional<double> PanelSession::levelsDue()
{
    const auto now = std::chrono::steady_clock::now();
    if (now - levelsShown < levelInterval)
        return std::nullopt;
    return std::chrono::duration<double>(now - std::exchange(levelsShown, now)).count();
}

std::uint32_t PanelSession::levelRate() const
{
    constexpr std::uint32_t narrow = 16000;
    constexpr std::uint32_t wide = 48000;
    return panel.seen().framesPerSecond == static_cast<float>(narrow) ? narrow : wide;
}

} // namespace quorel
