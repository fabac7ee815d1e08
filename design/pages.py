#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Fills the measured parts of the pages about both paths, from the compiled library.

A part stands between the lines <!-- measured: NAME --> and <!-- end --> of a page; NAME is a function here.

  design/pages.py --programs FOLDER                    the programs measure_path and measure_capture lie there
  design/pages.py --programs FOLDER --check            changes nothing, and fails where a page tells another figure
  design/pages.py --programs FOLDER --plots FOLDER     draws the figure of docs/microphone_path.md as well
  design/pages.py --programs FOLDER --quality PROGRAM  the comparison with other noise suppressors as well (bench/quality)

Another compiler rounds in another way, so for --check a figure may differ by one in its last place.
"""

import argparse
import pathlib
import re
import subprocess
import sys

import numpy as np

DOCS = pathlib.Path(__file__).resolve().parent.parent / "docs"
CENTRES = [63, 125, 250, 500, 1000, 2000, 4000, 8000, 16000]
arguments = None


def run(program, *what):
    return subprocess.run([program, *what], check=True, capture_output=True, text=True).stdout


def measured(program, what):
    return np.loadtxt(run(arguments.programs / program, what).splitlines())


def response(impulse, frequency, rate):
    """In dB, of impulse responses one a column: a row for each frequency."""
    turns = np.outer(np.asarray(frequency) / rate, np.arange(len(impulse)))
    return 20 * np.log10(np.abs(np.exp(-2j * np.pi * turns) @ impulse))


def table(head, rows):
    return ["| " + " | ".join(row) + " |" for row in [head, ["---"] * len(head), *rows]]


def decibels(values, places=2):
    return [f"{value + 0:+.{places}f}".replace("-0.00", "+0.00") for value in values]


# --- docs/speaker_path.md --------------------------------------------------------------------------------------------


def equalizer():
    impulses = [np.loadtxt(run(arguments.programs / "measure_path", what).splitlines()[1:]) for what in ("bands", "equalizer")]
    alone, chosen = (response(impulse, CENTRES, 48000).T for impulse in impulses)
    peak = 20 * np.log10(np.max(np.abs(np.fft.rfft(impulses[1][:, 0], 1 << 17))))
    rows = [[f"{centre} Hz alone at +6", *decibels(gains)] for centre, gains in zip(CENTRES, alone)]
    rows += [["all nine at +6", *decibels(chosen[0])], ["-6 and +6 in turns", *decibels(chosen[3])]]
    own = np.diag(alone)
    others = np.abs(alone - np.diag(own))
    band, centre = np.unravel_index(np.argmax(others), others.shape)
    return [
        "Gains in dB at the nine centres:", "",
        *table(["Bands", *map(str, CENTRES)], rows), "",
        f"So a band by itself gives {min(own):.2f} to {max(own):.2f} dB at its centre where 6 are asked for, and moves another centre",
        f"by {others[band, centre]:.2f} dB at most, {CENTRES[centre]} Hz by the band at {CENTRES[band]}. Bands at 500 to 2000 Hz come out within "
        f"{max(np.max(others[3:6]), np.max(np.abs(own[3:6] - 6))):.2f} dB everywhere.",
        f"Nine equal gains are taken as they are, for the median is not corrected, and add up: 6 dB in every band gives up to {peak:.1f} dB.",
    ]


# --- docs/microphone_path.md -----------------------------------------------------------------------------------------


def curve_responses():
    """Of each rate, the impulse responses of both curves; a second long."""
    both = measured("measure_capture", "curves")
    return {16000: both[:16000], 48000: both[16000:]}


def curves():
    frequencies = [30, 50, 75, 100, 150, 200, 300, 500, 1200, 3200, 6000]
    gains = np.hstack([response(both, frequencies, rate) for rate, both in curve_responses().items()])[:, [0, 2, 1, 3]]
    head = ["Hz", "Curve 1 at 16000", "at 48000", "Curve 2 at 16000", "at 48000"]
    return table(head, [[str(f), *decibels(row, 1)] for f, row in zip(frequencies, gains)])


def gate():
    head = ["Speech over the opening level, dB", "Open after, ms", "6 dB down after, s", "20 dB", "49 dB"]
    rows = [[f"{row[0]:g}", f"{row[1]:.2f}", *[f"{seconds:.1f}" for seconds in row[2:]]]
            for row in measured("measure_capture", "gate")]
    return table(head, rows)


def clicks():
    *steps, narrow, wide = measured("measure_capture", "clicks")
    what = ["noise reduction on", "noise reduction off", "curve 1 on", "curve 2 on", "curve 1 off",
            "another setting, while curve 1 is on", "gate on", "gate off, while it is shut"]
    return [
        *table(["Change", "Largest step"], [[name, f"{step:.1f}"] for name, step in zip(what, steps)]), "",
        f"Noise reduction comes {narrow:.0f} samples late at 16000 and {wide:.0f} at 48000, and nothing else does: so the signal jumps by so much.",
    ]


def quality():
    """Ours and two suppressors of Debian's; the program is not for every machine."""
    if arguments.quality is None:
        return None
    lines = []
    for part in run(arguments.quality).strip().split("\n\n"):
        head, latency, _, *rows = part.splitlines()
        rate, *names = head.replace(" Hz", "").split()
        late = re.findall(r"= *([0-9.]+) ms", latency)
        heads = [f"{name} ({ms} ms): pauses, speech, segSNR" for name, ms in zip(names, late)]
        cells = []
        for row in rows:
            noise, snr, _, *figures = row.split()
            cells.append([f"{noise} {snr} dB", *[", ".join(figures[i:i + 3]) for i in range(0, len(figures), 3)]])
        lines += ["", *table([rate, *heads], cells)]
    return lines[1:]


# ---------------------------------------------------------------------------------------------------------------------

PART = re.compile(r"(<!-- measured: (\w+) -->\n)(.*?)(<!-- end -->)", re.DOTALL)
NUMBER = re.compile(r"[-+]?\d+(?:\.\d+)?")


def alike(told, found):
    if NUMBER.sub("", told) != NUMBER.sub("", found):
        return False
    for a, b in zip(NUMBER.findall(told), NUMBER.findall(found)):
        places = len(a.partition(".")[2])
        if places != len(b.partition(".")[2]) or abs(float(a) - float(b)) > 1.01 * 10.0**-places * (places > 0):
            return False
    return True


def main():
    global arguments
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--programs", type=pathlib.Path, required=True)
    parser.add_argument("--quality", type=pathlib.Path)
    parser.add_argument("--plots", type=pathlib.Path)
    parser.add_argument("--check", action="store_true")
    arguments = parser.parse_args()

    parts = 0
    wrong = []
    for page in (DOCS / "speaker_path.md", DOCS / "microphone_path.md"):
        def fill(match):
            nonlocal parts
            parts += 1
            lines = globals()[match[2]]()
            if lines is None:
                return match[0]
            text = "\n".join(lines) + "\n"
            if not alike(match[3], text):
                wrong.append(f"{page.name}: {match[2]}")
            return match[1] + text + match[4]

        filled = PART.sub(fill, page.read_text())
        if not arguments.check:
            page.write_text(filled)
    if arguments.plots:
        import plots
        plots.microphone_path(arguments.plots, curve_responses(), measured("measure_capture", "gate"))
    if arguments.check and (wrong or parts != 5):
        sys.exit("other figures than measured: " + ", ".join(wrong or ["parts are missing"]))


if __name__ == "__main__":
    main()
