"""Texture blocks, BC1 to BC7."""
from typing import Any, Tuple

import numpy as np
import numpy.typing as npt

from . import _functions as c

# Direct3D's names for the formats: encoder and decoder.
ENCODERS = {"bc1": "qeliTextureEncodeBlockFromRGBA_DXT1_8u_C4C1R",
            "bc2": "qeliTextureEncodeBlockFromRGBA_DXT3_8u_C4C1R",
            "bc3": "qeliTextureEncodeBlockFromRGBA_DXT5_8u_C4C1R", "bc4": "qeliTextureEncodeBlock_BC4_8u_C1R",
            "bc5": "qeliTextureEncodeBlockFromRG_BC5_8u_C2C1R", "bc7": "qeliTextureEncodeBlock4x4FromRGBA_BC7_8u_C4C1R"}
DECODERS = {"bc1": "qeliTextureDecodeBlockToRGBA_DXT1_8u_C1C4R", "bc2": "qeliTextureDecodeBlockToRGBA_DXT3_8u_C1C4R",
            "bc3": "qeliTextureDecodeBlockToRGBA_DXT5_8u_C1C4R", "bc4": "qeliTextureDecodeBlock_BC4_8u_C1R",
            "bc5": "qeliTextureDecodeBlockToRG_BC5_8u_C1C2R", "bc7": "qeliTextureDecodeBlockToRGBA_BC7_8u_C1C4R",
            "bc6u": "qeliTextureDecodeBlockToRGB_BC6_16u_C1C3R", "bc6s": "qeliTextureDecodeBlockToRGB_BC6_16s_C1C3R"}


def encode(pixels: npt.NDArray[np.uint8], format: str) -> npt.NDArray[np.uint8]:
    """The blocks of a picture: RGBA for bc1, bc2, bc3 and bc7, one channel (rows, columns) for bc4, two for bc5."""
    return getattr(c, ENCODERS[format])(pixels)


def decode(blocks: Any, size: Tuple[int, int], format: str) -> npt.NDArray[np.generic]:
    """The picture of (width, height) that blocks hold, with the channels that `encode` takes; bc6u and bc6s give R, G,
    B as halves (float16)."""
    if format.startswith("bc6"):
        return getattr(c, DECODERS[format])(blocks, width=size[0], height=size[1]).view(np.float16)
    return getattr(c, DECODERS[format])(blocks, size=size)
