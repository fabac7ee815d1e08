// SPDX-License-Identifier: MIT
// The file of responses of the LV2 plug-in: what ports do not hold. A message names it, a worker reads it, the state keeps it.
#include "client/audio_file.h"
#include "client/hrtf_set.h"
#include "tests/live/plugin/installed_plugin.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <lv2/atom/util.h>
#include <lv2/log/log.h>
#include <lv2/state/state.h>
#include <malloc.h>
#include <new>
#include <optional>
#include <vector>

// Memory that this thread has released, in the plug-ins too: they take these operations from the program.
static thread_local int releases = 0;
static int before = 0;   // a call on the audio thread
static int released = 0; // in all of these

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

TEST(Lv2Responses, ReadsTheFileOfResponsesThatAMessageNames)
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

TEST(Lv2Responses, ReleasesNoResponsesOnTheAudioThread)
{
    const Folder folder;
    const std::string path = writeResponses(folder);
    Host host(false);
    host.enter = [] { before = releases; };
    host.leave = [] { released += releases - before; };
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
    EXPECT_EQ(released, 0);
    expectOneTap(host);
}

// ---- state -------------------------------------------------------------------------------------------------------------

const LV2_Feature* const nothing[] = {nullptr};

// What a host keeps of a plug-in's state; nothing if that stores nothing.
struct Kept {
    std::string text;
    LV2_URID type = 0;
    LV2_URID key = 0;
};

Kept saved(Host& host, const LV2_Feature* const* features = nothing)
{
    Kept kept;
    EXPECT_EQ(
        host.state().save(
            host.handle,
            [](LV2_State_Handle to, std::uint32_t key, const void* value, std::size_t size, std::uint32_t type, std::uint32_t) {
                *static_cast<Kept*>(to) = {{static_cast<const char*>(value), size}, type, key};
                return LV2_STATE_SUCCESS;
            },
            &kept, 0, features),
        LV2_STATE_SUCCESS);
    return kept;
}

LV2_State_Status restore(Host& host, const Kept& kept, const LV2_Feature* const* features = nothing)
{
    return host.state().restore(
        host.handle,
        [](LV2_State_Handle from, std::uint32_t key, std::size_t* size, std::uint32_t* type, std::uint32_t*) {
            const auto& held = *static_cast<const Kept*>(from);
            EXPECT_EQ(key, held.key);
            *size = held.text.size();
            *type = held.type;
            return held.type != 0 ? static_cast<const void*>(held.text.data()) : nullptr;
        },
        const_cast<Kept*>(&kept), 0, features);
}

// A path as it stands in a state, its end's zero among it.
Kept pathOf(Host& host, const std::string& path)
{
    return {{path.c_str(), path.size() + 1}, host.id(LV2_ATOM__Path), host.responsesUrid};
}

TEST(Lv2Responses, KeepsTheFileOfResponsesInItsState)
{
    const Folder folder;
    const std::string path = writeResponses(folder);
    Kept kept;
    {
        Host host(false);
        EXPECT_EQ(saved(host).type, 0U); // the built-in set is no file
        host.run(path.c_str());
        host.settle();
        kept = saved(host);
        EXPECT_EQ(kept.type, host.id(LV2_ATOM__Path));
        EXPECT_EQ(kept.key, host.responsesUrid);
    }
    ASSERT_EQ(kept.text, std::string(path.c_str(), path.size() + 1));

    Host host(false);
    host.set("Settings", 1);
    EXPECT_EQ(restore(host, pathOf(host, path)), LV2_STATE_SUCCESS);
    expectOneTap(host);
}

// Bytes that the program holds.
std::size_t held()
{
    const struct mallinfo2 memory = mallinfo2();
    return memory.uordblks + memory.hblkhd;
}

