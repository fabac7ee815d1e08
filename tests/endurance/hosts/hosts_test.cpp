// SPDX-License-Identifier: MIT
// One sound and one set of settings that change at the same frames give the same bytes wherever an effect runs: by a path itself,
// by the module's entry, in a live stream, in a plug-in, and from the tools; and in all cuts that make no difference.
#include "client/audio_file.h"
#include "live/block_plan.h"
#include "live/effect_stream.h"
#include "tests/endurance/hosts/module_host.h"
#include "tests/live/plugin/plugin_host.h"
#include "tests/support/control_application.h"
#include "tests/support/private_home.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <lv2/core/lv2.h>
#include <random>
#include <sstream>
#include <vector>

namespace quorel {
namespace {

namespace fs = std::filesystem;

struct Stream {
    bool render;
    std::size_t channels;
    std::uint32_t mask;
    std::uint32_t rate;

    bool rendered() const { return render && rate == 48000; }       // what is at another rate is copied
    std::size_t heard() const { return rendered() ? 2 : channels; } // channels
    std::size_t slots() const { return rendered() ? 8 : channels; } // samples of a frame that the path writes
    std::uint32_t hop() const { return render ? 1 : rate / 200; }   // frames that noise reduction gives at a time

    SignalPath path(std::uint32_t longest) const
    {
        const auto count = static_cast<std::int32_t>(channels);
        return render ? SignalPath(SignalPath::Speaker{}, count, mask, longest, rate)
                      : SignalPath(SignalPath::Microphone{}, count, mask, longest, rate);
    }
};

std::ostream& operator<<(std::ostream& out, const Stream& stream)
{
    return out << (stream.render ? "render, " : "capture, ") << stream.channels << " channels at " << stream.rate;
}

constexpr Stream surround{true, 8, 0x63F, 48000};
constexpr Stream voice{false, 1, 0x4, 48000};

constexpr std::uint32_t turn = 4000; // frames between two changes, at the least
constexpr std::size_t turns = 6;

// Every setting that is heard changes, and every stage is on in one turn or another.
SettingsRecord settingsOf(std::size_t k)
{
    constexpr std::array<std::uint32_t, turns> reverbs = {150, 150, 0, 255, 150, 20};
    constexpr std::array<std::uint32_t, turns> curves = {1, 2, 0, 2, 1, 1};
    constexpr std::array<std::uint32_t, turns> gates = {60, 200, 0, 1, 255, 128};
    SettingsRecord record;
    record.Settings = k != 2 && k != 5;
    record.Reverb = reverbs.at(k);
    for (std::size_t band = 0; band < record.EQBand.size(); ++band)
        record.EQBand[band] = k == 4 ? 0 : static_cast<std::int32_t>((k * 50 + band * 31) % 255) - 127;
    record.MicNR = k != 3;
    record.micEq = curves.at(k);
    record.noiseGate = gates.at(k);
    return record;
}

// Frames of noise in bursts, interleaved, at most half of full scale.
std::vector<float> noiseOf(const Stream& stream, std::size_t frames)
{
    std::mt19937 random(7);
    std::vector<float> x(frames * stream.channels);
    for (std::size_t i = 0; i < x.size(); ++i) {
        const float scale = i / stream.channels / 3000 % 2 == 0 ? 0.5F : 0.01F;
        x[i] = scale * (static_cast<float>(random()) * 0x1p-31F - 1);
    }
    return x;
}

// How a host cuts the sound into calls, between which settings change.
struct Calls {
    explicit Calls(std::vector<std::uint32_t> cuts) : lengths(std::move(cuts))
    {
        for (const std::uint32_t n : lengths) {
            if (changes.size() < turns && frames >= changes.size() * turn)
                changes.push_back(frames);
            frames += n;
        }
    }

