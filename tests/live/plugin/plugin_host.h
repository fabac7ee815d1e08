// SPDX-License-Identifier: MIT
// A host of one of the plug-ins, with what it offers them. It allocates nothing where it calls the plug-in on its audio thread.
#pragma once

#include "live/lv2_ports.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <lv2/atom/forge.h>
#include <lv2/buf-size/buf-size.h>
#include <lv2/core/lv2.h>
#include <lv2/log/log.h>
#include <lv2/options/options.h>
#include <lv2/patch/patch.h>
#include <lv2/state/state.h>
#include <lv2/urid/urid.h>
#include <lv2/worker/worker.h>
#include <stdexcept>
#include <string>
#include <vector>

namespace quorel {

class PluginHost {
public:
    struct Offer {
        std::int32_t promised = 0; // frames in each call; 0: no promise
        bool mapping = true;
        bool worker = true;
        LV2_Log_Log* log = nullptr;
    };

    PluginHost(const LV2_Descriptor& descriptor, bool microphone, const Offer& offer)
        : ports(microphone), descriptor(&descriptor), values(ports.count()), sound(8 * 256)
    {
        map = {this, [](LV2_URID_Map_Handle host, const char* uri) { return static_cast<PluginHost*>(host)->id(uri); }};
        schedule = {this, [](LV2_Worker_Schedule_Handle host, std::uint32_t size, const void* data) {
                        auto& self = *static_cast<PluginHost*>(host);
                        return !self.full && self.orders.add(size, data) ? LV2_WORKER_SUCCESS : LV2_WORKER_ERR_NO_SPACE;
                    }};
        const std::int32_t length = offer.promised;
        const LV2_Options_Option options[] = {
            {LV2_OPTIONS_INSTANCE, 0, id(LV2_BUF_SIZE__minBlockLength), sizeof length, id(LV2_ATOM__Int), &length},
            {LV2_OPTIONS_INSTANCE, 0, id(LV2_BUF_SIZE__maxBlockLength), sizeof length, id(LV2_ATOM__Int), &length},
            {LV2_OPTIONS_INSTANCE, 0, 0, 0, 0, nullptr}};
        const LV2_Feature mapping{LV2_URID__map, &map};
        const LV2_Feature working{LV2_WORKER__schedule, &schedule};
        const LV2_Feature lengths{LV2_OPTIONS__options, const_cast<LV2_Options_Option*>(options)};
        const LV2_Feature logging{LV2_LOG__log, offer.log};
        std::vector<const LV2_Feature*> features;
        if (offer.mapping)
            features.push_back(&mapping);
        if (offer.worker)
            features.push_back(&working);
        if (offer.promised != 0)
            features.push_back(&lengths);
        if (offer.log != nullptr)
            features.push_back(&logging);
        features.push_back(nullptr);
        handle = descriptor.instantiate(&descriptor, 48000, "", features.data());
        if (handle == nullptr)
            throw std::runtime_error("no instance");
        for (std::uint32_t port = ports.latency(); port < ports.count(); ++port)
            descriptor.connect_port(handle, port, &values[port]);
        for (std::uint32_t c = 0; c < ports.kind.channels; ++c)
            descriptor.connect_port(handle, c, sound.data() + std::size_t{c} * 256);
        for (std::uint32_t c = 0; c < ports.kind.outputs(); ++c)
            descriptor.connect_port(handle, ports.kind.channels + c, made[c].data());
        if (!microphone) {
            descriptor.connect_port(handle, ports.messagesIn(), in.data());
            descriptor.connect_port(handle, ports.messagesOut(), out.data());
        }
        lv2_atom_forge_init(&forge, &map);
        setUrid = id(LV2_PATCH__Set);
        propertyUrid = id(LV2_PATCH__property);
        valueUrid = id(LV2_PATCH__value);
        responsesUrid = id(responsesUri);
        descriptor.activate(handle);
    }

    ~PluginHost() { descriptor->cleanup(handle); }
    PluginHost(const PluginHost&) = delete;
    PluginHost& operator=(const PluginHost&) = delete;

    LV2_URID id(const std::string& uri)
    {
        for (std::size_t k = 0; k < uris.size(); ++k)
            if (uris[k] == uri)
                return static_cast<LV2_URID>(k + 1);
        uris.push_back(uri);
        return static_cast<LV2_URID>(uris.size());
    }

    void set(const char* name, float value)
    {
        for (std::size_t k = 0; k < ports.settings.size(); ++k)
            if (std::strcmp(name, ports.settings[k]->name) == 0)
                values[ports.firstSetting() + k] = value;
    }

