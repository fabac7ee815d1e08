#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""How many words a recogniser gets wrong before and after noise reduction, beside the two other suppressors of `quality`.

Eight synthetic voices, four of Flite and four of eSpeak NG, say twenty words each; `quality` puts them into noise at 16000 Hz and
cleans them; PocketSphinx, with its own English model, hears any sequence of the twenty words. A word that is another one, left out
or added is an error; errors are counted per hundred words said.

  bench/quality/words.py PROGRAM                       prints the table; PROGRAM is `quality`
  bench/quality/words.py PROGRAM white:10 ...          prints these rows
  bench/quality/words.py PROGRAM --check PAGE none:0   fails where the page tells other figures in these rows
"""

import argparse
import pathlib
import re
import subprocess
import sys
import tempfile
import wave

import numpy as np

WORDS = ("zero seven open close record delete window message quiet louder "
         "monday friday december yellow orange purple weather music coffee doctor").split()
VOICES = [("flite", voice) for voice in ("slt", "rms", "awb", "kal16")] + [
    ("espeak-ng", voice) for voice in ("en-us", "en-us+f3", "en-gb+m3", "en-gb-x-rp+f2")]
ROWS = ["none:0"] + [f"{noise}:{snr}" for noise in ("white", "pink", "babble") for snr in (5, 10, 20)]
HEARD = ["before", "QUOREL", "SpeexDSP", "webrtc"]
MODEL = "/usr/share/pocketsphinx/model/en-us"
TAKE = 5  # words in a file
LEVEL = 0.05  # of each file, root of the mean square; leaves room for noise as loud


def say(engine, voice, words, path):
    text = ", ".join(words) + "."
    if engine == "flite":
        subprocess.run(["flite", "-voice", voice, "-t", text, "-o", path], check=True)
    else:
        subprocess.run(["espeak-ng", "-v", voice, "-s", "140", "-w", path, text], check=True)
    with wave.open(str(path)) as file:
        rate, samples = file.getframerate(), np.frombuffer(file.readframes(file.getnframes()), "<i2") / 32768
    samples = samples * LEVEL / np.sqrt(np.mean(samples**2))
    with wave.open(str(path), "wb") as file:
        file.setparams((1, 2, rate, 0, "NONE", ""))
        file.writeframes(np.round(np.clip(samples, -1, 1) * 32767).astype("<i2").tobytes())


def takes(folder):
    """The files and the words in each; every voice has an order of its own."""
    said = []
    for v, (engine, voice) in enumerate(VOICES):
        order = [WORDS[(7 * i + 3 * v) % len(WORDS)] for i in range(len(WORDS))]
        for start in range(0, len(order), TAKE):
            path = folder / f"{len(said)}.wav"
            say(engine, voice, order[start:start + TAKE], path)
            said.append((path, order[start:start + TAKE]))
    return said


def recognise(folder, names):
    """The words that the recogniser hears in each file."""
    (folder / "grammar").write_text(f"#JSGF V1.0;\ngrammar words;\npublic <words> = ( {' | '.join(WORDS)} )+ ;\n")
    (folder / "list").write_text("".join(name + "\n" for name in names))
    # Each file's mean is its own, so that none depends on what was heard before it.
    subprocess.run(["pocketsphinx_batch", "-hmm", f"{MODEL}/en-us", "-dict", f"{MODEL}/cmudict-en-us.dict", "-jsgf", folder / "grammar",
                    "-cmn", "batch", "-adcin", "yes", "-adchdr", "44", "-cepdir", folder, "-cepext", ".wav",
                    "-ctl", folder / "list", "-hyp", folder / "heard", "-logfn", folder / "log"], check=True)
    heard = {}
    for line in (folder / "heard").read_text().splitlines():
        words, _, name = line.rpartition("(")
        heard[name.split()[0]] = words.split()
    return [heard[name] for name in names]


def errors(said, heard):
    """The least number of words to change, leave out or add (Levenshtein)."""
    row = list(range(len(heard) + 1))
    for i, word in enumerate(said, 1):
        last, row[0] = row[0], i
        for j, other in enumerate(heard, 1):
            last, row[j] = row[j], min(row[j] + 1, row[j - 1] + 1, last + (word != other))
    return row[-1]


def table(program, rows=None):
    """For each row its name and the errors per hundred words, before and behind each suppressor."""
    found = []
    with tempfile.TemporaryDirectory() as made:
        folder = pathlib.Path(made)
        said = takes(folder)
        for row in rows or ROWS:
            noise, _, snr = row.partition(":")
            subprocess.run([program, "recordings", folder, noise, snr, *[path for path, _ in said]], check=True)
            names = [f"{who}.{n}" for who in HEARD for n in range(len(said))]
            wrong = [errors(words, heard) for (_, words), heard in zip(said * len(HEARD), recognise(folder, names))]
            count = sum(len(words) for _, words in said)
            found.append((row, [100 * sum(wrong[k * len(said):(k + 1) * len(said)]) / count for k in range(len(HEARD))]))
    return found


def cells(found):
    """Head and rows of the page's table."""
    rows = []
    for row, percent in found:
        noise, _, snr = row.partition(":")
        rows.append(["no noise" if noise == "none" else f"{noise} {snr} dB", *[f"{errors:.0f}" for errors in percent]])
    return ["Wrong words of a hundred", *HEARD], rows


def check(found, page):
    """Rounding differs between processors and may turn a word that is close: up to 4 of a hundred may differ."""
    for name, *percent in cells(found)[1]:
        told = re.search(rf"^\| {name} \| (\d+) \| (\d+) \| (\d+) \| (\d+) \|$", page, re.MULTILINE)
        if not told or any(abs(int(a) - int(b)) > 4 for a, b in zip(told.groups(), percent)):
            sys.exit(f"the page does not tell {', '.join(percent)} for {name}")


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("program")
    parser.add_argument("rows", nargs="*", metavar="NOISE:SNR")
    parser.add_argument("--check", type=pathlib.Path, metavar="PAGE")
    arguments = parser.parse_args()
    found = table(arguments.program, arguments.rows)
    head, rows = cells(found)
    for row in [head, *rows]:
        print(f"{row[0]:26}", *[f"{cell:>10}" for cell in row[1:]])
    if arguments.check:
        check(found, arguments.check.read_text())
