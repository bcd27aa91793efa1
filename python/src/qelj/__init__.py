"""qelj: image-compression primitives, with NumPy arrays in and out.

All functions of qelj.h are here under their own names:

    planes = qelj.qeliRGBToYCbCr_JPEG_8u_C3P3R(picture)

Arrays are passed as they are; steps between rows, sizes and lengths are taken from them, and may be given where a call
means less than the whole. Outputs are the caller's arrays, or new ones where the caller gives none, and are what a call
returns, together with the numbers that C hands back through pointers: one of them by itself, several as a named tuple.
`help(qelj.qeliSub128_JPEG_8u16s_C1R)` has the header's text.

A negative status is an `Error`, a positive one a `StatusWarning`. Shapes, types and lengths are checked in front of the
call, so that it stays inside the arrays, whatever it is given. Calls release the interpreter's lock.

The modules jpeg, jpeg2000, jpegxr, texture and tiff say the common things shortly. `imread` and `imwrite` take and
make files by way of the converter's library; `import qelj.pillow` gives them to Pillow.
"""
import importlib
import typing

from . import _functions, _table
from ._arrays import zeros
from ._enumerations import *  # noqa: F401,F403
from ._enumerations import __all__ as _enumerations
from ._errors import Error, StatusWarning, status_text
from ._files import FileError, Picture, imread, imwrite, read_picture, write_picture
from ._library import ffi as _ffi, image, lib as _lib, path
from ._records import *  # noqa: F401,F403
from ._records import __all__ as _records
from ._threads import get_num_threads, map_rows, map_tiles, set_num_threads
from . import _typical as typical

if typing.TYPE_CHECKING:
    from ._functions import *  # noqa: F401,F403

__version__ = _table.VERSION
_FAMILIES = ("jpeg", "jpeg2000", "jpegxr", "texture", "tiff")
__all__ = ["Error", "FileError", "LibVersion", "Picture", "StatusWarning", "get_num_threads", "image", "imread",
           "imwrite", "map_rows", "map_tiles", "path", "read_picture", "set_num_threads", "status_text", "typical",
           "version", "write_picture", "zeros", *_enumerations, *_records, *_FAMILIES, *_functions.__all__]


class LibVersion(typing.NamedTuple):
    """What `version` tells."""
    versionMajor: int
    versionMinor: int
    versionPatch: int
    versionBuild: int
    cpuTag: str
    libraryName: str
    versionText: str
    buildDateText: str


def version() -> LibVersion:
    """The version record of the loaded library. (`path` and `image` say where it lies, and for which processors.)"""
    record = _lib.qeljGetLibVersion()
    values = [getattr(record, name) for name in LibVersion._fields]
    return LibVersion(*[value if isinstance(value, int) else _ffi.string(value).decode() for value in values])


def __getattr__(name):
    if name in _FAMILIES:
        return importlib.import_module(f"qelj.{name}")
    return getattr(_functions, name)


def __dir__():
    return sorted(set(globals()) | set(__all__))
