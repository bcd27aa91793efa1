"""python/tutorial.py as a page: its parts, with what they print and show if there is a package qelj to run them."""
import contextlib
import html
import io
import os
import re
import sys

import filter as filtering
import header

PATH = os.path.join(header.ROOT, "python", "tutorial.py")
TITLE = "A tutorial in Python"


def parts(text):
    """The program's beginning; and title, prose and code of each part."""
    beginning, *rest = re.split(r"^# %% ", text, flags=re.MULTILINE)
    found = []
    for part in rest:
        title, _, body = part.partition("\n")
        comment = re.match(r"(?:#.*\n)*", body)[0]
        prose = "\n".join(line[1:].strip() for line in comment.splitlines()).strip()
        found.append((title, prose, re.sub("  # noqa.*", "", body[len(comment):]).strip()))
    return beginning, found


class Run:
    """The program's names; a picture that a part shows is written to a directory, and told."""

    def __init__(self, beginning, directory):
        os.makedirs(directory, exist_ok=True)
        sys.argv[1:], arguments = [directory], sys.argv[1:]
        self.names, self.shown = {"__file__": PATH, "__name__": "__main__"}, []
        exec(compile(beginning, PATH, "exec"), self.names)
        sys.argv[1:] = arguments
        write = self.names["show"]

        def show(name, words, *pictures):
            write(name, words, *pictures)
            self.shown.append((name, words))
        self.names["show"] = show

    def part(self, code):
        """What a part prints, and the pictures that it shows."""
        output, self.shown = io.StringIO(), []
        with contextlib.redirect_stdout(output):
            exec(compile(code, PATH, "exec"), self.names)
        return output.getvalue(), self.shown


def page(directory):
    """The page's text; its pictures go to a directory."""
    with open(PATH, encoding="utf-8") as file:
        beginning, found = parts(file.read())
    text = [f"# {TITLE}",
            "The program is `python/tutorial.py`: with the package installed, `python3 tutorial.py FOLDER` prints what"
            " stands here and writes the pictures."]
    try:
        import qelj  # noqa: F401
        run = Run(beginning, directory)
    except ImportError as error:
        run = None
        text.append(f"This page was made without what its parts print and show ({error}).")
    for title, prose, code in found:
        text += [f"## {title}", prose, f"```python\n{code}\n```"]
        if run:
            output, shown = run.part(code)
            if output:
                text.append(f"```{{.unparsed}}\n{output.rstrip()}\n```")
            text += [filtering.raw(f'<p><img src="{name}.png" alt="{html.escape(words)}"></p>')
                     for name, words in shown]
    return "\n\n".join(text) + "\n"
