# SPDX-License-Identifier: MIT
"""What the design programs share: taps rounded to nine decimals, and how a table is written as C++."""

import numpy as np

DECIMALS = 9


def rounded(taps, noise, what):
    """Taps as whole multiples of 1e-9, which are the table.

    Rounding also takes away what differs in the last bits from one machine to the next (vector units, BLAS), unless
    a tap lies so close to the middle of two multiples that `noise`, the largest such difference, could decide: then
    the design is refused.
    """
    scaled = np.asarray(taps, dtype=float) * 10.0**DECIMALS
    units = np.rint(scaled)
    margin = 0.5 - np.max(np.abs(scaled - units))
    if not margin > 5 * noise * 10**DECIMALS:
        raise SystemExit(f"{what}: a tap lies {margin:g} of a unit from a tie, so its last digit would be chance")
    return units.astype(np.int64), margin


def value(units):
    return np.asarray(units, dtype=float) / 10.0**DECIMALS


def cpp_array(name, units, linkage="constexpr"):
    """The definition of one array of floats; `units` are whole multiples of 1e-9."""
    text = [f"{'-' if u < 0 else ' '}{abs(u) // 10**DECIMALS}.{abs(u) % 10**DECIMALS:0{DECIMALS}d}F" for u in units]
    lines = [", ".join(text[i : i + 5]) for i in range(0, len(text), 5)]
    body = "".join(f"    {line},\n" for line in lines)
    return f"{linkage} std::array<float, {len(units)}> {name} = std::to_array<float>({{\n{body}}});\n"
