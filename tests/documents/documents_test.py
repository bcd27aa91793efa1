"""The documents: code that they show, names, links, commands, the site, the manual pages."""
import glob
import html.parser
import os
import platform
import re
import shutil
import subprocess
import sys
import tempfile
import textwrap
import unittest

from PIL import Image, ImageChops, ImageStat

BUILD = os.path.abspath(sys.argv.pop(1))
SOURCE = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", ".."))
sys.path.insert(0, os.path.join(SOURCE, "site"))
import drawings  # noqa: E402
import header  # noqa: E402


def read(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


def found(*patterns):
    return [path for pattern in patterns for path in sorted(glob.glob(os.path.join(SOURCE, pattern)))]


def run(*command, **options):
    """Runs a program; returns its status and what it printed."""
    result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, **options)
    return result.returncode, result.stdout.decode(errors="replace")


class Page(html.parser.HTMLParser):
    def __init__(self, path):
        super().__init__()
        self.links, self.anchors, self.loads = [], set(), []
        self.feed(read(path))

    def handle_starttag(self, tag, attrs):
        attrs = dict(attrs)
        self.anchors.update(attrs[name] for name in ("id", "name") if attrs.get(name))
        if tag == "a" and attrs.get("href"):
            self.links.append(attrs["href"])
        self.loads += [attrs[name] for name in ("src", "data") if attrs.get(name)]
        if tag == "link":
            self.loads.append(attrs["href"])


