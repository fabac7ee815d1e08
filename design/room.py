#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""What the compiled reverberator sounds like: the figures of docs/room.md.

The impulse responses come from the program measure_path, that is from the library itself:

  design/room.py PROGRAM                   prints the tables of the page
  design/room.py PROGRAM --plots FOLDER    draws its plots as well

An octave band here is the squared cosine of a quarter turn per octave around its centre and nothing beyond: the bands add up
to the whole, and their edges are so soft that they ring for less time than the room.
"""

import argparse
import pathlib
import subprocess

import numpy as np

RATE = 48000
SIZE = 1 << 17
FREQUENCY = np.fft.rfftfreq(SIZE, 1 / RATE)
OCTAVES = [63, 125, 250, 500, 1000, 2000, 4000, 8000, 16000]
TAIL = 2400  # frames: the first 50 ms are single echoes


def measured(program, what):
    return np.loadtxt(subprocess.run([program, what], check=True, capture_output=True, text=True).stdout.splitlines())


def octave(centre):
    away = np.log2(np.maximum(FREQUENCY, 1e-9) / centre)
    return np.where(np.abs(away) < 1, np.cos(np.pi / 2 * away) ** 2, 0)


def decay(response, gain):
    """The energy that is still to come, in dB, over all ears and speakers."""
    energy = np.sum(np.fft.irfft(np.fft.rfft(response, SIZE, axis=0) * gain[:, None], SIZE, axis=0) ** 2, axis=1)
    energy = np.roll(energy, SIZE // 4)  # what a band rings ahead of time 0
    left = np.cumsum(energy[::-1])[::-1][SIZE // 4 :][: SIZE // 2]
    return 10 * np.log10(left / left[0])


def time_of_60db(curve, low, high):
    """From the slope between two levels of a decay curve."""
    part = np.flatnonzero((curve <= low) & (curve >= high))
    slope, _ = np.polyfit(part / RATE, curve[part], 1)
    return -60 / slope


def designed(lines, frequency):
    """Time of 60 dB by the line filters alone: what they take at each turn, over the turn's length, mean of the lines."""
    z = np.exp(-2j * np.pi * frequency / RATE)
    powers = np.array([z**0, z, z**2])
    times = []
    for length, allpass, *taps in lines:
        taps = np.array(taps)
        gain = (taps[0:3] @ powers) / (taps[3:6] @ powers) * (taps[6:9] @ powers) / (taps[9:12] @ powers)
        times.append(-60 * (length + allpass) / RATE / (20 * np.log10(np.abs(gain))))
    return np.mean(times, axis=0)


def designed_decay(lines, centre):
    """A band's decay curve when each frequency in it decays by the line filters alone."""
    inside = octave(centre) > 0
    rate = 6 * np.log(10) / designed(lines, FREQUENCY[inside])
    time = np.arange(0, 0.6, 0.001)
    left = np.exp(-rate * time[:, None]) @ (octave(centre)[inside] ** 2 / rate)
    return np.interp(np.arange(0, 0.599, 1 / RATE), time, 10 * np.log10(left / left[0]))


def echo_density(response):
    """The share of samples beyond one standard deviation, in windows of 20 ms, over that of noise. Noise gives 1."""
    window = np.hanning(962)[1:-1]
    window /= window.sum()
    density = []
    for x in response.T:
        deviation = np.sqrt(np.convolve(x**2, window, "same"))
        starts = np.arange(480, 19200, 240)
        density.append([window @ (np.abs(x[s - 480 : s + 480]) > deviation[s]) for s in starts])
    return starts / RATE, np.mean(density, axis=0) / 0.3173


def correlation(response, centres, width):
    """Between the ears in the tail, in bands of `width` octaves; a mean over the speakers."""
    spectrum = np.fft.rfft(response[TAIL:], SIZE, axis=0)
    left, right = spectrum[:, 0::2], spectrum[:, 1::2]
    values = []
    for centre in centres:
        band = np.abs(np.log2(np.maximum(FREQUENCY, 1e-9) / centre)) < width / 2
        cross = np.sum(left[band] * np.conj(right[band])).real
        values.append(cross / np.sqrt(np.sum(np.abs(left[band]) ** 2) * np.sum(np.abs(right[band]) ** 2)))
    return np.array(values)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("program")
    parser.add_argument("--plots", type=pathlib.Path)
    arguments = parser.parse_args()

    response = measured(arguments.program, "room")
    lines = measured(arguments.program, "lines")
    curves = [decay(response, octave(centre)) for centre in OCTAVES]

    print("| Octave, Hz | Designed, s | -5 to -25 dB, s | -5 to -35 dB, s |\n|---|---|---|---|")
    for centre, curve in zip(OCTAVES, curves):
        design = time_of_60db(designed_decay(lines, centre), -5, -25)
        print(f"| {centre} | {design:.2f} | {time_of_60db(curve, -5, -25):.2f} | {time_of_60db(curve, -5, -35):.2f} |")

    time, density = echo_density(response)
    print()
    for t in (0.02, 0.05, 0.1, 0.15, 0.2, 0.3):
        print(f"echo density at {1000 * t:.0f} ms: {np.interp(t, time, density):.2f}")

    centres = np.array([63, 125, 250, 500, 1000, 2000, 4000, 8000, 16000])
    print("\n| Octave, Hz | Correlation |\n|---|---|")
    for centre, value in zip(centres, correlation(response, centres, 1)):
        print(f"| {centre} | {value:.2f} |")

    energy = np.sum(response.reshape(len(response), -1, 2) ** 2, axis=0)
    print("\nenergy per speaker, left and right, dB:")
    print(10 * np.log10(energy).round(4))
    onset = [np.flatnonzero(np.abs(x) > 1e-4 * np.max(np.abs(x)))[0] for x in response.T]
    print("first sample above -80 dB:", onset)

    if arguments.plots:
        import plots
        plots.room(arguments.plots, response)


if __name__ == "__main__":
    main()
