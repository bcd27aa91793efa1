"""assemble.py DIRECTORY: puts the package qelj together in DIRECTORY, with what it takes from the headers.

  _cffi.py          the declarations, as cffi reads them without a compiler
  _table.py         functions with their comments and declarations, statuses, typical tables
  _enumerations.py  the enumerations
  _functions.pyi    the functions as type checkers see them
"""
import ast
import importlib.util
import keyword
import os
import pprint
import re
import shutil
import sys

import cffi

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "site"))
import header  # noqa: E402

ROOT = header.ROOT
HEADERS = ("include", "qelj.h"), ("qelcore", "qelcore.h"), ("examples", "convert", "qelconv.h")


def read(*path):
    with open(os.path.join(ROOT, *path), encoding="utf-8") as file:
        return file.read()


def write(package, name, text):
    with open(os.path.join(package, name), "w", encoding="utf-8") as file:
        file.write(text)


def declarations(text):
    """A header of C without comments, directives and what is for C++ or the linker."""
    text = re.sub(r"/\*.*?\*/", "", text, flags=re.DOTALL)
    text = re.sub(r"^#(?:[^\n]*\\\n)*[^\n]*\n", "", text, flags=re.MULTILINE)
    text = re.sub(r'extern "C" \{(.*)\}', r"\1", text, flags=re.DOTALL)
    return re.sub(r"\b(QELJ|QELCORE|QELCONV)_API\b", "", text)


def enumerations():
    """The text of _enumerations.py: the header's enumerations by their names without "Qel", with their comments."""
    found = {"Status": ("Results of calls.", [(name[len("qelStatus"):], value, meaning)
                                              for name, value, meaning in header.status_values()])}
    for about, name, body in re.findall(r"^/\*\* ([^\n]*) \*/\nenum Qel(\w+) \{\n(.*?)^\};", header.read(),
                                        re.DOTALL | re.MULTILINE):
        found[name] = (about, re.findall(rf"^  qel{name}(\w+) = (\w+),? +/\*\*< (.*?) \*/$", body, re.MULTILINE))
    text = '"""The enumerations of qelj.h. Made by assemble.py."""\nimport enum\n\n' + f"__all__ = {list(found)}\n"
    for name, (about, members) in found.items():
        kind = "IntFlag" if about.startswith("Bits") else "IntEnum"
        text += f"\n\nclass {name}(enum.{kind}):\n    \"\"\"{about}\"\"\"\n\n" + "".join(
            f"    #: {meaning}\n    {member}{'_' * keyword.iskeyword(member)} = {value}\n"
            for member, value, meaning in members)
    return text


def statuses():
    """Number, name and text of each status: the texts are those of qelj_status.h."""
    texts = dict(re.findall(r'case (qelStatus\w+):\s*return "(.*?)";', read("qelcore", "qelj_status.h")))
    return {value: (name, texts[name]) for name, value, _ in header.status_values()}


def typical():
    """The tables of qelj_typical.h."""
    text = re.sub(r"/\*.*?\*/", "", read("qelcore", "qelj_typical.h"), flags=re.DOTALL)
    tables = re.findall(r"uint8_t qelTypical(\w+)\[.*?\] = (\{.*?\});", text, re.DOTALL)
    return {name: ast.literal_eval(body.replace("{", "[").replace("}", "]")) for name, body in tables}


def functions():
    """Name: group, what the comment says of this one, declaration."""
    return {name: (group.name, brief, declaration) for group in header.groups().values()
            for name, brief, declaration in group.functions}


def plans(folder):
    """The module _plan, which needs no library."""
    spec = importlib.util.spec_from_file_location("qelj_plan", os.path.join(folder, "_plan.py"))
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


STUB = '''"""The functions of qelj.h. Made by assemble.py."""
from typing import NamedTuple, Sequence, Union
import numpy as np
import numpy.typing as npt
from ._records import {records}

Size = tuple[int, int]
Tile = tuple[int, int, int, int]
Bytes = Union[npt.NDArray[np.uint8], bytes, bytearray, memoryview]
__all__ = {names}

'''