    std::vector<std::uint32_t> lengths;
    std::vector<std::size_t> changes; // the frame at which each of the settings comes
    std::size_t frames = 0;
};

Calls equalCalls(std::uint32_t n)
{
    return Calls(std::vector<std::uint32_t>(turns * turn / n + turns, n));
}

Calls randomCalls(std::uint32_t longest, std::uint32_t seed)
{
    std::mt19937 random(seed);
    std::vector<std::uint32_t> lengths;
    for (std::size_t frames = 0; frames < turns * turn; frames += lengths.back())
        lengths.push_back(static_cast<std::uint32_t>(random() % (longest + 1)));
    return Calls(lengths);
}

// `run(in, out, n)` for each call, behind `set(record)` where settings change: the interleaved samples of all frames.
template <typename Set, typename Run>
std::vector<float> through(const Stream& stream, const Calls& calls, Set set, Run run)
{
    const std::vector<float> in = noiseOf(stream, calls.frames);
    std::vector<float> out(calls.frames * stream.heard());
    std::size_t at = 0;
    std::size_t k = 0;
    for (const std::uint32_t n : calls.lengths) {
        for (; k < calls.changes.size() && calls.changes[k] == at; ++k)
            set(settingsOf(k));
        run(in.data() + at * stream.channels, out.data() + at * stream.heard(), n);
        at += n;
    }
    return out;
}

void give(SignalPath& path, SettingsRecord record)
{
    record.blockSequence = path->settings()->blockSequence + 1;
    *path->settings() = record;
}

// One block through `run(x, y)`, which writes frames as wide as the path's: what is heard of them.
template <typename Run>
void runSlots(const Stream& stream, const float* in, float* out, std::uint32_t n, Run run)
{
    std::vector<float> y(n * stream.slots());
    run(in, y.data());
    for (std::size_t i = 0; i < n; ++i)
        std::copy_n(y.data() + i * stream.slots(), stream.heard(), out + i * stream.heard());
}

void runPath(const Stream& stream, SignalPath& path, const float* in, float* out, std::uint32_t n)
{
    std::vector<float> mine(in, in + n * stream.channels);
    runSlots(stream, in, out, n, [&](const float*, float* y) { path->process(mine.data(), n, y, n); });
}

// The path itself. A host that gathers frames gives a change to the block that its next frame completes.
std::vector<float> offline(const Stream& stream, std::uint32_t block, const std::vector<std::size_t>& changes, std::size_t frames)
{
    SignalPath path = stream.path(block);
    const std::vector<float> in = noiseOf(stream, frames);
    std::vector<float> out(frames / block * block * stream.heard());
    std::size_t k = 0;
    for (std::size_t at = 0; at + block <= frames; at += block) {
        for (; k < changes.size() && changes[k] < at + block; ++k)
            give(path, settingsOf(k));
        runPath(stream, path, in.data() + at * stream.channels, out.data() + at * stream.heard(), block);
    }
    return out;
}

// Behind `delay` frames of silence `made` is the beginning of what the path gives in such blocks.
void expectThePaths(const Stream& stream, const Calls& calls, BlockPlan plan, const std::vector<float>& made)
{
    std::vector<float> expected(plan.delay * stream.heard());
    const auto sound = offline(stream, plan.block, calls.changes, calls.frames);
    expected.insert(expected.end(), sound.begin(), sound.end());
    EXPECT_EQ(calls.changes.size(), turns);
    ASSERT_GE(expected.size(), made.size());
    ASSERT_GT(made.size(), turns * turn);
    const auto different = std::mismatch(made.begin(), made.end(), expected.begin(), [](float a, float b) {
                               return std::memcmp(&a, &b, sizeof a) == 0;
                           }).first;
    EXPECT_TRUE(different == made.end()) << stream << ", block " << plan.block << ", delay " << plan.delay << ", sample "
                                         << different - made.begin();
}

// Hosts that settings reach through the control block.
class Hosts : public testing::Test {
protected:
    void set(const SettingsRecord& record)
    {
        const std::uint32_t sequence = control.update(record);
        SettingsRecord seen;
        ASSERT_TRUE(eventually([&] {
            settings->poll(seen);
            return seen.blockSequence == sequence;
        }));
    }

