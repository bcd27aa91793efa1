"""Files as arrays, by the readers and writers of the converter qelconv (libqelconv)."""
import functools
import os
import warnings
from typing import Any, BinaryIO, Dict, NamedTuple, Optional, Union

import numpy as np
import numpy.typing as npt

from . import _arrays
from ._library import carried, ffi, path as library_path

Source = Union[str, "os.PathLike[str]", bytes, bytearray, memoryview, BinaryIO]
COLOURS = ("grey", "grey with alpha", "RGB", "RGBA", "CMYK")
CHANNELS = (1, 2, 3, 4, 4)
DTYPES = {"uint8": 8, "uint16": 16, "float16": 16}


class FileError(ValueError):
    """A file that cannot be read, or a picture that cannot be written in a format."""


class Picture(NamedTuple):
    """What a file holds.

    array   (rows, columns) of grey, else (rows, columns, channels); uint8, uint16, or float16
    colour  "grey", "grey with alpha", "RGB", "RGBA" or "CMYK" (which counts ink: 0 is none)
    bits    of a sample
    notes   what is missing of a damaged file, or had no place
    """
    array: npt.NDArray[np.generic]
    colour: str
    bits: int
    notes: str


@functools.lru_cache(None)
def converter() -> Any:
    """libqelconv: where QELJ_CONVERTER says, where a wheel has it, beside the library, or where the system has it."""
    name = "libqelconv.so.7"
    places = [os.environ.get("QELJ_CONVERTER"), os.path.join(carried, name),
              os.path.join(os.path.dirname(library_path), name)]
    found = next((place for place in places if place and os.path.exists(place)), name)
    try:
        return ffi.dlopen(found)
    except OSError as error:
        raise ImportError(f"qelj: files are read and written by libqelconv, which was not found ({error})") from None


def _options(options: Dict[str, Any]) -> Any:
    texts = []
    for name, value in options.items():
        if value is not None and value is not False:
            texts.append(name.replace("_", "-") + ("" if value is True else f"={value}"))
    kept = [ffi.new("char[]", text.encode()) for text in texts]
    return kept, ffi.new("char*[]", [*kept, ffi.NULL])


def _checked(conversion: Any) -> Any:
    """A conversion that has succeeded, which goes when the object does."""
    if not conversion:
        raise MemoryError
    conversion = ffi.gc(conversion, converter().qelConvFree)
    error = converter().qelConvError(conversion)
    if error:
        raise FileError(ffi.string(error).decode(errors="replace"))
    return conversion


def read_picture(source: Source, **options: Any) -> Picture:
    """The picture in a file (its path, its bytes or an open file), with what `imread` doesn't tell."""
    if isinstance(source, (str, os.PathLike)):
        with open(source, "rb") as file:
            data: Any = file.read()
    else:
        data = source if isinstance(source, (bytes, bytearray, memoryview)) else source.read()
    kept, texts = _options(options)
    buffer = ffi.from_buffer(data)
    conversion = _checked(converter().qelConvRead(buffer, len(buffer), texts))
    picture = converter().qelConvGetPicture(conversion)
    dtype = np.dtype("float16" if picture.isHalf else "uint16" if picture.bits > 8 else "uint8")
    shape = (picture.height, picture.width, CHANNELS[picture.colour])
    array = _arrays.zeros(shape, dtype)
    ffi.memmove(array.data.cast("B") if array.size else b"", picture.data, array.nbytes)
    notes = ffi.string(converter().qelConvNotes(conversion)).decode(errors="replace")
    return Picture(array[..., 0] if shape[2] == 1 else array, COLOURS[picture.colour], picture.bits, notes)


def imread(source: Source, **options: Any) -> npt.NDArray[np.generic]:
    """The picture in a file as an array: JPEG, also lossless, JPEG 2000, JPEG XR, DDS and KTX 2 textures, TIFF, PNG,
    PNM.

    Options are those of qelconv: `partial=True` takes what there is of a damaged file, `max_memory=...` allows more
    than a file's size lets expect. What is missing is told by a warning.
    """
    picture = read_picture(source, **options)
    if picture.notes:
        warnings.warn(picture.notes.strip(), stacklevel=2)
    return picture.array


def write_picture(array: npt.ArrayLike, format: str, colour: Optional[str] = None, bits: Optional[int] = None,
                  **options: Any) -> bytes:
    """The bytes of a file in the format of an ending such as "jxr"; see `imwrite`."""
    array = np.ascontiguousarray(array)
    if str(array.dtype) not in DTYPES or array.ndim not in (2, 3):
        raise TypeError(f"a picture has two or three dimensions of uint8, uint16 or float16, not {array.ndim} of "
                        f"{array.dtype}")
    channels = 1 if array.ndim == 2 else array.shape[2]
    if colour is None and channels in range(1, 5):
        colour = COLOURS[channels - 1]
    if colour not in COLOURS or CHANNELS[COLOURS.index(colour)] != channels:
        raise ValueError(f"{channels} channels are not {colour or 'a colour'}")
    bits = DTYPES[str(array.dtype)] if bits is None else bits
    if (bits + 7) // 8 != array.itemsize:
        raise ValueError(f"samples of {bits} bits are not {array.dtype}")
    height, width = array.shape[:2]
    data = ffi.from_buffer(array) if array.size else ffi.NULL
    picture = ffi.new("QelConvPicture*", (width, height, COLOURS.index(colour), bits, array.dtype.kind == "f", data))
    kept, texts = _options(options)
    conversion = _checked(converter().qelConvWrite(picture, format.lstrip(".").encode(), texts))
    notes = ffi.string(converter().qelConvNotes(conversion)).decode(errors="replace")
    if notes:
        warnings.warn(notes.strip(), stacklevel=3)
    size = ffi.new("size_t*")
    file = converter().qelConvGetFile(conversion, size)
    return bytes(ffi.buffer(ffi.cast("const char*", file), size[0]))


def imwrite(path: Union[str, "os.PathLike[str]"], array: npt.ArrayLike, colour: Optional[str] = None,
            bits: Optional[int] = None, **options: Any) -> None:
    """Writes a picture as a file in the format of its ending.

    One to four channels are grey, grey with alpha, RGB and RGBA; `colour="CMYK"` says that four are that. `bits` says
    how many bits samples have, if not all of their type. Options are those of qelconv: `quality=90`,
    `progressive=True`, `lossless=True`, `block="bc7"`, `rate=2`.
    """
    data = write_picture(array, os.path.splitext(os.fspath(path))[1], colour, bits, **options)
    with open(path, "wb") as file:
        file.write(data)
