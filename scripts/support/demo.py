#!/usr/bin/env python3
"""demo.py BUILD IMAGE OUT: takes a photograph through every format and back by the converter in BUILD, measures that
beside the peers' programs, draws what each stage does by the library's own functions, and writes a page of it to OUT.
Prints the table."""
import ctypes
import html
import os
import re
import shutil
import statistics
import subprocess
import sys
import time

import numpy
from PIL import Image

BUILD, IMAGE, OUT = (os.path.abspath(path) for path in sys.argv[1:4])
CONVERTER = os.path.join(BUILD, "examples", "convert", "qelconv")
LIBRARY = ctypes.CDLL(os.path.join(BUILD, "libqelj.so"))
HERE = os.path.dirname(os.path.abspath(__file__))

# Format, in words, ending, options of the writer.
RUNS = [
    ("JPEG", "quality 50, colour halved both ways", "jpg", ["--quality", "50"]),
    ("JPEG", "quality 85, colour halved both ways", "jpg", ["--quality", "85"]),
    ("JPEG", "quality 95, full colour", "jpg", ["--quality", "95", "--sampling", "444"]),
    ("JPEG", "quality 85, coarse to fine", "jpg", ["--quality", "85", "--progressive"]),
    ("JPEG", "without loss", "jpg", ["--lossless", "--predictor", "7"]),
    ("JPEG 2000", "one bit a pixel", "jp2", ["--irreversible", "--rate", "1"]),
    ("JPEG 2000", "a quarter of a bit a pixel", "jp2", ["--irreversible", "--rate", "0.25"]),
    ("JPEG 2000", "without loss", "jp2", []),
    ("JPEG XR", "quality 85", "jxr", ["--quality", "85"]),
    ("JPEG XR", "quality 30", "jxr", ["--quality", "30"]),
    ("JPEG XR", "without loss", "jxr", ["--quality", "100"]),
    ("Texture", "BC1 blocks", "dds", ["--block", "bc1"]),
    ("Texture", "BC3 blocks", "dds", ["--block", "bc3"]),
    ("Texture", "BC7 blocks", "dds", ["--block", "bc7"]),
    ("TIFF", "PackBits", "tif", []),
]

QUALITIES = [10, 20, 35, 50, 65, 80, 90, 95]
CURVES = [
    ("JPEG", "jpg", [["--quality", str(q)] for q in QUALITIES]),
    ("progressive JPEG", "jpg", [["--quality", str(q), "--progressive"] for q in QUALITIES]),
    ("JPEG 2000", "jp2", [["--irreversible", "--rate", str(r)] for r in (0.25, 0.5, 0.75, 1, 1.5, 2, 3, 4)]),
    ("JPEG XR", "jxr", [["--quality", str(q)] for q in (10, 20, 35, 50, 65, 80, 90, 95)]),
    ("BC1", "dds", [["--block", "bc1"]]),
    ("BC3", "dds", [["--block", "bc3"]]),
    ("BC7", "dds", [["--block", "bc7"]]),
]

# What, the peer's name, the ending, the converter's options, and the peer's commands to write and to read.
# {i} is the picture as PPM, {c} the coded file, {o} what it is read back to.
PEERS = [
    ("JPEG, quality 85", "libjpeg-turbo", "jpg", ["--quality", "85"],
     ["cjpeg", "-quality", "85", "-outfile", "{c}", "{i}"], ["djpeg", "-outfile", "{o}", "{c}"]),
    ("JPEG, quality 85, coarse to fine", "libjpeg-turbo", "jpg", ["--quality", "85", "--progressive"],
     ["cjpeg", "-quality", "85", "-progressive", "-outfile", "{c}", "{i}"], ["djpeg", "-outfile", "{o}", "{c}"]),
    ("JPEG 2000, one bit a pixel", "OpenJPEG", "jp2", ["--irreversible", "--rate", "1"],
     ["opj_compress", "-I", "-r", "24", "-i", "{i}", "-o", "{c}"], ["opj_decompress", "-i", "{c}", "-o", "{o}"]),
    ("JPEG 2000, without loss", "OpenJPEG", "jp2", [],
     ["opj_compress", "-i", "{i}", "-o", "{c}"], ["opj_decompress", "-i", "{c}", "-o", "{o}"]),
    ("JPEG XR, without loss", "jxrlib", "jxr", ["--quality", "100"],
     ["JxrEncApp", "-i", "{i}", "-o", "{c}", "-q", "1.0", "-d", "3"],
     ["JxrDecApp", "-i", "{c}", "-o", "{o}", "-c", "9"]),
]