    // By the entry that the audio engine calls.
    std::vector<float> module(const Stream& stream, const Calls& calls)
    {
        set(settingsOf(0));
        ModuleHost host(stream.render, static_cast<std::uint32_t>(stream.channels), stream.render ? stream.mask : 0, stream.rate,
                        *std::max_element(calls.lengths.begin(), calls.lengths.end()));
        return through(
            stream, calls, [this](const SettingsRecord& record) { set(record); },
            [&](const float* in, float* out, std::uint32_t n) {
                runSlots(stream, in, out, n, [&](const float* x, float* y) { EXPECT_TRUE(host.process(x, y, n)); });
            });
    }

    // By what the live host puts around an effect, without an audio server.
    std::vector<float> live(const Stream& stream, const Calls& calls, BlockPlan plan)
    {
        set(settingsOf(0));
        const std::atomic<bool> bypass = false;
        StreamStatus status;
        EffectStream effect({!stream.render, static_cast<std::uint32_t>(stream.channels), stream.mask}, plan, settings, bypass,
                            status);
        const auto made = through(
            stream, calls, [this](const SettingsRecord& record) { set(record); },
            [&](const float* in, float* out, std::uint32_t n) {
                runRows(stream, in, out, n, [&](const float* const* from, float* const* to) { effect.process(from, to, n); });
            });
        EXPECT_EQ(status.refused, 0U);
        EXPECT_EQ(effect.delay(), plan.delay);
        return made;
    }

    // Rows of so many frames in place of interleaved ones.
    template <typename Run>
    static void runRows(const Stream& stream, const float* in, float* out, std::size_t n, Run run)
    {
        std::vector<std::vector<float>> x(stream.channels, std::vector<float>(n));
        std::vector<std::vector<float>> y(stream.heard(), std::vector<float>(n));
        std::vector<const float*> from;
        std::vector<float*> to;
        for (std::size_t c = 0; c < x.size(); ++c) {
            for (std::size_t i = 0; i < n; ++i)
                x[c][i] = in[i * x.size() + c];
            from.push_back(x[c].data());
        }
        for (auto& row : y)
            to.push_back(row.data());
        run(from.data(), to.data());
        for (std::size_t c = 0; c < y.size(); ++c)
            for (std::size_t i = 0; i < n; ++i)
                out[i * y.size() + c] = y[c][i];
    }

