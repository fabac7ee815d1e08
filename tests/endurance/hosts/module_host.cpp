// SPDX-License-Identifier: MIT
#include "tests/endurance/hosts/module_host.h"

#include "tests/host/engine.h"

#include <stdexcept>

namespace quorel {

struct ModuleHost::Stream {
    explicit Stream(bool render) : endpoint(render ? "Render" : "Capture") {}

    EndpointEntry endpoint;
    Effect effect;
};

ModuleHost::ModuleHost(bool render, std::uint32_t channels, std::uint32_t mask, std::uint32_t rate, std::uint32_t longest)
    : stream(std::make_unique<Stream>(render))
{
    if (stream->effect.initialize() != S_OK ||
        stream->effect.lock(floatFormat(channels, static_cast<FLOAT>(rate), mask), longest) != S_OK)
        throw std::runtime_error("no stream");
}

ModuleHost::~ModuleHost() = default;

struct ModuleHost::Endpoint::Entry {
    explicit Entry(bool render) : entry(render ? "Render" : "Capture") {}

    EndpointEntry entry;
    Properties properties{testEndpoint};
};

ModuleHost::Endpoint::Endpoint(bool render) : entry(std::make_unique<Entry>(render)), render(render) {}

ModuleHost::Endpoint::~Endpoint() = default;

bool ModuleHost::starts(const Endpoint& endpoint)
{
    void* made = nullptr;
    if (QUOREL::create(nullptr, IID_IUnknown, &made) != S_OK) {
        EXPECT_EQ(made, nullptr);
        return false;
    }
    Effect effect(static_cast<IUnknown*>(made));
    Properties& properties = endpoint.entry->properties;
    properties.asked.clear();
    auto record = initRecord(properties);
    if (quorel::initialize(*effect.object, record) != S_OK)
        return false;
    return effect.lock(endpoint.render ? surroundFormat() : voiceFormat()) == S_OK;
}

bool ModuleHost::process(const float* in, float* out, std::uint32_t n)
{
    return stream->effect.process(in, out, n) == BUFFER_VALID;
}

} // namespace quorel
