"""The converter itself: depths and colours of PNM and PNG, clear failures, no half files."""
import os
import unittest

import numpy as np

from support import QELCONV, InteropTest, convert, fails, read_pnm, run, write_pnm


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

    def test_failures_name_the_file_and_the_reason(self):
        out = self.path("out.png")
        self.assertIn("nowhere.ppm: can't be opened", fails(QELCONV, "nowhere.ppm", out))
        text = self.path("text.ppm")
        open(text, "w").write("no picture at all")
        self.assertIn("text.ppm: not a picture", fails(QELCONV, text, out))
        short = self.path("short.ppm")
        open(short, "wb").write(open(self.coffee, "rb").read()[:5000])
        self.assertIn("short.ppm: the file is truncated", fails(QELCONV, short, out))
        self.assertIn("ending", fails(QELCONV, self.coffee, self.path("out.unknown")))
        self.assertFalse(os.path.exists(out))

    def test_a_failed_write_leaves_the_old_file(self):
        target = self.path("kept.png")
        open(target, "w").write("old")
        fails(QELCONV, self.coffee, target, "--compression", "12")
        self.assertEqual("old", open(target).read())
        self.assertFalse([name for name in os.listdir(os.path.dirname(target)) if name.endswith(".part")])

    def test_info_and_help(self):
        self.assertIn(b"600 x 400", run(QELCONV, "--info", self.coffee))
        self.assertIn(b"--info", run(QELCONV, "--help"))


if __name__ == "__main__":
    unittest.main()
