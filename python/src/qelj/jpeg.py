"""JPEG: colour, resampling, DCTs, Huffman coding and prediction, with arrays made where there are none."""
import threading
from typing import Any, Dict, List, Optional, Sequence, Tuple

import numpy as np
import numpy.typing as npt

from . import _arrays, _functions as c, _typical
from ._errors import Error
from ._library import ffi, lib
from ._records import DecodeHuffmanSpec, DecodeHuffmanState, EncodeHuffmanSpec, EncodeHuffmanState

U8 = npt.NDArray[np.uint8]
S16 = npt.NDArray[np.int16]
SAMPLINGS = {"4:4:4": "", "4:2:2": "422", "4:2:0": "411"}


def to_ycbcr(pixels: U8, sampling: str = "4:4:4", order: str = "RGB") -> Tuple[U8, U8, U8]:
    """Planes Y, Cb, Cr of pixels (rows, columns, 3 or 4); of four channels the fourth is ignored. `order` is "RGB" or
    "BGR". With "4:2:2" and "4:2:0" an odd last column or row is left out, with a warning."""
    return getattr(c, f"qeli{order}ToYCbCr{SAMPLINGS[sampling]}_JPEG_8u_C{pixels.shape[2]}P3R")(pixels)


def from_ycbcr(planes: Sequence[U8], order: str = "RGB", alpha: Optional[int] = None) -> U8:
    """Pixels of planes Y, Cb, Cr, whose shapes say the sampling; with a fourth channel, if `alpha` says what it holds.
    Chroma is repeated: `upsample` makes it smooth."""
    (height, width), chroma = planes[0].shape, tuple(planes[1].shape)
    fits: Dict[Tuple[int, ...], str] = {
        (height, width): "", (height, width // 2): "422", (height // 2, width // 2): "411"}
    if chroma not in fits:
        raise ValueError(f"chroma of {chroma} does not fit luma of {planes[0].shape}")
    if alpha is None:
        return getattr(c, f"qeliYCbCr{fits[chroma]}To{order}_JPEG_8u_P3C3R")(planes)
    return getattr(c, f"qeliYCbCr{fits[chroma]}To{order}_JPEG_8u_P3C4R")(planes, alpha=alpha)


def downsample(plane: U8, down: bool = True) -> U8:
    """A plane of half as many columns, and rows unless `down` is false, by means of the samples."""
    return (c.qeliSampleDownH2V2_JPEG_8u_C1R if down else c.qeliSampleDownH2V1_JPEG_8u_C1R)(plane)


def upsample(plane: U8, down: bool = True) -> U8:
    """A plane of twice as many columns, and rows unless `down` is false, by the triangle filter; the edges are repeated
    around it."""
    padded = np.pad(plane, 1, mode="edge")
    return (c.qeliSampleUpH2V2_JPEG_8u_C1R if down else c.qeliSampleUpH2V1_JPEG_8u_C1R)(padded[1:-1, 1:-1])


def quantiser(quality: int, chroma: bool = False) -> U8:
    """The typical quantiser scaled to a quality, in zig-zag order, as a DQT segment has it."""
    return c.qeliQuantFwdRawTableInit_JPEG_8u(_typical.quantisers[int(chroma)].copy(), quality)


def _walk(function: Any, blocks: Any, plane: Any, side: int, table: Any, forward: bool) -> None:
    """Calls a DCT on each block of a plane."""
    coefficients = ffi.cast("int16_t*", blocks.ctypes.data)
    samples = ffi.cast("uint8_t*", plane.ctypes.data)
    pointer, step = ffi.cast("uint16_t*", table.ctypes.data), plane.strides[0]
    for y in range(blocks.shape[0]):
        for x in range(blocks.shape[1]):
            sample = samples + (y * step + x) * side
            if forward:
                status = function(sample, step, coefficients, pointer)
            else:
                status = function(coefficients, sample, step, pointer)
            if status < 0:
                raise Error(status, "DCT")
            coefficients += 64


def forward_dct(plane: U8, quantiser: U8) -> S16:
    """The quantised coefficients of a plane, (rows / 8, columns / 8, 8, 8) in natural order. `quantiser` is in zig-zag
    order. A plane whose sides are no multiples of 8 has its last row and column repeated."""
    plane = _arrays.given(plane, np.dtype(np.uint8), False, "plane")
    height, width = plane.shape
    if height % 8 or width % 8:
        plane = np.pad(plane, ((0, -height % 8), (0, -width % 8)), mode="edge")
    if not (plane.strides[1] == 1 and plane.strides[0] >= plane.shape[1]):
        plane = _arrays.compact(plane)
    blocks = _arrays.zeros((plane.shape[0] // 8, plane.shape[1] // 8, 8, 8), np.int16)
    table = c.qeliQuantFwdTableInit_JPEG_8u16u(quantiser)
    _walk(lib.qeliDCTQuantFwd8x8LS_JPEG_8u16s_C1R, blocks, plane, 8, table, True)
    return blocks


def inverse_dct(blocks: S16, quantiser: U8, side: int = 8) -> U8:
    """The plane of quantised coefficients (rows, columns, 8, 8); with a `side` of 4 or 2 at a half or a quarter of its
    size."""
    functions = {8: lib.qeliDCTQuantInv8x8LS_JPEG_16s8u_C1R, 4: lib.qeliDCTQuantInv8x8To4x4LS_JPEG_16s8u_C1R,
                 2: lib.qeliDCTQuantInv8x8To2x2LS_JPEG_16s8u_C1R}
    blocks = np.ascontiguousarray(_arrays.given(blocks, np.dtype(np.int16), False, "blocks"))
    if blocks.ndim != 4 or blocks.shape[2:] != (8, 8):
        raise ValueError(f"blocks are to have the shape (rows, columns, 8, 8), not {blocks.shape}")
    plane = _arrays.zeros((blocks.shape[0] * side, blocks.shape[1] * side), np.uint8)
    table = c.qeliQuantInvTableInit_JPEG_8u16u(quantiser)
    _walk(functions[side], blocks, plane, side, table, False)
    return plane


def typical_encoders(chroma: bool = False) -> Tuple[EncodeHuffmanSpec, EncodeHuffmanSpec]:
    """The encoder's typical tables for DC and AC coefficients."""
    i = int(chroma)
    return (EncodeHuffmanSpec(_typical.dc_bits[i], _typical.dc_vals),
            EncodeHuffmanSpec(_typical.ac_bits[i], _typical.ac_vals[i]))


def typical_decoders(chroma: bool = False) -> Tuple[DecodeHuffmanSpec, DecodeHuffmanSpec]:
    """The decoder's typical tables for DC and AC coefficients."""
    i = int(chroma)
    return (DecodeHuffmanSpec(_typical.dc_bits[i], _typical.dc_vals),
            DecodeHuffmanSpec(_typical.ac_bits[i], _typical.ac_vals[i]))


def _blocks(blocks: S16) -> S16:
    blocks = np.ascontiguousarray(_arrays.given(blocks, np.dtype(np.int16), False, "blocks")).reshape(-1, 8, 8)
    return blocks


class HuffmanEncoder:
    """A segment of a sequential scan: blocks to bytes. `components` is how many DC predictors there are."""

    ROOM = 570  # behind the position, for the encoder's fast way

    def __init__(self, components: int = 1) -> None:
        self._data = _arrays.zeros(1 << 16, np.uint8)
        self._position = ffi.new("int32_t*")
        self._last = ffi.new("int16_t[]", components)
        self._state = EncodeHuffmanState()
        self._lock = threading.Lock()

    def encode(self, blocks: S16, dc: EncodeHuffmanSpec, ac: EncodeHuffmanSpec, component: int = 0) -> None:
        """Codes blocks of a component, (..., 8, 8) in natural order."""
        blocks = _blocks(blocks)
        tables = dc._at(), ac._at()
        last = self._last + range(len(self._last))[component]
        block = ffi.cast("int16_t*", blocks.ctypes.data)
        with self._lock:
            for _ in range(len(blocks)):
                self._call(block, last, *tables, 0)
                block += 64

    def _call(self, *arguments: Any) -> None:
        if self._position[0] + self.ROOM > self._data.size:
            longer = _arrays.zeros(2 * self._data.size, np.uint8)
            longer[:self._data.size] = self._data
            self._data = longer
        block, last, dc, ac, flush = arguments
        status = lib.qeliEncodeHuffman8x8_JPEG_16s1u_C1(
            block, ffi.cast("uint8_t*", self._data.ctypes.data), self._data.size, self._position, last, dc, ac,
            self._state._at(), flush)
        if status < 0:
            raise Error(status, "qeliEncodeHuffman8x8_JPEG_16s1u_C1")

    def finish(self) -> bytes:
        """Ends the segment and returns its bytes; the next one begins."""
        with self._lock:
            self._call(ffi.NULL, ffi.NULL, ffi.NULL, ffi.NULL, 1)
            data = self._data[:self._position[0]].tobytes()
            self._position[0] = 0
            for i in range(len(self._last)):
                self._last[i] = 0
        return data


class HuffmanDecoder:
    """A segment of a sequential scan: bytes to blocks. `marker` is the code of the marker that was met, or 0, and
    `position` the place of the next byte."""

    def __init__(self, data: Any, components: int = 1) -> None:
        data = _arrays.given(data, np.dtype(np.uint8), False, "data")
        self._data = np.ascontiguousarray(data).reshape(-1)
        self._position, self._marker = ffi.new("int32_t*"), ffi.new("int32_t*")
        self._last = ffi.new("int16_t[]", components)
        self._state = DecodeHuffmanState()
        self._lock = threading.Lock()

    @property
    def position(self) -> int:
        return self._position[0]

    @property
    def marker(self) -> int:
        return self._marker[0]

    def decode(self, count: int, dc: DecodeHuffmanSpec, ac: DecodeHuffmanSpec, component: int = 0) -> S16:
        """The next blocks of a component, (count, 8, 8) in natural order."""
        blocks = _arrays.zeros((count, 8, 8), np.int16)
        block = ffi.cast("int16_t*", blocks.ctypes.data)
        source = ffi.cast("uint8_t*", self._data.ctypes.data)
        tables = dc._at(), ac._at()
        last = self._last + range(len(self._last))[component]
        with self._lock:
            for i in range(count):
                status = lib.qeliDecodeHuffman8x8_JPEG_1u16s_C1(
                    source, self._data.size, self._position, block, last, self._marker, *tables, self._state._at())
                if status < 0:
                    raise Error(status, "qeliDecodeHuffman8x8_JPEG_1u16s_C1", blocks[:i])
                block += 64
        return blocks


def optimal_lists(blocks: S16) -> List[Tuple[U8, U8]]:
    """The lists of DHT segments, (bits, vals) for DC and for AC coefficients, that code one component's blocks in the
    fewest bits."""
    dc, ac = np.zeros(256, np.int32), np.zeros(256, np.int32)
    blocks = _blocks(blocks)
    last = ffi.new("int16_t*")
    block = ffi.cast("int16_t*", blocks.ctypes.data)
    pointers = ffi.cast("int32_t*", dc.ctypes.data), ffi.cast("int32_t*", ac.ctypes.data)
    for _ in range(len(blocks)):
        status = lib.qeliGetHuffmanStatistics8x8_JPEG_16s_C1(block, *pointers, last)
        if status < 0:
            raise Error(status, "qeliGetHuffmanStatistics8x8_JPEG_16s_C1")
        block += 64
    lists = []
    for statistics in (dc, ac):
        bits, vals = c.qeliEncodeHuffmanRawTableInit_JPEG_8u(statistics)
        lists.append((bits, vals[:int(bits.sum())]))
    return lists


def _predicted(kind: str, source: S16, predictor: int, precision: int, point_transform: int) -> S16:
    """One component through the prediction of the lossless process, or back; samples are predicted from samples."""
    result = _arrays.zeros(source.shape, np.int16)
    samples = result if kind == "Reconstruct" else source
    getattr(c, f"qeli{kind}PredFirstRow_JPEG_16s_C1")(source[0], precision, dst=result[0],
                                                      pointTransform=point_transform)
    for y in range(1, len(source)):
        getattr(c, f"qeli{kind}PredRow_JPEG_16s_C1")(source[y], samples[y - 1], predictor, dst=result[y])
    return result


def differences(samples: S16, predictor: int = 1, precision: int = 8, point_transform: int = 0) -> S16:
    """What the lossless process codes of a component's samples."""
    return _predicted("Diff", samples, predictor, precision, point_transform)


def reconstruct(differences: S16, predictor: int = 1, precision: int = 8, point_transform: int = 0) -> S16:
    """The samples of a component from their differences."""
    return _predicted("Reconstruct", differences, predictor, precision, point_transform)
