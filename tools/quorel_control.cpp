// SPDX-License-Identifier: MIT
// quorel-control steers the effects that run on this machine, as an application with windows and knobs would.
#include "client/hrtf_delivery.h"
#include "client/live_status.h"
#include "client/preset.h"
#include "microphone/microphone_tables.h"
#include "settings/settings_handler.h"
#include "tools/hrtf_option.h"
#include "tools/level_display.h"
#include "tools/settings_options.h"

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
effect is running.)";

constexpr std::uint32_t fullMask = 0x63F; // 7.1: all eight speakers
constexpr int noEffectCode = 3;           // exit code

struct Options {
    std::vector<std::string> assignments; // set
    std::vector<std::string> names;       // get
    bool watch = false;                   // levels
    double watchSeconds = 0;              // 0: until interrupted
    std::string hrtfFile;
    Equalize equalize = Equalize::byDiffuseField;
    double gain = 0;        // dB
    unsigned channels = 0;  // 0: as the stream that runs has
    std::string presetName; // save, load
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

void set(const Options& options)
{
    const auto values = parseAssignments(options.assignments);
    ControlClient().update([&](SettingsRecord& record) {
        for (const auto& [field, value] : values)
            setSetting(record, *field, value);
    });
}

void get(const Options& options)
{
    std::vector<const SettingsField*> fields;
    for (const std::string& name : options.names)
        fields.push_back(&fieldNamed(name));
    if (fields.empty())
        for (const SettingsField& field : settingsFields())
            fields.push_back(&field);

    const SettingsRecord record = ControlClient().settings();
    for (const SettingsField* field : fields)
        std::cout << field->name << '=' << settingOf(record, *field) << '\n';
}

// ---- status ---------------------------------------------------------------------------------------------------------

std::string speakersOf(std::uint32_t mask)
{
    std::string text;
    std::uint32_t rest = mask;
    for (const std::size_t row : rowsOf(mask)) {
        text += (text.empty() ? "" : ", ") + std::string(speakerNames.at(row));
        rest &= ~speakerTable.at(row).bit;
    }
    if (rest != 0)
        text += (text.empty() ? "" : ", ") + std::string("others");
    return text;
}

// What quorel-live tells, if it runs. Without it the status is whole too.
void liveStatus(const CLI::App& tool)
{
    try {
        if (const char* runtime = std::getenv("XDG_RUNTIME_DIR"); runtime == nullptr || *runtime == '\0')
            return;
        if (const auto told = askLive("status"))
            std::cout << readableSides(*told);
    } catch (const std::exception& error) {
        notice(tool, error.what());
    }
}

void status(const CLI::App& tool)
{
    if (SettingsHandler::keptValuesAreUnreadable())
        notice(tool, "the kept settings cannot be read, so an effect starts without them and leaves them as they are: " +
                         lastRefusalText());
    const ControlClient client;
    const SettingsRecord record = client.settings();
    const std::uint32_t mask = client.activeChannelMask();
    const float rate = client.activeFramesPerSecond();

    const bool streaming = rate > 0;
    std::cout << "effect: running\n";
    if (streaming)
        std::cout << "stream: " << rate << " Hz, channel mask " << hexadecimal(mask)
                  << (mask != 0 ? " (" + speakersOf(mask) + ')' : "") << '\n';
    else
        std::cout << "stream: none so far\n";
    if (record.hrtfId == 0)
        std::cout << "responses: built in\n";
    else
        std::cout << "responses: delivered, set " << hexadecimal(record.hrtfId) << " for " << record.hrtfChannels
                  << " channels\n";
    liveStatus(tool);

    if (const auto refusal = refusalOfSet(client))
        notice(tool, *refusal);
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

void showLevels(const Options& options)
{
    using namespace std::chrono_literals;
    LevelsOn on;
    if (!options.watch) {
        {
            ControlClient client;
            const bool settled = client.settings().levelsEnabled != 0;
            on.look(client);
            if (!settled)
                std::this_thread::sleep_for(500ms);
        }
        const ControlClient client;
        const auto captions = levelCaptions(levelRate(client));
        const auto levels = client.levels();
        std::cout << std::fixed << std::setprecision(1);
        for (std::size_t k = 0; k < levels.size(); ++k)
            std::cout << captions.at(k) << std::setw(8) << levels.at(k) << " dB\n";
        return;
    }

    std::uint32_t rate = 0;
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
        if (display->usable()) {
            display->show(levels.data(), seconds);
            std::this_thread::sleep_for(50ms);
        } else {
            std::cout << std::fixed << std::setprecision(1);
            for (const float level : levels)
                std::cout << std::setw(7) << level;
            std::cout << std::endl;
            std::this_thread::sleep_for(100ms);
        }
    }
}

// ---- hrtf -----------------------------------------------------------------------------------------------------------

void loadHrtf(const CLI::App& tool, const Options& options)
{
    const auto [set, notes] = importHrtf(options.hrtfFile, options.equalize, options.gain, stopIfInterrupted);

    ControlClient client;
    const float rate = client.activeFramesPerSecond();
    const std::uint32_t active = client.activeChannelMask();
    if (options.channels == 0) {
        if (!(rate > 0))
            throw std::runtime_error("no stream is running that a set could be for; --channels insists");
        if (rate != static_cast<float>(hrtfRate) || active != fullMask) {
            std::ostringstream text;
            text << "the running stream has the channel mask " << hexadecimal(active) << " at " << rate
                 << " Hz; a set is for all eight speakers, 0x63F, at 48000 Hz; --channels insists";
            throw std::runtime_error(text.str());
        }
    }
    const std::uint32_t mask = options.channels == 0 ? fullMask : layoutOf(options.channels, active);
    deliverSet(client, set, mask);

    for (const std::string& note : notes)
        notice(tool, note);
    std::ostringstream text;
    text << std::fixed << std::setprecision(2) << "delivered for " << rowsOf(mask).size() << " channels at " << std::showpos
         << set.gainDb << std::noshowpos << " dB; cut of the energy: at most " << 100 * set.worstCut << " % ("
         << 10 * std::log10(std::max(set.worstCut, 1e-12)) << " dB), at " << set.worstName;
    notice(tool, text.str());
}

void clearHrtf(const CLI::App& tool, const Options& options)
{
    ControlClient client;
    const auto others = clearSet(client, options.channels);
    if (!others)
        notice(tool, "no delivered set is in force");
    else
        for (const std::uint32_t channels : *others)
            notice(tool, "sets for " + std::to_string(channels) + " channels were delivered as well: a stream of so many that " +
                             "refuses every block is cleared by hrtf clear --channels " + std::to_string(channels));
}

// ---- preset ---------------------------------------------------------------------------------------------------------

void save(const Options& options)
{
    savePreset(options.presetName, ControlClient().settings());
}

void load(const Options& options)
{
    loadPreset(options.presetName, {}); // says what is wrong with it even if no effect is running
    ControlClient().update([&](SettingsRecord& record) { record = loadPreset(options.presetName, record); });
}

void list()
{
    for (const std::string& name : presets())
        std::cout << name << '\n';
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

void declare(CLI::App& tool, Options& options, std::function<void()>& action)
{
    const auto command = [&](CLI::App& parent, const std::string& name, const std::string& meaning,
                             const std::function<void()>& run) {
        CLI::App* added = parent.add_subcommand(name, wrapped(meaning, 80));
        if (run)
            added->callback([&action, run] { action = run; });
        return added;
    };
    CLI::App* setting = command(tool, "set", "Change settings: set Reverb=170 EQBand5=-40", [&] { set(options); });
    setting->add_option("NAME=VALUE", options.assignments, "Settings and their new values")->required()->type_name("");
    setting->footer(settingsHelp());

    command(tool, "get", "Show settings, all or those named", [&] { get(options); })
        ->add_option("NAME", options.names, "Settings to show")
        ->type_name("");

    command(tool, "status", "Show whether an effect is running, and its stream and set", [&] { status(tool); });

    CLI::App* levels = command(tool, "levels", "Show the levels of nine bands of the microphone, switched on for that",
                               [&] { showLevels(options); });
    levels->add_flag("--watch", options.watch, "Go on until interrupted; in a pipe, a line ten times a second");
    levels->add_option("--seconds", options.watchSeconds, "With --watch: end after so many seconds")
        ->type_name("NUMBER")
        ->check(CLI::Range(0.0, 1e6).description(""));

    CLI::App* hrtf = command(tool, "hrtf", "Head-related responses for the eight speakers", {});
    CLI::App* loading = command(*hrtf, "load",
                                "Deliver the responses of a file: " + std::string(readableHrtfFiles) +
                                    ".\n177 frames at 48000 Hz are taken, with the level of the built-in set",
                                [&] { loadHrtf(tool, options); });
    loading->add_option("FILE", options.hrtfFile, "The file")->required()->type_name("");
    addEqualize(*loading, options.equalize);
    addNumber(*loading, "--gain", options.gain, -20, 20, "dB, on top of the built-in set's level")->default_str("0");
    addNumber(*loading, "--channels", options.channels, 1, 8,
              "Deliver for so many channels, whatever runs. A speaker's stream of another\n"
              "number refuses every block until hrtf clear")
        ->default_str("8, if a 7.1 stream at 48000 Hz is running");
    CLI::App* clearing = command(*hrtf, "clear", "Go back to the built-in responses", [&] { clearHrtf(tool, options); });
    addNumber(*clearing, "--channels", options.channels, 1, 8, "Channels of the running stream")
        ->default_str("the stream's if a set for so many was delivered, else the last set's");

    CLI::App* preset = command(tool, "preset", "Settings that are kept under a name", {});
    CLI::App* saving = command(*preset, "save", "Keep the settings as they are now", [&] { save(options); });
    saving->add_option("PRESET", options.presetName, "Its name; one that exists is replaced")->required()->type_name("");
    CLI::App* recalling = command(*preset, "load", "Take the settings of a preset", [&] { load(options); });
    recalling->add_option("PRESET", options.presetName, "Its name")->required()->type_name("");
    command(*preset, "list", "Show the names of the presets", [] { list(); });
}

} // namespace
} // namespace quorel

int main(int argc, char** argv)
{
    CLI::App tool(quorel::description, "quorel-control");
    quorel::Options options;
    std::function<void()> action;
    quorel::declare(tool, options, action);
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
