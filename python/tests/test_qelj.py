"""Every function beside guarded memory, values against the converter and other codecs, refusals, threads, images."""
import collections
import concurrent.futures
import inspect
import io
import os
import subprocess
import sys
import time
import warnings

import numpy as np
import pytest
from PIL import Image

import qelj
from qelj import _library, jpeg, jpeg2000, jpegxr, texture, tiff
from qelj._library import ffi

from support import NAMES, Guarded, drawn_arguments, plan_of

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
CONVERTER = os.environ.get("QELCONV", "qelconv")


@pytest.fixture
def random():
    return np.random.default_rng(int(os.environ.get("QELJ_SEED", "1")))


@pytest.fixture(scope="module")
def picture():
    with Image.open(os.path.join(ROOT, "examples", "images", "coffee.png")) as image:
        return np.asarray(image.convert("RGB"))[:200, :304].copy()


# --- every function ---

@pytest.mark.parametrize("at_end", (True, False))
def test_no_call_leaves_its_arrays(random, at_end):
    """Drawn calls of all functions, once with what the caller says of sizes and once without: arrays lie beside
    inaccessible pages, so that a shape that is too small for a function ends this process."""
    done = collections.Counter()
    with warnings.catch_warnings():
        warnings.simplefilter("ignore", qelj.StatusWarning)
        for name in NAMES:
            for _ in range(12):
                memory = Guarded(at_end)
                arguments, sizes = drawn_arguments(name, random, memory)
                try:
                    getattr(qelj, name)(**arguments, **(sizes if done[name] % 2 else {}))
                    done[name] += 1
                except qelj.Error as error:  # drawn streams are damaged; everything else has to be right
                    assert error.status in (-2, -7, -62, -63, -64, -112, -113, -124), (name, error)
    assert [name for name in NAMES if not done[name]] == []


def test_every_function_tells_what_it_takes():
    assert len(NAMES) == 299 and set(NAMES) <= set(dir(qelj))
    for name in NAMES:
        function = getattr(qelj, name)
        assert name in function.__doc__ and inspect.signature(function).parameters.keys() >= {
            one.name for one in plan_of(name).parameters if one.required}
    assert "qelStatusBadStep" in qelj.qeliSub128_JPEG_8u16s_C1R.__doc__


def test_stub_has_the_functions():
    with open(os.path.join(os.path.dirname(qelj.__file__), "_functions.pyi")) as file:
        text = file.read()
    compile(text, "_functions.pyi", "exec")
    assert all(f"\ndef {name}(" in text for name in NAMES)


# --- values ---

def convert(*arguments):
    subprocess.run([CONVERTER, *map(str, arguments)], check=True, stdout=subprocess.DEVNULL)


def test_a_scan_of_the_converter(picture, tmp_path):
    """The converter's grey JPEG, taken apart here: its pixels as the converter decodes them, and its bytes again."""
    Image.fromarray(picture).convert("L").save(tmp_path / "grey.pgm")
    convert(tmp_path / "grey.pgm", tmp_path / "grey.jpg", "--quality", 80)
    convert(tmp_path / "grey.jpg", tmp_path / "back.pgm")
    data = (tmp_path / "grey.jpg").read_bytes()
    scan = data.index(b"\xff\xda")
    scan += 2 + int.from_bytes(data[scan + 2:scan + 4], "big")
    raw = jpeg.quantiser(80)
    assert raw.tobytes() in data

    decoder = jpeg.HuffmanDecoder(memoryview(data)[scan:])
    blocks = decoder.decode(25 * 38, *jpeg.typical_decoders()).reshape(25, 38, 8, 8)
    assert decoder.marker in (0, qelj.Marker.Eoi)
    with Image.open(tmp_path / "back.pgm") as back:
        assert np.array_equal(jpeg.inverse_dct(blocks, raw), np.asarray(back))

    encoder = jpeg.HuffmanEncoder()
    encoder.encode(jpeg.forward_dct(np.asarray(Image.open(tmp_path / "grey.pgm")), raw), *jpeg.typical_encoders())
    assert encoder.finish() == data[scan:-2]
    # Optimal tables need fewer bits.
    (dc, ac) = (qelj.EncodeHuffmanSpec(*lists) for lists in jpeg.optimal_lists(blocks))
    encoder.encode(blocks, dc, ac)
    assert len(encoder.finish()) < len(data) - scan - 2


