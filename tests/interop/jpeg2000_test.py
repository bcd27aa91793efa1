"""JPEG 2000 both ways with OpenJPEG's command-line programs."""
import os
import re
import struct
import unittest

import numpy as np
from PIL import Image, ImageCms

from support import QELCONV, InteropTest, bounded, contents, convert, fails, psnr, read_pnm, run, write_pnm

# The writer's names of the code-block styles, and the peer's bits.
STYLES = {"bypass": 1, "reset": 2, "terminate": 4, "causal": 8, "segment": 32}
PREDICTABLE = 16


def segment(marker, body):
    return struct.pack(">HH", marker, len(body) + 2) + body


def tile_part(tile, header, data, part=0, count=1):
    """A tile-part with these segments in its header."""
    length = 14 + len(header) + len(data)
    return struct.pack(">HHHIBB", 0xff90, 10, tile, length, part, count) + header + b"\xff\x93" + data


def codestream(width, height, tile_width, tile_height, tiles, components=3, levels=5, block=4, order=0, layers=1,
               precincts=b"", planes=9):
    """A codestream of given tile-parts, as (tile, bytes)."""
    size = struct.pack(">H8IH", 0, width, height, 0, 0, tile_width, tile_height, 0, 0, components)
    size += b"\7\1\1" * components
    coding = struct.pack(">BBHB5B", len(precincts) > 0, order, layers, 0, levels, block, block, 0, 1) + precincts
    head = b"\xff\x4f" + segment(0xff51, size) + segment(0xff52, coding)
    head += segment(0xff5c, bytes([2 << 5]) + bytes([(planes - 1) << 3]) * (3 * levels + 1))
    return head + b"".join(tile_part(t, b"", data) for t, data in tiles) + b"\xff\xd9"


def all_passes(wide, high, passes):
    """The one packet of wide x high blocks, each with so many passes and a byte for them."""
    bits, seen = [1], set()
    levels = max(wide - 1, high - 1).bit_length() + 1
    for y in range(high):
        for x in range(wide):
            for tree in (0, 1):  # every node of both tag trees is 0
                for level in reversed(range(levels)):
                    node = (tree, level, x >> level, y >> level)
                    bits += [1] * (node not in seen)
                    seen.add(node)
            bits += [int(b) for b in f"{0xFF80 | passes - 37:016b}0{1:0{3 + passes.bit_length() - 1}b}"]
    out, byte, room = bytearray(), 0, 8
    for bit in bits + [0] * 16:
        room -= 1
        byte |= bit << room
        if room == 0:
            out.append(byte)
            byte, room = 0, 7 if byte == 255 else 8
    return bytes(out) + b"\x55" * (wide * high)


def insert(data, marker, body):
    """A marker segment more in the main header."""
    at = data.index(b"\xff\x90")
    return data[:at] + segment(marker, body) + data[at:]


def taken_apart(data):
    """What a file's COD and QCD segments have, and its tiles' data."""
    head, *tiles = re.split(rb"\xff\x90\x00\x0a.{8}\xff\x93", data[:-2], flags=re.DOTALL)
    bodies, at = {}, 2
    while at < len(head):
        marker, length = struct.unpack(">HH", head[at:at + 4])
        bodies[marker] = head[at + 4:at + 2 + length]
        at += 2 + length
    return bodies[0xff52], bodies[0xff5c], tiles


def with_changes(data, changes):
    return insert(data, 0xff5f, b"".join(struct.pack(">BBHBBB", *c) for c in changes))


def with_packed_headers(data, in_front):
    """Takes the headers out of packets, which markers delimit, into tile-parts' headers or the main one."""
    at = data.index(b"\xff\x90")
    head, parts, packed, numbers = data[:at], b"", b"", {}
    while data[at:at + 2] == b"\xff\x90":
        tile, length, part, count = struct.unpack(">HIBB", data[at + 4:at + 12])
        packets = re.split(rb"\xff\x91\x00\x04..", data[at + 14:at + length], flags=re.DOTALL)[1:]
        ends = [p.index(b"\xff\x92") + 2 for p in packets]
        headers, own = b"".join(p[:end] for p, end in zip(packets, ends)), b""
        body = b"".join(p[end:] for p, end in zip(packets, ends))
        if in_front:
            packed += struct.pack(">I", len(headers)) + headers
        else:
            own = pieces(0xff61, headers, 30, numbers.get(tile, 0))
            numbers[tile] = numbers.get(tile, 0) + len(headers) // 30 + 1
        parts += tile_part(tile, own, body, part, count)
        at += length
    return head + pieces(0xff60, packed, 70) + parts + data[at:]


