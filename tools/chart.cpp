// SPDX-License-Identifier: MIT
#include "tools/chart.h"

#include "platform/programs/atomic_file.h"

#include <algorithm>
#include <array>
#include <cairo-svg.h>
#include <cairo.h>
#include <cmath>
#include <iomanip>
#include <memory>
#include <sstream>
#include <stdexcept>

namespace quorel {

namespace {

constexpr double chartWidth = 600; // points, with everything around
constexpr double chartHeight = 400;
constexpr double leftMargin = 55;
constexpr double rightMargin = 20;
constexpr double topMargin = 35;
constexpr double bottomMargin = 75;
constexpr double legendStep = 130; // from one name to the next
constexpr double letter = 5;       // about half of a name's width, for each of its letters

struct FreeSurface {
    void operator()(cairo_surface_t* surface) const noexcept { cairo_surface_destroy(surface); }
};
struct FreeContext {
    void operator()(cairo_t* context) const noexcept { cairo_destroy(context); }
};
using Surface = std::unique_ptr<cairo_surface_t, FreeSurface>;
using Context = std::unique_ptr<cairo_t, FreeContext>;
using Colour = std::array<double, 3>;

// Far apart for the eye and without red beside green; after Okabe and Ito.
constexpr std::array<Colour, 9> colours = {{{0.00, 0.45, 0.70},
                                            {0.34, 0.71, 0.91},
                                            {0.00, 0.00, 0.00},
                                            {0.60, 0.60, 0.60},
                                            {0.80, 0.40, 0.00},
                                            {0.90, 0.62, 0.00},
                                            {0.00, 0.62, 0.45},
                                            {0.80, 0.47, 0.65},
                                            {0.94, 0.80, 0.10}}};

cairo_status_t append(void* text, const unsigned char* bytes, unsigned count)
{
    static_cast<std::string*>(text)->append(reinterpret_cast<const char*>(bytes), count);
    return CAIRO_STATUS_SUCCESS;
}

std::string shortly(double value)
{
    std::ostringstream text;
    if (std::abs(value) >= 1000)
        text << value / 1000 << 'k';
    else
        text << value;
    return text.str();
}

// From a value to its share of the axis, 0 to 1.
double shareOf(const Axis& axis, double value)
{
    const double share =
        axis.octaves ? std::log(value / axis.from) / std::log(axis.to / axis.from) : (value - axis.from) / (axis.to - axis.from);
    return std::clamp(share, 0.0, 1.0);
}

class Drawing {
public:
    Drawing(cairo_t* context, const Chart& chart, double left, double top)
        : context(context), chart(chart), left(left + leftMargin), top(top + topMargin)
    {
    }

    void draw() const
    {
        if (chart.rows.empty())
            lines();
        else
            map();
        grid();
    }

private:
    static constexpr double across = chartWidth - leftMargin - rightMargin;
    static constexpr double down = chartHeight - topMargin - bottomMargin;

    double x(double value) const { return left + across * shareOf(chart.across, value); }
    double y(double value) const { return top + down * (1 - shareOf(chart.up, value)); }

    void use(const Colour& colour) const { cairo_set_source_rgb(context, colour[0], colour[1], colour[2]); }

    void text(double atX, double atY, const std::string& words) const
    {
        use({0, 0, 0});
        cairo_move_to(context, atX, atY);
        cairo_show_text(context, words.c_str());
    }

    void grid() const
    {
        cairo_set_line_width(context, 0.5);
        use({0.75, 0.75, 0.75});
        for (const double mark : chart.across.marks) {
            cairo_move_to(context, x(mark), top);
            cairo_rel_line_to(context, 0, down);
        }
        for (const double mark : chart.up.marks) {
            cairo_move_to(context, left, y(mark));
            cairo_rel_line_to(context, across, 0);
        }
        cairo_stroke(context);
        for (const double mark : chart.across.marks)
            text(x(mark) - letter * static_cast<double>(shortly(mark).size()) / 2, top + down + 15, shortly(mark));
        for (const double mark : chart.up.marks)
            text(left - 35, y(mark) + 4, shortly(mark));
        text(left, top - 10, chart.title);
        text(left + across - 2 * letter * static_cast<double>(chart.across.label.size()) / 1.6, top + down + 30,
             chart.across.label);
        text(left - 45, top - 10, chart.up.label);
    }

    void legend(std::size_t index, const Colour& colour, const std::string& name) const
    {
        constexpr auto columns = static_cast<std::size_t>(across / legendStep);
        const double atX = left + legendStep * static_cast<double>(index % columns);
        const std::size_t line = index / columns;
        const double atY = top + down + 44 + 14 * static_cast<double>(line);
        use(colour);
        cairo_rectangle(context, atX, atY - 6, 18, 5);
        cairo_fill(context);
        text(atX + 24, atY, name);
    }