def stub(plan_module, table):
    """The text of _functions.pyi."""
    table = {name: entry for name, entry in table.items() if entry[0] != "library"}
    text, bodies = STUB.format(records=", ".join(plan_module.RECORDS.values()), names=pprint.pformat(list(table))), []
    for name, (group, brief, declaration) in table.items():
        plan = plan_module.Plan(name, group, declaration)
        required = [typed(one) for one in plan.parameters if one.python and one.required]
        optional = [typed(one) for one in plan.parameters if one.python and not one.required]
        results = [(one.name, result_type(one)) for one in plan.results]
        kinds = dict(results)
        for one in plan.parameters:
            if one.role == "cursor":
                optional.append("streamPos: int = 0")
                results.append(("streamPos", "int"))
        if len(results) > 1:
            fields = "".join(f"    {key}: {kind}{'  # type: ignore[assignment]' * (key == 'count')}\n"
                             for key, kind in results)  # a tuple has a method of that name
            text += f"class {name}_Results(NamedTuple):\n{fields}\n"
        returned = "None" if not results else f"{name}_Results" if len(results) > 1 else next(iter(kinds.values()))
        optional = ["*", *optional] if optional else []
        bodies.append(f"def {name}({', '.join([*required, *optional])}) -> {returned}: ...\n")
    return text + "\n" + "".join(bodies)


def result_type(one):
    if one.role in ("record", "allocated"):
        return one.base
    if one.role == "result":
        return "float" if one.base == "double" else "int"
    kind = f"npt.NDArray[np.{ELEMENT[one.base]}]"
    if one.role != "planes":
        return kind
    return f"tuple[{kind}, ...]" if isinstance(one.shape[0], str) else f"tuple[{', '.join([kind] * len(one.shape))}]"


def typed(one):
    if one.role == "record":
        kind = one.base
    elif one.role == "records":
        kind = f"Sequence[{one.base}]"
    elif one.role in ("size", "tile"):
        kind = one.role.capitalize()
    elif one.role in ("number", "result"):
        kind = "int"
    else:
        kind = f"npt.NDArray[np.{ELEMENT[one.base]}]"
        if one.role in ("array", "cursor") and one.base == "uint8_t":
            kind = "Bytes"
        elif one.role == "planes":
            kind = f"Union[Sequence[{kind}], {kind}]"
    if one.required:
        return f"{one.name}: {kind}"
    if one.default is not None:
        return f"{one.name}: {kind} = {one.default}"
    return f"{one.name}: Union[{kind}, None] = None"


ELEMENT = {}


def assemble(directory):
    package = os.path.join(directory, "qelj")
    shutil.rmtree(package, ignore_errors=True)
    shutil.copytree(os.path.join(HERE, "src", "qelj"), package, ignore=shutil.ignore_patterns("__pycache__", "lib"))
    builder = cffi.FFI()
    builder.cdef("".join(declarations(read(*path)) for path in HEADERS))
    builder.set_source("qelj._cffi", None)
    builder.emit_python_code(os.path.join(package, "_cffi.py"))
    table = functions()
    version = re.search(r"project\(qelj VERSION (\S+)", read("CMakeLists.txt"))[1]
    values = {"VERSION": version, "FUNCTIONS": table,
              "GROUPS": {name: (group.title, group.text) for name, group in header.groups().items()},
              "STATUSES": statuses(), "TYPICAL": typical()}
    write(package, "_table.py", '"""What the headers say. Made by assemble.py."""\n' + "".join(
        f"{name} = {pprint.pformat(value, sort_dicts=False, width=120)}\n" for name, value in values.items()))
    write(package, "_enumerations.py", enumerations())
    module = plans(package)
    ELEMENT.update(module.ELEMENTS)
    write(package, "_functions.pyi", stub(module, table))
    return package


if __name__ == "__main__":
    assemble(sys.argv[1])
