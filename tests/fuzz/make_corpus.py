#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Makes the first inputs of each fuzz target: make_corpus.py FOLDER QUOREL_CLEAN."""
import pathlib
import struct
import subprocess
import sys
import tempfile

import netCDF4
import numpy as np

folder = pathlib.Path(sys.argv[1])


def put(target, name, content):
    (folder / target).mkdir(parents=True, exist_ok=True)
    (folder / target / name).write_bytes(content)


def wav(channels, frames, tag=3, bits=32, rate=48000, mask=None, order="<", samples=None):
    """A WAV file of any of its forms: floats or integers, plain or extensible, of either order of bytes."""
    width = bits // 8
    data = samples if samples is not None else bytes(range(256)) * (channels * frames * width // 256 + 1)
    data = data[:channels * frames * width]
    form = struct.pack(order + "HHIIHH", 0xFFFE if mask is not None else tag, channels, rate, rate * channels * width, channels * width, bits)
    if mask is not None:
        form += struct.pack(order + "HHIH", 22, bits, mask, tag) + bytes.fromhex("000000001000800000aa00389b71")
    chunks = b"fmt " + struct.pack(order + "I", len(form)) + form + b"data" + struct.pack(order + "I", len(data)) + data
    return (b"RIFF" if order == "<" else b"RIFX") + struct.pack(order + "I", 4 + len(chunks)) + b"WAVE" + chunks


put("wav", "float", wav(2, 40, samples=np.linspace(-1, 1, 80).astype("<f4").tobytes()))
put("wav", "pcm16", wav(1, 100, 1, 16))
put("wav", "pcm24", wav(2, 50, 1, 24, 44100))
put("wav", "big_endian", wav(1, 50, 1, 16, order=">"))
put("wav", "surround", wav(8, 20, 1, 16, mask=0x63F))
put("wav", "no_speakers", wav(3, 20, 1, 16, mask=0))
put("wav", "breaks_off", wav(2, 40)[:-30])
put("wav", "never_filled_in", wav(2, 40)[:40] + bytes(4) + bytes(200))
put("wav", "alaw", wav(1, 100, 6, 8))
put("wav", "nothing", b"")
for channels in range(4, 10):
    put("wav", f"plain_{channels}", wav(channels, 4, 1, 16))
put("wav", "no_format", wav(0, 4, 1, 16))
put("wav", "ends_in_a_head", wav(2, 4, 1, 16)[:36] + b"LIST" + struct.pack("<I", 4) + b"abcddat")
common = struct.pack(">HIH", 3, 4, 16) + bytes.fromhex("400ebb80000000000000")  # three channels, four frames, 48000 Hz
put("wav", "aiff_of_3", b"FORM" + struct.pack(">I", 4 + 8 + len(common) + 8 + 8 + 24) + b"AIFFCOMM" +
    struct.pack(">I", len(common)) + common + b"SSND" + struct.pack(">III", 8 + 24, 0, 0) + bytes(range(24)))
description = struct.pack(">d4sIIIII", 48000, b"lpcm", 0, 12, 1, 6, 16)
layout = struct.pack(">III", 123 << 16 | 6, 0, 0)  # left, centre, right, surrounds, woofer
put("wav", "caf_in_another_order", b"caff" + struct.pack(">HH", 1, 0) + b"desc" + struct.pack(">q", len(description)) + description +
    b"chan" + struct.pack(">q", len(layout)) + layout + b"data" + struct.pack(">qI", 4 + 48, 0) + bytes(range(48)))

with tempfile.TemporaryDirectory() as work:
    work = pathlib.Path(work)
    sound = (0.3 * np.sin(np.arange(320) * 0.1)).astype("<f4").tobytes()
    (work / "in.wav").write_bytes(wav(1, 320, rate=16000, samples=sound))
    for ending in ("flac", "aiff", "caf", "w64", "rf64"):
        subprocess.run([sys.argv[2], work / "in.wav", work / f"out.{ending}"], check=True)
        content = (work / f"out.{ending}").read_bytes()
        put("flac" if ending == "flac" else "wav", ending, content)
        put("flac" if ending == "flac" else "wav", ending + "_breaks_off", content[:-20])
    flac = (work / "out.flac").read_bytes()
    put("flac", "tagged", b"ID3\x04\0\0\0\0\0\x04abcd" + flac)
    put("flac", "head_alone", flac[:42])

    # A head of some directions and sixteen frames, one tap for each ear.
    azimuths = np.array([0, 30, 105, 145, 180, 215, 255, 330])

    def head(name, azimuths=azimuths, rate=48000, delay=((0, 0),), frames=16, radii=1.4, ears=0.1, equalized=False, change=None,
             **others):
        directions = len(azimuths)
        with netCDF4.Dataset(work / "set.sofa", "w", format="NETCDF4") as file:
            attributes = {"Conventions": "SOFA", "Version": "1.0", "SOFAConventions": "SimpleFreeFieldHRIR",
                          "SOFAConventionsVersion": "1.0", "DataType": "FIR", "RoomType": "free field", "Title": "x",
                          "APIName": "x", "APIVersion": "1", "AuthorContact": "x", "Organization": "x", "License": "x",
                          "ListenerShortName": "x", "DatabaseName": "x", "DateCreated": "x", "DateModified": "x"}
            for key, value in (attributes | others).items():
                file.setncattr(key, value)
            for dimension, length in {"M": directions, "R": 2, "N": frames, "E": 1, "C": 3, "I": 1}.items():
                file.createDimension(dimension, length)

            def variable(name, dimensions, value, **attributes):
                made = file.createVariable(name, "f8", dimensions)
                made[...] = value
                for key, text in attributes.items():
                    made.setncattr(key, text)

            spherical = {"Type": "spherical", "Units": "degree, degree, metre"}
            cartesian = {"Type": "cartesian", "Units": "metre"}
            variable("ListenerPosition", ("I", "C"), [[0, 0, 0]], **cartesian)
            variable("ListenerView", ("I", "C"), [[1, 0, 0]], **cartesian)
            variable("ListenerUp", ("I", "C"), [[0, 0, 1]], **cartesian)
            variable("EmitterPosition", ("E", "C", "I"), [[[0], [0], [0]]], **cartesian)
            variable("ReceiverPosition", ("R", "C", "I"), [[[0], [ears], [0]], [[0], [-ears], [0]]], **cartesian)
            variable("SourcePosition", ("M", "C"), np.stack([azimuths, 0 * azimuths, 0 * azimuths + radii], 1), **spherical)
            responses = np.zeros((directions, 2, frames))
            responses[:, 0, 4] = 0.5 + 0.3 * np.sin(np.radians(azimuths))
            responses[:, 1, 4] = 0.5 - 0.3 * np.sin(np.radians(azimuths))
            if change:
                change(responses)
            variable("Data.IR", ("M", "R", "N"), responses)
            variable("Data.SamplingRate", ("I",), [rate], Units="hertz")
            variable("Data.Delay", ("I" if len(delay) == 1 else "M", "R"), delay)
        put("sofa", name, bytes([not equalized]) + (work / "set.sofa").read_bytes())

    def swapped(responses):
        responses[:] = responses[:, ::-1].copy()

    def far_number(responses):
        responses[4, 0, 3] = np.nan

    head("head", equalized=True)
    head("as_measured")
    head("delayed", rate=44100, delay=[[1, 3]])
    # Ten degrees beside each speaker, so interpolated, with delays of its own, one direction nearer and one without a number.
    beside = np.array([10, 40, 115, 155, 185, 225, 265, 340, 90])
    head("beside", beside, equalized=True, delay=np.arange(18).reshape(9, 2) / 10, radii=np.array([1.4] * 8 + [0.7]),
         change=far_number)
    head("one_side", np.append(azimuths, [40, 50, 60, 70, 80, 90, 100, 110, 120, 130, 140]), equalized=True)
    head("swapped", change=swapped)
    head("short", frames=8)
    head("too_far", azimuths + 20)
    head("slow", rate=4000)
    head("before_its_time", delay=[[-1, 0]])
    head("other_convention", SOFAConventions="SimpleFreeFieldSOS")
    head("no_filter", DataType="TF")
    head("no_ears", ears=0.0)
put("sofa", "no_sofa", b"\1\x89HDF\r\n\x1a\n" + bytes(100))

pairs = np.zeros((40, 14), "<f4")
pairs[2, [0, 2, 4, 6, 7, 9, 11, 13]] = 1
pairs[5, [1, 3, 5, 8, 10, 12]] = 0.1
put("pairs", "set", wav(14, 40, samples=pairs.tobytes()))
put("pairs", "slower", wav(14, 40, rate=44100, samples=pairs.tobytes()))
put("pairs", "swapped", wav(14, 40, samples=pairs[:, ::-1].copy().tobytes()))
put("pairs", "silent", wav(14, 40, samples=bytes(40 * 14 * 4)))
put("pairs", "short", wav(14, 10, samples=pairs.tobytes()))
put("pairs", "stereo", wav(2, 40))
far = pairs.copy()
far[2, [0, 1]] = far[5, [1, 0]] = 0, 1  # as far from the left ear as the right one is from the right
put("pairs", "one_swapped", wav(14, 40, samples=far.tobytes()))
put("pairs", "empty", wav(14, 0))
spread = np.repeat(pairs[2:3], 400, axis=0)
put("pairs", "a_room", wav(14, 400, 1, 16, samples=(spread * 20000).astype("<i2").tobytes()))
pairs[9, 3] = np.nan
put("pairs", "no_number", wav(14, 40, samples=pairs.tobytes()))

put("preset", "whole", b'one\n{"settings": {"Enabled": 1, "Settings": 1, "Reverb": 170, "EQBand5": -40, "micEq": 2}}')
put("preset", "range", b'one\n{"settings": {"Reverb": 256}}')
put("preset", "twice", b'one\n{"settings": {"Reverb": 1, "Reverb": 2}}')
put("preset", "types", b'one\n{"settings": {"Reverb": 1.5, "micEq": "1"}}')
put("preset", "large", b'one\n{"settings": {"Reverb": 18446744073709551615}}')
put("preset", "unknown", b'one\n{"settings": {"levelsEnabled": 1}}')
put("preset", "else", b'one\n{"settings": {}, "more": []}')
put("preset", "list", b"LPT1\n[[[[[[1]]]]]]")
put("preset", "no_json", b"\n{")
put("preset", "bad_name", b'a b\n{"settings": {"Reverb": 3}}')
put("preset", "fuzz", b'fuzz\n{"settings": {"Reverb": 3}}')
put("bypassed", "some", b"Reverb=120\nEQBand1=-40\nmicEq=2\n")
put("bypassed", "broken", b"Reverb=\nReverb\n=1\nmicEq=99\nEQBand2=-3dB\nlevelsEnabled=1\n\0=\n")

put("bypassed", "nothing", b"")

put("kept_values", "some", b'\0"Enabled"=dword:00000001\n"Reverb"=dword:000000aa\n@="text"\n"EQBand9"=dword:ffffff81\n')
put("kept_values", "text", '\0"Enabled"="a \\\\ \\" ü 𝄞"\n'.encode())
put("kept_values", "broken", b'\0"Enabled"=dword:1\n')
put("kept_values", "open", b'\0"Enabled"="')
put("kept_values", "empty", b"")
OPEN, CREATE, DELETE, LIST, QUERY, NUMBER, TEXT, CLOSE = range(8)
MAIN, ABOVE, BELOW, SAME, HIDDEN, ELSE, SLASH, NOTHING = range(8)


def step(operation, key=3, place=MAIN, name=1, number=32, text=b"", fails=(0, 0, 0), read_alone=False):
    """An operation on one of the keys that are open, 3 for the user's root; fails: 1 for a call of the system, 2 for memory."""
    number += len(text) - number % 16
    return struct.pack("<BBBBBI", operation, key, place, not read_alone, name, number) + text + bytes(fails)


def steps(name, rows, file=b'"Enabled"=dword:00000001\n'):
    rows = b"".join(rows)
    put("kept_values", name, bytes([len(rows)]) + rows + file)


steps("keys", [step(CREATE), step(NUMBER, 0), step(TEXT, 0, name=2, text=b'a"\\\nb'), step(TEXT, 0, name=3, text=b"\xff"),
               step(QUERY, 0), step(QUERY, 0, name=3), step(QUERY, 0, number=48), step(QUERY, 0, name=2),
               step(QUERY, 0, name=0, number=64), step(LIST), step(CLOSE, 0), step(CREATE, place=BELOW), step(LIST, 0), step(DELETE, 0, SAME), step(DELETE),
               step(LIST, 0), step(CLOSE, 0)])
steps("refused", [step(NUMBER), step(QUERY), step(OPEN, place=HIDDEN), step(CREATE, place=SLASH), step(DELETE, place=NOTHING),
                  step(DELETE, place=ELSE), step(DELETE, place=SAME), step(DELETE, place=ABOVE), step(OPEN, read_alone=True),
                  step(NUMBER, 0), step(TEXT, 0), step(DELETE), step(LIST, 0), step(OPEN, 0, ELSE)])
for act, operation, key in (("open", OPEN, 3), ("create", CREATE, 3), ("delete", DELETE, 3), ("list", LIST, 3)):
    steps(f"calls_fail_to_{act}", [step(operation, key, ELSE if operation == CREATE else MAIN, fails=(1, count, count % 7))
                                   for count in range(8)])
for count in range(0, 8):
    steps(f"saving_fails_{count}", [step(CREATE), step(NUMBER, 0), step(CLOSE, 0, fails=(1, count, count % 7))])
steps("no_memory", [step(CREATE), *(step(operation, 0 if operation >= QUERY else 3, name=2, text=b"long enough to", fails=(2, 0, 0))
                                    for operation in range(7)), step(TEXT, 0, text=b"\xc3\xbc"), step(QUERY, 0, fails=(2, 1, 0)),
                    step(CLOSE, 0, fails=(2, 1, 0))])
steps("no_memory_later", [step(OPEN, fails=(2, 3, 0)), step(OPEN, fails=(2, 6, 0)), step(CREATE, fails=(2, 5, 0)),
                          step(LIST, fails=(2, 1, 0))])

put("registry_script", "class", b"""\x03HKCR
{
    NoRemove CLSID
    {
        ForceRemove {1234} = s 'QUOREL ''%NAME%'' 100%%'
        {
            InprocServer32 = s '%MODULE%'
            {
                val ThreadingModel = s 'Both'
            }
        }
    }
}
""")
put("registry_script", "plain", b"\xffHKCR { A { B = s '' { } val C = s 'x' } NoRemove D { NoRemove E { ForceRemove F } } }")
put("registry_script", "unknown", b"\x00HKCR { A = s '%ELSE%' }")
put("registry_script", "open", b"\x00HKCR { A = s 'x")
put("registry_script", "no_end", b"\x00HKCR { A { B")


def record(settings=1, noise_reduction=1, mic_eq=1, bands=(0,) * 9, gate=0, reverb=0, levels=1, hrtf=(0, 0, 0)):
    return struct.pack("<BBBBI9iIIBxxxIII", 1, 0, settings, noise_reduction, mic_eq, *bands, gate, reverb, levels, *hrtf)


for name, head in (("render", b"\x07\x00\x00"), ("stereo", b"\x01\x00\x00"), ("copied", b"\x01\x00\x03"),
                   ("capture", b"\x00\x01\x00"), ("voice", b"\x00\x01\x03")):
    whole, short, refused = b"\xdf\x01\x00\x01\x00", b"\x2f\x00\x00\x03\x01", b"\x80\x00\x07\x10\x00\x03\x00"  # blocks
    block = b"\x3f\x06\0\0" + record(bands=(20, -20, 30, -30, 40, -40, 50, -50, 60), gate=60, reverb=120)
    off = b"\x03\0\0\0" + record(settings=0, noise_reduction=0, mic_eq=0)
    hostile = b"\xff\xff\xff\xff" + record(mic_eq=3, gate=2**32 - 1, reverb=2**31, bands=(-2**31,) * 9, hrtf=(1, 1024, 8))
    put("control_block", name, head + block + whole + off + short + hostile + refused + (block + whole) * 2 + block + bytes(5))
    put("control_block", name + "_off", head + (off + whole) * 3 + block + whole + (hostile + whole) * 2)

tap = struct.pack("<2f", 0.5, -0.25)
fitting = struct.pack("<I", 1) + b"\0\0" + b"\x01" + tap + b"\xdf\x01\x01\x00"
put("hrtf_share", "fits", b"\x07" + fitting + fitting)
put("hrtf_share", "stereo", b"\x01" + struct.pack("<I", 1) + b"\x01" + struct.pack("<I", 1025) + b"\0\0" + tap + b"\x80\0\x01\0")
put("hrtf_share", "channels", b"\x07" + struct.pack("<I", 5) + b"\0\x01" + struct.pack("<I", 2**32 - 1) + b"\0" + tap[:4] + b"\x80\0\x01\0")
put("hrtf_share", "no_numbers", b"\x05" + struct.pack("<I", 9) + b"\0\0\x01" + struct.pack("<2f", float("nan"), float("inf")) + b"\x80\0\x01\0")

surround = b"\0" + b"\x08\0" + struct.pack("<H", 480) + b"\0\0"  # a stream: channels, its usual mask, frames, render, 48000
put("blocks", "render", surround + b"\x01\x01\x01\0" + b"".join(b"\x02" + struct.pack("<H", n) + b"\x01\x01\0" for n in (1, 47, 128, 480, 0, 481)))
settings = [b"\1" + bytes([field, value]) for field in range(18) for value in (2, 0)]
whole = b"\x02\xe0\x01\x01\1\0"  # a block
put("blocks", "settings", surround + b"".join(change + whole for change in settings[:30]))
put("blocks", "more_settings", surround + b"\1\1\1\1\2\xaa" + whole * 4 + b"\1\1\0" +
    b"".join(change + whole for change in settings[30:]) + whole * 4)
put("blocks", "copied", b"\0\x02\0" + struct.pack("<H", 480) + b"\0\x02" + b"\x02\x10\0\1\1\0" + b"\x02\x10\0\0\1\0\1\0" +
    surround[:-1] + b"\4")
voice = b"\0" + b"\x01\0" + struct.pack("<H", 960) + b"\x01\x01"
put("blocks", "capture", voice + b"".join(b"\x02" + struct.pack("<H", n) + b"\x01\x01\0" for n in (80, 160, 7, 240)))
put("blocks", "voice_settings", voice + b"".join(change + b"\x02\xf0\x00\x01\1\0" for change in settings[-30:]))
put("blocks", "none", b"\0\x09\0\x10\x00\0\0" + b"\0\0\0\x10\x00\0\0" + b"\0\x08\x01\xff\xff\xff\xff\x10\x00\0\0")
put("blocks", "lengths", surround + b"\x02" + struct.pack("<H", 100) + b"\0" + struct.pack("<H", 50) + b"\x01\0")

pcm = bytes.fromhex("0100000000001000800000aa00389b71")
floats = bytes.fromhex("0300000000001000800000aa00389b71")
uncompressed = floats + struct.pack("<IIIfI", 8, 4, 32, 48000, 0x63F)
plain = struct.pack("<HHIIHHH", 3, 2, 96000, 768000, 8, 32, 0)
extensible = struct.pack("<HHIIHHHHI", 0xFFFE, 8, 48000, 1536000, 32, 32, 22, 32, 0x63F) + floats
put("media_types", "surround", uncompressed + extensible)
put("media_types", "stereo", pcm + struct.pack("<IIIfI", 2, 2, 16, 96000, 0) + plain)
put("media_types", "voice", floats + struct.pack("<IIIfI", 1, 4, 32, 16000, 0) + struct.pack("<HHIIHHH", 3, 1, 16000, 64000, 4, 32, 0))
put("media_types", "compressed", bytes(16) + struct.pack("<IIIfI", 0, 0, 0, -1, 0) + struct.pack("<HHIIHHH", 0x55, 0, 0, 0, 0, 0, 0))
interfaces = bytes.fromhex("0000000000000000c000000000000046") + uncompressed[16:]
put("media_types", "interfaces", interfaces + plain)
put("media_types", "mono", pcm + struct.pack("<IIIfI", 1, 4, 32, 2.0**33, 0) + plain[:2] + bytes(2) + plain[4:])
put("media_types", "too_long", uncompressed + plain + bytes(30))

put("block_adapter", "gathers", b"\x00\x00" + struct.pack("<HHHHH", 239, 0, 96, 96, 480) + struct.pack("<HH", 128, 1024))
put("block_adapter", "slices", b"\x07\x01" + struct.pack("<HHHHHH", 127, 100, 128, 128, 1, 1999))
THERE, NOW, BEFORE = 2, 0, 1  # of an effect, and whether it has what was taken
SAVE, LOAD, REVERT = range(3)


def look(state=THERE, written=NOW, newest=0):
    return bytes([0, state, written] + ([newest] if written else []))


def edit(field, value, joined=0):
    return bytes([2, field]) + struct.pack("<h", value) + bytes([joined])


def preset(act, name=0):
    return bytes([9, name, act])


UNDO, REDO, COMPARE, TAKE = b"\4", b"\5", b"\x08", b"\x0a"
BYPASS, BYPASS_MICROPHONE, PUT_BACK = b"\6\0", b"\6\1", b"\7\0"
put("panel_model", "edits", look() + edit(3, 5) + edit(3, 6, 1) + edit(3, 7, 1) + TAKE + look(written=BEFORE) + UNDO + REDO + TAKE +
    look() + BYPASS + edit(4, 1) + PUT_BACK + COMPARE + edit(5, 9) + COMPARE + edit(6, 9999))
put("panel_model", "presets", look() + edit(3, 5) + preset(REVERT) + preset(SAVE) + edit(4, 1) + preset(REVERT) +
    BYPASS_MICROPHONE + preset(SAVE, 1) + edit(4, 2) + preset(LOAD) + preset(LOAD, 2) + preset(SAVE, 3) + TAKE + look())
put("panel_model", "others", look(0) + edit(3, 5) + UNDO + BYPASS + COMPARE + preset(LOAD) + look() + b"\1\4\x01" + edit(4, 0) +
    TAKE + look() + b"\1\4\x02" + look() + UNDO + look(1))

for index, words in enumerate((["set", "Reverb=170", "EQBand5=-40"], ["set", "Reverb"], ["set", "micEq=9"], ["get", "--json"], ["status"],
                               ["levels", "--watch", "--seconds", "1e-3"], ["hrtf", "load", "--gain", "1.5", "none.sofa"],
                               ["preset", "save", "one"], ["preset", "load", "con"], ["preset", "list", "--json"],
                               ["preset", "delete", "../one"], ["--help"], ["--version"], ["sett"], ["set", "reverb=3dB", "Reverb=2"],
                               ["--option-table"], ["hrtf", "clear", "--channels", "9"], ["reset", "Revreb"])):
    put("command_lines", f"control_{index}", b"\0" + "\n".join(words).encode())
for index, words in enumerate((["--reverb", "170", "--eq", "3:+2.5dB,4:7"], ["--eq", "0:1"], ["--EQBand1=-3", "--eq", "1:1"],
                               ["--preset", "none"], ["--help"], ["--reverb", "1e99"], ["--", "--reverb"])):
    put("command_lines", f"speaker_{index}", b"\1" + "\n".join(words).encode())
put("command_lines", "microphone", b"\2--micnr\n1\n--noisegate=0xFF\n--miceq\n-1")
