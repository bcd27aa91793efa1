"""What each parameter of each function is: an array and its shape, a record, a size, a step, a number.

The types come from the header. What it says in words, how much memory a pointer stands for, is the table SHAPES below:
a pointer to numbers that is neither there nor among the results is refused when the package is assembled.
"""
import re

# Numbers that a call hands back through a pointer, and what they are before the call: those that a caller may set, and
# those that are results alone. `count` begins as "overrun", which two decoders tell by leaving it as it was.
READ_AND_UPDATED = {"srcPos": 0, "dstPos": 0, "srcBitPos": 0, "dstBitPos": 0, "lastDC": 0, "marker": 0, "bitBuffer": 0,
                    "bitCount": 0, "dstLen": None}  # the last is what `dst` has
RESULTS = {"size": 0, "stateSize": 0, "isNotFinished": 0, "numBitPlanes": 0, "numPasses": 0, "numTermPasses": 0,
           "rate": 0, "dist": 0, "length": 0, "bitPlane": 0, "bitPlaneReached": 0, "pairCount": 0, "count": 16}
# Numbers that have a usual value.
DEFAULTS = {"flush": 0, "last": 0, "reserved": 0, "prevByte": 0, "codeStyle": 0, "alpha": 255, "phase": 0,
            "pointTransform": 0, "trimBits": 0, "fromResidual": 0, "refine": 0, "scale": 1, "chroma": 0}
# What the values of a size parameter are called in the shapes.
SIZES = {"size": ("w", "h"), "srcSize": ("sw", "sh"), "dstSize": ("dw", "dh"), "tile": ("x", "y", "w", "h")}
ELEMENTS = {"uint8_t": "uint8", "uint16_t": "uint16", "int16_t": "int16", "uint32_t": "uint32", "int32_t": "int32",
            "float": "float32"}
RECORDS = {"QelDecodeHuffmanSpec": "DecodeHuffmanSpec", "QelEncodeHuffmanSpec": "EncodeHuffmanSpec",
           "QelDecodeHuffmanState": "DecodeHuffmanState", "QelEncodeHuffmanState": "EncodeHuffmanState",
           "QelEncodeStateJPEG2K": "EncodeStateJPEG2K", "QelDecodeStateJPEG2K": "DecodeStateJPEG2K",
           "VLCState": "VLCState"}


WORD = re.compile(r"[A-Za-z]\w*")


class Shape:
    """What a pointer stands for. Dimensions are numbers or expressions in sizes, numbers and arrays of the call.

    kind     "rows": rows a step apart, of compact pixels; "flat": compact; "stream": one dimension, at least as long;
             "cursor": a stream and a place in it, of which `dims` is what a call may write or read from there
    around   what is read or written beyond rows above, below, left, right; beyond a flat array, behind its end
    names    what the array's own dimensions are called, where a call takes them in themselves
    least    the array may be larger
    work     memory that a call only works in
    pad      a source may be copied to have readable bytes behind it
    null     the number that tells, when it is not 0, that the caller may leave the source out
    direct   no copy would do: the library keeps the address
    private  copied first: other shapes follow from what is in it, whatever another thread writes there
    """
    __slots__ = ("kind", "dims", "around", "names", "least", "work", "pad", "null", "direct", "required", "private",
                 "words")

    def __init__(self, kind, dims, around=None, names=(), least=False, work=False, pad=None, null=None, direct=False,
                 required=False, private=False):
        self.kind, self.dims, self.names, self.least, self.work = kind, dims, names, least, work
        self.around, self.pad, self.null, self.direct = around, pad, null, direct
        self.required, self.private = required, private
        self.words = {word for dim in dims for word in WORD.findall(str(dim))}


def rows(*dims, **options):
    return Shape("rows", dims, **options)


def flat(*dims, **options):
    return Shape("flat", dims, **options)


def stream(length, **options):
    return Shape("stream", (length,), least=True, **options)


def cursor(most):
    return Shape("cursor", (most,))


def planes(*shapes):
    return list(shapes)