    std::shared_ptr<SettingsHandler> settings = SettingsHandler::instance(SettingsHandler::layoutVersion);
    ControlApplication control;
};

TEST_F(Hosts, TheModulesEntryGivesWhatThePathGives)
{
    for (const Stream& stream : {surround, Stream{true, 2, 0x3, 96000}, voice, Stream{false, 1, 0, 16000}})
        for (const std::uint32_t n : {160U, 240U, 480U, 720U}) {
            const Calls calls = equalCalls(n);
            expectThePaths(stream, calls, {n, 0}, module(stream, calls));
        }
}

TEST_F(Hosts, ALiveStreamGivesWhatThePathGivesAtAnyQuantum)
{
    for (const std::uint32_t n : {17U, 32U, 48U, 64U, 128U, 441U, 480U, 857U, 1024U, 2048U, 8191U, 8192U}) {
        const Calls calls = equalCalls(n);
        expectThePaths(surround, calls, speakerPlan(n, false), live(surround, calls, speakerPlan(n, false)));
        const BlockPlan plan{microphoneBlock, gatheringDelay(n, microphoneBlock)};
        for (const Stream& stream : {voice, Stream{false, 2, 0x3, 48000}})
            expectThePaths(stream, calls, plan, live(stream, calls, plan));
    }
}

TEST_F(Hosts, ALiveStreamGivesWhatThePathGivesInAnyCalls)
{
    for (std::uint32_t seed = 1; seed <= 4; ++seed) {
        const Calls calls = randomCalls(2000, seed);
        expectThePaths(surround, calls, speakerPlan(1, true), live(surround, calls, speakerPlan(1, true)));
        const BlockPlan plan{microphoneBlock, microphoneBlock - 1};
        expectThePaths(voice, calls, plan, live(voice, calls, plan));
    }
}

// A host of plug-ins that promises calls of one length, or none. Its calls are of at most 256 frames.
std::vector<float> plugIn(const Stream& stream, const Calls& calls, std::int32_t promised)
{
    PluginHost host(*lv2_descriptor(stream.render ? 0 : 1), !stream.render, {.promised = promised});
    const auto set = [&host](const SettingsRecord& record) {
        for (const SettingsField* field : host.ports.settings)
            host.set(field->name, static_cast<float>(settingOf(record, *field)));
    };
    return through(stream, calls, set, [&](const float* in, float* out, std::uint32_t n) {
        for (std::size_t c = 0; c < stream.channels; ++c)
            for (std::size_t i = 0; i < n; ++i)
                host.sound[c * 256 + i] = in[i * stream.channels + c];
        host.run(nullptr, n);
        for (std::size_t c = 0; c < stream.heard(); ++c)
            for (std::size_t i = 0; i < n; ++i)
                out[i * stream.heard() + c] = host.made.at(c).at(i);
    });
}

TEST(PluginHosts, APluginGivesWhatThePathGivesInCallsAsPromised)
{
    for (const std::uint32_t n : {17U, 32U, 48U, 64U, 128U, 100U, 241U, 256U}) {
        const Calls calls = equalCalls(n);
        const auto promised = static_cast<std::int32_t>(n);
        expectThePaths(surround, calls, speakerPlan(n, false), plugIn(surround, calls, promised));
        expectThePaths(voice, calls, {microphoneBlock, gatheringDelay(n, microphoneBlock)}, plugIn(voice, calls, promised));
    }
}

TEST(PluginHosts, APluginGivesWhatThePathGivesInAnyCalls)
{
    for (std::uint32_t seed = 1; seed <= 4; ++seed) {
        const Calls calls = randomCalls(256, seed);
        expectThePaths(surround, calls, speakerPlan(1, true), plugIn(surround, calls, 0));
        expectThePaths(voice, calls, {microphoneBlock, microphoneBlock - 1}, plugIn(voice, calls, 0));
    }
}

// ---- cuts ----------------------------------------------------------------------------------------------------------

// In one set of settings, whose first block is the same everywhere: a change is faded over its block.
std::vector<float> inCuts(const Stream& stream, const SettingsRecord& record, std::uint32_t longest, std::uint32_t seed)
{
    constexpr std::size_t frames = 24000;
    const std::uint32_t hop = stream.hop();
    SignalPath path = stream.path(longest);
    give(path, record);
    std::mt19937 random(seed);
    const std::vector<float> in = noiseOf(stream, frames);
    std::vector<float> out(frames * stream.heard());
    std::uint32_t n = longest;
    for (std::size_t at = 0; at < frames; at += n) {
        if (at > 0 && seed > 0)
            n = hop * static_cast<std::uint32_t>(1 + random() % (longest / hop));
        n = static_cast<std::uint32_t>(std::min<std::size_t>(n, frames - at));
        runPath(stream, path, in.data() + at * stream.channels, out.data() + at * stream.heard(), n);
    }
    return out;
}

// A microphone's sound is the same in all cuts into whole hops of the noise reduction; a flat down-mix's in any.
TEST(Cuts, MakeNoDifferenceToMicrophonesAndDownMixes)
{
    SettingsRecord flat;
    for (const Stream& stream :
         {voice, Stream{false, 2, 0x3, 48000}, Stream{false, 1, 0, 16000}, surround, Stream{true, 2, 0x3, 48000}})
        for (const SettingsRecord& record : stream.render ? std::vector{flat} : std::vector{settingsOf(0), settingsOf(1), flat}) {
            const auto whole = inCuts(stream, record, 480, 0);
            for (std::uint32_t seed = 1; seed <= 10; ++seed)
                EXPECT_TRUE(inCuts(stream, record, 480, seed) == whole) << stream << ", cuts " << seed;
        }
}

// ---- tools ---------------------------------------------------------------------------------------------------------

class Tools : public testing::Test {
protected:
    Tools()
    {
        std::string pattern = (fs::temp_directory_path() / "quorel_hosts_XXXXXX").string();
        folder = mkdtemp(pattern.data());
    }
    ~Tools() override { fs::remove_all(folder); }

