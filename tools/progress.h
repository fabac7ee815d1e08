// SPDX-License-Identifier: MIT
// Progress is a bar on standard error with the time that is left, over all the files of a run. Any thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>

namespace quorel {

class Progress {
public:
    // total: the weight of all files. Without `shown` nothing is ever drawn.
    Progress(std::uint64_t total, bool shown) : total(total), shown(shown) {}
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    ~Progress() { endLine(); }

    // So much more of the weight is done.
    void advance(double weight);

    // Leaves the bar as it is, for a line behind it.
    void endLine();

private:
    double done = 0;
    std::uint64_t total;
    bool shown;
    bool drawn = false;
    std::chrono::steady_clock::time_point begin = std::chrono::steady_clock::now();
    std::chrono::steady_clock::time_point last{};
    std::mutex mutex;
};

// One file's part of the bar.
class FileProgress {
public:
    FileProgress(Progress& all, std::uint64_t weight) : all(all), weight(static_cast<double>(weight)) {}

    // share: of the file that is done, 0 to 1.
    void at(double share)
    {
        all.advance((share - told) * weight);
        told = share;
    }

private:
    Progress& all;
    double weight;
    double told = 0;
};

} // namespace quorel
