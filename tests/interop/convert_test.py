"""The converter itself: depths and colours of PNM and PNG, clear failures, no half files, and its own options."""
import json
import os
import resource
import signal
import struct
import subprocess
import unittest
import zlib

import numpy as np

from support import QELCONV, InteropTest, bounded, contents, convert, fails, psnr, read_pnm, run, write_pnm

COMPLETION = os.path.join(os.path.dirname(__file__), "..", "..", "examples", "convert", "qelconv.bash")


def png(width, height, depth, colour, raw):
    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))
    head = struct.pack(">IIBBBBB", width, height, depth, colour, 0, 0, 0)
    return b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", head) + chunk(b"IDAT", zlib.compress(raw, 9)) + chunk(b"IEND", b"")


def tiff(width, height, strips, compression=1, *, fields=()):
    """Grey strips of a row each behind the directory; they may be one and the same bytes."""
    n = len(strips)
    head = 8 + 2 + 12 * (9 + len(fields)) + 4
    offsets, counts, data = [], [], b""
    for strip in strips:
        counts.append(len(strip))
        offsets.append(head + 8 * n + (0 if strip is strips[0] else len(data)))
        data += b"" if strip is strips[0] and data else strip
    places = (head, head + 4 * n) if n > 1 else (offsets[0], counts[0])
    entries = [(256, 4, 1, width), (257, 4, 1, height), (258, 3, 1, 8), (259, 3, 1, compression), (262, 3, 1, 1),
               (273, 4, n, places[0]), (277, 3, 1, 1), (278, 4, 1, 1 if n > 1 else height), (279, 4, n, places[1]),
               *fields]
    directory = struct.pack("<H", len(entries)) + b"".join(struct.pack("<HHII", *e) for e in entries) + bytes(4)
    return b"II*\0" + struct.pack("<I", 8) + directory + struct.pack(f"<{2 * n}I", *offsets, *counts) + data


def dds(width, height, blocks):
    return (b"DDS " + struct.pack("<7I", 124, 0x1007, height, width, 0, 0, 1) + bytes(44) +
            struct.pack("<2I4s5I", 32, 4, b"DXT1", 0, 0, 0, 0, 0) + struct.pack("<5I", 0x1000, 0, 0, 0, 0) + blocks)