    // What the tool makes of a file of this stream's noise is, bit for bit, what the path gives for it.
    void expectThePathsFile(const Stream& stream, std::uint32_t block, const std::string& ending)
    {
        constexpr std::size_t frames = 10000;
        const std::string in = (folder / "in.wav").string();
        const std::string made = (folder / ("out." + ending)).string();
        std::vector<float> samples = noiseOf(stream, frames);
        AudioWriter writer(in, {static_cast<int>(stream.channels), stream.rate, stream.mask, SampleFormat::float32}, frames);
        writer.write(samples.data(), frames);
        writer.commit();
        const SettingsRecord record = settingsOf(1);
        std::ostringstream line;
        line << (stream.render ? QUOREL_RENDER " --tail 0" : QUOREL_CLEAN " --no-settle") << " --block-size " << block;
        for (const SettingsField& field : settingsFields())
            if (field.effect == (stream.render ? Effect::speaker : Effect::microphone))
                line << " --" << field.name << ' ' << settingOf(record, field);
        line << ' ' << in << ' ' << made;
        ASSERT_EQ(std::system(line.str().c_str()), 0) << line.str();

        SignalPath path = stream.path(block);
        give(path, record);
        samples.resize((frames + block) * stream.channels); // silence fills the last block
        std::vector<float> expected((frames + block) * stream.heard());
        for (std::size_t at = 0; at < frames; at += block)
            runPath(stream, path, samples.data() + at * stream.channels, expected.data() + at * stream.heard(), block);
        expected.resize(frames * stream.heard());

        AudioReader reader(made, [] {});
        EXPECT_EQ(reader.rate(), stream.rate);
        std::vector<float> got(expected.size() + 1);
        ASSERT_EQ(reader.read(got.data(), frames), frames);
        EXPECT_EQ(std::memcmp(got.data(), expected.data(), expected.size() * sizeof(float)), 0) << line.str();
        if (ending == "wav") { // whose samples stand at its end
            std::ifstream file(made, std::ios::binary);
            const std::string bytes(std::istreambuf_iterator<char>(file), {});
            const std::string_view last(reinterpret_cast<const char*>(expected.data()), expected.size() * sizeof(float));
            EXPECT_TRUE(bytes.ends_with(last)) << line.str();
        }
    }

    fs::path folder;
};

TEST_F(Tools, RenderWritesTheFloatsThatThePathGives)
{
    for (const Stream& stream :
         {Stream{true, 1, 0x4, 48000}, Stream{true, 2, 0x3, 48000}, Stream{true, 6, 0x3F, 48000}, surround})
        for (const std::uint32_t block : {32U, 240U, 480U, 848U})
            expectThePathsFile(stream, block, "wav");
    for (const char* ending : {"w64", "rf64", "aiff", "caf"})
        expectThePathsFile(surround, 480, ending);
}

TEST_F(Tools, CleanWritesTheFloatsThatThePathGives)
{
    for (const std::uint32_t rate : {16000U, 48000U})
        for (const auto& [channels, mask] : {std::pair{std::size_t{1}, 0x4U}, {2, 0x3}, {8, 0x63F}})
            for (const std::uint32_t block : {240U, 720U, 4800U})
                expectThePathsFile({false, channels, mask, rate}, block, "wav");
    for (const char* ending : {"w64", "rf64", "aiff", "caf"})
        expectThePathsFile(voice, 480, ending);
}

} // namespace
} // namespace quorel
