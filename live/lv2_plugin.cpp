// SPDX-License-Identifier: MIT
// The effects as LV2 plug-ins, for hosts that take these: one path behind a block adapter, steered by control ports alone.
//
// A host calls with any number of frames, so frames are gathered to blocks of 256 (240 for the microphone), and the latency is
// a block less one frame. A host that promises one length for all calls gets what that length needs, often nothing.
//
// The file of responses is a property. The host's worker reads it; the set goes to the audio thread as a pointer and the one
// that it replaces comes back the same way, so that nothing is allocated or released there.
#include "client/hrtf_file.h"
#include "client/sample_border.h"
#include "live/block_adapter.h"
#include "live/block_plan.h"
#include "live/flush_to_zero.h"
#include "live/lv2_ports.h"

#include <array>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <lv2/atom/forge.h>
#include <lv2/atom/util.h>
#include <lv2/buf-size/buf-size.h>
#include <lv2/core/lv2.h>
#include <lv2/core/lv2_util.h>
#include <lv2/log/logger.h>
#include <lv2/options/options.h>
#include <lv2/patch/patch.h>
#include <lv2/state/state.h>
#include <lv2/urid/urid.h>
#include <lv2/worker/worker.h>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace quorel {
namespace {

constexpr std::uint32_t speakerSlots = 8;   // samples in an output frame of the render effect; the first two are the ears
constexpr std::uint32_t longestPath = 4096; // bytes

struct Responses {
    std::string path;
    std::vector<float> spectra;
    std::unique_ptr<Responses> replaced; // one that the worker had no room for: it goes with this one
};

// What goes to the worker: a path to read, or a set to release.
struct Order {
    Responses* release;
    char path[longestPath];
};

// What the worker sends back; the set is the receiver's.
struct Answer {
    Responses* set;
};

// All 0, which is no name's, for a host that maps none.
struct Urids {
    explicit Urids(LV2_URID_Map* map)
    {
        const auto id = [map](const char* uri) { return map != nullptr ? map->map(map->handle, uri) : 0; };
        atomInt = id(LV2_ATOM__Int);
        atomPath = id(LV2_ATOM__Path);
        atomUrid = id(LV2_ATOM__URID);
        patchGet = id(LV2_PATCH__Get);
        patchSet = id(LV2_PATCH__Set);
        patchProperty = id(LV2_PATCH__property);
        patchValue = id(LV2_PATCH__value);
        responses = id(responsesUri);
        shortest = id(LV2_BUF_SIZE__minBlockLength);
        longest = id(LV2_BUF_SIZE__maxBlockLength);
    }

    LV2_URID atomInt, atomPath, atomUrid, patchGet, patchSet, patchProperty, patchValue, responses, shortest, longest;
};

class Plugin {
public:
    Plugin(bool microphone, std::uint32_t rate, const LV2_Feature* const* features);

    void connect(std::uint32_t port, void* data) { places.at(port) = data; }
    void start();
    void run(std::uint32_t n);

    void work(LV2_Worker_Respond_Function respond, LV2_Worker_Respond_Handle handle, const Order& order);
    void take(Responses* set);
    void save(LV2_State_Store_Function store, LV2_State_Handle handle, const LV2_Feature* const* features) const;
    void restore(LV2_State_Retrieve_Function retrieve, LV2_State_Handle handle, const LV2_Feature* const* features);

private:
    BlockPlan planFor(const LV2_Feature* const* features) const;
    std::unique_ptr<Responses> load(const std::string& path);
    static void release(const LV2_Feature* const* features, char* mapped);
    void steer();
    void hand();
    void readMessages();
    void tellPath();
    bool order(Responses* release, const char* path, std::uint32_t length);
    void runBlock(float* in, float* out) noexcept;
    template <typename T>
    T* at(std::uint32_t port) const
    {
        return static_cast<T*>(places[port]);
    }