def test_blocks_of_the_converters_textures(picture, tmp_path):
    rgba = np.dstack([picture, np.arange(picture[..., 0].size, dtype=np.uint8).reshape(picture.shape[:2])])
    Image.fromarray(rgba).save(tmp_path / "picture.png")
    for format in ("bc1", "bc2", "bc3", "bc7"):
        convert(tmp_path / "picture.png", tmp_path / "picture.dds", "--block", format)
        blocks = texture.encode(rgba, format)
        assert (tmp_path / "picture.dds").read_bytes().endswith(blocks.tobytes()), format
        assert np.abs(texture.decode(blocks, (304, 200), format)[..., :3].astype(int) - picture).mean() < 8


def test_rows_of_another_tiff(picture):
    file = io.BytesIO()
    Image.fromarray(picture).save(file, "TIFF", compression="packbits")
    data = file.getvalue()
    with Image.open(file) as image:
        offset, height = image.tag_v2[273][0], image.tag_v2[278]
    position = 0
    for y in range(height):
        row, position = tiff.unpack(memoryview(data)[offset:], 304 * 3, position)
        assert np.array_equal(row.reshape(-1, 3), picture[y])
    assert tiff.unpack(tiff.pack(picture[0].reshape(-1)), 912).row.tobytes() == picture[0].tobytes()
    with pytest.raises(qelj.Error):  # the run's value is missing
        tiff.unpack(b"\x81", 200)


def test_round_trips(random):
    wide = random.integers(-2 ** 14, 2 ** 14, (57, 75), np.int32)
    for origin in ((0, 0), (3, 2), (2, 1)):
        transformed = jpeg2000.wavelet_forward(wide, 3, origin=origin)
        bands = list(jpeg2000.bands(transformed, 3, origin))
        assert sum(band.samples.size for band in bands) == wide.size and len(bands) == 10
        assert np.array_equal(jpeg2000.wavelet_inverse(transformed, 3, origin=origin), wide)
    lossy = jpeg2000.wavelet_forward(wide << 6, 2, "9/7")
    assert np.abs(jpeg2000.wavelet_inverse(lossy, 2, "9/7") - (wide << 6)).max() < 64

    pixels = random.integers(0, 4096, (9, 14, 3), np.int32)
    assert np.array_equal(jpeg2000.rct_inverse(jpeg2000.rct_forward(pixels)), pixels)
    assert np.allclose(jpeg2000.ict_inverse(jpeg2000.ict_forward(pixels.astype(np.float32))), pixels, atol=0.1)

    for subband in qelj.Subband:
        block = random.integers(-300, 300, (33, 17), np.int32)
        for style in (0, qelj.CodeStyle.Terminate | qelj.CodeStyle.Bypass):
            coded = jpeg2000.encode_codeblock(block, subband, style)
            assert coded.rates[-1] == len(coded.data) == sum(coded.segments)
            assert np.array_equal(jpeg2000.decode_codeblock(coded, (17, 33), subband, style), block)

    macroblock = random.integers(-500, 500, (16, 16), np.int32)
    assert np.array_equal(jpegxr.transform_inverse(jpegxr.transform_forward(macroblock)), macroblock)
    blocks = [random.integers(-60, 60, (4, 4), np.int32) * (random.random((4, 4)) < 0.5) for _ in range(40)]
    encoder, low = jpegxr.Encoder(), 2
    for block in blocks:
        encoder.fields(block, encoder.block(block, model_bits=low), low)
    decoder = jpegxr.Decoder(encoder.finish())
    for block in blocks:
        back, count = decoder.block(scale=1 << low)
        assert count < 16
        decoder.fields(back, low)
        block[0, 0] = 0
        assert np.array_equal(back, block)

    samples = random.integers(0, 4096, (11, 30)).astype(np.int16)
    for predictor in qelj.Predictor:
        assert np.array_equal(jpeg.reconstruct(jpeg.differences(samples, predictor, 12), predictor, 12), samples)
    high, low = tiff.split(random.integers(0, 65536, 99).astype(np.uint16))
    assert np.array_equal(tiff.join(high, low) >> 8, high)