// Without a worker nothing else releases it.
TEST(Lv2Responses, HoldsOneSetAtATimeWhereAHostRestoresWithoutAWorker)
{
    const Folder folder;
    const std::string path = writeResponses(folder);
    Host host(false, {.worker = false});
    EXPECT_EQ(restore(host, pathOf(host, path)), LV2_STATE_SUCCESS);
    const std::size_t one = held();
    for (int time = 0; time < 10; ++time)
        EXPECT_EQ(restore(host, pathOf(host, path)), LV2_STATE_SUCCESS);
    EXPECT_LT(held(), one + std::size_t{spectrumFloats} * 8); // an eighth of a set
}

// Also where a host restores before it has a worker to offer.
TEST(Lv2Responses, RestoresTheBuiltInSetWhereAStateNamesNone)
{
    const Folder folder;
    const std::string path = writeResponses(folder);
    for (const bool worker : {true, false}) {
        for (const char* empty : {"no value", "no path", "no text", "no file"}) {
            Host host(false, {.worker = worker});
            EXPECT_EQ(restore(host, pathOf(host, path)), LV2_STATE_SUCCESS);
            Kept none = pathOf(host, path);
            if (empty == std::string("no value"))
                none.type = 0;
            if (empty == std::string("no path"))
                none.type = host.id(LV2_ATOM__String);
            if (empty == std::string("no text"))
                none.text = "";
            if (empty == std::string("no file"))
                none = pathOf(host, "");
            EXPECT_EQ(restore(host, none), LV2_STATE_SUCCESS) << empty;
            EXPECT_EQ(saved(host).type, 0U) << empty;
        }
    }
}

TEST(Lv2Responses, KeepsItsResponsesWhereAStatesFileGivesNone)
{
    const Folder folder;
    const std::string path = writeResponses(folder);
    Host host(false);
    host.set("Settings", 1);
    EXPECT_EQ(restore(host, pathOf(host, path)), LV2_STATE_SUCCESS);
    EXPECT_EQ(restore(host, pathOf(host, folder / "none.wav")), LV2_STATE_ERR_UNKNOWN);
    expectOneTap(host);
}

// A host that moves what a project names, and lends the moved paths. What it has lent is given back to it; to the C library
// where it takes nothing back.
TEST(Lv2Responses, LetsItsHostMapThePathOfItsState)
{
    struct Mapping {
        std::string from;
        std::string to;
        int lent = 0;
        int returned = 0;

        static char* lend(Mapping& self, const char* path, const std::string& from, const std::string& to)
        {
            if (path != from)
                return nullptr;
            ++self.lent;
            return strdup(to.c_str());
        }
    };
    const Folder folder;
    const std::string path = writeResponses(folder);
    Mapping mapping{path, "project/head.wav"};
    LV2_State_Map_Path paths{&mapping,
                             [](LV2_State_Map_Path_Handle to, const char* absolute) {
                                 auto& self = *static_cast<Mapping*>(to);
                                 return Mapping::lend(self, absolute, self.from, self.to);
                             },
                             [](LV2_State_Map_Path_Handle to, const char* abstract) {
                                 auto& self = *static_cast<Mapping*>(to);
                                 return Mapping::lend(self, abstract, self.to, self.from);
                             }};
    LV2_State_Free_Path freeing{&mapping, [](LV2_State_Free_Path_Handle to, char* lent) {
                                    ++static_cast<Mapping*>(to)->returned;
                                    std::free(lent);
                                }};
    const LV2_Feature maps{LV2_STATE__mapPath, &paths};
    const LV2_Feature frees{LV2_STATE__freePath, &freeing};
    const LV2_Feature* const both[] = {&maps, &frees, nullptr};
    const LV2_Feature* const alone[] = {&maps, nullptr};
    for (const LV2_Feature* const* features : {both, alone}) {
        mapping.lent = mapping.returned = 0;
        Host host(false);
        host.set("Settings", 1);
        EXPECT_EQ(restore(host, pathOf(host, mapping.to), features), LV2_STATE_SUCCESS);
        expectOneTap(host);
        const Kept kept = saved(host, features);
        EXPECT_STREQ(kept.text.c_str(), mapping.to.c_str());
        EXPECT_EQ(mapping.lent, 2);
        EXPECT_EQ(mapping.returned, features == both ? 2 : 0);
        const std::size_t before = held();
        for (int time = 0; time < 1000; ++time)
            saved(host, features);
        EXPECT_LT(held(), before + 1000 * mapping.to.size()); // what was lent is not kept
        mapping.from = "elsewhere";                           // a path that the host does not map stays what it is
        EXPECT_STREQ(saved(host, features).text.c_str(), path.c_str());
        mapping.from = path;
    }
}