    PluginPorts ports;
    std::uint32_t rate;
    std::uint32_t slots; // of a frame that the path writes
    LV2_URID_Map* map;
    LV2_Worker_Schedule* worker;
    LV2_Log_Logger logger{};
    Urids urids;
    BlockPlan plan;
    LV2_Atom_Forge forge{};
    bool pathIsAsked = false;  // by the host: to be told in the next call
    std::vector<void*> places; // of the ports' data
    std::vector<const float*> in;
    std::vector<float*> out;
    Order scratch{};
    SettingsRecord record;
    std::unique_ptr<Responses> responses; // the set in force; none: the built-in one
    SampleBorder border;
    SignalPath path;
    std::optional<BlockAdapter> adapter;
};

template <typename T>
T* featureOf(const LV2_Feature* const* features, const char* uri)
{
    return static_cast<T*>(lv2_features_data(features, uri));
}

Plugin::Plugin(bool microphone, std::uint32_t rate, const LV2_Feature* const* features)
    : ports(microphone),
      rate(rate),
      slots(microphone ? ports.kind.channels : speakerSlots),
      map(featureOf<LV2_URID_Map>(features, LV2_URID__map)),
      worker(featureOf<LV2_Worker_Schedule>(features, LV2_WORKER__schedule)),
      urids(map),
      plan(planFor(features)),
      places(ports.count()),
      in(ports.kind.channels),
      out(ports.kind.outputs()),
      border(ports.kind.channels)
{
    lv2_log_logger_init(&logger, map, featureOf<LV2_Log_Log>(features, LV2_LOG__log));
    if (map != nullptr)
        lv2_atom_forge_init(&forge, map);
    start();
}

// The shortest and the longest call are options of the host's; when they are one, the length is promised.
BlockPlan Plugin::planFor(const LV2_Feature* const* features) const
{
    const std::uint32_t gathered = ports.kind.microphone ? microphoneBlock : gatheredSpeakerBlock;
    std::int32_t shortest = 0;
    std::int32_t longest = 0;
    for (const auto* option = featureOf<LV2_Options_Option>(features, LV2_OPTIONS__options);
         option != nullptr && option->key != 0; ++option)
        if (option->type == urids.atomInt && option->value != nullptr) {
            if (option->key == urids.shortest)
                shortest = *static_cast<const std::int32_t*>(option->value);
            if (option->key == urids.longest)
                longest = *static_cast<const std::int32_t*>(option->value);
        }
    if (shortest <= 0 || shortest != longest)
        return {gathered, gathered - 1};
    const auto length = static_cast<std::uint32_t>(longest);
    return ports.kind.microphone ? BlockPlan{gathered, gatheringDelay(length, gathered)} : speakerPlan(length, false);
}

// A path without a past.
void Plugin::start()
{
    const auto channels = static_cast<std::int32_t>(ports.kind.channels);
    path = ports.kind.microphone ? SignalPath(SignalPath::Microphone{}, channels, 0, plan.block, rate)
                                 : SignalPath(SignalPath::Speaker{}, channels, ports.kind.mask, plan.block, rate);
    adapter.emplace(ports.kind.channels, slots, ports.kind.outputs(), plan.block, plan.delay);
    hand();
}

void Plugin::run(std::uint32_t n)
{
    const FlushToZero flush;
    readMessages();
    steer();
    tellPath();

    for (std::uint32_t c = 0; c < in.size(); ++c)
        in[c] = at<const float>(c);
    for (std::uint32_t c = 0; c < out.size(); ++c)
        out[c] = at<float>(ports.kind.channels + c);
    adapter->process(in.data(), out.data(), n, [this](float* x, float* y) { runBlock(x, y); });

    if (auto* latency = at<float>(ports.latency())) // a call of another length may have added some
        *latency = static_cast<float>(adapter->delay());
    if (const float* levels = path->levels(); levels != nullptr)
        for (std::uint32_t band = 0; band < levelCount; ++band)
            if (auto* level = at<float>(ports.firstLevel() + band))
                *level = levels[band];
}

// A block that the path refuses is silence.
void Plugin::runBlock(float* x, float* y) noexcept
{
    border.pass(x, plan.block);
    try {
        path->process(x, plan.block, y, plan.block);
    } catch (const std::exception&) {
        std::fill_n(y, std::size_t{plan.block} * slots, 0.0F);
    }
}

// The ports' values, within their ranges, as the path's settings.
void Plugin::steer()
{
    bool changed = false;
    for (std::size_t k = 0; k < ports.settings.size(); ++k) {
        const SettingsField& field = *ports.settings[k];
        const auto* place = at<const float>(ports.firstSetting() + static_cast<std::uint32_t>(k));
        if (place == nullptr)
            continue;
        const auto low = static_cast<float>(field.low);
        const auto high = static_cast<float>(field.high);
        const float value = *place >= low ? std::min(*place, high) : low; // low for what is no number
        const auto setting = static_cast<std::int64_t>(std::lround(value));
        if (setting == settingOf(record, field))
            continue;
        setSetting(record, field, setting);
        changed = true;
    }
    if (changed)
        hand();
}

// A path takes a record over whose sequence is another.
void Plugin::hand()
{
    ++record.blockSequence;
    *path->settings() = record;
}

// ---- the file of responses -----------------------------------------------------------------------------------------

void Plugin::readMessages()
{
    const auto* messages = ports.kind.microphone ? nullptr : at<const LV2_Atom_Sequence>(ports.messagesIn());
    if (messages == nullptr)
        return;
    LV2_ATOM_SEQUENCE_FOREACH(messages, event)
    {
        if (!lv2_atom_forge_is_object_type(&forge, event->body.type))
            continue;
        const auto* message = reinterpret_cast<const LV2_Atom_Object*>(&event->body);
        if (message->body.otype == urids.patchGet)
            pathIsAsked = true;
        if (message->body.otype != urids.patchSet)
            continue;
        const LV2_Atom* property = nullptr;
        const LV2_Atom* value = nullptr;
        lv2_atom_object_get(message, urids.patchProperty, &property, urids.patchValue, &value, 0);
        if (property == nullptr || property->type != urids.atomUrid ||
            reinterpret_cast<const LV2_Atom_URID*>(property)->body != urids.responses || value == nullptr ||
            value->type != urids.atomPath)
            continue;
        order(nullptr, static_cast<const char*>(LV2_ATOM_BODY_CONST(value)), value->size);
    }
}

// Tells the host which file is in force, if it has asked or if that has changed.
void Plugin::tellPath()
{
    auto* place = ports.kind.microphone ? nullptr : at<LV2_Atom_Sequence>(ports.messagesOut());
    if (place == nullptr)
        return;
    LV2_Atom_Forge_Frame sequence;
    lv2_atom_forge_set_buffer(&forge, reinterpret_cast<std::uint8_t*>(place), place->atom.size);
    lv2_atom_forge_sequence_head(&forge, &sequence, 0);
    if (pathIsAsked) {
        pathIsAsked = false;
        LV2_Atom_Forge_Frame message;
        lv2_atom_forge_frame_time(&forge, 0);
        lv2_atom_forge_object(&forge, &message, 0, urids.patchSet);
        lv2_atom_forge_key(&forge, urids.patchProperty);
        lv2_atom_forge_urid(&forge, urids.responses);
        lv2_atom_forge_key(&forge, urids.patchValue);
        const std::uint32_t length = responses ? static_cast<std::uint32_t>(responses->path.size()) : 0;
        lv2_atom_forge_path(&forge, responses ? responses->path.c_str() : "", length);
        lv2_atom_forge_pop(&forge, &message);
    }
    lv2_atom_forge_pop(&forge, &sequence);
}

// length: bytes of the path, its end's zero perhaps among them. False when there is nobody to do it.
bool Plugin::order(Responses* release, const char* file, std::uint32_t length)
{
    if (worker == nullptr || length >= longestPath)
        return false;
    scratch.release = release;
    std::memcpy(scratch.path, file, length);
    scratch.path[length] = '\0';
    const auto size = static_cast<std::uint32_t>(offsetof(Order, path)) + length + 1;
    return worker->schedule_work(worker->handle, size, &scratch) == LV2_WORKER_SUCCESS;
}

// The built-in set for an empty path. Throws for a file that gives none.
std::unique_ptr<Responses> Plugin::load(const std::string& file)
{
    if (file.empty())
        return std::make_unique<Responses>(Responses{file, packBuiltInSet(ports.kind.mask), nullptr});
    const ImportedSet imported = importHrtf(file, Equalize::byDiffuseField, 0, [] {});
    return std::make_unique<Responses>(Responses{file, packSet(imported.set, ports.kind.mask), nullptr});
}

void Plugin::work(LV2_Worker_Respond_Function respond, LV2_Worker_Respond_Handle handle, const Order& job)
{
    if (job.release != nullptr) {
        delete job.release;
        return;
    }
    try {
        const Answer answer{load(job.path).release()};
        if (respond(handle, sizeof(answer), &answer) != LV2_WORKER_SUCCESS)
            delete answer.set;
    } catch (const std::exception& error) {
        lv2_log_error(&logger, "%s: %s\n", ports.uri(), error.what());
    }
}

// The audio thread, or nobody's while no thread runs the plug-in.
void Plugin::take(Responses* set)
{
    Responses* before = responses.release(); // which the path has copied
    responses.reset(set);
    record.hrtfId += 1;
    record.hrtfLength = spectrumFloats;
    record.hrtfChannels = ports.kind.channels;
    record.hrtfData = set->spectra.data();
    hand();
    pathIsAsked = true;
    if (worker == nullptr)
        delete before; // there is no audio thread either: the state is being restored
    else if (before != nullptr && !order(before, "", 0))
        set->replaced.reset(before);
}

// ---- state: what the ports do not hold -----------------------------------------------------------------------------

void Plugin::save(LV2_State_Store_Function store, LV2_State_Handle handle, const LV2_Feature* const* features) const
{
    if (!responses || responses->path.empty())
        return;
    const auto* paths = featureOf<LV2_State_Map_Path>(features, LV2_STATE__mapPath);
    char* mapped = paths != nullptr ? paths->abstract_path(paths->handle, responses->path.c_str()) : nullptr;
    const std::string named = mapped != nullptr ? mapped : responses->path;
    store(handle, urids.responses, named.c_str(), named.size() + 1, urids.atomPath, LV2_STATE_IS_POD);
    release(features, mapped);
}

// No audio thread runs the plug-in meanwhile.
void Plugin::restore(LV2_State_Retrieve_Function retrieve, LV2_State_Handle handle, const LV2_Feature* const* features)
{
    std::size_t size = 0;
    std::uint32_t type = 0;
    std::uint32_t flags = 0;
    const void* value = map != nullptr ? retrieve(handle, urids.responses, &size, &type, &flags) : nullptr;
    std::string named;
    if (value != nullptr && type == urids.atomPath && size != 0)
        named.assign(static_cast<const char*>(value), size - 1);
    if (named.empty()) {
        if (responses)
            take(load({}).release());
        return;
    }
    const auto* paths = featureOf<LV2_State_Map_Path>(features, LV2_STATE__mapPath);
    char* mapped = paths != nullptr ? paths->absolute_path(paths->handle, named.c_str()) : nullptr;
    if (mapped != nullptr)
        named = mapped;
    release(features, mapped);
    take(load(named).release());
}

// What the host has allocated.
void Plugin::release(const LV2_Feature* const* features, char* mapped)
{
    if (mapped == nullptr)
        return;
    if (const auto* host = featureOf<LV2_State_Free_Path>(features, LV2_STATE__freePath))
        host->free_path(host->handle, mapped);
    else
        std::free(mapped);
}

// ---- the functions that a host calls -------------------------------------------------------------------------------

Plugin& plugin(LV2_Handle handle)
{
    return *static_cast<Plugin*>(handle);
}

template <bool microphone>
LV2_Handle instantiate(const LV2_Descriptor*, double rate, const char*, const LV2_Feature* const* features)
{
    try {
        return new Plugin(microphone, static_cast<std::uint32_t>(std::lround(rate)), features);
    } catch (const std::exception&) {
        return nullptr;
    }
}

void activate(LV2_Handle handle)
{
    try {
        plugin(handle).start();
    } catch (const std::exception&) {
        // It could be built once, so what lacks is memory: the path goes on as it is.
    }
}

LV2_Worker_Status work(LV2_Handle handle, LV2_Worker_Respond_Function respond, LV2_Worker_Respond_Handle answer, std::uint32_t,
                       const void* data)
{
    plugin(handle).work(respond, answer, *static_cast<const Order*>(data));
    return LV2_WORKER_SUCCESS;
}

LV2_Worker_Status takeAnswer(LV2_Handle handle, std::uint32_t, const void* data)
{
    Answer answer{};
    std::memcpy(&answer, data, sizeof(answer));
    plugin(handle).take(answer.set);
    return LV2_WORKER_SUCCESS;
}

LV2_State_Status saveState(LV2_Handle handle, LV2_State_Store_Function store, LV2_State_Handle state, std::uint32_t,
                           const LV2_Feature* const* features)
{
    try {
        plugin(handle).save(store, state, features);
        return LV2_STATE_SUCCESS;
    } catch (const std::exception&) {
        return LV2_STATE_ERR_UNKNOWN; // there is too little memory
    }
}

LV2_State_Status restoreState(LV2_Handle handle, LV2_State_Retrieve_Function retrieve, LV2_State_Handle state, std::uint32_t,
                              const LV2_Feature* const* features)
{
    try {
        plugin(handle).restore(retrieve, state, features);
        return LV2_STATE_SUCCESS;
    } catch (const std::exception&) {
        return LV2_STATE_ERR_UNKNOWN; // the file is gone, or none of responses
    }
}

const void* extension(const char* uri)
{
    static const LV2_Worker_Interface worker{work, takeAnswer, nullptr};
    static const LV2_State_Interface state{saveState, restoreState};
    if (std::strcmp(uri, LV2_WORKER__interface) == 0)
        return &worker;
    return std::strcmp(uri, LV2_STATE__interface) == 0 ? &state : nullptr;
}

template <bool microphone>
const LV2_Descriptor* describe()
{
    static const std::string uri = PluginPorts(microphone).uri();
    static const LV2_Descriptor descriptor{
        uri.c_str(),
        instantiate<microphone>,
        [](LV2_Handle handle, std::uint32_t port, void* data) { plugin(handle).connect(port, data); },
        activate,
        [](LV2_Handle handle, std::uint32_t n) { plugin(handle).run(n); },
        nullptr,
        [](LV2_Handle handle) { delete static_cast<Plugin*>(handle); },
        microphone ? nullptr : extension};
    return &descriptor;
}

} // namespace
} // namespace quorel

LV2_SYMBOL_EXPORT const LV2_Descriptor* lv2_descriptor(std::uint32_t index)
{
    try {
        return index == 0 ? quorel::describe<false>() : index == 1 ? quorel::describe<true>() : nullptr;
    } catch (const std::exception&) {
        return nullptr; // there is too little memory
    }
}
