#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""What both effects cost, measured: fills docs/speed.md and draws its charts.

  bench/speed.py BUILD    runs the benchmarks of a build folder, keeps what they said in docs/speed.json, and writes page and
                          charts; ten minutes on a quiet machine
  bench/speed.py          writes page and charts from docs/speed.json
  bench/speed.py --check  changes nothing, and fails where page or charts tell something else

A part of the page stands between the lines <!-- measured: NAME --> and <!-- end -->; NAME is a function here.
"""

import json
import pathlib
import re
import subprocess
import sys

DOCS = pathlib.Path(__file__).resolve().parent.parent / "docs"
KEPT = DOCS / "speed.json"
WANTED = {
    "peers_bench": ".",
    "speaker_bench": "/(block/|stage/|ten_million_frames)",
    "capture_bench": "/(48000|16000)/",
}
WORST = "of three: worst/median"
VARIANTS = ["baseline", "avx2", "avx512"]


def measure(build):
    """What is worth keeping of what the benchmarks say: nanoseconds and ratios by name."""
    kept = {}
    for program, wanted in WANTED.items():
        said = subprocess.run([f"{build}/bench/{program}", f"--benchmark_filter={wanted}", "--benchmark_format=json"],
                              check=True, capture_output=True, text=True).stdout
        rows = {}
        for row in json.loads(said)["benchmarks"]:
            if row.get("error_occurred"):
                sys.exit(f"{program}: {row['name']}: {row['error_message']}")
            name = row["name"].split("/iterations")[0]
            rows[name] = {key: float(f"{row[key]:.5g}") for key in ("ns", "ratio", WORST) if key in row}
        kept[program] = rows
    cpuinfo = pathlib.Path("/proc/cpuinfo").read_text()
    told = dict(re.findall(r"^(model name|cpu family|model)\s*: (.*)$", cpuinfo, re.MULTILINE))
    kept["processor"] = f"{told['model name']}, family {told['cpu family']}, model {told['model']}"
    KEPT.write_text(json.dumps(kept, indent=1) + "\n")


def table(head, rows):
    return ["| " + " | ".join(row) + " |" for row in [head, ["---"] + ["---:"] * (len(head) - 1), *rows]]


def variants(names):
    """Those of the variants that were measured."""
    return [v for v in VARIANTS if any(v in name for name in names)]


# --- The parts of the page -------------------------------------------------------------------------------------------


def processor(kept):
    return [f"{kept['processor']}; variants {', '.join(variants(kept['speaker_bench']))}."]


def share(ns, frames, rate=48000):
    """Of one core, in per cent."""
    return ns * rate / frames / 1e7


def beside(kept, kind, of, frames, rate):
    rows = []
    for name, row in kept["peers_bench"].items():
        if name.startswith(f"{kind}/{of}/"):
            percent = share(row["ns"], frames, rate)
            rows.append([name.split("/")[2], f"{row['ns'] / 1000:.1f}", f"{percent:.3f} %", f"{int(100 / percent)}"])
    return table([f"{frames} frames at {rate} Hz", "\u00b5s a block", "of one core", "streams on one core"], rows)


def render(kept):
    return beside(kept, "render", 480, 480, 48000) + [""] + beside(kept, "render", 128, 128, 48000)


def capture(kept):
    return beside(kept, "capture", 48000, 480, 48000) + [""] + beside(kept, "capture", 16000, 160, 16000)


def by_number(kept, kind, head, frames):
    rows = {}
    for name, row in kept["peers_bench"].items():
        if name.startswith(kind + "/"):
            number = int(name.split("/")[1])
            rows.setdefault(number, []).append((row["ns"], share(row["ns"], frames or number)))
    shown = variants(kept["peers_bench"])
    return table([head] + [f"{v}, \u00b5s" for v in shown] + [f"{v}, of one core" for v in shown],
                 [[str(number)] + [f"{ns / 1000:.1f}" for ns, _ in row] + [f"{percent:.3f} %" for _, percent in row]
                  for number, row in rows.items()])


def blocks(kept):
    return by_number(kept, "frames", "frames", None)


def channels(kept):
    return by_number(kept, "channels", "channels", 480)


def ratios(kept):
    rows = []
    shown = variants(kept["speaker_bench"])
    for bench, name, says in [("speaker_bench", "block/surround", "render block, 480 frames of 7.1, all on"),
                              ("speaker_bench", "block/surround_off", "the same, surround effect off"),
                              ("speaker_bench", "stage/equalizer", "equaliser, nine bands of stereo"),
                              ("speaker_bench", "stage/output_compressor", "one limiter, 480 frames of stereo"),
                              ("capture_bench", "48000/noise_reduction", "noise reduction and meter, 5 ms at 48000 Hz"),
                              ("capture_bench", "48000/whole_path", "the same with curve and gate"),
                              ("capture_bench", "16000/noise_reduction", "noise reduction and meter, 5 ms at 16000 Hz"),
                              ("capture_bench", "16000/whole_path", "the same with curve and gate")]:
        rows.append([says] + [f"{kept[bench][f'{v}/{name}']['ratio']:.2f}" for v in shown])
    return table(["Y"] + shown, rows)


def worst(kept):
    """Where it was measured."""
    rows = kept["speaker_bench"]
    told = [f"{rows[f'{v}/ten_million_frames'][WORST]:.2f} ({v})" for v in VARIANTS if f"{v}/ten_million_frames" in rows]
    if not told:
        return []
    return ["Of the blocks of ten million frames, each at its least of three runs, the slowest takes of the median's time",
            f"{', '.join(told)}."]


# --- The charts ------------------------------------------------------------------------------------------------------


COLOURS = {"baseline": "#9aa5b1", "avx2": "#2f6f9f", "avx512": "#d9822b"}
OTHERS = "#6b4a7d"
THICK = 9


def drawing(title, height, parts):
    return "\n".join([
        f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 720 {height}" font-family="sans-serif" font-size="12">',
        f'<rect width="720" height="{height}" fill="white"/>', f'<text x="10" y="20" font-size="14">{title}</text>', *parts,
        "</svg>"]) + "\n"


def bar(left, top, length, colour, text):
    return [f'<rect x="{left}" y="{top}" width="{length:.1f}" height="{THICK - 1}" fill="{colour}"/>',
            f'<text x="{left + length + 4:.1f}" y="{top + 8}" font-size="9">{text}</text>']


def bars(title, stages, shown):
    """Stages in Y: a name and a value for each variant. An SVG of horizontal bars."""
    left, width = 190, 470
    high = len(shown) * THICK + 8
    most = max(max(values) for _, values in stages)
    out = []
    for k, variant in enumerate(shown):
        out += [f'<rect x="{left + 100 * k}" y="30" width="12" height="12" fill="{COLOURS[variant]}"/>',
                f'<text x="{left + 100 * k + 17}" y="41">{variant}</text>']
    for row, (name, values) in enumerate(stages):
        top = 52 + high * row
        out.append(f'<text x="{left - 8}" y="{top + high / 2:.0f}" text-anchor="end">{name}</text>')
        for k, (variant, value) in enumerate(zip(shown, values)):
            out += bar(left, top + THICK * k, value / most * width, COLOURS[variant], f"{value:.2f}")
    return drawing(title, 60 + high * len(stages), out)


def beside_others(kept, kind, of, title):
    """One bar for each program, in microseconds."""
    left, width, high = 290, 370, THICK + 9
    rows = [(name.split("/")[2], row["ns"] / 1000) for name, row in kept["peers_bench"].items()
            if name.startswith(f"{kind}/{of}/")]
    most = max(value for _, value in rows)
    out = []
    for row, (name, value) in enumerate(rows):
        top = 36 + high * row
        out.append(f'<text x="{left - 8}" y="{top + 9}" text-anchor="end">{name}</text>')
        out += bar(left, top, value / most * width, COLOURS.get(name.split(", ")[-1], OTHERS), f"{value:.1f}")
    return drawing(title, 44 + high * len(rows), out)


def chart(kept, bench, prefix, title):
    rows, shown = kept[bench], variants(kept[bench])
    first = f"{shown[0]}/{prefix}"
    names = [name[len(first):] for name in rows if name.startswith(first) and "sum" != name[len(first):]]
    names = [name for name in names if not name.startswith(("noise_reduction", "whole_path"))]
    return bars(title, [(name.replace("_", " "), [rows[f"{v}/{prefix}{name}"]["ratio"] for v in shown]) for name in names], shown)


def charts(kept):
    return {
        "speed_beside_render.svg": beside_others(kept, "render", 480, "480 frames of 7.1, in \u00b5s"),
        "speed_beside_capture.svg": beside_others(kept, "capture", 48000, "10 ms of mono at 48000 Hz, in \u00b5s"),
        "speed_render.svg": chart(kept, "speaker_bench", "stage/", "The render effect's stages, 480 frames of 7.1, in Y"),
        "speed_capture.svg": chart(kept, "capture_bench", "48000/", "The capture effect's stages, 5 ms at 48000 Hz, in Y"),
    }


# ---------------------------------------------------------------------------------------------------------------------


def filled(page, kept):
    return re.sub(r"(<!-- measured: (\w+) -->\n).*?(<!-- end -->)",
                  lambda part: part[1] + "\n".join(globals()[part[2]](kept)) + "\n" + part[3], page, flags=re.DOTALL)


def main():
    check = sys.argv[1:] == ["--check"]
    if len(sys.argv) > 2 or (sys.argv[1:] and sys.argv[1] in ("-h", "--help")):
        sys.exit(__doc__)
    if sys.argv[1:] and not check:
        measure(sys.argv[1])
    kept = json.loads(KEPT.read_text())
    page = DOCS / "speed.md"
    wanted = {page: filled(page.read_text(), kept)}
    wanted.update({DOCS / "figures" / name: drawn for name, drawn in charts(kept).items()})
    for path, text in wanted.items():
        if not check:
            path.write_text(text)
        elif not path.exists() or path.read_text() != text:
            sys.exit(f"{path.name} does not tell what docs/speed.json says: run bench/speed.py")


main()
