#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""panel_icon.py OUT.ico: the panel's icon for Windows, drawn as packaging/quorel-panel.svg is."""
import sys

from PIL import Image, ImageDraw

FINE = 16  # dots of the drawing in each of the picture's 64
DARK, LIGHT = "#2a7fa8", "#7cc0dc"

picture = Image.new("RGBA", (64 * FINE, 64 * FINE))
draw = ImageDraw.Draw(picture)


def scaled(*numbers):
    return [FINE * number for number in numbers]


draw.arc(scaled(10 - 3.5, 12 - 3.5, 54 + 3.5, 56 + 3.5), 180, 360, DARK, width=7 * FINE)
for x in (4, 46):
    draw.rounded_rectangle(scaled(x, 32, x + 14, 58), 6 * FINE, DARK)
for x, top, bottom in ((25, 40, 50), (32, 34, 56), (39, 42, 48)):
    draw.rounded_rectangle(scaled(x - 2, top - 2, x + 2, bottom + 2), 2 * FINE, LIGHT)
picture.resize((256, 256), Image.LANCZOS).save(sys.argv[1], sizes=[(16, 16), (32, 32), (48, 48)], bitmap_format="png")
