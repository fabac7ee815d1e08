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

// |1 + a1*z^-1 + a2*z^-2| at the angle on the unit circle whose cosine is c.
inline double magnitude(const double* a, double c) noexcept
{
    const double square = 4 * a[2] * c * c + 2 * a[1] * (1 + a[2]) * c + (1 - a[2]) * (1 - a[2]) + a[1] * a[1];
    return std::sqrt(std::max(square, 0.0));
}

// The c at which that is least: the vertex of the parabola where it opens upwards and the vertex is a cosine, else an end.
inline double critical(const double* a) noexcept
{
    if (a[2] > 0 && std::abs(a[1] * (1 + a[2])) < 4 * a[2])
        return -a[1] * (1 + a[2]) / (4 * a[2]);
    return a[1] * (1 + a[2]) < 0 ? 1.0 : -1.0;
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
