"""tutorial.py DIRECTORY: the library from Python, from a photograph to bits and back; its pictures go to DIRECTORY.

A comment that begins with %% starts a part; the site shows parts with what they print and draw.
"""
import os
import sys

import numpy as np
from PIL import Image

HERE = os.path.dirname(os.path.abspath(__file__))
DIRECTORY = sys.argv[1] if len(sys.argv) > 1 else "."


def show(name, words, *pictures):
    """Writes pictures of 8 bits, beside one another; `words` say what there is to see."""
    height = max(picture.shape[0] for picture in pictures)
    columns = []
    for picture in pictures:
        picture = np.dstack([picture] * 3) if picture.ndim == 2 else picture[..., :3]
        columns += [np.pad(picture, ((0, height - picture.shape[0]), (0, 8), (0, 0)), constant_values=255)]
    Image.fromarray(np.hstack(columns)[:, :-8]).save(os.path.join(DIRECTORY, f"{name}.png"))


def enlarged(picture, times):
    return picture.repeat(times, 0).repeat(times, 1)


# %% Pictures are arrays
#
# A picture is an array of rows, columns and channels. Every function of `qelj.h` is there under its own name, and takes
# arrays as they are: steps between rows, sizes and lengths come from them. Outputs are new arrays where none are given.
import qelj  # noqa: E402
from qelj import jpeg, jpeg2000, texture  # noqa: E402

with Image.open(os.path.join(HERE, "..", "examples", "images", "coffee.png")) as image:
    picture = np.array(image.convert("RGB"))[:256, :384]
y, cb, cr = qelj.qeliRGBToYCbCr_JPEG_8u_C3P3R(picture)
print(picture.shape, y.shape, y.dtype)
show("planes", "The photograph, and its planes Y, Cb and Cr in grey",
     picture, y, cb, cr)

# %% A part of a picture is a view, and is walked in place
#
# Nothing is copied here: the window lies in the picture, and the result in an array that was there before. A layout
# that the library cannot walk, columns in reverse for example, goes by way of a copy. A shape that does not fit is
# refused before the library is called.
window = picture[64:128, 200:296]
target = np.zeros((64, 96), np.uint8)
assert qelj.qeliRGBToY_JPEG_8u_C3C1R(window, dst=target) is target
assert np.array_equal(target, y[64:128, 200:296])
try:
    qelj.qeliRGBToY_JPEG_8u_C3C1R(window, dst=y)
except ValueError as error:
    print(error)

# %% Blocks and their coefficients
#
# The modules of the families say the common things shortly. A DCT makes 64 coefficients of each block of 8 by 8
# samples, and a quantiser rounds them, most of them to zero: what is white here is none.
raw = jpeg.quantiser(75)
blocks = jpeg.forward_dct(y, raw)
print(blocks.shape, "coefficients that are not zero:", f"{np.mean(blocks != 0):.1%}")
print(blocks[12, 30])
many = (blocks != 0).transpose(0, 2, 1, 3).reshape(y.shape)
show("coefficients", "Luma, and a dot for each coefficient that is not zero: fewest where the picture is smooth",
     y, np.where(many, 0, 255).astype(np.uint8))

# %% Bits
#
# Huffman coding makes a segment of them, with the tables of the standard, or with those that suit this picture best.
tables = {"typical": jpeg.typical_encoders(), "optimal": [qelj.EncodeHuffmanSpec(*lists)
                                                          for lists in jpeg.optimal_lists(blocks)]}
for name, (dc, ac) in tables.items():
    encoder = jpeg.HuffmanEncoder()
    encoder.encode(blocks, dc, ac)
    segment = encoder.finish()
    print(f"{name}: {len(segment)} bytes, {8 * len(segment) / y.size:.2f} bits a sample")

# %% And back
#
# Decoding gives the same coefficients, and the inverse DCT the samples, at full size or smaller.
encoder.encode(blocks, *tables["typical"])
decoder = jpeg.HuffmanDecoder(encoder.finish())
decoded = decoder.decode(blocks.shape[0] * blocks.shape[1], *jpeg.typical_decoders()).reshape(blocks.shape)
assert np.array_equal(decoded, blocks)
back = jpeg.inverse_dct(decoded, raw)
print(f"{10 * np.log10(255 ** 2 / np.mean((back.astype(float) - y) ** 2)):.2f} dB")
show("sizes", "The decoded picture, at a half and at a quarter of its size",
     back, jpeg.inverse_dct(decoded, raw, side=4), jpeg.inverse_dct(decoded, raw, side=2))

