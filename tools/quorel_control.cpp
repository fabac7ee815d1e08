// SPDX-License-Identifier: MIT
// quorel-control steers the effects that run on this machine, as an application with windows and knobs would.
#include "client/hrtf_delivery.h"
#include "client/live_status.h"
#include "client/preset.h"
#include "microphone/microphone_rates.h"
#include "platform/programs/terminal.h"
#include "settings/settings_handler.h"
#include "tools/hrtf_option.h"
#include "tools/level_display.h"
#include "tools/settings_options.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iomanip>
#include <iostream>
#include <map>
#include <sstream>
#include <thread>

namespace quorel {
namespace {

const char* const description =
    R"(Steers the effects that are running: reads and changes their settings, shows
the levels of the microphone, gives the speakers' sound other head-related
responses. Changes are heard at the next block.
Exit code: 0 done; 2 failed, with one line on standard error that says why; 3 no
effect is running, or for levels no microphone.)";

using Json = nlohmann::ordered_json;

constexpr int noEffectCode = 3; // exit code

struct Options {
    bool json = false;
    std::vector<std::string> assignments; // set
    std::vector<std::string> names;       // get, reset
    bool watch = false;                   // levels
    double watchSeconds = 0;              // 0: until interrupted
    std::string hrtfFile;
    Equalize equalize = Equalize::byDiffuseField;
    double gain = 0;        // dB
    unsigned channels = 0;  // 0: as the stream that runs has
    bool yes = false;       // deliver without asking
    std::string presetName; // save, load, delete
};

// What a command tells: text on standard output and notices on standard error, or with --json one object for both.
class Report {
public:
    Report(const CommandLine& tool, const bool& asJson) : tool(tool), asJson(asJson) {}

    bool json() const { return asJson; }

    void note(const std::string& text)
    {
        if (asJson)
            notices.push_back(text);
        else
            notice(tool, text);
    }

