#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Designs the two filters that set the correlation of the reverberator's outputs; writes speaker/xcorr_tables.cpp.

H1 carries a channel to its own side and is close to a pure delay; H2 carries it to the other side and is a low-pass.
Each is a linear least-squares problem in its 140 taps. docs/xcorr_tables.md tells what was chosen and why.

  design/xcorr.py                  writes the table into the tree and prints the figures
  design/xcorr.py --out FILE       writes it elsewhere
  design/xcorr.py --plots FOLDER   draws the figures of the docs page as well
"""

import argparse
import pathlib

import numpy as np
from scipy.interpolate import PchipInterpolator

import emit

RATE = 48000
SIZE = 1024  # of the transform in which the filters are used
TAPS = 140
TAP = np.arange(TAPS)
BIN = np.arange(SIZE // 2 + 1)
FREQUENCY = BIN * RATE / SIZE

# The figures asked for, at bins of the transform. H2 is negative where it opposes H1.
POINTS = np.array([
    # bin   H1      H2       correlation 2 H1 H2 / (H1^2 + H2^2)
    (0,   0.8700,  0.6924, 0.9745),
    (2,   0.8902,  0.6426, 0.9491),
    (4,   0.9431,  0.5067, 0.8339),
    (6,   1.0094,  0.3214, 0.5782),
    (11,  1.1067, -0.0674, 0.1213),
    (15,  1.0870, -0.1121, 0.2041),
    (21,  1.0795,  0.0255, 0.0471),
    (43,  1.0927,  0.0093, 0.0170),
    (85,  1.0909,  0.0012, 0.0022),
    (171, 1.0888,  0.0006, 0.0011),
    (341, 1.0868,  0.0002, 0.0004),
    (427, 0.9862,  0.0000, 0.0001),
    (512, 0.1084,  0.0001, 0.0025),
])

# The first elements of the packed spectra: real bin 0, real and imaginary bin 1, 2, 3, real bin 4.
PACKED_H1 = [0.8700, 0.7963, -0.3631, 0.5838, -0.6720, 0.2592, -0.8760, -0.1314]
PACKED_H2 = [0.6924, 0.6186, -0.2817, 0.4218, -0.4847, 0.1662, -0.5594, -0.0700]

# Two taps of H1.
MAIN_TAPS = {69: 0.4899, 70: 0.8430}

# Where the columns of a row, or a row and the packed values, agree only in a part of the last place, the aim is moved so
# that the filters come to lie in that part.
AIM_H1 = {6: 1.00943, 11: 1.10666, 21: 1.07952}
AIM_H2 = {0: 0.692428, 2: 0.642555, 4: 0.506715, 6: 0.32141, 11: -0.06739, 15: -0.112085, 21: 0.025457,
          341: 0.00021, 427: 0.00005, 512: 0.0001355}
AIM_PACKED_H2 = [0.692428, 0.618612, -0.281704, 0.421819, -0.484708, 0.166158, -0.559395, -0.07]

# The tops of H2's first two lobes beyond 1 kHz: bin and value. Held down, they push what they lose into the later lobes.
LOBES = {23.2: 0.0407, 32.25: -0.0407}

# Both filters have this delay in frames, as their packed values show.
DELAY_H1 = 69.657
DELAY_H2 = 69.645

# By how much the taps may differ from machine to machine before they are rounded.
NOISE = 2.1e-13


def transform_row(k, phase=0.0):
    """The row that gives, of taps, the real part of transform bin k turned by `phase`."""
    return np.cos(phase - 2 * np.pi * k * TAP / SIZE)


class LeastSquares:
    """Collects weighted rows; `taps` minimises the weighted squared errors of all."""

    def __init__(self):
        self.rows, self.aims = [], []

    def add(self, weight, row, aim):
        self.rows.append(weight * row)
        self.aims.append(weight * aim)

    def bin(self, weight, k, delay, along, across=0.0):
        """Asks for bin k, seen without the delay: `along` is its real and `across` its imaginary part."""
        if k in (0, SIZE // 2):  # real, so the delay leaves only a sign
            self.add(weight, transform_row(k), along * np.sign(np.cos(2 * np.pi * k * delay / SIZE)))
        else:
            phase = 2 * np.pi * k * delay / SIZE
            self.add(weight, transform_row(k, phase), along)
            if across is not None:
                self.add(weight, transform_row(k, phase - np.pi / 2), across)

    def packed(self, weight, values):
        for i, value in enumerate(values):
            self.add(weight, transform_row((i + 1) // 2, 0.0 if i % 2 or i == 0 else -np.pi / 2), value)

    def taps(self):
        return np.linalg.lstsq(np.array(self.rows), np.array(self.aims), rcond=None)[0]


def design_h1():
    """A smooth curve through the points at every bin, and the points themselves with a hundred times the weight.

    The points below 2 kHz rise and fall faster than 140 taps can follow without ringing; the curve counts little
    there and more just above, so that the ringing has died down at 2 kHz. Above 16 kHz it only guides the fall.
    """
    scale = 21.4 * np.log10(1 + 0.00437 * FREQUENCY)  # ERB
    points = POINTS[:, 0].astype(int)
    curve = PchipInterpolator(scale[points], POINTS[:, 1])(scale)
    problem = LeastSquares()
    for k in BIN:
        f = FREQUENCY[k]
        weight = 0.5 if f < 1900 else 3 if f < 4500 else 1 if f < 16100 else 0.1
        problem.bin(weight, k, DELAY_H1, curve[k])
    problem.packed(100, PACKED_H1)
    for k, h1 in zip(points, POINTS[:, 1]):
        problem.bin(100, k, DELAY_H1, AIM_H1.get(k, h1), across=None)
    for n, value in MAIN_TAPS.items():
        problem.add(100, (TAP == n).astype(float), value)
    return problem.taps()


def design_h2():
    """The points, the tops of two lobes, and zero for every bin from 1 kHz on, weighed by the square root of frequency."""
    problem = LeastSquares()
    problem.packed(200, AIM_PACKED_H2)
    for k, h2 in zip(POINTS[:, 0].astype(int), POINTS[:, 2]):
        problem.bin(200, k, DELAY_H2, AIM_H2.get(k, h2))
    for k, h2 in LOBES.items():
        problem.bin(200, k, DELAY_H2, h2)
    for k in BIN[22:]:
        problem.bin(np.sqrt(2 * k / (43 * SIZE)), k, DELAY_H2, 0.0)
    return problem.taps()


# --- the table ---------------------------------------------------------------------------------------------------

TEXT = """\
// SPDX-License-Identifier: MIT
// The filters of the reverberator's decorrelator, made by design/xcorr.py.
//
// Do not edit: change the program and run it again. docs/xcorr_tables.md tells the design.