def test_colour(picture):
    for sampling in jpeg.SAMPLINGS:
        back = jpeg.from_ycbcr(jpeg.to_ycbcr(picture, sampling))
        assert np.abs(back.astype(int) - picture).mean() < (1.5 if sampling == "4:4:4" else 6)
    with pytest.warns(qelj.StatusWarning, match="odd") as caught:
        planes = jpeg.to_ycbcr(picture[:, :303], "4:2:0")
    assert caught[0].message.status == qelj.Status.OddSizeWarning and planes[1].shape == (100, 151)
    flat = np.full((6, 5), 77, np.uint8)
    for down in (True, False):
        assert np.array_equal(jpeg.upsample(flat, down), np.full((12 if down else 6, 10), 77))
        assert np.array_equal(jpeg.downsample(flat, down), np.full((3 if down else 6, 2), 77))
    row = picture[7:8, :30, 0]  # one row, with those around it
    assert np.array_equal(jpeg.upsample(row), jpeg.upsample(row.repeat(3, 0))[2:4])


# --- arrays ---

def test_views_are_passed_as_they_are(picture):
    """Views of rows, windows and planes are walked in place; other layouts come and go by way of copies."""
    whole = qelj.qeliRGBToYCbCr_JPEG_8u_C3P3R(picture)
    window = picture[10:50, 24:120]
    planes = np.zeros((3, 40, 200), np.uint8)
    result = qelj.qeliRGBToYCbCr_JPEG_8u_C3P3R(window, dst=planes[:, :, 8:104])
    assert np.array_equal(planes[0, :, 8:104], whole[0][10:50, 24:120]) and np.shares_memory(result.base, planes)
    assert not planes[:, :, :8].any() and not planes[:, :, 104:].any()

    for source in (window[::-1], window[:, ::-1], np.asfortranarray(window), window[::2, ::4]):
        target = np.zeros(source.shape[1::-1] + (3,), np.uint8).transpose(2, 1, 0)
        qelj.qeliRGBToYCbCr_JPEG_8u_C3P3R(source, dst=target)
        straight = qelj.qeliRGBToYCbCr_JPEG_8u_C3P3R(np.ascontiguousarray(source))
        assert all(map(np.array_equal, target, straight))
        # Planes whose steps differ, one of which no step fits.
        odd = [np.zeros((source.shape[0], source.shape[1] + i), np.uint8)[:, :source.shape[1]] for i in (0, 4)]
        odd.append(np.zeros(source.shape[:2], np.uint8)[:, ::-1])
        qelj.qeliRGBToYCbCr_JPEG_8u_C3P3R(source, dst=odd)
        assert all(map(np.array_equal, odd, straight))
    # Textures take rows upwards.
    assert np.array_equal(texture.encode(np.dstack([window, window[..., 0]])[::-1], "bc1"),
                          texture.encode(np.ascontiguousarray(np.dstack([window, window[..., 0]])[::-1]), "bc1"))

    class Interface:  # of any package
        __array_interface__ = window.__array_interface__
    assert np.array_equal(qelj.qeliRGBToY_JPEG_8u_C3C1R(Interface()), whole[0][10:50, 24:120])
    memory = bytearray(64)
    assert qelj.qeliQuantFwdRawTableInit_JPEG_8u(memory, 1) is memory and set(memory) == {1}
    assert qelj.zeros((3, 5), np.int16).ctypes.data % 64 == 0