    // `text` is written as it is.
    void tell(Json object, const std::string& text)
    {
        if (!asJson) {
            std::cout << text;
            return;
        }
        object["notices"] = notices;
        std::cout << object.dump(-1, ' ', false, Json::error_handler_t::replace) << std::endl; // names of files may be any bytes
        notices.clear();
    }

private:
    const CommandLine& tool;
    const bool& asJson; // known when the options have been read
    std::vector<std::string> notices;
};

std::string hexadecimal(std::uint32_t number)
{
    std::ostringstream text;
    text << "0x" << std::uppercase << std::hex << number;
    return text.str();
}

const SettingsField& fieldNamed(const std::string& name)
{
    const SettingsField* field = settingNamed(name);
    if (field == nullptr) {
        std::vector<std::string> names;
        for (const SettingsField& each : settingsFields())
            names.emplace_back(each.name);
        throw std::runtime_error("there is no setting " + name + didYouMean(name, names) +
                                 "; quorel-control set --help tells them all");
    }
    return *field;
}

// ---- set and get ----------------------------------------------------------------------------------------------------

std::int64_t valueOf(const SettingsField& field, const std::string& text)
{
    try {
        return settingFrom(field, text);
    } catch (const std::runtime_error&) {
        const auto number = numberFrom(text);
        if (number && *number == std::floor(*number))
            throw std::runtime_error(refusal(field, text));
        const std::string decibels = decibelsOf(field);
        throw std::runtime_error(std::string(field.name) + " takes a whole number, not \"" + text + "\": " + rangeOf(field) +
                                 (decibels.empty() ? "" : ", or " + decibels));
    }
}

std::map<const SettingsField*, std::int64_t> parseAssignments(const std::vector<std::string>& texts)
{
    std::map<const SettingsField*, std::int64_t> values;
    for (const std::string& text : texts) {
        const std::size_t equals = text.find('=');
        if (equals == std::string::npos)
            throw std::runtime_error(text + " is no NAME=VALUE");
        const SettingsField& field = fieldNamed(text.substr(0, equals));
        const std::int64_t value = valueOf(field, text.substr(equals + 1));
        if (!values.emplace(&field, value).second)
            throw std::runtime_error(std::string(field.name) + " is given twice");
    }
    return values;
}

using Fields = std::vector<const SettingsField*>;

Fields fieldsNamed(const std::vector<std::string>& names)
{
    Fields fields(names.size());
    std::transform(names.begin(), names.end(), fields.begin(), [](const std::string& name) { return &fieldNamed(name); });
    return fields;
}

Fields keptFields()
{
    Fields fields;
    for (const SettingsField& field : settingsFields())
        if (field.kept)
            fields.push_back(&field);
    return fields;
}

Json settingsObject(const SettingsRecord& record, const Fields& fields)
{
    Json settings = Json::object();
    for (const SettingsField* field : fields)
        settings[field->name] = settingOf(record, *field);
    return {{"settings", settings}};
}

void set(Report& report, const Options& options)
{
    const auto values = parseAssignments(options.assignments);
    Fields changed;
    SettingsRecord now;
    ControlClient().update([&](SettingsRecord& record) {
        for (const auto& [field, value] : values) {
            setSetting(record, *field, value);
            changed.push_back(field);
        }
        now = record;
    });
    report.tell(settingsObject(now, changed), "");
}

void get(Report& report, const Options& options)
{
    Fields fields = fieldsNamed(options.names);
    if (fields.empty())
        for (const SettingsField& field : settingsFields())
            fields.push_back(&field);

    const SettingsRecord record = ControlClient().settings();
    std::string text;
    for (const SettingsField* field : fields)
        text += std::string(field->name) + '=' + std::to_string(settingOf(record, *field)) + '\n';
    report.tell(settingsObject(record, fields), text);
}

// An effect that finds nothing kept begins with 0 everywhere.
void reset(Report& report, const Options& options)
{
    const auto fields = options.names.empty() ? keptFields() : fieldsNamed(options.names);
    SettingsRecord now;
    ControlClient().update([&](SettingsRecord& record) {
        for (const SettingsField* field : fields)
            setSetting(record, *field, 0);
        now = record;
    });
    report.tell(settingsObject(now, fields), "");
}

// ---- status ---------------------------------------------------------------------------------------------------------

std::vector<std::string> speakersOf(std::uint32_t mask)
{
    std::vector<std::string> names;
    std::uint32_t rest = mask;
    for (const std::size_t row : rowsOf(mask)) {
        names.emplace_back(speakerNames.at(row));
        rest &= ~speakerTable.at(row).bit;
    }
    if (rest != 0)
        names.emplace_back("others");
    return names;
}

// What quorel-live tells, if it runs. Everything else goes on without it.
std::optional<nlohmann::json> liveStatus(Report& report)
{
    try {
        if (const char* runtime = std::getenv("XDG_RUNTIME_DIR"); runtime == nullptr || *runtime == '\0')
            return std::nullopt;
        return askLive("status");
    } catch (const std::exception& error) {
        report.note(error.what());
        return std::nullopt;
    }
}

void status(Report& report)
{
    if (SettingsHandler::keptValuesAreUnreadable())
        report.note("the kept settings cannot be read, so an effect starts without them and leaves them as they are: " +
                    lastRefusalText());
    const auto live = liveStatus(report);
    const ControlClient client;
    const SettingsRecord record = client.settings();
    const std::uint32_t mask = client.activeChannelMask();
    const float rate = client.activeFramesPerSecond();

    Json object = {{"effect", "running"}, {"stream", nullptr}};
    std::ostringstream text;
    text << "effect: running\n";
    if (streaming(client)) {
        const auto speakers = speakersOf(mask);
        std::string names;
        for (const std::string& name : speakers)
            names += (names.empty() ? "" : ", ") + name;
        text << "stream: " << rate << " Hz, channel mask " << hexadecimal(mask) << (names.empty() ? "" : " (" + names + ')')
             << (microphoneLockedLast(client) ? ", as a microphone has" : "") << '\n';
        object["stream"] = {{"rate", rate}, {"mask", mask}, {"speakers", speakers}, {"microphone", microphoneLockedLast(client)}};
    } else {
        text << "stream: none so far\n";
    }
    if (record.hrtfId == 0) {
        text << "responses: built in\n";
        object["responses"] = {{"delivered", false}};
    } else {
        const std::string file = rememberedFile(record.hrtfId);
        text << "responses: delivered, set " << hexadecimal(record.hrtfId) << " for " << record.hrtfChannels << " channels"
             << (file.empty() ? "" : ", of " + file) << '\n';
        object["responses"] = {{"delivered", true}, {"identity", record.hrtfId}, {"channels", record.hrtfChannels}};
        if (!file.empty())
            object["responses"]["file"] = file;
    }
    if (live) {
        text << readableSides(*live);
        object["live"] = *live;
    }
    if (const auto refusal = refusalOfSet(client, liveMask(live)))
        report.note(*refusal);
    report.tell(object, text.str());
}

// ---- levels ---------------------------------------------------------------------------------------------------------

// Keeps the microphone's levels on from the first look to the object's end, whatever other tools and effects do meanwhile.
class LevelsOn {
public:
    LevelsOn() = default;
    LevelsOn(const LevelsOn&) = delete;
    LevelsOn& operator=(const LevelsOn&) = delete;

