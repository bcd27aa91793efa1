"""The types and functions of the two libraries as their headers declare them, kept as dumps of abidw (abigail-tools).

    python3 tests/install/abi.py     writes libqelj.abi and libqelcore.abi anew

The exports of libqelj are entries of an assembly file, without types: so what is dumped is a library made of the header
alone, each declaration with an empty body. That the built libraries have exactly these names is tested elsewhere."""
import os
import re
import subprocess
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
SOURCE = os.path.join(HERE, "..", "..")
HEADERS = {"libqelj": "include/qelj.h", "libqelcore": "qelcore/qelcore.h"}


def dumped(name, dump):
    with tempfile.TemporaryDirectory() as directory:
        with open(os.path.join(SOURCE, HEADERS[name])) as file:
            text, count = re.subn(r"(?m)^(QEL\w+_API [^;]*\));", r"\1 { __builtin_trap(); }", file.read())
        source = os.path.join(directory, "header.c")
        with open(source, "w") as file:
            file.write(text)
        library = os.path.join(directory, f"{name}.so")
        subprocess.run(["cc", "-g", "-w", "-shared", "-fPIC", "-nostdlib", f"-Wl,-soname,{name}.so.7", source, "-o",
                        library], check=True)
        subprocess.run(["abidw", "--no-architecture", "--no-corpus-path", "--no-comp-dir-path", "--no-show-locs",
                        "--no-parameter-names", "--type-id-style", "hash", "--out-file", dump, library], check=True)
    return count


def difference(name):
    """What abidiff says against the kept dump; nothing where there is no difference."""
    with tempfile.TemporaryDirectory() as directory:
        dump = os.path.join(directory, "now.abi")
        dumped(name, dump)
        result = subprocess.run(["abidiff", "--no-show-locs", os.path.join(HERE, f"{name}.abi"), dump],
                                stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        return result.stdout.decode() if result.returncode else ""


if __name__ == "__main__":
    for library in HEADERS:
        print(library, dumped(library, os.path.join(HERE, f"{library}.abi")), "functions")
