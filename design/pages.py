#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Fills the measured parts of the pages about both paths, from the compiled library.

A part stands between the lines <!-- measured: NAME --> and <!-- end --> of a page; NAME is a function here.

  design/pages.py --programs FOLDER                    the programs measure_path and measure_capture lie there
  design/pages.py --programs FOLDER --check            changes nothing, and fails where a page tells another figure
  design/pages.py --programs FOLDER --plot PROGRAM     draws the figures of the docs that quorel-plot draws as well
  design/pages.py --programs FOLDER --quality PROGRAM  the comparison with other noise suppressors as well (bench/quality); ten minutes

Another compiler rounds in another way, so for --check a figure may differ by one in its last place.
"""

import argparse
import pathlib
import re
import subprocess
import sys
import tempfile
import wave

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


def limiter():
    (level, gain), (_, out) = [np.loadtxt(part.splitlines()).T
                               for part in run(arguments.programs / "measure_path", "limiter").split("\n\n")]
    limited = np.where(level < 50, level * gain, 0)  # below the last entry
    out = 0.8 * out
    peaks = [np.max(np.abs(out[480 + 48 * ms:480 + 48 * (ms + 1)])) for ms in range(400)]
    return [
        f"Between two entries the gain is a straight line, which lies above the inverse: the limited level rises to {np.max(limited):.4f},",
        f"{20 * np.log10(np.max(limited)):.3f} dB above full scale, and that is accepted. "
        "From +34 dB on the gain stays at -34 dB, and the level rises again.", "",
        f"There is no look-ahead. A sine of 1 kHz that rises to +12 dB at once leaves with a peak of {peaks[0]:.2f}, its first crest whole but",
        f"for the output gain of 0.8; the second millisecond's peak is {peaks[1]:.2f}, the third's {peaks[2]:.2f}. The crest holds both envelopes",
        f"up, so the output dips to {min(peaks):.2f} and is back at {peaks[-1]:.2f} after 0.4 s.",
    ]


# --- docs/microphone_path.md -----------------------------------------------------------------------------------------


def curves():
    frequencies = [30, 50, 75, 100, 150, 200, 300, 500, 1200, 3200, 6000]
    both = measured("measure_capture", "curves")  # a second at each rate, both curves
    gains = np.hstack([response(both[:16000], frequencies, 16000), response(both[16000:], frequencies, 48000)])[:, [0, 2, 1, 3]]
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


def settling():
    rows = measured("measure_capture", "settling")
    levels = sorted(set(rows[:, 1]))
    noises = ["white", "pink, 3 dB per octave", "fan, 6 dB per octave", "hum of 50 Hz"]
    lines = []
    for rate in (16000, 48000):
        cells = rows[rows[:, 0] == rate, 2:].reshape(len(noises), len(levels), 3)
        times = [[f"{start:.1f}, {louder:.1f}" for start, louder, _ in row] for row in cells]
        held = [[f"{np.mean(row[:, 2]):.1f}"] for row in cells]
        lines += ["", *table([f"{rate}: noise", *[f"{level:.0f} dB" for level in levels], "held, dB"],
                             [[noise, *time, *gain] for noise, time, gain in zip(noises, times, held)])]
    return lines[1:]


def words():
    """What a recogniser hears; as the comparison, not for every machine."""
    if arguments.quality is None:
        return None
    sys.path.insert(0, str(DOCS.parent / "bench" / "quality"))
    import words as recogniser
    return table(*recogniser.cells(recogniser.table(arguments.quality)))


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

def noisy_voice(path):
    """Twelve seconds: a voice that comes and goes in a steady noise."""
    with wave.open("/usr/share/sounds/alsa/Front_Center.wav") as file:
        rate, voice = file.getframerate(), np.frombuffer(file.readframes(file.getnframes()), "<i2") / 32768
    sound = np.random.RandomState(1).normal(0, 0.01, 12 * rate)
    for start in range(rate // 2, len(sound) - len(voice), 2 * rate):
        sound[start:start + len(voice)] += voice
    with wave.open(str(path), "wb") as file:
        file.setparams((1, 2, rate, 0, "NONE", ""))
        file.writeframes(np.round(np.clip(sound, -1, 1) * 32767).astype("<i2").tobytes())


def figures(plot):
    with tempfile.TemporaryDirectory() as folder:
        voice = pathlib.Path(folder, "voice.wav")
        noisy_voice(voice)
        for name, *what in [
            ("equalizer_alone", "equalizer", "--eq", "5:+6dB"),
            ("equalizer_turns", "equalizer", "--eq", ",".join(f"{band}:{'-+'[band % 2 == 0]}6dB" for band in range(1, 10))),
            ("limiter", "limiter"),
            ("room", "room", "--reverb", "0dB"),
            ("curves", "curves"),
            ("gate", "gate", "--noiseGate", "-44dB"),
            ("noise", "noise", voice),
            ("responses", "responses"),
        ]:
            run(plot, *what, DOCS / "figures" / f"{name}.png")


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
    parser.add_argument("--plot", type=pathlib.Path)
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
    if arguments.plot:
        figures(arguments.plot)
    if arguments.check and (wrong or parts != 8):
        sys.exit("other figures than measured: " + ", ".join(wrong or ["parts are missing"]))


if __name__ == "__main__":
    main()