BLOCK = flat(8, 8)
ROW = flat("width")
LINES = {name: ROW for name in (
    "src prevRow dst srcEven srcOdd srcEvenNext dstLow srcHighPrev dstHigh srcLow srcHigh srcEvenPrev dstOdd dstEven "
    "srcEvenDone dstLowNext dstHighNext dstOddNext dstEvenNext").split()}
LINES.update({name: flat("width", required=True) for name in (
    "srcDstLow srcDstHigh srcDstHighNext srcDstOdd srcDstEven").split()})


def filtered(along, before, behind, odd_before, odd_behind):
    """The samples around a region that a wavelet reads along its rows or columns, by phase."""
    ends = (f"{odd_before} if phase else {before}", f"{odd_behind} if phase else {behind}")
    return (0, 0, *ends) if along == "Row" else (*ends, 0, 0)


def wavelet(along, forward, low, high):
    """The shapes of a wavelet along rows or columns: two bands of w by h, and twice as much of the signal."""
    signal = ("h", "2*w") if along == "Row" else ("2*h", "w")
    band = ("h", "w")
    if forward:
        return {"src": rows(*signal, around=filtered(along, *forward)), "dstLow": rows(*band), "dstHigh": rows(*band)}
    return {"srcLow": rows(*band, around=filtered(along, *low)), "srcHigh": rows(*band, around=filtered(along, *high)),
            "dst": rows(*signal)}


def whole_tile(name):
    margin, item = (4 if "_B53_" in name else 8), (2 if "_16s_" in name else 4)
    buffer = f"{item}*(max(w, h)+{margin})"
    bands = planes(*[rows(height, width) for width in ("(w+1)//2", "w//2") for height in ("(h+1)//2", "h//2")])
    if name.endswith("_C1IR"):
        return {"srcDst": rows("h", "w"), "buffer": flat(f"max({buffer}, 1)", work=True, least=True)}
    image = rows("h", "w")
    return {"src": image if "Fwd" in name else bands, "dst": bands if "Fwd" in name else image,
            "buffer": flat(f"{buffer} + h*(({item}*w+31)//32*32)", work=True, least=True)}


def mcu(name, pixels):
    width, height, luma = {"444": (8, 8, 1), "422": (16, 8, 2), "411": (16, 16, 4)}[re.search("4[421][421]", name)[0]]
    blocks = planes(flat(luma, 8, 8), flat(1, 8, 8), flat(1, 8, 8), *[flat(luma, 8, 8)] * name.count("YCCK"))
    image = rows(height, width, *pixels)
    return (blocks, image) if name.endswith("R") and re.search("P[34]C", name) else (image, blocks)


def layouts(name):
    """Shapes of source and destination by the layout that a name ends in, and the number of pixels' channels."""
    source, first, target, second = re.search(r"_([CP])([1-4])(?:([CP])([1-4]))?I?R$", name).groups()
    target, second = target or source, second or first
    sides = []
    for kind, count in ((source, int(first)), (target, int(second))):
        packed = re.search("555|565", name)  # one word a pixel
        pixel = (count,) if kind == "C" and count > 1 and not packed else ()
        sides.append((planes(*[rows("h", "w")] * count) if kind == "P" else rows("h", "w", *pixel), pixel))
    return sides


def colour_planes(name):
    (source, pixel), (target, target_pixel) = layouts(name)
    if "C2C3R" in name:  # an odd width takes its last pair whole
        beside = (0, 0, 0, "w % 2")
        return {"src": rows("h", "w", 2, around=beside), "dst": rows("h", "w", 3, around=beside)}
    chroma = rows("h//2" if "411" in name else "h", "w//2")
    subsampled = planes(rows("h", "w"), chroma, chroma)
    return {"src": source, "dst": subsampled} if pixel else {"src": subsampled, "dst": target}


def by_layout(name):
    (source, _), (target, _) = layouts(name)
    return {"src": source, "dst": target, "srcDst": source}


