"""manual.py DIRECTORY VERSION: writes qelj(3), a page for each family, and a link for each function to its family's
page, all from qelj.h."""
import email.utils
import os
import re
import sys

import header

EXAMPLE = os.path.join(header.ROOT, "examples", "tiny", "block.c")


def escaped(text):
    """Text for roff: backslashes, hyphens that are minus signs, lines that would be requests, and where the pattern of
    names may be broken."""
    for plain, roff in (("\\", "\\e"), ("-", "\\-"), ("'", "\\(aq"), ("`", "\\`"), ("][", "]\\:[")):
        text = text.replace(plain, roff)
    return re.sub(r"^([.'])", r"\\&\1", text, flags=re.MULTILINE)


def marked(text):
    """The same, with names of parameters in italics."""
    return re.sub(r"\\`([^\n]+?)\\`", r"\\fI\1\\fP", escaped(text))


def as_is(text):
    return f".PP\n.nf\n{escaped(text)}\n.fi\n"


def text_of(comment):
    """A text of the header: paragraphs that flow, and columns as they are."""
    result = ""
    for kind, lines in header.blocks(comment):
        if kind == "as is":
            entries = header.definitions(lines)
            result += as_is("\n".join(lines)) if entries is None else "".join(
                f".TP\n.B {escaped(word)}\n{marked(text)}\n" for word, text in entries)
            continue
        result += ".PP\n" if kind == "flow" else f".PP\n.B {escaped(kind)}\n"
        result += marked("\n".join(line.lstrip() for line in lines)) + "\n"
    return result


def date():
    """Of the newest version, as packages have it."""
    with open(os.path.join(header.ROOT, "debian", "changelog"), encoding="utf-8") as file:
        stamp = re.search(r"^ -- .*>  (.*)$", file.read(), re.MULTILINE)[1]
    return email.utils.parsedate_to_datetime(stamp).date().isoformat()


def page(name, version, what, *sections):
    head = (f'.TH {name.upper()} 3 {date()} "qelj {version}" "Image\\-compression primitives"\n.nh\n.ad l\n'
            f".SH NAME\n{name} \\- {escaped(what)}\n")
    return head + "".join(f".SH {title}\n" + re.sub(r"\A\.PP\n", "", text) for title, text in sections)


def statuses(names=None):
    return "".join(f".TP\n.BR {name} \" ({escaped(str(value))})\"\n{escaped(meaning)}\n"
                   for name, value, meaning in header.status_values() if names is None or name in names)


def overview(groups, version):
    with open(EXAMPLE, encoding="utf-8") as file:
        example = file.read()
    return page(
        "qelj", version, "image-compression primitives: JPEG, JPEG 2000, JPEG XR, block textures, TIFF rows",
        ("SYNOPSIS", ".nf\n.B #include <qelj.h>\n.PP\n.BI cc \" program.c \" \\-lqelj \" \" \\-lqelcore\n.fi\n"),
        ("DESCRIPTION",
         "The building blocks of codecs: sample and colour conversion, transforms, quantisation and entropy coding.\n"
         "A caller owns files, image memory and loops, and hands the library one row, one block, one code\\-block or\n"
         "one tile at a time.\n"
         "The same call gives the same bytes on every processor, build and number of threads.\n"
         ".PP\nThe functions of a family share one page; \\fBman\\fP finds it by the name of any of them.\n"
         + text_of(header.section(1))),
        ("WHAT TO CALL, BY TASK", "{a,b} stands for either; * for whatever the pixels are called.\n"
         + as_is(header.section(2).rstrip("\n"))),
        ("FAMILIES", "".join(f".TP\n.BR qelj_{name} (3)\n{escaped(group.title)}\n"
                             for name, group in groups.items() if group.functions)),
        ("RETURN VALUE", "Every function but\n.B qeljGetLibVersion\nreturns a status: 0 for success, a negative one\n"
         "for a failure, a positive one for a warning behind which the output is complete.\n" + statuses()),
        ("ENVIRONMENT", ".TP\n.B OMP_NUM_THREADS\nHow many threads calls that fork may use.\n"
         ".TP\n.B OMP_WAIT_POLICY\nWith\n.BR passive ,\nthreads of the OpenMP runtime sleep while they wait: for busy "
         "machines.\n"),
        ("FILES", ".TP\n.I qelj.h\nThe functions.\n.TP\n.I qelcore.h\nMemory, threads and the machine.\n"
         ".TP\n.I qelj_status.h\nTexts for statuses.\n"
         ".TP\n.I qelj_typical.h\nThe typical quantisers and Huffman lists of JPEG.\n"),
        ("EXAMPLES", f".nf\n{escaped(example)}.fi\n"),
        ("SEE ALSO", ".BR qelconv (1),\n.BR qelj\\-selftest (1)\n"))


def family(group, version):
    synopsis = ".B #include <qelj.h>\n" + "".join(
        f".HP\n.B {escaped(declaration)}\n" for _, _, declaration in group.functions)
    names = group.statuses()
    return page(
        f"qelj_{group.name}", version, group.title, ("SYNOPSIS", synopsis),
        ("DESCRIPTION", text_of(group.text) if group.text else f"{escaped(group.title)}.\n"),
        ("FUNCTIONS", "".join(f".TP\n.B {name}\n{escaped(brief)}\n" for name, brief, _ in group.functions)),
        *([("RETURN VALUE", "What stands above says when.\n" + statuses(names))] if names else []),
        ("SEE ALSO", ".BR qelj (3)\n"))


def main():
    directory, version = sys.argv[1:]
    groups = header.groups()
    pages = {"qelj": overview(groups, version)}
    for name, group in groups.items():
        if group.functions:
            pages[f"qelj_{name}"] = family(group, version)
            pages.update((function, f".so man3/qelj_{name}.3\n") for function, _, _ in group.functions)
    os.makedirs(directory, exist_ok=True)
    for name, text in pages.items():
        with open(os.path.join(directory, f"{name}.3"), "w", encoding="utf-8") as file:
            file.write(text)


if __name__ == "__main__":
    main()
