#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Copies a SOFA file with one change: changed_sofa.py FROM TO CHANGE. The changes stand below."""
import shutil
import sys

import h5py
import netCDF4
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


def form(file):  # an attribute written in a way that libmysofa does not read
    file.attrs["SOFAConventions"] = np.bytes_("SimpleFreeFieldHRIR")


def swapped(file):
    file["Data.IR"][...] = file["Data.IR"][:][:, ::-1]


def hole(file):  # no number in a direction that no speaker needs
    values = file["Data.IR"][:]
    values[0, 0, 5] = float("nan")
    file["Data.IR"][...] = values


def gap(file):  # nothing within 9 degrees of front left: what was there is measured once more in front
    position = file["SourcePosition"][:]
    values = file["Data.IR"][:]
    azimuth, elevation = np.radians(position[:, :2]).T
    cosine = np.cos(elevation) * np.cos(azimuth - np.radians(30))
    near = cosine > np.cos(np.radians(9))
    front = np.flatnonzero((position[:, 0] == 0) & (position[:, 1] == 0))[0]
    position[near] = position[front]
    values[near] = values[front]
    file["SourcePosition"][...] = position
    file["Data.IR"][...] = values


def radii(file):  # the lowest ring is a source close by, in front of the head, that gives noise
    position = file["SourcePosition"][:]
    values = file["Data.IR"][:]
    low = position[:, 1] == -40
    position[low, 0] = np.arange(low.sum()) * 5
    position[low, 1] = 0
    position[low, 2] = 0.3
    values[low] = np.random.default_rng(1).standard_normal(values[low].shape)
    file["SourcePosition"][...] = position
    file["Data.IR"][...] = values


def written(source, target, rows, frames):
    """A new file, with some of the measurements and frames, as the netCDF library writes it."""
    with h5py.File(source) as old, netCDF4.Dataset(target, "w") as new:
        for name, value in old.attrs.items():
            if name != "_NCProperties":
                new.setncattr(name, "" if isinstance(value, h5py.Empty) else value.decode())
        taken = {"Data.IR": old["Data.IR"][:][rows][:, :, frames], "SourcePosition": old["SourcePosition"][:][rows]}
        for name, size in zip("ICREMN", [1, 3, 2, 1, *taken["Data.IR"].shape[::2]]):
            new.createDimension(name, size)
        for name, dimensions in {"Data.IR": "MRN", "Data.Delay": "IR", "Data.SamplingRate": "I", "SourcePosition": "MC",
                                 "ListenerPosition": "IC", "ListenerUp": "IC", "ListenerView": "IC",
                                 "ReceiverPosition": "RCI", "EmitterPosition": "ECI"}.items():
            variable = new.createVariable(name, "f8", tuple(dimensions), zlib=True)
            variable[:] = taken.get(name, old[name][()])
            for attribute in ("Type", "Units"):
                if attribute in old[name].attrs:
                    variable.setncattr(attribute, old[name].attrs[attribute].decode())


def frame(source, target):  # one of each response
    written(source, target, slice(None), slice(90, 91))


def long(source, target):  # one frame more than is taken, the first ones time and again
    written(source, target, slice(0, 2), np.arange(65537) % 64)


def eight(source, target):  # directions, every 45 degrees around
    with h5py.File(source) as old:
        position = old["SourcePosition"][:]
    written(source, target, np.flatnonzero((position[:, 1] == 0) & (position[:, 0] % 45 == 0)), slice(None))


def none(_, target):  # HDF5, but no SOFA file
    with h5py.File(target, "w") as file:
        file["x"] = np.zeros(3)


change = globals()[sys.argv[3]]
if change in (frame, long, eight, none):
    change(sys.argv[1], sys.argv[2])
else:
    shutil.copyfile(sys.argv[1], sys.argv[2])
    with h5py.File(sys.argv[2], "r+") as changed:
        change(changed)