def resampling(name):
    if "Row" in name:
        short = "1 if srcWidth % 2 and srcWidth < 32 else 0"
        source = flat("srcWidth", around=(short if "DownRowH2V2" in name else 0,))
        target = {"DownRowH2V1": "srcWidth//2", "DownRowH2V2": "srcWidth//2 if srcWidth >= 32 else (srcWidth+1)//2"}
        return {"src": source, "src1": source, "src2": source,
                "dst": flat(next((dims for part, dims in target.items() if part in name), "2*srcWidth"))}
    down, both = "Down" in name, "H2V2" in name
    height, width = (("2*dh" if both else "dh"), "2*dw") if down else ("(dh+1)//2" if both else "dh", "(dw+1)//2")
    around = None if down else ("1" if both else 0, "1 - dh % 2" if both else 0, 1, 1)
    return {"src": rows(height, width, names=("sh", "sw"), least=True, around=around), "dst": rows("dh", "dw")}


def textures(name):
    number = "8" if re.search("DXT1|BC4", name) else "16"
    width, height = ("width", "height") if "BC6" in name else ("w", "h")
    blocks = f"{number}*(({width}+3)//4)*(({height}+3)//4)"
    (_, pixel), (_, target) = layouts(name)
    if "Decode" in name:
        return {"src": stream(blocks), "dst": rows(height, width, *target)}
    return {"src": rows(height, width, *pixel), "dst": flat(blocks)}


def photo_core(name):
    fixed = re.search(r"(\d+)x(\d+)_", name)
    return {"srcDst": rows(int(fixed[2]), int(fixed[1])) if fixed else rows("h", "w")}


def huffman(name):
    difference = "HuffmanOne" in name or "StatisticsOne" in name
    unit = flat(1) if difference else BLOCK
    if "HuffmanRow" in name:
        unit = ["channels", flat("width")]
    shapes = {name: flat(256, required=True) for name in ("statistics", "dcStatistics", "acStatistics")}
    if name.startswith("qeliEncode"):
        return {"src": nullable(unit, "flush"), "dst": stream("dstLen", required=True), **shapes}
    if name.startswith("qeliDecode"):
        if "Refine" in name:
            unit = flat(8, 8, required=True)
        return {"src": stream("srcLen"), "dst": unit}
    return {"src": nullable(unit, "last"), **shapes}


def nullable(shape, condition):
    if isinstance(shape, list):
        return [shape[0], nullable(shape[1], condition)]
    return Shape(shape.kind, shape.dims, null=condition)


# Most bytes that a call writes, or may read, from its place in a stream.
def vlc(name):
    if "Encode" in name:
        most = 32 if "FLC" in name else 124 if "DC4" in name else 58 if "_16s1u" in name else 98
    else:
        most = 48 if "FLC" in name else {"DC420": 56, "DC422": 106}.get(name[len("qeliVLCDecode"):][:5], 112)
    values = 14 if "DC422" in name else 6 if "DC420" in name else 16
    return {"stream": cursor(most), "src": rows(4, 4), "srcDst": rows(4, 4), "residual": flat(16),
            "pairs": flat("2*pairCount", least=True),
            "dst": flat(values) if "DC4" in name else rows(4, 4)}


