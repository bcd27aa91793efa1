"""The drawings of the site: layouts of planes, blocks, bands and streams as SVG, each by a function of its name.

They stand in the pages themselves, and take their colours from style.css, in light and dark.
drawings.py DIRECTORY writes them as files."""
import html
import math
import os
import sys

CELL = 22


class Drawing:
    """Shapes in the order in which they are drawn. Kinds are classes of style.css: a, b, c and d are fills that tell
    things apart, none is an outline, dim is a thin one."""
    def __init__(self, title, width, height, note=""):
        self.title, self.width, self.height, self.note, self.parts = title, width, height, note, []

    def box(self, x, y, width, height, kind="none", text="", small=False):
        self.parts.append(f'<rect class="{kind}" x="{x:g}" y="{y:g}" width="{width:g}" height="{height:g}"/>')
        if text:
            self.text(x + width / 2, y + height / 2 + (3.5 if small else 4.5), text, "middle", small)

    def text(self, x, y, text, anchor="start", small=False, kind=""):
        classes = " ".join(word for word in ("small" if small else "", kind) if word)
        self.parts.append(f'<text{f""" class="{classes}" """.rstrip() if classes else ""} x="{x:g}" y="{y:g}" '
                          f'text-anchor="{anchor}">{html.escape(text, quote=False)}</text>')

    def dot(self, x, y, radius, kind):
        self.parts.append(f'<circle class="{kind}" cx="{x:g}" cy="{y:g}" r="{radius:g}"/>')

    def path(self, points, arrow=False, kind="line"):
        places = " ".join(f"{x:g},{y:g}" for x, y in points)
        self.parts.append(f'<polyline class="{kind}" points="{places}"/>')
        if arrow:
            (x0, y0), (x1, y1) = points[-2:]
            length = math.hypot(x1 - x0, y1 - y0)
            dx, dy = 6 * (x1 - x0) / length, 6 * (y1 - y0) / length
            corners = ((x1, y1), (x1 - dx - dy / 2, y1 - dy + dx / 2), (x1 - dx + dy / 2, y1 - dy - dx / 2))
            places = " ".join(f"{x:.4g},{y:.4g}" for x, y in corners)
            self.parts.append(f'<polygon class="head" points="{places}"/>')

    def grid(self, x, y, columns, rows, kind=lambda i, j: "none", text=lambda i, j: "", size=CELL, small=True):
        """Cells (column i, row j)."""
        for j in range(rows):
            for i in range(columns):
                self.box(x + i * size, y + j * size, size, size, kind(i, j), str(text(i, j)), small)

    def row(self, x, y, widths, height=CELL + 6, small=True):
        """Fields one behind another: (width, kind, text)."""
        for width, kind, text in widths:
            self.box(x, y, width, height, kind, text, small)
            x += width

    def svg(self):
        return (f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="-1 -1 {self.width + 2} {self.height + 2}" '
                f'width="{self.width}" height="{self.height}" role="img" aria-label="{html.escape(self.title)}">\n'
                + "\n".join(self.parts) + "\n</svg>")


DRAWINGS = {}


def drawing(title, width, height, note=""):
    """A drawing with its title, and what is to be said of it."""
    def keep(function):
        def make():
            picture = Drawing(title, width, height, note)
            function(picture)
            return picture
        DRAWINGS[function.__name__] = make
        return make
    return keep


def figure(name):
    made = DRAWINGS[name]()
    caption = html.escape(". ".join(filter(None, (made.title, made.note))), quote=False)
    return f"<figure>\n{made.svg()}\n<figcaption>{caption}</figcaption>\n</figure>"


# --- JPEG samples ---------------------------------------------------------------------------------------------------

@drawing("Which form of the arithmetic a pixel gets: a row of 19 pixels, forward and inverse", 600, 150)
def row_forms(d):
    for y, group, main, rest, name in ((20, 8, "A", "B", "RGB to YCbCr, C3P3: groups of 8"),
                                       (90, 4, "H", "J", "YCbCr to RGB, P3C3: groups of 4")):
        whole = 19 - 19 % group
        d.text(0, y - 4, name)
        d.grid(0, y + 4, 19, 1, lambda i, j: "a" if i < whole else "c", lambda i, j: main if i < whole else rest, 30)
        for x in range(0, whole + 1, group):
            d.path([(30 * x, y + 1), (30 * x, y + 42)], kind="thick")


