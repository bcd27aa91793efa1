"""TIFF: PackBits, and the byte planes of 16-bit samples."""
from typing import Any, NamedTuple, Tuple

import numpy as np
import numpy.typing as npt

from . import _functions as c


def pack(row: Any) -> bytes:
    """A row of bytes in PackBits."""
    packed, length = c.qeliPackBitsRow_TIFF_8u_C1(row)
    return packed[:length].tobytes()


class Unpacked(NamedTuple):
    """A row, and the place of the source's next byte."""
    row: npt.NDArray[np.uint8]
    position: int


def unpack(packed: Any, length: int, position: int = 0) -> Unpacked:
    """The row of `length` bytes that stands in PackBits at a position of a source."""
    result = c.qeliUnpackBitsRow_TIFF_8u_C1(packed, srcPos=position, dstLen=length)
    return Unpacked(result.dst, result.srcPos)


def split(samples: npt.NDArray[np.uint16]) -> Tuple[npt.NDArray[np.uint8], npt.NDArray[np.uint8]]:
    """A row's high bytes and its low bytes."""
    return c.qeliSplitRow_TIFF_16u8u_C1(samples)


def join(high: npt.NDArray[np.uint8], low: npt.NDArray[np.uint8]) -> npt.NDArray[np.uint16]:
    """The row of these high and low bytes."""
    return c.qeliJoinRow_TIFF_8u16u_C1((high, low))
