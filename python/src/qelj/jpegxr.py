"""JPEG XR: the photo core transform, and the coding of coefficients in one stream."""
from typing import Any, Tuple

import numpy as np
import numpy.typing as npt

from . import _arrays, _functions as c
from ._enumerations import FLCMode, FLCSource
from ._records import VLCState
from .jpeg2000 import _kind

Array = npt.NDArray[np.generic]


def transform_forward(samples: Array) -> Array:
    """The photo core transform of each 4x4 block of an array of 16- or 32-bit integers or floats: a new array."""
    return getattr(c, f"qeliPCTFwd_JPEGXR_{_kind(samples)}_C1IR")(_arrays.compact(samples))


def transform_inverse(coefficients: Array) -> Array:
    """What `transform_forward` has transformed."""
    return getattr(c, f"qeliPCTInv_JPEGXR_{_kind(coefficients)}_C1IR")(_arrays.compact(coefficients))


class Encoder:
    """Coefficients of blocks into one stream, with the state that adapts on the way."""

    ROOM = 128

    def __init__(self) -> None:
        self.state = VLCState()
        self._stream = _arrays.zeros(1 << 12, np.uint8)
        self._place = {"streamPos": 0, "bitBuffer": 0, "bitCount": 0}

    def _call(self, function: Any, *arguments: Any, **named: Any) -> Any:
        if self._place["streamPos"] + self.ROOM > self._stream.size:
            longer = _arrays.zeros(2 * self._stream.size, np.uint8)
            longer[:self._stream.size] = self._stream
            self._stream = longer
        result = function(*arguments, stream=self._stream, **named, **self._place)
        self._place = {name: getattr(result, name) for name in self._place}
        return result

    def block(self, samples: Array, chroma: int = 0, model_bits: int = 0) -> npt.NDArray[np.uint32]:
        """Codes the fifteen AC coefficients of a 4x4 block without their lowest bits; returns what `fields` takes of
        these."""
        function = getattr(c, f"qeliVLCEncode4x4Flex_JPEGXR_{_kind(samples)}1u_C1R")
        return self._call(function, samples, modelBits=model_bits, state=self.state, chroma=chroma).residual

    def fields(self, samples: Array, residual: npt.NDArray[np.uint32], bits: int) -> None:
        """Codes the low bits of a block that `block` has left out, with a field of `bits` each."""
        function = getattr(c, f"qeliFLCEncode4x4_JPEGXR_{_kind(samples)}1u_C1R")
        self._call(function, samples, residual=residual, flexBits=bits, fromResidual=FLCSource.Residual)

    def finish(self) -> bytes:
        """The bytes of the stream, its last unit of 16 bits filled with zeros."""
        position, buffer, count = self._place.values()
        units = (count + 15) // 16
        return self._stream[:position].tobytes() + buffer.to_bytes(4, "big")[:2 * units]


class Decoder:
    """The blocks of a stream of `Encoder`, asked for in the same order. Behind its end a stream reads as zeros."""

    def __init__(self, data: Any) -> None:
        self.state = VLCState()
        self._stream = _arrays.given(data, np.dtype(np.uint8), False, "data")
        self._place = {"streamPos": 0, "bitBuffer": 0, "bitCount": 0}

    def _call(self, function: Any, **named: Any) -> Any:
        result = function(stream=self._stream, **named, **self._place)
        self._place = {name: getattr(result, name) for name in self._place}
        return result

    def block(self, dtype: npt.DTypeLike = np.int32, chroma: int = 0, scale: int = 1) -> Tuple[Array, int]:
        """The next block, its DC zero, and how many coefficients it has (16: the stream is corrupt). `scale` multiplies
        them: 1 << model_bits where low bits are to follow."""
        dst = _arrays.zeros((4, 4), dtype)
        function = getattr(c, f"qeliVLCDecode4x4_JPEGXR_1u{_kind(dst)}_C1R")
        result = self._call(function, state=self.state, scale=scale, dst=dst, chroma=chroma)
        return dst, result.count

    def fields(self, block: Array, bits: int) -> None:
        """Adds the low bits to a block that was decoded with a scale of 1 << bits."""
        function = getattr(c, f"qeliFLCDecode4x4_JPEGXR_1u{_kind(block)}_C1IR")
        self._call(function, srcDst=block, flexBits=bits, scale=1, refine=FLCMode.Refine)
