#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Designs the four windows of the capture effect's filter bank and writes microphone/window_tables.cpp.

The analysis window a and the synthesis window s of a rate are found together. Among all symmetric pairs that
  - hold the pinned entries of RATES exactly, and
  - give the input back:  fftLength * sum over m of a(t + m * hop) * s(t + m * hop) = 1  for every t
it is the pair with the least
    sum over both windows of (energy of the spectrum beyond `edge` + RIDGE * energy of (w - kaiser)
                              + `smooth` * roughness at the pins) / (sum of kaiser)^2,
which lies as close to the Kaiser windows as its side lobes allow. docs/window_tables.md tells what was chosen and why.

  design/windows.py                   writes the tables into the tree and prints the figures
  design/windows.py --out FILE        writes them elsewhere
  design/windows.py --edges           prints what other edges would give at 48000 as well
  design/windows.py --plots FOLDER    draws the figures of the docs page as well
"""

import argparse
import pathlib
from collections import namedtuple

import numpy as np

ROOT = pathlib.Path(__file__).resolve().parent.parent

# hop and fftLength in samples. `lobes` in dB: nothing beyond the edge reaches it. `smooth` weighs what keeps the window's
# entries level with their pinned neighbours: around the centre the energy of (w - kaiser), around the quarter pin that of the
# second differences. At 48000 the centre pins would stand 0.7 % of the peak above the entries beside them without it, and 0.1 %
# with it. At 16000 no pin stands out by more than 0.04 %, and smoothness would cost more than a decibel of the first side lobe.
Rate = namedtuple("Rate", "hop fftLength lobes smooth analysis synthesis")

# The pins, each of which stands at its mirror image too: the first three entries, the entry at length / 4 (the index rounded
# down), the one before the centre, the centre, and (where not None) the one before those two. `beta` and `peak` make the
# Kaiser window that the design starts from and stays close to. `edge` is where the stop band begins, in bins of fftLength.
Window = namedtuple("Window", "length beta peak edge first second third quarter before2 before centre")

# At 16000 the Kaiser windows are those through the quarter pins, and the edges are the first zeros of their spectra. At 48000
# the edges lie as near as `lobes` allows.
RATES = {
    16000: Rate(80, 512, -80, 0,
        Window(561, 10.73, 0.001953125, 3.25,
               3.99019314e-07, 5.24563575e-07, 5.95081758e-07, 0.000499323418, None, 0.00195312733, 0.001953125),
        Window(461, 10.89, 0.586988568, 4.0,
               0.000149485975, 0.000180729185, 0.000213784704, 0.146991923, None, 0.586934149, 0.586988568)),
    # The analysis window dips at its centre; its largest entries stand two samples away from there.
    48000: Rate(240, 1024, -70, 1,
        Window(1027, 7.05, 0.00101598108, 4.25,
               7.33999968e-06, 7.76250545e-06, 7.94047901e-06, 0.000423024816, 0.00101598108, 0.0010157543, 0.0009765625),
        Window(1017, 7.3, 0.678178668, 4.25,
               0.00398179749, 0.00417028228, 0.00432822667, 0.272381157, None, 0.678178668, 0.678155839)),
}

# What straying from the Kaiser windows costs, as a share of its energy. It also keeps the equations well conditioned: the
# energy beyond the edge alone leaves the main lobes all but undetermined.
RIDGE = 0.002

# How far from the centre `smooth` reaches, in samples.
CORE = 40

# By how much an entry may differ from machine to machine before it is rounded, in parts of the peak. Between numpy's vector
# units switched on and off, the reference BLAS, OpenBLAS with six kinds of processor, BLIS and ATLAS it was 1.2e-14 at most.
NOISE = 2e-14


# A window is handled as its half: half[k] is the entry k samples away from the centre.
def full(half):
    return np.concatenate([half[:0:-1], half])


def multiplicity(half):
    """How often an entry of the half stands in the window: the centre once, the others twice."""
    return np.where(np.arange(len(half)) == 0, 1.0, 2.0)


def kaiser(window):
    """In parts of the peak, as all that follows up to the rounding."""
    return np.kaiser(window.length, window.beta)[window.length // 2:]


def pins(window):
    """Distance from the centre: entry, a float in parts of the peak."""
    last = window.length // 2
    rows = {last: window.first, last - 1: window.second, last - 2: window.third, last - window.length // 4: window.quarter,
            2: window.before2, 1: window.before, 0: window.centre}
    return {k: float(np.float32(value)) / window.peak for k, value in rows.items() if value is not None}


def stop_band(window, fft_length):
    """The matrix Q with half' Q half = energy of the window's spectrum from `edge` to half the rate.

    The spectrum is W(f) = sum over k of multiplicity[k] * half[k] * cos(2 pi f k), f in cycles per sample, and the energy
    2 * integral of W(f)^2, which is sum(w^2) for edge = 0.
    """
    edge = window.edge / fft_length
    n = np.arange(window.length)  # up to twice the half's last index
    integral = np.full(window.length, 0.5 - edge)  # of cos(2 pi f n) from edge to 1/2
    integral[1:] = -np.sin(2 * np.pi * edge * n[1:]) / (2 * np.pi * n[1:])
    k = np.arange(window.length // 2 + 1)
    m = multiplicity(k)
    return m[:, None] * m * (integral[abs(k[:, None] - k)] + integral[k[:, None] + k])


def bends(window):
    """The matrix of the energy of the second differences at the entries up to eight beside the quarter pin."""
    count = window.length // 2 + 1
    quarter = window.length // 2 - window.length // 4
    differences = np.diff(np.eye(count), 2, axis=0)[quarter - 9:quarter + 8]
    return 2 * differences.T @ differences


def overlaps(rate):
    """For t = 0 .. hop / 2 the distances |t + m * hop| at which both windows have entries; other t repeat these by symmetry."""
    last = min(rate.analysis.length, rate.synthesis.length) // 2
    steps = np.arange(-last // rate.hop, last // rate.hop + 1) * rate.hop
    return [[k for k in abs(t + steps) if k <= last] for t in range(rate.hop // 2 + 1)]


def design(rate):
    """Both halves in parts of their peaks, by Newton's method on the Lagrange conditions of the least."""
    windows = (rate.analysis, rate.synthesis)
    shapes = [kaiser(w) for w in windows]
    fixed = [pins(w) for w in windows]
    free = [np.array([k for k in range(len(h)) if k not in p]) for h, p in zip(shapes, fixed)]
    sums = [multiplicity(h) @ h for h in shapes]
    # The factor sums[0]^2 for both changes nothing in the least; it gives the equations of both kinds like size.
    weights = [(sums[0] / s) ** 2 for s in sums]
    ridges = [np.diag(multiplicity(h) * (RIDGE + rate.smooth * (np.arange(len(h)) <= CORE))) for h in shapes]
    hessians = [c * (stop_band(w, rate.fftLength) + rate.smooth * bends(w) + r) for c, w, r in zip(weights, windows, ridges)]
    pulls = [c * r @ h for c, r, h in zip(weights, ridges, shapes)]

    halves = [h.copy() for h in shapes]
    for half, pinned in zip(halves, fixed):
        for k, value in pinned.items():
            half[k] = value
    scale = rate.fftLength * rate.analysis.peak * rate.synthesis.peak
    rows = overlaps(rate)
    multipliers = np.zeros(len(rows))
    for _ in range(10):
        a, s = halves
        error = np.array([scale * np.sum(a[row] * s[row]) - 1 for row in rows])
        slope_a, slope_s = np.zeros((len(rows), len(a))), np.zeros((len(rows), len(s)))
        cross = np.zeros((len(a), len(s)))
        for i, row in enumerate(rows):
            for k in row:
                slope_a[i, k] += scale * s[k]
                slope_s[i, k] += scale * a[k]
                cross[k, k] += scale * multipliers[i]
        gradient = np.concatenate([(h @ x - p)[f] for h, x, p, f in zip(hessians, halves, pulls, free)])
        curvature = np.block([[hessians[0][np.ix_(free[0], free[0])], cross[np.ix_(free[0], free[1])]],
                              [cross[np.ix_(free[0], free[1])].T, hessians[1][np.ix_(free[1], free[1])]]])
        slope = np.hstack([slope_a[:, free[0]], slope_s[:, free[1]]])
        system = np.block([[curvature, slope.T], [slope, np.zeros((len(rows), len(rows)))]])
        step = np.linalg.solve(system, -np.concatenate([gradient, error]))
        moved, multipliers = step[:len(gradient)], step[len(gradient):]
        a[free[0]] += moved[:len(free[0])]
        s[free[1]] += moved[len(free[0]):]
        if np.max(abs(moved)) < 1e-11:  # the next would be the square of it
            # A least, not a saddle: as many negative eigenvalues as there are conditions.
            values = np.linalg.eigvalsh(system)
            if np.sum(values < 0) != len(rows) or np.max(abs(values)) > 1e5 * np.min(abs(values)):
                raise SystemExit("the equations do not have one well-conditioned least")
            return halves
    raise SystemExit("Newton's method did not converge")


