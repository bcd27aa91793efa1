"""build.py DIRECTORY [VERSION]: makes the site of the documents in DIRECTORY/html. Any warning is an error.

Doxygen reads qelj.h and the documents as filter.py gives them; header and side of a page are made here."""
import glob
import html
import os
import re
import shutil
import subprocess
import sys

import filter as filtering
import header
import tutorial

SITE = os.path.dirname(os.path.abspath(__file__))
ROOT = header.ROOT
START = ("site/index.md", "docs/tasks.md", "docs/codec.md", "docs/surprises.md")
GUIDES = ("docs/baseline.md", "docs/chroma.md", "docs/medical.md", "docs/jpeg2000.md", "docs/jpegxr.md",
          "docs/textures.md", "docs/exactness.md", "docs/threading.md", "docs/hostile.md", "docs/debugging.md",
          "docs/python.md", "docs/porting.md", "docs/measuring.md")
MORE = ("docs/performance.md", "docs/converter.md", "docs/versions.md", "docs/roadmap.md",
        "SECURITY.md", "CONTRIBUTING.md", "CHANGELOG.md")
MADE = ("programs.md", "functions-by-name.md", "tutorial.md")
FAMILIES = ("colour", "sampling", "mcu", "dct", "huffman", "progressive", "predictive", "components", "wavelets",
            "codeblocks", "photocore", "coefficients", "texture", "tiff", "frame")


def title(path):
    with open(os.path.join(ROOT, path), encoding="utf-8") as file:
        return file.readline().lstrip("# ").strip()


def entry(path):
    label = filtering.label(path)
    page = "index" if path == START[0] else label
    return f'<li><a href="{page}.html">{html.escape(title(path))}</a></li>'


def examples():
    found = [path for folder in filtering.EXAMPLES for path in glob.glob(os.path.join(ROOT, folder, "*.[ch]*"))]
    return sorted(os.path.relpath(path, ROOT) for path in found)


def page_header(version):
    def part(name, entries):
        return f"<details><summary>{name}</summary><ul>{''.join(entries)}</ul></details>"
    pages = {"qelj_8h": "How to read qelj.h", "modules": "Groups of qelj.h", "functions-by-name": "All functions",
             "group__status": "Statuses", "programs": "Programs", "tutorial": tutorial.TITLE}
    reference = [f'<li><a href="{page}.html">{name}</a></li>' for page, name in pages.items()]
    families = [f"site/families/{name}.md" for name in FAMILIES]
    parts = [part("Start", map(entry, START)), part("Families", map(entry, families)),
             part("Guides", map(entry, GUIDES)), part("Reference", reference), part("More", map(entry, MORE))]
    return f"""<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta name="color-scheme" content="light dark">
<title>$title - qelj</title>
<link href="$stylesheet" rel="stylesheet">
</head>
<body>
<nav>
<p><a href="index.html">qelj</a> {version}</p>
{"".join(parts)}
</nav>
<script>
// Parts of the list are open where there is room for it; else the one of this page says where one is.
const here = location.pathname.split("/").pop() || "index.html";
for (const part of document.querySelectorAll("nav details")) {{
  const link = part.querySelector(`a[href="${{here}}"]`);
  if (link) link.className = "here";
  part.open = matchMedia("(min-width: 60em)").matches && (link || part.querySelector("summary").textContent != "More");
}}
</script>
<main>
<div id="top">
"""


# The text of a group in front of its functions, and of the header nothing but the text.
LAYOUT = """<doxygenlayout version="1.0">
<file><detaileddescription title=""/><memberdef><defines title=""/></memberdef></file>
<group>
<detaileddescription title=""/>
<memberdecl><classes visible="yes"/><typedefs/><enums/><enumvalues/><functions/></memberdecl>
<memberdef><typedefs/><enums/><enumvalues/><functions/></memberdef>
</group>
</doxygenlayout>
"""

# Shows the rows that have all the words that are written into a field.
FIND = """<p><input id="find" type="search" placeholder="words to look for" aria-label="words to look for"></p>
<script>
const find = document.getElementById("find");
find.addEventListener("input", () => {
  const words = find.value.toLowerCase().split(/\\s+/);
  for (const row of document.querySelectorAll(".functions tr:not(.markdownTableHead)"))
    row.hidden = !words.every(word => row.textContent.toLowerCase().includes(word));
});
</script>"""