# By group of the header: the shapes of a function, by its name.
SHAPES = {
    "level_shift": by_layout, "colour_forward": by_layout, "colour_inverse": by_layout,
    "component_transforms": by_layout, "colour_planes": colour_planes, "resampling": resampling,
    "mcu_forward": lambda name: dict(zip(("src", "dst"), mcu(name, layouts(name)[0][1]))),
    "mcu_inverse": lambda name: dict(zip(("src", "dst"), mcu(name, layouts(name)[1][1]))),
    "quantisation": lambda name: {
        "rawTable": flat(64), "srcDst": BLOCK, "table": flat(64, required=True) if "Raw" in name else BLOCK},
    "dct_forward": lambda name: {
        "src": rows(8, 8) if "LS" in name else BLOCK, "dst": BLOCK, "srcDst": BLOCK, "table": BLOCK},
    "dct_inverse": lambda name: {
        "src": BLOCK, "dst": rows(8, 8) if "LS" in name else BLOCK, "srcDst": BLOCK, "table": BLOCK},
    "dct_reduced": lambda name: {
        "src": BLOCK, "dst": rows(*[{"To2x2": 2, "To4x4": 4}.get(name[len("qeliDCTQuantInv8x8"):][:5], 8)] * 2),
        "table": BLOCK},
    "huffman_records": lambda name: {"bits": flat(16, private=True), "vals": stream("min(total(bits), 256)")},
    "huffman_baseline": lambda name: {
        **huffman(name),
        # No length: what one block may take stands behind the place, or is put there.
        **({"src": stream("0", pad="srcBitPos")} if "DecodeHuffman8x8_Direct" in name else
           {"dst": stream("(max(dstBitPos, 0) >> 3) + 513", required=True)} if "_Direct" in name else {})},
    "huffman_progressive": huffman, "huffman_statistics": lambda name: (
        {"statistics": flat(256), "bits": flat(16), "vals": flat(256)} if "RawTable" in name else huffman(name)),
    "lossless": lambda name: LINES if "Pred" in name else huffman(name),
    "wavelet_53": lambda name: (
        LINES if "Lift" in name else wavelet("Row" if "Row" in name else "Col", "Fwd" in name and (2, 1, 1, 2),
                                             (0, 1, 1, 0), (1, 1, 1, 1))),
    "wavelet_97": lambda name: (
        LINES if "Lift" in name else wavelet("Row" if "Row" in name else "Col", "Fwd" in name and (4, 3, 3, 4),
                                             (1, 2, 2, 1), (2, 2, 2, 2))),
    "wavelet_tiles": whole_tile,
    "codeblock_encoder": lambda name: {"src": rows("h", "w"), "dst": flat("dstLen", required=True)},
    "codeblock_decoder": lambda name: {
        "src": stream("total(segmentLengths[:max(numSegments, 0)])"), "dst": rows("h", "w"),
        "segmentLengths": flat("numSegments", least=True, private=True),
        "state": flat("state_bytes(w, h)", work=True, least=True)},
    "codeblock_progressive": lambda name: {"src": stream("srcLen"), "dst": rows("h", "w", direct=True, required=True)},
    "photo_core": photo_core,
    "vlc_state": lambda name: {"src": flat(16), "residual": flat(16), "runLevel": flat(15, 2)},
    "vlc_blocks": vlc, "vlc_dc": vlc, "flc": vlc,
    "texture_decoding": textures, "texture_encoding": textures, "bc6": textures, "bc7": textures,
    "tiff_rows": lambda name: {
        "src": flat("len") if "Split" in name else planes(flat("len"), flat("len")) if "Join" in name else
        stream("srcLen", pad="1" if "Unpack" in name else None),
        "dst": planes(flat("len"), flat("len")) if "Split" in name else flat("len") if "Join" in name else
        stream("dstLen")},
}
# Sizes that follow from others, where neither the caller nor an array says.
DERIVED = {
    "qeliSampleDownH2V1_JPEG_8u_C1R": {"dh": "sh", "dw": "sw//2"},
    "qeliSampleDownH2V2_JPEG_8u_C1R": {"dh": "sh//2", "dw": "sw//2"},
    "qeliSampleUpH2V1_JPEG_8u_C1R": {"dh": "sh", "dw": "2*sw"},
    "qeliSampleUpH2V2_JPEG_8u_C1R": {"dh": "2*sh", "dw": "2*sw"},
    "qeliPackBitsRow_TIFF_8u_C1": {"dstLen": "dstPos + srcLen + (srcLen+127)//128"},
}
# Rows may go upwards.
UPWARDS = re.compile("Texture|C4P3R|P3C4R|YCbCr4[21][21].*_JPEG_8u|_JPEGXR")


