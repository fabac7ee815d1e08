// SPDX-License-Identifier: MIT
#include "tools/hrtf_plot.h"

#include "platform/programs/atomic_file.h"
#include "speaker/built_in.h"

#include <cairo-svg.h>
#include <cairo.h>
#include <cmath>
#include <memory>
#include <stdexcept>

namespace quorel {

namespace {

constexpr double width = 1200; // of the picture, in points
constexpr double height = 800;
constexpr double margin = 50;

struct FreeSurface {
    void operator()(cairo_surface_t* surface) const noexcept { cairo_surface_destroy(surface); }
};
struct FreeContext {
    void operator()(cairo_t* context) const noexcept { cairo_destroy(context); }
};
using Surface = std::unique_ptr<cairo_surface_t, FreeSurface>;
using Context = std::unique_ptr<cairo_t, FreeContext>;

cairo_status_t append(void* text, const unsigned char* bytes, unsigned count)
{
    static_cast<std::string*>(text)->append(reinterpret_cast<const char*>(bytes), count);
    return CAIRO_STATUS_SUCCESS;
}

// Far apart for the eye and without red beside green; after Okabe and Ito.
constexpr std::array<std::array<double, 3>, 8> colours = {{{0.00, 0.45, 0.70},
                                                           {0.34, 0.71, 0.91},
                                                           {0.00, 0.00, 0.00},
                                                           {0.60, 0.60, 0.60},
                                                           {0.80, 0.40, 0.00},
                                                           {0.90, 0.62, 0.00},
                                                           {0.00, 0.62, 0.45},
                                                           {0.80, 0.47, 0.65}}};

// One diagram: from what stands on its axes to its place in the picture.
struct Diagram {
    double left, top; // of the inside, in points
    double fromX, toX, fromY, toY;

    static constexpr double across = width / 2 - 1.5 * margin;
    static constexpr double down = height / 2 - 1.7 * margin;