@drawing("Samples of the three samplings: squares are luma, dots are chroma, over 4 by 4 pixels", 560, 190)
def sampling(d):
    for n, (name, across, down) in enumerate((("444", 1, 1), ("422 (4:2:2)", 2, 1), ("411 (4:2:0)", 2, 2))):
        x0 = 10 + 190 * n
        d.text(x0, 14, name)
        d.grid(x0, 24, 4, 4, lambda i, j: "a", size=36)
        for j in range(0, 4, down):
            for i in range(0, 4, across):
                d.dot(x0 + 36 * (i + across / 2), 24 + 36 * (j + down / 2), 7, "c")


@drawing("What the up-samplers of planes read: 6 by 4 chroma samples, and the border that the caller fills", 560, 230)
def borders(d):
    for x0, name, rows in ((30, "UpH2V1: one sample beside each row", False),
                           (310, "UpH2V2: rows above and below too", True)):
        d.text(x0 - 24, 14, name)

        def kind(i, j):
            if 1 <= i <= 6 and 1 <= j <= 4:
                return "a"
            return "c" if rows or 1 <= j <= 4 else "dim"
        d.grid(x0 - 24, 26, 8, 6, kind, size=30)
    d.box(6, 212, 12, 12, "a")
    d.text(24, 222, "source")
    d.box(96, 212, 12, 12, "c")
    d.text(114, 222, "border: repeat the edge samples")


