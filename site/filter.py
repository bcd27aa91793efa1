"""filter.py FILE: what Doxygen reads instead of a document or of qelj.h.

In the header, the texts of families become running prose where they are that. In documents
  headings              get labels, and links between documents lead to these
  `qeliName`            links to the function; with {a,b} in it, to the group of what it stands for
  @drawing NAME         is a drawing (drawings.py)
  @formula ... @endformula   is set as a formula: x_{k}, x^{2}; single letters are variables
  @functions GROUP...   lists the functions of these groups, with what the header says of each
  @statuses GROUP...    lists the statuses that the texts of these groups name; * stands for all groups
"""
import html
import os
import re
import sys

import drawings
import header

# Documents have the names that links to them have in the tree.
EXAMPLES = ("examples/tiny/", "examples/guides/")


def slug(title):
    words = re.sub(r"[^\w\s-]", "", title.replace("`", "").lower()).split()
    return "-".join(words)


def label(path):
    return os.path.splitext(os.path.basename(path))[0].lower()


def example_label(path):
    return "example-" + re.sub(r"\W", "-", os.path.relpath(path, "examples"))


def raw(text):
    return f"\\htmlonly[block]\n{text}\n\\endhtmlonly\n"


def formula(text):
    """Lines of a formula in HTML."""
    text = html.escape(text.strip("\n"), quote=False)
    # A single letter is a variable, unless it is the article in front of a word.
    text = re.sub(r"(?<![A-Za-z&])(?!a [a-z]{2})[A-Za-zα-ωΑ-ΡΤ-Ω](?![A-Za-z;0-9])", lambda m: f"<i>{m[0]}</i>", text)
    text = re.sub(r"_\{([^}]*)\}", r"<sub>\1</sub>", text)
    text = re.sub(r"\^\{([^}]*)\}", r"<sup>\1</sup>", text)
    return raw(f'<pre class="formula">{text}</pre>')


def header_filter(text):
    """The header, its texts in HTML: prose may flow, columns stay."""
    def marked(text):
        return re.sub(r"`([^`\n]+)`", r"<code>\1</code>", html.escape(text, quote=False))

    def set_anew(match):
        parts = []
        for kind, lines in header.blocks(header.stars_off(match[1])):
            escaped = marked("\n".join(lines))
            if header.SECTION.match(lines[0]):
                title, _, rest = lines[0].partition("   ")
                parts.append(f"<h2>{marked(title)}</h2>\n<p>{marked(rest)}</p>")
            elif kind != "as is":
                parts.append(f"<p>{'' if kind == 'flow' else f'<b>{kind}</b> '}{escaped}</p>")
            elif header.definitions(lines):
                parts.append("<dl>" + "\n".join(f"<dt>{marked(word)}</dt>\n<dd>{marked(text)}</dd>"
                                                for word, text in header.definitions(lines)) + "</dl>")
            else:
                parts.append(f'<pre class="columns">{escaped}</pre>')
        inside = "\n".join(parts).replace("\n\n", "\n \n").replace("*/", "*&#47;")
        return " * @htmlonly[block]\n" + "\n".join(f" * {line}" for line in inside.split("\n")) + "\n * @endhtmlonly\n"
    return re.sub(r" \* @code\{\.unparsed\}\n(.*?) \* @endcode\n", set_anew, text, flags=re.DOTALL)


def function_table(functions):
    """Functions, with a sentence each."""
    rows = [f"| \\link {name} <code>{name}</code>\\endlink | {brief.replace('|', '&#124;')} |"
            for name, brief in functions]
    head = ['<div class="functions">', "", "| function | what it does |", "|---|---|"]
    return "\n".join([*head, *rows, "", "</div>", ""])