# %% What quality costs
#
# The same for some qualities, with a crop of each, three times as large.
crops = []
for quality in (5, 20, 50, 90):
    raw = jpeg.quantiser(quality)
    coded = jpeg.forward_dct(y, raw)
    encoder.encode(coded, *tables["typical"])
    back = jpeg.inverse_dct(coded, raw)
    print(f"quality {quality}: {8 * len(encoder.finish()) / y.size:.2f} bits a sample, "
          f"{10 * np.log10(255 ** 2 / np.mean((back.astype(float) - y) ** 2)):.2f} dB")
    crops.append(enlarged(back[96:160, 160:224], 3))
show("qualities", "A crop at qualities 5, 20, 50 and 90: blocks, less and less visible",
     *crops)

# %% Wavelets
#
# JPEG 2000 takes a picture apart into bands: a small version of it at the top left, and what it lacks around it, here
# brightened. The reversible transform gives the picture back to the bit.
samples = y.astype(np.int32) - 128
transformed = jpeg2000.wavelet_forward(samples, levels=3)
assert np.array_equal(jpeg2000.wavelet_inverse(transformed, levels=3), samples)
drawn = np.clip(np.abs(transformed) * 6, 0, 255).astype(np.uint8)
for band in jpeg2000.bands(transformed, levels=3):
    if band.subband == qelj.Subband.LL:
        drawn[:band.samples.shape[0], :band.samples.shape[1]] = band.samples + 128
show("bands", "Luma, and its bands: edges across, down and both ways, three times",
     y, drawn)

# %% A code-block, plane by plane
#
# Its coder goes from the highest bit plane to the lowest, and each pass makes the error smaller: a codec that wants a
# certain size stops somewhere on the way.
finest = [band for band in jpeg2000.bands(transformed, levels=3) if band.subband == qelj.Subband.HL][-1]
coded = jpeg2000.encode_codeblock(finest.samples[:64, :64])
energy = float(np.sum(finest.samples[:64, :64].astype(float) ** 2))
for i in range(0, coded.passes, 3):
    print(f"pass {i + 1:2}: {coded.rates[i]:4} bytes, error {1 - coded.gains[i] / energy:6.1%}")

# %% Textures
#
# Blocks for graphics hardware: BC1 in four bits a pixel, quickly, and BC7 in eight at its best. The differences are
# shown eight times as strong.
rgba = np.dstack([picture, np.full(picture.shape[:2], 255, np.uint8)])
differences = []
for format in ("bc1", "bc7"):
    encoded = texture.encode(rgba, format)
    decoded = texture.decode(encoded, rgba.shape[1::-1], format)
    error = np.abs(decoded[..., :3].astype(int) - picture)
    differences.append(np.clip(error * 8, 0, 255).astype(np.uint8))
    print(f"{format}: {encoded.size} bytes, {10 * np.log10(255 ** 2 / np.mean(error ** 2.0)):.2f} dB")
show("textures", "Differences of BC1, and of BC7, which are much fainter",
     *differences)

# %% Threads
#
# Calls release the interpreter's lock. `map_rows` gives bands of rows to a pool of threads, as views of the same
# arrays: here bands of whole block rows, whose blocks lie one behind another.
blocks_of_rows = np.zeros((64, 96 * 16), np.uint8)
qelj.map_rows(lambda rows, out: qelj.qeliTextureEncodeBlock4x4FromRGBA_BC7_8u_C4C1R(rows, dst=out.reshape(-1)),
              rgba, blocks_of_rows, band=32)
assert np.array_equal(blocks_of_rows.reshape(-1), encoded)
print("the same", blocks_of_rows.size, "bytes")

# %% Failures
#
# A negative status is an exception that carries it. A record lives as long as its object.
try:
    jpeg.HuffmanDecoder(segment[:100]).decode(1536, *jpeg.typical_decoders())
except qelj.Error as error:
    print(repr(qelj.Status(error.status)), error)
