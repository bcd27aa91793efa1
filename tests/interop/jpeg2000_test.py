"""JPEG 2000 both ways with OpenJPEG's command-line programs."""
import os
import unittest

import numpy as np

from support import InteropTest, convert, fails, psnr, read_pnm, run, write_pnm

# The writer's names of the code-block styles, and the peer's bits.
STYLES = {"bypass": 1, "reset": 2, "terminate": 4, "causal": 8, "segment": 32}
PREDICTABLE = 16


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

    def test_levels_blocks_tiles_and_order(self):
        source = self.cut("part.ppm", 150, 117)
        for ours, theirs in [
            (["--levels", 0], ["-n", 1]),
            (["--levels", 6], ["-n", 7]),
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
                        ["--irreversible", "--psnr", 38], ["--irreversible", "--rate", 1, "--style", "bypass,terminate"],
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
            path = self.path("cut.j2k")
            with open(path, "wb") as out:
                out.write(data[:int(len(data) * share)])
            quality = psnr(self.our_picture(path), original)
            self.assertGreater(quality, last)
            last = quality
        self.assertGreater(last, 35)

    # --- what can't be read ------------------------------------------------------------------------------------------

    def test_damaged_files_end_by_themselves(self):
        data = bytearray(contents(self.our_file(self.cut("part.ppm", 90, 61), "--layers", 2)))
        random = np.random.default_rng(1)
        path = self.path("bad.j2k")
        for round in range(40):
            bad = data.copy()
            for _ in range(4):
                bad[random.integers(20, 200 if round % 2 else len(bad))] = random.integers(256)
            with open(path, "wb") as out:
                out.write(bad)
            try:
                self.our_picture(path)
            except AssertionError as e:
                self.assertRegex(str(e), r"failed \([12]\)")
        with open(path, "wb") as out:
            out.write(data[:30])
        self.assertIn("truncated", fails(*self.command(path)))

    def command(self, path):
        from support import QELCONV
        return QELCONV, path, self.path("never.ppm")

    def test_unsupported_is_named(self):
        path = self.their_file(self.cut("part.ppm", 64, 64), "-s", "2,2")
        self.assertRegex(fails(*self.command(path)), r"sampl")
        fails(*self.command(self.coffee)[:2], self.path("x.j2k"), "--block", "3x3")


def contents(path):
    with open(path, "rb") as file:
        return file.read()


def read_pnm_with_comments(path):
    """The peer writes a comment line into its PNM headers."""
    data = contents(path)
    lines = data.split(b"\n", 2)
    if lines[1].startswith(b"#"):
        with open(path, "wb") as out:
            out.write(lines[0] + b"\n" + lines[2])
    return read_pnm(path)


if __name__ == "__main__":
    unittest.main()
