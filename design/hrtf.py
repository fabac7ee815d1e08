#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Designs the built-in head-related responses and writes speaker/hrtf_tables.cpp.

Source: the HRTF measurement of a KEMAR dummy head by Bill Gardner and Keith Martin, MIT Media Lab, 1994, in the
file that Debian's package libmysofa1 installs. Each response keeps the measured spectrum of its direction, moved by
the smallest smooth correction that meets the figures of its row in ROWS to every digit. docs/hrtf_tables.md tells
what was chosen and why.

  design/hrtf.py                   writes the table into the tree and prints the figures
  design/hrtf.py --out FILE        writes it elsewhere
  design/hrtf.py --plots FOLDER    draws the figures of the docs page as well
"""

import argparse
import hashlib
import pathlib
from collections import namedtuple

import h5py
import numpy as np

import emit

SOFA = "/usr/share/libmysofa/MIT_KEMAR_normal_pinna.sofa"
SOFA_SHA256 = "2768ac841213a7ae11d1ea7fd0f25a69b39216102dc5dd913ea6ba0f0dc57e28"

RATE = 48000
TAPS = 140

# What is asked of a response. `first` is its first tap and the largest, `dc` and `nyquist` are its transform at 0 Hz
# and at half the rate (the sign of the latter is that of an odd or even onset), `energy` the sum of squared taps.
# `azimuth` is the measured direction, in degrees counterclockwise from the front.
Row = namedtuple("Row", "speaker ear azimuth onset length first dc nyquist energy")
ROWS = [
    #   speaker        ear      azimuth onset length first   dc      nyquist  energy
    Row("front left",   "left",   30,   6, 140, 0.8105, 0.7228,  0.6295, 0.990),
    Row("front left",   "right",  30,  16, 140, 0.2440, 0.6299,  0.1635, 0.119),
    Row("front right",  "left",  330,  16, 140, 0.2006, 0.6710,  0.0705, 0.100),
    Row("front right",  "right", 330,   6, 140, 0.9835, 0.7348,  0.7234, 1.430),
    Row("front centre", "left",    0,  10, 140, 0.6052, 0.7176,  0.3060, 0.489),
    Row("front centre", "right",   0,  11, 140, 0.4768, 0.6874, -0.2770, 0.366),
    Row("back left",    "left",  145,   7, 140, 0.6196, 0.6768, -0.3257, 0.529),
    Row("back left",    "right", 145,  19, 140, 0.2696, 0.5128, -0.1316, 0.117),
    Row("back right",   "left",  215,  20, 140, 0.2218, 0.5239,  0.0567, 0.113),
    Row("back right",   "right", 215,   6, 140, 0.7301, 0.7056,  0.3378, 0.716),
    Row("side left",    "left",  105,   0, 140, 1.4336, 0.8016,  0.8171, 2.733),
    Row("side left",    "right", 105,  24, 139, 0.0782, 0.5065,  0.0334, 0.022),
    Row("side right",   "left",  255,  29, 140, 0.0779, 0.5777, -0.0313, 0.030),
    Row("side right",   "right", 255,   2, 140, 1.4887, 0.8345,  0.7965, 3.021),
]

# One gain for all responses brings the measurement, whose diffuse-field average is 0 dB, to the level of the rows.
# It is the gain at which the corrections are smallest.
GAIN_DB = -2.5

NEPER = np.log(10) / 20  # one decibel

# By how much the taps may differ from machine to machine before they are rounded.
NOISE = 2.2e-15

# The grid on which spectra are designed: 0 Hz to half the rate.
SIZE = 8192
FREQUENCY = np.arange(SIZE // 2 + 1) * RATE / SIZE


def erb(frequency):
    """The number of equivalent rectangular bandwidths below a frequency (Glasberg and Moore)."""
    return 21.4 * np.log10(1 + 0.00437 * frequency)


ERB = erb(FREQUENCY)
ERB_STEP = np.gradient(ERB)

# --- the measurement ---------------------------------------------------------------------------------------------


class Measurement:
    """Log magnitudes of the measured head over its diffuse-field average, smoothed as hearing does."""

    GRID = np.geomspace(100, 22050, 3000)  # Hz

    def __init__(self, path):
        digest = hashlib.sha256(pathlib.Path(path).read_bytes()).hexdigest()
        if digest != SOFA_SHA256:
            raise SystemExit(f"{path} is not the file that the table was designed from")
        with h5py.File(path) as file:
            self.position = file["SourcePosition"][:]  # azimuth, elevation in degrees, distance in metres
            response = file["Data.IR"][:]  # direction, ear, tap
            rate = file["Data.SamplingRate"][0]
        self.power = np.abs(np.fft.rfft(response, SIZE, axis=2)) ** 2
        self.frequency = np.arange(SIZE // 2 + 1) * rate / SIZE
        self.diffuse = self.smoothed(np.einsum("i,iek->k", self.solid_angles(), self.power) / 2)

    def solid_angles(self):
        """The share of the sphere for which each direction stands: rings of elevation, evenly divided."""
        elevation = np.radians(self.position[:, 1])
        rings = np.unique(elevation)
        half = np.diff(rings) / 2
        low = rings - np.concatenate([half[:1], half])
        high = np.minimum(rings + np.concatenate([half, [0]]), np.pi / 2)
        share = np.zeros(len(elevation))
        for ring, a, b in zip(rings, low, high):
            here = elevation == ring
            share[here] = (np.sin(b) - np.sin(a)) / here.sum()
        return share / share.sum()

    def smoothed(self, power):
        """Power on GRID under a Hann window over log frequency whose area is that of a sixth of an octave."""
        octave = np.log2(self.GRID[1] / self.GRID[0])
        half = int(round(1 / 6 / octave))
        window = np.hanning(2 * half + 1)
        window /= window.sum()
        ends = np.pad(np.interp(self.GRID, self.frequency, power), half, mode="edge")
        return np.convolve(ends, window, "valid")

    def log_magnitude(self, azimuth, ear):
        """On FREQUENCY, in nepers. Flat below 250 Hz and above 20 kHz, where the measurement says nothing.

        A window over the cepstrum takes away detail finer than 140 taps can carry.
        """
        here = np.flatnonzero((self.position[:, 0] == azimuth) & (self.position[:, 1] == 0))[0]
        ratio = self.smoothed(self.power[here, ["left", "right"].index(ear)]) / self.diffuse
        log = np.interp(np.clip(FREQUENCY, 250, 20000), self.GRID, np.log(ratio) / 2)
        quefrency = np.minimum(np.arange(SIZE), SIZE - np.arange(SIZE))
        fall = np.clip((quefrency - 30) / (TAPS - 30), 0, 1)
        return np.fft.rfft(np.fft.irfft(log) * np.cos(np.pi / 2 * fall) ** 2).real


# --- the correction ----------------------------------------------------------------------------------------------

NODES = 17  # from 0 Hz to half the rate, evenly spaced in ERB: one every 2.7


def cubic_splines():
    """Columns of cubic B-splines over the ERB scale, one at each node and one beyond each end."""
    x = ERB / (ERB[-1] / (NODES - 1))
    distance = np.abs(x[:, None] - np.arange(-1, NODES + 1)[None, :])
    near = 2 / 3 - distance**2 + distance**3 / 2
    far = (2 - distance) ** 3 / 6
    return np.where(distance < 1, near, np.where(distance < 2, far, 0))


SPLINES = cubic_splines()


def effort():
    """The quadratic form that weighs a correction: its size squared plus twice its slope per ERB squared,
    integrated over the ERB scale. Above 16 kHz, where few hear, it counts a tenth."""
    weight = (0.1 + 0.9 / (1 + (FREQUENCY / 16000) ** 12)) * ERB_STEP
    slope = np.gradient(SPLINES, axis=0) / ERB_STEP[:, None]
    return (SPLINES.T * weight) @ SPLINES + 2 * (slope.T * weight) @ slope


def minimum_phase(log_magnitude):
    """The complex log spectrum, on FREQUENCY, of the minimum-phase response of a log magnitude."""
    cepstrum = np.fft.irfft(log_magnitude)
    cepstrum[1 : SIZE // 2] *= 2
    cepstrum[SIZE // 2 + 1 :] = 0
    return np.fft.rfft(cepstrum)


# A spline's share in a log spectrum, in the time domain: the response's derivative is its convolution with this.
SPLINE_TAPS = np.array([np.fft.irfft(minimum_phase(s))[:TAPS] for s in SPLINES.T])

FADE = 24  # taps over which the end is faded out
LAST = 2.0**-15  # the last tap, -90 dB: the response ends where its row says, and inaudibly


def response(log_magnitude, length):
    """Taps of the minimum-phase response, cut to `length`, and their derivative by each spline coefficient."""
    h = np.fft.irfft(np.exp(minimum_phase(log_magnitude)))[:length]
    fade = np.ones(length)
    fade[-FADE:] = np.cos(np.pi / 2 * np.arange(1, FADE + 1) / FADE) ** 2
    taps = h * fade
    taps[-1] = LAST
    return taps, np.array([np.convolve(h, s)[:length] * fade for s in SPLINE_TAPS])


def design(measured, row):
    """Taps that meet the row, and the correction in nepers on FREQUENCY.

    Least effort under the row's four figures, all as logarithms, for then all but the energy are nearly linear in
    the correction. Each round solves the problem with the figures linearised and goes half the way: whole steps
    swing about the solution, half steps double the exact digits every few rounds.
    """
    weight = effort()
    alternating = (-1.0) ** np.arange(row.length)
    held = []  # later taps that would outgrow the first
    while True:
        coefficient = np.zeros(SPLINES.shape[1])
        for _ in range(120):
            taps, slope = response(measured + SPLINES @ coefficient, row.length)
            have = [taps[0], taps.sum(), taps @ alternating, taps @ taps]
            want = [row.first, row.dc, abs(row.nyquist), row.energy]
            rate = [slope[:, 0], slope.sum(axis=1), slope @ alternating, 2 * slope @ taps]
            for k in held:
                have.append(abs(taps[k]))
                want.append(0.95 * row.first)
                rate.append(slope[:, k] * np.sign(taps[k]))
            error = np.log(np.array(have) / want)
            rate = np.array(rate) / np.array(have)[:, None]
            spread = np.linalg.solve(weight, rate.T)
            target = spread @ np.linalg.solve(rate @ spread, rate @ coefficient - error)
            coefficient += (target - coefficient) / 2
        outgrown = 1 + np.argmax(np.abs(taps[1:]))
        if abs(taps[outgrown]) < 0.96 * row.first:
            break
        held.append(outgrown)
    assert np.abs(error).max() < 1e-12 and np.abs(target - coefficient).max() < 1e-12, row
    return taps, SPLINES @ coefficient


# --- the table ---------------------------------------------------------------------------------------------------

HEAD = """\
// SPDX-License-Identifier: MIT
// The built-in head-related responses, made by design/hrtf.py from the HRTF measurement of a KEMAR dummy head by
// Bill Gardner and Keith Martin, MIT Media Lab, 1994 (MIT_KEMAR_normal_pinna.sofa of Debian's libmysofa1).
// The measurement is Copyright 1994 by the MIT Media Laboratory. It is provided free with no restrictions on use,
// provided the authors are cited when the data is used in any research or commercial application.
//
// Do not edit: change the program and run it again. docs/hrtf_tables.md tells the design.

