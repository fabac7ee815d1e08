// SPDX-License-Identifier: MIT
// LimitedSource reads what nobody vouches for in a child process that may harm nobody: it may read files, answer and end, with
// limits of time and memory, and may hang or crash. What it gives comes piece by piece, for as long as somebody wants it.
#pragma once

#include "platform/programs/limited_work.h"

#include <cstddef>
#include <functional>
#include <string>
#include <sys/types.h>

namespace quorel::platform {

class LimitedSource {
public:
    using Give = std::function<void(const void* bytes, std::size_t count)>;

    // Begins `work` in the child, which has nothing open but what it opens, and the descriptor `kept` unless that is negative.
    // `wait` is called several times a second while bytes are waited for, and may throw.
    LimitedSource(const std::function<void(const Give&)>& work, const WorkLimits& limits, std::function<void()> wait, int kept);
    ~LimitedSource();
    LimitedSource(const LimitedSource&) = delete;
    LimitedSource& operator=(const LimitedSource&) = delete;

    // Waits for the next bytes and returns how many come; fewer than `bytes` only at the work's end. What the work throws is
    // thrown as std::runtime_error with the same text; so is a limit that it meets, and its crash.
    std::size_t read(void* to, std::size_t bytes);

private:
    struct Piece;

    bool receive(void* to, std::size_t bytes);
    void nextPiece();
    int endChild() noexcept;
    [[noreturn]] void tellCrash();

    WorkLimits limits;
    std::function<void()> wait;
    int pipe = -1;
    pid_t child = -1;
    std::size_t left = 0; // bytes of the piece that has begun
    std::size_t all = 0;  // bytes given so far
    bool ended = false;
};

// All that `work` gives, done in such a child.
std::string doInChild(const std::function<std::string()>& work, const WorkLimits& limits, const std::function<void()>& wait);

} // namespace quorel::platform
