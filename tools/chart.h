// SPDX-License-Identifier: MIT
// Charts: what is drawn, apart from how. A file of them is a picture (.svg, .png) or the numbers (.csv).
#pragma once

#include <string>
#include <vector>

namespace quorel {

struct Axis {
    std::string label;
    double from = 0;
    double to = 1;
    bool octaves = false;      // as far apart as their logarithms
    std::vector<double> marks; // values that are named
};

struct Series {
    std::string name;
    std::vector<double> values; // one for each place
};

struct Chart {
    std::string title;
    Axis across;
    Axis up;
    std::vector<double> places; // on the axis across
    std::vector<Series> series; // lines; those of a map are rows of colour instead
    std::vector<double> rows;   // of a map: the rows' places on the axis up, evenly apart; empty: no map
    double palest = 0;          // of a map: the values of both ends of its colours
    double darkest = 1;
};

// Third of a decade apart, as on a scale of frequencies in Hz.
Axis frequencyAxis(double from, double to);

// Throws std::runtime_error with a text for the user where the name's ending is none of a chart.
void checkChartName(const std::string& path);

// In so many columns. The file gets its name when it is complete. Throws std::runtime_error with a text for the user.
void writeCharts(const std::vector<Chart>& charts, std::size_t columns, const std::string& path);

} // namespace quorel
