"""What the documents take from include/qelj.h: its groups with their texts, functions and statuses."""
import os
import re

ROOT = os.path.abspath(os.path.join(os.path.dirname(__file__), ".."))
PATH = os.path.join(ROOT, "include", "qelj.h")


def stars_off(comment):
    return re.sub(r"^ \* ?", "", comment, flags=re.MULTILINE)


# A function with the comment in front of it, which ends in a reference to its group.
FUNCTION = re.compile(r"/\*\* ((?:(?!\*/).)*?)[\s*]+See @ref \w+\. \*/\nQELJ_API ([^;]*?(qel\w+)\([^;]*;)", re.DOTALL)


class Group:
    def __init__(self, name, title, text, body):
        self.name, self.title, self.text = name, title, text
        # Name, what the comment says of it alone, and the declaration in one line.
        self.functions = [(name, " ".join(stars_off(brief).split()), " ".join(declaration.split()).replace("( ", "("))
                          for brief, declaration, name in FUNCTION.findall(body)]

    def statuses(self):
        """The names of statuses that the text gives."""
        return sorted(set(re.findall(r"\bqelStatus\w+", self.text)))


def read():
    with open(PATH, encoding="utf-8") as file:
        return file.read()


def groups():
    """All groups in the header's order."""
    found = {}
    for name, title, rest, body in re.findall(
            r"/\*\*\n \* @defgroup (\w+) ([^\n]*)\n(.*?) \* @\{\n \*/\n(.*?)/\*\* @\} \*/", read(), re.DOTALL):
        inside = re.search(r"@code\{\.unparsed\}\n(.*?) \* @endcode", rest, re.DOTALL)
        found[name] = Group(name, title, stars_off(inside[1]) if inside else "", body)
    return found


def status_values():
    """Name, value and meaning of each status, in the header's order."""
    return [(name, int(value), " ".join(meaning.replace("\n   *", " ").split())) for meaning, name, value in
            re.findall(r"  /\*\* ((?:(?!\*/).)*?) \*/\n  (qelStatus\w+) = (-?[0-9]+)", read(), re.DOTALL)]


def section(number):
    """A section of the header's first comment: 1 how to read it, 2 by task, 3 by family."""
    comment = re.search(r"@code\{\.unparsed\}\n(.*?) \* @endcode", read(), re.DOTALL)[1]
    within = rf"^{number}  [A-Z].*?\n(.*?)(?=^[0-9]  [A-Z]|\Z)"
    return re.search(within, stars_off(comment), re.DOTALL | re.MULTILINE)[1]


def alternatives(pattern):
    """The words that a pattern stands for: {a,b} is either."""
    head, brace, rest = pattern.partition("{")
    if not brace:
        return [pattern]
    choices, _, tail = rest.partition("}")
    return [head + choice + end for choice in choices.split(",") for end in alternatives(tail)]


# A section of the header's first comment; a word, or a function's name, from which a paragraph hangs.
SECTION = re.compile(r"[0-9]  [A-Z]{2}")
HANGING = re.compile(r"([A-Z][^.]{0,40}\.)  (?=\S)|(qeli[\w.]+) {1,9}(?=\S)")


def blocks(text):
    """The parts of a text in a comment: (kind, lines), where kind is "flow" for running prose, which may be set anew,
    "as is" for what stands in columns, and a word for prose that hangs from it."""
    result = []
    for part in re.split(r"\n[ \t]*\n", text.strip("\n")):
        lines = part.split("\n")
        starts = [i for i, line in enumerate(lines) if i == 0 or not line.startswith(" ")
                  and (lines[i - 1].startswith(" ") or re.match(HANGING.pattern.replace("{1,9}", "{2,9}"), line))]
        run = []
        for start, end in zip(starts, starts[1:] + [len(lines)]):
            item, hangs = lines[start:end], HANGING.match(lines[start])
            # What hangs from its first word is moved to the margin.
            if hangs and all(line.startswith("  ") for line in item[1:]):
                run.append((hangs[1] or hangs[2], [item[0][hangs.end():]]))
                item = [line[2:] for line in item[1:]]
            for line in item:
                columns = line.startswith(" ") or re.search(r"\S {3,}\S", line) or re.match(r"[^\s.]+ {2,}\S", line)
                kind = "as is" if columns and not SECTION.match(line) else "flow"
                if run and (run[-1][0] == kind or kind == "flow" and run[-1][0] != "as is"):
                    run[-1][1].append(line)
                else:
                    run.append((kind, [line]))
        result.extend(run)
    return result


def definitions(lines):
    """Words in a column and what they mean in another, as (word, text); None for other columns, such as formulas."""
    first = re.match(r" *\S+(?: \S+)* {2,}(?=\S)", lines[0])
    if not first:
        return None
    column, found = first.end(), []
    for line in lines:
        word, text = line[:column], line[column:]
        margin = len(word) - len(word.lstrip())
        if word.strip() and (not word.endswith("  ") or margin != len(lines[0]) - len(lines[0].lstrip())):
            return None
        if not text or text.startswith(" ") or re.search(r" {3,}", text) or re.match(r"\S+ += ", text):
            return None
        if word.strip():
            found.append((word.strip(), text))
        else:
            found[-1] = (found[-1][0], f"{found[-1][1]} {text}")
    return found
