#!/usr/bin/env python3
"""make.py MODULE OUT VERSION: puts the npm-ready folder together (OUT/package), and the page as one file
(OUT/index.html).

What the package says of each function, functions.js and functions.d.ts, comes from include/qelj.h."""
import base64
import gzip
import json
import os
import re
import shutil
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(HERE)
sys.path.insert(0, os.path.join(ROOT, "site"))
import header  # noqa: E402

ARRAYS = {"uint8_t": "Uint8Array", "int8_t": "Int8Array", "uint16_t": "Uint16Array", "int16_t": "Int16Array",
          "uint32_t": "Uint32Array", "int32_t": "Int32Array", "float": "Float32Array", "double": "Float64Array",
          "void": "Uint8Array"}


def argument(declared):
    """Name, letter and TypeScript's type of an argument. The letters: i a number, s a size, r a rectangle, a an array
    that is read, w one that is written too, p planes that are read, q planes that are written too, n an address."""
    kind, name, count = re.fullmatch(r"(.*?)(\w+)(\[\d*\])?", declared.strip()).groups()
    kind = kind.strip() + ("*" if count else "")
    element = re.sub(r"const|\*| ", "", kind)
    if kind == "QelSize":
        return name, "s", "Size"
    if kind == "const QelRect*":
        return name, "r", "Rect"
    if "*" not in kind:
        return name, "i", "number"
    if element not in ARRAYS or kind.endswith("**"):
        return name, "n", "Address"
    if kind.count("*") == 2:
        return name, "p" if kind.startswith("const") else "q", f"Planes<{ARRAYS[element]}>"
    return name, "a" if kind.startswith("const") else "w", f"{ARRAYS[element]} | Address"


def functions():
    for group in header.groups().values():
        for name, brief, declaration in group.functions:
            inside = declaration[declaration.index("(") + 1:-2]
            arguments = [] if inside == "void" else [argument(a) for a in inside.split(",")]
            yield group.name, name, brief, arguments


def write(path, text):
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)


def read(path, mode="r"):
    with open(path, mode, encoding=None if "b" in mode else "utf-8") as file:
        return file.read()


def package(module, out, version):
    shutil.rmtree(out, ignore_errors=True)
    shutil.copytree(os.path.join(HERE, "package"), out)
    shutil.copy(module, os.path.join(out, "qelj.wasm"))
    shutil.copy(os.path.join(ROOT, "LICENSE"), out)
    letters, types = {}, []
    for group, name, brief, arguments in functions():
        letters[name] = "".join(letter for _, letter, _ in arguments)
        types.append(f"  /** {brief} Family {group}. */\n  {name}("
                     + ", ".join(f"{argument}: {kind}" for argument, _, kind in arguments) + "): number;\n")
    write(os.path.join(out, "functions.js"),
          "// Made from qelj.h: what the arguments of each function are (see call() in qelj.js).\n"
          f"export const functions = {json.dumps(letters, indent=1)};\n")
    write(os.path.join(out, "functions.d.ts"),
          "// Made from qelj.h. Each function returns its status: 0, a warning above it, a failure below.\n"
          'import type { Address, Planes, Rect, Size } from "./qelj.js";\n'
          "export interface Functions {\n" + "".join(types) + "}\n")
    about = json.loads(read(os.path.join(out, "package.json")))
    about["version"] = version
    write(os.path.join(out, "package.json"), json.dumps(about, indent=2) + "\n")


def page(out, photograph):
    """One file: style, module, JavaScript and a photograph in it."""
    def script(name):
        text = read(os.path.join(out, "package", name))
        return re.sub(r"^import .*?;\n", "", re.sub(r"^export (?=(async )?(const|class|function))", "", text,
                                                    flags=re.MULTILINE), flags=re.MULTILINE)
    parts = {"style": read(os.path.join(HERE, "page", "page.css")),
             "module": base64.b64encode(gzip.compress(
                 read(os.path.join(out, "package", "qelj.wasm"), "rb"), mtime=0)).decode(),
             "photograph": base64.b64encode(read(photograph, "rb")).decode(),
             "script": script("functions.js") + script("qelj.js") + re.sub(
                 r"^import .*?;\n", "", read(os.path.join(HERE, "page", "page.js")), flags=re.MULTILINE)}
    text = read(os.path.join(HERE, "page", "index.html"))
    write(os.path.join(out, "index.html"), re.sub(r"\{\{(\w+)\}\}", lambda found: parts[found[1]], text))


if __name__ == "__main__":
    MODULE, OUT, VERSION = sys.argv[1:]
    package(MODULE, os.path.join(OUT, "package"), VERSION)
    page(OUT, os.path.join(ROOT, "examples", "images", "coffee.png"))
