# SPDX-License-Identifier: MIT
"""pictures_within.py FOLDER: a page from standard input to standard output, its pictures, which lie in FOLDER, within it."""

import base64
import pathlib
import re
import sys

folder = pathlib.Path(sys.argv[1])


def within(picture):
    text = base64.b64encode((folder / picture[1]).read_bytes()).decode()
    return f'src="data:image/png;base64,{text}"'


sys.stdout.write(re.sub(r'src="([^":]+\.png)"', within, sys.stdin.read()))
