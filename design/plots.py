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

    figure, grid = axes(2, 4, (15, 6.5), sharey=True)
    for axis, pair in zip(grid, pairs):
        for row, measured, taps, _ in pair:
            axis.plot(frequency, measured / design.NEPER, ":", color=EARS[row.ear], lw=1)
            axis.plot(frequency, design.in_db(taps), color=EARS[row.ear], label=f"{row.ear} ear")
        axis.set_title(f"{pair[0][0].speaker}, measured at {pair[0][0].azimuth}°")
        axis.set_ylim(-42, 12)
    grid[7].plot(frequency, np.full(len(frequency), 20 * np.log10(0.707)), color="tab:gray")
    grid[7].set_title("low frequency, both ears")
    for axis in grid:
        frequency_axis(axis)
    grid[0].legend()
    grid[0].set_ylabel("dB")
    grid[4].set_ylabel("dB")
    figure.supxlabel("Hz (dotted: the measurement)")
    save(figure, folder, "hrtf_magnitude.png")

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

    figure, grid = axes(2, 4, (15, 6))
    for axis, pair in zip(grid, pairs):
        for row, _, taps, _ in pair:
            axis.plot(row.onset + np.arange(len(taps)), taps, color=EARS[row.ear], label=f"{row.ear} ear", lw=1)
        axis.set_title(pair[0][0].speaker)
    grid[7].vlines([11], 0, 0.707, color="tab:gray")
    grid[7].set_title("low frequency, both ears")
    for axis in grid:
        axis.set_xlim(-2, 172)
        axis.grid(True, alpha=0.3)
    grid[0].legend()
    figure.supxlabel("frames")
    save(figure, folder, "hrtf_impulse.png")


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


def room(folder, response, lines, curves):
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

    figure, (left, right) = axes(1, 2, (13, 5))
    for centre, curve, shade in zip(measure.OCTAVES, curves, np.linspace(0.0, 0.9, len(curves))):
        left.plot(time[: 30000], curve[:30000], color=plt.cm.viridis(shade), label=f"{centre} Hz")
    left.set(ylim=(-70, 1), xlim=(0, 0.6), xlabel="s", ylabel="energy to come, dB")
    left.legend(ncols=2)
    left.grid(True, alpha=0.3)
    frequency = np.geomspace(30, 22000, 400)
    right.plot(frequency, measure.designed(lines, frequency), color="0.6", label="the line filters alone")
    right.plot(measure.OCTAVES, [measure.time_of_60db(measure.designed_decay(lines, c), -5, -25) for c in measure.OCTAVES], "_",
               color="0.3", ms=14, label="the same over an octave")
    right.plot(measure.OCTAVES, [measure.time_of_60db(curve, -5, -25) for curve in curves], "o", label="measured, -5 to -25 dB")
    right.plot(measure.OCTAVES, [measure.time_of_60db(curve, -5, -35) for curve in curves], "x", label="measured, -5 to -35 dB")
    frequency_axis(right, 40, 22000)
    right.set(ylim=(0, 0.5), xlabel="Hz", ylabel="reverberation time, s")
    right.legend()
    save(figure, folder, "room_decay.png")

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


def speaker_path(folder, equalizer, curve, sound):
    import speaker_path as measure

    figure, grid = axes(2, 2, (13, 6.5), sharey=True)
    for axis, (gains, impulse) in zip(grid, equalizer):
        axis.plot(measure.FREQUENCY, measure.response(impulse, measure.FREQUENCY), color=EARS["left"], label="measured")
        axis.plot(measure.CENTRES, gains, "o", color=EARS["right"], label="the nine gains asked for")
        frequency_axis(axis, 20, 24000)
        axis.set(ylim=(-13, 13))
    grid[0].legend(loc="lower center")
    for axis in (grid[0], grid[2]):
        axis.set_ylabel("dB")
    figure.supxlabel("Hz")
    save(figure, folder, "equalizer_response.png")

    level, gain = curve
    figure, (whole, over, shown) = axes(1, 3, (15, 4.5))
    db = 20 * np.log10(level)
    whole.plot([-12, 0, 40], [-12, 0, 0], "--", color="0.6", lw=0.8)
    whole.plot(db, 20 * np.log10(level * gain))
    whole.set(xlabel="envelope, dB", ylabel="envelope times gain, dB", title="the curve")
    over.axhline(1, color="0.6", lw=0.8, ls="--")
    over.plot(db, level * gain)
    over.set(xlabel="envelope, dB", ylabel="envelope times gain", ylim=(0.995, 1.02), xlim=(-1, 35), title="its overshoot")
    time = 1000 * np.arange(sound.shape[1]) / RATE
    shown.plot(time, sound[0], color="0.7", lw=0.7, label="in: +12 dB from 10 ms on")
    shown.plot(time, sound[1] * measure.OUTPUT_GAIN, color=EARS["left"], lw=0.8, label="out")
    shown.set(xlabel="ms", xlim=(5, 35), title="a sine of 1 kHz through both limiters")
    shown.legend(loc="upper right")
    for axis in (whole, over, shown):
        axis.grid(True, alpha=0.3)
    save(figure, folder, "limiter.png")


def microphone_path(folder, responses, gate):
    """responses: of each rate, its impulse responses of the two curves, one a column. gate: rows of measure_capture gate."""
    import pages as measure

    figure, (curves, closing) = axes(1, 2, (13, 4.5))
    for (rate, impulses), style in zip(responses.items(), ("-", "--")):
        frequency = np.geomspace(20, rate * 0.499, 600)
        for curve, (gains, colour) in enumerate(zip(measure.response(impulses, frequency, rate).T, EARS.values()), 1):
            curves.plot(frequency, gains, style, color=colour, label=f"curve {curve} at {rate}")
    frequency_axis(curves, 20, 24000)
    curves.set(xlabel="Hz", ylabel="dB", title="the curves")
    curves.legend(loc="lower right")
    for column, label in enumerate(("6 dB down", "20 dB", "49 dB"), 2):
        closing.plot(gate[:, 0], gate[:, column], ".-", label=label)
    closing.set(xlabel="level of the speech over the one at which the gate is open, dB", ylabel="s after its end",
                title="how late the gate shuts", ylim=(0, None))
    closing.grid(True, alpha=0.3)
    closing.legend()
    save(figure, folder, "microphone_path.png")