    ~LevelsOn()
    {
        if (!switchedOn)
            return;
        try {
            ControlClient().update([](SettingsRecord& record) { record.levelsEnabled = 0; });
        } catch (const std::exception&) {
            // The effect is gone, and its block with it.
        }
    }

    void look(ControlClient& client)
    {
        if (client.settings().levelsEnabled != 0)
            return;
        switchedOn = true; // whoever switches them on switches them off
        client.update([](SettingsRecord& record) { record.levelsEnabled = 1; });
    }

private:
    bool switchedOn = false;
};

// The bands are those of 16000 Hz or of 48000 Hz; the stream that was locked last may be another one.
std::uint32_t levelRate(const ControlClient& client)
{
    constexpr std::uint32_t narrow = 16000;
    constexpr std::uint32_t wide = 48000;
    return client.activeFramesPerSecond() == static_cast<float>(narrow) ? narrow : wide;
}

Json levelsObject(std::uint32_t rate, std::span<const float, 9> levels)
{
    Json bands = Json::array();
    const auto edges = levelEdges(rate);
    for (std::size_t k = 0; k < levels.size(); ++k)
        bands.push_back({{"from", edges.at(k)[0]}, {"to", edges.at(k)[1]}, {"db", levels[k]}});
    return {{"microphone", !noMicrophone(levels)}, {"levels", bands}};
}

void showLevelsOnce(Report& report)
{
    LevelsOn on;
    {
        ControlClient client;
        const bool settled = client.settings().levelsEnabled != 0;
        on.look(client);
        if (!settled)
            std::this_thread::sleep_for(std::chrono::milliseconds(500));
    }
    const ControlClient client;
    const auto levels = client.levels();
    if (noMicrophone(levels))
        throw OtherExit(noEffectCode,
                        "no microphone is running: all nine levels are at -120 dB, and one that runs has -60 at least");
    const auto captions = levelCaptions(levelRate(client));
    std::ostringstream text;
    text << std::fixed << std::setprecision(1);
    for (std::size_t k = 0; k < levels.size(); ++k)
        text << captions.at(k) << std::setw(8) << levels.at(k) << " dB\n";
    report.tell(levelsObject(levelRate(client), levels), text.str());
}

void watchLevels(Report& report, const Options& options)
{
    using namespace std::chrono_literals;
    LevelsOn on;
    std::uint32_t rate = 0;
    bool toldOfNone = false;
    std::optional<LevelDisplay> display;
    const auto start = std::chrono::steady_clock::now();
    for (;;) {
        stopIfInterrupted();
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        if (options.watchSeconds > 0 && seconds >= options.watchSeconds)
            return;
        std::array<float, 9> levels{};
        {
            ControlClient client; // only for this look, so that it keeps no block alive that its effect has left
            on.look(client);
            levels = client.levels();
            if (!display || rate != levelRate(client))
                display.emplace(rate = levelRate(client));
        }
        if (display->usable() && !report.json()) {
            display->show(levels.data(), seconds);
            std::this_thread::sleep_for(50ms);
            continue;
        }
        const bool none = noMicrophone(levels);
        if (none && !toldOfNone)
            report.note("no microphone is running so far");
        toldOfNone = none;
        std::ostringstream text;
        text << std::fixed << std::setprecision(1);
        for (const float level : levels)
            text << std::setw(7) << level;
        text << '\n';
        report.tell(levelsObject(rate, levels), text.str());
        if (!std::cout.flush()) {
            stopIfInterrupted(); // nobody reads any more
            throw std::runtime_error("cannot write the levels");
        }
        std::this_thread::sleep_for(100ms);
    }
}

// ---- hrtf -----------------------------------------------------------------------------------------------------------

// Throws unless the user wants this set although the running stream refuses it.
void askWhetherToStop(const CommandLine& tool, const Options& options, std::size_t streams)
{
    if (options.yes)
        return;
    const std::string text = "the running stream has " + std::to_string(streams) + " channels: with a set for " +
                             std::to_string(options.channels) + " it refuses every block, and is silent, until hrtf clear";
    if (!platform::canAsk())
        throw std::runtime_error(text + "; --yes delivers it all the same");
    std::cerr << tool.name() << ": " << text << ". Deliver it? [y/N] " << std::flush;
    const std::string answer = platform::answer();
    stopIfInterrupted();
    if (!answer.starts_with('y') && !answer.starts_with('Y'))
        throw std::runtime_error("nothing was delivered");
}

// The speakers that a set goes out for. Throws when it is not to go out.
std::uint32_t speakersOfDelivery(const CommandLine& tool, Report& report, const Options& options)
{
    const auto live = liveMask(liveStatus(report));
    const SpeakersStream running = speakersStream(ControlClient(), live); // none is open while the user is asked
    if (options.channels != 0) {
        if (running.mask && rowsOf(*running.mask).size() != options.channels)
            askWhetherToStop(tool, options, rowsOf(*running.mask).size());
        return layoutOf(options.channels, running.mask.value_or(0));
    }
    if (running.fit == StreamFit::none)
        throw std::runtime_error("no stream is running that a set could be for; --channels insists");
    if (running.fit == StreamFit::unknown)
        report.note("the stream that was locked last is a microphone's, so the set is for the eight channels of 7.1; a speakers' "
                    "stream of fewer, as stereo at 96 kHz, would refuse every block until hrtf clear");
    if (running.fit == StreamFit::other) {
        std::ostringstream text;
        text << "the running stream has the channel mask " << hexadecimal(*running.mask) << " at " << running.rate
             << " Hz; a set is for all eight speakers, 0x63F, at 48000 Hz; --channels insists";
        throw std::runtime_error(text.str());
    }
    return everySpeaker;
}

void loadHrtf(const CommandLine& tool, Report& report, const Options& options)
{
    const auto [set, notes] = importHrtf(options.hrtfFile, options.equalize, options.gain, stopIfInterrupted);
    const std::uint32_t mask = speakersOfDelivery(tool, report, options);
    ControlClient client;
    const std::uint32_t identity = deliverSet(client, set, mask);

    for (const std::string& note : notes)
        report.note(note);
    try {
        rememberFile(identity, options.hrtfFile);
    } catch (const std::exception& error) {
        report.note(std::string("status will not tell the file's name: ") + error.what());
    }
    const std::size_t channels = rowsOf(mask).size();
    std::ostringstream text;
    text << std::fixed << std::setprecision(2) << "delivered for " << channels << " channels at " << std::showpos << set.gainDb
         << std::noshowpos << " dB; cut of the energy: at most " << 100 * set.worstCut << " % ("
         << 10 * std::log10(std::max(set.worstCut, 1e-12)) << " dB), at " << set.worstName;
    report.note(text.str());
    report.tell({{"file", options.hrtfFile},
                 {"identity", identity},
                 {"channels", channels},
                 {"gain_db", set.gainDb},
                 {"cut", set.worstCut},
                 {"cut_at", set.worstName}},
                "");
}

void clearHrtf(Report& report, const Options& options)
{
    const auto live = liveMask(liveStatus(report));
    ControlClient client;
    const auto cleared = clearSet(client, options.channels, live);
    if (!cleared) {
        report.note("no delivered set is in force");
        report.tell({{"channels", nullptr}}, "");
        return;
    }
    for (const std::uint32_t channels : cleared->others)
        report.note("sets for " + std::to_string(channels) + " channels were delivered as well: a stream of so many that " +
                    "refuses every block is cleared by hrtf clear --channels " + std::to_string(channels));
    report.tell({{"channels", cleared->channels}, {"others", cleared->others}}, "");
}

// ---- preset ---------------------------------------------------------------------------------------------------------

void save(Report& report, const Options& options)
{
    const SettingsRecord record = ControlClient().settings();
    savePreset(options.presetName, record);
    report.tell(settingsObject(record, keptFields()), "");
}

void load(Report& report, const Options& options)
{
    loadPreset(options.presetName, {}); // says what is wrong with it even if no effect is running
    SettingsRecord now;
    ControlClient().update([&](SettingsRecord& record) { now = record = loadPreset(options.presetName, record); });
    report.tell(settingsObject(now, keptFields()), "");
}

void list(Report& report)
{
    const auto names = presets();
    std::string text;
    for (const std::string& name : names)
        text += name + '\n';
    report.tell({{"presets", names}}, text);
}

void remove(Report& report, const Options& options)
{
    deletePreset(options.presetName);
    report.tell({{"deleted", options.presetName}}, "");
}

// ---------------------------------------------------------------------------------------------------------------------

std::string settingsHelp()
{
    std::string text = "Settings, all or nothing:\n";
    constexpr std::size_t width = 15;
    for (const SettingsField& field : settingsFields()) {
        const std::string name = field.name;
        text += "  " + name + std::string(width - name.size(), ' ');
        for (const char letter : wrapped(settingHelp(field), 80 - width - 2))
            text += letter == '\n' ? '\n' + std::string(width + 2, ' ') : std::string(1, letter);
        text += '\n';
    }
    return text;
}

void declare(const CommandLine& tool, Options& options, Report& report, std::function<void()>& action)
{
    const auto command = [&](const CommandLine& parent, const std::string& name, const std::string& meaning,
                             const std::function<void()>& run) {
        CommandLine added = parent.addCommand(name, wrapped(meaning, 80));
        if (run) {
            added.onChosen([&action, run] { action = run; });
            added.addFlag("--json", options.json, "One JSON object, which holds the notices too");
        }
        return added;
    };
    const CommandLine setting =
        command(tool, "set", "Change settings: set Reverb=170 EQBand5=-40", [&] { set(report, options); });
    setting.add("NAME=VALUE", options.assignments, "Settings and their new values").required().typeName("");
    setting.footer(settingsHelp());

    command(tool, "get", "Show settings, all or those named", [&] { get(report, options); })
        .add("NAME", options.names, "Settings to show")
        .typeName("");

    command(tool, "reset", "Set settings back to 0, off or flat, as at a first start: all that are kept, or those named",
            [&] { reset(report, options); })
        .add("NAME", options.names, "Settings to set back")
        .typeName("");

    command(tool, "status", "Show whether an effect is running, and its stream and set", [&] { status(report); });

    const CommandLine levels = command(tool, "levels", "Show the levels of nine bands of the microphone, switched on for that",
                                       [&] { options.watch ? watchLevels(report, options) : showLevelsOnce(report); });
    levels.addFlag("--watch", options.watch, "Go on until interrupted; in a pipe, a line ten times a second");
    levels.add("--seconds", options.watchSeconds, "With --watch: end after so many seconds").typeName("NUMBER").between(0, 1e6);

    const CommandLine hrtf = command(tool, "hrtf", "Head-related responses for the eight speakers", {});
    const CommandLine loading = command(hrtf, "load",
                                        "Deliver the responses of a file: " + std::string(readableHrtfFiles) +
                                            ".\n177 frames at 48000 Hz are taken, with the level of the built-in set",
                                        [&] { loadHrtf(tool, report, options); });
    loading.add("FILE", options.hrtfFile, "The file").required().typeName("");
    addEqualize(loading, options.equalize);
    addNumber(loading, "--gain", options.gain, -20, 20, "dB, on top of the built-in set's level").defaultText("0");
    addNumber(loading, "--channels", options.channels, 1, 8,
              "Deliver for so many channels, whatever runs. A speaker's stream of another\n"
              "number refuses every block until hrtf clear")
        .defaultText("8, if 7.1 at 48000 Hz or a microphone is running");
    loading.addFlag("--yes", options.yes, "Deliver a set that the running stream refuses without asking");
    const CommandLine clearing = command(hrtf, "clear", "Go back to the built-in responses", [&] { clearHrtf(report, options); });
    addNumber(clearing, "--channels", options.channels, 1, 8, "Channels of the running stream")
        .defaultText("the stream's if a set for so many was delivered, else the last set's");

    const CommandLine preset = command(tool, "preset", "Settings that are kept under a name", {});
    const CommandLine saving = command(preset, "save", "Keep the settings as they are now", [&] { save(report, options); });
    saving.add("PRESET", options.presetName, "Its name; one that exists is replaced").required().typeName("");
    const CommandLine recalling = command(preset, "load", "Take the settings of a preset", [&] { load(report, options); });
    recalling.add("PRESET", options.presetName, "Its name").required().typeName("");
    command(preset, "list", "Show the names of the presets", [&] { list(report); });
    const CommandLine deleting = command(preset, "delete", "Remove a preset", [&] { remove(report, options); });
    deleting.add("PRESET", options.presetName, "Its name").required().typeName("");
}

} // namespace
} // namespace quorel

int main(int argc, char** argv)
{
    const quorel::CommandLine tool = quorel::beginTool(quorel::description, "quorel-control");
    quorel::Options options;
    quorel::Report report(tool, options.json);
    std::function<void()> action;
    quorel::declare(tool, options, report, action);
    return quorel::runTool(tool, argc, argv, [&] {
        if (!action)
            throw std::runtime_error("a command is required; --help tells them");
        try {
            action();
            return 0;
        } catch (const quorel::NoEffect& reason) {
            throw quorel::OtherExit(quorel::noEffectCode, reason.what());
        }
    });
}
