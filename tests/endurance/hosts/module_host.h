// SPDX-License-Identifier: MIT
// An effect object as an audio engine drives it: one locked stream of an endpoint, by the module's own entry.
#pragma once

#include <cstdint>
#include <memory>

namespace quorel {

class ModuleHost {
public:
    // mask: 0 for a microphone. longest: frames of a block.
    ModuleHost(bool render, std::uint32_t channels, std::uint32_t mask, std::uint32_t rate, std::uint32_t longest);
    ~ModuleHost();
    ModuleHost(const ModuleHost&) = delete;
    ModuleHost& operator=(const ModuleHost&) = delete;

    // One block of interleaved frames. False where the effect refuses it.
    bool process(const float* in, float* out, std::uint32_t n);

    // An endpoint's entry in the registry, for as long as this object lives.
    class Endpoint {
    public:
        explicit Endpoint(bool render);
        ~Endpoint();
        Endpoint(const Endpoint&) = delete;
        Endpoint& operator=(const Endpoint&) = delete;

    private:
        friend class ModuleHost;
        struct Entry;
        std::unique_ptr<Entry> entry;
        bool render;
    };

    // Whether an effect object can be made, initialised and locked; any refusal is a result.
    static bool starts(const Endpoint& endpoint);

private:
    struct Stream;
    std::unique_ptr<Stream> stream;
};

} // namespace quorel