def test_borders_lie_in_the_array_that_a_view_is_of():
    plane = np.arange(8 * 10, dtype=np.uint8).reshape(8, 10)
    assert qelj.qeliSampleUpH2V2_JPEG_8u_C1R(plane[1:-1, 1:-1]).shape == (12, 16)
    for outside in (plane, plane[1:-1], plane.copy()[:-1, 1:-1]):
        with pytest.raises(ValueError, match="reaches"):
            qelj.qeliSampleUpH2V2_JPEG_8u_C1R(outside)
    packed, pixels = np.zeros((2, 3, 2), np.uint8), np.zeros((2, 3, 3), np.uint8)
    with pytest.raises(ValueError, match="reaches"):  # an odd width writes a pixel more
        qelj.qeliYCbCr422ToRGB_JPEG_8u_C2C3R(np.zeros((2, 4, 2), np.uint8)[:, :3], dst=pixels)
    with pytest.raises(ValueError, match="reaches"):
        qelj.qeliYCbCr422ToRGB_JPEG_8u_C2C3R(packed)


WRONG = {
    "shape": (ValueError, "qeliRGBToY_JPEG_8u_C3C1R", {"src": np.zeros((4, 4), np.uint8)}),
    "channels": (ValueError, "qeliRGBToY_JPEG_8u_C3C1R", {"src": np.zeros((4, 4, 4), np.uint8)}),
    "other size": (ValueError, "qeliRGBToY_JPEG_8u_C3C1R",
                   {"src": np.zeros((4, 4, 3), np.uint8), "dst": np.zeros((4, 5), np.uint8)}),
    "size beyond": (ValueError, "qeliRGBToY_JPEG_8u_C3C1R", {"src": np.zeros((4, 4, 3), np.uint8), "size": (4, 5)}),
    "type": (TypeError, "qeliRGBToY_JPEG_8u_C3C1R", {"src": np.zeros((4, 4, 3))}),
    "byte order": (TypeError, "qeliRCTFwd_JPEG2K_16s_C3P3R", {"src": np.zeros((4, 4, 3), ">i2")}),
    "no array": (TypeError, "qeliRGBToY_JPEG_8u_C3C1R", {"src": 7}),
    "planes": (ValueError, "qeliYCbCrToRGB_JPEG_8u_P3C3R", {"src": np.zeros((2, 4, 4), np.uint8)}),
    "read-only": (ValueError, "qeliQuantFwdRawTableInit_JPEG_8u", {"table": bytes(64), "quality": 3}),
    "table": (ValueError, "qeliQuantFwdRawTableInit_JPEG_8u", {"table": bytearray(63), "quality": 3}),
    "numbers": (ValueError, "qeliEncodeHuffmanSpecInit_JPEG_8u", {"bits": [256] * 16, "vals": [0]}),
    "symbols": (ValueError, "qeliEncodeHuffmanSpecInit_JPEG_8u", {"bits": [0, 3] + [0] * 14, "vals": [1, 2]}),
    "length": (ValueError, "qeliPackBitsRow_TIFF_8u_C1", {"src": bytes(9), "srcLen": 10}),
    "blocks": (ValueError, "qeliTextureDecodeBlock_BC4_8u_C1R", {"src": bytes(15), "size": (5, 4)}),
    "nothing said": (TypeError, "qeliTextureDecodeBlock_BC4_8u_C1R", {"src": bytes(16)}),
    "room": (ValueError, "qeliVLCEncode4x4_JPEGXR_32s1u_C1R", {
        "src": np.zeros((4, 4), np.int32), "modelBits": 0, "stream": np.zeros(97, np.uint8), "state": qelj.VLCState()}),
    "place in bits": (ValueError, "qeliEncodeHuffman8x8_Direct_JPEG_16s1u_C1", {
        "src": np.zeros(64, np.int16), "dst": np.zeros(600, np.uint8), "dstBitPos": -1,
        "dcTable": qelj.EncodeHuffmanSpec(), "acTable": qelj.EncodeHuffmanSpec()}),
    "place": (ValueError, "qeliVLCDecode4x4_JPEGXR_1u32s_C1R", {
        "stream": bytes(200), "streamPos": -1, "state": qelj.VLCState()}),
    "segments": (ValueError, "qeliDecodeCodeBlock_JPEG2K_1u32s_C1R", {
        "src": bytes(5), "subband": 0, "numBitPlanes": 3, "numPasses": 7, "size": (4, 4),
        "segmentLengths": np.array([2 ** 32 - 1, 7], np.uint32)}),
    "buffer": (ValueError, "qeliWTFwd_B53_JPEG2K_32s_C1IR", {
        "srcDst": np.zeros((50, 50), np.int32), "buffer": np.zeros(100, np.uint8)}),
    "tile beyond": (ValueError, "qeliWTFwd_B53_JPEG2K_32s_C1IR", {
        "srcDst": np.zeros((50, 50), np.int32), "tile": (0, 0, 51, 50)}),
    "record": (TypeError, "qeliDecodeHuffmanOne_JPEG_1u16s_C1", {
        "src": bytes(9), "table": qelj.EncodeHuffmanSpec(), "state": qelj.DecodeHuffmanState()}),
    "tables": (ValueError, "qeliDecodeHuffmanRow_JPEG_1u16s_C1P4", {
        "src": bytes(9), "dst": np.zeros((2, 5), np.int16), "tables": [qelj.DecodeHuffmanSpec()],
        "state": qelj.DecodeHuffmanState()}),
    "larger block": (ValueError, "qeliDecodeCBProgrAttach_JPEG2K_32s_C1R", {
        "dst": np.zeros((9, 9), np.int32), "state": qelj.DecodeStateJPEG2K((8, 8)), "subband": 0, "numBitPlanes": 3}),
    "block of columns": (ValueError, "qeliDecodeCBProgrAttach_JPEG2K_32s_C1R", {
        "dst": np.zeros((8, 16), np.int32)[:, ::2], "state": qelj.DecodeStateJPEG2K((8, 8)), "subband": 0,
        "numBitPlanes": 3}),
    "own memory": (ValueError, "qeliDecodeHuffmanStateFree_JPEG_8u", {"state": qelj.DecodeHuffmanState()}),
    "unknown": (TypeError, "qeliRGBToY_JPEG_8u_C3C1R", {"src": np.zeros((4, 4, 3), np.uint8), "srcStep": 12}),
}


