#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""cleaning.py <noisy recording> <cleaned recording> <picture>: what noise reduction does, against time.

Above stands the level of both, then the spectrogram before and after. The recordings are mono at 48 kHz and aligned.
"""
import subprocess
import sys

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt
import numpy as np

RATE = 48000
STEP = 960  # frames in one point of the level: 20 ms


def samples(path):
    raw = subprocess.run(["sox", path, "-t", "f32", "-L", "-"], check=True, capture_output=True).stdout
    return np.frombuffer(raw, "<f4").astype(float)


noisy, clean, picture = sys.argv[1:]
signals = [("before", samples(noisy), "tab:red"), ("after", samples(clean), "tab:blue")]

figure, axes = plt.subplots(3, 1, figsize=(15, 10), sharex=True, constrained_layout=True, height_ratios=[1, 1.5, 1.5])
for name, x, colour in signals:
    steps = x[: len(x) // STEP * STEP].reshape(-1, STEP)
    level = 10 * np.log10(np.mean(steps**2, axis=1) + 1e-12)
    axes[0].plot((np.arange(len(level)) + 0.5) * STEP / RATE, level, color=colour, label=name)
axes[0].set(ylabel="level, dB of full scale", ylim=(-60, -5), title="Voices in pink noise at 5 dB, and what noise reduction leaves")
axes[0].legend(loc="lower right")
axes[0].grid(alpha=0.3)

for axis, (name, x, _) in zip(axes[1:], signals):
    with np.errstate(divide="ignore"):
        *_, image = axis.specgram(x, NFFT=1024, Fs=RATE, noverlap=768, cmap="magma", vmin=-130, vmax=-50)
    axis.set(facecolor="black", ylabel=f"{name}, Hz", ylim=(60, 20000), yscale="log")
figure.colorbar(image, ax=axes[1:], label="dB of full scale per Hz", pad=0.01)
axes[2].set(xlabel="time, s", xlim=(0, len(signals[0][1]) / RATE))

figure.savefig(picture, dpi=100)
