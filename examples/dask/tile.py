"""JPEG 2000 (ISO/IEC 15444-1), lossless, tile by tile: what a worker does with one tile, and what stands around them.

The library has the arithmetic: component transform, wavelet, code-blocks. Here are the packets (B.9, B.10) and the
markers (Annex A). Tiles are squares of a power of two, so that each resolution of a tile is one precinct, every band
begins at a corner of the grid of code-blocks or lies inside one of its cells, and no tile depends on another.
"""
import os
import re
import struct
from typing import Iterator, List, NamedTuple, Tuple

import numpy as np
import numpy.typing as npt

import qelj
from qelj import CodeStyle, Subband, jpeg2000

BLOCK = 64
# Guard bits (E.1): the wavelet makes samples less than three times as large, the component transform U and V a bit
# longer; rounding has room.
GUARD = 4
GAIN = {Subband.LL: 0, Subband.HL: 1, Subband.LH: 1, Subband.HH: 2}


class Layout(NamedTuple):
    """A picture and its tiles. `bits` is the depth of its samples; `levels` counts those of the wavelet."""
    width: int
    height: int
    channels: int
    bits: int
    tile: int
    levels: int

    @property
    def tiles(self) -> Tuple[int, int]:
        """Tiles across and down."""
        return -(-self.width // self.tile), -(-self.height // self.tile)

    def checked(self) -> "Layout":
        """This, or a ValueError that says what the format or this coder does not have."""
        across, down = self.tiles
        if self.tile & (self.tile - 1) or not BLOCK <= self.tile <= 1 << 15:
            raise ValueError(f"the side of tiles is to be a power of two from {BLOCK} to {1 << 15}")
        if not 1 <= self.levels < self.tile.bit_length():
            raise ValueError(f"tiles of {self.tile} take 1 to {self.tile.bit_length() - 1} levels")
        if not 1 <= across * down <= 65535:
            raise ValueError(f"{across} x {down} tiles are not 1 to 65535: take another size of tiles")
        if max(self.width, self.height) >= 1 << 32 or self.channels not in (1, 3) or not 1 <= self.bits <= 16:
            raise ValueError("a picture has one or three channels of 1 to 16 bits, and sides below 2**32")
        return self


# --- pictures larger than memory ------------------------------------------------------------------------------

def open_picture(path: str) -> Tuple[npt.NDArray[np.generic], int]:
    """A picture's samples as they stand in the file, which are read when they are looked at, and their bits. Binary
    PNM (P5, P6), or .npy of (rows, columns) or (rows, columns, 3) of uint8 or uint16."""
    if path.endswith(".npy"):
        samples = np.load(path, mmap_mode="r")
        if samples.dtype.kind != "u" or samples.dtype.itemsize > 2 or samples.ndim not in (2, 3):
            raise ValueError(f"{path} has {samples.ndim} dimensions of {samples.dtype}, not two or three of uint8 or "
                             "uint16")
        return samples, 8 * samples.dtype.itemsize
    with open(path, "rb") as file:
        header = re.match(rb"P([56])(?:\s*#[^\n]*\n|\s)+(\d+)(?:\s*#[^\n]*\n|\s)+(\d+)(?:\s*#[^\n]*\n|\s)+(\d+)\s",
                          file.read(4096))
    if not header:
        raise ValueError(f"{path} is neither binary PNM (P5, P6) nor .npy")
    kind, width, height, highest = map(int, header.groups())
    shape = (height, width) if kind == 5 else (height, width, 3)
    dtype = np.dtype(">u2" if highest > 255 else "u1")
    if os.path.getsize(path) < header.end() + np.prod(shape, dtype=np.int64) * dtype.itemsize:
        raise ValueError(f"{path} is cut short")
    return np.memmap(path, dtype, "r", header.end(), shape), highest.bit_length()


def layout_of(path: str, tile: int, levels: int) -> Layout:
    samples, bits = open_picture(path)
    channels = 1 if samples.ndim == 2 else samples.shape[2]
    return Layout(samples.shape[1], samples.shape[0], channels, bits, tile, levels).checked()


# --- packets --------------------------------------------------------------------------------------------------

class Bits:
    """The bits of a packet header, most significant first; behind a byte 0xFF only seven follow (B.10.1)."""

    def __init__(self) -> None:
        self.data, self.value, self.left = bytearray(), 0, 8

    def put(self, value: int, count: int = 1) -> None:
        for place in range(count - 1, -1, -1):
            if self.left == 0:
                self._next()
            self.left -= 1
            self.value |= (value >> place & 1) << self.left

    def _next(self) -> None:
        self.data.append(self.value)
        self.left, self.value = 7 if self.value == 0xFF else 8, 0

    def finish(self) -> bytes:
        self._next()
        if self.data[-1] == 0xFF:
            self.data.append(0)
        return bytes(self.data)


class TagTree:
    """Numbers of a rectangle of code-blocks; each node is the least of up to four below it (B.10.2)."""

    def __init__(self, rows: List[List[int]]) -> None:
        # Nodes: the value, what it is known to be at least, whether it is known.
        self.levels = [[[[value, 0, False] for value in row] for row in rows]]
        while len(rows) * len(rows[0]) > 1:
            rows = [[min(value for row in rows[y:y + 2] for value in row[x:x + 2]) for x in range(0, len(rows[0]), 2)]
                    for y in range(0, len(rows), 2)]
            self.levels.append([[[value, 0, False] for value in row] for row in rows])

    def put(self, bits: Bits, x: int, y: int, threshold: int) -> None:
        """Says whether the leaf is below the threshold, as far as it has not been said."""
        low = 0
        for level in range(len(self.levels) - 1, -1, -1):
            node = self.levels[level][y >> level][x >> level]
            low = max(low, node[1])
            while low < threshold and low < node[0]:
                bits.put(0)
                low += 1
            if low < threshold and not node[2]:
                bits.put(1)
                node[2] = True
            node[1] = low


class Block(NamedTuple):
    """A coded code-block."""
    zero_planes: int
    passes: int
    data: bytes


def put_passes(bits: Bits, passes: int) -> None:
    """The number of coding passes (Table B.4)."""
    if passes <= 2:
        bits.put((0, 2)[passes - 1], passes)
    elif passes <= 5:
        bits.put(0xC | passes - 3, 4)
    elif passes <= 36:
        bits.put(0x1E0 | passes - 6, 9)
    else:
        bits.put(0xFF80 | passes - 37, 16)


def packet(bands: List[List[List[Block]]]) -> bytes:
    """The packet of a resolution, in the only layer: its bands' code-blocks, rows of each."""
    bits, bodies = Bits(), []
    bits.put(1)
    for rows in bands:
        included = TagTree([[0 if block.passes else 1 for block in row] for row in rows])
        zero_planes = TagTree([[block.zero_planes for block in row] for row in rows])
        for y, row in enumerate(rows):
            for x, block in enumerate(row):
                included.put(bits, x, y, 1)
                if not block.passes:
                    continue
                zero_planes.put(bits, x, y, block.zero_planes + 1)
                put_passes(bits, block.passes)
                # The length has three bits at first, one more for each 1 here, and what the passes' number gives.
                extra = block.passes.bit_length() - 1
                more = max(len(block.data).bit_length() - extra - 3, 0)
                bits.put((1 << more + 1) - 2, more + 1)
                bits.put(len(block.data), 3 + more + extra)
                bodies.append(block.data)
    return bits.finish() + b"".join(bodies)


# --- a tile ---------------------------------------------------------------------------------------------------

class BlockCoder:
    """Code-blocks by two calls each. `jpeg2000.encode_codeblock` also asks for every pass's rate and distortion,
    which a lossless stream of one layer has no use for, and these cost more than the coding."""

    def __init__(self) -> None:
        self.state, self.room = qelj.EncodeStateJPEG2K((BLOCK, BLOCK)), np.empty(1 << 15, np.uint8)

    def block(self, coded: npt.NDArray[np.int32], subband: int, planes: int) -> Block:
        loaded = qelj.qeliEncodeLoadCodeBlock_JPEG2K_32s_C1R(coded, self.state, subband, planes,
                                                             codeStyle=CodeStyle.Lossless)
        data, more = b"", int(loaded.numPasses)
        while more:
            _, length, more = qelj.qeliEncodeStoreBits_JPEG2K_1u(self.room, self.state)
            data += self.room[:length].tobytes()
        return Block(31 - loaded.numBitPlanes, loaded.numPasses, data)

    def band(self, band: jpeg2000.Band, bits: int) -> List[List[Block]]:
        """A band's code-blocks, in rows; none if it is empty."""
        planes = bits + GAIN[band.subband] + GUARD - 1  # equation E-2
        # The coder takes sign and magnitude, left-aligned.
        samples = band.samples.astype(np.int32, copy=False)
        coded = (np.abs(samples) << 31 - planes) | (samples & np.int32(-2 ** 31))
        height, width = coded.shape
        return [[self.block(coded[y:y + BLOCK, x:x + BLOCK], band.subband, planes) for x in range(0, width, BLOCK)]
                for y in range(0, height, BLOCK) if width]


def code_samples(samples: npt.NDArray[np.generic], layout: Layout) -> bytes:
    """The packets of a tile, resolution by resolution, the components of each one after another (LRCP)."""
    shifted = samples.astype(np.int32) - (1 << layout.bits - 1)
    planes = jpeg2000.rct_forward(shifted) if layout.channels == 3 else [shifted.reshape(shifted.shape[:2])]
    coder = BlockCoder()
    resolutions: List[List[List[List[List[Block]]]]] = [[] for _ in range(layout.levels + 1)]
    for plane in planes:
        for packets in resolutions:
            packets.append([])
        for band in jpeg2000.bands(jpeg2000.wavelet_forward(plane, layout.levels), layout.levels):
            resolution = 0 if band.subband == Subband.LL else layout.levels + 1 - band.level
            rows = coder.band(band, layout.bits)
            if rows:
                resolutions[resolution][-1].append(rows)
    return b"".join(packet(bands) for packets in resolutions for bands in packets)


def code_tile(path: str, layout: Layout, number: int) -> bytes:
    """A tile of a picture in a file that this machine can open too, as a tile-part that stands for itself."""
    qelj.set_num_threads(1)  # the other processors are other workers'
    across = layout.tiles[0]
    x, y = number % across * layout.tile, number // across * layout.tile
    packets = code_samples(open_picture(path)[0][y:y + layout.tile, x:x + layout.tile], layout)
    return struct.pack(">HHHIBBH", 0xFF90, 10, number, len(packets) + 14, 0, 1, 0xFF93) + packets


# --- what stands around the tiles -----------------------------------------------------------------------------

def main_header(layout: Layout) -> bytes:
    """SOC, SIZ, COD and QCD."""
    channels, levels = layout.channels, layout.levels
    siz = struct.pack(">HHHIIIIIIIIH", 0xFF51, 38 + 3 * channels, 0, layout.width, layout.height, 0, 0, layout.tile,
                      layout.tile, 0, 0, channels) + bytes([layout.bits - 1, 1, 1]) * channels
    cod = struct.pack(">HHBBHBBBBBB", 0xFF52, 12, 0, 0, 1, channels == 3, levels, 4, 4, 0, 1)  # blocks of 64 x 64, 5/3
    gains = [GAIN[Subband.LL]] + [GAIN[band] for band in (Subband.HL, Subband.LH, Subband.HH)] * levels
    qcd = struct.pack(">HHB", 0xFF5C, 3 + len(gains), GUARD << 5) + bytes(layout.bits + gain << 3 for gain in gains)
    return b"\xFF\x4F" + siz + cod + qcd


def boxes(layout: Layout) -> bytes:
    """What makes a .jp2 of a code stream that follows and goes to the end of the file (Annex I)."""
    def box(kind: bytes, contents: bytes) -> bytes:
        return struct.pack(">I", 8 + len(contents)) + kind + contents
    size = struct.pack(">IIH", layout.height, layout.width, layout.channels)
    header = box(b"ihdr", size + bytes([layout.bits - 1, 7, 0, 0]))
    colour = box(b"colr", struct.pack(">BBBI", 1, 0, 0, 16 if layout.channels == 3 else 17))
    return (box(b"jP  ", b"\r\n\x87\n") + box(b"ftyp", b"jp2 \0\0\0\0jp2 ") + box(b"jp2h", header + colour) +
            b"\0\0\0\0jp2c")


def joined(layout: Layout, parts: Iterator[bytes], with_boxes: bool) -> Iterator[bytes]:
    """The pieces of a file, of its tile-parts."""
    yield (boxes(layout) if with_boxes else b"") + main_header(layout)
    yield from parts
    yield b"\xFF\xD9"
