"""TIFF both ways with libtiff's command-line programs."""
import os
import struct
import unittest

import numpy as np
from PIL import Image

from support import QELCONV, InteropTest, contents, convert, fails, read_pnm, run, write_pnm

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
            for options in ([], ["--packing", "none"], ["--big-endian"], ["--packing", "none", "--big-endian"]):
                with self.subTest(name=name, options=options):
                    ours = convert(source, self.path("ours.tif"), *options)
                    self.assertNotIn(b"arning", run("tiffinfo", "-D", ours))
                    for again in (["-c", "none", "-L"], ["-c", "packbits", "-B"]):
                        theirs = self.path("theirs.tif")
                        run("tiffcp", *again, ours, theirs)
                        run("tiffcmp", ours, theirs)
                        self.same(source, theirs)
                    self.same(source, ours)

    def test_strips_of_every_height(self):
        source = self.cut("strips.ppm", 90, 23)
        ours = convert(source, self.path("strips.tif"))
        for rows in (1, 2, 7, 22, 23, 100):
            run("tiffcp", "-c", "packbits", "-r", rows, ours, self.path("again.tif"))
            self.same(source, self.path("again.tif"))

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

    def test_white_is_zero(self):
        source = self.cut("grey.pgm", 20, 10, channels=1)
        data = bytearray(open(convert(source, self.path("grey.tif")), "rb").read())
        entry = data.index(struct.pack("<HHIHH", 262, 3, 1, 1, 0))
        data[entry + 8] = 0
        open(self.path("white.tif"), "wb").write(data)
        self.assertTrue(np.array_equal(255 - read_pnm(source),
                                       read_pnm(convert(self.path("white.tif"), self.path("b.pgm")))))

    def test_what_is_not_baseline_is_refused_by_name(self):
        ours = convert(self.cut("part.ppm", 64, 64), self.path("part.tif"))
        for options, reason in ((["-c", "lzw"], "compression 5"), (["-t", "-w", "32", "-l", "32"], "tiles"),
                                (["-p", "separate"], "planes")):
            run("tiffcp", *options, ours, self.path("other.tif"))
            self.assertIn(reason, fails(*self.converter(self.path("other.tif"))))
        grey = contents(convert(self.cut("grey.pgm", 20, 10, channels=1), self.path("grey.tif")))
        none = grey.replace(struct.pack("<HHIHH", 277, 3, 1, 1, 0), struct.pack("<HHIHH", 277, 3, 1, 0, 0))
        self.assertNotEqual(grey, none)
        self.assertIn("0 channels", fails(*self.converter(self.file("none.tif", none))))

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