@drawing("Triangle filter: an output sample weighs the near source sample 3 and the far one 1", 420, 130)
def triangle(d):
    for k in range(4):
        d.box(30 + 96 * k, 14, 40, 28, "a", f"s[{k}]", True)
    for x in range(8):
        near = 50 + 96 * (x // 2)
        far = near + (96 if x % 2 else -96)
        centre = 26 + 48 * x
        d.path([(near, 42), (centre, 92)], kind="thick")
        if 0 < far < 380:
            d.path([(far, 42), (centre, 92)], kind="line")
        d.box(centre - 20, 92, 40, 28, "b", f"d[{x}]", True)


@drawing("Minimum coded units: blocks of 8x8 samples, and their order in an MCU buffer of 411", 640, 204,
         "Chroma's 64 samples cover all pixels of the MCU. A block is 64 consecutive values in rows, 128 bytes")
def mcu(d):
    for x0, name, columns, rows in ((0, "444", 1, 1), (200, "422", 2, 1), (440, "411", 2, 2)):
        d.text(x0, 14, f"{name}: {8 * columns} x {8 * rows} pixels")
        for j in range(rows):
            for i in range(columns):
                d.box(x0 + 44 * i, 24 + 44 * j, 44, 44, "a", f"Y{j * columns + i}")
        for k, kind in enumerate("bc"):
            d.box(x0 + 44 * columns + 10 + 54 * k, 24, 44, 44, kind, "CbCr"[2 * k:2 * k + 2])
    d.text(0, 140, "411 in memory")
    d.row(0, 152, [(70, "a", f"Y{i}") for i in range(4)])
    d.row(300, 152, [(70, "b", "Cb")])
    d.row(390, 152, [(70, "c", "Cr")])
    for x, text in ((0, "dst[0]"), (300, "dst[1]"), (390, "dst[2]")):
        d.text(x, 198, text, small=True)


# --- JPEG blocks ----------------------------------------------------------------------------------------------------

def zigzag_order():
    order = sorted(((i, j) for i in range(8) for j in range(8)),
                   key=lambda p: (p[0] + p[1], p[0] if (p[0] + p[1]) % 2 == 0 else p[1]))
    return order


@drawing("Zig-zag order of a block's 64 places: column u across, row v down", 480, 236)
def zigzag(d):
    order = zigzag_order()
    number = {place: k for k, place in enumerate(order)}
    d.text(0, 12, "zig-zag number")
    d.grid(0, 20, 8, 8, lambda i, j: "b" if (i, j) == (0, 0) else "none", lambda i, j: number[i, j], 26)
    d.text(260, 12, "the way")
    d.grid(260, 20, 8, 8, lambda i, j: "dim", size=26)
    d.path([(273 + 26 * i, 33 + 26 * j) for i, j in order], arrow=True)


@drawing("Coefficients that the reduced transforms take (filled)", 620, 170)
def reduced(d):
    kinds = (("LS_1x1", lambda i: i == 0), ("LS_2x2", lambda i: i < 2), ("LS_4x4", lambda i: i < 4),
             ("To2x2LS", lambda i: i in (0, 1, 3, 5, 7)), ("To4x4LS", lambda i: i != 4))
    for n, (name, taken) in enumerate(kinds):
        x = 124 * n
        d.text(x, 14, name)
        d.grid(x, 24, 8, 8, lambda i, j: "a" if taken(i) and taken(j) else "none", size=14)
        d.text(x, 156, ("8x8 samples", "8x8 samples", "8x8 samples", "2x2 samples", "4x4 samples")[n], small=True)


# --- JPEG entropy ---------------------------------------------------------------------------------------------------

@drawing("A baseline scan with a restart interval of 4 MCUs: segments, padding and markers", 640, 66,
         "Behind each marker: lastDC = 0, marker = 0, the state initialised. The decoder reads ahead: *marker may be "
         "set before the last block, with it, or not at all")
def restarts(d):
    x = 0
    for n in range(3):
        d.row(x, 30, [(34, "a", f"M{4 * n + k}") for k in range(4)])
        d.row(x + 136, 30, [(26, "none", "1s")])
        d.row(x + 162, 30, [(48, "c", ("RST0", "RST1", "EOI")[n])])
        d.text(x, 22, f"segment {n}", small=True)
        x += 216


@drawing("A code word with its value: how a baseline block is coded whose DC differs by 5 from the last one's, and "
         "whose AC coefficients in zig-zag order are 0, 0, -3 and zeros", 500, 34,
         "DC: the size of the difference, then as many bits of it. AC: the symbol 16 * run of zeros + size, then the "
         "value's bits; 0xF0 is 16 zeros, 0x00 the end of the block")
def baseline_codes(d):
    d.row(0, 4, [(120, "a", "code of category 3"), (60, "b", "101"), (150, "a", "code of run 2, size 2"),
                 (60, "b", "00"), (110, "c", "code of EOB")])


@drawing("A usual script of a progressive image: which bits of which coefficients a scan carries", 560, 220,
         "The numbers are those of the scans: coarse first, then a bit at a time")
def scans(d):
    d.text(66, 14, "zig-zag position")
    columns = ((0, "0 (DC)", 70), (1, "1 to 5", 90), (2, "6 to 63", 330))
    x = 66
    for _, name, width in columns:
        d.text(x + width / 2, 34, name, "middle", small=True)
        for k, plane in enumerate(("bits 7 to 2", "bit 1", "bit 0")):
            kind, text = {
                (0, 0): ("a", "1 DCFirst al 1"), (0, 1): ("a", ""), (0, 2): ("b", "2 DCRefine"),
                (1, 0): ("c", "3 ACFirst al 2"), (1, 1): ("d", "5 ACRefine"), (1, 2): ("d", "7 ACRefine"),
                (2, 0): ("c", "4 ACFirst ss 6 se 63 al 2"), (2, 1): ("d", "6 ACRefine ss 6 se 63 al 1"),
                (2, 2): ("d", "8 ACRefine ss 6 se 63 al 0")}[columns.index((_, name, width)), k]
            y, height = ((44, 80), (124, 46), (170, 46))[k]
            if width > 80:
                d.box(x, y, width, height, kind, text if width > 100 else "", True)
                if width < 100:
                    for line, word in enumerate(text.split(" ", 2)):
                        d.text(x + width / 2, y + 18 + 12 * line, word, "middle", True)
            elif k == 0:
                d.box(x, y, width, 126, kind)
                for line, word in enumerate(("1", "DCFirst", "al 1")):
                    d.text(x + width / 2, y + 40 + 14 * line, word, "middle", True)
            elif k == 2:
                d.box(x, y, width, height, kind)
                for line, word in enumerate(("2", "DCRefine", "al 0")):
                    d.text(x + width / 2, y + 14 + 12 * line, word, "middle", True)
            d.text(58, y + height / 2 + 4, plane if x == 66 else "", "end", True)
        x += width


@drawing("Neighbours of a sample x, and the seven predictors of the lossless process", 520, 120)
def predictors(d):
    d.grid(0, 10, 4, 2, lambda i, j: "none" if (i, j) in ((3, 1),) else "a" if (i, j) != (2, 1) else "c",
           lambda i, j: {(1, 0): "c", (2, 0): "b", (1, 1): "a", (2, 1): "x"}.get((i, j), ""), 40, small=False)
    for k, text in enumerate(("1  a", "2  b", "3  c", "4  a + b - c", "5  a + (b - c) / 2", "6  b + (a - c) / 2",
                              "7  (a + b) / 2")):
        d.text(200 + 150 * (k // 4), 24 + 22 * (k % 4), text)


# --- JPEG 2000 ------------------------------------------------------------------------------------------------------

@drawing("Two levels of the wavelet in place (C1IR): the second works on LL of the first", 600, 206,
         "HL is high across, low down. A line of n samples from coordinate x has (n + 1 - p) >> 1 low samples, p being "
         "the lowest bit of x: even coordinates are low-pass positions")
def bands(d):
    d.text(0, 14, "tile")
    d.box(0, 24, 176, 176, "a", "samples")
    d.path([(184, 110), (200, 110)], arrow=True)
    d.text(208, 14, "level 1")
    for x, y, name, kind in ((0, 0, "LL", "a"), (88, 0, "HL", "b"), (0, 88, "LH", "b"), (88, 88, "HH", "c")):
        d.box(208 + x, 24 + y, 88, 88, kind, name)
    d.path([(392, 110), (408, 110)], arrow=True)
    d.text(416, 14, "level 2")
    for x, y, s, name, kind in ((0, 0, 44, "LL2", "a"), (44, 0, 44, "HL2", "b"), (0, 44, 44, "LH2", "b"),
                                (44, 44, 44, "HH2", "c"), (88, 0, 88, "HL1", "b"), (0, 88, 88, "LH1", "b"),
                                (88, 88, 88, "HH1", "c")):
        d.box(416 + x, 24 + y, s, s, kind, name, True)


@drawing("Lifting of the 5/3 wavelet, phase 0, w = 4", 500, 180,
         "What is read beyond the region (dashed) must hold the mirrored signal")
def lifting(d):
    def x(k):
        return 110 + 44 * k
    for k in range(-2, 9):
        d.box(x(k) - 18, 16, 36, 26, ("a" if k % 2 == 0 else "none") if 0 <= k < 8 else "dim", f"x[{k}]", True)
    for k in range(-1, 8, 2):
        for s in (-1, 0, 1):
            d.path([(x(k + s), 42), (x(k), 82)])
        d.box(x(k) - 18, 82, 36, 26, "b" if k > 0 else "dim", f"H[{(k - 1) // 2}]", True)
    for k in range(0, 8, 2):
        for s in (-1, 1):
            d.path([(x(k + s), 108), (x(k), 142)])
        d.path([(x(k), 42), (x(k), 142)])
        d.box(x(k) - 18, 142, 36, 26, "c", f"L[{k // 2}]", True)


@drawing("A code-block of 8 by 10 samples: stripes of four rows, each walked column by column", 330, 290)
def stripes(d):
    d.grid(20, 10, 8, 10, lambda i, j: ("a", "none")[j // 4 % 2], size=26)
    for top, rows in ((0, 4), (4, 4), (8, 2)):
        points = []
        for i in range(8):
            points += [(33 + 26 * i, 23 + 26 * (top + j)) for j in (0, rows - 1)]
        d.path(points, arrow=True)
    for top, name in ((1.5, "stripe 0"), (5.5, "stripe 1"), (8.5, "stripe 2")):
        d.text(240, 28 + 26 * top, name)


@drawing("Coding passes of a block of six bit planes, and how codeStyle cuts them into codeword segments", 640, 190,
         "S significance, R refinement, C cleanup; numbers are those of the segments, and filled ones hold raw bits. A "
         "block of n planes has 3n - 2 passes")
def passes(d):
    names, x = [], 110
    for plane in range(5, -1, -1):
        for kind in ("C",) if plane == 5 else ("S", "R", "C"):
            names.append((plane, kind, x))
            x += 32
    for plane, kind, x in names:
        d.box(x, 30, 32, 26, {"S": "a", "R": "b", "C": "c"}[kind], kind, True)
        if kind == "C":
            d.text(x + 16 if plane == 5 else x - 16, 22, f"plane {plane}", "middle", True)
    d.text(0, 47, "passes", small=True)
    ends = {"0": [15], "Bypass": [9, 11, 12, 14, 15], "Terminate": list(range(16))}
    for y, name in ((76, "0"), (116, "Bypass"), (156, "Terminate")):
        d.text(0, y + 17, f"codeStyle {name}" if name == "0" else name, small=True)
        start = 0
        for number, end in enumerate(ends[name]):
            left, right = names[start][2], names[end][2] + 32
            raw = name == "Bypass" and names[start][1] == "S" and start >= 10
            d.box(left + 1, y, right - left - 2, 26, "d" if raw else "none", f"{number}", True)
            start = end + 1


# --- JPEG XR --------------------------------------------------------------------------------------------------------

POSITION_COLUMN = (0, 1, 0, 1, 3, 2, 3, 2, 0, 1, 0, 1, 3, 2, 3, 2)
POSITION_ROW = (0, 0, 1, 1, 0, 0, 1, 1, 3, 3, 2, 2, 3, 3, 2, 2)


@drawing("A macroblock: 16 blocks of 4x4, whose DCs make the low-pass block of the second stage", 640, 220,
         "What stays behind in the blocks, 15 coefficients each, is the high-pass band")
def macroblock(d):
    d.text(0, 14, "16 blocks, transformed")
    for j in range(16):
        for i in range(16):
            d.box(12 * i, 24 + 12 * j, 12, 12, "c" if i % 4 == j % 4 == 0 else "dim")
    for k in range(5):
        d.path([(48 * k, 24), (48 * k, 216)])
        d.path([(0, 24 + 48 * k), (192, 24 + 48 * k)])
    d.path([(204, 120), (240, 120)], arrow=True)
    d.text(202, 108, "gather", small=True)
    d.text(256, 14, "16 DCs")
    d.grid(256, 72, 4, 4, lambda i, j: "c", size=24)
    d.path([(368, 120), (414, 120)], arrow=True)
    d.text(364, 108, "transform", small=True)
    d.text(430, 14, "a DC, 15 low-pass coefficients")
    d.grid(430, 72, 4, 4, lambda i, j: "cb"[i == j == 0], lambda i, j: "DC" if i == j == 0 else "", 24)


@drawing("A 4x4 block: which step of the transform a coefficient comes from; and the positions 0 to 15 of the scans",
         560, 150)
def pct_roles(d):
    role = {(0, 0): ("b", "DC"), (1, 0): ("a", "LP"), (0, 1): ("a", "LP"), (1, 1): ("a", "LP")}
    position = {(POSITION_COLUMN[p], POSITION_ROW[p]): p for p in range(16)}
    d.grid(0, 10, 4, 4, lambda i, j: role.get((i, j), ("c" if (i < 2) != (j < 2) else "d", ""))[0],
           lambda i, j: role.get((i, j), ("", "odd" if (i < 2) != (j < 2) else "oo"))[1], 32)
    d.grid(200, 10, 4, 4, lambda i, j: "none", lambda i, j: position[i, j], 32)
    d.text(344, 30, "LP  low-pass butterfly", small=True)
    d.text(344, 50, "odd  one of the two odd rotations", small=True)
    d.text(344, 70, "oo  the odd-odd rotation", small=True)


@drawing("How a coefficient's magnitude is divided: modelBits low bits go to the fixed-length coder, less trimBits",
         560, 110)
def flex(d):
    d.row(0, 24, [(40, "none", "sign"), (280, "a", "level: coded adaptively (VLC)"), (140, "b", "flex bits (FLC)"),
                  (80, "dim", "trimmed")])
    d.path([(320, 62), (540, 62)])
    d.text(430, 78, "modelBits", "middle", True)
    d.path([(460, 90), (540, 90)])
    d.text(500, 106, "trimBits", "middle", True)


# --- textures -------------------------------------------------------------------------------------------------------

@drawing("Block formats: bytes of a block, low addresses on the left; every block is 4x4 pixels", 640, 276,
         "The fields of BC6 and BC7 differ in place and length from mode to mode: their order here is a rough one")
def texture_blocks(d):
    unit = 33
    colour = [(2 * unit, "a", "c0 565"), (2 * unit, "a", "c1 565"), (4 * unit, "b", "16 x 2-bit index")]
    ramp = [(unit, "c", "a0"), (unit, "c", "a1"), (6 * unit, "d", "16 x 3-bit index")]
    rows = (("DXT1 (BC1)", colour), ("DXT3 (BC2)", [(8 * unit, "c", "16 x 4-bit alpha")] + colour),
            ("DXT5 (BC3)", ramp + colour), ("BC4", ramp), ("BC5", ramp + ramp),
            ("BC6", [(1.5 * unit, "c", "mode"), (7 * unit, "a", "end-points (half floats, 1 or 2 pairs)"),
                     (1.5 * unit, "d", "shape"), (6 * unit, "b", "indices of 3 or 4 bits")]),
            ("BC7", [(1.2 * unit, "c", "mode"), (1.5 * unit, "d", "shape"),
                     (7.3 * unit, "a", "end-points (1 to 3 pairs)"), (6 * unit, "b", "indices of 2 to 4 bits")]))
    for n, (name, fields) in enumerate(rows):
        d.text(0, 18 + 40 * n, name)
        d.row(104, 4 + 40 * n, fields)


@drawing("Indices of a block: pixel 0 has the lowest bits; and a palette of four colours between c0 and c1", 540, 150)
def texture_indices(d):
    d.grid(0, 10, 4, 4, lambda i, j: "none", lambda i, j: 4 * j + i, 32)
    for k, (kind, name) in enumerate((("a", "0: c0"), ("none", "2: (2 c0 + c1) / 3"), ("none", "3: (c0 + 2 c1) / 3"),
                                      ("b", "1: c1"))):
        d.box(190, 10 + 32 * k, 32, 32, kind)
        d.text(234, 31 + 32 * k, name)


# --- TIFF -----------------------------------------------------------------------------------------------------------

@drawing("PackBits: a row of bytes and its tokens", 560, 130)
def packbits(d):
    values = ["7"] * 5 + ["1", "2", "3"] + ["9"] * 4
    d.text(0, 14, "12 bytes")
    d.row(0, 22, [(34, "a" if value in "79" else "b", value) for value in values])
    d.text(0, 76, "8 bytes: runs are a byte 1 - c and the value, literals a byte n - 1 and n bytes")
    d.row(0, 84, [(34, "c", "-4"), (34, "a", "7"), (34, "c", "2"), (34, "b", "1"), (34, "b", "2"), (34, "b", "3"),
                  (34, "c", "-3"), (34, "a", "9")])


@drawing("Byte planes of 16-bit samples, for a predictor or a packer that likes slowly changing bytes", 460, 130)
def byte_planes(d):
    for k in range(4):
        d.row(100 * k, 10, [(44, "a", f"high {k}"), (44, "b", f"low {k}")])
    d.path([(194, 44), (194, 70)], arrow=True)
    d.row(0, 80, [(50, "a", f"high {k}") for k in range(4)])
    d.row(230, 80, [(50, "b", f"low {k}") for k in range(4)])
    d.text(0, 124, "dst[0]", small=True)
    d.text(230, 124, "dst[1]", small=True)


# --- the library ----------------------------------------------------------------------------------------------------

@drawing("What a program loads, and what calls what", 560, 150)
def libraries(d):
    d.box(0, 50, 130, 44, "none", "your program")
    d.box(210, 10, 170, 44, "a", "libqelj.so.7")
    d.box(210, 96, 170, 44, "b", "libqelcore.so.7")
    d.box(430, 10, 120, 44, "dim", "OpenMP runtime", True)
    d.path([(130, 66), (210, 34)], arrow=True)
    d.path([(130, 80), (210, 116)], arrow=True)
    d.path([(295, 54), (295, 96)], arrow=True)
    d.path([(380, 32), (430, 32)], arrow=True)
    d.text(302, 79, "memory, thread count, machine", small=True)


def main():
    os.makedirs(sys.argv[1], exist_ok=True)
    for name, make in DRAWINGS.items():
        with open(os.path.join(sys.argv[1], f"{name}.svg"), "w", encoding="utf-8") as file:
            file.write(make().svg() + "\n")


if __name__ == "__main__":
    main()