#include "speaker/hrtf_tables.h"

namespace quorel {
namespace {

// clang-format off
"""

MIDDLE = """\
// clang-format on

// A response of one tap: no head at all, the signal arrives with a flat spectrum.
constexpr std::array<float, responseTaps> singleTap(float gain)
{
    std::array<float, responseTaps> taps{};
    taps[0] = gain;
    return taps;
}

} // namespace

// clang-format off
constinit const std::array<SpeakerResponses, 8> speakerResponses = std::to_array<SpeakerResponses>({
"""

TAIL = """\
});
// clang-format on

} // namespace quorel
"""


def name(row):
    first, second = row.speaker.split()
    return f"{first}{second.capitalize()}{row.ear.capitalize()}Ear"


def table(units):
    text = HEAD
    for row, u in zip(ROWS, units):
        u = np.concatenate([u, np.zeros(TAPS - row.length, dtype=np.int64)])
        text += f"\n// {row.speaker.capitalize()}, {row.ear} ear"
        text += ".\n" if row.length == TAPS else f": {row.length} taps, the last entry is none.\n"
        text += emit.cpp_array(name(row), u)
    text += "\n" + MIDDLE
    entry = {}
    for row in ROWS:
        entry.setdefault(row.speaker, []).append(f"{{{row.onset:2d}, {name(row)}}}")
    entry["low frequency"] = ["{11, singleTap(0.707F)}"] * 2
    for speaker in ("front left", "front right", "front centre", "low frequency",
                    "back left", "back right", "side left", "side right"):
        text += f"    {{{', '.join(entry[speaker])}}},\n"
    return text + TAIL


def in_db(taps):
    return np.log(np.abs(np.fft.rfft(taps, SIZE))) / NEPER


def over_erb(curve, low, high):
    here = (FREQUENCY >= low) & (FREQUENCY < high)
    return (curve * ERB_STEP)[here].sum() / ERB_STEP[here].sum()


def report(results):
    print("| Speaker | Ear | Azimuth | mean change, dB | largest up to 16 kHz, dB | steepest, dB per ERB |"
          " energy beyond tap 100 | later tap / first |")
    print("|---|---|---|---|---|---|---|---|")
    means, peaks = [], []
    for row, measured, taps, correction in results:
        change = in_db(taps) - measured / NEPER
        audible = (FREQUENCY >= 50) & (FREQUENCY < 16000)
        means.append(over_erb(np.abs(change), 50, 16000))
        peaks.append(np.abs(change[audible]).max())
        steep = np.abs(np.gradient(correction / NEPER) / ERB_STEP)[audible].max()
        late = (taps[101:] ** 2).sum() / (taps**2).sum()
        print(f"| {row.speaker} | {row.ear} | {row.azimuth} | {means[-1]:.2f} | {peaks[-1]:.1f} | {steep:.1f} |"
              f" {late:.1e} | {np.abs(taps[1:]).max() / taps[0]:.2f} |")
    print(f"\nmean change {np.mean(means):.2f} dB, largest mean {max(means):.2f} dB, largest {max(peaks):.1f} dB\n")
    bands = [(0, 700), (700, 3000), (3000, 8000), (8000, 16000)]
    print("| Speaker | " + " | ".join(f"{a} to {b} Hz" for a, b in bands) + " |")
    print("|---|" + "---|" * len(bands))
    for (row, m0, left, _), (_, m1, right, _) in zip(results[::2], results[1::2]):
        if row.azimuth == 0:
            continue
        sign = 1 if row.azimuth < 180 else -1
        made, was = sign * (in_db(left) - in_db(right)), sign * (m0 - m1) / NEPER
        print(f"| {row.speaker} | " +
              " | ".join(f"{over_erb(made, *b):.1f} ({over_erb(was, *b):.1f})" for b in bands) + " |")


def main():
    root = pathlib.Path(__file__).resolve().parent.parent
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--out", type=pathlib.Path, default=root / "speaker/hrtf_tables.cpp")
    parser.add_argument("--plots", type=pathlib.Path)
    parser.add_argument("--sofa", default=SOFA)
    arguments = parser.parse_args()

    measurement = Measurement(arguments.sofa)
    results, units, margins = [], [], []
    for row in ROWS:
        measured = measurement.log_magnitude(row.azimuth, row.ear) + GAIN_DB * NEPER
        taps, correction = design(measured, row)
        u, margin = emit.rounded(taps, NOISE, f"{row.speaker}, {row.ear} ear")
        units.append(u)
        margins.append(margin)
        results.append((row, measured, emit.value(u), correction))
    arguments.out.write_text(table(units))
    report(results)
    print(f"\nnearest tie: {min(margins):.1e} of a unit of 1e-9")
    if arguments.plots:
        import plots
        plots.hrtf(arguments.plots, results)


if __name__ == "__main__":
    main()
