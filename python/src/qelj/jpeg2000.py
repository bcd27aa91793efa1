"""JPEG 2000: component transforms, wavelets of whole tiles, code-blocks."""
from typing import Iterator, NamedTuple, Sequence, Tuple

import numpy as np
import numpy.typing as npt

from . import _arrays, _functions as c
from ._enumerations import CodeStyle, Subband
from ._records import EncodeStateJPEG2K

Array = npt.NDArray[np.generic]
KINDS = {"int16": "16s", "int32": "32s", "float32": "32f"}
FILTERS = {"5/3": "B53", "9/7": "D97"}


def _kind(array: Array) -> str:
    if str(array.dtype) not in KINDS:
        raise TypeError(f"samples are to be int16, int32 or float32, not {array.dtype}")
    return KINDS[str(array.dtype)]


def rct_forward(pixels: Array) -> Tuple[Array, Array, Array]:
    """Planes Y, U, V of pixels R, G, B of 16 or 32 bits: the reversible transform."""
    return getattr(c, f"qeliRCTFwd_JPEG2K_{_kind(pixels)}_C3P3R")(pixels)


def rct_inverse(planes: Sequence[Array]) -> Array:
    """Pixels R, G, B of planes Y, U, V: the reversible transform."""
    return getattr(c, f"qeliRCTInv_JPEG2K_{_kind(planes[0])}_P3C3R")(planes)


def ict_forward(pixels: npt.NDArray[np.float32]) -> Tuple[Array, Array, Array]:
    """Planes Y, Cb, Cr of pixels R, G, B in floats: the irreversible transform."""
    return c.qeliICTFwd_JPEG2K_32f_C3P3R(pixels)


def ict_inverse(planes: Sequence[npt.NDArray[np.float32]]) -> Array:
    """Pixels R, G, B of planes Y, Cb, Cr in floats: the irreversible transform."""
    return c.qeliICTInv_JPEG2K_32f_P3C3R(planes)


def _levels(shape: Tuple[int, ...], levels: int, origin: Tuple[int, int]) -> Iterator[Tuple[int, int, int, int]]:
    """The rectangles x, y, width, height that the levels of a wavelet transform."""
    (x, y), (height, width) = origin, shape
    for _ in range(levels):
        yield x, y, width, height
        width, height = (width + 1 - (x & 1)) >> 1, (height + 1 - (y & 1)) >> 1
        x, y = (x + 1) >> 1, (y + 1) >> 1


def wavelet_forward(samples: Array, levels: int = 1, filter: str = "5/3", origin: Tuple[int, int] = (0, 0)) -> Array:
    """The wavelet of a tile-component of 16 or 32 bits: a new array in which the low band of each level stands at the
    top left. `origin` is the (x, y) of its first sample; `bands` takes the result apart."""
    result = _arrays.compact(samples)
    function = getattr(c, f"qeliWTFwd_{FILTERS[filter]}_JPEG2K_{_kind(samples)}_C1IR")
    for tile in _levels(samples.shape, levels, origin):
        function(result, tile=tile)
    return result


def wavelet_inverse(transformed: Array, levels: int = 1, filter: str = "5/3",
                    origin: Tuple[int, int] = (0, 0)) -> Array:
    """The samples that `wavelet_forward` has transformed."""
    result = _arrays.compact(transformed)
    function = getattr(c, f"qeliWTInv_{FILTERS[filter]}_JPEG2K_{_kind(transformed)}_C1IR")
    for tile in reversed(list(_levels(transformed.shape, levels, origin))):
        function(result, tile=tile)
    return result


class Band(NamedTuple):
    """A band of a wavelet. `level` is 1 for the finest ones."""
    level: int
    subband: Subband
    samples: Array


def bands(transformed: Array, levels: int = 1, origin: Tuple[int, int] = (0, 0)) -> Iterator[Band]:
    """Views of the bands of a wavelet, the coarsest first."""
    rectangles = list(_levels(transformed.shape, levels + 1, origin))
    for level in range(levels, 0, -1):
        (_, _, width, height), (_, _, low_width, low_height) = rectangles[level - 1:level + 1]
        whole = transformed[:height, :width]
        if level == levels:
            yield Band(level, Subband.LL, whole[:low_height, :low_width])
        yield Band(level, Subband.HL, whole[:low_height, low_width:])
        yield Band(level, Subband.LH, whole[low_height:, :low_width])
        yield Band(level, Subband.HH, whole[low_height:, low_width:])


class CodeBlock(NamedTuple):
    """A coded code-block.

    planes    how many bit planes are coded
    passes    how many coding passes
    segments  the bytes of each codeword segment
    rates     for each pass, the bytes that suffice to decode all up to it
    gains     for each pass, by how much all up to it lower the squared error, in squares of the lowest plane
    """
    data: bytes
    planes: int
    passes: int
    segments: Tuple[int, ...]
    rates: Tuple[int, ...]
    gains: Tuple[float, ...]


def encode_codeblock(samples: npt.NDArray[np.int32], subband: int = Subband.LL,
                     style: int = CodeStyle.Lossless) -> CodeBlock:
    """Codes a block of quantised samples, ordinary signed integers whose magnitudes have up to 31 bits."""
    samples = np.asarray(samples)
    magnitudes = np.abs(samples.astype(np.int64))
    planes = int(magnitudes.max(initial=0)).bit_length()
    if planes > 31:
        raise ValueError("magnitudes are to have 31 bits at most")
    coded = (magnitudes << (31 - planes)).astype(np.uint32) | np.where(samples < 0, np.uint32(1 << 31), np.uint32(0))
    state = EncodeStateJPEG2K(samples.shape[::-1])
    loaded = c.qeliEncodeLoadCodeBlock_JPEG2K_32s_C1R(coded.view(np.int32), state, subband, planes, codeStyle=style)
    data = bytearray()
    room = np.empty(4096, np.uint8)
    more = 1
    while more:
        _, length, more = c.qeliEncodeStoreBits_JPEG2K_1u(room, state)
        data += room[:length].tobytes()
    return CodeBlock(
        bytes(data), planes, loaded.numPasses,
        tuple(c.qeliEncodeGetTermPassLen_JPEG2K(state, i) for i in range(loaded.numTermPasses)),
        tuple(c.qeliEncodeGetRate_JPEG2K(state, i) for i in range(loaded.numPasses)),
        tuple(c.qeliEncodeGetDist_JPEG2K(state, i) for i in range(loaded.numPasses)))


def decode_codeblock(block: CodeBlock, size: Tuple[int, int], subband: int = Subband.LL,
                     style: int = 0) -> npt.NDArray[np.int32]:
    """The samples of a code-block of (width, height), as ordinary signed integers."""
    result = c.qeliDecodeCodeBlock_JPEG2K_1u32s_C1R(
        block.data, subband, block.planes, block.passes, np.array(block.segments, np.uint32), size=size,
        codeStyle=style & ~CodeStyle.Lossless)
    coded = result.dst.view(np.uint32)
    magnitudes = (coded & 0x7FFFFFFF).astype(np.int32)
    return np.where(coded >> 31, -magnitudes, magnitudes)
