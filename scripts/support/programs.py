"""Times the converter beside the peers' programs, from a file to a file: programs.py CONVERTER [ROWS] prints the table
of docs/converter.md, or the rows whose names have these words. All programs take turns; of three times the median
counts. The pictures are the raccoon of examples/images and its mirror images."""
import os
import statistics
import subprocess
import sys
import tempfile
import time

import numpy

CONVERTER = os.path.abspath(sys.argv[1])
ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
ROWS_WANTED = sys.argv[2] if len(sys.argv) > 2 else ""
TURNS = 3
SIZES = {"4000x3000": (4000, 3000), "12000x9000": (12000, 9000)}
# What is done, to which picture; the ending of the coded file and of what is read from it; our options when writing and
# when reading; the peer's commands, and whether they take a number of threads.
ROWS = (("JPEG", "12000x9000", "jpg", "ppm", ["--sampling", "420"], [],
         ["cjpeg", "-quality", "85", "-outfile", "{c}", "{i}"], ["djpeg", "-ppm", "-outfile", "{o}", "{c}"], []),
        ("JPEG, progressive", "12000x9000", "jpg", "ppm", ["--sampling", "420", "--progressive"], [],
         ["cjpeg", "-progressive", "-quality", "85", "-outfile", "{c}", "{i}"],
         ["djpeg", "-ppm", "-outfile", "{o}", "{c}"], []),
        ("TIFF, PackBits", "12000x9000", "tif", "tif", [], ["--packing", "none"],
         ["ppm2tiff", "-c", "packbits", "{i}", "{c}"], ["tiffcp", "-m", "0", "-c", "none", "{c}", "{o}"], []),
        ("TIFF, PackBits in strips", "12000x9000", "tif", "tif", [], ["--packing", "none"],
         ["ppm2tiff", "-c", "packbits", "-r", "8", "{i}", "{c}"],
         ["tiffcp", "-m", "0", "-c", "none", "{c}", "{o}"], []),
        ("TIFF, LZW", "4000x3000", "tif", "tif", ["--packing", "lzw"], ["--packing", "none"],
         ["ppm2tiff", "-c", "lzw:2", "-r", "8", "{i}", "{c}"], ["tiffcp", "-m", "0", "-c", "none", "{c}", "{o}"], []),
        ("JPEG XR, lossless", "4000x3000", "jxr", "ppm", [], [],
         ["JxrEncApp", "-i", "{i}", "-o", "{c}", "-c", "9", "-q", "1", "-l", "0", "-f"],
         ["JxrDecApp", "-i", "{c}", "-o", "{o}", "-c", "9"], []),
        ("JPEG XR, quantiser 40", "4000x3000", "jxr", "ppm", ["--quantizer", "40"], [],
         ["JxrEncApp", "-i", "{i}", "-o", "{c}", "-c", "9", "-q", "40", "-f"],
         ["JxrDecApp", "-i", "{c}", "-o", "{o}", "-c", "9"], []),
        ("JPEG 2000, lossless", "4000x3000", "jp2", "ppm", [], [], ["opj_compress", "-i", "{i}", "-o", "{c}"],
         ["opj_decompress", "-i", "{c}", "-o", "{o}"], ["-threads"]),
        ("JPEG 2000, 9/7", "4000x3000", "jp2", "ppm", ["--irreversible"], [],
         ["opj_compress", "-I", "-i", "{i}", "-o", "{c}"], ["opj_decompress", "-i", "{c}", "-o", "{o}"], ["-threads"]))


def picture(path, wide, high):
    """Writes a picture, by way of the converter."""
    subprocess.run([CONVERTER, os.path.join(ROOT, "examples/images/raccoon.png"), path], check=True)
    with open(path, "rb") as file:
        _, size, _, samples = file.read().split(b"\n", 3)
    width, height = map(int, size.split())
    one = numpy.frombuffer(samples, "u1").reshape(height, width, 3)
    pair = numpy.concatenate([one, one[:, ::-1]], 1)
    four = numpy.concatenate([pair, pair[::-1]], 0)
    large = numpy.tile(four, (high // len(four) + 1, wide // len(four[0]) + 1, 1))[:high, :wide]
    with open(path, "wb") as file:
        file.write(b"P6\n%d %d\n255\n" % (wide, high) + large.tobytes())


def once(command, report):
    """Seconds on the clock, seconds of processors, megabytes."""
    start = time.perf_counter()
    subprocess.run(["/usr/bin/time", "-f", "%U %S %M", "-o", report, *command], check=True, stdout=subprocess.DEVNULL)
    taken = time.perf_counter() - start
    with open(report, encoding="ascii") as file:
        user, system, kilobytes = file.read().split()
    return taken, float(user) + float(system), int(kilobytes) / 1024


def by_turns(commands, report):
    runs = [[once(command, report) for command in commands] for _ in range(TURNS)]
    return [[statistics.median(figures) for figures in zip(*of_one)] for of_one in zip(*runs)]


def main():
    with tempfile.TemporaryDirectory(dir="/dev/shm" if os.path.isdir("/dev/shm") else None) as place:
        def at(name):
            return os.path.join(place, name)
        print("| | threads | seconds | of processors | MB | peer | of processors | MB | times as fast |\n"
              "|---|---:|---:|---:|---:|---:|---:|---:|---:|")
        for words, size, ending, other, options, back, write, read, threads in ROWS:
            if ROWS_WANTED not in words:
                continue
            source, coded, out = at(size + ".ppm"), at("coded." + ending), at("out." + other)
            if not os.path.exists(source):
                picture(source, *SIZES[size])

            def filled(command, names=(source, coded, out)):
                return [part.format(**dict(zip("ico", names))) for part in command]
            writes = [CONVERTER, source, at("ours." + ending), *options]
            reads = [CONVERTER, coded, out, *back]
            for does, ours, theirs in (("writing", writes, filled(write)), ("reading", reads, filled(read))):
                commands = []
                for number in ("1", "2"):
                    commands.append([*ours, "--threads", number])
                    commands.append([*theirs, *(part for name in threads for part in (name, number))])
                figures = by_turns(commands, at("report"))
                for number in (0, 1):
                    (wall, cpu, memory), (peer, peer_cpu, peer_memory) = figures[2 * number:2 * number + 2]
                    print(f"| {words}, {size}, {does} | {number + 1} | {wall:.2f} | {cpu:.2f} | {memory:.0f} | "
                          f"{peer:.2f} | {peer_cpu:.2f} | {peer_memory:.0f} | {peer / wall:.1f} |", flush=True)


main()