def rounded(half, window):
    """The half as floats, refused if an entry lies so near the middle of two floats that NOISE could decide."""
    table = np.float32(half * window.peak)
    middles = [(table + np.nextafter(table, np.float32(end)).astype(float)) / 2 for end in (0, 1)]
    distance = np.abs(half * window.peak - middles) / window.peak
    distance[:, list(pins(window))] = np.inf
    if not np.min(distance) > 5 * NOISE:
        raise SystemExit(f"an entry lies {np.min(distance):g} of the peak from the middle of two floats")
    return table


def identity_error(a, s, rate):
    """For every t of a hop, of halves that are scaled to what they are."""
    rows = overlaps(rate)
    error = np.array([rate.fftLength * np.sum(a[row].astype(float) * s[row]) - 1 for row in rows])
    return np.concatenate([error, error[-2:0:-1]])


def check(a, s, rate):
    for half, window in ((a, rate.analysis), (s, rate.synthesis)):
        for k, value in pins(window).items():
            assert half[k] == np.float32(value * window.peak), (window.length, k)
        bins, level = spectrum(half, rate.fftLength)
        assert np.all(level[bins >= window.edge] < rate.lobes), (window.length, np.max(level[bins >= window.edge]))
    assert np.max(a) == np.float32(max(rate.analysis.peak, rate.analysis.before))
    assert np.max(s) == np.float32(rate.synthesis.peak)
    assert np.max(abs(identity_error(a, s, rate))) < 1e-6


