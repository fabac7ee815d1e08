// SPDX-License-Identifier: MIT
// What PipeWire's loop calls, for as long as the object lives: a timer, an event, a file that can be read. All is called on the
// loop's thread; what is called may destroy the object.
#pragma once

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <pipewire/pipewire.h>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <utility>

namespace quorel {

class LoopSource {
public:
    LoopSource(const LoopSource&) = delete;
    LoopSource& operator=(const LoopSource&) = delete;

protected:
    LoopSource(pw_loop* loop, std::function<void()> call) : loop(loop), call(std::move(call)) {}

    ~LoopSource()
    {
        if (source != nullptr)
            pw_loop_destroy_source(loop, source);
    }

    // `made`: null when the system refuses it.
    void take(spa_source* made)
    {
        if (made == nullptr)
            throw std::runtime_error(std::string("PipeWire's loop: ") + std::strerror(errno));
        source = made;
    }

    static void run(void* self)
    {
        const std::function<void()> called = static_cast<LoopSource*>(self)->call; // outlives the object
        called();
    }

    pw_loop* loop;
    spa_source* source = nullptr;

private:
    std::function<void()> call;
};

class LoopTimer : public LoopSource {
public:
    // It stands. Throws std::runtime_error when the system has no timer left.
    LoopTimer(pw_loop* loop, std::function<void()> call) : LoopSource(loop, std::move(call))
    {
        take(pw_loop_add_timer(
            loop, [](void* self, std::uint64_t) { run(self); }, static_cast<LoopSource*>(this)));
    }

    // In ns, more than 0.
    void once(std::int64_t after) { set(after, 0); }
    void every(std::int64_t period) { set(period, period); }

    void stop() { set(0, 0); }

private:
    static timespec timeOf(std::int64_t ns) { return {ns / 1'000'000'000, ns % 1'000'000'000}; }

    void set(std::int64_t first, std::int64_t period)
    {
        timespec value = timeOf(first);
        timespec interval = timeOf(period);
        pw_loop_update_timer(loop, source, &value, &interval, false);
    }
};

class LoopEvent : public LoopSource {
public:
    // Throws std::runtime_error when the system has no event left.
    LoopEvent(pw_loop* loop, std::function<void()> call) : LoopSource(loop, std::move(call))
    {
        take(pw_loop_add_event(
            loop, [](void* self, std::uint64_t) { run(self); }, static_cast<LoopSource*>(this)));
    }

    // On any thread, the audio thread too.
    void signal() { pw_loop_signal_event(loop, source); }
};

// A file that can be read, or has come to its end.
class LoopInput : public LoopSource {
public:
    // The file is closed with the object. Null, with the file closed, when the system refuses to watch it.
    static std::unique_ptr<LoopInput> of(pw_loop* loop, int file, std::function<void()> call)
    {
        std::unique_ptr<LoopInput> input(new LoopInput(loop, std::move(call)));
        input->source = pw_loop_add_io(
            loop, file, SPA_IO_IN | SPA_IO_HUP | SPA_IO_ERR, true, [](void* self, int, std::uint32_t) { run(self); },
            static_cast<LoopSource*>(input.get()));
        if (input->source != nullptr)
            return input;
        close(file);
        return nullptr;
    }

private:
    using LoopSource::LoopSource;
};

} // namespace quorel
