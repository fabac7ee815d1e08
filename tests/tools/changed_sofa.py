#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Copies a SOFA file with one change: changed_sofa.py FROM TO CHANGE. The changes stand below."""
import shutil
import sys

import h5py
import numpy as np


def nan(file):  # one value of side left, right ear
    position = file["SourcePosition"][:]
    index = int(np.argmin(abs(position[:, 0] - 105) + abs(position[:, 1])))
    values = file["Data.IR"][:]
    values[index, 1, 30] = float("nan")
    file["Data.IR"][...] = values


def front(file):  # no measurement behind the listener
    position = file["SourcePosition"][:]
    position[(position[:, 0] > 90) & (position[:, 0] < 270), 0] = 0
    file["SourcePosition"][...] = position


def nowhere(file):
    file["SourcePosition"][...] = np.full(file["SourcePosition"].shape, float("nan"))


def delay(file):  # the right ear hears everything later
    file["Data.Delay"][...] = [[0, 20]]


def early(file):
    file["Data.Delay"][...] = [[-1, 0]]


def rate(file):  # the same samples at the effect's rate
    file["Data.SamplingRate"][...] = 48000


def slow(file):
    file["Data.SamplingRate"][...] = 0


def cartesian(file):  # the same positions
    azimuth, elevation, radius = np.radians(file["SourcePosition"][:]).T
    radius = np.degrees(radius)
    file["SourcePosition"][...] = np.stack([radius * np.cos(elevation) * np.cos(azimuth),
                                            radius * np.cos(elevation) * np.sin(azimuth),
                                            radius * np.sin(elevation)], 1)
    file["SourcePosition"].attrs["Type"] = np.bytes_("cartesian")
    file["SourcePosition"].attrs["Units"] = np.bytes_("metre")


def convention(file):
    file.attrs["SOFAConventions"] = np.bytes_("SingleRoomDRIR")


shutil.copyfile(sys.argv[1], sys.argv[2])
with h5py.File(sys.argv[2], "r+") as changed:
    globals()[sys.argv[3]](changed)
