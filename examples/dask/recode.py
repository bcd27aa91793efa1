#!/usr/bin/env python3
"""recode.py FOLDER OUT ENDING [NAME=VALUE...]: writes all pictures of a folder in another format, on all workers.

`recode.py photographs small jxr quality=85` makes small/a/b.jxr of photographs/a/b.png. The names and values are
options of qelj.imwrite. A file that cannot be read is told at the end and stops no other.
"""
import argparse
import os
import sys
import uuid
from typing import Any, Dict, List, NamedTuple, Tuple

import qelj

ENDINGS = {".jpg", ".jpeg", ".jp2", ".j2k", ".jxr", ".dds", ".ktx2", ".tif", ".tiff", ".png", ".pnm", ".pgm", ".ppm"}


def recode(source: str, target: str, options: Dict[str, Any]) -> Tuple[str, int, int, str]:
    """A worker's task, which may be done twice: the picture's name, the bytes of both files, none where
    nothing was written, and what is to be told."""
    qelj.set_num_threads(1)  # the other processors are other workers'
    partial = f"{target}.{uuid.uuid4().hex}.part"
    try:
        before = os.path.getsize(source)
        picture = qelj.read_picture(source)
        data = qelj.write_picture(picture.array, os.path.splitext(target)[1], picture.colour, picture.bits, **options)
        os.makedirs(os.path.dirname(target), exist_ok=True)
        with open(partial, "wb") as file:
            file.write(data)
        os.replace(partial, target)  # never half a file under the name, whenever the worker is lost
    except (OSError, ValueError) as error:  # a FileError among them
        return source, 0, 0, str(error)
    return source, before, len(data), picture.notes.strip()


class Summary(NamedTuple):
    done: int
    bytes_before: int
    bytes_after: int
    failed: int
    told: List[Tuple[str, str]]


def pairs_of(folder: str, out: str, ending: str) -> List[Tuple[str, str]]:
    """The pictures of a folder and of those in it, and what each becomes."""
    pairs: Dict[str, str] = {}
    for place, _, names in sorted(os.walk(folder)):
        for name in sorted(names):
            stem, old = os.path.splitext(name)
            if old.lower() not in ENDINGS:
                continue
            source = os.path.join(place, name)
            target = os.path.join(out, os.path.relpath(place, folder), f"{stem}.{ending.lstrip('.')}")
            target = os.path.abspath(target)
            if pairs.setdefault(target, os.path.abspath(source)) != os.path.abspath(source):
                raise ValueError(f"{pairs[target]} and {source} would both be {target}")
            if target == os.path.abspath(source):
                raise ValueError(f"{source} would be written over")
    return [(source, target) for target, source in pairs.items()]


def recode_folder(client: Any, folder: str, out: str, ending: str, options: Dict[str, Any]) -> Summary:
    from cluster import Progress, in_order  # which workers don't have and don't need
    pairs = pairs_of(folder, out, ending)
    progress = Progress("pictures", len(pairs), client)
    results = []
    for result in in_order(client, recode, ((*pair, options) for pair in pairs)):
        progress.step()
        results.append(result)
    done = [result for result in results if result[2]]
    return Summary(len(done), sum(result[1] for result in done), sum(result[2] for result in done),
                   len(results) - len(done), [(source, words) for source, _, _, words in results if words])


def main() -> int:
    from cluster import add_arguments, connected
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    for name in ("folder", "out", "ending"):
        parser.add_argument(name, metavar=name.upper())
    parser.add_argument("options", nargs="*", metavar="NAME=VALUE")
    add_arguments(parser)
    arguments = parser.parse_args()
    options = {name: value or True for name, _, value in (text.partition("=") for text in arguments.options)}
    try:
        pairs_of(arguments.folder, arguments.out, arguments.ending)
        with connected(arguments) as client:
            summary = recode_folder(client, arguments.folder, arguments.out, arguments.ending, options)
    except (OSError, ValueError) as error:
        print(f"recode.py: {error}", file=sys.stderr)
        return 1
    for source, words in summary.told:
        print(f"{source}: {words}", file=sys.stderr)
    print(f"{summary.done} pictures, {summary.bytes_before} bytes, became {summary.bytes_after} bytes of "
          f"{arguments.ending}; {summary.failed} could not be converted")
    return 1 if summary.failed else 0


if __name__ == "__main__":
    sys.exit(main())