TEST(Lv2Responses, HasNoStateWhereAHostMapsNothing)
{
    const Folder folder;
    Host host(false, {.mapping = false, .worker = false});
    EXPECT_EQ(restore(host, pathOf(host, writeResponses(folder))), LV2_STATE_SUCCESS);
    EXPECT_EQ(saved(host).type, 0U);
}

// ---- messages ----------------------------------------------------------------------------------------------------------

// The path that the plug-in has told in its last call; nothing if it told none.
std::optional<std::string> toldPath(Host& host)
{
    const auto* told = reinterpret_cast<const LV2_Atom_Sequence*>(host.out.data());
    std::optional<std::string> path;
    LV2_ATOM_SEQUENCE_FOREACH(told, event)
    {
        const auto* message = reinterpret_cast<const LV2_Atom_Object*>(&event->body);
        EXPECT_EQ(message->body.otype, host.id(LV2_PATCH__Set));
        const LV2_Atom* property = nullptr;
        const LV2_Atom* value = nullptr;
        lv2_atom_object_get(message, host.id(LV2_PATCH__property), &property, host.id(LV2_PATCH__value), &value, 0);
        EXPECT_EQ(reinterpret_cast<const LV2_Atom_URID*>(property)->body, host.responsesUrid);
        EXPECT_EQ(value->type, host.id(LV2_ATOM__Path));
        path = static_cast<const char*>(LV2_ATOM_BODY_CONST(value));
    }
    return path;
}

TEST(Lv2Responses, TellsItsFileWhenAskedAndWhenItHasChanged)
{
    const Folder folder;
    const std::string path = writeResponses(folder);
    Host host(false);
    host.run();
    EXPECT_EQ(toldPath(host), std::nullopt);
    const auto ask = [&host] {
        LV2_Atom_Forge_Frame message;
        lv2_atom_forge_frame_time(&host.forge, 0);
        lv2_atom_forge_object(&host.forge, &message, 0, host.id(LV2_PATCH__Get));
        lv2_atom_forge_pop(&host.forge, &message);
    };
    host.runWith(ask);
    EXPECT_EQ(toldPath(host), "");
    host.run(path.c_str());
    EXPECT_EQ(toldPath(host), std::nullopt);
    host.settle();
    host.run();
    EXPECT_EQ(toldPath(host), path);
    host.run();
    EXPECT_EQ(toldPath(host), std::nullopt);
    host.runWith(ask);
    EXPECT_EQ(toldPath(host), path);
}

