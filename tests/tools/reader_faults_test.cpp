// SPDX-License-Identifier: MIT
// A library that crashes, hangs or takes all memory over a file: the tool that asked for the file says so in one line.
#include "tests/tools/tool_test.h"

#include <thread>

namespace quorel {
namespace {

class ReaderFaults : public ToolTest {
protected:
    ReaderFaults() : ToolTest(QUOREL_RENDER, "quorel-render") {}

    // The tool's processes have the faulty libraries.
    static std::function<void()> with(const char* fault, bool amidst = false)
    {
        return [=] {
            setenv("LD_PRELOAD", FAULTY_READERS, 1);
            setenv("QUOREL_READER_FAULT", fault, 1);
            if (amidst)
                setenv("QUOREL_READER_BLOCKS", "", 1);
        };
    }

    void become(const char* program, const char* name)
    {
        tool = program;
        calledAs = name;
    }

    std::string sound() const { return save("in.wav", 2, noise(2, 50000)); }

    const std::string head = "/usr/share/libmysofa/MIT_KEMAR_normal_pinna.sofa";
};

TEST_F(ReaderFaults, ACrashOverAnAudioFileIsOneLine)
{
    const std::string why = "cannot read " + path("in.wav") + ": it ends what reads it: Segmentation fault";
    expectRefusal(sound(), why, {}, with("crash"));
    expectRefusal(sound(), why, {}, with("crash", true));
    become(QUOREL_CLEAN, "quorel-clean");
    expectRefusal(sound(), why, {}, with("crash"));
    expectRefusal(sound(), why, {}, with("crash", true));
}

TEST_F(ReaderFaults, AllMemoryForAnAudioFileIsOneLine)
{
    const std::string why = "cannot read " + path("in.wav") + ": there is too little memory";
    expectRefusal(sound(), why, {}, with("memory"));
    expectRefusal(sound(), why, {}, with("memory", true));
    become(QUOREL_CLEAN, "quorel-clean");
    expectRefusal(sound(), why, {}, with("memory", true));
}

TEST_F(ReaderFaults, ACrashOrAllMemoryOverResponsesIsOneLine)
{
    const std::string begin = "cannot read " + head + ": ";
    expectRefusal(sound(), begin + "it ends what reads it: Segmentation fault", {"--hrtf", head}, with("crash", true));
    expectRefusal(sound(), begin + "there is too little memory", {"--hrtf", head}, with("memory", true));
    become(QUOREL_HRTF, "quorel-hrtf");
    const Outcome outcome = run({"show", head}, with("crash"));
    EXPECT_TRUE(outcome.exited(2)) << outcome;
    expectOneLine(outcome.err, begin + "it ends what reads it: Segmentation fault");
}

// Both take the processor's time that they are given, 5 and 10 s, or ten times that by the clock; so they take it together.
TEST_F(ReaderFaults, AHangOverAFileIsOneLine)
{
    Outcome audio;
    Outcome responses;
    const std::string input = sound();
    std::thread other([&] { responses = run({input, path("other.wav"), "--hrtf", head}, with("turn", true)); });
    audio = run({input, path("out.wav")}, with("turn", true));
    other.join();
    EXPECT_TRUE(audio.exited(2)) << audio;
    expectOneLine(audio.err, "cannot read " + input + ": it takes more than 5");
    EXPECT_TRUE(responses.exited(2)) << responses;
    expectOneLine(responses.err, "cannot read " + head + ": it takes more than 10");
    EXPECT_EQ(entries(), std::vector<fs::path>{input});
}

} // namespace
} // namespace quorel