def pieces(marker, data, size, first=0):
    return b"".join(struct.pack(">HHB", marker, len(data[i:i + size]) + 3, first + i // size) + data[i:i + size]
                    for i in range(0, len(data), size))


def with_region(data, shift):
    """Says that planes from this one on hold a region of interest. Magnitudes keep their number of planes."""
    at = data.index(b"\xff\x5c")
    length, style = struct.unpack(">HB", data[at + 2:at + 5])
    steps = bytearray(data[at + 5:at + 2 + length])
    for i in range(0, len(steps), 2 if style & 31 else 1):
        steps[i] -= shift << 3
    data = data[:at + 5] + bytes(steps) + data[at + 2 + length:]
    for component in range(3):
        data = insert(data, 0xff5e, bytes([component, 0, shift]))
    return data


def in_tile_header(data, marker):
    """Moves segments from the main header to that of the only tile."""
    at = data.index(b"\xff\x90")
    every = re.compile(struct.pack(">H", marker) + rb"\x00\x05...", re.DOTALL)
    own = b"".join(every.findall(data[:at]))
    return every.sub(b"", data[:at]) + tile_part(0, own, data[at + 14:-2]) + b"\xff\xd9"


def box(kind, body):
    return struct.pack(">I", len(body) + 8) + kind + body


def boxed(data, width, height, space, boxes, method=1):
    components = struct.unpack(">H", data[40:42])[0]
    head = box(b"ihdr", struct.pack(">IIH4B", height, width, components, 7, 7, 0, 0))
    head += box(b"colr", struct.pack(">3BI", method, 0, 0, space)) + boxes
    return (box(b"jP  ", b"\r\n\x87\n") + box(b"ftyp", b"jp2 \0\0\0\0jp2 ") + box(b"jp2h", head)
            + box(b"jp2c", data))


class Jpeg2000Test(InteropTest):
    def their_picture(self, path):
        target = self.path("theirs.pgm" if path.endswith("grey.j2k") else "theirs.ppm")
        run("opj_decompress", "-i", path, "-o", target)
        return read_pnm_with_comments(target)

    def their_file(self, source, *options, kind="j2k"):
        target = self.path("theirs." + kind)
        run("opj_compress", "-i", source, "-o", target, *options)
        return target

    def our_file(self, source, *options, kind="j2k"):
        return convert(source, self.path("ours." + kind), *options)

    def our_picture(self, path):
        return read_pnm(convert(path, self.path("ours.pnm")))

    def assert_lossless_both_ways(self, source, ours=(), theirs=()):
        original = read_pnm(source)
        np.testing.assert_array_equal(self.our_picture(self.their_file(source, *theirs)), original)
        path = self.our_file(source, *ours)
        np.testing.assert_array_equal(self.their_picture(path), original)
        np.testing.assert_array_equal(self.our_picture(path), original)

    # --- lossless ----------------------------------------------------------------------------------------------------

    def test_every_block_style(self):
        source = self.cut("part.ppm", 83, 70)
        for mask in range(32):
            names = [name for i, name in enumerate(STYLES) if mask >> i & 1]
            bits = sum(STYLES[name] for name in names)
            with self.subTest(styles=names):
                self.assert_lossless_both_ways(source, ["--style", ",".join(names)] if names else [],
                                               ["-M", bits] if bits else [])
                # A false alarm of the termination test would leave passes out.
                path = self.their_file(source, "-M", bits | PREDICTABLE)
                np.testing.assert_array_equal(self.our_picture(path), read_pnm(source))

    def test_odd_sizes(self):
        for width, height in [(1, 1), (1, 9), (13, 1), (2, 3), (17, 31), (65, 64), (131, 67)]:
            with self.subTest(width=width, height=height):
                levels = 1 + max(0, min(width, height, 32).bit_length() - 1)
                self.assert_lossless_both_ways(self.cut("odd.ppm", width, height), (), ["-n", levels])
        source = self.cut("grey.pgm", 61, 43, 1)
        path = self.our_file(source, kind="grey.j2k")
        np.testing.assert_array_equal(self.their_picture(path), read_pnm(source))

    # Blue against green where the low-pass filter weighs up and the other way round where it weighs down, and noise in
    # samples of few bits: coefficients as large as they get.
    def test_large_coefficients(self):
        signs = np.resize([-1, 1, 1, 1], 64)
        blue = np.outer(signs, signs) > 0
        random = np.random.default_rng(12)
        for top, array in ((255, np.dstack([blue * 0, ~blue * 255, blue * 255])),
                           (1, random.integers(0, 2, (40, 21, 3))), (7, random.integers(0, 2, (40, 21, 3)) * 7)):
            source = write_pnm(self.path("large.ppm"), array, top)
            for levels in (1, 2, 5):
                with self.subTest(top=top, levels=levels):
                    path = self.our_file(source, "--levels", levels)
                    np.testing.assert_array_equal(self.our_picture(path), array)
                    np.testing.assert_array_equal(self.their_picture(path), array)

    def test_levels_blocks_tiles_and_order(self):
        source = self.cut("part.ppm", 150, 117)
        for ours, theirs in [
            (["--levels", 0], ["-n", 1]),
            (["--levels", 8], ["-n", 7]),
            (["--block", "4x256"], ["-b", "4,256"]),
            (["--block", "512x8"], ["-b", "512,8"]),
            (["--block", "16x16", "--style", "bypass,terminate"], ["-b", "16,16", "-M", 5]),
            (["--tiles", "64x47"], ["-t", "64,47"]),
            (["--tiles", "33x117", "--layers", 3], ["-t", "33,117", "-r", "20,10,1"]),
            (["--order", "RLCP"], ["-p", "RLCP"]),
            (["--order", "RPCL", "--layers", 2], ["-p", "RPCL", "-r", "9,1", "-c", "[64,64],[32,32]"]),
            (["--order", "PCRL"], ["-p", "PCRL", "-c", "[128,128]"]),
            (["--order", "CPRL"], ["-p", "CPRL", "-SOP", "-EPH"]),
        ]:
            with self.subTest(options=ours):
                self.assert_lossless_both_ways(source, ours, theirs)

    def test_deep_samples(self):
        original = (read_pnm(self.cut("part.ppm", 50, 41)) * 257) ^ 0x5A
        for bits in (12, 16):
            top = (1 << bits) - 1
            source = write_pnm(self.path("deep.ppm"), original >> (16 - bits), top)
            with self.subTest(bits=bits):
                self.assert_lossless_both_ways(source)

        # Of more the upper 16 bits stay. The peer takes as many as the largest sample has.
        deep = (original[:, :, 0] << 4) + 7
        deep[0, 0] = (1 << 20) - 1
        self.file("deep.pgx", b"PG ML + 20 50 41\n" + deep.astype(">u4").tobytes())
        for options, most in ([], 0), (["-I"], 1):
            ours = self.our_picture(self.their_file(self.path("deep.pgx"), *options))[:, :, 0]
            self.assertLessEqual(np.abs(ours - (deep >> 4)).max(), most)

    def test_jp2_and_alpha(self):
        source = self.cut("part.ppm", 50, 41)
        self.assertTrue(np.array_equal(self.our_picture(self.their_file(source, kind="jp2")), read_pnm(source)))
        self.assertTrue(np.array_equal(self.their_picture(self.our_file(source, kind="jp2")), read_pnm(source)))
        rgb = read_pnm(source).astype(np.uint8)
        rgba = np.dstack([rgb, 255 - rgb[:, :, :1]])
        with open(self.path("rgba.pam"), "wb") as out:
            out.write(b"P7\nWIDTH 50\nHEIGHT 41\nDEPTH 4\nMAXVAL 255\nTUPLTYPE RGB_ALPHA\nENDHDR\n" + rgba.tobytes())
        path = convert(self.path("rgba.pam"), self.path("rgba.jp2"))
        np.testing.assert_array_equal(read_pnm(convert(path, self.path("back.pam"))), rgba)
        run("opj_decompress", "-i", path, "-o", self.path("rgba.png"))
        np.testing.assert_array_equal(read_pnm(convert(self.path("rgba.png"), self.path("back.pam"))), rgba)

    # --- components --------------------------------------------------------------------------------------------------

    # Files of the peer's, of samples that only their coding has to carry: what both readers make of each component.
    def test_components_of_theirs(self):
        for layout, options in [
                ("4,8,u@1x1:2x2:2x2:1x1", ["-p", "PCRL", "-c", "[32,32],[16,16]"]),
                ("3,8,u@2x1:1x2:3x4", ["-p", "RPCL", "-c", "[16,32]", "-t", "50,31", "-n", 3]),
                ("3,8,u@1x1:4x1:1x3", ["-p", "CPRL", "-c", "[32,32]", "-d", "5,3", "-t", "37,40", "-n", 2]),
                ("3,8,u@1x1:1x1:1x1", ["-s", "2,2"]),
                ("1,8,s@1x1", []),
                ("4,12,s@1x1:2x1:2x1:1x1", ["-I", "-r", 4]),
                ("16,8,u@" + ":".join(["1x1"] * 16), ["-mct", 0, "-t", "64,64"]),
                ("3,8,u@1x1:1x1:1x1", ["-ROI", "c=1,U=9"]),
                ("3,8,u@1x1:1x1:1x1", ["-ROI", "c=0,U=12", "-I", "-r", 3]),
                ("3,8,u@1x1:1x1:1x1", ["-r", "9,3,1", "-TP", "R", "-p", "RLCP"]),
                ("3,8,u@1x1:1x1:1x1", ["-r", "9,3,1", "-TP", "C", "-p", "CPRL", "-t", "40,40", "-PLT", "-TLM"]),
                ("3,8,u@1x1:1x1:1x1", ["-r", "9,3,1", "-TP", "L"]),
                ("3,8,u@1x1:1x1:1x1", ["-r", "9,3,1", "-POC", "T1=0,0,3,3,3,CPRL/T1=3,0,3,6,3,RLCP"])]:
            with self.subTest(layout=layout, options=options):
                self.assert_components(self.raw_file(layout, *options), int(layout.split(",")[1]), "-I" in options)

    # The same packets said to come by turns of the progression, with their headers elsewhere, or partly in a region of
    # interest, which coefficients of more than 5 bits become: both readers take them alike.
    def test_rewritten_codestreams(self):
        source = self.cut("part.ppm", 90, 61)
        options = ["-r", "9,3,1", "-t", "64,61", "-SOP", "-EPH"]
        for name, extra, rewrite in [
                ("layers", [], lambda d: with_changes(d, [(0, 0, 1, 6, 3, 0), (0, 0, 2, 9, 3, 0), (0, 0, 3, 6, 3, 0)])),
                ("resolutions", ["-p", "RLCP"], lambda d: with_changes(d, [(0, 0, 3, 2, 3, 1), (0, 0, 9, 33, 255, 1)])),
                ("places", ["-p", "PCRL"], lambda d: with_changes(d, [(0, 0, 3, 6, 3, 3)])),
                ("in tile-parts", ["-TP", "R", "-p", "RPCL"], lambda d: with_packed_headers(d, False)),
                ("in front", ["-TP", "L"], lambda d: with_packed_headers(d, True))]:
            with self.subTest(name=name):
                path = self.their_file(source, *options, *extra)
                path = self.file("rewritten.j2k", rewrite(contents(path)))
                np.testing.assert_array_equal(self.their_picture(path), read_pnm(source))
                np.testing.assert_array_equal(self.our_picture(path), read_pnm(source))
        data = contents(self.their_file(source, "-n", 1, "-mct", 0))
        level = read_pnm(source) - 128
        size = np.abs(level)
        expected = 128 + np.sign(level) * np.where(size >= 32, size >> 5, size)
        path = self.file("in_tile.j2k", in_tile_header(with_region(data, 5), 0xff5e))
        np.testing.assert_array_equal(self.our_picture(path), expected)
        path = self.file("rewritten.j2k", with_region(data, 5))
        np.testing.assert_array_equal(self.our_picture(path), expected)
        # The peer takes one plane of the background for the region, too, which in its own files is empty.
        agreed = (size < 16) | (size >= 32)
        np.testing.assert_array_equal(self.their_picture(path)[agreed], expected[agreed])

    # Tiles of files that the peer codes with other options: of whole pictures, and of components one by one, where a
    # tile's segment for a component comes before its one for all, that before the main header's for a component, and
    # that before the main header's for all.
    def test_tiles_with_parameters_of_their_own(self):
        source = self.cut("part.ppm", 90, 61)
        whole = [contents(self.their_file(source, "-t", "40,40", *options)) for options in (
            ["-r", "9,3,1", "-b", "16,32"],
            ["-n", 2, "-p", "RPCL", "-c", "[32,32],[16,16]", "-M", 1, "-SOP"],
            ["-n", 4, "-mct", 0, "-EPH", "-M", 45, "-b", "4,64"],
            ["-n", 1, "-r", "5,1", "-p", "CPRL"])]
        apart = [taken_apart(data) for data in whole]
        parts = []
        for t in range(6):
            coding, steps, tiles = apart[t % 4]
            own = segment(0xff52, coding) + segment(0xff5c, steps) if t % 4 else b""
            parts.append(tile_part(t, own, tiles[t]))
        mixed = whole[0][:whole[0].index(b"\xff\x90")] + b"".join(parts) + b"\xff\xd9"
        path = self.file("mixed.j2k", mixed)
        np.testing.assert_array_equal(self.their_picture(path), read_pnm(source))
        np.testing.assert_array_equal(self.our_picture(path), read_pnm(source))
        self.assertIn("tiles with parameters of their own: 4", run(QELCONV, "--info", path).decode())

        planes = [write_pnm(self.path("plane.pgm"), read_pnm(source)[:, :, c:c + 1]) and
                  [taken_apart(contents(self.their_file(self.path("plane.pgm"), "-t", "40,40", "-p", "CPRL", *options)))
                   for options in (["-n", 3], ["-n", 5, "-b", "16,16", "-M", 8], ["-n", 2, "-I", "-q", 60])]
                  for c in range(3)]
        for way in range(2):
            kinds, parts = [], []

            def of(component, kind, steps):
                coding, quantiser, _ = planes[component][kind]
                body = quantiser if steps else b"\0" + coding[5:]
                return segment(0xff5d if steps else 0xff53, bytes([component]) + body)

            for t in range(6):
                # The main header has 0 for all components but the middle one, which has 1 (or 2 in the second round).
                own, middle = b"", 1 + way
                kinds = [0, middle, 0]
                if t % 3 > 0:  # one for all
                    kinds = [3 - middle] * 3
                    coding, quantiser, _ = planes[0][3 - middle]
                    own = segment(0xff52, coding) + segment(0xff5c, quantiser)
                if t % 3 > 1:  # and one of its own for the last one
                    kinds[2] = 0
                    own += of(2, 0, False) + of(2, 0, True)
                parts.append(tile_part(t, own, b"".join(planes[c][kinds[c]][2][t] for c in range(3))))
            coding, quantiser, _ = planes[0][0]
            size = whole[0][:whole[0].index(b"\xff\x52")]
            head = size + segment(0xff52, coding) + segment(0xff5c, quantiser)
            head += of(1, middle, False) + of(1, middle, True)
            path = self.file("mixed.j2k", head + b"".join(parts) + b"\xff\xd9")
            self.assertLessEqual(np.abs(self.our_picture(path) - self.their_picture(path)).max(), 1)
            self.assertGreater(psnr(self.our_picture(path), read_pnm(source)), 50)

        # Behind the first packets it is too late for more than changes of the progression.
        coding, steps, tiles = apart[0]
        for name, late in (("between", segment(0xff52, coding[:5] + b"\x20" + coding[6:]) + parts[1]),
                           ("in a later part", tile_part(0, segment(0xff5c, steps[:4]), b"", 1, 2))):
            with self.subTest(name=name):
                at = whole[0].index(b"\xff\x90")
                end = at + struct.unpack(">I", whole[0][at + 6:at + 10])[0]
                path = self.file("late.j2k", whole[0][:end] + late + whole[0][end:])
                self.assertIn("too late", fails(*self.command(path)))
                kept = read_pnm(convert(path, self.path("kept.ppm"), "--partial"))
                np.testing.assert_array_equal(kept[:40, :40], read_pnm(source)[:40, :40])

    # Boxes around the peer's codestreams.
    def test_boxes(self):
        rgb = read_pnm(self.cut("part.ppm", 60, 40))
        index = write_pnm(self.path("index.pgm"), rgb[:, :, :1] // 26)
        palette = np.random.default_rng(3).integers(0, 256, (7, 3))
        entries = struct.pack(">HB3B", 7, 3, 7, 7, 7) + palette.astype("u1").tobytes()
        swapped = struct.pack(">10H", 3, 0, 0, 3, 1, 0, 2, 2, 0, 1)
        columns = bytes([0, 0, 1, 0, 0, 0, 1, 1, 0, 0, 1, 2])
        for name, source, space, boxes, expected in [
                ("palette", index, 16, box(b"pclr", entries) + box(b"cmap", columns),
                 palette[np.minimum(rgb[:, :, 0] // 26, 6)]),
                ("order", self.path("part.ppm"), 16, box(b"cdef", swapped), rgb[:, :, ::-1])]:
            with self.subTest(name=name):
                path = self.file("boxed.jp2", boxed(contents(self.their_file(source)), 60, 40, space, boxes))
                np.testing.assert_array_equal(self.our_picture(path), expected)
                np.testing.assert_array_equal(self.their_picture(path), expected)
        for layout in ("3,8,u@1x1:2x2:2x2", "3,8,u@1x1:2x1:2x1", "3,8,u@1x1:1x1:1x1"):
            with self.subTest(layout=layout):
                data = contents(self.raw_file(layout, "-mct", 0))
                path = self.file("chroma.jp2", boxed(data, 90, 61, 18, b""))
                self.assertLessEqual(np.abs(self.our_picture(path) - self.their_picture(path)).max(), 2)
        # Of colours that are not followed it is said so; a profile behind them is.
        profile = ImageCms.ImageCmsProfile(ImageCms.createProfile("sRGB")).tobytes()
        for method, space, boxes, told in ((1, 16, b"", ""), (5, 0, b"", "of an unknown kind"),
                                           (1, 22, b"", "of an unknown kind"),
                                           (4, 0, box(b"colr", b"\2\0\0" + profile), ""), (4, 0, box(
                                               b"colr", b"\2\0\0" + profile.replace(b"RGB ", b"GRAY", 1)), "dropped")):
            with self.subTest(method=method, space=space):
                data = boxed(contents(self.their_file(self.path("part.ppm"))), 60, 40, space, boxes, method)
                printed = run(QELCONV, self.file("colour.jp2", data), self.path("colour.png")).decode()
                self.assertEqual((bool(told), True), (bool(printed), told in printed), printed)
                with Image.open(self.path("colour.png")) as picture:
                    self.assertEqual(profile in data, picture.info.get("icc_profile") == profile)
        path = self.file("lab.jp2", boxed(contents(self.their_file(self.path("part.ppm"))), 60, 40, 14, b""))
        self.assertIn("CIELab", fails(*self.command(path)))
        convert(path, self.path("l.pgm"), "--component", 0)
        path = self.file("bad.jp2", boxed(contents(self.their_file(index)), 60, 40, 16, box(b"pclr", entries)
                                          + box(b"cmap", b"\0\1\1\0")))
        self.assertIn("not there", fails(*self.command(path)))

    def raw_file(self, layout, *options):
        """The photograph's samples, cut to these sizes, as the peer's file."""
        count, bits, rest = layout.split(",")
        width, height, data = 90, 61, b""
        photograph = read_pnm(self.coffee)
        for c, factors in enumerate(rest.split("@")[1].split(":")):
            dx, dy = map(int, factors.split("x"))
            plane = photograph[7 * c:7 * c + height:dy, :width:dx, c % 3] << int(bits) - 8
            plane = plane[:-(-height // dy), :-(-width // dx)] - (1 << int(bits) - 1) * (rest[0] == "s")
            data += plane.astype(">i2" if int(bits) > 8 else "i1" if rest[0] == "s" else "u1").tobytes()
        return self.their_file(self.file("in.raw", data), "-F", f"{width},{height},{layout}", *options)

    def assert_components(self, path, bits, lossy=False):
        for old in self.their_planes():
            os.remove(old)
        run("opj_decompress", "-i", path, "-o", self.path("plane.pgx"))
        planes = self.their_planes()
        for c, plane in enumerate(planes):
            theirs = read_pgx(plane)
            ours = read_pnm(convert(path, self.path("ours.pgm"), "--component", c))[:, :, 0]
            self.assertEqual(ours.shape, theirs.shape)
            self.assertLessEqual(np.abs(ours - theirs).max(), lossy << bits - 8)
        self.assertTrue(planes)

    def their_planes(self):
        names = [f"plane_{c}.pgx" for c in range(16)]
        return [self.path(name) for name in names if os.path.exists(self.path(name))]

    # --- lossy -------------------------------------------------------------------------------------------------------

    def test_lossy_of_theirs(self):
        for source in (self.coffee, self.cut("odd.ppm", 157, 93)):
            for options in (["-r", 10], ["-I", "-r", 10], ["-I", "-r", 40], ["-I", "-r", "80,20,5"],
                            ["-I", "-r", 8, "-t", "100,70", "-M", 1], ["-I", "-q", 35]):
                with self.subTest(options=options):
                    path = self.their_file(source, *options)
                    self.assertGreaterEqual(psnr(self.our_picture(path), self.their_picture(path)), 60)

    def test_lossy_of_ours(self):
        original = read_pnm(self.coffee)
        for options in (["--rate", 1.5], ["--irreversible"], ["--irreversible", "--rate", "0.25,1,3"],
                        ["--irreversible", "--psnr", 38],
                        ["--irreversible", "--rate", 1, "--style", "bypass,terminate"],
                        ["--irreversible", "--rate", 1, "--tiles", "256x100"]):
            with self.subTest(options=options):
                path = self.our_file(self.coffee, *options)
                ours, theirs = psnr(self.our_picture(path), original), psnr(self.their_picture(path), original)
                self.assertLessEqual(abs(ours - theirs), 0.1)
                if "--psnr" in options:
                    self.assertLess(abs(ours - 38), 0.5)
                elif "--rate" in options:
                    bits = float(str(options[options.index("--rate") + 1]).split(",")[-1])
                    self.assertLessEqual(os.path.getsize(path), bits * 600 * 400 / 8)

    # A picture of one tile is written by rows: the same samples, in the memory of its coefficients and little more.
    # Each layer is sought behind those that are found, whatever their number.
    def test_hundreds_of_layers(self):
        path = self.path("layers.j2k")
        self.assertEqual((0, ""), bounded(QELCONV, self.raccoon, path, "--layers", 900, "--threads", 1))
        self.assertTrue(np.array_equal(read_pnm(self.raccoon), self.their_picture(path)))
        half = convert(self.file("half.j2k", contents(path)[:os.path.getsize(path) // 2]), self.path("half.ppm"),
                       "--partial")
        self.assertGreater(psnr(read_pnm(self.raccoon), read_pnm(half)), 35)

    def test_by_rows(self):
        large = write_pnm(self.path("large.ppm"), np.tile(read_pnm(self.coffee).astype("u1"), (6, 5, 1)))
        coded, back = self.path("large.jp2"), self.path("back.ppm")
        for source, target, limit in ((large, coded, 140), (coded, back, 100)):
            status, printed = bounded(QELCONV, source, target, "--threads", 2, megabytes=limit, seconds=30)
            self.assertEqual((0, ""), (status, printed))
        self.assertEqual(contents(large), contents(back))
        for options in (["--irreversible"], ["--layers", 3], ["--tiles", "100x64"]):
            path = convert(self.coffee, self.path("small.jp2"), *options)
            whole = contents(convert(path, self.path("whole.ppm"), "--repeat", 1))
            for threads in (1, 4):
                self.assertEqual(whole, contents(convert(path, self.path("rows.ppm"), "--threads", threads)))

    # At one file size our pictures are as good as theirs.
    def test_equal_size(self):
        for source in (self.coffee, self.raccoon):
            original = read_pnm(source)
            pixels = original.shape[0] * original.shape[1]
            for flags in ((["-I"], ["--irreversible"]), ([], [])):
                for ratio in (60, 20, 8):
                    theirs = self.their_file(source, *flags[0], "-r", ratio)
                    rate = 8 * os.path.getsize(theirs) / pixels
                    ours = self.our_file(source, *flags[1], "--rate", f"{rate:.6f}")
                    with self.subTest(source=source, ratio=ratio, flags=flags):
                        self.assertLessEqual(os.path.getsize(ours), os.path.getsize(theirs))
                        self.assertGreaterEqual(psnr(self.our_picture(ours), original),
                                                psnr(self.our_picture(theirs), original) - 0.2)

    def test_cut_files_improve_with_every_byte_range(self):
        source = self.cut("part.ppm", 200, 150)
        original = read_pnm(source)
        data = contents(self.our_file(source, "--irreversible", "--rate", "0.2,0.5,1,2,4"))
        last = 0.0
        for share in (0.15, 0.3, 0.6, 1):
            path = self.file("cut.j2k", data[:int(len(data) * share)])
            quality = psnr(read_pnm(convert(path, self.path("part.ppm"), "--partial")), original)
            self.assertGreater(quality, last)
            last = quality
        self.assertGreater(last, 43)

    # --- what can't be read ------------------------------------------------------------------------------------------

    # Where an encoder has marked the ends of its segments, damage is seen and told.
    def test_damaged_blocks(self):
        source = self.cut("part.ppm", 90, 61)
        data = bytearray(contents(self.our_file(source, "--style", "segment,terminate")))
        for at in range(len(data) // 2, len(data) - 2, 97):
            data[at] ^= 0x55
        path = self.file("bad.j2k", data)
        self.assertIn("code-block is damaged", fails(*self.command(path)))
        kept = read_pnm(convert(path, self.path("kept.ppm"), "--partial"))
        self.assertGreater(psnr(kept, read_pnm(source)), 45)

    def test_missing_tiles_are_grey(self):
        source = self.cut("part.ppm", 90, 61)
        data = contents(self.our_file(source, "--tiles", "32x32"))
        start = data.index(b"\xff\x90")
        second = start + struct.unpack(">I", data[start + 6:start + 10])[0]
        path = self.file("hole.j2k", data[:start] + data[second:])
        self.assertIn("tiles are missing", fails(*self.command(path)))
        expected = read_pnm(source)
        expected[:32, :32] = 128
        np.testing.assert_array_equal(read_pnm(convert(path, self.path("hole.ppm"), "--partial")), expected)

    # A small file can ask for many tiles, blocks, levels, layers and passes.
    def test_small_files_take_little(self):
        few, full, nothing = b"\0" * 16, b"\0" * 8000, b"\x80" * 8000
        for name, data, expected in [
                ("tiles of one sample", codestream(255, 255, 1, 1, [(0, few)]), "truncated"),
                ("and data for some", codestream(255, 255, 1, 1, [(t, b"\0") for t in range(600)], 1, 0),
                 "tiles are missing"),
                ("32 levels", codestream(255, 255, 255, 255, [(0, few * 7)], levels=32), None),
                ("one large tile", codestream(18000, 18000, 18000, 18000, [(0, few)]), "--max-memory"),
                ("many tiles", codestream(18000, 18000, 71, 71, [(0, few)]), "--max-memory"),
                ("many parts", codestream(1500, 1500, 30, 30, [(0, b"")] * 600), "truncated"),
                ("small blocks", codestream(2000, 2000, 2000, 2000, [(0, few * 2)], block=0), "--max-memory"),
                ("tiny precincts", codestream(2000, 2000, 2000, 2000, [(0, full)], precincts=b"\x11" * 6), "truncated"),
                ("layers of nothing", codestream(1500, 1500, 1500, 1500, [(0, nothing)], 1, 0, 0, 0, 8000),
                 "--max-memory"),
                ("the same by place", codestream(1500, 1500, 1500, 1500, [(0, nothing)], 1, 0, 0, 2, 8000),
                 "--max-memory"),
                ("all passes", codestream(1900, 2500, 1900, 2500, [(0, all_passes(30, 40, 91))], 1, 0, planes=32),
                 None),
                ("16 large components", codestream(1500, 1500, 1500, 1500, [(0, few * 20)], 16), "--max-memory"),
                ("layers by turns", insert(codestream(2000, 2000, 2000, 2000, [(0, few * 99)], 1, 0, precincts=b"\x66"),
                                           0xff5f, struct.pack(">BBHBBB", 0, 0, 65535, 33, 255, 4) * 1000), None),
                ("turns of nothing", insert(codestream(2000, 2000, 2000, 2000, [(0, few)], 1, 0, precincts=b"\x33"),
                                            0xff5f, struct.pack(">BBHBBB", 0, 0, 0, 33, 255, 4) * 1000), "truncated"),
                ("packed headers beyond the file", insert(codestream(99, 99, 99, 99, [(0, full)]), 0xff60,
                                                          b"\0\xff\xff\xff\xff\0"), "truncated"),
                ("an empty picture", codestream(2000, 2000, 2000, 2000, [(0, b"\0" * 18)]), None)]:
            self.assertLess(len(data), 10240)
            path = self.file("bomb.j2k", data)
            with self.subTest(name=name):
                status, printed = bounded(*self.command(path))
                self.assertEqual((1, True) if expected else (0, True), (status, (expected or "") in printed), printed)
                if expected and expected != "--max-memory":
                    bounded(*self.command(path), "--partial")
        path = self.file("large.j2k", codestream(3000, 3000, 3000, 3000, [(0, b"\0" * 18)]))
        self.assertIn("--max-memory 131", fails(*self.command(path)))
        self.assertEqual(128, read_pnm(convert(path, self.path("large.ppm"), "--max-memory", 131)).min())

    # Coordinates up to 2^31 - 1: the same picture there, where partitions of blocks and precincts end beyond them.
    def test_far_corner_of_the_reference_grid(self):
        array = np.random.default_rng(6).integers(0, 256, (65535, 1, 1))
        for picture, fields in ((array, (1, 3, 7)), (array.reshape(1, 65535, 1), (0, 2, 6))):
            source = write_pnm(self.path("line.pgm"), picture)
            for options in (["--levels", 0], ["--levels", 16, "--block", "4x1024"], ["--irreversible"]):
                with self.subTest(shape=picture.shape, options=options):
                    path = self.our_file(source, *options)
                    data = bytearray(contents(path))
                    for field in fields:  # the picture's end and start, and the tiles' start
                        value = struct.unpack(">I", data[8 + 4 * field:12 + 4 * field])[0]
                        data[8 + 4 * field:12 + 4 * field] = struct.pack(">I", value + (1 << 31) - 65536)
                    moved = self.our_picture(self.file("moved.j2k", data))
                    np.testing.assert_array_equal(moved, self.our_picture(path))

    def command(self, path):
        return QELCONV, path, self.path("never.ppm")

    def test_unsupported_is_named(self):
        data = contents(self.our_file(self.cut("dot.pgm", 1, 1, 1)))
        self.assertIn("more than 24 bits", fails(*self.command(self.file("deep.j2k", data[:42] + b"\x18" + data[43:]))))
        out = self.path("x.j2k")
        fails(*self.command(self.coffee)[:2], out, "--block", "3x3")
        # 600 x 400 samples are one after ten halvings; there is nothing to halve in a single one.
        self.assertIn("from 0 to 10", fails(QELCONV, self.coffee, out, "--levels", 11))
        self.assertIn("from 0 to 0", fails(QELCONV, self.cut("dot.ppm", 1, 1), out, "--levels", 22))


def read_pnm_with_comments(path):
    """The peer writes a comment line into its PNM headers."""
    data = contents(path)
    lines = data.split(b"\n", 2)
    if lines[1].startswith(b"#"):
        with open(path, "wb") as out:
            out.write(lines[0] + b"\n" + lines[2])
    return read_pnm(path)


def read_pgx(path):
    """One component; signed samples from 0 on."""
    head, body = contents(path).split(b"\n", 1)
    signed = b"-" in head
    bits, width, height = map(int, head.replace(b"+", b" ").replace(b"-", b" ").split()[-3:])
    kind = "i" if signed else "u"
    samples = np.frombuffer(body, f"{kind}1" if bits <= 8 else f">{kind}2")
    return samples.reshape(height, width).astype(np.int64) + (signed << bits - 1)


if __name__ == "__main__":
    unittest.main()