class DocumentsTest(unittest.TestCase):
    documents = found("*.md", "docs/*.md", "site/*.md", "site/families/*.md")
    groups = header.groups()
    functions = {name for group in groups.values() for name, _, _ in group.functions}

    def test_code_is_that_of_the_examples(self):
        # README's blocks are compiled by the test of the installation.
        sources = [[line for line in read(path).split("\n") if not line.strip().startswith("//!")]
                   for path in found("examples/tiny/*.[ch]", "examples/guides/*.[ch]", "python/tutorial.py")]
        blocks = 0
        for path in self.documents:
            for language, block in re.findall(r"^ *```(\w+)\n(.*?)^ *```$", read(path), re.DOTALL | re.MULTILINE):
                self.assertIn(language, ("c", "sh", "cmake", "python"), path)
                if language == "c" or language == "python" and not path.endswith("README.md"):
                    lines = textwrap.dedent(block).rstrip("\n").split("\n")
                    places = [source[i:i + len(lines)] for source in sources for i, line in enumerate(source)
                              if line.endswith(lines[0])]
                    self.assertTrue(any(textwrap.dedent("\n".join(place)) == "\n".join(lines) for place in places),
                                    f"{path}: no example has\n{block}")
                    blocks += 1
        self.assertGreater(blocks, 20)

    def test_tiny_programs(self):
        def program(name, *arguments):
            return run(os.path.join(BUILD, "examples", "tiny", f"tiny_{name}"), *arguments)
        self.assertRegex(program("block")[1], r"^success: 64 samples in [1-9][0-9]* bytes\n$")
        self.assertEqual(program("column_lifting")[0], 0)
        with tempfile.TemporaryDirectory() as directory:
            source, target = os.path.join(directory, "in.pgm"), os.path.join(directory, "out.jpg")
            with Image.open(os.path.join(SOURCE, "examples", "images", "coffee.png")) as picture:
                grey = picture.convert("L").crop((0, 0, 301, 203))
            grey.save(source)
            self.assertEqual(program("grey_jpeg", source, target), (0, ""))
            with Image.open(target) as back:
                self.assertEqual((back.format, back.size), ("JPEG", grey.size))
                self.assertLess(ImageStat.Stat(ImageChops.difference(grey, back)).rms[0], 6)

    def test_names_exist(self):
        others = set(re.findall(r"\bqel\w+", "".join(map(read, found("include/*.h", "qelcore/*.h")))))
        for path in self.documents:
            for pattern in re.findall(r"`(qel[ij][A-Z{][\w{},]+)`", read(path)):
                for name in header.alternatives(pattern):
                    self.assertTrue(name in self.functions or name in others, f"{path}: {name}")

    def test_family_pages_have_every_function_and_drawing(self):
        text = "".join(map(read, found("site/families/*.md")))
        listed = [name for line in re.findall(r"^@functions (.*)$", text, re.MULTILINE) for name in line.split()]
        self.assertEqual(sorted(listed), sorted(name for name, group in self.groups.items() if group.functions))
        self.assertEqual(set(re.findall(r"^@drawing (\w+)$", text, re.MULTILINE)), set(drawings.DRAWINGS))
        for path in found("site/families/*.md"):
            for part in ("@formula", "@statuses", "@functions", "## Program\n"):
                self.assertTrue(part in read(path) or (part == "@formula" and "frame.md" in path), f"{path}: {part}")

    def test_no_word_of_the_header_is_lost(self):
        self.assertEqual(len(self.functions), 300)
        for group in self.groups.values():
            words = []
            for kind, lines in header.blocks(group.text):
                words += [] if kind in ("flow", "as is") else kind.split()
                entries = header.definitions(lines) if kind == "as is" else None
                words += " ".join(lines if entries is None else [" ".join(entry) for entry in entries]).split()
            self.assertEqual(words, group.text.split(), group.name)

    @unittest.skipUnless(shutil.which("doxygen"), "needs doxygen")
    def test_site(self):
        with tempfile.TemporaryDirectory() as directory:
            package = os.path.join(BUILD, "python")
            environment = {**os.environ, "PYTHONPATH": package, "QELJ_LIBRARY": os.path.join(BUILD, "libqelj.so.7")}
            status, output = run(sys.executable, os.path.join(SOURCE, "site", "build.py"), directory, env=environment)
            self.assertEqual((status, output), (0, ""))
            root = os.path.join(directory, "html")
            pages = {os.path.basename(path): Page(path) for path in glob.glob(f"{root}/*.html")}
            self.assertGreater(len(pages), 90)
            if os.path.isdir(os.path.join(package, "qelj")):
                self.assertGreater(len(pages["tutorial.html"].loads), 5)
            for name, page in pages.items():
                for link in page.links:
                    target, _, anchor = link.partition("#")
                    if re.match(r"https?:", target):
                        continue
                    self.assertTrue(os.path.exists(os.path.join(root, target)), f"{name}: {link}")
                    if anchor and (target or name) in pages:
                        self.assertIn(anchor, pages[target or name].anchors, f"{name}: {link}")
                for load in page.loads:  # nothing comes from a network
                    self.assertTrue(os.path.exists(os.path.join(root, load)), f"{name}: {load}")
                # What was left as it was written: a command or a fence that nobody understood.
                shown = re.sub(r"<(pre|script|div class=\"fragment\")\b.*?</\1", "", read(os.path.join(root, name)),
                               flags=re.DOTALL)
                left = r"@(formula|drawing|functions|statuses|ref)\b|\\(link|ref|include)\b|```"
                self.assertIsNone(re.search(left, shown), name)

    @unittest.skipUnless(shutil.which("man"), "needs man-db")
    def test_manual(self):
        with tempfile.TemporaryDirectory() as directory:
            pages = os.path.join(directory, "man3")
            status, output = run(sys.executable, os.path.join(SOURCE, "site", "manual.py"), pages, "7.1.0")
            self.assertEqual((status, output), (0, ""))
            environment = {**os.environ, "MANWIDTH": "80", "MANPATH": directory, "LC_ALL": "C.UTF-8"}
            for path in glob.glob(f"{pages}/qelj*_*.3") + [f"{pages}/qelj.3"]:
                result = subprocess.run(["man", "--warnings", "-l", path], env=environment, stdout=subprocess.PIPE,
                                        stderr=subprocess.PIPE)
                self.assertEqual((result.returncode, result.stderr.decode()), (0, ""), path)
            self.assertEqual({name for name in map(lambda path: os.path.basename(path)[:-2], glob.glob(f"{pages}/*.3"))
                              if not name.startswith("qelj_")}, self.functions | {"qelj"})
            status, output = run("man", "qeliSub128_JPEG_8u16s_C1R", env=environment)
            self.assertIn("level_shift - Level shift", output)

    def test_commands_of_debugging(self):
        """The commands run from a tree with a build of the preset default, each where its program is."""
        with tempfile.TemporaryDirectory() as directory:
            os.mkdir(os.path.join(directory, "build"))
            os.symlink(BUILD, os.path.join(directory, "build", "default"))
            ran = 0
            for block in re.findall(r"^```sh\n(.*?)^```$", read(os.path.join(SOURCE, "docs", "debugging.md")),
                                    re.DOTALL | re.MULTILINE):
                tools = set(re.findall(r"\b(gdb|valgrind|perf)\b ", block))
                images = [os.path.join(directory, image) for image in re.findall(r"build/default/images/[\w-]+", block)]
                if not all(map(shutil.which, tools)) or not all(map(os.path.exists, images)) or (
                        "gdb" in tools and platform.machine() != "x86_64"):  # its registers
                    continue
                status, output = run("sh", "-ec", block.replace("/tmp/", f"{directory}/"), cwd=directory)
                if "perf" in tools and re.search("perf_event|not permitted|Permission denied|not supported", output):
                    continue  # counting is not allowed here
                self.assertEqual(status, 0, f"{block}\n{output}")
                if "gdb" in tools:
                    self.assertRegex(output, r"(?s)Breakpoint 1, .*qelj::qeliDCTQuantFwd8x8LS.*\t40\t58.*\t-9\t-109")
                if "compare_images" in block:
                    self.assertIn("2 exports on 2 images, 0 failed", output)
                ran += 1
            self.assertGreaterEqual(ran, 2)


if __name__ == "__main__":
    unittest.main()
