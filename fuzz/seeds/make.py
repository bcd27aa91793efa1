"""Makes the seeds beside it anew: files and parts of files that other makers' encoders write of a small picture
(libjpeg-turbo-progs, libopenjp2-tools, libjxr-tools, libtiff-tools), each as its fuzz target takes it apart."""
import pathlib
import struct
import subprocess
import tempfile

HERE = pathlib.Path(__file__).parent
WIDTH, HEIGHT = 40, 24


def pixel(x, y):
    return (x * 6 + y) & 255, (x * y * 3 + (x // 5 * 40)) & 255, (200 - 5 * y + (x ^ y) % 9 * 6) & 255


def keep(family, name, data):
    (HERE / family).mkdir(exist_ok=True)
    (HERE / family / name).write_bytes(data)


def segments(jpeg):
    """The marker segments of a JPEG file, and the data behind each."""
    at = 2
    while at + 4 <= len(jpeg) and jpeg[at + 1] != 0xD9:
        end = at + 2 + struct.unpack_from(">H", jpeg, at + 2)[0]
        behind = end
        while jpeg[behind] != 0xFF or jpeg[behind + 1] in (0, *range(0xD0, 0xD8)):
            behind += 1
        yield jpeg[at + 1], jpeg[at + 4:end], jpeg[end:behind]
        at = behind


def huffman_tables(payload):
    tables = {}
    while payload:
        count = sum(payload[1:17])
        tables[payload[0]] = payload[1:17 + count]
        payload = payload[17 + count:]
    return tables


class Header:
    """A packet header of JPEG 2000 (ISO/IEC 15444-1, B.10), of one code-block."""

    def __init__(self, data):
        self.data, self.at, self.left, self.byte = data, 0, 0, 0

    def bit(self):
        if not self.left:
            self.left = 7 if self.byte == 0xFF else 8
            self.byte = self.data[self.at]
            self.at += 1
        self.left -= 1
        return self.byte >> self.left & 1

    def bits(self, n):
        value = 0
        for _ in range(n):
            value = value * 2 + self.bit()
        return value

    def code_block(self):
        assert self.bit() and self.bit()  # a packet, and its code-block, are there
        zero_planes = 0
        while not self.bit():
            zero_planes += 1
        passes = 1
        for bits, more in ((1, 1), (1, 1), (2, 3), (5, 31), (7, 127)):
            value = self.bits(bits)
            passes += value
            if value != more:
                break
        length_bits = 3
        while self.bit():
            length_bits += 1
        length = self.bits(length_bits + passes.bit_length() - 1)
        return zero_planes, passes, length


def main():
    with tempfile.TemporaryDirectory() as directory:
        path = pathlib.Path(directory)
        rows = [[pixel(x, y) for x in range(WIDTH)] for y in range(HEIGHT)]
        flat = bytes(v for row in rows for p in row for v in p)
        (path / "a.ppm").write_bytes(b"P6\n%d %d\n255\n" % (WIDTH, HEIGHT) + flat)
        (path / "a.pgm").write_bytes(b"P5\n%d %d\n255\n" % (20, 13) + flat[1:780:3])
        bottom_up = bytes(v for row in rows[::-1] for p in row for v in p[::-1])
        (path / "a.bmp").write_bytes(b"BM" + struct.pack("<IIIIiiHHIIiiII", 54 + len(flat), 0, 54, 40, WIDTH, HEIGHT, 1,
                                                         24, 0, len(flat), 2835, 2835, 0, 0) + bottom_up)

        def made(name, *command):
            subprocess.run(command, cwd=path, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            return (path / name).read_bytes()

        jpegs = {name: made("a.jpg", "cjpeg", *options, "-outfile", "a.jpg", "a.ppm")
                 for name, options in (("baseline", ["-quality", "80", "-optimize"]),
                                       ("restarts", ["-quality", "60", "-restart", "1", "-sample", "1x1"]),
                                       ("progressive", ["-progressive", "-quality", "85"]))}
        for name, jpeg in jpegs.items():
            keep("read_jpg", name, b"\0" + jpeg)
        tables = {}
        for marker, payload, behind in segments(jpegs["baseline"]):
            if marker == 0xC4:
                tables.update(huffman_tables(payload))
            if marker == 0xDA:
                keep("huffman_baseline", "scan", b"\1" + tables[0] + b"\1" + tables[0x10] + b"\x20\0" + behind)
        for marker, payload, behind in segments(jpegs["progressive"]):
            if marker == 0xC4:
                tables.update(huffman_tables(payload))
            if marker == 0xDA:
                first, last, bits = payload[-3:]
                kind = (0 if first == 0 else 2) + (bits >> 4 != 0)
                table = tables.get((first > 0) << 4 | payload[2] & 15 if first else payload[2] >> 4, tables[0])
                keep("huffman_progressive", f"scan_{kind}_{first}_{bits & 15}_{payload[1]}",
                     b"\1" + table + bytes([2]) + bytes([kind, first, last, bits & 15]) * 2 + behind)

        for name, options in (("lossless.j2k", ["-n", "3"]), ("layers.jp2", ["-r", "20,8,2", "-I", "-n", "2"]),
                              ("tiles.j2k", ["-t", "24,24", "-n", "2", "-p", "RPCL", "-M", "41", "-SOP", "-EPH"])):
            keep("read_j2k", name, b"\0" + made(name, "opj_compress", "-i", "a.ppm", "-o", name, *options))
        # The second tile coded by parameters in its own header: those of another file.
        parts = []
        for options in (["-n", "3"], ["-n", "2", "-p", "RPCL", "-b", "8,8", "-M", "1"]):
            data = made("a.j2k", "opj_compress", "-i", "a.ppm", "-o", "a.j2k", "-t", "24,24", *options)
            coding, comment, tiles = (data.index(marker) for marker in (b"\xff\x52", b"\xff\x64", b"\xff\x90"))
            second = data.index(b"\xff\x90", tiles + 12)
            parts.append((data[:second], data[coding:comment], data[second:second + 12], data[second + 12:]))
        own, rest = parts[1][1], parts[1][3]
        start = parts[0][2][:6] + struct.pack(">I", len(own) + 10 + len(rest)) + parts[0][2][10:]
        keep("read_j2k", "own.j2k", b"\0" + parts[0][0] + start + own + rest)
        for style in (0, 8, 32):
            data = made("block.j2k", "opj_compress", "-i", "a.pgm", "-o", "block.j2k", "-n", "1", "-M", str(style))
            packet = data[data.index(b"\xff\x93") + 2:-2]
            quantiser = data[data.index(b"\xff\x5c") + 4:]
            header = Header(packet)
            zero_planes, passes, length = header.code_block()
            body = packet[header.at:]
            assert length == len(body)
            planes = (quantiser[1] >> 3) + (quantiser[0] >> 5) - 1 - zero_planes
            own_style = {0: 0, 8: 1, 32: 16}[style]  # causal, segmentation symbols
            keep("jpeg2000", f"block_{style}",
                 b"\1" + struct.pack("<HHH", 19, 12, own_style | 0x80) + b"\0" + struct.pack("<HH", 0, planes) +
                 bytes([0, passes, 1, 0]) + body)

        for name, options in (("lossless", ["-q", "1"]), ("lossy", ["-q", "0.7", "-d", "1"])):
            jxr = made("a.jxr", "JxrEncApp", "-i", "a.bmp", "-o", "a.jxr", "-c", "0", *options)
            keep("read_jxr", name, b"\0" + jxr)
            keep("jpegxr", name, bytes([5, 0x0E, 0x06, 0x03, 0x1E, 0x0B, 0x1B]) + jxr[-160:])

        tiff = made("a.tif", "ppm2tiff", "-c", "packbits", "-r", "8", "a.ppm", "a.tif")
        keep("read_tif", "packbits", b"\0" + tiff)
        keep("tiff", "packbits", struct.pack("<H", 3 * WIDTH - 1) + b"\0" + tiff[8:8 + 500])


main()
