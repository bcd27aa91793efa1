"""Arrays as the library takes them: addresses, steps between rows, and what lies around a region."""
import math

import numpy as np

ALIGNMENT = 64
MOST = 2 ** 31 - 1


def zeros(shape, dtype):
    """A new array of zeros whose first element stands at a multiple of 64 bytes, as the MCU conversions ask for."""
    dtype = np.dtype(dtype)
    shape = (shape,) if isinstance(shape, int) else tuple(shape)
    size = dtype.itemsize * math.prod(shape)
    memory = np.zeros(size + ALIGNMENT, np.uint8)
    start = -memory.ctypes.data % ALIGNMENT
    return memory[start:start + size].view(dtype).reshape(shape)


def compact(array):
    """A copy without gaps."""
    copy = zeros(array.shape, array.dtype)
    copy[...] = array
    return copy


def bounds(array):
    """First address of the memory that an array is a view of, and the one behind its last."""
    while isinstance(array.base, np.ndarray):
        array = array.base
    low = high = array.ctypes.data
    for size, stride in zip(array.shape, array.strides):
        low += min((size - 1) * stride, 0)
        high += max((size - 1) * stride, 0)
    return low, high + array.itemsize


def given(value, dtype, written, what):
    """The value as an array of that type, without a copy wherever it has memory of its own."""
    if isinstance(value, np.ndarray):
        array = value
    elif isinstance(value, (bytes, bytearray, memoryview)):
        array = np.asarray(memoryview(value))
        if array.dtype.itemsize == 1 and dtype == np.uint8:
            array = array.view(np.uint8)
    elif isinstance(value, (list, tuple)) and not written:
        numbers = np.asarray(value)
        array = numbers.astype(dtype)
        if numbers.dtype.kind not in "iuf" or not np.array_equal(numbers, array):
            raise ValueError(f"{what}: the numbers don't fit {dtype}")
    elif hasattr(value, "__array_interface__") or hasattr(value, "__array__"):
        array = np.asarray(value)
    else:
        try:
            array = np.asarray(memoryview(value))
        except TypeError:
            raise TypeError(f"{what} is to be an array of {dtype}, not {type(value).__name__}") from None
    if array.dtype != dtype:
        raise TypeError(f"{what} is to be an array of {dtype}, not of {array.dtype}")
    if written and not array.flags.writeable:
        raise ValueError(f"{what} is read-only, and would be written")
    return array


def has_compact_pixels(array):
    """Whether the elements of each row follow one another without a gap."""
    if array.size == 0:
        return True
    expected = array.itemsize
    for size, stride in zip(array.shape[:0:-1], array.strides[:0:-1]):
        if size > 1 and stride != expected:
            return False
        expected *= size
    return True


def row_bytes(array):
    return array.itemsize * math.prod(array.shape[1:])


def step_of(array, written, upwards):
    """Bytes from a row to the next, or None where the library cannot walk the array."""
    if not has_compact_pixels(array):
        return None
    width = max(row_bytes(array), 1)
    step = array.strides[0]
    if array.shape[0] < 2:  # it has a role only where rows around it are looked at
        return step if width <= step <= MOST else width
    if step < 1 and not (upwards and step):
        return None
    if written and abs(step) < width or abs(step) > MOST:
        return None
    return step
