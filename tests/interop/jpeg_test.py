"""JPEG both ways with libjpeg-turbo's command-line programs."""
import os
import struct
import subprocess
import unittest

import numpy as np
from PIL import Image, ImageCms, ImageOps, PngImagePlugin

from support import (QELCONV, InteropTest, bounded, contents, convert, fails, psnr, read_pnm, run, write_pnm,
                     write_tiff)

SIZES = [(1, 1), (7, 5), (8, 8), (9, 17), (33, 16), (250, 131)]


class JpegTest(InteropTest):
    def djpeg(self, path, *options):
        target = self.path("theirs.pnm")
        run("djpeg", "-pnm", "-dct", "int", "-outfile", target, *options, path)
        return read_pnm(target)

    def cjpeg(self, source, *options):
        return self.cjpeg_as("theirs.jpg", source, *options)

    def cjpeg_as(self, name, source, *options):
        target = self.path(name)
        run("cjpeg", "-dct", "int", "-outfile", target, *options, source)
        return target

    def ours(self, path, *options):
        return read_pnm(convert(path, self.path("ours.pnm"), *options))

    def assert_close(self, a, b, most, share=0.99, all_within=2):
        """`share` of the samples within `most`, all of them within `all_within`."""
        self.assertEqual(a.shape, b.shape)
        d = np.abs(a - b)
        self.assertGreaterEqual(np.mean(d <= most), share)
        self.assertLessEqual(d.max(), all_within)

    # Grey files have no colour conversion in the way: the inverse DCTs themselves are compared. The sampling factors
    # that an only component declares mean nothing.
    def test_grey_of_theirs(self):
        for width, height in SIZES:
            source = self.cut("grey.pgm", width, height, 1)
            for quality, *options in ((1,), (25, "-sample", "1x2"), (75, "-sample", "2x2", "-restart", "3B"),
                                      (92, "-sample", "2x1", "-progressive"), (100, "-sample", "4x4")):
                with self.subTest(width=width, height=height, quality=quality):
                    path = self.cjpeg(source, "-quality", quality, *options)
                    self.assert_close(self.djpeg(path), self.ours(path), 1)

    def test_triangle_filter_is_theirs(self):
        for sample in ("2x1", "2x2", "1x2"):
            path = self.cjpeg(self.coffee, "-quality", 90, "-sample", sample)
            self.assert_close(self.djpeg(path), self.ours(path), 3, 0.99, 5)

    # With colour the two decoders' conversions differ by rounding as well, weighted by up to 1.77.
    def test_colour_of_theirs(self):
        # Sequential scans of some components only: those of one walk its own blocks, the others MCUs.
        alone, pair = self.file("alone.txt", b"2; 0; 1;"), self.file("pair.txt", b"0 2; 1;")
        for width, height in SIZES:
            source = self.cut("colour.ppm", width, height)
            for options in (["-sample", "1x1"], ["-sample", "2x1", "-quality", 90], ["-sample", "2x2", "-quality", 30],
                            ["-sample", "1x2"], ["-restart", "1"], ["-restart", "3B"], ["-optimize"], ["-progressive"],
                            ["-progressive", "-restart", "1"], ["-progressive", "-sample", "1x1"],
                            ["-scans", alone, "-restart", "5B"], ["-scans", alone, "-sample", "1x2"],
                            ["-scans", pair, "-restart", "1"], ["-scans", pair, "-sample", "2x1,1x2,1x1"],
                            ["-sample", "4x1"], ["-sample", "4x2"], ["-sample", "1x3"], ["-sample", "1x1,2x2,1x2"],
                            ["-sample", "1x1,1x1,4x1", "-progressive"], ["-scans", alone, "-sample", "4x4,2x1,1x4"]):
                with self.subTest(width=width, height=height, options=options):
                    path = self.cjpeg(source, *options)
                    self.assert_close(self.djpeg(path, "-nosmooth"), self.ours(path, "--filter", "box"), 3, 0.99, 5)

    def joined(self, name, planes, factors, width, height, header=b""):
        """A file whose components are pictures of their own, of these sampling factors; returns it and those as the
        peer decodes them. The scans of a file's components apart are those of grey files."""
        across, down = (max(column) for column in zip(*factors))
        scans, decoded = b"", []
        for i, (plane, (h, v)) in enumerate(zip(planes, factors)):
            size = -(-height * v // down), -(-width * h // across)
            grey = self.cjpeg(write_pnm(self.path("plane.pgm"), plane[:size[0], :size[1], None]), "-quality", 95)
            decoded.append(self.djpeg(grey)[:, :, 0])
            data = contents(grey)
            tables = b"".join(data[at:at + 2 + int.from_bytes(data[at + 2:at + 4], "big")]
                              for at in (data.index(m) for m in (b"\xff\xdb", b"\xff\xc4\0\x1f", b"\xff\xc4\0\xb5")))
            scan = data.index(b"\xff\xda")
            scans += b"\xff\xda\0\x08\1" + bytes([i + 1, 0, 0, 63, 0]) + data[scan + 10:-2]
        frame = struct.pack(">BHHB", 8, height, width, len(planes))
        frame += b"".join(bytes([i + 1, 16 * h + v, 0]) for i, (h, v) in enumerate(factors))
        return self.file(name, b"\xff\xd8" + header + tables + b"\xff\xc0" + struct.pack(">H", 2 + len(frame)) +
                         frame + scans + b"\xff\xd9"), decoded

    @staticmethod
    def spread(plane, axis, length, to, of, smooth):
        """A plane at the picture's length, `to` samples over `of`."""
        at = (2 * np.arange(length) + 1) * of // (2 * to)
        near = np.take(plane, at, axis)
        if not smooth or to != 2 * of:
            return near
        at = np.clip(at + np.where(np.arange(length) % 2, 1, -1), 0, plane.shape[axis] - 1)
        return near * 0.75 + np.take(plane, at, axis) * 0.25

    # Mixtures that the peer doesn't write or read: ratios that are no whole numbers, and the triangle filter in each
    # direction whose ratio is two, whatever the other one's is.
    def test_any_ratio(self):
        for width, height in SIZES[1:]:
            luma, cb, cr = np.moveaxis(read_pnm(self.coffee)[50:50 + height, 100:100 + width], 2, 0)
            for factors in (((3, 1), (2, 1), (1, 1)), ((2, 3), (1, 2), (2, 1)), ((1, 2), (2, 3), (3, 4)),
                            ((4, 2), (1, 1), (2, 1)), ((2, 4), (1, 1), (1, 3)), ((3, 2), (1, 1), (3, 1))):
                path, planes = self.joined("joined.jpg", (luma, cb, cr), factors, width, height)
                across, down = (max(column) for column in zip(*factors))
                for smooth in (False, True):
                    with self.subTest(width=width, height=height, factors=factors, smooth=smooth):
                        y, cb2, cr2 = (self.spread(self.spread(plane, 0, height, down, v, smooth), 1, width, across, h,
                                                   smooth) for plane, (h, v) in zip(planes, factors))
                        cb2, cr2 = cb2 - 128, cr2 - 128
                        expected = np.stack([y + 1.402 * cr2, y - 0.344136 * cb2 - 0.714136 * cr2, y + 1.772 * cb2], 2)
                        mine = self.ours(path, "--filter", "triangle" if smooth else "box")
                        self.assert_close(expected.clip(0, 255), mine, 3, 0.99, 5)
        path, _ = self.joined("joined.jpg", (luma, cb, cr), ((4, 2), (2, 1), (1, 1)), width, height)
        header, data = b"\xff\xda\0\x0c\3\1\0\2\0\3\0\0\x3f\0", contents(path)
        many = self.file("many.jpg", data[:data.index(b"\xff\xda")] + header + data[data.index(b"\xff\xda"):])
        self.assertIn("more than ten blocks", fails(QELCONV, many, self.path("never.ppm")))

    def test_ours_is_read_by_them(self):
        for width, height in SIZES:
            source = self.cut("source.ppm", width, height)
            for options in (["--sampling", "444"], ["--sampling", "422"], ["--sampling", "420"], ["--sampling", "440"],
                            ["--sampling", "411"], ["--sampling", "410", "--progressive"], ["--restart", "1"],
                            ["--optimize"], ["--progressive"], ["--progressive", "--restart", "1"], ["--plain-colour"]):
                with self.subTest(width=width, height=height, options=options):
                    path = convert(source, self.path("mine.jpg"), "--quality", "92", *options)
                    self.assert_close(self.djpeg(path, "-nosmooth"), self.ours(path, "--filter", "box"), 3, 0.99, 5)

    def test_grey_of_ours_is_read_by_them(self):
        for width, height in SIZES:
            path = convert(self.cut("g.pgm", width, height, 1), self.path("mine.jpg"), "--quality", "95")
            self.assert_close(self.djpeg(path), self.ours(path), 1)

    # The same quantisers, the same chroma: as good a picture in about as many bytes.
    def test_quality_is_that_of_the_peer(self):
        original = read_pnm(self.raccoon)
        for sampling, sample in (("444", "1x1"), ("420", "2x2")):
            theirs = self.cjpeg(self.raccoon, "-quality", "85", "-sample", sample)
            mine = convert(self.raccoon, self.path("mine.jpg"), "--quality", "85", "--sampling", sampling)
            self.assertGreater(psnr(original, self.djpeg(mine)), psnr(original, self.djpeg(theirs)) - 0.15)
            self.assertLess(os.path.getsize(mine), 1.02 * os.path.getsize(theirs))

    # A transcoder's coefficients are the file's own: both must decode to the same pixels, whatever the process.
    def test_processes_of_one_picture_decode_alike(self):
        plain = self.cjpeg(self.coffee, "-quality", "80")
        expected = self.ours(plain)
        for options in (["-progressive"], ["-optimize"], ["-restart", "2"]):
            other = self.path("transcoded.jpg")
            run("jpegtran", *options, "-outfile", other, plain)
            self.assertTrue(np.array_equal(expected, self.ours(other)), options)
        mine = convert(self.coffee, self.path("plain.jpg"))
        progressive = convert(self.coffee, self.path("progressive.jpg"), "--progressive")
        back = self.path("back.jpg")
        run("jpegtran", "-outfile", back, progressive)
        self.assertTrue(np.array_equal(self.djpeg(mine), self.djpeg(progressive)))
        self.assertTrue(np.array_equal(self.ours(mine), self.ours(back)))

    # What files of other makers leave out or have too much: typical tables, the number of lines behind the scan, bytes
    # between segments.
    def test_incomplete_headers(self):
        path = self.path("whole.jpg")
        run("cjpeg", "-outfile", path, self.coffee)
        data = contents(path)
        tables, at = b"", 2
        while data[at + 1] != 0xDA:
            end = at + 2 + int.from_bytes(data[at + 2:at + 4], "big")
            tables += b"" if data[at + 1] == 0xC4 else data[at:end]
            at = end
        frame = data.index(b"\xFF\xC0") + 5
        lines = data[frame:frame + 2]
        for name, changed in (
                ("no Huffman tables", data[:2] + tables + data[at:]),
                ("DNL", data[:frame] + b"\0\0" + data[frame + 2:-2] + b"\xFF\xDC\0\4" + lines + data[-2:]),
                ("bytes between", data[:at] + b"\0\x12\xFF\0\x34" + data[at:])):
            with self.subTest(name=name):
                self.assertTrue(np.array_equal(self.ours(path), self.ours(self.file("changed.jpg", changed))))
        bare = self.file("bare.jpg", data[:frame] + b"\0\0" + data[frame + 2:])
        self.assertIn("number of lines", fails(QELCONV, bare, self.path("never.ppm")))
        run("cjpeg", "-arithmetic", "-outfile", path, self.coffee)
        self.assertIn("arithmetic coding", fails(QELCONV, path, self.path("never.ppm")))

    # What the peer refuses is refused, by the name of its fault; a sequential script makes a sequential file.
    def test_scan_scripts(self):
        dc = "0,1,2: 0-0, 0, 0; "
        for text, fault in (
                ("0,x;", "bad entry"), ("0: 0-0, 0, 0, 7;", "bad entry"), ("0 99999999999;", "bad entry"),
                ("0,1,2: 0-63, 0, 1;", "a band that starts at coefficient 0 goes beyond it"),
                (dc + "0: 0-5, 0, 0;", "scan 2: a band that starts at coefficient 0 goes beyond it"),
                (dc + "0: 1-64, 0, 0;", "scan 2: the band"), (dc + "0: 5-4, 0, 0;", "scan 2: the band"),
                (dc + "0,1: 1-5, 0, 0;", "scan 2: a band behind coefficient 0 has several components"),
                ("0: 1-63, 0, 0; " + dc, "scan 1: component 0 has no scan of coefficient 0 before"),
                ("0,1: 0-0, 0, 0; 0: 1-63, 0, 0;", "component 2 has no scan"), ("0; 1;", "component 2 has no scan"),
                (dc + "0: 1-5, 0, 0; 0: 5-9, 0, 0;", "scan 3: coefficient 5 of component 0 has been coded already"),
                (dc + "0: 1-5, 2, 1;", "scan 2: coefficient 1 of component 0 is refined before it has been coded"),
                (dc + "0: 1-5, 0, 2; 0: 1-5, 1, 0;", "scan 3: coefficient 1 of component 0 is refined out of order"),
                (dc + "0: 1-5, 0, 2; 0: 1-5, 2, 0;", "scan 3: the bits 2, 0 are no step"),
                (dc + "0: 1-5, 0, 14;", "scan 2: the bits 0, 14 are no step"),
                ("0,1,2; 1;", "scan 2: component 1 has been coded already"), ("0,0,1,2;", "component 0 is named twice"),
                ("0,2,1;", "not in the order of the frame"), ("0,1,2,3;", "there is no component 3"),
                ("0; 1; 2;", None), ("0 1 2: 0-63, 0, 0", None), ("0,2; 1;", None),
                ("0,1: 0-0, 0, 1; 2: 0-0, 0, 0; 0,1: 0-0, 1, 0;\n# the rest\n0: 1-9, 0, 0; 0: 10-63, 0, 0;\n"
                 "1: 1-63, 0, 2; 2: 1-63, 0, 0;\n1: 1-63, 2, 1; 1: 1-63, 1, 0;\n", None)):
            with self.subTest(script=text):
                script = self.file("script.txt", text.encode())
                target, options = self.path("scripted.jpg"), ["-quality", "85", "-scans", script]
                command = ["cjpeg", *options, "-outfile", self.path("t.jpg"), self.coffee]
                theirs = subprocess.run(command, capture_output=True)
                self.assertEqual(theirs.returncode == 0, fault is None, theirs.stderr)
                if fault:
                    self.assertIn(fault, fails(QELCONV, self.coffee, target, "--scans", script))
                    self.assertFalse(os.path.exists(target))
                    continue
                convert(self.coffee, target, "--scans", script)
                self.assertIn(b"progressive" if "rest" in text else b"baseline", run(QELCONV, "--info", target))
                for path in (target, self.path("t.jpg")):
                    self.assert_close(self.djpeg(path, "-nosmooth"), self.ours(path, "--filter", "box"), 3, 0.99, 5)
                os.remove(target)

    def test_every_cut_between_scans_decodes(self):
        data = contents(self.cjpeg(self.coffee, "-progressive", "-sample", "1x1"))
        original, last = read_pnm(self.coffee), 0
        starts = [i for i in range(len(data) - 1) if data[i:i + 2] == b"\xff\xda"]

        def tables(end):
            return data.rindex(b"\xff\xc4", 0, end)  # the DHT in front of a scan
        for start in starts[1:]:
            end = start
            while tables(end) > starts[starts.index(start) - 1]:
                end = tables(end)
            cut = self.file("cut.jpg", data[:end] + b"\xff\xd9")
            quality = psnr(original, self.ours(cut))
            self.assertGreater(quality, last - 0.05)
            # Their decoder smooths what is incomplete; their transcoder gives the coefficients as they are.
            run("jpegtran", "-outfile", self.path("complete.jpg"), cut)
            theirs = self.djpeg(self.path("complete.jpg"), "-nosmooth")
            self.assert_close(theirs, self.ours(cut, "--filter", "box"), 3, 0.99, 5)
            last = quality

    def test_reduced_sizes(self):
        for sampling in ("1x1", "2x2", "1x2", "4x1", "4x2", "1x1,1x1,2x4"):
            path = self.cjpeg(self.raccoon, "-quality", "90", "-sample", sampling)
            for scale in ("1/2", "1/4", "1/8"):
                with self.subTest(sampling=sampling, scale=scale):
                    theirs = self.djpeg(path, "-scale", scale, "-nosmooth")
                    self.assertGreater(psnr(theirs, self.ours(path, "--scale", scale, "--filter", "box")), 45)

    # A DICOM toolkit has the one lossless coder at hand: its files are a header of text, and frames to cut out.
    def dicom(self, name, array, bits, syntax, pixels):
        height, width, channels = array.shape
        lines = [f"(0002,0010) UI [{syntax}]", "(0008,0016) UI [1.2.840.10008.5.1.4.1.1.7]", "(0008,0018) UI [1.2.3.4]",
                 f"(0028,0002) US {channels}", f"(0028,0004) CS [{'MONOCHROME2' if channels == 1 else 'RGB'}]"]
        lines += ["(0028,0006) US 0"] if channels > 1 else []
        lines += [f"(0028,0010) US {height}", f"(0028,0011) US {width}", f"(0028,0100) US {16 if bits > 8 else 8}",
                  f"(0028,0101) US {bits}", f"(0028,0102) US {bits - 1}", "(0028,0103) US 0"] + pixels
        with open(self.path("dump.txt"), "w") as out:
            out.write("\n".join(lines) + "\n")
        run("dump2dcm", self.path("dump.txt"), self.path(name))
        return self.path(name)

    # Neighbours on both sides of 32768 and of 0, where predictors 5, 6 and 7 of signed and of unsigned samples differ.
    def test_lossless_with_a_dicom_toolkit(self):
        random = np.random.default_rng(5)
        for bits, channels, height, width, shift, restart in (
                (2, 1, 6, 5, 0, 0), (8, 1, 37, 54, 0, 0), (8, 3, 11, 23, 2, 3), (9, 1, 5, 9, 0, 1),
                (12, 3, 16, 17, 4, 0),
                (13, 1, 12, 31, 0, 5), (15, 1, 9, 8, 1, 0), (16, 1, 1, 7, 0, 0), (16, 1, 37, 53, 0, 0),
                (16, 1, 20, 33, 0, 3), (16, 1, 13, 21, 3, 2), (16, 3, 10, 15, 0, 4)):
            ramp = np.add.outer(np.arange(height) * 3, np.arange(width) * 5)[:, :, None]
            array = (ramp + random.integers(0, 9, (height, width, channels))) % (1 << bits)
            array[height // 2:] = random.integers(0, 1 << bits, array[height // 2:].shape)
            raw = self.path("pixels.raw")
            kept, kind = array >> shift << shift, "<u2" if bits > 8 else "u1"
            array.astype(kind).tofile(raw)
            plain = self.dicom("plain.dcm", array, bits, "1.2.840.10008.1.2.1", [f"(7fe0,0010) OW ={raw}"])
            source = write_pnm(self.path("l.pnm"), array, (1 << bits) - 1)
            for predictor in range(1, 8):
                with self.subTest(bits=bits, channels=channels, shift=shift, restart=restart, predictor=predictor):
                    run("dcmcjpeg", "+el", "+sv", predictor, "+pt", shift, plain, self.path("theirs.dcm"))
                    data = contents(self.path("theirs.dcm"))
                    theirs = self.file("theirs.jpg", data[data.index(b"\xff\xd8\xff"):])
                    self.assertTrue(np.array_equal(kept, self.ours(theirs)))
                    mine = convert(source, self.path("mine.jpg"), "--lossless", "--predictor", predictor,
                                   "--point-transform", shift, "--restart", restart)
                    self.assertTrue(np.array_equal(kept, self.ours(mine)))
                    if os.path.getsize(mine) % 2:
                        with open(mine, "ab") as out:
                            out.write(b"\0")
                    pixels = ["(7fe0,0010) OB (PixelSequence #=2)", "(fffe,e000) pi (no value available)",
                              f"(fffe,e000) pi ={mine}", "(fffe,e0dd) na (SequenceDelimitationItem)"]
                    coded = self.dicom("mine.dcm", array, bits, "1.2.840.10008.1.2.4.57", pixels)
                    run("dcmdjpeg", coded, self.path("back.dcm"))
                    self.assertIn(kept.astype(kind).tobytes(), contents(self.path("back.dcm")))

    def test_cmyk_round_trip(self):
        random = np.random.default_rng(3)
        ink = np.repeat(np.repeat(random.integers(0, 256, (5, 6, 4)), 16, axis=0), 16, axis=1).astype("u1")
        source = self.path("ink.pam")
        with open(source, "wb") as out:
            out.write(b"P7\nWIDTH 96\nHEIGHT 80\nDEPTH 4\nMAXVAL 255\nTUPLTYPE CMYK\nENDHDR\n" + ink.tobytes())
        for options in ([], ["--plain-colour"], ["--sampling", "444"], ["--sampling", "422"], ["--sampling", "411"]):
            with self.subTest(options=options):
                path = convert(source, self.path("ink.jpg"), "--quality", "98", *options)
                back = read_pnm(convert(path, self.path("ink2.pam"), "--filter", "box"))
                self.assertGreater(psnr(ink, back), 52)
                # The transcoder of the peer reads the file; its coefficients are ours.
                run("jpegtran", "-progressive", "-outfile", self.path("ink3.jpg"), path)
                again = read_pnm(convert(self.path("ink3.jpg"), self.path("ink3.pam"), "--filter", "box"))
                self.assertTrue(np.array_equal(back, again))

    # CMYK and YCCK as programs write them: inverted ink, with Adobe's segment or without, which is CMYK then.
    def test_ink_of_others(self):
        random = np.random.default_rng(7)
        planes = [random.integers(0, 256, (6, 7)).astype("u1").repeat(12, 0).repeat(12, 1) for _ in range(4)]
        adobe = b"\xff\xee\0\x0eAdobe\0\x64\0\0\0\0"
        for header in (b"", adobe + b"\0", adobe + b"\2"):
            for factors in (((1, 1),) * 4, ((2, 2), (1, 1), (1, 1), (2, 2))):
                with self.subTest(header=header, factors=factors):
                    path, _ = self.joined("ink.jpg", planes, factors, 80, 67, header)
                    mine = read_pnm(convert(path, self.path("ink.ppm"), "--filter", "box"))
                    self.assert_close(self.djpeg(path, "-nosmooth"), mine, 3, 0.99, 5)

    # Samples of 12 bits, in the two processes that have them, both ways with a DICOM toolkit.
    def test_twelve_bits(self):
        random = np.random.default_rng(9)
        ramp = np.add.outer(np.arange(61) * 31, np.arange(83) * 29)[:, :, None] % 4096
        array = np.clip(ramp + random.integers(-40, 40, (61, 83, 1)), 0, 4095)
        array[:16, :16] = random.integers(0, 2, (16, 16, 1)) * 4095
        raw = self.path("twelve.raw")
        array.astype("<u2").tofile(raw)
        plain = self.dicom("plain.dcm", array, 12, "1.2.840.10008.1.2.1", [f"(7fe0,0010) OW ={raw}"])
        source = write_pnm(self.path("twelve.pgm"), array, 4095)
        for theirs, mine, syntax in (("+ee", [], 51), ("+es", None, 53), ("+ep", ["--progressive"], 55)):
            with self.subTest(theirs=theirs):
                run("dcmcjpeg", theirs, "+q", 90, plain, self.path("theirs.dcm"))
                data = contents(self.path("theirs.dcm"))
                run("dcmdjpeg", self.path("theirs.dcm"), self.path("back.dcm"))
                back = np.frombuffer(contents(self.path("back.dcm"))[-array.size * 2:], "<u2").reshape(array.shape)
                coded = self.file("theirs.jpg", data[data.index(b"\xff\xd8\xff"):])
                self.assert_close(back.astype(int), self.ours(coded), 1, 0.99)
                if mine is None:
                    continue
                coded = convert(source, self.path("mine.jpg"), "--bits", 12, "--quality", 90, *mine)
                pixels = ["(7fe0,0010) OB (PixelSequence #=2)", "(fffe,e000) pi (no value available)",
                          f"(fffe,e000) pi ={coded}", "(fffe,e0dd) na (SequenceDelimitationItem)"]
                if os.path.getsize(coded) % 2:
                    with open(coded, "ab") as out:
                        out.write(b"\0")
                run("dcmdjpeg", self.dicom("mine.dcm", array, 12, f"1.2.840.10008.1.2.4.{syntax}", pixels),
                    self.path("back.dcm"))
                back = np.frombuffer(contents(self.path("back.dcm"))[-array.size * 2:], "<u2").reshape(array.shape)
                self.assert_close(back.astype(int), self.ours(coded), 1, 0.99)
        self.assertIn("reduced size", fails(QELCONV, coded, self.path("never.pgm"), "--scale", "1/2"))
        whole = self.file("whole.txt", b"0: 0-0, 0, 0; 0: 1-63, 0, 0;")
        self.assertIn("DC difference has 12 bits", fails(
            QELCONV, source, coded, "--bits", 12, "--quality", 100, "--scans", whole))
        convert(source, coded, "--bits", 12, "--quality", 100, "--progressive")
        self.assertGreater(psnr(array, self.ours(coded), 4095), 70)
        # Colour and ink have no peer: what comes back is near.
        smooth = read_pnm(self.raccoon)[:64, :72]
        for options in (["--sampling", "444"], [], ["--sampling", "411"], ["--plain-colour", "--progressive"]):
            deep = write_pnm(self.path("deep.ppm"), smooth * 16 + 8, 4095)
            coded = convert(deep, self.path("deep.jpg"), "--bits", 12, "--quality", 98, *options)
            near = psnr(smooth * 16 + 8, self.ours(coded), 4095)
            plain = write_pnm(self.path("plain.ppm"), smooth)
            plain = convert(plain, self.path("plain.jpg"), "--quality", 98, *options)
            self.assertGreater(near, psnr(smooth, self.ours(plain)) - 0.1, options)
        ink = self.file("ink.pam", b"P7\nWIDTH 72\nHEIGHT 64\nDEPTH 4\nMAXVAL 4095\nTUPLTYPE CMYK\nENDHDR\n" +
                        np.dstack([smooth * 16, smooth[:, :, :1] * 8]).astype(">u2").tobytes())
        back = read_pnm(convert(convert(ink, self.path("ink.jpg"), "--bits", 12, "--quality", 98, "--sampling", "444"),
                                self.path("ink2.pam")))
        self.assertGreater(psnr(read_pnm(ink), back, 4095), 44)

    # Dots per inch and the shape of pixels, which need no message where a format has no place for them.
    def test_density(self):
        small = Image.fromarray(read_pnm(self.coffee)[:33, :47].astype("u1"))
        for first in ("jpg", "png", "tif"):
            for dpi in ((300, 150), (118.11 * 2.54, 118.11 * 2.54), None):
                path = self.path("first." + first)
                small.save(path, **({"dpi": dpi} if dpi else {}))
                for names in (("b.jpg",), ("b.png",), ("b.tif",), ("b.tif", "c.jpg"), ("b.png", "c.tif", "d.jpg"),
                              ("b.jxr", "c.png"), ("b.jpg", "c.jxr", "d.tif")):
                    with self.subTest(first=first, dpi=dpi, names=names):
                        last = path
                        for name in names:
                            self.assertEqual(b"", run(QELCONV, last, self.path(name)))
                            last = self.path(name)
                        with Image.open(last) as picture:
                            kept = picture.info.get("dpi", (72, 72))
                        np.testing.assert_allclose([float(v) for v in kept], dpi or (72, 72), rtol=1e-4)
                self.assertEqual(b"", run(QELCONV, path, self.path("b.ppm")))
        wide = self.file("wide.jpg", contents(convert(self.coffee, self.path("a.jpg"))).replace(
            b"JFIF\0\1\2\0\0\1\0\1", b"JFIF\0\1\2\0\0\2\0\1"))
        for name in ("b.png", "b.tif", "b.jpg"):
            wide = convert(wide, self.path(name))
        self.assertEqual(b"JFIF\0\1\2\0\0\2\0\1", contents(wide)[6:18])

    # What no format here keeps is told by its name, once.
    def test_other_data_that_are_dropped(self):
        def segment(marker, data):
            return bytes([0xFF, marker]) + struct.pack(">H", 2 + len(data)) + data
        plain = contents(convert(self.coffee, self.path("plain.jpg")))
        jpeg = self.file("told.jpg", plain[:20] + segment(0xFE, b"one") + segment(0xFE, b"two") + plain[20:])
        more = self.file("more.jpg", plain[:20] + segment(0xED, b"Photoshop 3.0\0more") +
                         segment(0xE1, b"http://ns.adobe.com/xap/1.0/\0<x/>") + plain[20:])
        texts = PngImagePlugin.PngInfo()
        texts.add_text("Comment", "any")
        texts.add_itxt("XML:com.adobe.xmp", "<x/>")
        picture = Image.fromarray(read_pnm(self.coffee)[:33, :47].astype("u1"))
        picture.save(self.path("told.png"), pnginfo=texts)
        grey = read_pnm(self.coffee)[:9, :9, :1]
        tiff = write_tiff(self.path("told.tif"), grey, 8, fields=[(700, "B", list(b"<x:xmpmeta/>"))])
        for path, names in ((jpeg, ["comments"]), (more, ["Photoshop data", "XMP data"]),
                            (self.path("told.png"), ["XMP data", "texts"]), (tiff, ["XMP data"])):
            for name in ("a.ppm", "a.tif", "a.jp2"):
                told = run(QELCONV, path, self.path(name)).decode().splitlines()
                self.assertEqual([f"qelconv: {self.path(name)}: the {what} are dropped" for what in names],
                                 sorted(told), (path, name))

    # Profiles of several segments and EXIF data go from JPEG to the formats that have a place for them, and back: as
    # they are, or to TIFF and back field by field, but for what is bound to its place in a file.
    def test_metadata(self):
        profile, large = ImageCms.ImageCmsProfile(ImageCms.createProfile("sRGB")).tobytes(), os.urandom(200000)
        exif = Image.Exif()
        exif[0x112], exif[0x10F], exif[0x11A], exif[0x11B], exif[0x128] = 6, "maker", 300.0, 200.5, 3
        exif[0x8769] = {0x9003: "2020:01:02 03:04:05", 0x8827: 200, 0x927C: b"maker's own"}
        exif[0x8825] = {1: "N", 2: (51.0, 30.5, 1.0)}
        small = Image.fromarray(read_pnm(self.coffee)[:33, :47].astype("u1"))
        for icc in (profile, large):
            small.save(self.path("all.jpg"), icc_profile=icc, exif=exif.tobytes())
            path = self.path("all.jpg")
            for names in (("b.jpg",), ("b.jpg", "c.jpg", "--lossless"), ("b.png", "c.jpg"), ("b.jp2", "c.jpg"),
                          ("b.tif", "c.jpg"), ("b.tif", "c.tif", "d.jpg", "--big-tiff", "--big-endian"),
                          ("b.jxr", "c.jpg"), ("b.jxr", "c.tif", "d.jxr", "e.png")):
                with self.subTest(names=names, bytes=len(icc)):
                    told = ""
                    for name in (n for n in names if n[0] != "-"):
                        told += run(QELCONV, path, self.path(name), *(n for n in names if n[0] == "-")).decode()
                        path = self.path(name)
                    with Image.open(path) as picture:
                        kept, fields = picture.info.get("icc_profile"), picture.getexif()
                        self.assertEqual([6, "maker", 300, 200.5, 3],
                                         [fields[tag] for tag in (0x112, 0x10F, 0x11A, 0x11B, 0x128)])
                        taken = dict(fields.get_ifd(0x8769))
                        byField = names[0] in ("b.tif", "b.jxr")
                        self.assertEqual(not byField, taken.pop(0x927C, b"") == b"maker's own")
                        self.assertEqual({0x9003: "2020:01:02 03:04:05", 0x8827: 200}, taken)
                        self.assertEqual({1: "N", 2: (51, 30.5, 1)}, fields.get_ifd(0x8825))
                    lost = icc is large and bool({"b.png", "b.jp2", "e.png"} & set(names))
                    self.assertEqual(None if lost else icc, kept)
                    self.assertEqual(lost, "the colour profile is " in told)
                    self.assertEqual(byField, "the maker's note" in told, told)
                path = self.path("all.jpg")
            told = run(QELCONV, path, self.path("d.ppm")).decode()
            self.assertIn("the colour profile is dropped", told)
            self.assertIn("the EXIF data are dropped", told)
        data = contents(path)
        broken = self.file("broken.jpg", data.replace(b"ICC_PROFILE\0\2", b"ICC_PROFILE\0\7", 1))
        self.assertIn("parts of the colour profile are missing", run(QELCONV, broken, self.path("d.jpg")).decode())
        for orientation in range(1, 9):
            exif[0x112] = orientation
            for order in ("<", ">"):
                exif.endian = order
                small.save(path, quality=95, exif=exif)
                with Image.open(path) as picture:
                    expected = np.asarray(ImageOps.exif_transpose(picture)).astype(int)
                for name in ("o.png", "o.tif", "o.jpg"):
                    with self.subTest(orientation=orientation, order=order, name=name):
                        turned = convert(path, self.path(name), "--orient")
                        with Image.open(turned) as picture:
                            self.assertEqual(1, picture.getexif().get(0x112, 1))
                        if name != "o.jpg":
                            self.assert_close(expected, self.ours(turned), 3, 0.98, 6)
                            later = convert(convert(path, self.path("p" + name)), self.path("q" + name), "--orient")
                            self.assertTrue(np.array_equal(self.ours(turned), self.ours(later)))

    # Strips of many widths go from thread to thread, with filters that look into their neighbours.
    def test_threads_make_no_difference(self):
        wide = write_pnm(self.path("wide.ppm"), np.tile(read_pnm(self.coffee)[:90], (1, 16, 1)))
        for source in (self.raccoon, wide, self.cut("narrow.ppm", 9, 400)):
            for options in (["--sampling", "444"], ["--sampling", "422"], ["--sampling", "420", "--restart", "1"],
                            ["--progressive"], ["--scale", "1/2"]):
                files = []
                for threads in "14":
                    environment = dict(os.environ, OMP_NUM_THREADS=threads)
                    coded, back = self.path(f"t{threads}.jpg"), self.path(f"t{threads}.ppm")
                    run(QELCONV, source, coded, *options, env=environment)
                    run(QELCONV, coded, back, *options, env=environment)
                    files.append(contents(coded) + contents(back))
                self.assertEqual(files[0], files[1], (source, options))

    # Files that are converted by rows: the bytes of a whole picture, which --repeat asks for, and little memory.
    def test_by_rows_makes_no_difference(self):
        wide = write_pnm(self.path("wide.ppm"), np.tile(read_pnm(self.coffee)[:177], (1, 9, 1)))
        grey = self.cut("grey.pgm", 600, 399, 1)
        files = [wide, grey, convert(wide, self.path("wide.png")), self.cut("one.ppm", 1, 1),
                 *(self.cjpeg_as(f"{i}.jpg", wide, *options) for i, options in enumerate(
                     [[], ["-sample", "1x1"], ["-sample", "1x2"], ["-sample", "4x1", "-restart", "1"], ["-progressive"],
                      ["-sample", "1x1,2x2,1x1", "-grayscale"], ["-sample", "1x4,1x1,1x1"]]))]
        cut = self.file("cut.jpg", contents(files[4])[:30000])
        for source in (*files, cut):
            for target, *options in (["a.pnm"], ["a.png", "--scale", "1/2"], ["a.jpg"], ["a.jpg", "--progressive"],
                                     ["a.jpg", "--scale", "1/8", "--filter", "box"], ["a.jpg", "--optimize"]):
                with self.subTest(source=source, target=target, options=options):
                    options += ["--partial"]
                    whole = contents(convert(source, self.path(target), *options, "--repeat", 1))
                    for threads in (1, 4):
                        self.assertEqual(whole, contents(convert(source, self.path(target), *options, "--threads",
                                                                 threads)))
        self.assertIn("cut.jpg: ", fails(QELCONV, cut, self.path("never.ppm")))
        self.assertFalse([name for name in os.listdir(self.path(".")) if name.startswith("never")])
        large = self.path("large.ppm")
        write_pnm(large, np.tile(read_pnm(self.coffee).astype("u1"), (8, 20, 1)))
        for source, target in ((large, "large.jpg"), (self.path("large.jpg"), "large.ppm"),
                               (self.path("large.jpg"), "large2.jpg"), (self.path("large.jpg"), "large.png"),
                               (self.path("large.png"), "large3.jpg")):
            status, printed = bounded(QELCONV, source, self.path(target), "--threads", 2, megabytes=40, seconds=30)
            self.assertEqual((0, ""), (status, printed))

    # A cut in a scan: an error, or under --partial the picture so far and grey where nothing is known.
    def test_files_cut_in_a_scan(self):
        alone, part = self.file("alone.txt", b"0; 1; 2;"), self.path("part.ppm")
        lossless = convert(self.coffee, self.path("l.jpg"), "--lossless", "--restart", "100")
        for options, least in (([], 0.98), (["-restart", "1"], 0.98), (["-scans", alone, "-sample", "1x1"], 0.98),
                               (["-progressive"], 0.5), (None, None)):
            data = contents(self.cjpeg(self.coffee, *options) if options is not None else lossless)
            for share in (0.2, 0.5, 0.9):
                with self.subTest(options=options, share=share):
                    cut = self.file("cut.jpg", data[:int(share * len(data))])
                    self.assertIn("(--partial takes what there is)", fails(QELCONV, cut, self.path("none.ppm")))
                    self.assertFalse(os.path.exists(self.path("none.ppm")))
                    printed = run(QELCONV, cut, part, "--partial", "--filter", "box")
                    self.assertIn(b"only part of the picture", printed)
                    if options is None:
                        same = np.all(read_pnm(part) == read_pnm(self.coffee), axis=(1, 2))
                        self.assertAlmostEqual(same.mean(), share, delta=0.15)
                        self.assertTrue(same[:np.count_nonzero(same)].all())
                        continue
                    theirs = subprocess.run(["djpeg", "-dct", "int", "-nosmooth", cut], capture_output=True).stdout
                    close = np.abs(read_pnm(part) - read_pnm(self.file("theirs.ppm", theirs))) <= 3
                    self.assertGreaterEqual(close.mean(), least)
        self.assertIn("truncated", fails(QELCONV, self.file("cut.jpg", data[:40]), part, "--partial"))

    # The claims of a small file's header cost nothing, and a picture that small files can hold is read.
    def test_claims_beyond_the_data(self):
        small = self.cut("small.pgm", 8, 8, 1)
        files = [contents(self.cjpeg(small, *options)) for options in ([], ["-progressive"], ["-optimize"])]
        files += [contents(convert(small, self.path("l.jpg"), *options)) for options in (
            ["--lossless"], ["--bits", 12], ["--bits", 12, "--progressive"])]
        files.append(contents(self.joined("j.jpg", [read_pnm(small)[:, :, 0]] * 3, ((4, 4), (1, 1), (3, 1)), 8, 8)[0]))
        for data in files:
            frame = next(i for i in range(len(data)) if data[i] == 0xFF and data[i + 1] in (0xC0, 0xC1, 0xC2, 0xC3))
            for height, width in ((32767, 32768), (65535, 65535), (2800, 2800)):
                claim = struct.pack(">HH", height, width)
                bomb = self.file("bomb.jpg", data[:frame + 5] + claim + data[frame + 9:])
                for options in ([], ["--scale", "1/8"], ["--partial"]):
                    with self.subTest(marker=data[frame + 1], width=width, options=options):
                        status, printed = bounded(QELCONV, bomb, self.path("bomb.pnm"), *options)
                        few = "--partial" in options and width == 2800  # little enough to be painted grey
                        self.assertEqual(status, 0 if few else 1, printed)
        flat = write_pnm(self.path("flat.pgm"), np.full((2900, 3100, 1), 77))
        for options in (["-optimize"], ["-progressive"]):
            path = self.cjpeg(flat, "-grayscale", *options)
            self.assertLess(os.path.getsize(path), 60000)
            status, printed = bounded(QELCONV, path, self.path("bomb.pnm"))
            self.assertEqual(status, 0, printed)
            self.assertEqual(np.ptp(read_pnm(self.path("bomb.pnm"))), 0)

    def test_unsupported_files_are_named(self):
        run("cjpeg", "-arithmetic", "-outfile", self.path("a.jpg"), self.coffee)
        self.assertIn("can't be read", fails(QELCONV, self.path("a.jpg"), self.path("x.ppm")))


if __name__ == "__main__":
    unittest.main()
