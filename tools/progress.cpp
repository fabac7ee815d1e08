// SPDX-License-Identifier: MIT
#include "tools/progress.h"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <iostream>
#include <sstream>

namespace quorel {

void Progress::endLine()
{
    const std::lock_guard hold(mutex);
    if (drawn)
        std::cerr << '\n';
    drawn = false;
}

void Progress::advance(double weight)
{
    constexpr int barWidth = 50; // characters
    const std::lock_guard hold(mutex);
    done += weight;
    const auto now = std::chrono::steady_clock::now();
    const double share = total > 0 ? std::clamp(done / static_cast<double>(total), 0.0, 1.0) : 0;
    const bool complete = share >= 1;
    if (!shown || (!complete && now - last < std::chrono::milliseconds(100)))
        return;
    last = now;
    drawn = true;

    const double taken = std::chrono::duration<double>(now - begin).count();
    const auto left = static_cast<long>(std::ceil(share > 0 ? taken * (1 - share) / share : 0));
    const auto filled = static_cast<std::size_t>(share * barWidth);
    std::ostringstream text;
    text << '\r' << std::setw(3) << static_cast<int>(share * 100) << "% [" << std::string(filled, '*')
         << std::string(barWidth - filled, '.') << "] " << std::setw(3) << left / 60 << ':' << std::setfill('0') << std::setw(2)
         << left % 60 << " left";
    std::cerr << text.str() << std::flush;
}

} // namespace quorel