TEST(Lv2Responses, TakesNoNoticeOfOtherMessages)
{
    Host host(false);
    LV2_Atom_Forge& forge = host.forge;
    const auto expectNothing = [&host](const char* what) {
        EXPECT_FALSE(host.hasOrders()) << what;
        EXPECT_EQ(toldPath(host), std::nullopt) << what;
    };
    // A message of some kind with a property and a value, each perhaps left out, in an object or what only looks like one.
    const auto message = [&](LV2_URID kind, const std::function<void()>& property, const std::function<void()>& value,
                             bool object = true) {
        LV2_Atom_Forge_Frame frame;
        lv2_atom_forge_frame_time(&forge, 0);
        const LV2_Atom_Forge_Ref made = lv2_atom_forge_object(&forge, &frame, 0, kind);
        if (property) {
            lv2_atom_forge_key(&forge, host.id(LV2_PATCH__property));
            property();
        }
        if (value) {
            lv2_atom_forge_key(&forge, host.id(LV2_PATCH__value));
            value();
        }
        lv2_atom_forge_pop(&forge, &frame);
        if (!object)
            lv2_atom_forge_deref(&forge, made)->type = host.id(LV2_ATOM__Tuple);
    };
    const LV2_URID set = host.id(LV2_PATCH__Set);
    const auto property = [&] { lv2_atom_forge_urid(&forge, host.responsesUrid); };
    const auto other = [&] { lv2_atom_forge_urid(&forge, host.id("urn:other")); };
    const auto number = [&] { lv2_atom_forge_int(&forge, static_cast<std::int32_t>(host.responsesUrid)); };
    const auto path = [&] { lv2_atom_forge_path(&forge, "head.wav", 8); };
    const auto text = [&] { lv2_atom_forge_string(&forge, "head.wav", 8); };

    host.runWith([&] { message(set, property, path); });
    EXPECT_TRUE(host.hasOrders()) << "the message that the others differ from";
    host.settle();
    host.runWith([&] { message(set, property, path, false); });
    expectNothing("no object");
    host.runWith([&] { message(host.id(LV2_PATCH__Get), nullptr, nullptr, false); });
    host.run();
    expectNothing("a question that is no object");
    host.runWith([&] { message(host.id("urn:other"), property, path); });
    expectNothing("another message");
    host.runWith([&] { message(set, other, path); });
    expectNothing("another property");
    host.runWith([&] { message(set, number, path); });
    expectNothing("a property that is a number");
    host.runWith([&] { message(set, nullptr, path); });
    expectNothing("no property");
    host.runWith([&] { message(set, property, text); });
    expectNothing("no path");
    host.runWith([&] { message(set, property, nullptr); });
    expectNothing("no value");
    host.run(std::string(4095, 'x').c_str()); // and its end's zero
    expectNothing("a path that is too long");
    host.run(std::string(4094, 'x').c_str());
    EXPECT_TRUE(host.hasOrders());
}

// ---- the worker -------------------------------------------------------------------------------------------------------

int tellAll(LV2_Log_Handle to, LV2_URID, const char* format, va_list words)
{
    char text[1024];
    const int length = vsnprintf(text, sizeof text, format, words);
    *static_cast<std::string*>(to) += text;
    return length;
}

int tellMore(LV2_Log_Handle to, LV2_URID type, const char* format, ...)
{
    va_list words;
    va_start(words, format);
    const int length = tellAll(to, type, format, words);
    va_end(words);
    return length;
}

TEST(Lv2Responses, TellsItsHostsLogWhyAFileGivesNoResponses)
{
    std::string told;
    LV2_Log_Log log{&told, tellMore, tellAll};
    const Folder folder;
    Host host(false, {.log = &log});
    host.run((folder / "none.wav").c_str());
    host.settle();
    EXPECT_THAT(told, testing::StartsWith("urn:quorel:speaker: "));
    EXPECT_THAT(told, testing::EndsWith("\n"));
    EXPECT_THAT(told, testing::HasSubstr("none.wav"));
}

// What has been read is released by the worker then.
TEST(Lv2Responses, StayWhereTheWorkersAnswerFindsNoRoom)
{
    const Folder folder;
    const std::string path = writeResponses(folder);
    Host host(false);
    host.deaf = true;
    const auto change = [&] {
        host.run(path.c_str());
        host.settle();
        EXPECT_EQ(saved(host).type, 0U);
    };
    change();
    const std::size_t before = held();
    for (int time = 0; time < 10; ++time)
        change();
    EXPECT_LT(held(), before + std::size_t{spectrumFloats} * 8);
}

} // namespace
} // namespace quorel
