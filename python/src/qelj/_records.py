"""Records of the library as objects: tables and states, each in memory that belongs to its object.

A record is given to the functions that take one. Calls that write one are made one after another, whichever threads
they come from.
"""
import threading

from . import _plan
from ._arrays import zeros
from ._errors import Error
from ._library import ffi, lib


def checked(status, function):
    if status < 0:
        raise Error(status, function)


def number(function, *arguments):
    """What one of the functions gives that hand back one number."""
    result = ffi.new("int32_t*")
    checked(getattr(lib, function)(*arguments, result), function)
    return result[0]


def size_record(size):
    """A QelSize of (width, height)."""
    width, height = size
    return ffi.new("QelSize*", (width, height))[0]


C_NAMES = {python: name for name, python in _plan.RECORDS.items()}


class Record:
    """What all records have in common."""
    __slots__ = ("_memory", "_pointer", "_lock", "__weakref__")

    def __init__(self, size: int) -> None:
        self._memory = zeros(size, "uint8")
        self._pointer = ffi.cast(C_NAMES[type(self).__name__] + "*", self._memory.ctypes.data)
        self._lock = threading.Lock()

    @classmethod
    def _allocated(cls, pointer, free):
        """A record that the library has allocated, and that `free` releases when the object goes."""
        self = cls.__new__(cls)
        self._memory, self._lock = None, threading.Lock()
        self._pointer = ffi.gc(pointer, free)
        return self

    def _at(self):
        """Where it lies."""
        if self._pointer is None:
            raise ValueError(f"this {type(self).__name__} was released")
        return self._pointer

    def _release(self):
        """The pointer, which is somebody else's to release from now on."""
        if self._memory is not None:
            raise ValueError("this record's memory is its own and is not released by a call")
        pointer = self._at()
        ffi.gc(pointer, None)
        self._pointer = None
        return pointer


class _Plain(Record):
    """A record that any copy of its bytes is as good as."""
    __slots__ = ()

    def __init__(self) -> None:
        super().__init__(self._size())

    def _size(self) -> int:
        return number(f"qeli{type(self).__name__}GetBufSize_JPEG_8u")

    def copy(self):
        """Another record that holds the same: what to go back to if a call fails."""
        other = type(self)()
        with self._lock:
            other._memory[:] = memoryview(ffi.buffer(ffi.cast("char*", self._at()), len(other._memory)))
        return other


class _Spec(_Plain):
    __slots__ = ()

    def __init__(self, bits=None, vals=None) -> None:
        super().__init__()
        if bits is not None:
            from . import _functions
            getattr(_functions, f"qeli{type(self).__name__}Init_JPEG_8u")(bits, vals, spec=self)


class DecodeHuffmanSpec(_Spec):
    """A decoder's table, from the lists of a DHT segment; without lists it holds no code."""
    __slots__ = ()


class EncodeHuffmanSpec(_Spec):
    """An encoder's table, from the lists of a DHT segment; without lists it holds no code."""
    __slots__ = ()


class _State(_Plain):
    __slots__ = ()

    def __init__(self) -> None:
        super().__init__()
        function = f"qeli{type(self).__name__}Init_JPEG_8u"
        checked(getattr(lib, function)(self._pointer), function)


class DecodeHuffmanState(_State):
    """A decoder's position, prepared for a scan."""
    __slots__ = ()


class EncodeHuffmanState(_State):
    """An encoder's position, prepared for a scan."""
    __slots__ = ()


class VLCState(_Plain):
    """What the coefficient coders of JPEG XR adapt: initialised, and its three scans reset. It points into itself:
    behind `copy`, the scan in use has to be set (qeliVLCScanSet_JPEGXR)."""
    __slots__ = ()

    def __init__(self) -> None:
        super().__init__()
        checked(lib.qeliVLCInit_JPEGXR(self._pointer), "qeliVLCInit_JPEGXR")
        for scan in range(3):
            checked(lib.qeliVLCScanReset_JPEGXR(self._pointer, scan), "qeliVLCScanReset_JPEGXR")

    def _size(self) -> int:
        return number("qeliVLCGetStateSize_JPEGXR")


class EncodeStateJPEG2K(Record):
    """A code-block encoder's state, for blocks of up to `size` (width, height)."""
    __slots__ = ()

    def _holds(self, size):
        """It knows by itself which blocks it has room for."""

    def __init__(self, size) -> None:
        place = ffi.new("QelEncodeStateJPEG2K**")
        checked(lib.qeliEncodeInitAlloc_JPEG2K(place, size_record(size)), "qeliEncodeInitAlloc_JPEG2K")
        self._memory, self._lock = None, threading.Lock()
        self._pointer = ffi.gc(place[0], lib.qeliEncodeFree_JPEG2K)


class DecodeStateJPEG2K(Record):
    """A progressive code-block decoder's state, for blocks of up to `size` (width, height)."""
    __slots__ = ("_room", "_block")

    def __init__(self, size) -> None:
        self._holds(size)
        super().__init__(self._room)
        checked(lib.qeliDecodeCBProgrInit_JPEG2K(self._pointer), "qeliDecodeCBProgrInit_JPEG2K")

    def _holds(self, size):
        self._room, self._block = state_bytes(size), None

    def _admits(self, size):
        """Refuses a block that the state has no room for, which the library would not notice."""
        if state_bytes(size) > self._room:
            raise ValueError(f"the state was made for smaller blocks than {size[0]} x {size[1]}")


def state_bytes(size):
    """The bytes of a progressive decoder's state for blocks of that size."""
    return number("qeliDecodeCBProgrGetStateSize_JPEG2K", size_record(size))


__all__ = ["DecodeHuffmanSpec", "EncodeHuffmanSpec", "DecodeHuffmanState", "EncodeHuffmanState", "VLCState",
           "EncodeStateJPEG2K", "DecodeStateJPEG2K"]
KINDS = {name: globals()[name] for name in __all__}
