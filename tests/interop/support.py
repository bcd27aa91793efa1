"""What the interoperation tests share: running programs, reading and making pictures."""
import os
import resource
import struct
import subprocess
import sys
import tempfile
import unittest

import numpy as np

QELCONV = sys.argv.pop(1) if len(sys.argv) > 1 else "qelconv"
IMAGES = os.path.join(os.path.dirname(__file__), "..", "..", "examples", "images")


def run(*command, **options):
    """Runs a program that has to succeed; returns what it printed."""
    result = subprocess.run([str(c) for c in command], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, **options)
    if result.returncode:
        raise AssertionError(f"{' '.join(map(str, command))} failed ({result.returncode}): "
                             f"{result.stdout.decode(errors='replace')}")
    return result.stdout


def fails(*command):
    """Runs a program that has to fail by itself (not by a signal); returns what it printed."""
    result = subprocess.run([str(c) for c in command], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=60)
    assert result.returncode in (1, 2), f"{command} gave {result.returncode}"
    return result.stdout.decode(errors="replace")


def bounded(*command, seconds=6, megabytes=256):
    """Runs a program that has to end by itself within these bounds of processor time and memory; returns its status
    and what it printed."""
    with tempfile.TemporaryFile() as out:
        process = subprocess.Popen(["timeout", "600", *map(str, command)], stdout=out, stderr=subprocess.STDOUT,
                                   preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_CPU, (seconds, seconds)))
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
        out.seek(0)
        printed = out.read().decode(errors="replace")
    assert process.returncode in (0, 1, 2), f"{command} gave {process.returncode}: {printed}"
    assert usage.ru_maxrss < megabytes << 10, f"{command} took {usage.ru_maxrss >> 10} MB: {printed}"
    return process.returncode, printed


def contents(path):
    with open(path, "rb") as file:
        return file.read()


def convert(source, target, *options):
    run(QELCONV, source, target, *options)
    return target


def read_pnm(path):
    """A binary PGM, PPM or PAM as an array of height x width x channels."""
    with open(path, "rb") as file:
        data = file.read()
    if data[:2] == b"P7":
        head, body = data.split(b"ENDHDR\n", 1)
        fields = dict(line.split(b" ", 1) for line in head.split(b"\n")[1:] if b" " in line)
        width, height, depth, top = (int(fields[k]) for k in (b"WIDTH", b"HEIGHT", b"DEPTH", b"MAXVAL"))
    else:
        tokens, at = [], 2
        while len(tokens) < 3:
            while data[at:at + 1].isspace():
                at += 1
            end = at
            while not data[end:end + 1].isspace():
                end += 1
            tokens.append(int(data[at:end]))
            at = end
        width, height, top = tokens
        depth, body = (3 if data[:2] == b"P6" else 1), data[at + 1:]
    samples = np.frombuffer(body, ">u2" if top > 255 else "u1", width * height * depth)
    return samples.reshape(height, width, depth).astype(np.int32)


def write_pnm(path, array, top=255):
    height, width, depth = array.shape
    kind = {1: b"P5", 3: b"P6"}[depth]
    with open(path, "wb") as out:
        out.write(b"%s\n%d %d\n%d\n" % (kind, width, height, top))
        out.write(array.astype(">u2" if top > 255 else "u1").tobytes())
    return path


def read_pfm(path):
    head, size, _, body = contents(path).split(b"\n", 3)
    width, height = map(int, size.split())
    return np.frombuffer(body, "<f4").reshape(height, width, 3 if head == b"PF" else 1)[::-1]


TIFF_FIELDS = {"B": 1, "H": 3, "I": 4}


def write_tiff(path, array, bits, photometric=None, extra=None, kind=1, fields=()):
    """An uncompressed little-endian TIFF of one strip; `kind` is the sample format, `fields` are more of (tag, type as
    struct knows it, values)."""
    height, width, depth = array.shape
    data = array.astype("<u2" if bits == 16 else "u1").tobytes()
    data += bytes(len(data) % 2)
    entries = {256: ("I", [width]), 257: ("I", [height]), 258: ("H", [bits] * depth), 259: ("H", [1]),
               262: ("H", [photometric if photometric is not None else 1 if depth < 3 else 2]), 273: ("I", [8]),
               277: ("H", [depth]), 278: ("I", [height]), 279: ("I", [len(data)]), 284: ("H", [1]),
               339: ("H", [kind] * depth), **({338: ("H", [extra])} if extra is not None else {}),
               **{tag: (letter, values) for tag, letter, values in fields}}
    place, more, directory = 8 + len(data) + 2 + 12 * len(entries) + 4, b"", struct.pack("<H", len(entries))
    for tag, (letter, values) in sorted(entries.items()):
        value = struct.pack(f"<{len(values)}{letter}", *values)
        if len(value) > 4:
            more, value = more + value, struct.pack("<I", place + len(more))
        directory += struct.pack("<HHI", tag, TIFF_FIELDS[letter], len(values)) + value.ljust(4, b"\0")
    with open(path, "wb") as out:
        out.write(b"II*\0" + struct.pack("<I", 8 + len(data)) + data + directory + bytes(4) + more)
    return path


def read_tiff(path):
    """An uncompressed little-endian TIFF of one strip."""
    data = contents(path)
    at = struct.unpack_from("<I", data, 4)[0]
    fields = {}
    for i in range(struct.unpack_from("<H", data, at)[0]):
        tag, kind, count = struct.unpack_from("<HHI", data, at + 2 + 12 * i)
        letter = {1: "B", 3: "H", 4: "I"}.get(kind)
        if letter:
            place = at + 10 + 12 * i
            if struct.calcsize(letter) * count > 4:
                place = struct.unpack_from("<I", data, place)[0]
            fields[tag] = struct.unpack_from(f"<{count}{letter}", data, place)
    width, height, depth = fields[256][0], fields[257][0], fields[277][0]
    kind = "<u2" if fields[258][0] == 16 else "u1"
    samples = np.frombuffer(data, kind, width * height * depth, fields[273][0])
    return samples.reshape(height, width, depth).astype(int)


def psnr(a, b, top=255):
    error = np.mean((a.astype(float) - b.astype(float)) ** 2)
    return float("inf") if error == 0 else 10 * np.log10(top * top / error)


class InteropTest(unittest.TestCase):
    """A test with a directory of its own and the photographs as PPM files."""

    @classmethod
    def setUpClass(cls):
        cls._directory = tempfile.TemporaryDirectory()
        cls.coffee = convert(os.path.join(IMAGES, "coffee.png"), cls.path("coffee.ppm"))
        cls.raccoon = convert(os.path.join(IMAGES, "raccoon.png"), cls.path("raccoon.ppm"))

    @classmethod
    def tearDownClass(cls):
        cls._directory.cleanup()

    @classmethod
    def path(cls, name):
        return os.path.join(cls._directory.name, name)

    def file(self, name, data):
        """A file of these bytes."""
        with open(self.path(name), "wb") as out:
            out.write(data)
        return self.path(name)

    def cut(self, name, width, height, channels=3):
        """The top left part of the photograph, as a PNM file."""
        array = read_pnm(self.coffee)[:height, :width]
        return write_pnm(self.path(name), array if channels == 3 else array[:, :, 1:2])
