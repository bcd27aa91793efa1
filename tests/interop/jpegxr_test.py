"""JPEG XR both ways with libjxr's command-line programs."""
import hashlib
import os
import random
import unittest

from support import QELCONV, InteropTest, bounded, contents, convert, fails, psnr, read_pnm, run, write_pnm

SIZES = [(1, 1), (5, 7), (16, 16), (17, 33), (250, 131), (271, 16)]


class JpegXrTest(InteropTest):
    def decode_theirs(self, path, channels):
        target = self.path("theirs.pgm" if channels == 1 else "theirs.ppm")
        run("JxrDecApp", "-i", path, "-o", target, "-c", 2 if channels == 1 else 9)
        return read_pnm(target)

    def encode_theirs(self, source, channels, *options):
        target = self.path("theirs.jxr")
        run("JxrEncApp", "-i", source, "-o", target, "-l", 0, "-c", 2 if channels == 1 else 9, *options)
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
            for options in (["--quality", "95"], ["--quality", "30"], ["--quantizer", "2"], ["--quantizer", "255"]):
                path = convert(source, self.path("mine.jxr"), *options)
                self.assert_same(self.decode_theirs(path, channels), self.decode_ours(path))

    def test_theirs_is_read_by_both_alike(self):
        for source, array, channels in self.sources():
            for order in ([], ["-f"]):  # frequency mode, spatial mode
                self.assert_same(array, self.decode_ours(self.encode_theirs(source, channels, *order)))
                for options in (["-q", 0.9], ["-q", 0.5], ["-q", 3], ["-q", 120], ["-q", 1, "-F", 2],
                                ["-q", 30, "-F", 9],
                                ["-q", 1, "-s", 1], ["-q", 30, "-s", 2], ["-q", 1, "-s", 3]):
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
        for options in (["--quality", "100"], ["--quality", "80"]):
            path = convert(source, self.path("mine.jxr"), *options)
            self.assert_same(self.decode_theirs(path, 3), self.decode_ours(path))
        for options in (["-q", 1], ["-q", 12], ["-q", 1, "-f"]):
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
        self.assertGreater(errors[2], 46.5)
        self.assertLess(sizes[3], array.size)
        theirs = os.path.getsize(self.encode_theirs(self.raccoon, 3, "-f"))
        self.assertLess(abs(sizes[3] - theirs), theirs * 0.01)

    def test_what_cannot_be_read_says_why(self):
        for options, word in ((["-l", 1], "overlap"), (["-d", 1], "subsampled"), (["-V", 2], "tile"),
                              (["-d", 0], "output")):
            path = self.encode_theirs(self.coffee, 3, *options)
            self.assertIn(word, fails(QELCONV, path, self.path("never.ppm")))

    # Frequency mode sends a picture band by band: a cut file has all of it, coarsely. Spatial mode has its top.
    def test_parts_of_cut_files(self):
        for mode, floor in ((["-f"], None), ([], 30)):
            path = self.encode_theirs(self.coffee, 3, *mode)
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