HEADING = """\
// SPDX-License-Identifier: MIT
// The windows of the capture effect's filter bank, made by design/windows.py from the figures in it.
//
// Do not edit: change the program and run it again. docs/window_tables.md tells the design.

#include "microphone/window_tables.h"

namespace quorel {

// clang-format off
"""

PER_LINE = 6


def source(tables):
    text = HEADING
    for fs, pair in zip(RATES, tables):
        for kind, half in zip(("analysis", "synthesis"), pair):
            entries = [f"{value:.9g}F" for value in full(half)]
            lines = [", ".join(entries[i:i + PER_LINE]) for i in range(0, len(entries), PER_LINE)]
            body = "".join(f"    {line},\n" for line in lines)
            text += f"\nconstinit const std::array<float, {len(entries)}> {kind}Window{fs} ="
            text += f" std::to_array<float>({{\n{body}}});\n"
    return text + "\n// clang-format on\n\n} // namespace quorel\n"


TRANSFORM = 1 << 17  # 128 points in a bin at 48000, 256 at 16000


def spectrum(half, fft_length):
    """Bins of fftLength, and the level in dB over the value at 0."""
    values = abs(np.fft.rfft(full(half).astype(float), TRANSFORM))
    return np.arange(len(values)) * fft_length / TRANSFORM, 20 * np.log10(values / values[0] + 1e-30)


def lobes(half, fft_length, edge):
    """Bin of the first zero, largest side lobe, largest level from the edge on."""
    bins, level = spectrum(half, fft_length)
    zero = np.argmax(np.diff(level) > 0)
    return bins[zero], np.max(level[zero:]), np.max(level[bins >= edge])


def report(tables):
    print("| Window | Edge (bins) | First zero (bins) | Largest side lobe (dB) | From the edge on (dB) | Farthest from Kaiser"
          " (% of the peak) |\n" + "|---" * 6 + "|")
    for (fs, rate), pair in zip(RATES.items(), tables):
        for kind, half, window in zip(("analysis", "synthesis"), pair, (rate.analysis, rate.synthesis)):
            ideal = kaiser(window)
            for name, curve in ((f"{fs} {kind}", half / window.peak), (f"Kaiser, beta {window.beta}", ideal)):
                zero, largest, stop = lobes(curve, rate.fftLength, window.edge)
                apart = "" if curve is ideal else f"{100 * np.max(abs(curve - ideal)):.2f}"
                print(f"| {name} | {window.edge:g} | {zero:.2f} | {largest:.1f} | {stop:.1f} | {apart} |")
    print("\n| Rate | Largest error of the identity | Plain Kaiser windows |\n|---|---|---|")
    for (fs, rate), (a, s) in zip(RATES.items(), tables):
        print(f"| {fs} | {np.max(abs(identity_error(a, s, rate))):.1e} | {np.max(abs(plain_error(rate))):.1e} |")


def plain_error(rate):
    """The identity error of the Kaiser windows."""
    return identity_error(*(kaiser(w) * w.peak for w in (rate.analysis, rate.synthesis)), rate)


def report_edges(rate):
    print("\n| Edge (bins) | Analysis: largest side lobe, from the edge on (dB) | Synthesis |\n|---|---|---|")
    for edge in (2.5, 3.0, 3.5, 4.0, 4.25, 4.5):
        moved = rate._replace(analysis=rate.analysis._replace(edge=edge), synthesis=rate.synthesis._replace(edge=edge))
        row = [lobes(half, rate.fftLength, edge)[1:] for half in design(moved)]
        print(f"| {edge:g} | " + " | ".join(f"{largest:.1f}, {stop:.1f}" for largest, stop in row) + " |")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--out", type=pathlib.Path, default=ROOT / "microphone/window_tables.cpp")
    parser.add_argument("--edges", action="store_true")
    parser.add_argument("--plots", type=pathlib.Path)
    arguments = parser.parse_args()

    tables = []
    for rate in RATES.values():
        pair = [rounded(half, window) for half, window in zip(design(rate), (rate.analysis, rate.synthesis))]
        check(*pair, rate)
        tables.append(pair)
    arguments.out.write_text(source(tables))
    report(tables)
    if arguments.edges:
        report_edges(RATES[48000])
    if arguments.plots:
        import plots
        plots.windows(arguments.plots, tables)


if __name__ == "__main__":
    main()
