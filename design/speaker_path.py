#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""What the compiled equaliser and limiters do: the figures of docs/speaker_path.md.

The measurements come from the program measure_path, that is from the library itself:

  design/speaker_path.py PROGRAM                   prints the figures
  design/speaker_path.py PROGRAM --plots FOLDER    draws the plots as well
"""

import argparse
import pathlib
import subprocess

import numpy as np

RATE = 48000
CENTRES = np.array([63, 125, 250, 500, 1000, 2000, 4000, 8000, 16000])
FREQUENCY = np.geomspace(20, 23900, 600)
OUTPUT_GAIN = 0.8


def run(program, what):
    return subprocess.run([program, what], check=True, capture_output=True, text=True).stdout


def response(impulse, frequency):
    """In dB."""
    turns = np.outer(frequency / RATE, np.arange(len(impulse)))
    return 20 * np.log10(np.abs(np.exp(-2j * np.pi * turns) @ impulse))


def equalizer(program):
    """For each setting the nine band gains in dB and the impulse response."""
    head, rows = run(program, "equalizer").split("\n", 1)
    settings = [np.array([int(band) for band in setting.split(",")]) / 127 * 6 for setting in head.split()]
    return list(zip(settings, np.loadtxt(rows.splitlines()).T))


def limiter(program):
    """Levels and gains of the curve; a sine, and what comes out of it."""
    return [np.loadtxt(table.splitlines()).T for table in run(program, "limiter").split("\n\n")]


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("program")
    parser.add_argument("--plots", type=pathlib.Path)
    arguments = parser.parse_args()

    bands = equalizer(arguments.program)
    for gains, impulse in bands:
        print("asked   ", " ".join(f"{g:6.2f}" for g in gains))
        print("measured", " ".join(f"{g:6.2f}" for g in response(impulse, CENTRES)))

    (level, gain), (sine, out) = curve, sound = limiter(arguments.program)
    worst = np.argmax(np.where(level < 50, level * gain, 0))
    print(f"largest product of level and gain below the last point: {level[worst] * gain[worst]:.4f} "
          f"({20 * np.log10(level[worst] * gain[worst]):.3f} dB) at {20 * np.log10(level[worst]):.1f} dB")
    out = out * OUTPUT_GAIN
    start = RATE // 100
    print("peaks of the output in the first milliseconds of the loud sine:",
          " ".join(f"{np.max(np.abs(out[start + 48 * ms : start + 48 * (ms + 1)])):.3f}" for ms in range(12)))
    print(f"peak of the output from 100 ms on: {np.max(np.abs(out[RATE // 10 :])):.4f}")

    if arguments.plots:
        import plots
        plots.speaker_path(arguments.plots, bands, curve, sound)


if __name__ == "__main__":
    main()
