"""JPEG 2000 both ways with OpenJPEG's command-line programs."""
import os
import struct
import unittest

import numpy as np

from support import QELCONV, InteropTest, bounded, contents, convert, fails, psnr, read_pnm, run, write_pnm

# The writer's names of the code-block styles, and the peer's bits.
STYLES = {"bypass": 1, "reset": 2, "terminate": 4, "causal": 8, "segment": 32}
PREDICTABLE = 16


def codestream(width, height, tile_width, tile_height, tiles, components=3, levels=5, block=4, order=0, layers=1,
               precincts=b"", planes=9):
    """A codestream of given tile-parts, as (tile, bytes)."""
    def segment(marker, body):
        return struct.pack(">HH", marker, len(body) + 2) + body
    size = struct.pack(">H8IH", 0, width, height, 0, 0, tile_width, tile_height, 0, 0, components)
    size += b"\7\1\1" * components
    coding = struct.pack(">BBHB5B", len(precincts) > 0, order, layers, 0, levels, block, block, 0, 1) + precincts
    head = b"\xff\x4f" + segment(0xff51, size) + segment(0xff52, coding)
    head += segment(0xff5c, bytes([2 << 5]) + bytes([(planes - 1) << 3]) * (3 * levels + 1))
    parts = [struct.pack(">HHHIBBH", 0xff90, 10, t, len(data) + 14, 0, 1, 0xff93) + data for t, data in tiles]
    return head + b"".join(parts) + b"\xff\xd9"


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
        self.assertGreater(psnr(kept, read_pnm(source)), 46)

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
        path = self.their_file(self.cut("part.ppm", 64, 64), "-s", "2,2")
        self.assertRegex(fails(*self.command(path)), r"sampl")
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


if __name__ == "__main__":
    unittest.main()
