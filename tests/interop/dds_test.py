"""Textures in DDS and KTX 2 with Pillow, an independent decoder of all the formats.

Where its arithmetic is another than ours, the difference is stated at the comparison.
"""
import struct
import unittest

import numpy as np
from PIL import Image

from support import QELCONV, InteropTest, contents, convert, fails, psnr, read_pfm, read_pnm, run

DXGI = {"bc1": 71, "bc2": 74, "bc3": 77, "bc4": 80, "bc5": 83, "bc6": 95, "bc6s": 96, "bc7": 98}
BLOCK_BYTES = {"bc1": 8, "bc4": 8}


def dds(path, kind, width, height, blocks):
    """A texture behind a DX10 header."""
    with open(path, "wb") as out:
        out.write(b"DDS " + struct.pack("<7I44x", 124, 0x81007, height, width, len(blocks), 0, 1))
        out.write(struct.pack("<II4s20x5I", 32, 4, b"DX10", 0x1000, 0, 0, 0, 0))
        out.write(struct.pack("<5I", DXGI[kind], 3, 0, 1, 0) + blocks)
    return path


def pillow(path, kind, width, height):
    """Pillow's decoding of the blocks of a DX10 file, whatever its DDS reader knows."""
    number = int(kind[2])
    mode = {4: "L", 5: "RGB", 6: "RGB"}.get(number, "RGBA")
    name = {"bc6": "BC6H", "bc6s": "BC6HS", "bc5": "BC5"}.get(kind, kind.upper())
    blocks = open(path, "rb").read()[148:]
    image = Image.frombytes(mode, (width, height), blocks, "bcn", (number, name))
    return np.asarray(image).reshape(height, width, -1).astype(int)


