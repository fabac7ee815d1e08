// SPDX-License-Identifier: MIT
// What the tests of quorel-control share: the tool as its user meets it, started as a process; an effect that runs in the
// test's own process; sets of head-related responses.
#pragma once

#include "core/signal_path.h"
#include "settings/settings_handler.h"
#include "speaker/hrtf_tables.h"
#include "speaker/speaker_tables.h"
#include "tests/support/control_application.h"
#include "tests/support/temporary_home.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <complex>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <numbers>
#include <random>
#include <sstream>
#include <thread>

namespace quorel {
namespace fs = std::filesystem;

// What became of the tool.
struct Outcome {
    int code = -1; // exit code
    std::string out;
    std::string err;
};

inline std::ostream& operator<<(std::ostream& stream, const Outcome& outcome)
{
    return stream << "exit code " << outcome.code << ", output \"" << outcome.out << "\", errors \"" << outcome.err << '"';
}

inline std::string contents(const fs::path& path)
{
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    std::string plain;
    for (const char letter : text.str())
        if (letter != '\r')
            plain += letter;
    return plain;
}

inline void setVariable(const char* name, const std::string& value)
{
#ifdef _WIN32
    _putenv_s(name, value.c_str());
#else
    setenv(name, value.c_str(), 1);
#endif
}

// The tool as its user meets it: a process with a home of its own.
class Control : public testing::Test {
protected:
    Control()
    {
        static int made = 0;
        std::random_device random;
        folder = fs::temp_directory_path() / ("quorel_control_" + std::to_string(random()) + "_" + std::to_string(++made));
        fs::create_directories(folder);
        for (const char* variable : {"APPDATA", "XDG_CONFIG_HOME"})
            setVariable(variable, folder.string());
    }
    ~Control() override
    {
        std::error_code inUse; // Windows removes no file that a process still has open
        fs::remove_all(folder, inUse);
    }

    std::string path(const std::string& name) const { return (folder / name).string(); }

    Outcome run(const std::vector<std::string>& arguments) const
    {
        static std::atomic<int> runs = 0;
        const std::string number = std::to_string(++runs);
        const fs::path out = folder / ("out" + number);
        const fs::path err = folder / ("err" + number);
        std::string line = quoted(QUOREL_CONTROL);
        for (const std::string& argument : arguments)
            line += ' ' + quoted(argument);
        line += " >" + quoted(out.string()) + " 2>" + quoted(err.string());
#ifdef _WIN32
        int code = -1; // no process: a busy machine may have none to give for a while
        for (int tries = 0; code == -1 && tries < 20; ++tries) {
            if (tries > 0)
                std::this_thread::sleep_for(std::chrono::milliseconds(250));
            code = std::system(('"' + line + '"').c_str());
        }
        EXPECT_NE(code, -1) << std::strerror(errno);
#else
        const int status = std::system(line.c_str());
        const int code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
#endif
        return {code, contents(out), contents(err)};
    }

    // Runs the tool, which must succeed, and returns what it says.
    std::string done(const std::vector<std::string>& arguments) const
    {
        const Outcome outcome = run(arguments);
        EXPECT_EQ(outcome.code, 0) << outcome;
        return outcome.out;
    }

    // Runs the tool, which must fail with one line that says `reason`.
    void expectRefusal(const std::vector<std::string>& arguments, const std::string& reason, int code = 2) const
    {
        const Outcome outcome = run(arguments);
        EXPECT_EQ(outcome.code, code) << outcome;
        EXPECT_EQ(outcome.out, "");
        EXPECT_THAT(outcome.err, testing::StartsWith("quorel-control: "));
        EXPECT_THAT(outcome.err, testing::HasSubstr(reason));
        EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << outcome;
    }

    TemporaryHome home;
    fs::path folder; // for files

private:
    static std::string quoted(const std::string& text)
    {
#ifdef _WIN32
        return '"' + text + '"';
#else
        return '\'' + text + '\'';
#endif
    }
};

// An effect runs in this process.
class ControlOfAnEffect : public Control {
protected:
    ControlOfAnEffect() : handler(SettingsHandler::instance(SettingsHandler::layoutVersion))
    {
        const platform::Handle mapping = platform::openMapping(controlBlockName);
        block = static_cast<ControlBlock*>(platform::mapView(mapping, sizeof(ControlBlock)));
        platform::closeHandle(mapping);
        // What other tests of this process have left in the registry and in the share.
        block->settings.fill(std::byte{});
        std::memset(share(), 0, hrtfShareBytes);
    }

    ~ControlOfAnEffect() override { leaveBlock(); }

    // On Windows a view keeps the block alive.
    void leaveBlock()
    {
        if (block != nullptr)
            platform::unmapView(block, sizeof(ControlBlock));
        block = nullptr;
    }

    float* share()
    {
        SettingsRecord record;
        handler->poll(record);
        return const_cast<float*>(record.hrtfData);
    }

    // The block and the share, byte for byte.
    std::string everything()
    {
        std::string bytes(reinterpret_cast<const char*>(block), sizeof(ControlBlock));
        bytes.append(reinterpret_cast<const char*>(share()), hrtfShareBytes);
        return bytes;
    }

    // The settings as the block holds them now.
    SettingsRecord settings()
    {
        SettingsRecord record;
        copySettings(*block, record);
        return record;
    }

    // Waits until the snapshot has taken the block's last update over, and brings the record up to date with it.
    void follow(SettingsRecord& record)
    {
        EXPECT_TRUE(eventually([&] {
            handler->poll(record);
            return record.blockSequence == block->sequence;
        }));
    }

    void expectUntouched(const std::vector<std::string>& arguments, const std::string& reason, int code = 2)
    {
        const std::string before = everything();
        expectRefusal(arguments, reason, code);
        EXPECT_TRUE(everything() == before) << reason;
    }

