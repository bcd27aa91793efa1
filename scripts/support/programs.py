"""Times the converter beside the peers' programs, from a file to a file: programs.py CONVERTER [ROWS] prints the table
of docs/converter.md, or the rows whose names have these words. All programs take turns; of three times the median
counts. The picture, 4000 x 3000, is the raccoon of examples/images and its mirror images."""
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
# What is done, whether the peer takes a number of threads, and the options of both programs when they write.
ROWS = (("JPEG XR, lossless", "jxr", [], ["JxrEncApp", "-i", "{i}", "-o", "{c}", "-c", "9", "-q", "1", "-l", "0", "-f"],
         ["JxrDecApp", "-i", "{c}", "-o", "{o}", "-c", "9"], []),
        ("JPEG XR, quantiser 40", "jxr", ["--quantizer", "40"],
         ["JxrEncApp", "-i", "{i}", "-o", "{c}", "-c", "9", "-q", "40", "-f"],
         ["JxrDecApp", "-i", "{c}", "-o", "{o}", "-c", "9"], []),
        ("JPEG 2000, lossless", "jp2", [], ["opj_compress", "-i", "{i}", "-o", "{c}"],
         ["opj_decompress", "-i", "{c}", "-o", "{o}"], ["-threads"]),
        ("JPEG 2000, 9/7", "jp2", ["--irreversible"], ["opj_compress", "-I", "-i", "{i}", "-o", "{c}"],
         ["opj_decompress", "-i", "{c}", "-o", "{o}"], ["-threads"]))


def picture(path):
    """Writes the picture, by way of the converter."""
    subprocess.run([CONVERTER, os.path.join(ROOT, "examples/images/raccoon.png"), path], check=True)
    with open(path, "rb") as file:
        _, size, _, samples = file.read().split(b"\n", 3)
    width, height = map(int, size.split())
    one = numpy.frombuffer(samples, "u1").reshape(height, width, 3)
    pair = numpy.concatenate([one, one[:, ::-1]], 1)
    four = numpy.concatenate([pair, pair[::-1]], 0)
    large = numpy.tile(four, (3000 // len(four) + 1, 4000 // len(four[0]) + 1, 1))[:3000, :4000]
    with open(path, "wb") as file:
        file.write(b"P6\n4000 3000\n255\n" + large.tobytes())


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
        names = "i.ppm", "o.ppm", "report", "c.jxr", "c.jp2", "m.jxr", "m.jp2"
        at = {name: os.path.join(place, name) for name in names}
        picture(at["i.ppm"])
        print("| | threads | seconds | of processors | MB | peer | of processors | MB | times as fast |\n"
              "|---|---:|---:|---:|---:|---:|---:|---:|---:|")
        for words, ending, options, write, read, threads in (row for row in ROWS if ROWS_WANTED in row[0]):
            def filled(command, ending=ending):
                return [part.format(i=at["i.ppm"], o=at["o.ppm"], c=at["c." + ending]) for part in command]
            writes = [CONVERTER, at["i.ppm"], at["m." + ending], *options]
            reads = [CONVERTER, at["c." + ending], at["o.ppm"]]
            for does, ours, theirs in (("writing", writes, filled(write)), ("reading", reads, filled(read))):
                commands = []
                for number in ("1", "2"):
                    commands.append([*ours, "--threads", number])
                    commands.append([*theirs, *(part for name in threads for part in (name, number))])
                figures = by_turns(commands, at["report"])
                for number in (0, 1):
                    (wall, cpu, memory), (peer, peer_cpu, peer_memory) = figures[2 * number:2 * number + 2]
                    print(f"| {words}, {does} | {number + 1} | {wall:.2f} | {cpu:.2f} | {memory:.0f} | {peer:.2f} | "
                          f"{peer_cpu:.2f} | {peer_memory:.0f} | {peer / wall:.1f} |", flush=True)


main()
