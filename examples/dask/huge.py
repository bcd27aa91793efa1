#!/usr/bin/env python3
"""huge.py PICTURE OUT.jp2: codes a picture that is larger than memory as lossless JPEG 2000, on all workers.

The picture is binary PNM (.pgm, .ppm) or an array (.npy). Each worker reads the rows of one tile and codes it block by
block; this program writes the tiles one behind another. Nobody ever holds more than a few tiles.
"""
import argparse
import os
import sys

from distributed import Client

import tile
from cluster import Progress, add_arguments, complete_or_absent, connected, in_order


def code_picture(client: Client, source: str, target: str, side: int = 1024, levels: int = 5) -> str:
    """Writes the picture, as a .jp2 or a bare code stream, .j2k, and returns what there is to say."""
    source = os.path.abspath(source)
    layout = tile.layout_of(source, side, levels)
    across, down = layout.tiles
    progress = Progress("tiles", across * down, client)

    def parts():
        for part in in_order(client, tile.code_tile, ((source, layout, n) for n in range(across * down))):
            yield part
            progress.step()

    with complete_or_absent(target) as partial:
        with open(partial, "wb") as file:
            for piece in tile.joined(layout, parts(), target.endswith(".jp2")):
                file.write(piece)
            size = file.tell()
    samples, seconds = layout.width * layout.height * layout.channels, progress.seconds()
    return (f"{target}: {layout.width} x {layout.height}, {across * down} tiles, {size} bytes, "
            f"{8 * size / samples:.2f} bits a sample, {samples / seconds / 1e6:.1f} million samples a second")


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("source", metavar="PICTURE")
    parser.add_argument("target", metavar="OUT.jp2")
    parser.add_argument("--tile", type=int, default=1024, metavar="SIDE", help="a power of two, 1024 by default")
    parser.add_argument("--levels", type=int, default=5, help="of the wavelet, 5 by default")
    add_arguments(parser)
    arguments = parser.parse_args()
    try:
        tile.layout_of(arguments.source, arguments.tile, arguments.levels)
        with connected(arguments) as client:
            print(code_picture(client, arguments.source, arguments.target, arguments.tile, arguments.levels))
    except (OSError, ValueError) as error:
        print(f"huge.py: {error}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