FOOTER = """</main>
</body>
</html>
"""


def settings(out, version):
    documents = [os.path.join(ROOT, path) for path in (*START, *GUIDES, *MORE)]
    return {
        "PROJECT_NAME": "qelj",
        "PROJECT_NUMBER": version,
        "INPUT": [os.path.join(ROOT, "include", "qelj.h"), *documents, os.path.join(SITE, "families"),
                  *(os.path.join(out, name) for name in MADE)],
        "USE_MDFILE_AS_MAINPAGE": os.path.join(ROOT, START[0]),
        "FILTER_PATTERNS": f"*={sys.executable} {os.path.join(SITE, 'filter.py')}",
        "EXAMPLE_PATH": os.path.join(ROOT, "examples"),
        "STRIP_FROM_PATH": [ROOT, out],
        "OUTPUT_DIRECTORY": out,
        "GENERATE_LATEX": "NO",
        "OPTIMIZE_OUTPUT_FOR_C": "YES",
        "MACRO_EXPANSION": "YES",
        "EXPAND_ONLY_PREDEF": "YES",
        "PREDEFINED": "QELJ_API=",
        "SORT_MEMBER_DOCS": "NO",
        "TOC_INCLUDE_HEADINGS": "0",
        "AUTOLINK_SUPPORT": "NO",
        "VERBATIM_HEADERS": "NO",
        "SHOW_USED_FILES": "NO",
        "DISABLE_INDEX": "YES",
        "SEARCHENGINE": "NO",
        "HAVE_DOT": "NO",
        "LAYOUT_FILE": os.path.join(out, "layout.xml"),
        "HTML_HEADER": os.path.join(out, "header.html"),
        "HTML_FOOTER": os.path.join(out, "footer.html"),
        "HTML_STYLESHEET": os.path.join(SITE, "style.css"),
        "HTML_TIMESTAMP": "NO",
        "QUIET": "YES",
        "WARN_AS_ERROR": "FAIL_ON_WARNINGS",
        "WARN_NO_PARAMDOC": "NO",
    }


def write(path, text):
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)


def main():
    out = os.path.abspath(sys.argv[1])
    version = sys.argv[2] if len(sys.argv) > 2 else re.search(
        r"project\(qelj VERSION (\S+)", open(os.path.join(ROOT, "CMakeLists.txt"), encoding="utf-8").read())[1]
    os.makedirs(out, exist_ok=True)
    write(os.path.join(out, "header.html"), page_header(version))
    write(os.path.join(out, "footer.html"), FOOTER)
    write(os.path.join(out, "layout.xml"), LAYOUT)
    programs = [(path, filtering.example_label(path)) for path in examples()]
    write(os.path.join(out, MADE[0]), "".join(
        ["# Programs\n\nAll of them are compiled and run by the tests.\n\n",
         *(f"- @subpage {label}\n" for _, label in programs),
         *(f"\n\\page {label} {path}\n\\include{{lineno}} {os.path.relpath(path, 'examples')}\n"
           for path, label in programs)]))
    functions = sorted((name, brief) for group in header.groups().values() for name, brief, _ in group.functions)
    table = filtering.function_table(functions)
    write(os.path.join(out, MADE[1]), f"# All functions\n\n{filtering.raw(FIND)}\n{table}")
    pictures = os.path.join(out, "pictures")
    shutil.rmtree(pictures, ignore_errors=True)
    write(os.path.join(out, MADE[2]), tutorial.page(pictures))
    write(os.path.join(out, "Doxyfile"), "".join(
        f"{name} = " + " ".join(f'"{one}"' for one in (value if isinstance(value, list) else [value])) + "\n"
        for name, value in settings(out, version).items()))
    shutil.rmtree(os.path.join(out, "html"), ignore_errors=True)
    status = subprocess.run(["doxygen", os.path.join(out, "Doxyfile")], cwd=out).returncode
    # Doxygen leaves scripts and pictures of its own look, which no page uses.
    for path in glob.glob(os.path.join(out, "html", "*")):
        if not path.endswith((".html", "style.css")):
            os.remove(path)
    for path in glob.glob(os.path.join(pictures, "*.png")):
        shutil.copy(path, os.path.join(out, "html"))
    sys.exit(status)


if __name__ == "__main__":
    main()
