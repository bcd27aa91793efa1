"""Arrays beside memory that nobody may touch, and arguments for any function of the library."""
import ctypes
import functools
import mmap

import numpy as np

import qelj
from qelj import _functions, _plan, _table

LIBC = ctypes.CDLL(None, use_errno=True)
LIBC.mprotect.argtypes = (ctypes.c_void_p, ctypes.c_size_t, ctypes.c_int)
NAMES = [name for name in _table.FUNCTIONS if name != "qeljGetLibVersion"]


class Guarded:
    """Makes arrays that begin, or end, at a page that is not accessible: one byte too far ends the process."""

    def __init__(self, at_end):
        self.at_end, self.kept = at_end, []

    def array(self, shape, dtype):
        size = int(np.prod(shape, dtype=int)) * np.dtype(dtype).itemsize
        pages = max(-(-size // mmap.PAGESIZE), 1)
        memory = mmap.mmap(-1, (pages + 2) * mmap.PAGESIZE)
        start = ctypes.addressof(ctypes.c_char.from_buffer(memory))
        self.kept.append(memory)
        for page in (0, pages + 1):
            assert LIBC.mprotect(start + page * mmap.PAGESIZE, mmap.PAGESIZE, 0) == 0
        first = start + (pages + 1) * mmap.PAGESIZE - size if self.at_end else start + mmap.PAGESIZE
        # A view of exactly these bytes: the package takes what lies around it in the same array for readable.
        return np.frombuffer((ctypes.c_ubyte * size).from_address(first), np.uint8).view(dtype).reshape(shape)


@functools.lru_cache(None)
def plan_of(name):
    group, _, declaration = _table.FUNCTIONS[name]
    return _plan.Plan(name, group, declaration)


def fill(array, random, name):
    """Contents that lead far into the functions."""
    if name in ("bits",):
        array[...] = qelj.typical.ac_bits[0]
    elif name == "vals":
        array[...] = random.permutation(256)[:array.size]
    elif array.dtype == np.float32:
        array[...] = random.normal(0, 100, array.shape)
    elif name in ("segmentLengths",):
        array[...] = 20
    elif name in ("pairs",):
        array.reshape(-1)[0::2], array.reshape(-1)[1::2] = 0, random.integers(1, 900, array.size // 2)
    elif name == "statistics":
        array[...] = random.integers(0, 1000, array.shape)
    elif array.dtype == np.uint8 and name == "src" and random.integers(4) == 0:
        array.reshape(-1)[::2], array.reshape(-1)[1::2] = 0, 200
    elif array.dtype == np.uint8:
        array[...] = random.integers(0, 255, array.shape)  # no marker
    else:
        array[...] = random.integers(0 if array.dtype.kind == "u" else -200, 200, array.shape)
    return array


def record_for(kind, function, random):
    """A record with which a function can work."""
    if "Free" in function:
        size = {"size": (32, 32)} if "JPEG2K" in function else {}
        lists = {} if "State" in function or size else {"bits": qelj.typical.dc_bits[0], "vals": qelj.typical.dc_vals}
        return getattr(qelj, function.replace("Free", "InitAlloc"))(**size, **lists)
    if "HuffmanSpec" in kind:
        return getattr(qelj, kind)(qelj.typical.ac_bits[0], qelj.typical.ac_vals[0])
    if "JPEG2K" not in kind:
        return getattr(qelj, kind)()
    state = getattr(qelj, kind)((64, 64))
    if kind.startswith("Encode"):
        qelj.qeliEncodeLoadCodeBlock_JPEG2K_32s_C1R(random.integers(0, 2 ** 31, (20, 20), np.int32), state, 0, 31)
    else:
        qelj.qeliDecodeCBProgrAttach_JPEG2K_32s_C1R(np.zeros((9, 9), np.int32), state, 0, 10)
        qelj.qeliDecodeCBProgrSetPassCounter_JPEG2K(20, state)
    return state


NUMBERS = {"quality": (1, 101), "predictor": (1, 8), "precision": (8, 17), "pointTransform": (0, 8), "al": (0, 14),
           "ss": (1, 20), "se": (20, 64), "flush": (0, 2), "last": (0, 2), "subband": (0, 4), "magnitudeBits": (31, 32),
           "numBitPlanes": (8, 12), "numPasses": (1, 22), "codeStyle": (0, 64), "chroma": (0, 2), "modelBits": (0, 16),
           "trimBits": (0, 16), "flexBits": (0, 16), "group": (0, 2), "scanIndex": (0, 3), "passNumber": (0, 3),
           "termPassNumber": (0, 1), "phase": (0, 2), "alpha": (0, 256), "scale": (1, 100), "refine": (0, 2),
           "fromResidual": (0, 2), "prevByte": (0, 256), "reserved": (0, 1)}


def drawn_arguments(name, random, memory):
    """Arguments of a function: drawn sizes, arrays in guarded memory, with what a call reads around them."""
    plan = plan_of(name)
    side = lambda: int(random.choice([1, 2, 3, 4, 5, 7, 8, 12, 15, 16, 17, 31, 32, 33, 40, 65]))  # noqa: E731
    known = {symbol: side() for symbol in ("w", "h", "sw", "sh", "width", "height", "srcWidth", "len")}
    if plan.group == "colour_planes":
        known["w"], known["h"] = known["w"] + 1, known["h"] + 1
    if plan.group == "photo_core":
        known["w"], known["h"] = 4 * known["w"], 4 * known["h"]
    if plan.group == "resampling" and "Row" not in name:
        known.update({symbol: _functions.value_of(rule, known) or 1 for symbol, rule in plan.derived.items()})
    known.update({"x": int(random.integers(2)), "y": int(random.integers(2)), "srcLen": 150, "dstLen": 700,
                  "channels": int(random.integers(1, 5)), "numSegments": 3, "pairCount": int(random.integers(0, 7)),
                  "dstBitPos": 0, "srcBitPos": 0, "dstPos": 0, "bits": qelj.typical.ac_bits[0],
                  "segmentLengths": np.full(3, 20)})
    known.update({key: int(random.integers(*limits)) for key, limits in NUMBERS.items()})
    if "PackBits" in name and "Unpack" not in name:
        known["srcLen"] = 600
    elif "Unpack" in name:
        known["dstLen"] = int(random.integers(1, 80))
    arguments, sizes = {}, {}

    def array_of(one, shape):
        dims = tuple(max(_functions.value_of(dim, known), 0) for dim in shape.dims)
        dtype = _plan.ELEMENTS[one.base]
        around = tuple(max(_functions.value_of(part, known), 0) for part in shape.around or ())
        if shape.kind == "rows":
            above, below, left, right = around or (0, 0, 0, 0)
            whole = memory.array((dims[0] + above + below, dims[1] + left + right, *dims[2:]), dtype)
            return fill(whole, random, one.name)[above:above + dims[0], left:left + dims[1]]
        if shape.kind == "cursor":
            return fill(memory.array(dims if not one.const else (50,), dtype), random, one.name)
        if shape.pad == "srcBitPos":
            dims = (90,)
        return fill(memory.array((dims[0] + sum(around), *dims[1:]), dtype), random, one.name)[:dims[0]]

    for one in plan.parameters:
        if one.role in ("array", "cursor"):
            if not one.shape.work or random.integers(2):
                arguments[one.name] = known[one.name] = array_of(one, one.shape)
        elif one.role == "planes":
            shapes = [one.shape[1]] * known["channels"] if isinstance(one.shape[0], str) else one.shape
            arguments[one.name] = [array_of(one, shape) for shape in shapes]
        elif one.role == "record" and (one.required or "flush" in known and one.name != "spec"):
            if one.required or not one.result:
                arguments[one.name] = record_for(one.base, name, random)
        elif one.role == "records":
            arguments[one.name] = [record_for(one.base, name, random)] * known["channels"]
        elif one.role in ("size", "tile"):
            value = tuple(known[part] for part in _plan.SIZES[one.name])
            (arguments if one.required else sizes)[one.name] = value
        elif one.role == "number":
            (arguments if one.name in NUMBERS else sizes)[one.name] = known[one.name]
    if "tile" in sizes:  # arrays say nothing of its origin
        arguments["tile"] = sizes.pop("tile")
    return arguments, sizes
