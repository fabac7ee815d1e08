#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""picture.py <7.1 recording> <its render> <picture>: what each ear gets, against time.

Above stands the level of both ears, then how far the left one is over the right one above 1 kHz, then the spectrogram of each. Each speaker's name stands over the time in which
its channel of the recording sounds.
"""
import subprocess
import sys

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt
import numpy as np

RATE = 48000
SPEAKERS = ["front left", "front right", "front centre", "low frequency", "back left", "back right", "side left", "side right"]
EARS = [("left", "tab:blue"), ("right", "tab:red")]
STEP = 960  # frames in one point of the level: 20 ms


def samples(path, channels):
    raw = subprocess.run(["sox", path, "-t", "f32", "-L", "-"], check=True, capture_output=True).stdout
    return np.frombuffer(raw, "<f4").reshape(-1, channels)


def level(x, above=0):
    """The mean power of each step, of what lies above so many Hz, in dB of full scale."""
    steps = x[: len(x) // STEP * STEP].reshape(-1, STEP)
    spectra = np.abs(np.fft.rfft(steps * np.sqrt(2) / STEP))[:, int(above * STEP / RATE) :]
    return 10 * np.log10(np.sum(spectra**2, axis=1) + 1e-9)


recording, render, picture = sys.argv[1:]
voices = samples(recording, len(SPEAKERS))
ears = samples(render, 2)

figure, axes = plt.subplots(4, 1, figsize=(15, 11), sharex=True, constrained_layout=True, height_ratios=[2, 1, 1, 1])
levels = [level(x) for x in ears.T]
times = (np.arange(len(levels[0])) + 0.5) * STEP / RATE
for (name, colour), y, width in zip(EARS, levels, [3, 1.5]):
    axes[0].plot(times, y, color=colour, linewidth=width, label=f"{name} ear")
axes[0].set(ylabel="level, dB of full scale", ylim=(-75, 0), title="What the headphones get, speaker by speaker")
axes[0].legend(loc="lower right")

left, right = (level(x, above=1000) for x in ears.T)
difference = np.where(np.maximum(left, right) > -65, np.clip(left - right, -25, 25), np.nan)
axes[1].plot(times, difference, color="black")
axes[1].set(ylabel="left over right ear\nabove 1 kHz, dB", ylim=(-27, 27))
for axis in axes[:2]:
    axis.grid(alpha=0.3)

for axis, (name, _), x in zip(axes[2:], EARS, ears.T):
    with np.errstate(divide="ignore"):  # silence is black
        *_, image = axis.specgram(x, NFFT=1024, Fs=RATE, noverlap=512, cmap="magma", vmin=-140, vmax=-50)
    axis.set(facecolor="black", ylabel=f"{name} ear, Hz", ylim=(60, 20000), yscale="log")
figure.colorbar(image, ax=axes[2:], label="dB of full scale per Hz", pad=0.01)
axes[3].set(xlabel="time, s", xlim=(0, len(ears) / RATE))

for name, voice in zip(SPEAKERS, voices.T):
    sounding = np.flatnonzero(voice) / RATE
    if len(sounding) == 0:
        continue
    for axis in axes[:2]:
        axis.axvspan(sounding[0], sounding[-1], color="grey", alpha=0.12)
    axes[0].text((sounding[0] + sounding[-1]) / 2, -3, name, ha="center", va="top", weight="bold")
    for axis in axes[2:]:
        axis.axvline(sounding[0], color="white", linewidth=0.7)
        axis.axvline(sounding[-1], color="white", linewidth=0.7)

figure.savefig(picture, dpi=100)