@pytest.mark.parametrize("case", WRONG)
def test_refuses(case):
    kind, name, arguments = WRONG[case]
    with pytest.raises(kind) as caught:
        getattr(qelj, name)(**arguments)
    assert case == "unknown" or name in str(caught.value)


def test_errors_carry_status_and_results():
    with pytest.raises(qelj.Error) as caught:
        qelj.qeliQuantFwdRawTableInit_JPEG_8u(bytearray(64), 0)
    assert (caught.value.status, caught.value.text) == (qelj.Status.BadArg, "an argument is out of its domain")
    assert str(caught.value) == ("qeliQuantFwdRawTableInit_JPEG_8u: an argument is out of its domain "
                                 "(qelStatusBadArg, -5)")
    dc, ac = jpeg.typical_decoders()
    with pytest.raises(qelj.Error) as caught:
        qelj.qeliDecodeHuffman8x8_JPEG_1u16s_C1(b"\xff\xd9", dc, ac, qelj.DecodeHuffmanState())
    assert caught.value.status == qelj.Status.JpegCoeffRange and caught.value.results.marker == qelj.Marker.Eoi
    assert qelj.status_text(-1) == "unknown failure"
    with pytest.raises(qelj.Error, match="ended"):
        jpeg.HuffmanDecoder(b"").decode(1, dc, ac)