def parsed(declaration):
    """The parameters of a declaration in one line: name, base type, how often a pointer, whether it points to const."""
    inside = declaration[declaration.index("(") + 1:declaration.rindex(")")]
    found = []
    for text in inside.split(","):
        match = re.fullmatch(r"\s*(const )?(\w+)((?:\*| const)*) (\w+)(\[\d\])?\s*", text)
        if text.strip() == "void":
            continue
        if not match:
            raise ValueError(f"not understood: {text} in {declaration}")
        const, base, stars, name, array = match.groups()
        found.append((name, base, stars.count("*") + bool(array), bool(const)))
    return found


class Parameter:
    """A parameter of C, and what becomes of it in Python.

    role      "array", "planes", "cursor"; "record", "allocated" (by the library), "records"; "step", "steps" (of the
              array `of`), "size", "tile"; "number", "result" (behind a pointer)
    python    whether callers give it; required: whether they must
    result    whether it is among what a call returns
    """
    __slots__ = ("name", "base", "const", "role", "shape", "python", "required", "default", "result", "of")

    def __init__(self, name, base, const):
        self.name, self.base, self.const = name, base, const
        self.role = self.shape = self.default = self.of = None
        self.python, self.required, self.result = True, False, False


class Plan:
    def __init__(self, name, group, declaration):
        self.name, self.group = name, group
        shapes = SHAPES.get(group, lambda name: {})(name)
        fields = parsed(declaration)
        names = {field[0] for field in fields}
        self.parameters = [self.parameter(*field, shapes, names) for field in fields]
        self.derived = DERIVED.get(name, {})
        self.upwards = bool(UPWARDS.search(name))
        # Sizes, and numbers that stand in the shapes of arrays, may be left to these.
        symbols, arrays = set(), False
        for parameter in self.parameters:
            if parameter.role in ("array", "planes"):
                arrays = True
                shape = parameter.shape
                for one in shape if isinstance(shape, list) else [shape]:
                    symbols.update({one} if isinstance(one, str) else one.words)
        for parameter in self.parameters:
            if parameter.role in ("size", "tile"):
                parameter.required = not arrays
            elif parameter.role == "number" and parameter.name in symbols:
                parameter.required, parameter.default = False, None
            elif parameter.role == "number" and parameter.name in DEFAULTS:
                parameter.required, parameter.default = False, DEFAULTS[parameter.name]
        self.results = [parameter for parameter in self.parameters if parameter.result]

    def parameter(self, name, base, stars, const, shapes, names):
        one = Parameter(name, base, const)
        record = RECORDS.get(base, "DecodeStateJPEG2K" if base == "void" else None)
        makes = re.search("(Spec|State)Init(Alloc)?_|VLCInit_|CBProgrInit|EncodeInitAlloc_", self.name)
        if name.endswith("Step") and stars < 2 and base == "int32_t":
            one.role, one.of, one.python = "steps" if stars else "step", name[:-len("Step")], False
        elif name in SIZES and base in ("QelSize", "QelRect"):
            one.role = "tile" if base == "QelRect" else "size"
        elif record and stars == 2 and not const:
            one.role, one.base, one.python, one.result = "allocated", record, False, True
        elif record:
            one.role, one.base = "records" if stars == 2 else "record", record
            one.result = bool(makes)
            one.required = not makes or record == "DecodeStateJPEG2K"
            if self.name.startswith("qeliEncode") and "flush" in names and name != "state":
                one.required = False  # not looked at in a flush
        elif stars == 0:
            one.role, one.required = "number", True
        elif name in shapes and base in ELEMENTS:
            shape = one.shape = shapes[name]
            first = (shape[1] if isinstance(shape[0], str) else shape[0]) if isinstance(shape, list) else shape
            one.role = "cursor" if first.kind == "cursor" else "planes" if stars == 2 else "array"
            one.required = not first.work and (const and not first.null or first.required or "srcDst" in name
                                               or one.role == "cursor")
            one.result = not const and not first.work and one.role != "cursor"
        elif stars == 1 and not const and (name in READ_AND_UPDATED or name in RESULTS):
            one.role, one.result = "result", True
            one.python = name not in RESULTS
            one.default = READ_AND_UPDATED[name] if one.python else RESULTS[name]
        else:
            raise ValueError(f"{self.name}: nothing is known of {name}")
        return one
