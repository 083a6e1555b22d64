#!/usr/bin/env python3
"""Checks the library's binary images against Python's own idea of them.

Big-endian arrays and strings are compared with struct.pack('>...'); packed
arrays with a bit stream built here from a big integer (value i shifted left
by i * n bits, the whole stored least significant byte first), for random
values at every bit width from 0 to 31. Usage: check_binary_images.py TOOL
"""

import random
import struct
import subprocess
import sys


def run(tool, args, data):
    result = subprocess.run([tool] + args, input=data, capture_output=True,
                            check=False)
    if result.returncode != 0:
        raise SystemExit("%s %s failed (%d): %s" % (
            tool, " ".join(args), result.returncode,
            result.stderr.decode(errors="replace")))
    return result.stdout


def text(values):
    return ("\n".join(str(v) for v in values) + "\n").encode()


def expect(what, got, want):
    if got != want:
        where = next((i for i, (a, b) in enumerate(zip(got, want)) if a != b),
                     min(len(got), len(want)))
        raise SystemExit("%s: images differ at byte %d (got %d bytes, want %d)"
                         % (what, where, len(got), len(want)))


def packed_image(values, n):
    size = ((len(values) * n) & 0xFFFFFFFF) // 8 + 1
    stream = 0
    for i, v in enumerate(values):
        stream |= v << (i * n)
    return stream.to_bytes(size, "little")


def main():
    tool = sys.argv[1]
    rng = random.Random(20240601)
    checks = 0

    for width, code in ((2, "H"), (4, "I"), (8, "Q")):
        for count in (0, 1, 3, 17, 1000, 20000):
            values = [rng.getrandbits(8 * width) for _ in range(count)]
            values[:3] = [0, (1 << (8 * width)) - 1, 258][:count]
            got = run(tool, ["ints", str(width)], text(values))
            expect("width %d" % width, got,
                   struct.pack(">%d%s" % (count, code), *values))
            checks += 1

    for count in (1, 5, 3000):
        doubles = []
        while len(doubles) < count:
            d = struct.unpack("<d", rng.getrandbits(64).to_bytes(8, "little"))[0]
            if d == d and d not in (float("inf"), float("-inf")):
                doubles.append(d)
        doubles[0] = -0.0
        got = run(tool, ["doubles"], text(repr(d) for d in doubles))
        expect("doubles", got, struct.pack(">%dd" % count, *doubles))
        floats = []
        while len(floats) < count:
            f = struct.unpack("<f", rng.getrandbits(32).to_bytes(4, "little"))[0]
            if f == f and f not in (float("inf"), float("-inf")):
                floats.append(f)
        got = run(tool, ["floats"], text(repr(f) for f in floats))
        expect("floats", got, struct.pack(">%df" % count, *floats))
        checks += 2

    for length in (0, 1, 4, 255, 256, 65537, 100000):
        data = bytes(rng.getrandbits(8) for _ in range(length))
        got = run(tool, ["string"], data)
        expect("string of %d" % length, got, struct.pack(">I", length) + data)
        checks += 1

    for n in range(32):
        for count in (1, 2, 7, 31, 32, 33, 100, 1001):
            values = [rng.getrandbits(n) if n else 0 for _ in range(count)]
            want = packed_image(values, n)
            got = run(tool, ["pack", str(n)], text(values))
            expect("pack n=%d count=%d" % (n, count), got, want)
            hexed = " ".join("%02x" % b for b in want).encode()
            back = run(tool, ["unpack", str(n), str(count)], hexed)
            if [int(v) for v in back.split()] != values:
                raise SystemExit("unpack n=%d count=%d: values differ"
                                 % (n, count))
            checks += 2

    print("%d image checks passed" % checks)


if __name__ == "__main__":
    main()
