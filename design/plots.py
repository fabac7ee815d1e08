# SPDX-License-Identifier: MIT
"""The figures of the docs pages about the tables. They show the taps as rounded, that is as compiled."""

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt
import numpy as np

RATE = 48000
EARS = {"left": "tab:blue", "right": "tab:orange"}
MARKS = [50, 100, 200, 500, 1000, 2000, 5000, 10000, 20000]
LABELS = ["50", "100", "200", "500", "1k", "2k", "5k", "10k", "20k"]


def axes(rows, columns, size, **share):
    figure, grid = plt.subplots(rows, columns, figsize=size, squeeze=False, constrained_layout=True, **share)
    return figure, grid.ravel()


def frequency_axis(axis, low=50, high=24000):
    axis.set_xscale("log")
    axis.set_xlim(low, high)
    axis.set_xticks([m for m in MARKS if low <= m <= high], [l for m, l in zip(MARKS, LABELS) if low <= m <= high])
    axis.set_xticks([], minor=True)
    axis.grid(True, alpha=0.3)


def save(figure, folder, name):
    folder.mkdir(parents=True, exist_ok=True)
    figure.savefig(folder / name, dpi=80, metadata={"Software": None})
    plt.close(figure)


def hrtf(folder, results):
    import hrtf as design

    frequency = design.FREQUENCY
    pairs = [results[i : i + 2] for i in range(0, len(results), 2)]

    figure, grid = axes(2, 4, (15, 6), sharey=True)
    for axis, pair in zip(grid, pairs):
        for row, measured, taps, _ in pair:
            axis.plot(frequency, design.in_db(taps) - measured / design.NEPER, color=EARS[row.ear], label=f"{row.ear} ear")
        axis.set_title(pair[0][0].speaker)
        axis.set_ylim(-10, 10)
        frequency_axis(axis)
    grid[7].axis("off")
    grid[0].legend()
    grid[0].set_ylabel("dB")
    grid[4].set_ylabel("dB")
    figure.supxlabel("Hz")
    save(figure, folder, "hrtf_correction.png")

    figure, (level, time) = axes(1, 2, (13, 4.5))
    for pair, style in zip(pairs, ["-", "--", None, "-", "--", "-", "--"]):
        if style is None:
            continue  # the centre has no near ear
        near, far = pair if pair[0][0].azimuth < 180 else pair[::-1]
        colour = {"front": "tab:blue", "back": "tab:red", "side": "tab:green"}[near[0].speaker.split()[0]]
        level.plot(frequency, design.in_db(near[2]) - design.in_db(far[2]), style, color=colour, label=near[0].speaker)
        # Phase delay of far against near ear. Minimum-phase responses need no unwrapping by more than their own turns.
        ear = [np.unwrap(np.angle(np.fft.rfft(r[2], design.SIZE))) for r in (near, far)]
        here = frequency > 40
        delay = (ear[0] - ear[1])[here] / (2 * np.pi * frequency[here]) + (far[0].onset - near[0].onset) / RATE
        time.plot(frequency[here], 1e6 * delay, style, color=colour, label=near[0].speaker)
    level.set_ylabel("near ear over far ear, dB")
    level.set_ylim(-5, 40)
    time.set_ylabel("phase delay of the far ear, µs")
    time.set_ylim(0, 1000)
    for axis in (level, time):
        frequency_axis(axis)
        axis.set_xlabel("Hz")
        axis.legend()
    save(figure, folder, "hrtf_interaural.png")


def xcorr(folder, h1, h2, spectrum, frequency, points):
    bins = points[:, 0].astype(int)
    dense = [np.abs(np.fft.rfft(h, 1 << 16)) for h in (h1, h2)]
    fine = np.arange(len(dense[0])) * RATE / (1 << 16)

    figure, grid = axes(2, 2, (13, 8))
    for h, values, colour, label in zip(dense, points[:, 1:3].T, EARS.values(), ("H1", "H2")):
        grid[0].plot(fine, 20 * np.log10(h + 1e-9), color=colour, label=label)
        known = np.abs(values) > 0
        grid[0].plot(frequency[bins[known]], 20 * np.log10(np.abs(values[known])), "o", color=colour, ms=4)
    grid[0].set_ylim(-100, 5)
    grid[0].set_ylabel("magnitude, dB")
    grid[0].legend()
    grid[1].plot(fine, dense[0], color=EARS["left"])
    grid[1].plot(frequency[bins], points[:, 1], "o", color=EARS["left"], ms=4)
    grid[1].set_ylim(0.8, 1.15)
    grid[1].set_ylabel("H1")
    grid[2].plot(fine, 2 * dense[0] * dense[1] / (dense[0] ** 2 + dense[1] ** 2), color="tab:green")
    grid[2].plot(frequency[bins], points[:, 3], "o", color="tab:green", ms=4)
    grid[2].set_ylabel("correlation of the outputs, magnitude")
    ratio = spectrum(h2) / spectrum(h1)
    grid[3].plot(frequency, ratio.real, color="tab:purple", label="in phase")
    grid[3].plot(frequency, ratio.imag, color="tab:gray", label="across")
    grid[3].set_ylabel("H2 / H1")
    grid[3].legend()
    for axis in grid:
        frequency_axis(axis)
    figure.supxlabel("Hz (dots: the figures asked for)")
    save(figure, folder, "xcorr_magnitude.png")

    figure, grid = axes(1, 2, (13, 3.5))
    grid[0].plot(h1, color=EARS["left"], lw=1)
    grid[0].set_title("H1 (taps 69 and 70 are 0.490 and 0.843)")
    grid[0].set_ylim(-0.1, 0.1)
    grid[1].plot(h2, color=EARS["right"])
    grid[1].set_title("H2")
    for axis in grid:
        axis.set_xlabel("tap")
        axis.grid(True, alpha=0.3)
    save(figure, folder, "xcorr_impulse.png")


