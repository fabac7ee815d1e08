// SPDX-License-Identifier: MIT
// ResponseImport reads a file of head-related responses and delivers them to the effect, on a thread of its own, and keeps its
// report: what was taken from where and what was cut, or why it was refused.
#pragma once

#include "client/hrtf_set.h"

#include <atomic>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace quorel {

struct ImportReport {
    bool delivered = false;
    std::string path;
    std::string text;             // lines for the user
    std::uint32_t identity = 0;   // of the set that was delivered
    std::optional<FittedSet> set; // when the file could be read
};

class ResponseImport {
public:
    // news: called on the import's thread at its end.
    explicit ResponseImport(std::function<void()> news) : news(std::move(news)) {}

    // Ends an import that is under way.
    ~ResponseImport();
    ResponseImport(const ResponseImport&) = delete;
    ResponseImport& operator=(const ResponseImport&) = delete;

    // False while another import is under way, and then nothing has happened. Without a path the built-in set comes back. told:
    // the mask of the speakers' stream, where a host tells of one.
    bool start(const std::string& path, std::optional<std::uint32_t> told);
    bool running() const { return working; }
    ImportReport report() const; // of the last that has ended

private:
    void run(const std::string& path, std::optional<std::uint32_t> told);
    ImportReport import(const std::string& path, std::optional<std::uint32_t> told) const;
    static ImportReport restore(std::optional<std::uint32_t> told);

    std::function<void()> news;
    std::atomic<bool> working = false;
    std::atomic<bool> ending = false;
    mutable std::mutex mutex;
    ImportReport last;
    std::thread thread;
};

} // namespace quorel