def run(*command):
    done = subprocess.run(list(map(str, command)), stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
    if done.returncode:
        sys.exit(f"{' '.join(map(str, command))}: {done.stdout.decode(errors='replace')}")
    return done.stdout.decode()


def slug(text):
    return re.sub(r"[^a-z0-9]+", "-", text.lower()).strip("-")


def out(name):
    return os.path.join(OUT, name)


def speed(text, last):
    return float([line.split()[3] for line in text.splitlines() if line.split()[:1] == ["together"]][-1 if last else 0])


class Measured:
    """The picture written by the converter, and read back."""
    def __init__(self, name, ending, options, repeat, back="png"):
        self.file, self.back = out(f"{name}.{ending}"), out(f"{name}.back.{back}")
        often = ["-v", "--repeat", str(repeat)]
        self.writing = speed(run(CONVERTER, SOURCE, self.file, *options, *often), True)
        self.reading = speed(run(CONVERTER, self.file, self.back, *often), False)
        self.bytes = os.path.getsize(self.file)
        self.bits = 8 * self.bytes / PIXELS
        told = run(CONVERTER, "--compare", SOURCE, self.back)
        self.psnr = float(re.match(r"(\S+) dB", told)[1])
        self.ssim = float(re.search(r"SSIM (\S+?)[,\s]", told)[1])

    @property
    def exact(self):
        return self.psnr == float("inf")


# --- pictures of the stages, by the library's functions --------------------------------------------------------------

def call(name, *arguments):
    status = getattr(LIBRARY, name)(*arguments)
    if status < 0:
        sys.exit(f"{name} gives {status}")


class Size(ctypes.Structure):
    _fields_ = [("width", ctypes.c_int32), ("height", ctypes.c_int32)]


class Rect(ctypes.Structure):
    _fields_ = [("x", ctypes.c_int32), ("y", ctypes.c_int32), ("width", ctypes.c_int32), ("height", ctypes.c_int32)]


def at(array):
    return ctypes.c_void_p(array.ctypes.data)


def save(array, name, scale=1):
    picture = Image.fromarray(numpy.ascontiguousarray(array))
    if scale != 1:
        picture = picture.resize((picture.width * scale, picture.height * scale), Image.NEAREST)
    picture.save(out(name))
    return name


def planes():
    rows, columns = RGB.shape[:2]
    result = numpy.empty((3, rows, columns), numpy.uint8)
    pointers = (ctypes.c_void_p * 3)(*(plane.ctypes.data for plane in result))
    call("qeliRGBToYCbCr_JPEG_8u_C3P3R", at(RGB), columns * 3, pointers, columns, Size(columns, rows))
    return result


def quantiser(quality):
    raw = numpy.array([16, 11, 12, 14, 12, 10, 16, 14, 13, 14, 18, 17, 16, 19, 24, 40, 26, 24, 22, 22, 24, 49, 35, 37,
                       29, 40, 58, 51, 61, 60, 57, 51, 56, 55, 64, 72, 92, 78, 64, 68, 87, 69, 55, 56, 80, 109, 81, 87,
                       95, 98, 103, 104, 103, 62, 77, 113, 121, 112, 100, 120, 92, 101, 103, 99], numpy.uint8)
    table = numpy.empty(64, numpy.uint16)
    call("qeliQuantFwdRawTableInit_JPEG_8u", at(raw), quality)
    call("qeliQuantFwdTableInit_JPEG_8u16u", at(raw), at(table))
    return table


def coefficients(block, quality):
    block, result = numpy.ascontiguousarray(block), numpy.empty(64, numpy.int16)
    call("qeliDCTQuantFwd8x8LS_JPEG_8u16s_C1R", at(block), 8, at(result), at(quantiser(quality)))
    return result.reshape(8, 8)


def shades(values, scale):
    return numpy.clip(128 + numpy.sign(values) * numpy.log2(1 + numpy.abs(values)) * scale, 0, 255).astype(numpy.uint8)


def busiest(luma, side):
    """Where the detail of a square of `side` is strong but not the strongest: there is something to see."""
    rows, columns = (luma.shape[0] // side, luma.shape[1] // side)
    cut = luma[:rows * side, :columns * side].reshape(rows, side, columns, side).astype(float)
    order = numpy.argsort(cut.std(axis=(1, 3)), axis=None)
    y, x = numpy.unravel_index(order[int(0.9 * (len(order) - 1))], (rows, columns))
    return y * side, x * side


def grid(values, label):
    """64 numbers as a picture; zeros stay empty."""
    most = max(1, int(numpy.abs(values[1:]).max()), int(numpy.abs(values[:, 1:]).max()))
    cells = []
    for y in range(8):
        for x in range(8):
            v = int(values[y, x])
            strength = min(1, numpy.log2(1 + abs(v)) / numpy.log2(1 + most))
            kind = "plus" if v > 0 else "minus"
            cells.append(f'<rect x="{40 * x}" y="{40 * y}" width="39" height="39" class="{kind if v else "none"}" '
                         f'fill-opacity="{strength if v else 1:.2f}"/>')
            if v:
                cells.append(f'<text x="{40 * x + 19.5}" y="{40 * y + 24}">{v}</text>')
    return (f'<svg class="grid" viewBox="0 0 319 319" role="img" aria-label="{html.escape(label)}">'
            f'{"".join(cells)}</svg>')


def wavelet(luma, levels):
    data = luma.astype(numpy.int32) - 128
    rows, columns = data.shape
    rect, size = Rect(0, 0, columns, rows), ctypes.c_int32()
    call("qeliWTGetBufSize_B53_JPEG2K_32s_C1IR", ctypes.byref(rect), ctypes.byref(size))
    buffer = ctypes.create_string_buffer(size.value + 1)
    for _ in range(levels):
        call("qeliWTFwd_B53_JPEG2K_32s_C1IR", at(data), 4 * columns, ctypes.byref(rect), buffer)
        rect = Rect(0, 0, (rect.width + 1) // 2, (rect.height + 1) // 2)
    return data


def bc7_parts():
    """The first block that is parted, its pixels, and which part each belongs to: its end colours replaced by black for
    the first part and white for the second, and decoded."""
    rows, columns = RGB.shape[:2]
    wide = columns // 4
    rgba = numpy.dstack([RGB, numpy.full((rows, columns), 255, numpy.uint8)])
    blocks = numpy.empty((rows // 4 * wide, 16), numpy.uint8)
    size = Size(4 * wide, rows // 4 * 4)
    call("qeliTextureEncodeBlock4x4FromRGBA_BC7_8u_C4C1R", at(rgba), 4 * columns, size, at(blocks))
    parted = [i for i in range(len(blocks)) if blocks[i, 0] & 3 == 2]  # mode 1
    if not parted:
        return None

    def pixels(i):
        return RGB[i // wide * 4:, i % wide * 4:][:4, :4]
    chosen = max(parted, key=lambda i: pixels(i).astype(float).std(axis=(0, 1)).sum())
    bits = int.from_bytes(blocks[chosen].tobytes(), "little")
    for channel in range(3):
        ends = 8 + 24 * channel  # four ends of six bits each: two of either part
        bits = bits & ~(0xFFFFFF << ends) | 0xFFF000 << ends
    changed = numpy.frombuffer(bits.to_bytes(16, "little"), numpy.uint8).copy()
    parts = numpy.empty((4, 4, 4), numpy.uint8)
    call("qeliTextureDecodeBlockToRGBA_BC7_8u_C1C4R", at(changed), at(parts), 16, Size(4, 4))
    return pixels(chosen), parts[:, :, 0] > 127


def picture(name, alt, extra=""):
    width, height = Image.open(out(name)).size
    return f'<img src="{name}" alt="{html.escape(alt)}" width="{width}" height="{height}"{extra}>'


def stages():
    """(title, sentence, pictures) of each."""
    y, cb, cr = planes()
    names = [save(plane[::2, ::2], f"stage-plane-{name}.png") for name, plane in (("y", y), ("cb", cb), ("cr", cr))]
    yield ("Planes",
           "Colour is turned into brightness and two differences from it, of which the eye needs less detail.",
           "".join(picture(name, f"The plane of {what}") for name, what in
                   zip(names, ("brightness", "blue less brightness", "red less brightness"))))
    top, left = busiest(y, 8)
    block = y[top:top + 8, left:left + 8]
    yield ("Cosines", "Each block of 8 by 8 samples becomes 64 weights of cosine waves: slow ones at the top left, "
           "fast ones at the bottom right.",
           picture(save(block, "stage-block.png", 40), "A block of 8 by 8 samples, enlarged", ' class="pixels"')
           + grid(coefficients(block, 100), "The 64 coefficients of the block"))
    kept = coefficients(block, 50)
    zeros = 64 - numpy.count_nonzero(kept)
    down, across = (range(0, sides // 8 * 8, 8) for sides in y.shape)
    share = numpy.array([[numpy.count_nonzero(coefficients(y[r:r + 8, c:c + 8], 50)) for c in across] for r in down])
    yield ("Zeros", f"Divided by the quantiser of quality 50 and rounded, {zeros} of these 64 are zero; over the "
           f"picture it is {100 - 100 * share.mean() / 64:.0f} of 100, and where there is nothing to tell the map is "
           "black.",
           grid(kept, "The quantised coefficients of the block; zeros are empty")
           + picture(save(numpy.clip(share * 8, 0, 255).astype(numpy.uint8), "stage-zeros.png", 4),
                     "How many coefficients of each block are not zero", ' class="pixels"'))
    bands = wavelet(y, 3)
    yield ("Wavelet bands", "Three wavelet levels leave a small picture at the top left, and what it lacks in each "
           "direction around it.",
           picture(save(shades(bands, 22), "stage-bands.png"), "The bands of three wavelet levels"))
    half = numpy.array(y.shape) // 2 + numpy.array(y.shape) % 2
    high = bands[:half[0], half[1]:]
    top, left = busiest(high, 64) if min(high.shape) >= 64 else (0, 0)
    code = numpy.abs(high[top:top + 64, left:left + 64])
    count = int(code.max()).bit_length()
    yield ("Bit-planes", f"A code-block of 64 by 64 samples is coded one bit-plane at a time, from the highest of its "
           f"{count} down: the first ones are nearly empty, and the last may be left away.",
           "".join(picture(save(((code >> bit & 1) * 255).astype(numpy.uint8), f"stage-bit-{bit}.png", 3),
                           f"Bit-plane {bit} of a code-block", ' class="pixels"') for bit in reversed(range(count))))
    parts = bc7_parts()
    if parts:
        shown = numpy.where(parts[1][:, :, None], [230, 140, 40], [40, 110, 190]).astype(numpy.uint8)
        yield ("A parted block", "BC7 may part a block of 4 by 4 pixels by one of 64 shapes, so that each part has two "
               "end colours of its own.",
               picture(save(parts[0], "stage-bc7-block.png", 40), "A block of 4 by 4 pixels, enlarged",
                       ' class="pixels"')
               + picture(save(shown, "stage-bc7-parts.png", 40), "Its two parts", ' class="pixels"'))


# --- the page --------------------------------------------------------------------------------------------------------

def card(index, run_, m):
    kind, words = run_[:2]
    name = slug(f"{kind} {words}")
    back = numpy.asarray(Image.open(m.back).convert("RGB"))
    difference = back.astype(int) - RGB
    save(numpy.clip(128 + 4 * difference, 0, 255).astype(numpy.uint8)[::2, ::2], f"{name}.difference.png")
    # The block of 8 by 8 pixels that is farthest off, amid those around it.
    rows, columns = RGB.shape[0] // 8, RGB.shape[1] // 8
    far = (difference[:8 * rows, :8 * columns] ** 2).reshape(rows, 8, columns, 24).sum(axis=(1, 3))
    y, x = (8 * int(i) for i in numpy.unravel_index(far.argmax(), far.shape))
    top, left = (max(0, min(v - 8, most - 24)) for v, most in ((y, RGB.shape[0]), (x, RGB.shape[1])))
    crops = [save(pixels[top:top + 24, left:left + 24], f"{name}.worst-{which}.png", 8)
             for which, pixels in (("original", RGB), ("result", back))]
    title = f"{kind}, {words}"
    width, height = RGB.shape[1], RGB.shape[0]
    return f"""<article id="{name}"><h3>{html.escape(title)}</h3>
<p>{m.bytes:,} bytes, {m.bits:.2f} bits a pixel; PSNR {m.psnr:.1f} dB, SSIM {m.ssim:.3f}.</p>
<div class="pair" style="aspect-ratio: {width} / {height}">
<img src="{os.path.basename(m.back)}" alt="{html.escape(title)}: the result" width="{width}" height="{height}">
<img class="over" src="original.png" alt="The original" width="{width}" height="{height}"></div>
<label>Original on the left, result on the right
<input type="range" min="0" max="100" value="50" step="0.5" id="slide-{index}"></label>
<div class="details"><figure>{picture(crops[0], f"{title}: the original around the worst block, eight times enlarged",
' class="pixels"')}
<figcaption>Around the worst block: original</figcaption></figure>
<figure>{picture(crops[1], f"{title}: the result around the worst block, eight times enlarged", ' class="pixels"')}
<figcaption>and result</figcaption></figure>
<figure>{picture(f"{name}.difference.png", f"{title}: differences, four times as strong")}
<figcaption>Differences, four times as strong</figcaption></figure></div></article>
"""


def plot(title, unit, value, top):
    """A rate-distortion plot over bits a pixel, of a logarithmic scale."""
    width, height, left, bottom, right = 480, 340, 44, 44, 122
    points = [(name, [(m.bits, min(value(m), top)) for m in curve]) for name, curve in CURVES_MEASURED]
    rates = [b for _, curve in points for b, _ in curve]
    values = [v for _, curve in points for _, v in curve]
    low, high = numpy.log2(min(rates)) - 0.15, numpy.log2(max(rates)) + 0.15
    floor = min(values) - 0.05 * (max(values) - min(values))
    ceiling = max(values) + 0.05 * (max(values) - min(values))

    def px(bits):
        return left + (numpy.log2(bits) - low) / (high - low) * (width - left - right)

    def py(v):
        return height - bottom - (v - floor) / (ceiling - floor) * (height - bottom - 16)
    parts = []
    for exponent in range(int(numpy.ceil(low)), int(numpy.floor(high)) + 1):
        x, bits = px(2.0 ** exponent), 2.0 ** exponent
        words = f"{bits:g}" if bits >= 1 else f"1/{round(1 / bits)}"
        parts.append(f'<path class="rule" d="M{x:.1f} 16V{height - bottom}"/><text class="tick" x="{x:.1f}" '
                     f'y="{height - bottom + 18}" text-anchor="middle">{words}</text>')
    step = next(s for s in (0.01, 0.02, 0.05, 0.1, 1, 2, 5, 10) if (ceiling - floor) / s <= 8)
    for i in range(int(numpy.ceil(floor / step)), int(numpy.floor(ceiling / step)) + 1):
        v = i * step
        parts.append(f'<path class="rule" d="M{left} {py(v):.1f}H{width - right}"/><text class="tick" x="{left - 8}" '
                     f'y="{py(v) + 4:.1f}" text-anchor="end">{v:g}</text>')
    taken = []
    order = sorted(enumerate(points), key=lambda p: py(p[1][1][-1][1]))
    for i, (name, curve) in order:
        line = " ".join(f"{px(b):.1f},{py(v):.1f}" for b, v in curve)
        if len(curve) > 1:
            parts.append(f'<polyline class="c{i}" points="{line}"/>')
        parts += [f'<circle class="c{i}" cx="{px(b):.1f}" cy="{py(v):.1f}" r="{3 if len(curve) > 1 else 5}"/>'
                  for b, v in curve]
        end = py(curve[-1][1]) + 4
        while any(abs(end - other) < 15 for other in taken):
            end += 1
        taken.append(end)
        x = px(curve[-1][0])
        parts.append(f'<path class="c{i} lead" d="M{x + 5:.1f} {py(curve[-1][1]):.1f}'
                     f'L{width - right + 6} {end - 4:.1f}"/>'
                     f'<text class="name c{i}" x="{width - right + 10}" y="{end:.1f}">{name}</text>')
    parts.append(f'<text class="tick" x="{(left + width - right) / 2}" y="{height - 6}" text-anchor="middle">'
                 f'bits a pixel</text><text class="tick" x="{left - 40}" y="11">{unit}</text>')
    words = f"{title} over bits a pixel: " + "; ".join(
        f"{name} from {curve[0][1]:.4g} at {curve[0][0]:.2f} to {curve[-1][1]:.4g} at {curve[-1][0]:.2f}"
        if len(curve) > 1 else f"{name} {curve[0][1]:.4g} at {curve[0][0]:.2f}" for name, curve in points)
    return (f'<figure><svg class="plot" viewBox="0 0 {width} {height}" role="img" aria-label="{html.escape(words)}">'
            f'{"".join(parts)}</svg><figcaption>{title}</figcaption></figure>')


def median_times(*commands):
    """Milliseconds of each command, by turns."""
    times = [[] for _ in commands]
    for _ in range(5):
        for taken, command in zip(times, commands):
            start = time.perf_counter()
            run(*command)
            taken.append(time.perf_counter() - start)
    return [1000 * statistics.median(taken) for taken in times]


def peers():
    """Rows of whole programs by turns: from a PPM file to a coded one and back, one thread each."""
    rows, missing = [], []
    for words, peer, ending, options, write, read in PEERS:
        if not shutil.which(write[0]) or not shutil.which(read[0]):
            missing.append(f"{peer} ({write[0]})")
            continue
        ours, theirs = (out(f"peers-{which}-{slug(words)}.{ending}") for which in ("qelj", "other"))
        back = {which: out(f"peers-{which}-back.ppm") for which in ("qelj", "other")}

        def filled(command):
            return [part.format(i=SOURCE, c=theirs, o=back["other"]) for part in command]
        one = ["--threads", "1"]
        rows.append((words, peer, *median_times([CONVERTER, SOURCE, ours, *options, *one], filled(write)),
                     *median_times([CONVERTER, ours, back["qelj"], *one], filled(read)),
                     os.path.getsize(ours), os.path.getsize(theirs),
                     *(psnr_of(numpy.asarray(Image.open(path).convert("RGB"))) for path in back.values())))
    for name in os.listdir(OUT):
        if name.startswith("peers"):
            os.remove(out(name))
    return rows, missing


def psnr_of(picture_):
    error = numpy.mean((picture_.astype(float) - RGB) ** 2)
    return float("inf") if error == 0 else 10 * numpy.log10(255 ** 2 / error)


def decibel(psnr):
    return "exact" if psnr == float("inf") else f"{psnr:.1f} dB"


def table(heads, rows, label):
    body = "".join(f"<tr><th scope=row>{'<td>'.join(cells)}</tr>" for cells in rows)
    return (f'<div class="scrolls" tabindex="0" role="region" aria-label="{label}"><table><thead><tr>'
            + "".join(f"<th scope=col>{head}" for head in heads) + f"</tr></thead><tbody>{body}</tbody></table></div>")


shutil.rmtree(OUT, ignore_errors=True)
os.makedirs(OUT)
SOURCE = out("peers.ppm")
run(CONVERTER, IMAGE, SOURCE)
RGB = numpy.ascontiguousarray(numpy.asarray(Image.open(SOURCE).convert("RGB")))
Image.fromarray(RGB).save(SOURCE)
Image.fromarray(RGB).save(out("original.png"))
PIXELS = RGB.shape[0] * RGB.shape[1]

row = "{:<10} {:<36} {:>9} {:>9} {:>9} {:>6} {:>11} {:>11}".format
print(row("format", "how", "bytes", "bits/px", "PSNR", "SSIM", "write MPix/s", "read MPix/s"))
cards, lines = [], []
for number, run_ in enumerate(RUNS):
    kind_, words_, ending_, options_ = run_
    measured = Measured(slug(f"{kind_} {words_}"), ending_, options_, 5)
    cells_ = (f"{measured.bytes:,}", f"{measured.bits:.2f}", decibel(measured.psnr), f"{measured.ssim:.3f}",
              f"{measured.writing:.1f}", f"{measured.reading:.1f}")
    print(row(kind_, words_, *cells_), flush=True)
    lines.append((f"{kind_}, {words_}", *cells_))
    if measured.exact:
        os.remove(measured.back)  # the original once more
    else:
        cards.append(card(number, run_, measured))
CURVES_MEASURED = []
for name_, ending_, settings in CURVES:
    curve_ = []
    for number, options_ in enumerate(settings):
        curve_.append(Measured(f"curve-{slug(name_)}-{number}", ending_, options_, 1, "ppm"))
        os.remove(curve_[-1].file)
        os.remove(curve_[-1].back)
    CURVES_MEASURED.append((name_, curve_))
peer_rows, absent = peers()
with open(os.path.join(HERE, "demo.html"), encoding="utf-8") as template:
    text = template.read()
parts_ = {
    "name": html.escape(os.path.basename(IMAGE)), "size": f"{RGB.shape[1]} by {RGB.shape[0]}",
    "stages": "".join(f'<article><h3>{t}</h3><p>{html.escape(s)}</p><div class="pictures">{p}</div></article>'
                      for t, s, p in stages()),
    "cards": "".join(cards),
    "table": table(("Format", "Bytes", "Bits a pixel", "PSNR", "SSIM", "Writing, MPix/s", "Reading, MPix/s"), lines,
                   "Sizes, fidelity and speeds"),
    "plots": plot("PSNR", "dB", lambda m: m.psnr, 60) + plot("SSIM", "SSIM", lambda m: m.ssim, 1),
    "peers": (table(("What", "Peer", "Writing, ms", "peer", "Reading, ms", "peer", "Bytes", "peer", "PSNR", "peer"),
                    [(w, p, *(f"{t:.0f}" for t in r[:4]), *(f"{b:,}" for b in r[4:6]), *map(decibel, r[6:]))
                     for w, p, *r in peer_rows], "Beside the peers' programs") if peer_rows else "")
    + (f"<p>Not installed here: {', '.join(sorted(set(absent)))}.</p>" if absent else ""),
}
with open(out("index.html"), "w", encoding="utf-8") as page:
    page.write(re.sub(r"\{\{(\w+)\}\}", lambda found: parts_[found[1]], text))