def windows(folder, tables):
    import windows as design

    panels = [(f"{kind} {fs}", half, window, rate.fftLength) for (fs, rate), pair in zip(design.RATES.items(), tables)
              for kind, half, window in zip(("analysis", "synthesis"), pair, (rate.analysis, rate.synthesis))]

    figure, grid = axes(4, 2, (13, 14))
    for (title, half, window, _), left, right in zip(panels, grid[::2], grid[1::2]):
        at = np.arange(window.length) - window.length // 2
        ideal = design.kaiser(window)
        left.plot(at, design.full(ideal), color="0.7", lw=3, label=f"Kaiser, beta {window.beta}")
        left.plot(at, design.full(half) / window.peak, lw=1, label="table")
        left.set(title=title, ylabel="parts of the peak")
        left.legend()
        right.plot(at, 100 * (design.full(half) / window.peak - design.full(ideal)), lw=1)
        marks = np.array([sign * k for k in design.pins(window) for sign in (-1, 1)])
        right.plot(marks, 100 * (half[abs(marks)] / window.peak - ideal[abs(marks)]), "C3.", label="pins")
        right.set(title=f"{title}, table minus Kaiser", ylabel="% of the peak")
        right.legend(loc="lower right")
        right.grid(True, alpha=0.3)
    figure.supxlabel("samples from the centre")
    save(figure, folder, "window_shapes.png")

    figure, grid = axes(4, 2, (13, 14))
    for (title, half, window, length), *pair in zip(panels, grid[::2], grid[1::2]):
        for axis, end in zip(pair, (20, length / 2)):
            axis.plot(*design.spectrum(design.kaiser(window), length), color="0.7", lw=0.7, label="Kaiser")
            axis.plot(*design.spectrum(half, length), lw=0.7, label="table")
            axis.axvline(window.edge, color="C3", lw=0.8, ls="--", label=f"edge, {window.edge:g} bins")
            axis.set(title=title, xlim=(0, end), ylim=(-130, 5), ylabel="dB")
            axis.grid(True, alpha=0.3)
        pair[0].legend()
    figure.supxlabel("bins")
    save(figure, folder, "window_spectra.png")

    figure, grid = axes(1, 2, (13, 4))
    for (fs, rate), pair, axis in zip(design.RATES.items(), tables, grid):
        axis.semilogy(abs(design.plain_error(rate)), color="0.7", label="Kaiser windows")
        axis.semilogy(abs(design.identity_error(*pair, rate)) + 1e-12, "C0.", ms=3, label="tables")
        axis.axhline(1e-6, color="C3", lw=0.8, ls="--")
        axis.set(title=f"{fs}", ylabel="error of the identity", ylim=(1e-10, 1))
        axis.legend()
        axis.grid(True, alpha=0.3)
    figure.supxlabel("t, samples within a hop")
    save(figure, folder, "window_identity.png")


def room(folder, response):
    import room as measure

    time = np.arange(len(response)) / RATE
    figure, grid = axes(2, 1, (13, 6))
    shown = time < 0.3
    for ear, colour, sign in zip((0, 1), EARS.values(), (1, -1)):
        grid[0].plot(1000 * time[shown], sign * np.maximum(sign * response[shown, ear], 0), color=colour, lw=0.6)
        level = 20 * np.log10(np.abs(response[:, ear]) + 1e-9)
        grid[1].plot(1000 * time[time < 0.6], level[time < 0.6], ",", color=colour)
        grid[1].plot([], [], color=colour, label=("left ear", "right ear")[ear])
    grid[0].set_title("a click on the front left speaker: the positive half at the left ear, the negative half at the right ear")
    grid[1].set(ylim=(-120, 0), ylabel="dB", xlabel="ms")
    grid[1].legend()
    for axis in grid:
        axis.grid(True, alpha=0.3)
    save(figure, folder, "room_impulse.png")

    figure, (left, right) = axes(1, 2, (13, 4.5))
    at, density = measure.echo_density(response)
    left.plot(1000 * at, density)
    left.axhline(1, color="0.7", lw=0.8)
    left.set(ylim=(0, 1.2), xlim=(0, 400), xlabel="ms", ylabel="echo density, that of noise is 1")
    left.grid(True, alpha=0.3)
    centres = 1000 * 2 ** np.arange(-4.5, 4.6, 1 / 3)
    right.plot(centres, measure.correlation(response, centres, 1 / 3), "o-", ms=3, label="tail, thirds of octaves")
    frequency_axis(right, 40, 24000)
    right.axhline(0, color="0.7", lw=0.8)
    right.set(ylim=(-1, 1), xlabel="Hz", ylabel="correlation between the ears")
    right.legend()
    save(figure, folder, "room_ears.png")