def test_records():
    spec = qelj.qeliDecodeHuffmanSpecInitAlloc_JPEG_8u(qelj.typical.dc_bits[0], qelj.typical.dc_vals)
    state = qelj.qeliDecodeHuffmanStateInitAlloc_JPEG_8u()
    data = np.frombuffer(bytes.fromhex("a1b2c3d4"), np.uint8)
    saved = state.copy()
    first = qelj.qeliDecodeHuffmanOne_JPEG_1u16s_C1(data, spec, state)
    again = qelj.qeliDecodeHuffmanOne_JPEG_1u16s_C1(data, spec.copy(), saved)
    assert (first.dst, first.srcPos) == (again.dst, again.srcPos)
    qelj.qeliDecodeHuffmanStateFree_JPEG_8u(state)
    with pytest.raises(ValueError, match="released"):
        qelj.qeliDecodeHuffmanOne_JPEG_1u16s_C1(data, spec, state)
    with pytest.raises(ValueError, match="released"):
        qelj.qeliDecodeHuffmanStateFree_JPEG_8u(state)
    # A copy of a record that points into itself is refused until its scan is set.
    block, room = np.ones((4, 4), np.int32), np.zeros(200, np.uint8)
    copy = qelj.VLCState().copy()
    with pytest.raises(qelj.Error, match="another family"):
        qelj.qeliVLCEncode4x4_JPEGXR_32s1u_C1R(block, 0, room, copy)
    qelj.qeliVLCScanSet_JPEGXR(copy, qelj.VLCScan.HighPass)
    assert qelj.qeliVLCEncode4x4_JPEGXR_32s1u_C1R(block, 0, room, copy).pairCount == 15


def test_progressive_block_stays_alive(random):
    block = random.integers(-300, 300, (16, 16), np.int32)
    coded = jpeg2000.encode_codeblock(block)
    state = qelj.DecodeStateJPEG2K((64, 64))
    dst = qelj.qeliDecodeCBProgrAttach_JPEG2K_32s_C1R(np.zeros((16, 16), np.int32), state, 0, coded.planes)
    owner = sys.getrefcount(dst)
    with pytest.raises(qelj.Error):  # leaves the attached block as it is
        qelj.qeliDecodeCBProgrAttach_JPEG2K_32s_C1R(np.zeros((0, 4), np.int32), state, 0, 3)
    assert sys.getrefcount(dst) == owner
    qelj.qeliDecodeCBProgrSetPassCounter_JPEG2K(coded.passes, state)
    qelj.qeliDecodeCBProgrStep_JPEG2K(coded.data, state)
    assert qelj.qeliDecodeCBProgrGetPassCounter_JPEG2K(state) == 0
    magnitudes = dst & 0x7FFFFFFF
    assert np.array_equal(np.where(dst < 0, -magnitudes, magnitudes), block)


# --- threads and images ---

def test_bands_and_tiles(picture):
    whole = qelj.qeliRGBToYCbCr411_JPEG_8u_C3P3R(picture)
    planes = [np.zeros_like(plane) for plane in whole]
    qelj.map_rows(lambda *views: qelj.qeliRGBToYCbCr411_JPEG_8u_C3P3R(views[0], dst=views[1:]), picture, *planes,
                  band=22, threads=3)
    assert all(map(np.array_equal, planes, whole))
    with pytest.raises(ValueError, match="don't cut"):
        qelj.map_rows(print, picture, *planes, band=21)
    tiles = qelj.map_tiles(lambda tile: (tile.shape, qelj.get_num_threads()), picture, tile=(64, 100), threads=2)
    assert [shape for shape, _ in tiles][:4] == [(64, 100, 3)] * 3 + [(64, 4, 3)] and {team for _, team in tiles} == {1}
    before = qelj.set_num_threads(3)
    assert qelj.get_num_threads() == 3 and qelj.set_num_threads(before) == 3