#include "speaker/xcorr_tables.h"

namespace quorel {{

// clang-format off

{h1}
{h2}
// clang-format on

}} // namespace quorel
"""


def spectrum(taps):
    return np.exp(-2j * np.pi * np.outer(BIN, TAP) / SIZE) @ taps


def report(h1, h2):
    s1, s2 = spectrum(h1), spectrum(h2)
    m1, m2 = np.abs(s1), np.abs(s2)
    print("| Bin | Hz | H1 | asked | H2 | asked | phase, degrees | correlation | asked |\n" + "|---" * 9 + "|")
    for k, a1, a2, r in POINTS:
        k = int(k)
        print(f"| {k} | {FREQUENCY[k]:.0f} | {m1[k]:.5f} | {a1:.4f} | {m2[k]:.6f} | {abs(a2):.4f} |"
              f" {np.degrees(np.angle(s2[k] / s1[k])):.1f} |"
              f" {2 * m1[k] * m2[k] / (m1[k]**2 + m2[k]**2):.5f} | {r:.4f} |")
    print(f"\nH1 from 2 to 16 kHz: {m1[43:342].min():.4f} to {m1[43:342].max():.4f}")
    print(f"H1 from 600 Hz to 2 kHz: {m1[13:43].min():.4f} to {m1[13:43].max():.4f}")
    fine = np.arange(1000, RATE / 2 + 1)
    magnitude = np.abs(np.exp(-2j * np.pi * np.outer(fine / RATE, TAP)) @ h2)
    print(f"H2 from 1 kHz on at most {magnitude.max():.5f}, at {fine[magnitude.argmax()]:.0f} Hz;"
          f" above 2.5 kHz at most {magnitude[1500:].max():.4f}, above 4 kHz {magnitude[3000:].max():.4f}")
    print(f"H2 at 270 Hz: {abs(np.exp(-2j * np.pi * 270 / RATE * TAP) @ h2):.4f}; sum of taps {h2.sum():.5f}")
    print(f"H1 taps 69 and 70: {h1[69]:.5f} {h1[70]:.5f}; H2 tap 95: {h2[95]:.5f}")


def main():
    root = pathlib.Path(__file__).resolve().parent.parent
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--out", type=pathlib.Path, default=root / "speaker/xcorr_tables.cpp")
    parser.add_argument("--plots", type=pathlib.Path)
    arguments = parser.parse_args()

    h1, margin1 = emit.rounded(design_h1(), NOISE, "H1")
    h2, margin2 = emit.rounded(design_h2(), NOISE, "H2")
    arguments.out.write_text(TEXT.format(h1=emit.cpp_array("sameSideTaps", h1, linkage="constinit const"),
                                         h2=emit.cpp_array("crossSideTaps", h2, linkage="constinit const")))
    report(emit.value(h1), emit.value(h2))
    print(f"\nnearest tie: {min(margin1, margin2):.1e} of a unit of 1e-9")
    if arguments.plots:
        import plots
        plots.xcorr(arguments.plots, emit.value(h1), emit.value(h2), spectrum, FREQUENCY, POINTS)


if __name__ == "__main__":
    main()
