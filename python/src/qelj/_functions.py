"""The functions of qelj.h, each made from its declaration and its plan."""
import collections
import contextlib
import functools
import inspect
import operator
import warnings

import numpy as np

from . import _arrays, _plan, _table
from ._errors import Error, StatusWarning
from ._library import ffi, lib
from ._records import C_NAMES, KINDS, number, size_record

# A call of the Direct decoder looks at fewer bytes than this: 64 symbols of up to 32 bits, each byte perhaps stuffed.
DIRECT_READS = 1024


def state_bytes(width, height):
    return number("qeliDecodeGetBufSize_JPEG2K", size_record((width, height)))


@functools.lru_cache(None)
def compiled(expression):
    return compile(expression, "shape", "eval")


def total(array):
    return int(array.sum(dtype=np.uint64))


GLOBALS = {"__builtins__": {}, "max": max, "min": min, "total": total, "state_bytes": state_bytes}


def value_of(expression, known):
    if isinstance(expression, int):
        return expression
    return known[expression] if expression in known else eval(compiled(expression), GLOBALS, known)


class Call:
    """One call: its arguments on their way to C."""

    def __init__(self, function, values):
        self.function, self.plan, self.values = function, function.plan, values
        self.known = {}      # sizes, numbers and arrays, by name
        self.said = set()    # the sizes that the caller gave, rather than the arrays
        self.arrays = {}     # what is handed over, by parameter: an array, or a tuple of planes
        self.returned = {}   # what the call returns of these
        self.behind = []     # copies to be written back: (array, copy)
        self.kept = []       # what has to live until the call is over
        self.locks = contextlib.ExitStack()

    def what(self, name, index=None):
        return f"{self.plan.name}: {name}" + ("" if index is None else f"[{index}]")

    # --- sizes ---

    def take_sizes(self):
        """What the caller says of sizes and numbers."""
        for one in self.plan.parameters:
            value = self.values.get(one.name)
            if one.role in ("size", "tile"):
                names = _plan.SIZES[one.name]
                if value is not None:
                    value = tuple(value)
                    if len(value) != len(names):
                        raise TypeError(f"{self.what(one.name)} is to be ({', '.join(names)})")
                    self.known.update(zip(names, map(operator.index, value)))
                    self.said.update(names)
            elif one.role in ("number", "result"):
                if value is not None:
                    self.known[one.name] = operator.index(value)
                    self.said.add(one.name)
                    if one.name == "dstBitPos" and value < 0:  # which the library doesn't look at
                        raise ValueError(f"{self.what(one.name)} is below 0")

    def take_arrays(self):
        """The caller's arrays, and what their shapes say of sizes."""
        for one in self.plan.parameters:
            if one.role not in ("array", "planes", "cursor"):
                continue
            value = self.values.get(one.name)
            if value is None:
                if one.required:
                    raise TypeError(f"{self.what(one.name)} is missing")
                continue
            dtype = self.function.dtypes[one.name]
            if one.role == "planes":
                shapes = self.plane_shapes(one, len(value))
                arrays = tuple(_arrays.given(plane, dtype, not one.const, self.what(one.name, i))
                               for i, plane in enumerate(value))
                for array, shape in zip(arrays, shapes):
                    self.learn(array, shape)
                self.arrays[one.name] = arrays
            else:
                array = _arrays.given(value, dtype, not one.const, self.what(one.name))
                if one.shape.private:
                    array = array.copy()
                self.arrays[one.name] = self.known[one.name] = array
                if one.role == "array":
                    self.learn(array, one.shape)
        if "tile" in self.function.roles:
            self.known.setdefault("x", 0)
            self.known.setdefault("y", 0)
            if "w" not in self.known:
                self.learn_tile()
        for name, expression in self.plan.derived.items():
            if name not in self.known:
                with contextlib.suppress(NameError):
                    self.known[name] = value_of(expression, self.known)

    def plane_shapes(self, one, count):
        """The shapes of planes, as many as there are."""
        if isinstance(one.shape[0], str):
            symbol, shape = one.shape
            if symbol not in self.said:
                self.known.setdefault(symbol, count)
            elif count < min(self.known[symbol], 4):
                raise ValueError(f"{self.what(one.name)} is to have {self.known[symbol]} planes, not {count}")
            return [shape] * count
        if count != len(one.shape):
            raise ValueError(f"{self.what(one.name)} is to have {len(one.shape)} planes, not {count}")
        return one.shape

    def learn(self, array, shape):
        """Sizes that nobody has said yet, from an array whose dimension is such a size, or so many times one."""
        dims = shape.dims
        if shape.names:
            for name, size in zip(shape.names, array.shape):
                self.known.setdefault(name, size)
        sizes = array.shape if shape.kind == "rows" else (array.size,) if len(dims) == 1 else ()
        for dim, size in zip(dims, sizes):
            if isinstance(dim, str):
                factor, star, symbol = dim.rpartition("*")
                if symbol.isidentifier() and (not star or factor.isdigit()):
                    self.known.setdefault(symbol, size // int(factor or 1))

    def learn_tile(self):
        """A tile's size from its four bands."""
        bands = next((arrays for arrays in self.arrays.values() if isinstance(arrays, tuple)), None)
        if bands and all(band.ndim == 2 for band in bands):
            self.known["w"] = bands[0].shape[1] + bands[2].shape[1]
            self.known["h"] = bands[0].shape[0] + bands[1].shape[0]

    def dims(self, shape, name):
        try:
            return tuple(value_of(dim, self.known) for dim in shape.dims)
        except NameError as error:
            raise TypeError(f"{self.what(name)}: nothing says what {error.name} is; give an array or a size") from None

    def around(self, shape):
        if not shape.around:
            return (0, 0, 0, 0)
        return tuple(value_of(part, self.known) for part in shape.around)

    # --- arrays ---

    def place(self, one):
        """An array or planes as they are handed over: the caller's, a copy that can be, or a new one."""
        shape, arrays = one.shape, self.arrays.get(one.name)
        if one.role == "array":
            array = self.made(one, shape, None) if arrays is None else self.fitted(one, shape, arrays, None)
            self.arrays[one.name] = array
            return
        if arrays is None:
            if isinstance(shape[0], str):
                unused = shape[1].null and self.known.get(shape[1].null)
                count = 0 if unused else self.dims(_plan.flat(shape[0]), one.name)[0]
            else:
                count = len(shape)
            arrays = [None] * count
        shapes = self.plane_shapes(one, len(arrays))
        placed = [self.made(one, plane_shape, i) if array is None else self.fitted(one, plane_shape, array, i)
                  for i, (array, plane_shape) in enumerate(zip(arrays, shapes))]
        if self.function.steps.get(one.name) == "step":  # one for all planes
            steps = [_arrays.step_of(array, not one.const, self.plan.upwards) for array in placed]
            if len({step for step, array in zip(steps, placed) if array.shape[0] > 1}) > 1:
                placed = [self.copied(one, array, i) for i, array in enumerate(placed)]
        self.arrays[one.name] = tuple(placed)

    def made(self, one, shape, index):
        if not shape.work and not one.result:
            if shape.null and self.known.get(shape.null):
                return None
            raise TypeError(f"{self.what(one.name, index)} is missing")
        dims = tuple(max(dim, 0) for dim in self.dims(shape, one.name))
        beside = self.around(shape)[-1]
        if beside:
            wide = (dims[0], dims[1] + beside, *dims[2:])
            return _arrays.zeros(wide, self.function.dtypes[one.name])[:, :dims[1]]
        return _arrays.zeros(dims, self.function.dtypes[one.name])

    def fitted(self, one, shape, array, index):
        """The caller's array, after its shape and layout were found to be what the call will touch."""
        dims, what = self.dims(shape, one.name), self.what(one.name, index)
        if shape.kind == "rows":
            said = shape.least or not self.said.isdisjoint(shape.words)
            fits = array.ndim == len(dims) and array.shape[2:] == dims[2:] and (
                all(size >= dim for size, dim in zip(array.shape, dims)) if said else array.shape == dims)
            if not fits:
                raise ValueError(f"{what} is to have the shape {dims}{' or more' if said else ''}, not {array.shape}")
            if said and not shape.names:
                array = array[tuple(slice(max(dim, 0)) for dim in dims[:2])]
            return self.laid_out(one, shape, array, index)
        count = 1
        for dim in dims:
            count *= dim
        said = shape.least or not self.said.isdisjoint(shape.words)
        if array.size != count if not said else array.size < count:
            raise ValueError(f"{what} is to have {count} elements{' or more' if said else ''}, not {array.size}")
        if not array.flags.c_contiguous:
            array = self.copied(one, array, index)
        behind = self.around(shape)[0] if shape.around else 0
        if behind and array.ctypes.data + (count + behind) * array.itemsize > _arrays.bounds(array)[1]:
            raise ValueError(f"{what}: {behind} elements behind its end are read, which its memory does not have")
        if shape.pad == "1":
            array = self.padded(array, count)
        return array

    def laid_out(self, one, shape, array, index):
        """The rows of an array, with what the call reads or writes around them."""
        above, below, left, right = around = self.around(shape)
        step = _arrays.step_of(array, not one.const, self.plan.upwards)
        if step is None:
            if shape.direct or max(around) > 0:
                raise ValueError(f"{self.what(one.name, index)}: the library cannot walk this layout, and a copy would "
                                 "not do; give an array whose rows are compact and follow one another")
            return self.copied(one, array, index)
        if max(around) > 0:
            rows, columns = self.dims(shape, one.name)[:2]
            pixel = _arrays.row_bytes(array) // max(array.shape[1], 1)
            first, end = _arrays.bounds(array)
            low = array.ctypes.data - above * step - left * pixel
            high = array.ctypes.data + (rows - 1 + below) * step + (columns + right) * pixel
            if step < 1 or low < first or high > end:
                raise ValueError(
                    f"{self.what(one.name, index)}: the call reaches {above} rows above, {below} below, {left} columns "
                    f"to the left and {right} to the right of it: it is to be a view into an array that has them")
        return array

    def copied(self, one, array, index):
        copy = _arrays.compact(array)
        if not one.const:
            self.behind.append((array, copy))
        return copy

    def padded(self, array, count):
        """The array, if a byte behind its first `count` ones can be read, or a copy where that is so."""
        if array.size > count or array.ctypes.data + count < _arrays.bounds(array)[1]:
            return array
        longer = _arrays.zeros(count + 1, array.dtype)
        longer[:count] = array.reshape(-1)[:count]
        return longer

    # --- C ---

    def pointer(self, base, array):
        return ffi.NULL if array is None else ffi.cast(f"{base}*", array.ctypes.data)

    def cursor(self, one):
        """The place in a stream, with the bytes that the call may touch from there."""
        array, position = self.arrays[one.name], operator.index(self.values["streamPos"])
        if array.ndim != 1 or not array.flags.c_contiguous:
            raise ValueError(f"{self.what(one.name)} is to be an array of one dimension without gaps")
        most = one.shape.dims[0]
        if position < 0:
            raise ValueError(f"{self.plan.name}: streamPos is below 0")
        if one.const and position + most > array.size:
            # The bytes that the data lack: what they hold changes no result.
            tail = _arrays.zeros(most, np.uint8)
            rest = array[position:]
            tail[:rest.size] = rest
            array, start = tail, 0
        elif position + most > array.size:
            raise ValueError(f"{self.what(one.name)} is to have room for {most} bytes from streamPos on")
        else:
            start = position
        self.kept.append(array)
        begin = array.ctypes.data + start
        place = ffi.new(f"{'const ' if one.const else ''}uint8_t**", ffi.cast("uint8_t*", begin))
        self.moved = lambda: position + int(ffi.cast("uintptr_t", place[0])) - begin
        return place

    def window(self, array):
        """For the Direct decoder, which knows no end: its source from the place on, with readable bytes behind it."""
        position = self.known["srcBitPos"] >> 3
        if position < 0 or position + DIRECT_READS <= array.size:
            return array, 0
        tail = _arrays.zeros(2 * DIRECT_READS, np.uint8)
        rest = array.reshape(-1)[position:]
        tail[:rest.size] = rest
        return tail, position

    def record(self, one):
        kind, value = KINDS[one.base], self.values.get(one.name)
        if value is None:
            if not one.result:
                if one.required:
                    raise TypeError(f"{self.what(one.name)} is missing")
                return ffi.NULL
            value = kind()
        elif not isinstance(value, kind):
            raise TypeError(f"{self.what(one.name)} is to be a {kind.__name__}, not a {type(value).__name__}")
        if one.result:
            self.returned[one.name] = value
        if not one.const:
            self.locks.enter_context(value._lock)
        try:
            if "Free" in self.plan.name:
                return value._release()
            if "Attach" in self.plan.name:
                value._admits((self.known["w"], self.known["h"]))
                self.attached = value
            self.kept.append(value)
            return value._at()
        except ValueError as error:
            raise ValueError(f"{self.what(one.name)}: {error}") from None

    def argument(self, one, cells):
        role = one.role
        if role == "array":
            array = self.arrays[one.name]
            if one.shape.pad == "srcBitPos":
                array, skipped = self.window(array)
                self.kept.append(array)
                self.skipped = 8 * skipped
            return self.pointer(one.base, array)
        if role == "planes":
            arrays = self.arrays[one.name]
            pointers = ffi.new(f"{one.base}*[]", [self.pointer(one.base, array) for array in arrays])
            self.kept.append(pointers)
            return pointers
        if role in ("step", "steps"):
            arrays = self.arrays[one.of]
            arrays = arrays if isinstance(arrays, tuple) else (arrays,)
            steps = [_arrays.step_of(array, False, True) for array in arrays]
            if role == "step":  # one row has none that matters
                return next((step for step, array in zip(steps, arrays) if array.shape[0] > 1), steps[0])
            steps = ffi.new("int32_t[]", steps)
            self.kept.append(steps)
            return steps
        if role in ("size", "tile"):
            try:
                values = [self.known[name] for name in _plan.SIZES[one.name]]
            except KeyError as error:
                raise TypeError(f"{self.plan.name}: nothing says what {one.name} is") from error
            return size_record(values) if role == "size" else ffi.new("QelRect*", values)
        if role == "number":
            if one.required and one.name not in self.known:
                raise TypeError(f"{self.what(one.name)} is missing")
            return self.known.get(one.name, one.default or 0)
        if role == "result":
            value = self.known.get(one.name, one.default or 0)
            if one.name == "srcBitPos":
                value -= self.skipped
            cells[one.name] = ffi.new(f"{one.base}*", value)
            return cells[one.name]
        if role == "cursor":
            return self.cursor(one)
        if role == "allocated":
            cells[one.name] = ffi.new(f"{C_NAMES[one.base]}**")
            return cells[one.name]
        if role == "records":
            values = self.values.get(one.name)
            if values is None:
                return ffi.NULL
            kind = KINDS[one.base]
            for value in values:
                if not isinstance(value, kind):
                    raise TypeError(f"{self.what(one.name)} is to hold records of the kind {kind.__name__}")
            if len(values) < min(self.known.get("channels", 0), 4):
                raise ValueError(f"{self.what(one.name)} is to hold {self.known['channels']} tables")
            self.kept.extend(values)
            pointers = ffi.new(f"{C_NAMES[one.base]}*[]", [value._at() for value in values])
            self.kept.append(pointers)
            return pointers
        return self.record(one)

    def run(self):
        self.take_sizes()
        self.take_arrays()
        for one in self.plan.parameters:
            if one.role in ("array", "planes"):
                self.place(one)
        self.skipped, self.moved, cells = 0, None, {}
        self.attached = None
        with self.locks:
            arguments = [self.argument(one, cells) for one in self.plan.parameters]
            status = self.function.call(*arguments)
            if self.attached and status >= 0:
                self.attached._block = self.arrays["dst"]
        for array, copy in reversed(self.behind):  # of a copy's copy, the copy first
            array[...] = copy
        results = self.results(cells)
        if status:
            if status < 0:
                raise Error(status, self.plan.name, results)
            warnings.warn(StatusWarning(status, self.plan.name), stacklevel=3)
        return results

    def results(self, cells):
        values = []
        for one in self.plan.results:
            if one.role == "result":
                value = cells[one.name][0]
                values.append(value + self.skipped if one.name == "srcBitPos" else value)
            elif one.role == "record":
                values.append(self.returned[one.name])
            elif one.role == "allocated":
                values.append(self.wrapped(one, cells[one.name][0]))
            else:
                values.append(self.given_back(one))
        if self.moved:
            values.append(self.moved())
        if len(values) < 2:
            return values[0] if values else None
        return self.function.Results(*values)

    def wrapped(self, one, pointer):
        """The record that the library has allocated, which goes when its object does."""
        if not pointer:
            return None
        record = KINDS[one.base]._allocated(pointer, getattr(lib, self.plan.name.replace("InitAlloc", "Free")))
        if "w" in self.known:
            record._holds((self.known["w"], self.known["h"]))
        return record

    def given_back(self, one):
        """An output as the caller knows it: the array that was given, not the copy that was handed over."""
        value = self.values.get(one.name)
        if value is None:
            return self.arrays[one.name]
        return value


class Function:
    """What is known of one function."""

    def __init__(self, name, group, declaration):
        self.plan = plan = _plan.Plan(name, group, declaration)
        self.call = getattr(lib, name)
        self.dtypes = {one.name: np.dtype(_plan.ELEMENTS[one.base]) for one in plan.parameters
                       if one.role in ("array", "planes", "cursor")}
        self.steps = {one.of: one.role for one in plan.parameters if one.role in ("step", "steps")}
        self.roles = {one.role for one in plan.parameters}
        names = [one.name for one in plan.results] + ["streamPos"] * ("cursor" in self.roles)
        if len(names) > 1:
            self.Results = collections.namedtuple(f"{name}_Results", names)

    def signature(self):
        kind, given = inspect.Parameter, [one for one in self.plan.parameters if one.python]
        required = [kind(one.name, kind.POSITIONAL_OR_KEYWORD) for one in given if one.required]
        optional = [kind(one.name, kind.KEYWORD_ONLY, default=one.default) for one in given if not one.required]
        if "cursor" in self.roles:
            optional.append(kind("streamPos", kind.KEYWORD_ONLY, default=0))
        return inspect.Signature(required + optional)


def made(name):
    """The function of that name, as Python calls it."""
    group, brief, declaration = _table.FUNCTIONS[name]
    function = Function(name, group, declaration)
    signature = function.signature()
    required = [key for key, one in signature.parameters.items() if one.kind == one.POSITIONAL_OR_KEYWORD]
    defaults = {key: one.default for key, one in signature.parameters.items() if one.kind == one.KEYWORD_ONLY}

    def call(*arguments, **named):
        values = {**defaults, **named}
        values.update(zip(required, arguments))
        count = len(arguments) + len(named)
        if len(values) != len(signature.parameters) or count - len(named.keys() & defaults.keys()) != len(required):
            signature.bind(*arguments, **named)  # tells what is wrong
        return Call(function, values).run()

    title, text = _table.GROUPS[group]
    call.__name__ = call.__qualname__ = name
    call.__module__ = "qelj"
    call.__signature__ = signature
    call.__doc__ = f"{brief}\n\n{declaration}\n\n{title}\n\n{text}"
    return call


__all__ = [name for name in _table.FUNCTIONS if name != "qeljGetLibVersion"]


def __getattr__(name):
    # Made when it is asked for: three hundred take a while, and few are used.
    if name not in _table.FUNCTIONS or name == "qeljGetLibVersion":
        raise AttributeError(f"module 'qelj' has no attribute {name!r}")
    return globals().setdefault(name, made(name))