def test_calls_release_the_interpreter(random):
    """While one thread is in a long call, another one runs."""
    pixels = random.integers(0, 255, (1024, 1024, 4), np.uint8)
    with concurrent.futures.ThreadPoolExecutor(1) as pool:
        start = time.perf_counter()
        call = pool.submit(lambda: (texture.encode(pixels, "bc7"), time.perf_counter() - start)[1])
        ticks = []
        while not call.done():
            ticks.append(time.perf_counter())
            time.sleep(0.001)
    assert len([tick for tick in ticks if tick - start < call.result()]) > 2


def test_calls_on_one_record_are_serial(random):
    """Threads that share a state spoil one another's streams, and nothing else."""
    blocks = random.integers(-20, 20, (200, 8, 8)).astype(np.int16)
    dc, ac = jpeg.typical_encoders()
    encoder = jpeg.HuffmanEncoder()
    with concurrent.futures.ThreadPoolExecutor(4) as pool:
        list(pool.map(lambda part: encoder.encode(part, dc, ac), np.split(blocks, 10)))
    decoded = jpeg.HuffmanDecoder(encoder.finish()).decode(200, *jpeg.typical_decoders())
    parts = {part.tobytes() for part in np.split(blocks[:, 0, 1:], 10)}
    assert {part.tobytes() for part in np.split(decoded[:, 0, 1:], 10)} == parts


# --- files ---

