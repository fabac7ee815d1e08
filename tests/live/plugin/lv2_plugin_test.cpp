// SPDX-License-Identifier: MIT
// The LV2 plug-ins: their bundles are valid, a host that calls with one frame gets the offline tools' sound, and what ports do
// not hold is read by a worker and kept in the state.
#include "client/audio_file.h"
#include "client/hrtf_set.h"
#include "tests/live/plugin/plugin_host.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <lv2/core/lv2.h>
#include <lv2/state/state.h>
#include <new>
#include <random>
#include <stdexcept>
#include <unistd.h>

// Memory that this thread has released, in the plug-ins too: they take these operations from the program.
static thread_local int releases = 0;

[[gnu::noinline]] void* operator new(std::size_t bytes)
{
    if (void* memory = std::malloc(bytes != 0 ? bytes : 1); memory != nullptr)
        return memory;
    throw std::bad_alloc();
}

[[gnu::noinline]] void operator delete(void* memory) noexcept
{
    ++releases;
    std::free(memory);
}

[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept
{
    ++releases;
    std::free(memory);
}

namespace quorel {
namespace {

namespace fs = std::filesystem;

class Folder {
public:
    Folder()
    {
        std::string pattern = (fs::temp_directory_path() / "quorel_plugin_XXXXXX").string();
        path = mkdtemp(pattern.data());
    }
    ~Folder() { fs::remove_all(path); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    std::string operator/(const char* name) const { return (path / name).string(); }

private:
    fs::path path;
};

int command(const std::string& line)
{
    return std::system(("LV2_PATH=" QUOREL_LV2_FOLDER ":/usr/lib/lv2 timeout 60 " + line).c_str());
}

void writeNoise(const std::string& path, std::uint32_t channels, std::size_t frames)
{
    std::mt19937 random(1);
    std::vector<float> samples(frames * channels);
    for (float& x : samples)
        x = static_cast<float>(static_cast<std::int32_t>(random())) * 0x1p-33F; // up to a quarter
    const int count = static_cast<int>(channels);
    AudioWriter writer(path, {count, 48000, channels == 8 ? 0x63FU : usualMask(count), SampleFormat::float32}, frames);
    writer.write(samples.data(), frames);
    writer.commit();
}

std::vector<float> samplesOf(const std::string& path, std::size_t frames)
{
    AudioReader reader(path, [] {});
    std::vector<float> samples(frames * static_cast<std::size_t>(reader.channels()));
    EXPECT_EQ(reader.read(samples.data(), frames), frames) << path;
    return samples;
}

TEST(Lv2Plugin, BundlesAreValid)
{
    EXPECT_EQ(command("sord_validate $(find /usr/lib/lv2 -name '*.ttl') " QUOREL_LV2_FOLDER "/*/*.ttl >/dev/null"), 0);
    for (const char* side : {"speaker", "microphone"})
        EXPECT_EQ(command(std::string("lv2_validate " QUOREL_LV2_FOLDER "/quorel-") + side + ".lv2/*.ttl >/dev/null"), 0) << side;
}

// A host that calls with one frame is late by a block less one.
TEST(Lv2Plugin, IsTheOfflineToolLessItsLatency)
{
    struct Case {
        const char* uri;
        std::uint32_t channels;
        std::size_t outputs;
        std::size_t latency;
        const char* settings;
        const char* tool;
    };
    const Case cases[] = {{"urn:quorel:speaker", 8, 2, 255, "-c Settings 1 -c Reverb 120 -c EQBand5 -40",
                           QUOREL_RENDER " --Reverb 120 --EQBand5 -40 --tail 0 --block-size 256"},
                          {"urn:quorel:microphone", 1, 1, 239, "-c MicNR 1 -c micEq 1 -c noiseGate 60",
                           QUOREL_CLEAN " --MicNR 1 --micEq 1 --noiseGate 60 --block-size 240 --no-settle"}};
    constexpr std::size_t frames = 24000;
    for (const Case& side : cases) {
        const Folder folder;
        writeNoise(folder / "in.wav", side.channels, frames);
        ASSERT_EQ(command(std::string("lv2apply -i ") + (folder / "in.wav") + " -o " + (folder / "out.wav") + ' ' +
                          side.settings + ' ' + side.uri),
                  0);
        ASSERT_EQ(command(std::string(side.tool) + ' ' + (folder / "in.wav") + ' ' + (folder / "tool.wav")), 0);
        const std::vector<float> made = samplesOf(folder / "out.wav", frames);
        const std::vector<float> expected = samplesOf(folder / "tool.wav", frames);
        const std::size_t late = side.latency * side.outputs;
        for (std::size_t i = 0; i < late; ++i)
            ASSERT_EQ(made[i], 0.0F) << side.uri << ", sample " << i;
        for (std::size_t i = late; i < made.size(); ++i)
            ASSERT_EQ(made[i], expected[i - late]) << side.uri << ", sample " << i;
    }
}

// The plug-in as it is installed. What it releases on the audio thread is counted.
class Host : public PluginHost {
public:
    explicit Host(bool microphone, std::int32_t promised = 0) : PluginHost(described(microphone), microphone, promised)
    {
        enter = [] { before = releases; };
        leave = [] { released += releases - before; };
        released = 0;
    }

    static int releasedOnTheAudioThread() { return released; }

private:
    // The library stays: another host of the same program has it as well.
    static const LV2_Descriptor& described(bool microphone)
    {
        void* library = dlopen(microphone ? QUOREL_LV2_FOLDER "/quorel-microphone.lv2/quorel-microphone.so"
                                          : QUOREL_LV2_FOLDER "/quorel-speaker.lv2/quorel-speaker.so",
                               RTLD_NOW | RTLD_LOCAL);
        const auto descriptors =
            reinterpret_cast<LV2_Descriptor_Function>(library != nullptr ? dlsym(library, "lv2_descriptor") : nullptr);
        const LV2_Descriptor* descriptor = descriptors != nullptr ? descriptors(microphone ? 1 : 0) : nullptr;
        if (descriptor == nullptr)
            throw std::runtime_error("no plug-in");
        return *descriptor;
    }

    inline static int before = 0;
    inline static int released = 0;
};

// By the rule: a slice of 480 adds nothing; 241 is prime, so 256 - gcd(241, 256); 240 - gcd(128, 240).
TEST(Lv2Plugin, TakesALengthThatItsHostPromises)
{
    const auto latencyOf = [](bool microphone, std::int32_t promised) {
        Host host(microphone, promised);
        host.run(nullptr, 0); // which breaks no promise
        return host.latency();
    };
    EXPECT_EQ(latencyOf(false, 0), 255);
    EXPECT_EQ(latencyOf(false, 480), 0);
    EXPECT_EQ(latencyOf(false, 857), 255); // a prime above the largest slice
    EXPECT_EQ(latencyOf(true, 0), 239);
    EXPECT_EQ(latencyOf(true, 128), 224);
}

// A promise of 128 frames that is broken by 100: 128 - gcd(100, 128) = 124 frames that were told by nobody before.
TEST(Lv2Plugin, TellsTheLatencyThatACallAddsAtOnce)
{
    Host host(false, 128);
    host.run(nullptr, 128);
    EXPECT_EQ(host.latency(), 0);
    host.run(nullptr, 100);
    EXPECT_EQ(host.latency(), 124);
    host.run(nullptr, 128);
    EXPECT_EQ(host.latency(), 124);
}

// Surround off, side left is heard at the left ear alone.
TEST(Lv2Plugin, FollowsItsPortsWhileItRuns)
{
    Host host(false);
    for (std::size_t i = 0; i < 256; ++i)
        host.sound[6 * 256 + i] = i % 64 < 32 ? 0.25F : -0.25F; // side left
    const auto rightEar = [&host] {
        for (int call = 0; call < 20; ++call)
            host.run();
        return *std::max_element(host.made[1].begin(), host.made[1].end());
    };
    EXPECT_EQ(rightEar(), 0.0F);
    host.set("Settings", 1);
    EXPECT_GT(rightEar(), 0.01F);
    host.set("Settings", 0);
    EXPECT_EQ(rightEar(), 0.0F);
}

// Responses of one tap: a half at the near ear and a quarter of that at the other.
std::string writeResponses(const Folder& folder)
{
    constexpr std::size_t frames = 200;
    std::vector<float> samples(frames * 14);
    for (const std::size_t near : {0U, 2U, 4U, 7U, 9U, 11U}) {
        samples[40 * 14 + near] = 0.5F;
        samples[40 * 14 + near + 1] = 0.125F;
    }
    samples[40 * 14 + 6] = 0.5F; // front centre, left and right
    samples[40 * 14 + 13] = 0.5F;
    const std::string path = folder / "head.wav";
    AudioWriter writer(path, {14, 48000, 0, SampleFormat::float32}, frames);
    writer.write(samples.data(), frames);
    writer.commit();
    return path;
}

// An impulse on front left: a head of one tap gives one sample at each ear, the far one a quarter of the near one.
void expectOneTap(Host& host)
{
    for (int call = 0; call < 40; ++call) // the change of the responses is faded
        host.run();
    host.sound[0] = 0.25F;
    host.run(); // it leaves in the next call
    host.sound[0] = 0;
    std::vector<std::vector<float>> ears(2);
    for (int call = 0; call < 2; ++call) {
        if (call == 1)
            host.run();
        for (std::size_t ear = 0; ear < 2; ++ear)
            ears[ear].insert(ears[ear].end(), host.made[ear].begin(), host.made[ear].end());
    }
    const auto loudest = [](const std::vector<float>& ear) {
        return std::abs(*std::max_element(ear.begin(), ear.end(), [](float a, float b) { return std::abs(a) < std::abs(b); }));
    };
    const auto others = [&](const std::vector<float>& ear) {
        float sum = 0;
        for (const float x : ear)
            sum += std::abs(x);
        return sum - loudest(ear);
    };
    for (const auto& ear : ears) {
        EXPECT_GT(loudest(ear), 0.001F);
        EXPECT_LT(others(ear), 1e-4F * 512); // rounding of the transforms, with the equaliser flat
    }
    EXPECT_NEAR(loudest(ears[1]) / loudest(ears[0]), 0.25F, 0.001F);
}

TEST(Lv2Plugin, ReadsTheFileOfResponsesThatAMessageNames)
{
    const Folder folder;
    const std::string path = writeResponses(folder);
    Host host(false);
    host.set("Settings", 1);
    host.run(path.c_str());
    host.settle();
    expectOneTap(host);
    host.run((folder / "none.wav").c_str()); // what cannot be read changes nothing
    host.settle();
    expectOneTap(host);
}

TEST(Lv2Plugin, ReleasesNoResponsesOnTheAudioThread)
{
    const Folder folder;
    const std::string path = writeResponses(folder);
    Host host(false);
    host.set("Settings", 1);
    const auto change = [&](bool full) {
        host.run(path.c_str());
        host.full = full;
        host.settle();
        host.full = false;
    };
    change(false);
    change(true); // the first set waits in the second
    change(false);
    change(true);
    EXPECT_EQ(Host::releasedOnTheAudioThread(), 0);
    expectOneTap(host);
}

TEST(Lv2Plugin, KeepsTheFileOfResponsesInItsState)
{
    const Folder folder;
    const std::string path = writeResponses(folder);
    std::string kept;
    {
        Host host(false);
        host.run(path.c_str());
        host.settle();
        const LV2_Feature* none[] = {nullptr};
        host.state().save(
            host.handle,
            [](LV2_State_Handle text, std::uint32_t, const void* value, std::size_t, std::uint32_t, std::uint32_t) {
                *static_cast<std::string*>(text) = static_cast<const char*>(value);
                return LV2_STATE_SUCCESS;
            },
            &kept, 0, none);
    }
    ASSERT_EQ(kept, path);

    Host host(false);
    host.set("Settings", 1);
    struct Kept {
        std::string path;
        LV2_URID type;
    } state{kept, host.id(LV2_ATOM__Path)};
    const LV2_Feature* none[] = {nullptr};
    EXPECT_EQ(host.state().restore(
                  host.handle,
                  [](LV2_State_Handle from, std::uint32_t, std::size_t* size, std::uint32_t* type, std::uint32_t*) {
                      const auto& held = *static_cast<const Kept*>(from);
                      *size = held.path.size() + 1;
                      *type = held.type;
                      return static_cast<const void*>(held.path.c_str());
                  },
                  &state, 0, none),
              LV2_STATE_SUCCESS);
    expectOneTap(host);
}

} // namespace
} // namespace quorel
