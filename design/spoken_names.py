#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Speaks the names of the speakers for the panel's speaker test: panel/spoken/*.wav, 16-bit samples at 16000 Hz.

The voice is Flite's "slt" (the Debian package flite); what is silent before and after a name is cut, and each is made as loud as
its samples allow with 6 dB to spare.

  spoken_names.py          writes the files
  spoken_names.py --check  says which of them the voice would speak otherwise, with exit code 1
"""
import pathlib
import subprocess
import sys
import tempfile
import wave

NAMES = ("front left", "front right", "front centre", "low frequency", "back left", "back right", "side left", "side right")
FOLDER = pathlib.Path(__file__).resolve().parent.parent / "panel" / "spoken"
QUIET = 0x7FFF // 200  # -46 dB: below it nothing of a name is heard
LOUDEST = 0x7FFF // 2


def speak(name, path):
    with tempfile.TemporaryDirectory() as folder:
        said = pathlib.Path(folder) / "said.wav"
        subprocess.run(["flite", "-voice", "slt", "-t", name, "-o", said], check=True)
        with wave.open(str(said)) as file:
            assert (file.getnchannels(), file.getsampwidth(), file.getframerate()) == (1, 2, 16000)
            raw = file.readframes(file.getnframes())
    samples = [int.from_bytes(raw[i:i + 2], "little", signed=True) for i in range(0, len(raw), 2)]
    loud = [i for i, x in enumerate(samples) if abs(x) > QUIET]
    samples = samples[loud[0]:loud[-1] + 1]
    peak = max(abs(x) for x in samples)
    with wave.open(str(path), "wb") as file:
        file.setnchannels(1)
        file.setsampwidth(2)
        file.setframerate(16000)
        file.writeframes(b"".join((x * LOUDEST // peak).to_bytes(2, "little", signed=True) for x in samples))


def main():
    check = sys.argv[1:] == ["--check"]
    different = []
    with tempfile.TemporaryDirectory() as folder:
        for name in NAMES:
            path = FOLDER / (name.replace(" ", "_") + ".wav")
            if not check:
                speak(name, path)
                continue
            spoken = pathlib.Path(folder) / path.name
            speak(name, spoken)
            if not path.exists() or path.read_bytes() != spoken.read_bytes():
                different.append(path.name)
    for name in different:
        print(f"{name} is not what the voice speaks")
    return 1 if different else 0


sys.exit(main())