class DdsTest(InteropTest):
    def random_texture(self, kind, width=64, height=64, seed=1):
        random = np.random.default_rng(seed)
        count = (width + 3) // 4 * ((height + 3) // 4)
        blocks = random.integers(0, 256, (count, BLOCK_BYTES.get(kind, 16)), dtype=np.uint8)
        if kind == "bc7":  # all modes, the reserved one too, each with every partition, rotation and index selection
            mode, choice = np.arange(count) % 9, np.arange(count) // 9 % 128
            head = blocks[:, 1].astype(int) << 8 + mode | choice << mode + 1 | 1 << mode
            blocks[:, 0], blocks[:, 1] = head & 255, head >> 8 & 255
        return dds(self.path("random.dds"), kind, width, height, blocks.tobytes()), blocks

    def ours(self, path, channels):
        array = read_pnm(convert(path, self.path("ours.pam")))
        if array.shape[2] < channels:  # the converter leaves out an alpha of 255
            array = np.dstack([array, np.full(array.shape[:2], 255)])
        return array

    def test_random_blocks_decode_as_pillow_decodes_them(self):
        for width, height in ((144, 128), (5, 3), (61, 18)):
            for kind in ("bc1", "bc2", "bc3", "bc4", "bc5", "bc7"):
                with self.subTest(kind=kind, width=width):
                    path, blocks = self.random_texture(kind, width, height)
                    theirs = pillow(path, kind, width, height)
                    ours = self.ours(path, theirs.shape[2])
                    if kind == "bc7":
                        # The reserved mode is transparent black here, and opaque black there.
                        reserved = self.of_blocks(blocks[:, 0] == 0, width, height)
                        self.assertTrue(np.array_equal(ours[~reserved], theirs[~reserved]))
                        self.assertTrue((ours[reserved] == 0).all())
                    elif kind == "bc1":
                        self.assertTrue(np.array_equal(ours, theirs))
                    elif kind == "bc2":
                        # A four-bit alpha n is 16 n here, and 17 n there.
                        self.assertTrue(np.array_equal(ours[:, :, :3], theirs[:, :, :3]))
                        self.assertTrue(np.array_equal(ours[:, :, 3] // 16 * 17, theirs[:, :, 3]))
                    else:
                        # Ramps are rounded here, and truncated there; colours are the same.
                        self.assertLessEqual(np.abs(ours - theirs).max(), 1)
                        if kind == "bc3":
                            self.assertTrue(np.array_equal(ours[:, :, :3], theirs[:, :, :3]))

    def test_random_bc6_blocks(self):
        # Pillow gives 255 times the clamped value, cut to a whole number. In the signed form it doesn't extend the
        # sign of end-points that are coded as differences, nor does it take the formula for the most negative
        # end-point: compared are the blocks of the plain one-region mode without such end-points.
        for kind in ("bc6", "bc6s"):
            path, blocks = self.random_texture(kind, seed=2)
            values = np.clip(np.nan_to_num(read_pfm(convert(path, self.path("ours.pfm")))), 0, 1) * 255
            close = np.abs(np.floor(values) - pillow(path, kind, 64, 64)) <= 1
            per_block = close.reshape(16, 4, 16, 4, 3).all(axis=(1, 3, 4)).ravel()
            if kind == "bc6s":
                whole = [int.from_bytes(b.tobytes(), "little") for b in blocks]
                plain = [w & 31 == 3 and all(w >> 5 + 10 * i & 1023 != 512 for i in range(6)) for w in whole]
                per_block = per_block[np.array(plain)]
                self.assertGreater(len(per_block), 3)
            self.assertTrue(per_block.all())

    def of_blocks(self, marked, width, height):
        """A mark for every pixel of the marked blocks."""
        across = (width + 3) // 4
        return np.kron(marked.reshape(-1, across), np.ones((4, 4), bool))[:height, :width]

    # What the encoders lose on the photographs, raccoon and coffee: floors a little below what was measured.
    FLOORS = {"bc1": (34.7, 33.7), "bc2": (34.7, 33.7), "bc3": (33.5, 32.8), "bc4": (41.7, 43.0),
              "bc5": (41.7, 42.4), "ycocg": (40.9, 38.1), "bc7": (46.6, 42.7)}

    def test_encoded_photographs(self):
        for kind, floors in self.FLOORS.items():
            for source, floor in zip((self.raccoon, self.coffee), floors):
                for options in ([], ["--dx10"]):
                    with self.subTest(kind=kind, source=source, options=options):
                        path = convert(source, self.path("photo.dds"), "--block", kind, *options)
                        used = {"bc4": 1, "bc5": 2}.get(kind, 3)
                        original = read_pnm(source)[:, :, :used]
                        ours = read_pnm(convert(path, self.path("ours.pam")))[:, :, :used]
                        self.assertGreater(psnr(ours, original), floor)
                        if not options and kind != "ycocg":  # Pillow reads the legacy headers of all of these
                            theirs = np.asarray(Image.open(path))
                            theirs = theirs.reshape(*theirs.shape[:2], -1)[:, :, :used].astype(int)
                            self.assertLessEqual(np.abs(theirs - ours).max(), 1 if kind in ("bc4", "bc5") else 0)

    def test_small_and_odd_sizes_keep_alpha(self):
        for width, height in ((1, 1), (3, 2), (5, 5), (17, 9)):
            with self.subTest(width=width):
                flat = np.full((height, width, 4), (200, 100, 52, 90), np.uint8)
                Image.fromarray(flat).save(self.path("flat.png"))
                ours = read_pnm(convert(convert(self.path("flat.png"), self.path("flat.dds")), self.path("flat.pam")))
                self.assertLessEqual(np.abs(ours - flat).max(), 6)  # five bits a channel
                self.assertTrue((ours[:, :, 3] == 90).all())

    # Levels and layers of arrays, cubes and volumes, in both containers: each is found where Pillow finds its blocks.
    def test_levels_and_layers(self):
        width, height, levels, layers = 20, 12, 3, 6
        sizes = [(max(width >> n, 1), max(height >> n, 1)) for n in range(levels)]
        counts = [(w + 3) // 4 * ((h + 3) // 4) for w, h in sizes]
        blocks = np.random.default_rng(6).integers(0, 256, (layers, sum(counts), 16), np.uint8)
        starts = np.cumsum([0, *counts])
        cube = dds(self.path("cube.dds"), "bc3", width, height, blocks.tobytes())
        data = bytearray(open(cube, "rb").read())
        data[28:32], data[136:140] = struct.pack("<I", levels), struct.pack("<I", 4)  # a cube
        files = [self.file("cube.dds", data)]
        data[136:144] = struct.pack("<2I", 0, layers)  # an array
        files.append(self.file("array.dds", data))
        data = bytearray(data[:128] + data[148:])
        data[84:88], data[112:116] = b"DXT5", struct.pack("<I", 0xFE00)  # a cube with a legacy header
        files.append(self.file("legacy.dds", data))
        body, index = b"", b""
        for n in range(levels):
            index += struct.pack("<3Q", 80 + 24 * levels + len(body), counts[n] * layers * 16, counts[n] * layers * 16)
            body += blocks[:, starts[n]:starts[n + 1]].tobytes()
        for shape in ((0, 0, 6), (0, 6, 1), (6, 0, 1)):
            head = struct.pack("<9I4I2Q", 137, 1, width, height, *shape, levels, 0, 0, 0, 0, 0, 0, 0)
            files.append(self.file(f"{shape}.ktx2", b"\xABKTX 20\xBB\r\n\x1A\n" + head + index + body))
        for path in files:
            for level, layer in ((0, 0), (1, 0), (2, 3), (0, 5), (2, 5)):
                with self.subTest(path=path, level=level, layer=layer):
                    which = ["--level", level, *(["--layer", layer] if layer else [])]
                    told = run(QELCONV, path, self.path("ours.pam"), *which).decode()
                    self.assertEqual(not layer, "layers behind the first one" in told)
                    part = blocks[layer, starts[level]:starts[level + 1]].tobytes()
                    theirs = np.asarray(Image.frombytes("RGBA", sizes[level], part, "bcn", (3, "BC3"))).astype(int)
                    ours = read_pnm(self.path("ours.pam"))
                    if ours.shape[2] == 3:
                        ours = np.dstack([ours, np.full(ours.shape[:2], 255)])
                    self.assertLessEqual(np.abs(ours - theirs).max(), 1)
            self.assertIn("3 levels and 6 layers", fails(QELCONV, path, self.path("never.pam"), "--level", 3))

    def test_ktx2_holds_what_dds_holds(self):
        for kind, number, model, samples in (("bc1", 133, 128, 1), ("bc2", 135, 129, 2), ("bc4", 139, 131, 1),
                                             ("bc5", 141, 132, 2), ("bc7", 145, 134, 1)):
            source = self.cut("part.ppm", 37, 22)
            old = contents(convert(source, self.path("a.dds"), "--block", kind, "--dx10"))
            new = contents(convert(source, self.path("a.ktx2"), "--block", kind))
            at, size = struct.unpack_from("<2Q", new, 80)
            self.assertEqual((number, 37, 22), struct.unpack_from("<I4x2I", new, 12))
            self.assertEqual(0, at % 8 if kind in BLOCK_BYTES else at % 16)
            self.assertEqual(old[148:], new[at:at + size])
            place, length = struct.unpack_from("<2I", new, 48)
            self.assertEqual((length, 24 + 16 * samples, model),
                             struct.unpack_from("<I6xHB", new, place))
            for a in (self.path("a.dds"), self.path("a.ktx2")):
                convert(a, a + ".pam")
            self.assertEqual(contents(self.path("a.dds.pam")), contents(self.path("a.ktx2.pam")))

    def test_colours_are_divided_by_the_alpha_that_they_bear(self):
        half = np.full((4, 4, 4), (100, 48, 24, 128), np.uint8)
        Image.fromarray(half).save(self.path("half.png"))
        for kind, code in (("bc2", b"DXT2"), ("bc3", b"DXT4")):
            data = contents(convert(self.path("half.png"), self.path("half.dds"), "--block", kind))
            path = self.file("multiplied.dds", data.replace(b"DXT3", code).replace(b"DXT5", code))
            plain = read_pnm(convert(self.path("half.dds"), self.path("plain.pam")))
            divided = np.minimum((plain[:, :, :3] * 255 + plain[:, :, 3:] // 2) // plain[:, :, 3:], 255)
            ours = read_pnm(convert(path, self.path("ours.pam")))
            self.assertTrue(np.array_equal(np.dstack([divided, plain[:, :, 3]]), ours))

    def test_float_maps_keep_every_half(self):
        path, _ = self.random_texture("bc6s")
        first = convert(path, self.path("a.pfm"))
        again = convert(first, self.path("b.pfm"))
        self.assertEqual(open(first, "rb").read(), open(again, "rb").read())

    def test_what_cannot_be_read_is_refused(self):
        path, _ = self.random_texture("bc3", 16, 16)
        whole = open(path, "rb").read()
        out = self.path("out.ppm")
        for length in (4, 20, 127, 140, 147, 160, len(whole) - 1):
            open(self.path("cut.dds"), "wb").write(whole[:length])
            self.assertIn("truncated", fails(QELCONV, self.path("cut.dds"), out))
        for at, value, reason in ((128, 61, "DXGI format 61"), (84, 0x39584444, "DDX9"), (80, 64, "BC1 to BC7"),
                                  (12, 0, "empty"), (128, 81, "signed BC4"), (128, 84, "signed BC5"),
                                  (16, 0x7FFFFFFF, "too large")):
            open(self.path("bent.dds"), "wb").write(whole[:at] + struct.pack("<I", value) + whole[at + 4:])
            self.assertIn(reason, fails(QELCONV, self.path("bent.dds"), out))
        random_half, _ = self.random_texture("bc6")
        self.assertIn("half-float", fails(QELCONV, random_half, out))
        self.assertIn("half-float", fails(QELCONV, random_half, self.path("out.dds")))


if __name__ == "__main__":
    unittest.main()