def test_files(picture, tmp_path):
    for ending in ("png", "tif", "jp2", "jxr", "ppm"):
        qelj.imwrite(tmp_path / f"picture.{ending}", picture)
        assert np.array_equal(qelj.imread(tmp_path / f"picture.{ending}"), picture), ending
        if ending != "jxr":  # Pillow has no reader
            with Image.open(tmp_path / f"picture.{ending}") as image:
                assert np.array_equal(np.asarray(image), picture), ending
    qelj.imwrite(tmp_path / "a.jpg", picture, quality=90, progressive=True)
    convert(tmp_path / "picture.png", tmp_path / "b.jpg", "--quality", 90, "--progressive")
    assert (tmp_path / "a.jpg").read_bytes() == (tmp_path / "b.jpg").read_bytes()

    deep = (picture[..., :1].astype(np.uint16) << 4)[..., 0]
    for ending, options in (("jp2", {}), ("jpg", {"lossless": True})):
        file = qelj.write_picture(deep, ending, bits=12, **options)
        back = qelj.read_picture(memoryview(file))
        assert back.bits == 12 and back.colour == "grey" and np.array_equal(back.array, deep)
    part = qelj.write_picture(picture, "jpg")
    with pytest.raises(qelj.FileError, match="cut off"):
        qelj.imread(part[:len(part) // 2])
    with pytest.warns(UserWarning, match="only part"):
        assert qelj.imread(part[:len(part) // 2], partial=True).shape == picture.shape
    for arguments in ({"array": picture, "format": "xyz"}, {"array": picture, "format": "jpg", "nonsense": 1},
                      {"array": picture, "format": "png", "colour": "CMYK"},
                      {"array": deep, "format": "png", "bits": 8}, {"array": deep, "format": "jp2", "bits": 9},
                      {"array": picture[:0], "format": "png"}, {"array": picture, "format": "jpg", "quality": 0}):
        with pytest.raises(ValueError):
            qelj.write_picture(**arguments)


def test_pillow(picture, tmp_path):
    import qelj.pillow  # noqa: F401
    image = Image.fromarray(picture)
    rgba = Image.fromarray(np.dstack([picture, picture[..., 1]]))
    deep = Image.fromarray(picture[..., 0].astype(np.uint16) * 257)
    for saved, name, options in ((image, "a.jxr", {}), (rgba, "b.jxr", {}), (deep, "c.jxr", {}), (deep, "d.jp2", {}),
                                 (image, "e.jpg", {"lossless": True})):
        saved.save(tmp_path / name, **options)
        with Image.open(tmp_path / name) as back:
            assert back.size == saved.size and np.array_equal(np.asarray(back), np.asarray(saved)), name
    for block in ("bc1", "bc3", "bc7"):  # Pillow's own decoder
        rgba.save(tmp_path / "f.dds", block=block)
        with Image.open(tmp_path / "f.dds") as back:
            assert np.abs(np.asarray(back).astype(int) - np.asarray(rgba))[..., :3].mean() < 6, block
    # What Pillow has stays Pillow's.
    image.save(tmp_path / "g.jpg", quality=90)
    image.save(tmp_path / "h.jp2")
    rgba.save(tmp_path / "i.dds")
    for name in ("g.jpg", "h.jp2", "i.dds"):
        with Image.open(tmp_path / name) as back:
            assert type(back).__module__.startswith("PIL.") and back.size == image.size
    with pytest.raises(Image.UnidentifiedImageError):
        Image.open(io.BytesIO(b"II\xbc\x01" + bytes(40)))


def test_files_behind_a_fork(picture):
    """The runtime's team is the parent's: a child reads on its own."""
    code = ("import os, qelj, numpy as np; p = np.zeros((2000, 2000, 3), np.uint8); f = qelj.write_picture(p, 'jp2')\n"
            "child = os.fork()\n"
            "if not child: os._exit(int(not np.array_equal(qelj.imread(f), p)))\n"
            "print(os.waitpid(child, 0)[1])")
    result = subprocess.run([sys.executable, "-c", code], env={**os.environ, "OMP_NUM_THREADS": "3"},
                            stdout=subprocess.PIPE, timeout=100)
    assert result.stdout == b"0\n"


PRINT = "import qelj; print(qelj.image, qelj.path); qelj.qeliSub128_JPEG_8u16s_C1R(qelj.zeros((9, 9), 'uint8'))"


def python(code, **environment):
    result = subprocess.run([sys.executable, "-c", code], env={**os.environ, **environment}, stdout=subprocess.PIPE,
                            stderr=subprocess.STDOUT, text=True)
    return result.returncode, result.stdout


def test_image_that_is_loaded(tmp_path):
    # In a build or in an installation.
    folder = os.path.dirname(os.path.realpath(qelj.path))
    images = {name: path for name in ("portable", "x86-64-v2") for up in ("", "../..")
              for kind in ("images", "glibc-hwcaps")
              if os.path.exists(path := os.path.normpath(os.path.join(folder, up, kind, name, "libqelj.so.7")))}
    core = _library.file_of(int(ffi.cast("uintptr_t", ffi.addressof(_library.lib, "qelCanRunImage"))))
    for name, path in images.items():
        assert python(PRINT, QELJ_LIBRARY=path) == (0, f"{name} {path}\n")
    status, told = python(PRINT, QELJ_LIBRARY=str(tmp_path / "none.so"))
    assert status == 1 and "ImportError: qelj: the library was not found" in told
    # A folder as an installation has it: the best image that this processor can run.
    os.symlink(core, tmp_path / "libqelcore.so.7")
    plain = images.get("portable", qelj.path)
    os.symlink(plain, tmp_path / "libqelj.so.7")
    assert python(PRINT, QELJ_LIBRARY=str(tmp_path))[1].split()[1] == str(tmp_path / "libqelj.so.7")
    if "x86-64-v2" in images:
        (tmp_path / "glibc-hwcaps" / "x86-64-v2").mkdir(parents=True)
        os.symlink(images["x86-64-v2"], tmp_path / "glibc-hwcaps" / "x86-64-v2" / "libqelj.so.7")
        assert python(PRINT, QELJ_LIBRARY=str(tmp_path))[1].split()[0] == "x86-64-v2"


def test_version():
    assert qelj.version().versionText == "7.1.0 (r36264)" and qelj.__version__.startswith("7.")
    assert qelj.version().cpuTag == "g9" and list(qelj.typical.quantisers.shape) == [2, 64]