    std::shared_ptr<SettingsHandler> handler;
    ControlBlock* block = nullptr; // this test's own view
};

using Response = std::vector<double>;
using Ears = std::array<Response, 2>;

// Where a file of fourteen channels has the pair of each row of `speakerTable`.
constexpr std::array<std::array<std::size_t, 2>, 8> pairOf = {
    {{0, 1}, {8, 7}, {6, 13}, {99, 99}, {4, 5}, {12, 11}, {2, 3}, {10, 9}}};
constexpr std::size_t woofer = 3;

class Responses : public ControlOfAnEffect {
protected:
    Responses() { handler->writeActiveFormat(0x63F, 48000.0F); }

    // A WAV file of floats, written here so that no library has a part in it.
    std::string wav(const std::string& name, std::uint16_t channels, const std::vector<float>& samples,
                    std::uint32_t rate = 48000) const
    {
        std::string bytes;
        const auto put = [&](auto value) { bytes.append(reinterpret_cast<const char*>(&value), sizeof value); };
        const auto size = static_cast<std::uint32_t>(samples.size() * 4);
        bytes += "RIFF";
        put(size + 36);
        bytes += "WAVEfmt ";
        put(std::uint32_t{16});
        put(std::uint16_t{3}); // floats
        put(channels);
        put(rate);
        put(rate * channels * 4);
        put(static_cast<std::uint16_t>(channels * 4));
        put(std::uint16_t{32});
        bytes += "data";
        put(size);
        bytes.append(reinterpret_cast<const char*>(samples.data()), size);
        std::ofstream(folder / name, std::ios::binary) << bytes;
        return path(name);
    }

    // Decaying noise of `taps` frames for every ear, the far ear later and weaker; `onset` frames of silence ahead of all.
    static std::vector<Ears> someSet(std::size_t taps, std::size_t onset, std::size_t length)
    {
        std::mt19937 random(7); // NOLINT: the same in every run
        std::vector<Ears> set(8);
        for (std::size_t row = 0; row < set.size(); ++row)
            for (std::size_t ear = 0; ear < 2; ++ear) {
                Response& x = set[row][ear];
                x.resize(length);
                const bool centre = row == 2;
                const bool leftSpeaker = row % 2 == 0;
                const bool nearEar = centre || leftSpeaker == (ear == 0);
                const std::size_t late = nearEar ? 0 : 20;
                for (std::size_t i = 0; i < taps; ++i) {
                    const double sign = random() % 2 == 0 ? 1 : -1;
                    const double envelope = std::exp(-static_cast<double>(i) / 8);
                    x.at(onset + late + i) = static_cast<double>(static_cast<float>(sign * envelope * (nearEar ? 1 : 0.3)));
                }
            }
        return set;
    }

    static std::vector<float> interleaved(const std::vector<Ears>& set)
    {
        const std::size_t frames = set[0][0].size();
        std::vector<float> samples(frames * 14);
        for (std::size_t row = 0; row < set.size(); ++row)
            for (std::size_t ear = 0; ear < 2 && row != woofer; ++ear)
                for (std::size_t i = 0; i < frames; ++i)
                    samples[i * 14 + pairOf[row][ear]] = static_cast<float>(set[row][ear][i]);
        return samples;
    }

    // What both ears hear of an impulse on one speaker, through a path of the effect that is up to date; without its gain.
    Ears heard(SignalPath& path, std::size_t channel)
    {
        constexpr std::size_t n = 480;
        constexpr float level = 0.125F;
        std::vector<float> in(n * 8);
        std::vector<float> out(n * 8);
        for (int block = 0; block < 4; ++block) // the room and what went before die away
            path->process(in.data(), n, out.data(), n);
        in[channel] = level;
        path->process(in.data(), n, out.data(), n);
        Ears ears;
        for (std::size_t ear = 0; ear < 2; ++ear)
            for (std::size_t i = 0; i < n; ++i)
                ears[ear].push_back(static_cast<double>(out[i * 8 + ear]) / 0.8 / static_cast<double>(level));
        return ears;
    }

    static double energy(const Response& x)
    {
        double sum = 0;
        for (const double value : x)
            sum += value * value;
        return sum;
    }

    // Power of all seven pairs at frequencies k * 48000 / 1024 Hz from 94 Hz to 16 kHz, each weighed by 1 / k.
    static double pinkPower(const std::vector<Ears>& set)
    {
        double sum = 0;
        for (std::size_t row = 0; row < set.size(); ++row)
            for (std::size_t ear = 0; ear < 2 && row != woofer; ++ear)
                for (int k = 2; k <= 341; ++k) {
                    std::complex<double> spectrum;
                    for (std::size_t i = 0; i < set[row][ear].size(); ++i)
                        spectrum += std::polar(set[row][ear][i], -2 * std::numbers::pi * k * static_cast<double>(i) / 1024);
                    sum += std::norm(spectrum) / k;
                }
        return sum;
    }

    static std::vector<Ears> builtIn()
    {
        std::vector<Ears> set(8);
        for (std::size_t row = 0; row < set.size(); ++row)
            for (std::size_t ear = 0; ear < 2; ++ear) {
                const EarResponse& response = ear == 0 ? speakerResponses[row].left : speakerResponses[row].right;
                set[row][ear].resize(response.onset);
                for (const float tap : response.taps)
                    set[row][ear].push_back(static_cast<double>(tap));
            }
        return set;
    }

    SignalPath path7()
    {
        SignalPath path(SignalPath::Speaker{}, 8, 0x63F, 480, 48000);
        done({"set", "Settings=1"});
        follow(*path->settings());
        return path;
    }
};

} // namespace quorel
