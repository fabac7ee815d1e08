// SPDX-License-Identifier: MIT
// The one quorel-live of a user: a lock that only one process has, and a socket by which others ask it for its status and give
// it commands. Both lie in $XDG_RUNTIME_DIR/quorel, which only the user may enter.
//
// A command is one line; the answer is a JSON object on one line, with the member "error" if the command was refused.
#pragma once

#include "live/loop_source.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

namespace quorel {

// Held by the one that runs, and given up by whatever ends it.
class InstanceLock {
public:
    // Throws std::runtime_error when another process has it, or when there is no folder for it.
    InstanceLock();
    ~InstanceLock();
    InstanceLock(const InstanceLock&) = delete;
    InstanceLock& operator=(const InstanceLock&) = delete;

private:
    int file;
};

// Serves commands on the main loop's thread. Needs the lock.
class CommandSocket {
public:
    // answer: the answer to a command.
    CommandSocket(pw_loop* loop, std::function<std::string(const std::string&)> answer);
    ~CommandSocket();
    CommandSocket(const CommandSocket&) = delete;
    CommandSocket& operator=(const CommandSocket&) = delete;

private:
    void admit(int file);
    void serve(int file);
    std::string replyTo(std::string_view received) const;

    pw_loop* loop;
    std::function<std::string(const std::string&)> answer;
    std::string path;
    std::unique_ptr<LoopInput> door;
    std::map<int, std::unique_ptr<LoopInput>> callers; // by their files
};

} // namespace quorel
