"""TIFF both ways with libtiff's command-line programs."""
import os
import struct
import subprocess
import unittest

import numpy as np
from PIL import Image

from support import QELCONV, InteropTest, contents, convert, fails, read_pnm, read_tiff, run, write_pnm, write_tiff

SIZES = [(1, 1), (7, 5), (130, 9), (250, 131)]


class TiffTest(InteropTest):
    def pictures(self):
        """Pictures of all depths and colours as (name, PNM or PNG file)."""
        random = np.random.default_rng(3)
        photo = read_pnm(self.coffee)
        for width, height in SIZES:
            part = photo[:height, :width]
            noise = random.integers(0, 256, part.shape)
            for depth in (1, 3):
                yield f"{width}-{depth}", write_pnm(self.path(f"{width}-{depth}.pnm"), part[:, :, :depth])
                wide = part[:, :, :depth] * 256 + noise[:, :, :depth]
                yield f"{width}-{depth}-16", write_pnm(self.path(f"{width}-{depth}-16.pnm"), wide, 65535)
            rgba = np.dstack([part, part[:, :, 0] // 64 * 64]).astype(np.uint8)
            Image.fromarray(rgba).save(self.path(f"{width}-4.png"))
            yield f"{width}-4", self.path(f"{width}-4.png")

    def same(self, a, b):
        self.assertTrue(np.array_equal(read_pnm(convert(a, self.path("a.pam"))),
                                       read_pnm(convert(b, self.path("b.pam")))))

    def test_written_files_are_read_by_libtiff(self):
        for name, source in self.pictures():
            for options in ([], ["--packing", "none", "--big-tiff"], ["--big-endian"],
                            ["--packing", "lzw", "--tiles", "64x32"], ["--packing", "deflate", "--big-endian"],
                            ["--tiles", "16x48", "--big-endian"]):
                with self.subTest(name=name, options=options):
                    ours = convert(source, self.path("ours.tif"), *options)
                    self.assertNotIn(b"arning", run("tiffinfo", "-D", ours))
                    theirs = self.path("theirs.tif")
                    run("tiffcp", "-c", "none", "-s", "-L", ours, theirs)
                    run("tiffcmp", ours, theirs)
                    if "16" not in name:
                        self.assertTrue(np.array_equal(read_pnm(convert(source, self.path("a.pam"))), read_tiff(
                            self.one_strip(theirs))))
                    self.same(source, ours)

    def one_strip(self, path):
        run("tiffcp", "-r", 100000, path, self.path("strip.tif"))
        return self.path("strip.tif")

    def test_theirs_is_read(self):
        for name, source in self.pictures():
            ours = convert(source, self.path("ours.tif"))
            for options in (["-c", "packbits", "-B"], ["-c", "none", "-p", "separate", "-r", 3], ["-c", "lzw:2"],
                            ["-c", "zip:2", "-p", "separate", "-B"], ["-c", "zip", "-8", "-t", "-w", 32, "-l", 48],
                            ["-c", "packbits", "-t", "-w", 64, "-l", 16, "-B"],
                            ["-c", "packbits", "-f", "lsb2msb", "-p", "separate", "-t", "-w", 48, "-l", 48]):
                if "-p" in options and name.endswith("-16"):
                    continue  # tiffcp can't
                with self.subTest(name=name, options=options):
                    run("tiffcp", *options, ours, self.path("theirs.tif"))
                    self.same(source, self.path("theirs.tif"))

    def test_jpeg_inside(self):
        for source in (self.cut("colour.ppm", 90, 61), self.cut("grey.pgm", 90, 61, 1)):
            ours = convert(source, self.path("ours.tif"), "--packing", "none")
            for options in (["-c", "jpeg", "-r", 48], ["-c", "jpeg:r", "-r", 16],
                            ["-c", "jpeg:60", "-t", "-w", 32, "-l", 48]):
                with self.subTest(source=source, options=options):
                    run("tiffcp", *options, ours, self.path("jpeg.tif"))
                    run("tiffcp", "-c", "none", self.path("jpeg.tif"), self.path("plain.tif"))
                    self.same(self.path("plain.tif"), self.path("jpeg.tif"))

    # What libtiff brings beside, in strips, large ones and tiles.
    def test_other_codecs_of_libtiff(self):
        large = write_pnm(self.path("large.ppm"), np.hstack([read_pnm(self.coffee)] * 3))
        for source, codecs in ((self.coffee, ["lzma:p1", "webp"]), (large, ["zstd:2"])):
            ours = convert(source, self.path("ours.tif"))
            for codec in codecs:
                for options in (["-r", 16], ["-r", 100000], ["-t", "-w", 64, "-l", 48]):
                    with self.subTest(codec=codec, options=options):
                        run("tiffcp", "-c", codec, *options, ours, self.path("theirs.tif"))
                        run("tiffcp", "-c", "none", self.path("theirs.tif"), self.path("plain.tif"))
                        self.same(self.path("plain.tif"), self.path("theirs.tif"))
        told = run(QELCONV, "--info", self.path("theirs.tif")).decode()
        self.assertIn("Zstandard", told)

    # Samples of 1, 2 and 4 bits, as grey values and as numbers of a palette's colours; associated alpha.
    def test_small_samples_and_palettes(self):
        random = np.random.default_rng(9)
        for bits in (1, 2, 4, 8):
            numbers = random.integers(0, 1 << bits, (9, 13))
            places = (numbers[:, :, None] >> np.arange(bits)[::-1] & 1).reshape(9, -1)
            packed = np.packbits(places, axis=1)[:, :, None]
            colours = random.integers(0, 256, (3, 1 << bits))
            grey = [(256, "I", [13]), (258, "H", [bits])]
            mapped = [*grey, (320, "H", list(map(int, (colours * 257).ravel())))]
            for photometric, fields, expected in ((1, grey, numbers[:, :, None]),
                                                  (0, grey, ((1 << bits) - 1 - numbers)[:, :, None]),
                                                  (3, mapped, colours.T[numbers])):
                path = write_tiff(self.path("small.tif"), packed, bits, photometric, fields=fields)
                for options in (["-c", "none"], ["-c", "packbits"], ["-c", "lzw"]):
                    with self.subTest(bits=bits, photometric=photometric, options=options):
                        run("tiffcp", *options, path, self.path("again.tif"))
                        self.assertTrue(np.array_equal(expected, read_pnm(convert(self.path("again.tif"),
                                                                                  self.path("small.pnm")))))
        path = write_tiff(self.path("alpha.tif"), np.array([[[50, 100, 128], [0, 0, 0]]])[:, :, [0, 2]], 8, 1, extra=1)
        self.assertEqual([[100, 128], [0, 0]], read_pnm(convert(path, self.path("alpha.pam")))[0].tolist())

    def test_strips_of_every_height(self):
        source = self.cut("strips.ppm", 90, 23)
        ours = convert(source, self.path("strips.tif"))
        for rows in (1, 2, 7, 22, 23, 100):
            run("tiffcp", "-c", "packbits", "-r", rows, ours, self.path("again.tif"))
            self.same(source, self.path("again.tif"))

    # Strips of megabytes, of other makers: their rows are read one by one.
    def test_large_strips(self):
        photo = np.vstack([read_pnm(self.raccoon)] * 2)
        self.assertGreater(photo[:, :, 0].size, 1 << 20)
        deep = write_pnm(self.path("deep.ppm"), photo * 256 + photo[::-1], 65535)
        for source in (write_pnm(self.path("large.ppm"), photo), deep):
            ours = convert(source, self.path("ours.tif"))
            for options in (["packbits", "-B"], ["packbits", "-f", "lsb2msb"], ["none"], ["lzw:2"], ["zip", "-B"],
                            ["packbits", "-p", "separate"], ["lzw", "-p", "separate"], ["jpeg"]):
                if source == deep and ("separate" in options or "jpeg" in options):
                    continue  # tiffcp can't
                with self.subTest(options=options, source=source):
                    run("tiffcp", "-r", 100000, "-c", *options, ours, self.path("large.tif"))
                    run("tiffcp", "-c", "none", self.path("large.tif"), self.path("plain.tif"))
                    self.same(self.path("plain.tif"), self.path("large.tif"))

    # What there is of one that ends too early, whose last row may end anywhere.
    def test_a_large_strip_that_is_cut(self):
        array = np.vstack([read_pnm(self.raccoon)[:, :1000, 1:2]] * 2)[:1200].astype("u1")
        rows = [b"".join(bytes([99]) + row[x:x + 100].tobytes() for x in range(0, 1000, 100)) for row in array[:, :, 0]]
        path = write_tiff(self.path("cut.tif"), array, 8)
        data = bytearray(contents(path))
        length = len(rows) * len(rows[0])
        directory = struct.unpack_from("<I", data, 4)[0]
        fields = data[directory:]
        for i in range(struct.unpack_from("<H", fields)[0]):
            place = 2 + 12 * i
            tag = struct.unpack_from("<H", fields, place)[0]
            for changed, value in ((259, 32773), (279, length), (273, 8 + len(fields))):
                if tag == changed:
                    struct.pack_into("<I", fields, place + 8, value)
        file = b"II*\0" + struct.pack("<I", 8) + fields + b"".join(rows)
        back = read_pnm(convert(self.file("whole.tif", file), self.path("whole.pgm")))
        self.assertTrue(np.array_equal(array, back))
        cut = self.file("cut.tif", file[:len(file) - 500 * len(rows[0]) - 7])
        self.assertIn("PackBits data of row 699", fails(*self.converter(cut)))
        back = read_pnm(convert(cut, self.path("cut.pgm"), "--partial"))
        array[699:] = 0
        self.assertTrue(np.array_equal(array, back))

    # By rows or as a whole, to a file or to a pipe.
    def test_every_road_gives_the_same_file(self):
        random = np.random.default_rng(4)
        deep = write_pnm(self.path("deep.ppm"), random.integers(0, 65536, (130, 300, 3)), 65535)
        os.mkfifo(self.path("pipe.tif"))
        for source in (self.coffee, deep, convert(self.coffee, self.path("coffee.jpg"))):
            for options in ([], ["--big-endian"], ["--packing", "none", "--big-tiff"], ["--packing", "lzw"],
                            ["--tiles", "64x32", "--big-endian"], ["--tiles", "256x512", "--packing", "deflate"]):
                with self.subTest(source=source, options=options):
                    whole = contents(convert(source, self.path("whole.tif"), *options, "--repeat", 1))
                    for threads in (1, 3):
                        convert(source, self.path("rows.tif"), *options, "--threads", threads)
                        self.assertEqual(whole, contents(self.path("rows.tif")))
                    with subprocess.Popen(["dd", "status=none", "if=" + self.path("pipe.tif"),
                                           "of=" + self.path("piped.tif")]) as reader:
                        convert(source, self.path("pipe.tif"), *options)
                        self.assertEqual(0, reader.wait(60))
                    self.assertEqual(whole, contents(self.path("piped.tif")))

    def test_packbits_is_as_small_as_libtiffs(self):
        # A drawing: runs of all lengths, pairs and single pixels.
        random = np.random.default_rng(5)
        line = np.repeat(random.integers(0, 4, 3000), random.integers(1, 9, 3000))[:6000].reshape(12, 500, 1)
        ours = convert(write_pnm(self.path("drawing.pgm"), line), self.path("drawing.tif"))
        run("tiffcp", "-c", "packbits", ours, self.path("theirs.tif"))
        self.assertLess(os.path.getsize(ours), 1.03 * os.path.getsize(self.path("theirs.tif")))
        self.same(self.path("drawing.pgm"), self.path("theirs.tif"))

    def test_byte_planes(self):
        random = np.random.default_rng(7)
        array = random.integers(0, 65536, (19, 33, 3))
        source = write_pnm(self.path("wide.ppm"), array, 65535)
        planes = convert(source, self.path("planes.tif"), "--byte-planes")
        self.assertEqual(2, run("tiffinfo", planes).count(b"TIFF Directory"))
        self.assertTrue(np.array_equal(array, read_pnm(convert(planes, self.path("b.ppm"), "--byte-planes"))))
        self.assertTrue(np.array_equal(array >> 8, read_pnm(convert(planes, self.path("b.ppm")))))

    def test_what_cannot_be_read_is_refused_by_name(self):
        array = np.zeros((8, 8, 3))
        for fields, reason in (([(259, "H", [6])], "compression 6"), ([(262, "H", [6])], "interpretation 6 (YCbCr)"),
                               ([(258, "H", [12] * 3)], "4, 8 and 16"), ([(339, "H", [2] * 3)], "unsigned"),
                               ([(277, "H", [0])], "SamplesPerPixel")):
            path = write_tiff(self.path("other.tif"), array, 8, fields=fields)
            self.assertIn(reason, fails(*self.converter(path)))

    # A run whose value is missing: nothing behind the strip is taken for it.
    def test_a_strip_that_ends_in_a_run_header(self):
        source = write_pnm(self.path("run.pgm"), np.array([9] * 8 + [5, 5]).reshape(1, 10, 1))
        data = contents(convert(source, self.path("run.tif")))
        strip = bytes([249, 9, 255, 5])
        self.assertEqual(1, data.count(strip))
        length = struct.pack("<HHII", 279, 4, 1, len(strip))
        self.assertIn(length, data)
        short = self.file("short.tif", data.replace(length, struct.pack("<HHII", 279, 4, 1, len(strip) - 1)))
        self.assertIn("PackBits data of row 0", fails(*self.converter(short)))

    def converter(self, source):
        return QELCONV, source, self.path("out.ppm")


if __name__ == "__main__":
    unittest.main()
