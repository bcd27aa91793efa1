"""JPEG XR both ways with libjxr's command-line programs."""
import hashlib
import os
import random
import unittest

import numpy as np

from support import (QELCONV, InteropTest, bounded, contents, convert, fails, psnr, read_pfm, read_pnm, read_tiff, run,
                     write_pnm, write_tiff)

SIZES = [(1, 1), (5, 7), (16, 16), (17, 33), (250, 131), (271, 16)]


class JpegXrTest(InteropTest):
    def decode_theirs(self, path, channels):
        target = self.path("theirs.pgm" if channels == 1 else "theirs.ppm")
        run("JxrDecApp", "-i", path, "-o", target, "-c", 2 if channels == 1 else 9)
        return read_pnm(target)

    def encode_theirs(self, source, channels, *options):
        target = self.path("theirs.jxr")
        run("JxrEncApp", "-i", source, "-o", target, "-c", 2 if channels == 1 else 9, *options)
        return target

    def decode_ours(self, path):
        return read_pnm(convert(path, self.path("ours.pnm")))

    def assert_same(self, a, b):
        self.assertEqual(a.shape, b.shape)
        self.assertTrue((a == b).all())

    def sources(self):
        for channels in (1, 3):
            for width, height in SIZES:
                source = self.cut("source.pgm" if channels == 1 else "source.ppm", width, height, channels)
                with self.subTest(channels=channels, width=width, height=height):
                    yield source, read_pnm(source), channels

    def test_ours_is_read_by_both_alike(self):
        for source, array, channels in self.sources():
            path = convert(source, self.path("mine.jxr"))
            self.assert_same(array, self.decode_theirs(path, channels))
            self.assert_same(array, self.decode_ours(path))
            for options in (["--quality", "95"], ["--quality", "30"], ["--quantizer", "2"], ["--quantizer", "255"],
                            ["--overlap", "1", "--tiles", "64x48"], ["--overlap", "2", "--frequency"],
                            ["--quality", "60", "--overlap", "2", "--frequency", "--tiles", "32x16"],
                            ["--quality", "70", "--sampling", "422", "--overlap", "0"],
                            ["--quality", "90", "--sampling", "420", "--overlap", "2"],
                            ["--quality", "90", "--sampling", "422", "--overlap", "2", "--tiles", "16x32"]):
                if array.shape[1] <= 16 and {"--sampling", "2"} <= set(options):
                    continue  # the standard has no such pictures
                path = convert(source, self.path("mine.jxr"), *options)
                self.assert_same(self.decode_theirs(path, channels), self.decode_ours(path))
                if "--quality" not in options and "--quantizer" not in options:
                    self.assert_same(array, self.decode_ours(path))

    def test_theirs_is_read_by_both_alike(self):
        for source, array, channels in self.sources():
            for order in ([], ["-f"]):  # frequency mode, spatial mode
                for overlap in (0, 1, 2):
                    path = self.encode_theirs(source, channels, *order, "-l", overlap)
                    self.assert_same(array, self.decode_ours(path))
                for options in (["-q", 0.9], ["-q", 0.4], ["-q", 3, "-l", 0], ["-q", 120], ["-q", 1, "-F", 2],
                                ["-q", 30, "-F", 9], ["-q", 1, "-s", 1, "-l", 0], ["-q", 30, "-s", 2],
                                ["-q", 1, "-s", 3], ["-d", 2, "-l", 1], ["-d", 1, "-q", 20, "-l", 1],
                                ["-d", 2, "-q", 40, "-l", 2], ["-d", 1, "-l", 2], ["-d", 0], ["-U", 2, 2, "-q", 9],
                                ["-V", 1, 2, "-H", 1, "-d", 1, "-q", 30]):
                    wide, high = array.shape[1] > 48, array.shape[0] > 32
                    if not wide and {"-d", "-U", "-V"} & set(options) or not high and {"-U", "-V"} & set(options):
                        continue
                    if channels == 1 and "-d" in options:
                        continue
                    path = self.encode_theirs(source, channels, *order, *options)
                    self.assert_same(self.decode_theirs(path, channels), self.decode_ours(path))

    # Statistics far from a photograph's drive the adaptation into its corners.
    def test_noise_and_flat_areas(self):
        array = read_pnm(self.coffee)[:160, :240].copy()
        for y in range(0, 160, 16):
            for x in range(0, 240, 48):
                kind = random.Random(y * 1000 + x).choice(["flat", "noise", "photo", "edges"])
                patch = array[y:y + 16, x:x + 48]
                if kind == "flat":
                    patch[:] = patch[0, 0]
                elif kind == "noise":
                    patch[:] = (patch * 7919 + patch[::-1] * 104729) % 256
                elif kind == "edges":
                    patch[:, ::3] = 255 - patch[:, ::3]
        source = write_pnm(self.path("patches.ppm"), array)
        for options in (["--quality", "100"], ["--quality", "80"], ["--quality", "85", "--sampling", "420"],
                        ["--quality", "75", "--sampling", "422"]):
            path = convert(source, self.path("mine.jxr"), *options)
            self.assert_same(self.decode_theirs(path, 3), self.decode_ours(path))
        for options in (["-q", 1, "-l", 0], ["-q", 12], ["-q", 1, "-f"], ["-q", 9, "-d", 1], ["-q", 20, "-d", 2]):
            path = self.encode_theirs(source, 3, *options)
            self.assert_same(self.decode_theirs(path, 3), self.decode_ours(path))

    # tables.jxr leads through every code table that adapts, up and down. It is a picture found by search for that, 16
    # columns wide because tables are chosen anew at the end of a row, coded by JxrEncApp of libjxr-tools
    # 1.2~git20170615.f752187 (-c 2 -l 0 -q 1). The digest is that of the picture and of what JxrDecApp gives.
    def test_known_file_of_all_code_tables(self):
        ours = self.decode_ours(os.path.join(os.path.dirname(__file__), "tables.jxr"))
        self.assertEqual("beec2b16ab4470333290f3c651c669b23d6b89463776736c4a8c53d266881737",
                         hashlib.sha256(ours.astype("u1").tobytes()).hexdigest())

    def test_quality_pays(self):
        array = read_pnm(self.raccoon)
        sizes, errors = [], []
        for quality in (20, 60, 90, 100):
            path = convert(self.raccoon, self.path("mine.jxr"), "--quality", quality)
            sizes.append(os.path.getsize(path))
            errors.append(psnr(array, self.decode_ours(path)))
        self.assertEqual(sizes, sorted(sizes))
        self.assertEqual(errors, sorted(errors))
        self.assertGreater(errors[2], 45.6)
        self.assertLess(sizes[3], array.size)
        theirs = os.path.getsize(self.encode_theirs(self.raccoon, 3, "-f", "-l", 0))
        self.assertLess(abs(sizes[3] - theirs), theirs * 0.01)

    # Samples of other kinds, alpha in both of its places, and inks: both ways through TIFF.
    def test_deep_samples_alpha_and_inks(self):
        photo = read_pnm(self.coffee)[100:161, 90:173]
        alpha = (np.add.outer(np.arange(61), np.arange(83)) * 2 % 256)[:, :, None]
        deep = photo * 256 + photo[::-1] % 256
        halves = (deep / 30000 - 0.5).astype("<f2").view("<u2")
        rgba, rgba_deep = np.dstack([photo, alpha]), np.dstack([deep, alpha * 257])
        for name, code, array, options in (
                ("grey", 3, deep[:, :, :1], {}), ("RGB", 10, deep, {}), ("RGBA", 22, rgba, {"extra": 2}),
                ("deep RGBA", 23, rgba_deep, {"extra": 2}), ("CMYK", 17, rgba, {"photometric": 5}),
                ("deep CMYK", 18, rgba_deep, {"photometric": 5}), ("half", 12, halves, {"kind": 3}),
                ("grey half", 5, halves[:, :, :1], {"kind": 3})):
            bits = 16 if array.max() > 255 else 8
            source = write_tiff(self.path("source.tif"), array, bits, **options)
            result = self.path("ours.pfm" if "half" in name else "ours.pam")

            def read_back(path):
                run("JxrDecApp", "-i", path, "-o", self.path("theirs.tif"), "-c", code)
                theirs = read_tiff(self.path("theirs.tif"))
                convert(path, result)
                ours = read_pfm(result).astype("<f2").view("<u2") if "half" in name else read_pnm(result)
                self.assert_same(theirs, ours)
                return ours

            for lossy in ([], ["-q", 20], ["-q", 70, "-l", 0], ["-a", 3, "-q", 9]):
                with self.subTest(name=name, options=lossy):
                    if name.endswith("CMYK") or ("-a" in lossy and "extra" not in options):
                        continue  # JxrEncApp can't
                    run("JxrEncApp", "-i", source, "-o", self.path("theirs.jxr"), "-c", code, *lossy)
                    ours = read_back(self.path("theirs.jxr"))
                    if not lossy:
                        self.assert_same(array, ours)
            if "half" in name:
                convert(self.path("theirs.jxr"), self.path("source.pfm"))
                convert(self.path("source.pfm"), self.path("mine.jxr"))
                read_back(self.path("mine.jxr"))
                continue
            for lossy in ([], ["--quality", 80], ["--quality", 40, "--overlap", 2]):
                with self.subTest(name=name, options=lossy):
                    ours = read_back(convert(source, self.path("mine.jxr"), *lossy))
                    if not lossy:
                        self.assert_same(array, ours)

    def test_packed_samples_keep_their_bits(self):
        for top in (31, 1023):
            array = read_pnm(self.coffee)[:40, :50] * top // 255
            source = write_pnm(self.path("packed.ppm"), array, top)
            path = convert(source, self.path("mine.jxr"))
            self.assertIn(b"%d bits" % top.bit_length(), run(QELCONV, "--info", path))
            self.assert_same(array, self.decode_ours(path))

    def test_what_cannot_be_read_says_why(self):
        data = contents(self.encode_theirs(self.coffee, 3))
        at = data.index(b"WMPHOTO")
        for offset, change, word in ((9, 0x20, "rotation"), (11, 4, "depth"), (9, 2, "overlap"), (11, 2, "fixed"),
                                     (11, 0x70, "output"), (11, 0x30, "output")):
            bad = bytearray(data)
            bad[at + offset] ^= change
            self.assertIn(word, fails(QELCONV, self.file("bad.jxr", bad), self.path("never.ppm")))

    # By rows the same comes out as by whole pictures, on any number of threads, and takes no memory for a picture.
    def test_by_rows(self):
        source = self.cut("rows.ppm", 333, 177)
        for options in ([], ["--quality", 80], ["--quality", 60, "--overlap", 2, "--sampling", "420"],
                        ["--quality", 90, "--overlap", 2, "--tiles", "64x48", "--frequency"]):
            whole = contents(convert(source, self.path("whole.jxr"), *options, "--repeat", 1))
            picture = contents(convert(self.path("whole.jxr"), self.path("whole.ppm"), "--repeat", 1))
            for threads in (1, 4):
                path = convert(source, self.path("rows.jxr"), *options, "--threads", threads)
                self.assertEqual(whole, contents(path))
                self.assertEqual(picture, contents(convert(path, self.path("back.ppm"), "--threads", threads)))
        large = write_pnm(self.path("large.ppm"), np.tile(read_pnm(self.coffee).astype("u1"), (6, 5, 1)))
        for path, target in ((large, "large.jxr"), (self.path("large.jxr"), "back.ppm")):
            status, printed = bounded(QELCONV, path, self.path(target), "--threads", 2, megabytes=40, seconds=30)
            self.assertEqual((0, ""), (status, printed))
        self.assertEqual(contents(large), contents(self.path("back.ppm")))

    # Frequency mode sends a picture band by band: a cut file has all of it, coarsely. Spatial mode has its top.
    def test_parts_of_cut_files(self):
        for mode, floor in ((["-f"], None), ([], 30)):
            path = self.encode_theirs(self.coffee, 3, *mode, "-l", 0)
            original, last = read_pnm(self.coffee), 0
            for share in (0.4, 0.6, 0.8):
                with self.subTest(mode=mode, share=share):
                    cut = self.file("cut.jxr", contents(path)[:int(share * os.path.getsize(path))])
                    self.assertIn("truncated", fails(QELCONV, cut, self.path("never.ppm")))
                    part = read_pnm(convert(cut, self.path("part.ppm"), "--partial"))
                    quality = psnr(part, original)
                    self.assertGreater(quality, max(last, floor or 0))
                    last = quality
                    if not floor:
                        rows = int((share - 0.2) * len(original))
                        self.assert_same(part[:rows], original[:rows])

    def test_small_files_take_little(self):
        data = contents(convert(self.cut("small.ppm", 16, 16), self.path("small.jxr"), "--quality", 10))
        sides = data.index(b"WMPHOTO") + 12
        for width, height in ((60000, 5000), (65535, 16), (16, 65535)):
            bomb = self.file("bomb.jxr", data[:sides] +
                             (width - 1).to_bytes(2, "big") + (height - 1).to_bytes(2, "big") +
                             data[sides + 4:])
            status, printed = bounded(QELCONV, bomb, self.path("bomb.ppm"))
            self.assertEqual((1, True), (status, "truncated" in printed), printed)
            bounded(QELCONV, bomb, self.path("bomb.ppm"), "--partial")


if __name__ == "__main__":
    unittest.main()
