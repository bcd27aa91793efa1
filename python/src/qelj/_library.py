"""Finds the library and loads the image that the processor can run.

In this order:
  QELJ_LIBRARY       in the environment: a file, the image to take, or a folder, as the `lib` of an installation
  lib                beside this file, as wheels have it
  libqelj.so.7       where the system's loader finds it, which chooses among the system's images by itself

The loader chooses among images only by a library's name, not where it is given a path: in a folder they are chosen
here, by what libqelcore says of the processor.
"""
import contextlib
import ctypes
import os

from ._cffi import ffi

carried = os.path.join(os.path.dirname(os.path.abspath(__file__)), "lib")
IMAGES = ("x86-64-v4", "x86-64-v3", "x86-64-v2")  # the best one first


def best_in(folder):
    """The path of the best image in a folder that this processor can run, and libqelcore, which tells."""
    core = ffi.dlopen(os.path.join(folder, "libqelcore.so.7"))
    for name in IMAGES:
        path = os.path.join(folder, "glibc-hwcaps", name, "libqelj.so.7")
        if os.path.exists(path) and core.qelCanRunImage(name.encode()):
            return path
    return os.path.join(folder, "libqelj.so.7")


def found():
    chosen = os.environ.get("QELJ_LIBRARY")
    if chosen:
        return best_in(chosen) if os.path.isdir(chosen) else os.path.abspath(chosen)
    return best_in(carried) if os.path.isdir(carried) else "libqelj.so.7"


class DlInfo(ctypes.Structure):
    """What dladdr tells."""
    _fields_ = [("file", ctypes.c_char_p), ("base", ctypes.c_void_p), ("name", ctypes.c_char_p),
                ("address", ctypes.c_void_p)]


def file_of(address):
    """The file whose code or data lie at an address, or None where the system doesn't tell."""
    told = DlInfo()
    with contextlib.suppress(AttributeError, OSError):
        if ctypes.CDLL(None).dladdr(ctypes.c_void_p(address), ctypes.byref(told)):
            return os.fsdecode(told.file)
    return None


def load():
    path = found()
    try:
        library = ffi.dlopen(path)
    except OSError as error:
        raise ImportError(f"qelj: the library was not found or could not be loaded ({error}); QELJ_LIBRARY names "
                          "another file or folder") from None
    version = library.qeljGetLibVersion()
    name = library.qelGetImageName(version)
    if not library.qelCanRunImage(name):
        raise ImportError(f"qelj: this processor cannot run the image {ffi.string(name).decode()} ({path})")
    if not os.path.isabs(path):
        path = file_of(int(ffi.cast("uintptr_t", version))) or path
    return path, library, ffi.string(name).decode() if name else None


path, lib, image = load()