    void lines() const
    {
        for (std::size_t s = 0; s < chart.series.size(); ++s) {
            const Series& series = chart.series[s];
            use(colours.at(s % colours.size()));
            cairo_set_line_width(context, 1.2);
            cairo_new_path(context);
            for (std::size_t i = 0; i < series.values.size(); ++i)
                if (std::isfinite(series.values[i]))
                    cairo_line_to(context, x(chart.places[i]), y(series.values[i]));
            cairo_stroke(context);
            if (chart.series.size() > 1)
                legend(s, colours.at(s % colours.size()), series.name);
        }
    }

    Colour shade(double value) const
    {
        const double share = std::clamp((value - chart.palest) / (chart.darkest - chart.palest), 0.0, 1.0);
        return {1 - share, 1 - 0.75 * share, 1 - 0.55 * share};
    }

    void map() const
    {
        const double height = down / static_cast<double>(chart.rows.size());
        const double width = across / static_cast<double>(chart.places.size());
        for (std::size_t r = 0; r < chart.rows.size(); ++r)
            for (std::size_t i = 0; i < chart.places.size(); ++i) {
                use(shade(chart.series[r].values[i]));
                cairo_rectangle(context, left + width * static_cast<double>(i), top + down - height * static_cast<double>(r + 1),
                                width + 0.3, height + 0.3); // no seams
                cairo_fill(context);
            }
        legend(0, shade(chart.palest), shortly(chart.palest) + " dB");
        legend(1, shade(chart.darkest), shortly(chart.darkest) + " dB");
    }

    cairo_t* context;
    const Chart& chart;
    double left; // of the inside, in points
    double top;
};

std::string picture(const std::vector<Chart>& charts, std::size_t columns, bool svg, const std::string& path)
{
    const double width = chartWidth * static_cast<double>(columns);
    const std::size_t lines = (charts.size() + columns - 1) / columns;
    const double height = chartHeight * static_cast<double>(lines);
    std::string bytes;
    const Surface surface(
        svg ? cairo_svg_surface_create_for_stream(append, &bytes, width, height)
            : cairo_image_surface_create(CAIRO_FORMAT_RGB24, static_cast<int>(width), static_cast<int>(height)));
    const Context context(cairo_create(surface.get()));
    cairo_set_source_rgb(context.get(), 1, 1, 1);
    cairo_paint(context.get());
    cairo_select_font_face(context.get(), "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(context.get(), 11);
    for (std::size_t i = 0; i < charts.size(); ++i) {
        const std::size_t line = i / columns;
        Drawing(context.get(), charts[i], chartWidth * static_cast<double>(i % columns), chartHeight * static_cast<double>(line))
            .draw();
    }
    cairo_surface_flush(surface.get());
    if (svg)
        cairo_surface_finish(surface.get());
    else
        cairo_surface_write_to_png_stream(surface.get(), append, &bytes);
    if (const cairo_status_t status = cairo_status(context.get()); status != CAIRO_STATUS_SUCCESS)
        throw std::runtime_error("cannot draw " + path + ": " + cairo_status_to_string(status));
    return bytes;
}

// A table for each chart: its title behind a #, a head, a line for each place; an empty line between them.
std::string numbers(const std::vector<Chart>& charts)
{
    std::ostringstream text;
    text << std::setprecision(6);
    for (const Chart& chart : charts) {
        text << (&chart == &charts.front() ? "" : "\n") << "# " << chart.title << '\n' << chart.across.label;
        for (const Series& series : chart.series)
            text << ',' << series.name;
        text << '\n';
        for (std::size_t i = 0; i < chart.places.size(); ++i) {
            text << chart.places[i];
            for (const Series& series : chart.series)
                text << ',' << series.values[i];
            text << '\n';
        }
    }
    return text.str();
}

} // namespace

Axis frequencyAxis(double from, double to)
{
    Axis axis{"Hz", from, to, true, {}};
    for (const double mark : {20, 50, 100, 200, 500, 1000, 2000, 5000, 10000, 20000})
        if (mark >= from && mark <= to)
            axis.marks.push_back(mark);
    return axis;
}

void checkChartName(const std::string& path)
{
    if (!path.ends_with(".svg") && !path.ends_with(".png") && !path.ends_with(".csv"))
        throw std::runtime_error("cannot draw " + path + ": its ending is none of .svg, .png and .csv");
}

void writeCharts(const std::vector<Chart>& charts, std::size_t columns, const std::string& path)
{
    checkChartName(path);
    platform::AtomicFile file(path);
    file.write(path.ends_with(".csv") ? numbers(charts) : picture(charts, columns, path.ends_with(".svg"), path));
    file.commit();
}

} // namespace quorel
