// SPDX-License-Identifier: MIT
// A second-order section as the filters' initialisation sees it: a0 divided out, and how close its poles come to the circle.
#pragma once

#include <algorithm>
#include <cmath>

namespace quorel::kernels {

struct Section {
    double b[3];
    double a[3];
    double critical; // the cosine of the angle on the unit circle at which the denominator is least in magnitude
    double weakest;  // its magnitude there
};

// |p0 + p1*z^-1 + p2*z^-2| at the angle on the unit circle whose cosine is c.
inline double magnitude(const double* p, double c) noexcept
{
    const double square = 4 * p[0] * p[2] * c * c + 2 * p[1] * (p[0] + p[2]) * c + (p[0] - p[2]) * (p[0] - p[2]) + p[1] * p[1];
    return std::sqrt(std::max(square, 0.0));
}

// The c at which that is least: the vertex of the parabola where it opens upwards and the vertex is a cosine, else an end.
inline double critical(const double* p) noexcept
{
    const double curvature = 4 * p[0] * p[2];
    const double slope = p[1] * (p[0] + p[2]);
    if (curvature > 0 && std::abs(slope) < curvature)
        return -slope / curvature;
    return slope < 0 ? 1.0 : -1.0;
}

// How far the section lifts or lowers a tone where its denominator or its numerator is least, in powers of two.
inline double reach(const Section& section) noexcept
{
    const double deepest = critical(section.b);
    return std::max(std::abs(std::log2(magnitude(section.b, section.critical) / section.weakest)),
                    std::abs(std::log2(magnitude(section.b, deepest) / magnitude(section.a, deepest))));
}

// A section from its six taps.
template <class Tap>
Section sectionOf(const Tap* t) noexcept
{
    const double a0 = t[3];
    Section section = {{t[0] / a0, t[1] / a0, t[2] / a0}, {1.0, t[4] / a0, t[5] / a0}, 0.0, 0.0};
    section.critical = critical(section.a);
    const double weakest = magnitude(section.a, section.critical);
    section.weakest = weakest >= 0 ? weakest : 0.0; // not-a-number would lead a sort astray
    return section;
}

} // namespace quorel::kernels