class Document:
    def __init__(self, path):
        self.path = os.path.relpath(os.path.abspath(path), header.ROOT)
        self.groups = header.groups()
        self.group_of = {name: group.name for group in self.groups.values() for name, _, _ in group.functions}

    def link(self, match):
        text, target = " ".join(match[1].split()), match[2]
        path, _, anchor = target.partition("#")
        if re.match(r"https?:|@ref|#", target):
            return match[0] if not target.startswith("#") else f"[{text}](@ref {label(self.path)}-{anchor})"
        path = os.path.relpath(os.path.join(os.path.dirname(self.path), path))
        plain = text.strip("`")
        if not os.path.exists(os.path.join(header.ROOT, path)):
            return f"[{plain}](@ref no-such-file: {path})"  # which Doxygen refuses
        if path.endswith(".md") and os.path.basename(path) != "README.md":
            return f"[{plain}](@ref {label(path)}{'-' + anchor if anchor else ''})"
        if path == "python/tutorial.py":
            return f"[{plain}](@ref tutorial)"
        if path == "include/qelj.h":
            return f"[{plain}](@ref qelj.h)"
        if path.startswith(EXAMPLES) and os.path.isfile(os.path.join(header.ROOT, path)):
            return f"[{plain}](@ref {example_label(path)})"
        return text  # what is in the tree, but not in the site

    def code(self, match):
        word = match[1]
        if re.fullmatch(r"qel[ij]\w+", word) and word in self.group_of:
            return f"\\link {word} <code>{word}</code>\\endlink"
        if re.fullmatch(r"qelStatus[A-Z]\w+", word) and word != "qelStatusText":
            return f"\\link {word} <code>{word}</code>\\endlink"
        if re.fullmatch(r"qel[ij][\w{},]+", word) and "{" in word:
            groups = {self.group_of.get(name) for name in header.alternatives(word)}
            if len(groups) == 1 and None not in groups:
                return f"\\link {groups.pop()} <code>{word}</code>\\endlink"
        return match[0]

    def functions(self, names):
        lines = []
        for name in names:
            group = self.groups[name]
            lines += [f"<b>\\link {name} {group.title}\\endlink</b>", "",
                      function_table([(function, brief) for function, brief, _ in group.functions])]
        return "\n".join(lines)

    def statuses(self, names):
        if names == ["*"]:
            names = [name for name in self.groups if name not in ("status", "types")]
        lines = ['<div class="functions">', "", "| status | value | meaning | named in |", "|---|---:|---|---|"]
        for status, value, meaning in header.status_values():
            # A success needs no mention.
            where = [f"\\link {name} {name}\\endlink" for name in names if status in self.groups[name].statuses()]
            if where and value:
                lines.append(f"| \\link {status} <code>{status}</code>\\endlink | {value} | {meaning} | "
                             f"{', '.join(where)} |")
        return "\n".join([*lines, "", "</div>"]) + "\n"

    def prose(self, text):
        """A stretch without code."""
        own = label(self.path)
        text = re.sub(r"^@formula\n(.*?)^@endformula\n", lambda m: formula(m[1]), text, flags=re.DOTALL | re.MULTILINE)
        pieces = re.split(r"(^\\htmlonly.*?\\endhtmlonly\n)", text, flags=re.DOTALL | re.MULTILINE)
        for i in range(0, len(pieces), 2):
            piece = re.sub(r"\[((?:`[^`]*`|[^\]])*)\]\(([^)]*)\)", self.link, pieces[i])
            piece = re.sub(r"`([^`\n]+)`", self.code, piece)
            if own != "index":  # the main page has a label of its own
                piece = re.sub(r"^# (.*)$", rf"# \1 {{#{own}}}", piece, flags=re.MULTILINE)
            piece = re.sub(r"^(##+) (.*)$", lambda m: f"{m[1]} {m[2]} {{#{own}-{slug(m[2])}}}", piece,
                           flags=re.MULTILINE)
            piece = re.sub(r"^@drawing (\w+)$", lambda m: raw(drawings.figure(m[1])), piece, flags=re.MULTILINE)
            piece = re.sub(r"^@functions (.*)$", lambda m: self.functions(m[1].split()), piece, flags=re.MULTILINE)
            pieces[i] = re.sub(r"^@statuses (.*)$", lambda m: self.statuses(m[1].split()), piece, flags=re.MULTILINE)
        return "".join(pieces)

    def filtered(self, text):
        pieces = re.split(r"(^[ ]*```.*?^[ ]*```\n)", text, flags=re.DOTALL | re.MULTILINE)
        return "".join(piece if i % 2 else self.prose(piece) for i, piece in enumerate(pieces))


def main():
    path = sys.argv[1]
    with open(path, encoding="utf-8") as file:
        text = file.read()
    sys.stdout.reconfigure(encoding="utf-8")
    sys.stdout.write(header_filter(text) if path.endswith(".h") else Document(path).filtered(text))


if __name__ == "__main__":
    main()
