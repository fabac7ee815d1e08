# SPDX-License-Identifier: MIT
# The program of main.c in Python, by the library that is named on the command line.
import ctypes
import sys

library = ctypes.CDLL(sys.argv[1])
library.quorel_error.restype = ctypes.c_char_p
library.quorel_error.argtypes = library.quorel_destroy.argtypes = [ctypes.c_void_p]
library.quorel_set.argtypes = [ctypes.c_void_p, ctypes.c_char_p, ctypes.c_int32]
floats = ctypes.c_float * (480 * 8)
library.quorel_process.argtypes = [ctypes.c_void_p, floats, floats, ctypes.c_uint32]

effect = ctypes.c_void_p()
why = ctypes.create_string_buffer(256)
if library.quorel_create_speaker(8, 0x63F, 480, 48000, ctypes.byref(effect), why) != 0:
    sys.exit(why.value.decode())
signal, out = floats(0.5), floats()  # a click on the front left speaker
for status in (library.quorel_set(effect, b"Settings", 1), library.quorel_set(effect, b"Reverb", 120),
               library.quorel_process(effect, signal, out, 480)):
    if status != 0:
        sys.exit(library.quorel_error(effect).decode())
for frame in range(20):
    print(f"{out[frame * 8]:+.4f}  {out[frame * 8 + 1]:+.4f}")
library.quorel_destroy(effect)
