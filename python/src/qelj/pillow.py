"""Gives Pillow what it lacks, once this module is imported:

  JPEG XR            opened, and saved by the ending .jxr (quality=..., lossless=...)
  lossless JPEG      opened, and saved as "JPEG" with lossless=True
  DDS                saved with block="bc1" to "bc7"
  JPEG 2000          grey of 16 bits (mode "I;16") saved

Pictures that Pillow has no mode for, more than one channel of 16 bits, are opened with 8 bits, with a warning.
"""
import warnings
from typing import Any

import numpy as np
from PIL import Image, ImageFile

from ._files import FileError, read_picture, write_picture

MODES = {"grey": "L", "grey with alpha": "LA", "RGB": "RGB", "RGBA": "RGBA", "CMYK": "CMYK"}


class _Opened(ImageFile.ImageFile):
    """A file that the library's reader decodes when it is opened."""

    def _open(self) -> None:
        data = self.fp.read()
        if not self._takes(data):
            raise SyntaxError("not such a file")
        try:
            array, colour, bits, notes = read_picture(data)
        except FileError as error:
            raise SyntaxError(str(error)) from None
        mode = MODES[colour]
        if mode == "L" and array.dtype == np.float16:
            mode, array = "F", array.astype(np.float32)
        elif mode == "L" and array.dtype == np.uint16:
            mode = "I;16"
        elif array.dtype == np.float16:
            raise SyntaxError("half-float samples of several channels have no mode")
        elif array.dtype == np.uint16:
            warnings.warn(f"{bits} bits a sample become 8, for which there is a mode")
            array = (array.astype(np.uint16) >> (bits - 8)).astype(np.uint8)
        self._size = array.shape[1::-1]
        if isinstance(getattr(Image.Image, "mode", None), property):
            self._mode = mode
        else:
            self.mode = mode
        self._decoded = Image.frombuffer(mode, self._size, np.ascontiguousarray(array), "raw", mode, 0, 1)

    def _takes(self, data: bytes) -> bool:
        return True

    def load(self) -> Any:
        if self._decoded is not None:
            self.im = self._decoded.copy().im
            self._decoded = None
        return Image.Image.load(self)


class JpegXr(_Opened):
    format = "JPEGXR"
    format_description = "JPEG XR"


class LosslessJpeg(_Opened):
    format = "JPEG"
    format_description = "JPEG, lossless (ISO/IEC 10918-1, Annex H)"

    def _takes(self, data: bytes) -> bool:
        """Whether the frame is one of the lossless process with Huffman coding (SOF3)."""
        place = 2
        while data[place:place + 1] == b"\xff" and place + 4 <= len(data):
            marker = data[place + 1]
            if marker in (0xC3, 0xDA):
                return marker == 0xC3
            place += 2 + int.from_bytes(data[place + 2:place + 4], "big") if marker != 0xFF else 1
        return False


def _save(image: Any, file: Any, ending: str, **options: Any) -> None:
    array = np.asarray(image)
    if image.mode not in (*MODES.values(), "I;16"):
        raise OSError(f"cannot write mode {image.mode} as this format")
    try:
        data = write_picture(array, ending, "CMYK" if image.mode == "CMYK" else None, **options)
    except FileError as error:
        raise OSError(str(error)) from None
    file.write(data)


def _save_jxr(image: Any, file: Any, filename: Any) -> None:
    known = {name: image.encoderinfo[name] for name in ("quality", "lossless") if name in image.encoderinfo}
    _save(image, file, "jxr", **known)


def _replace(format: str, ending: str, taken: Any, names: Any) -> None:
    """Saves pictures that `taken` chooses, and leaves the others to Pillow."""
    Image.init()
    before = Image.SAVE.get(format)

    def save(image: Any, file: Any, filename: Any) -> None:
        if taken(image):
            _save(image, file, ending, **{name: image.encoderinfo[name] for name in names if name in image.encoderinfo})
        elif before:
            before(image, file, filename)
        else:
            raise OSError(f"cannot write {format}")
    Image.register_save(format, save)


Image.register_open("JPEGXR", JpegXr, lambda prefix: prefix.startswith(b"II\xbc"))
Image.register_save("JPEGXR", _save_jxr)
Image.register_extensions("JPEGXR", [".jxr", ".wdp", ".hdp"])
Image.register_mime("JPEGXR", "image/jxr")
_replace("JPEG", "jpg", lambda image: image.encoderinfo.get("lossless"), ("lossless",))
_replace("DDS", "dds", lambda image: "block" in image.encoderinfo, ("block",))
_replace("JPEG2000", "jp2", lambda image: image.mode == "I;16", ("rate",))
# In front of Pillow's own, which takes every JPEG.
Image.register_open("JPEG-LOSSLESS", LosslessJpeg, lambda prefix: prefix.startswith(b"\xff\xd8\xff"))
Image.ID.remove("JPEG-LOSSLESS")
Image.ID.insert(0, "JPEG-LOSSLESS")