class ConvertTest(InteropTest):
    def test_pnm_and_png_keep_every_sample(self):
        random = np.random.default_rng(1)
        for channels in (1, 3):
            for top in (255, 65535):
                with self.subTest(channels=channels, top=top):
                    array = random.integers(0, top + 1, (13, 17, channels))
                    source = write_pnm(self.path("a.pnm"), array, top)
                    convert(source, self.path("a.png"))
                    convert(self.path("a.png"), self.path("b.pnm"))
                    self.assertTrue(np.array_equal(array, read_pnm(self.path("b.pnm"))))

    def test_bitmaps(self):
        bits = np.random.default_rng(6).integers(0, 2, (7, 19))
        rows = b"\n".join(b"".join(b"%d" % v for v in row) for row in bits)
        for name, body in (("P1 # text\n19 7\n", rows), ("P1 19 7 ", rows.replace(b"1", b" 1 ")),
                           ("P4 19 7\n", np.packbits(bits, axis=1).tobytes())):
            path = self.file("bits.pbm", name.encode() + body)
            self.assertTrue(np.array_equal(1 - bits, read_pnm(convert(path, self.path("bits.pgm")))[:, :, 0]))
            self.assertIn("truncated", fails(QELCONV, self.file("cut.pbm", contents(path)[:-1]), self.path("b.png")))

    # Sides at the ends of their range: every format keeps the size, those without loss every sample.
    def test_longest_sides(self):
        random = np.random.default_rng(2)
        for height, width in ((65535, 1), (1, 65535), (3, 65535)):
            array = random.integers(0, 256, (height, width, 1))
            source = write_pnm(self.path("long.pgm"), array)
            for name, *options in (["a.png"], ["a.j2k"], ["a.j2k", "--tiles", "999x999"], ["a.j2k", "--levels", 16],
                                   ["a.jxr"], ["a.tif"], ["a.tif", "--packing", "none"], ["a.dds"],
                                   ["a.jxr", "--quality", 50], ["a.j2k", "--irreversible"]):
                with self.subTest(width=width, options=[name, *options]):
                    back = read_pnm(convert(convert(source, self.path(name), *options), self.path("back.pam")))
                    self.assertEqual((height, width), back.shape[:2])
                    if not {"--quality", "--irreversible"} & set(options) and name != "a.dds":
                        self.assertTrue(np.array_equal(array, back))
        self.assertIn("too large", fails(QELCONV, self.file("over.pgm", b"P5 65536 1 255 " + bytes(65536)),
                                         self.path("b.png")))

    def test_failures_name_the_file_and_the_reason(self):
        out = self.path("out.png")
        self.assertIn("nowhere.ppm: can't be opened", fails(QELCONV, "nowhere.ppm", out))
        text = self.path("text.ppm")
        open(text, "w").write("no picture at all")
        self.assertIn("text.ppm: not a picture", fails(QELCONV, text, out))
        short = self.file("short.ppm", contents(self.coffee)[:5000])
        self.assertIn("short.ppm: the file is truncated", fails(QELCONV, short, out))
        self.assertIn("ending", fails(QELCONV, self.coffee, self.path("out.unknown")))
        self.assertFalse(os.path.exists(out))

    def test_a_failed_write_leaves_the_old_file(self):
        target = self.path("kept.png")
        open(target, "w").write("old")
        fails(QELCONV, self.coffee, target, "--compression", "12")
        self.assertEqual("old", open(target).read())
        self.assertFalse([name for name in os.listdir(os.path.dirname(target)) if name.startswith("kept.png.")])

    # Neither does one that a signal ends, or a file that is cut while it is read.
    def test_an_ended_write_leaves_no_file(self):
        array = np.random.default_rng(3).integers(0, 256, (4000, 5000, 3), dtype="u1")
        for end, status in ((lambda process, source: process.terminate(), -signal.SIGTERM),
                            (lambda process, source: os.truncate(source, 5000), 1)):
            source = write_pnm(self.path("long.ppm"), array)
            process = subprocess.Popen([QELCONV, source, self.path("ended.png"), "--compression", "9"],
                                       stderr=subprocess.PIPE)
            while process.poll() is None and not any("ended" in name for name in os.listdir(self.path("."))):
                pass
            end(process, source)
            told = process.communicate(timeout=60)[1]
            self.assertEqual((status, status == 1), (process.returncode, b"shortened" in told), told)
            self.assertFalse([name for name in os.listdir(self.path(".")) if "ended" in name])

    # Wherever a file ends too early: a message and a failure, or under --partial what there is and a message. Formats
    # that keep their tables at the end have nothing then.
    def test_every_cut_is_told(self):
        small = self.cut("small.ppm", 24, 18)
        picture = read_pnm(small)[:, :, 0]
        files = [(convert(small, self.path(f"{i}{name}"), *options), partial)
                 for i, (name, *options, partial) in enumerate(
            [(".j2k", 0.8), (".jp2", "--layers", 3, 0.7), (".j2k", "--tiles", "8x8", "--style", "terminate", 0.9),
             (".jxr", 0.8), (".png", 0.9), (".ppm", 0.9), (".dds", 0.6), (".tif", 0)])]
        files += [(self.file("first.tif", tiff(24, 18, [row.astype("u1").tobytes() for row in picture])), 0.4),
                  (self.file("text.pgm", b"P2 24 18 255 " + b" ".join(b"%d" % v for v in picture.flat) + b"\n"), 0.9),
                  (convert(self.float_map(12, 9), self.path("f.pfm")), 0.9)]
        for path, share in files:
            data = contents(path)
            out = self.path("out" + (".pfm" if path.endswith("pfm") else ".pam"))
            whole = contents(convert(path, out))
            end = len(data) - (5 if path.endswith("pgm") else 0)  # the last number of text may end anywhere
            cuts = sorted({*range(1, end, 1 + end // 30), *range(end - 6, end)})
            parts = 0
            for cut in cuts:
                with self.subTest(file=os.path.basename(path), cut=cut, of=len(data)):
                    part = self.file("cut", data[:cut])
                    self.assertIn("cut: ", fails(QELCONV, part, out))
                    result = subprocess.run([QELCONV, part, out, "--partial"], capture_output=True)
                    self.assertIn(result.returncode, (0, 1))
                    self.assertIn(b"only part of the picture: " if result.returncode == 0 else b"qelconv: ",
                                  result.stderr)
                    if result.returncode == 0:
                        parts += 1
                        self.assertEqual(len(whole), len(contents(out)))
            self.assertGreaterEqual(parts, share * len(cuts), path)

    # Also where rows are on their way only, in room that earlier ones have had.
    def test_lost_strips_leave_zeros(self):
        array = np.random.default_rng(7).integers(1, 256, (900, 1000, 1), dtype="u1")
        strips = [b"".join(b"\x63" + row[x:x + 100].tobytes() for x in range(0, 1000, 100)) for row in array]
        data = tiff(1000, 900, strips, 32773)
        cut = self.file("cut.tif", data[:len(data) - 300 * 1010 - 7])
        array[599:] = 0
        for threads in (1, 2):
            back = read_pnm(convert(cut, self.path("cut.pgm"), "--partial", "--threads", threads))
            self.assertTrue(np.array_equal(array, back))
            self.assertIn("PackBits data of row 599", fails(QELCONV, cut, self.path("cut.pgm"), "--threads", threads))

    # Damage of any kind, in files of ours and of others: a picture or a message, within the bounds of time and memory.
    def test_damaged_files_end_by_themselves(self):
        random = np.random.default_rng(11)
        small = self.cut("small.ppm", 90, 61)
        run("JxrEncApp", "-i", small, "-o", self.path("frequency.jxr"), "-l", 0, "-c", 9)
        run("cjpeg", "-progressive", "-outfile", self.path("progressive.jpg"), small)
        files = [convert(small, self.path(f"{i}{name}"), *options) for i, (name, *options) in enumerate(
            [(".jpg",), (".jpg", "--restart", 1), (".jpg", "--bits", 12, "--sampling", "411", "--progressive"),
             (".j2k", "--layers", 2), (".jxr",), (".tif",),
             (".tif", "--packing", "none"), (".dds",), (".png",)])]
        for path in (*files, self.path("frequency.jxr"), self.path("progressive.jpg")):
            data = contents(path)
            for turn in range(40):
                bad = bytearray(data[:random.integers(2, len(data))] if turn % 4 == 0 else data)
                for _ in range(random.integers(1, 6)):
                    bad[random.integers(1, len(bad) if turn % 2 else min(len(bad), 200))] = random.integers(256)
                with self.subTest(file=os.path.basename(path), turn=turn):
                    bounded(QELCONV, self.file("bad", bad), self.path("bad.ppm"), *[["--partial"], []][turn // 2 % 2])

    def float_map(self, width, height):
        values = np.random.default_rng(4).random((height, width, 3)).astype("<f4")
        return self.file("source.pfm", b"PF\n%d %d\n-1.0\n" % (width, height) + values.tobytes())

    # Small files that claim, or really hold, large pictures: JPEG, JPEG 2000 and JPEG XR have theirs of their own.
    def test_small_files_take_little(self):
        row = b"\x81\0" * 600
        for name, data, expected in [
                ("19 bytes of PNM", b"P6 18000 18000 255 ", "truncated"),
                ("75 bytes of PAM",
                 b"P7\nWIDTH 16000\nHEIGHT 16000\nDEPTH 4\nMAXVAL 65535\nTUPLTYPE RGB_ALPHA\nENDHDR\n", "truncated"),
                ("text", b"P3 15000 15000 255\n1 2 3", "truncated"),
                ("float map", b"PF\n16000 16000\n-1.0\n", "truncated"),
                ("PNG that claims", png(30000, 10000, 8, 2, bytes(3 << 20)), "truncated"),
                ("PNG of single bits", png(9000, 9000, 1, 0, bytes(1126 * 9000)), "--max-memory"),
                ("PNG that is dense", png(3000, 1000, 8, 2, bytes(9001 * 1000)), None),
                ("DDS", dds(16000, 16000, b""), "truncated"),
                ("TIFF of one strip", tiff(30000, 30000, [b"abc"]), "truncated"),
                ("TIFF of strips in one place", tiff(60000, 1000, [row] * 1000, 32773), "--max-memory"),
                ("TIFF of fields in one place", tiff(8, 8, [b""], fields=[(400 + i, 1, 9000, 8) for i in range(700)]),
                 "Read error")]:
            self.assertLess(len(data), 10240)
            path = self.file("bomb", data)
            with self.subTest(name=name):
                status, printed = bounded(QELCONV, path, self.path("bomb.pam"))
                self.assertEqual((1, True) if expected else (0, True), (status, (expected or "") in printed), printed)
                bounded(QELCONV, path, self.path("bomb.pam"), "--partial")
        path = self.file("bomb", png(9000, 9000, 1, 0, bytes(1126 * 9000)))
        convert(path, self.path("large.pgm"), "--max-memory", 320)

    def test_info(self):
        jpeg = convert(self.coffee, self.path("info.jpg"), "--progressive")
        text = run(QELCONV, "--info", jpeg).decode()
        self.assertIn("600 x 400", text)
        told = json.loads(run(QELCONV, "--json", self.coffee, jpeg))
        self.assertEqual([("PNM", 600, 400), ("JPEG", 600, 400)],
                         [(one["format"], one["width"], one["height"]) for one in told])
        self.assertEqual(len(told[1]["scans"]), text.count("coefficients"))
        plain = json.loads(run(QELCONV, "--json", convert(self.coffee, self.path("info.jpg"))))[0]["Huffman tables"]
        self.assertEqual([("DC", 0), ("AC", 0), ("DC", 1), ("AC", 1)], [(t["class"], t["number"]) for t in plain])
        self.assertEqual(("0,1,5,1,1,1,1,1,1,0,0,0,0,0,0,0", "00,01,02,03,04,05,06,07,08,09,0a,0b"),
                         (plain[0]["codes of 1 to 16 bits"], plain[0]["symbols"]))
        self.assertEqual(162, len(plain[3]["symbols"].split(",")))
        self.assertEqual(len(told[1]["Huffman tables"]), text.count("symbols"))
        self.assertEqual({"DC", "AC"}, {t["class"] for t in told[1]["Huffman tables"]})
        for name, key, value in ((".jxr", "tiles down", 4), (".tif", "packing", "PackBits"), (".dds", "blocks", "bc1"),
                                 (".jp2", "layers", 1), (".ktx2", "levels", 1), (".png", "interlaced", False),
                                 (".ppm", "largest value", 255)):
            path = convert(self.coffee, self.path("info" + name), *(["--tiles", "600x112"] if name == ".jxr" else []))
            self.assertEqual(value, json.loads(run(QELCONV, "--json", path))[0][key], name)

    def test_comparison(self):
        first = read_pnm(self.coffee)[:61, :83]
        second = np.clip(first + np.random.default_rng(5).integers(-9, 10, first.shape), 0, 255)
        scores = []
        for y in range(0, 61 - 7, 4):
            for x in range(0, 83 - 7, 4):
                a, b = (v[y:y + 8, x:x + 8].reshape(64, 3).astype(float) for v in (first, second))
                covariance = (a * b).mean(0) - a.mean(0) * b.mean(0)
                c1, c2 = 2.55 ** 2, 7.65 ** 2
                scores += list((2 * a.mean(0) * b.mean(0) + c1) * (2 * covariance + c2) /
                               ((a.mean(0) ** 2 + b.mean(0) ** 2 + c1) * (a.var(0) + b.var(0) + c2)))
        told = run(QELCONV, "--compare", write_pnm(self.path("a.ppm"), first), write_pnm(self.path("b.ppm"), second))
        self.assertEqual(f"{psnr(first, second):.2f} dB, SSIM {np.mean(scores):.5f}, "
                         f"largest difference {abs(first - second).max()}", told.decode().strip())
        self.assertIn(b"inf dB, SSIM 1.00000, largest difference 0", run(QELCONV, "--compare", *[self.coffee] * 2))

    def test_several_files_and_pipes(self):
        names = [self.cut(f"{i}.ppm", 20 + i, 10) for i in range(3)]
        told = run(QELCONV, *names, self.path("%.tif"), "--threads", 1).decode()
        self.assertIn("3 of 3 files converted", told)
        for i, name in enumerate(names):
            back = convert(self.path(f"{i}.tif"), self.path("b.ppm"))
            self.assertTrue(np.array_equal(read_pnm(name), read_pnm(back)))
        told = fails(QELCONV, names[0], self.file("bad.ppm", b"P6 3 3 255 x"), names[1], self.path("%.png"))
        self.assertIn("bad.ppm: the file is truncated", told)
        self.assertIn("2 of 3 files converted", told)
        self.assertIn("both become", fails(QELCONV, names[0], self.path("0.tif"), self.path("%.png")))
        self.assertIn("a %", fails(QELCONV, *names[:2], self.path("out.png")))
        png = subprocess.run([QELCONV, "-", "-", "--to", "png"], stdin=open(names[2], "rb"), capture_output=True)
        self.assertEqual(contents(convert(names[2], self.path("2.png"))), png.stdout)

    # Where no thread can be had, for its stack would not fit: one thread asked for is one, also within the library, and
    # strips are not shared once more, so that a picture of one strip has one thread by itself.
    def test_no_thread_but_those_asked_for(self):
        def status(source, *options):
            return subprocess.run(
                [QELCONV, source, *map(str, options)], capture_output=True,
                env={**os.environ, "OMP_NUM_THREADS": "6", "OMP_STACKSIZE": "8G"},
                preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_AS, (4 << 30, 4 << 30))).returncode
        noise = np.random.default_rng(2).integers(0, 256, (16, 9000, 3), dtype="u1")
        wide = write_pnm(self.path("wide.ppm"), noise)
        for source, name, *options in ((wide, "one.jpg"), (wide, "four.jpg", "--sampling", 444),
                                       (wide, "plain.jpg", "--plain-colour"), (wide, "three.jpg", "--sampling", 422),
                                       (self.path("one.jpg"), "a.ppm"), (self.path("three.jpg"), "a.tif"),
                                       (self.path("four.jpg"), "a.jpg", "--sampling", 444), (wide, "a.jxr"),
                                       (self.raccoon, "a.dds"), (self.raccoon, "a.jp2"),
                                       (self.raccoon, "a.jpg", "--progressive"), (self.raccoon, "a.tif")):
            with self.subTest(name=name, options=options):
                self.assertEqual(0, status(source, self.path(name), *options, "--threads", 1))
                self.assertNotEqual(0, status(self.raccoon, self.path(name)))
        self.assertEqual(0, status(write_pnm(self.path("strip.ppm"), noise[:8]), self.path("strip.jpg"),
                                   "--sampling", 444))

    def test_losses_are_told(self):
        random = np.random.default_rng(8)
        deep = write_pnm(self.path("deep.ppm"), random.integers(0, 65536, (9, 9, 3)), 65535)
        head = b"P7\nWIDTH 2\nHEIGHT 1\nDEPTH 4\nMAXVAL 255\nTUPLTYPE RGB_ALPHA\nENDHDR\n"
        rgba = self.file("rgba.pam", head + b"12345678")
        cmyk = self.file("cmyk.pam", contents(rgba).replace(b"RGB_ALPHA", b"CMYK"))
        for source, target, options, loss in (
                (deep, "a.jpg", [], "16 bits become 8"), (rgba, "a.ppm", [], "alpha is dropped"),
                (cmyk, "a.png", [], "CMYK becomes RGB"), (rgba, "a.dds", ["--block", "bc1"], "alpha is dropped"),
                (self.coffee, "a.dds", ["--block", "bc4"], "green and blue are dropped"),
                (self.coffee, "a.ktx2", ["--block", "bc5"], "blue is dropped"), (rgba, "a.dds", [], ""),
                (deep, "a.png", ["--overlap", 1], "--overlap has no meaning for PNG"),
                (self.file("two.ppm", contents(self.cut("one.ppm", 9, 7)) * 2), "a.jpg", [], "behind the first one"),
                (self.path("two.ppm"), "a.tif", [], "behind the first one"),
                (convert(deep, self.path("planes.tif"), "--byte-planes"), "a.png", [], "behind the first one"),
                (self.path("planes.tif"), "a.png", ["--byte-planes"], ""),
                (self.coffee, "a.jpg", ["--lossless", "--quality", 90], "--quality has no meaning for the lossless"),
                (self.coffee, "a.jpg", ["--predictor", 2], "--predictor has no meaning without --lossless"),
                (self.coffee, "a.jpg", ["--lossless", "--predictor", 2, "--restart", 9], ""),
                (deep, "a.png", [], ""), (rgba, "a.png", [], "")):
            with self.subTest(target=target, loss=loss):
                told = run(QELCONV, source, self.path(target), *options).decode()
                self.assertEqual(bool(loss), bool(told), told)
                self.assertIn(loss, told)
        self.assertIn("no place for RGB", fails(QELCONV, self.coffee, self.path("a.pgm")))

    def test_an_output_replaces_a_file_as_it_was(self):
        old, link = self.file("kept.tif", b"old"), self.path("link.tif")
        os.chmod(old, 0o640)
        os.symlink("kept.tif", link)
        convert(self.coffee, link)
        self.assertTrue(os.path.islink(link))
        self.assertEqual(0o640, os.stat(old).st_mode & 0o777)
        self.assertEqual(b"II*", contents(old)[:3])
        convert(self.coffee, "/dev/null", "--to", "tif")

    def test_help_and_version(self):
        self.assertIn(b"--info", run(QELCONV, "--help"))
        self.assertNotIn(b"TIFF (", run(QELCONV, "--help", "ktx2"))
        self.assertRegex(run(QELCONV, "--version").decode(), r"libqelj 7\..*, image \S+\n")
        script = f"PATH={os.path.dirname(os.path.abspath(QELCONV))}:$PATH; . {COMPLETION}; " + """
            complete_at() { COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _qelconv; echo "${COMPREPLY[*]}"; }
            complete_at qelconv a.png --over; complete_at qelconv --packing l; complete_at qelconv --sampling 42"""
        self.assertEqual("--overlap\nlzw\n422 420\n", subprocess.run(
            ["bash", "-c", script], capture_output=True, text=True).stdout.replace("420 422", "422 420"))


if __name__ == "__main__":
    unittest.main()