    // One call of at most 256 frames; the message is given with it if there is a path.
    void run(const char* responses = nullptr, std::uint32_t n = 256)
    {
        runWith(
            [&] {
                if (responses != nullptr)
                    forgeSet(responsesUrid,
                             [&] { lv2_atom_forge_path(&forge, responses, static_cast<std::uint32_t>(std::strlen(responses))); });
            },
            n);
    }

    // The same with the messages that `write` forges.
    template <typename Write>
    void runWith(Write write, std::uint32_t n = 256)
    {
        LV2_Atom_Forge_Frame sequence;
        lv2_atom_forge_set_buffer(&forge, reinterpret_cast<std::uint8_t*>(in.data()), sizeof in);
        lv2_atom_forge_sequence_head(&forge, &sequence, 0);
        write();
        lv2_atom_forge_pop(&forge, &sequence);
        auto* told = reinterpret_cast<LV2_Atom*>(out.data());
        told->size = sizeof out - sizeof(LV2_Atom);
        enter();
        descriptor->run(handle, n);
        leave();
    }

    // A message that sets a property to what `value` forges.
    template <typename Value>
    void forgeSet(LV2_URID property, Value value)
    {
        LV2_Atom_Forge_Frame message;
        lv2_atom_forge_frame_time(&forge, 0);
        lv2_atom_forge_object(&forge, &message, 0, setUrid);
        lv2_atom_forge_key(&forge, propertyUrid);
        lv2_atom_forge_urid(&forge, property);
        lv2_atom_forge_key(&forge, valueUrid);
        value();
        lv2_atom_forge_pop(&forge, &message);
    }

    // The worker's thread does what was scheduled.
    void work()
    {
        while (orders.next([this](std::uint32_t size, const void* order) {
            worker().work(
                handle,
                [](LV2_Worker_Respond_Handle host, std::uint32_t length, const void* answer) {
                    auto& self = *static_cast<PluginHost*>(host);
                    return !self.deaf && self.answers.add(length, answer) ? LV2_WORKER_SUCCESS : LV2_WORKER_ERR_NO_SPACE;
                },
                this, size, order);
        })) {
        }
    }

    // The audio thread hears of it.
    void answer()
    {
        enter();
        while (answers.next([this](std::uint32_t size, const void* data) { worker().work_response(handle, size, data); })) {
        }
        leave();
    }

    // All that was scheduled, and what comes of it.
    void settle()
    {
        while (!orders.empty()) {
            work();
            answer();
        }
    }

    bool hasOrders() const { return !orders.empty(); }

    const LV2_State_Interface& state() const
    {
        return *static_cast<const LV2_State_Interface*>(descriptor->extension_data(LV2_STATE__interface));
    }

    float latency() const { return values[ports.latency()]; }

    PluginPorts ports;
    const LV2_Descriptor* descriptor;
    LV2_Handle handle = nullptr;
    std::vector<float> values;
    std::vector<float> sound; // of each channel, 256 frames
    std::array<std::array<float, 256>, 2> made{};
    alignas(8) std::array<char, 8192> in{};
    alignas(8) std::array<char, 8192> out{};
    LV2_Atom_Forge forge{}; // of the messages to the plug-in
    LV2_URID responsesUrid = 0;
    bool full = false;       // its worker takes no work
    bool deaf = false;       // its worker has no room for answers
    void (*enter)() = [] {}; // called ahead of each piece of the audio thread's work in the plug-in
    void (*leave)() = [] {}; // and behind it

private:
    // Messages between the threads, in order.
    class Queue {
    public:
        bool add(std::uint32_t size, const void* data)
        {
            if (count == messages.size() || size > sizeof(Message::bytes))
                return false;
            Message& message = messages[(first + count) % messages.size()];
            message.size = size;
            std::memcpy(message.bytes, data, size);
            ++count;
            return true;
        }
        // False when there is none.
        template <typename Take>
        bool next(Take take)
        {
            if (count == 0)
                return false;
            const Message message = messages[first];
            first = (first + 1) % messages.size();
            --count;
            take(message.size, message.bytes);
            return true;
        }
        bool empty() const { return count == 0; }

    private:
        struct Message {
            std::uint32_t size;
            alignas(8) char bytes[4200];
        };
        std::array<Message, 8> messages{};
        std::size_t first = 0;
        std::size_t count = 0;
    };

    const LV2_Worker_Interface& worker() const
    {
        return *static_cast<const LV2_Worker_Interface*>(descriptor->extension_data(LV2_WORKER__interface));
    }

    LV2_URID_Map map{};
    LV2_Worker_Schedule schedule{};
    LV2_URID setUrid = 0, propertyUrid = 0, valueUrid = 0;
    std::vector<std::string> uris;
    Queue orders;  // to the worker
    Queue answers; // from it
};

} // namespace quorel