    double x(double value) const { return left + across * (value - fromX) / (toX - fromX); }
    double y(double value) const { return top + down * (toY - std::clamp(value, fromY, toY)) / (toY - fromY); }
};

void text(cairo_t* context, double x, double y, const std::string& words)
{
    cairo_set_source_rgb(context, 0, 0, 0);
    cairo_move_to(context, x, y);
    cairo_show_text(context, words.c_str());
}

struct Mark {
    double place;
    const char* words;
};

void frame(cairo_t* context, const Diagram& diagram, const std::string& title, std::span<const Mark> across,
           std::span<const Mark> up)
{
    cairo_set_line_width(context, 0.5);
    cairo_set_source_rgb(context, 0.75, 0.75, 0.75);
    for (const Mark& mark : across) {
        cairo_move_to(context, diagram.x(mark.place), diagram.top);
        cairo_rel_line_to(context, 0, Diagram::down);
    }
    for (const Mark& mark : up) {
        cairo_move_to(context, diagram.left, diagram.y(mark.place));
        cairo_rel_line_to(context, Diagram::across, 0);
    }
    cairo_stroke(context);
    for (const Mark& mark : across)
        text(context, diagram.x(mark.place) - 8, diagram.top + Diagram::down + 15, mark.words);
    for (const Mark& mark : up)
        text(context, diagram.left - 30, diagram.y(mark.place) + 4, mark.words);
    text(context, diagram.left, diagram.top - 8, title);
}

template <typename Place>
void curve(cairo_t* context, std::size_t row, std::size_t points, const Place& place)
{
    cairo_set_source_rgb(context, colours.at(row)[0], colours.at(row)[1], colours.at(row)[2]);
    cairo_set_line_width(context, 1.2);
    cairo_new_path(context);
    for (std::size_t i = 0; i < points; ++i) {
        const auto [x, y] = place(i);
        cairo_line_to(context, x, y);
    }
    cairo_stroke(context);
}

void draw(cairo_t* context, const FittedSet& set)
{
    cairo_set_source_rgb(context, 1, 1, 1);
    cairo_paint(context);
    cairo_select_font_face(context, "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(context, 11);

    constexpr std::array<Mark, 9> frequencies = {{{63, "63"},
                                                  {125, "125"},
                                                  {250, "250"},
                                                  {500, "500"},
                                                  {1000, "1k"},
                                                  {2000, "2k"},
                                                  {4000, "4k"},
                                                  {8000, "8k"},
                                                  {16000, "16k"}}};
    std::array<Mark, 9> octaves = frequencies;
    for (Mark& mark : octaves)
        mark.place = std::log2(mark.place);
    constexpr std::array<Mark, 5> levels = {{{-40, "-40"}, {-30, "-30"}, {-20, "-20"}, {-10, "-10"}, {0, "0"}}};
    constexpr std::array<Mark, 4> times = {{{0, "0"}, {1, "1"}, {2, "2"}, {3, "3"}}};
    constexpr std::array<Mark, 5> values = {{{-1, "-1"}, {-0.5, "-0.5"}, {0, "0"}, {0.5, "0.5"}, {1, "1"}}};

    for (std::size_t ear = 0; ear < 2; ++ear) {
        const std::string name = ear == 0 ? "Left ear" : "Right ear";
        const double left = margin + static_cast<double>(ear) * width / 2;
        const Diagram spectra{left, margin, std::log2(40.0), std::log2(20000.0), -45, 12};
        const Diagram taps{left, height / 2 + margin / 2, 0, 1000.0 * fittedTaps / hrtfRate, -1.5, 1.5};
        frame(context, spectra, name + ": level in dB over frequency in Hz", octaves, levels);
        frame(context, taps, name + ": taps over time in ms", times, values);
        for (std::size_t row = 0; row < set.taps.size(); ++row) {
            const auto& response = set.taps.at(row).at(ear);
            std::vector<float> packed;
            appendSpectrum(packed, response);
            constexpr double bin = static_cast<double>(hrtfRate) / spectrumFloats;
            constexpr std::size_t last = 426; // 20 kHz
            curve(context, row, last, [&](std::size_t i) {
                const double power = std::hypot(static_cast<double>(packed[2 * i + 1]), static_cast<double>(packed[2 * i + 2]));
                return std::pair(spectra.x(std::log2(bin * static_cast<double>(i + 1))),
                                 spectra.y(20 * std::log10(std::max(power, 1e-9))));
            });
            curve(context, row, response.size(), [&](std::size_t i) {
                return std::pair(taps.x(1000.0 * static_cast<double>(i) / hrtfRate), taps.y(static_cast<double>(response.at(i))));
            });
        }
    }
    for (std::size_t row = 0; row < set.taps.size(); ++row) {
        const double x = margin + static_cast<double>(row) * (width - 2 * margin) / 8;
        cairo_set_source_rgb(context, colours.at(row)[0], colours.at(row)[1], colours.at(row)[2]);
        cairo_rectangle(context, x, height - 22, 20, 4);
        cairo_fill(context);
        text(context, x + 26, height - 16, speakerNames.at(row));
    }
}

} // namespace

void plotSet(const FittedSet& set, const std::string& path)
{
    const bool svg = path.ends_with(".svg");
    if (!svg && !path.ends_with(".png"))
        throw std::runtime_error("cannot draw " + path + ": its ending is neither .svg nor .png");
    platform::AtomicFile file(path);
    std::string bytes;
    {
        const Surface surface(
            svg ? cairo_svg_surface_create_for_stream(append, &bytes, width, height)
                : cairo_image_surface_create(CAIRO_FORMAT_RGB24, static_cast<int>(width), static_cast<int>(height)));
        const Context context(cairo_create(surface.get()));
        draw(context.get(), set);
        cairo_surface_flush(surface.get());
        if (svg)
            cairo_surface_finish(surface.get());
        else
            cairo_surface_write_to_png_stream(surface.get(), append, &bytes);
        if (const cairo_status_t status = cairo_status(context.get()); status != CAIRO_STATUS_SUCCESS)
            throw std::runtime_error("cannot draw " + path + ": " + cairo_status_to_string(status));
    }
    file.write(bytes);
    file.commit();
}

} // namespace quorel
