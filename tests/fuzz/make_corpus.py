#!/usr/bin/env python3
"""Writes the fuzzer's seed corpus (tests/fuzz/corpus/): one file per case
below, in the input format described at the top of ripple_fuzzer.cpp."""
import os
import struct
import sys

FIX = 65536
(CALL, GSETUP, GSETDOWN, ABOUT, PSETUP, DEFAULTS, PARAM, FRAME, DOWNSAMPLE, TIME,
 QUALITY, FIELD, FAULT, FAILALLOC, RENDER, OUTFLAGS) = range(16)
RADIUS, CENTER, HEIGHT, ANGULAR, WIDTH, WAVEFORM, FREQ, INTENSITY, STRETCH, \
    STRETCH_ANGLE, TWIRL, PIN, ANTIALIAS, BLEND, CHAOS, PHASE = range(1, 17)
I32_MIN, I32_MAX = -2**31, 2**31 - 1


def op(code, fmt="", *args):
    return bytes([code]) + struct.pack("<" + fmt, *args)


def param(index, a, b=0):
    return op(PARAM, "Bii", index, a, b)


def render(w, h, pad=0, seed=1):
    return op(RENDER, "HHBB", w, h, pad, seed)


def fault(which, value):
    return op(FAULT, "Bi", which, value)


SETUP = b"\x01"  # global set-up and parameter set-up first
cases = {
    "defaults": SETUP + render(64, 48),
    "circular_area": SETUP + param(ANTIALIAS, 1) + op(QUALITY, "i", 1) + render(37, 29, 3, 2),
    "axis_stretched_bilinear": SETUP + param(STRETCH, 50 * FIX) + param(STRETCH_ANGLE, 90 * FIX)
    + param(ANTIALIAS, 2) + render(40, 40, 1, 3),
    "rotated_nearest": SETUP + param(STRETCH, 50 * FIX) + param(STRETCH_ANGLE, 30 * FIX)
    + param(ANTIALIAS, 3) + op(QUALITY, "i", 0) + render(33, 21, 5, 4),
    "stop_at_progress": SETUP + fault(5, 5) + render(50, 30) + fault(5, 40) + render(50, 30),
    "allocation_failure": SETUP + op(FAILALLOC, "H", 20) + render(30, 20) + op(FAILALLOC, "H", 2) + op(PSETUP),
    "failing_callbacks": SETUP + fault(0, 4) + render(16, 16) + fault(7, 0) + fault(1, 512) + fault(2, 4)
    + fault(3, 513) + render(16, 16) + fault(4, 3) + op(PSETUP),
    "downsample_and_frame": SETUP + op(DOWNSAMPLE, "iIiI", 1, 0, 0, 0) + render(20, 10)
    + op(DOWNSAMPLE, "iIiI", 1, 2, -1, 3) + op(FRAME, "ii", 41, 7) + render(20, 10),
    "times": SETUP + param(FREQ, 5 * FIX) + op(TIME, "iiIi", I32_MIN, 0, 30, 0) + render(24, 24)
    + op(TIME, "iiIi", I32_MIN, -1, 0, I32_MAX) + render(24, 24) + op(TIME, "iiIi", I32_MAX, 1, 1, 1) + render(24, 24)
    + op(TIME, "iiIi", I32_MIN, I32_MAX, 2**32 - 1, 0) + render(24, 24),
    # Boxes far beyond the area sampler's reach.
    "huge_boxes": SETUP + param(ANTIALIAS, 1) + op(QUALITY, "i", 1) + param(INTENSITY, 3)
    + b"".join(param(HEIGHT, h) + param(ANGULAR, h) + render(64, 48, 4) for h in (25 * FIX, 1000 * FIX, I32_MAX, I32_MIN)),
    # Values that make infinities or NaNs inside the render.
    "infinities_and_nans": SETUP + param(WIDTH, 0) + param(INTENSITY, 3) + render(40, 30, 8)
    + op(DEFAULTS) + param(STRETCH, -100 * FIX) + render(40, 30, 8)
    + op(DEFAULTS) + param(RADIUS, 0) + render(40, 30, 8)
    + op(DEFAULTS) + param(FREQ, 3 * FIX) + op(TIME, "iiIi", 500, 100, 0, 0) + render(40, 30, 8)
    + op(DEFAULTS) + op(TIME, "iiIi", 0, 1, 30, 0) + param(CENTER, I32_MIN, I32_MAX) + render(40, 30, 8)
    + op(DEFAULTS) + op(DOWNSAMPLE, "iIiI", 0, 0, 0, 0) + op(FRAME, "ii", 40, 30) + render(40, 30, 8),
    "popups_and_pin_center": SETUP + param(WAVEFORM, 0) + param(INTENSITY, 4) + param(TWIRL, -1)
    + param(PIN, 3) + render(1, 1) + render(2, 1) + param(PIN, 256) + param(WAVEFORM, 25) + render(2, 2, 7),
    "extremes_fields": SETUP + param(HEIGHT, I32_MAX) + param(ANGULAR, I32_MIN) + param(ANTIALIAS, 1)
    + op(FIELD, "i", 1) + render(61, 45, 2) + op(FIELD, "i", 2) + param(CENTER, I32_MAX, I32_MIN) + render(9, 300),
    "degenerate_widths": SETUP + param(WIDTH, 0) + param(INTENSITY, 3) + param(STRETCH, -100 * FIX)
    + param(CHAOS, 140 * FIX) + param(BLEND, 50 * FIX) + render(48, 36),
    "raw_commands": b"\x00" + render(8, 8) + op(CALL, "i", 11) + op(ABOUT) + op(CALL, "i", 17)
    + op(CALL, "i", I32_MIN) + op(OUTFLAGS, "i", 0x45) + op(GSETUP) + op(PSETUP) + op(DEFAULTS)
    + op(GSETDOWN) + render(0, 0, 9),
}

out = sys.argv[1] if len(sys.argv) > 1 else os.path.join(os.path.dirname(os.path.abspath(__file__)), "corpus")
os.makedirs(out, exist_ok=True)
for name, data in cases.items():
    with open(os.path.join(out, name), "wb") as f:
        f.write(data)
print(f"{len(cases)} seeds written to {out}")
