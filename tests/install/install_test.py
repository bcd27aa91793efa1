"""The header as a document; an installed tree that was moved, used in every way that README shows; and its images on an
old processor."""
import glob
import os
import platform
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

BUILD = os.path.abspath(sys.argv.pop(1))
SOURCE = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", ".."))

# Loads images by path, asks each for the version, and calls it if told so.
LOADER = r"""
#include <dlfcn.h>
#include <stdio.h>
#include <string.h>
#include "qelcore.h"
#include "qelj.h"
int main(int argc, char** argv) {
  for (int i = 2; i < argc; ++i) {
    void* image = dlopen(argv[i], RTLD_NOW | RTLD_LOCAL);
    if (!image) return printf("%s\n", dlerror()), 1;
    const QelLibVersion* version = ((const QelLibVersion* (*)(void))dlsym(image, "qeljGetLibVersion"))();
    const char* name = qelGetImageName(version);
    if (qelGetImageName(&image)) return 2;
    printf("%s %s %s\n", version->versionText, name, qelCanRunImage(name) ? "runs" : "does not run");
    fflush(stdout);
    if (!strcmp(argv[1], "call")) {
      uint8_t samples[64] = {0};
      int16_t shifted[64];
      const QelSize size = {64, 1};
      void* function = dlsym(image, "qeliSub128_JPEG_8u16s_C1R");
      return ((QelStatus(*)(const uint8_t*, int, int16_t*, int, QelSize))function)(samples, 64, shifted, 128, size);
    }
  }
  return 0;
}
"""

# A core library that says when it is asked for memory.
OWN_CORE = r"""
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
void* qelMalloc(int32_t bytes) { return puts("own memory"), malloc((size_t)bytes); }
void qelFree(void* block) { free(block); }
int32_t ownGetNumThreads(void) { return 1; }
int32_t qelGetMaxCacheSizeB(int32_t* bytes) { return *bytes = 0, -7; }
uint64_t qelGetEnabledCpuFeatures(void) { return puts("own features"), 0; }
"""


def readme_blocks(language):
    """README's blocks of code in one language."""
    with open(os.path.join(SOURCE, "README.md")) as file:
        return re.findall(rf"^```{language}\n(.*?)^```$", file.read(), re.DOTALL | re.MULTILINE)


def write(path, text):
    with open(path, "w") as file:
        file.write(text)
    return path


def alternatives(pattern):
    """The words that a pattern stands for: {a,b} is either."""
    head, brace, rest = pattern.partition("{")
    if not brace:
        return [pattern]
    choices, _, tail = rest.partition("}")
    return [head + choice + end for choice in choices.split(",") for end in alternatives(tail)]


class HeaderTest(unittest.TestCase):
    path = os.path.join(SOURCE, "include", "qelj.h")
    with open(path) as file:
        text = file.read()
    declared = re.findall(r"^QELJ_API [^;]*?(qel\w+)\(", text, re.MULTILINE)

    def test_every_declaration_has_its_own_comment(self):
        comment = r"^/\*\* ((?:(?!\*/)[^@])*?)[\s*]+See @ref (\w+)\. \*/\nQELJ_API [^;]*?(qel\w+)\("
        described = re.findall(comment, self.text, re.MULTILINE)
        self.assertEqual(set(self.declared) - {name for _, _, name in described}, set())
        texts = {}
        for text, group, name in described:
            self.assertIn(f" * @defgroup {group} ", self.text, name)
            # Only the tile wavelets' buffer sizes say the same of two layouts or types each.
            self.assertTrue("GetBufSize" in name or (group, text) not in texts, f"{name}: {text}")
            texts[group, text] = name

    def test_contents_have_every_function(self):
        contents = self.text.partition("BY FAMILY\n")[2].partition("@endcode")[0]
        names = [name for word in contents.split() for name in alternatives(word) if name.startswith("qel")]
        self.assertEqual(set(self.declared) ^ set(names), set())
        self.assertEqual(len(names), len(self.declared))
        tasks = self.text.partition("BY TASK")[2].partition("BY FAMILY")[0]
        words = [word.strip(",;") for word in tasks.split() if word.startswith("qeli") and "*" not in word]
        self.assertEqual({name for word in words for name in alternatives(word)} - set(self.declared), set())

    def test_lines_fit(self):
        self.assertEqual([line for line in self.text.splitlines() if len(line) > 110], [])

    def test_compiles_by_itself(self):
        for command in ("cc -x c -std=c11", "c++ -x c++ -std=c++17"):
            subprocess.run([*command.split(), "-pedantic", "-Wall", "-Wextra", "-Werror", "-fsyntax-only", self.path],
                           check=True)


class InstallTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.directory = tempfile.TemporaryDirectory()
        cls.home = cls.directory.name
        cls.prefix = os.path.join(cls.home, "qelj")
        cls.environment = {name: value for name, value in os.environ.items() if name != "LD_LIBRARY_PATH"}
        cls.environment.setdefault("CCACHE_DIR", os.path.expanduser("~/.cache/ccache"))
        cls.environment["HOME"] = cls.home
        # README's first line configures and builds, too; what it installs is built already.
        (block,) = readme_blocks("sh")
        build, cls.compile, cls.convert = block.splitlines()
        configure, build, install = build.split(" && ")
        assert (configure, build) == ("cmake --preset demo", "cmake --build build/demo")
        cls.run_in(SOURCE, install.replace("build/demo", BUILD).replace("/qelj", "/first/place"))
        os.rename(os.path.join(cls.home, "first", "place"), cls.prefix)

    @classmethod
    def tearDownClass(cls):
        cls.directory.cleanup()

    @classmethod
    def run_in(cls, directory, command, status=0):
        """Runs a shell command that has to end with that status; returns what it printed."""
        result = subprocess.run(["sh", "-c", command], cwd=directory, env=cls.environment, stdout=subprocess.PIPE,
                                stderr=subprocess.STDOUT)
        output = result.stdout.decode(errors="replace")
        # A signal is told in one way, whether the shell has become the program or not.
        told = result.returncode if result.returncode >= 0 else 128 - result.returncode
        if told != status:
            raise AssertionError(f"{command}\ngave {told}: {output}")
        return output

    def setUp(self):
        self.work = tempfile.mkdtemp(dir=self.home)
        (program,) = readme_blocks("c")
        with open(os.path.join(SOURCE, "examples", "tiny", "block.c")) as file:
            self.assertTrue(file.read().endswith(program))
        write(os.path.join(self.work, "program.c"), program)
        shutil.copy(os.path.join(SOURCE, "examples", "tiny", "typical.h"), self.work)

    def run_here(self, command, status=0):
        return self.run_in(self.work, command, status)

    def assert_encodes(self, output):
        self.assertRegex(output, r"(?m)^status 0, 64 samples in [1-9][0-9]* bytes$")

    def test_compiler_line_and_converter(self):
        self.run_here(self.compile)
        self.assert_encodes(self.run_here("./program"))
        shutil.copy(os.path.join(SOURCE, "examples", "images", "coffee.png"),
                    os.path.join(self.work, "photograph.png"))
        self.run_here(self.convert)
        self.assertIn("JPEG", self.run_here("$HOME/qelj/bin/qelconv --info photograph.jpg"))

    def test_cmake(self):
        blocks = readme_blocks("cmake")
        self.assertEqual([re.match(r"\w+", block)[0] for block in blocks],
                         ["find_package", "add_subdirectory", "include"])
        os.symlink(SOURCE, os.path.join(self.work, "qelj"))
        for number, block in enumerate(blocks):
            with self.subTest(block=block):
                write(os.path.join(self.work, "CMakeLists.txt"),
                      f"cmake_minimum_required(VERSION 3.25)\nproject(recipe C)\nadd_executable(program program.c)\n"
                      f"{block}")
                build = f"build{number}"
                self.run_here(f"cmake -G Ninja -B {build} -DCMAKE_PREFIX_PATH=$HOME/qelj -DQELJ_CPU=portable")
                # A part of another project leaves that one's settings alone, and builds what is linked only.
                with open(os.path.join(self.work, build, "CMakeCache.txt")) as file:
                    cache = file.read()
                self.assertRegex(cache, "(?m)^CMAKE_BUILD_TYPE:STRING=$")
                self.assertRegex(cache, "(?m)^CMAKE_C_FLAGS_RELEASE:STRING=-O3 -DNDEBUG$")
                self.assertNotRegex(self.run_here(f"ninja -C {build} -t targets all"), "qelconv|test_|tiny_|bench_")
                self.run_here(f"cmake --build {build} --parallel 2")
                self.assert_encodes(self.run_here(f"{build}/program"))

    def test_package_version(self):
        for wanted, found in (("7", True), ("7.1.0", True), ("7.2", False), ("6.0", False), ("8.0", False)):
            write(os.path.join(self.work, "CMakeLists.txt"),
                  f"cmake_minimum_required(VERSION 3.25)\nproject(version NONE)\nfind_package(qelj {wanted} QUIET)\n"
                  "message(FATAL_ERROR \"found=${qelj_FOUND}\")")
            output = self.run_here(f"cmake -B version{wanted} -DCMAKE_PREFIX_PATH=$HOME/qelj", status=1)
            self.assertIn(f"found={int(found)}", output, wanted)

    def test_python(self):
        (program,) = readme_blocks("python")
        write(os.path.join(self.work, "program.py"), program)
        # Quality 85 takes 30 % of the quantiser.
        self.assertEqual(self.run_here(f"{sys.executable} program.py").strip(), f"0 {[5] * 64}")

    def test_own_core_library_comes_first(self):
        write(os.path.join(self.work, "core.c"), OWN_CORE)
        for own in ("core.c", "-L. -Wl,--no-as-needed -lcore -Wl,--as-needed -Wl,-rpath,$PWD"):
            with self.subTest(own=own):
                self.run_here("cc -shared -fPIC core.c -o libcore.so")
                self.run_here(self.compile.replace("program.c", f"program.c {own}"))
                output = self.run_here("./program")
                self.assertIn("own features", output)
                self.assertIn("own memory", output)
                self.assert_encodes(output)

    def load(self, how, images, emulator="", status=0):
        write(os.path.join(self.work, "load.c"), LOADER)
        self.run_here("cc load.c -I$HOME/qelj/include -L$HOME/qelj/lib -lqelcore -Wl,-rpath,$HOME/qelj/lib -o load")
        lines = self.run_here(f"{emulator} ./load {how} {' '.join(images)}", status).splitlines()
        return [line.split(" ", 3)[2:] for line in lines if line.startswith("7.1.0 (r36264) ")]

    def test_installed_images(self):
        with open(os.path.join(BUILD, "CMakeCache.txt")) as file:
            names = re.search(r"(?m)^QELJ_CPU:STRING=(.*)$", file.read())[1].split(";")
        folders = ["lib"] + [f"lib/glibc-hwcaps/{name}" for name in names[1:]]
        images = [f"{self.prefix}/{folder}/libqelj.so.7" for folder in folders]
        self.assertEqual([name for name, _ in self.load("ask", images)], names)
        for image in images:  # in a process that has no libqelcore yet
            self.run_here(f"{sys.executable} -c 'import ctypes; ctypes.CDLL(\"{image}\")'")

    @unittest.skipUnless(platform.machine() == "x86_64", "the emulated processor is an x86-64")
    def test_old_processor(self):
        nehalem = "qemu-x86_64 -cpu Nehalem"
        images = [f"{BUILD}/libqelj.so.7", *sorted(glob.glob(f"{BUILD}/images/*/libqelj.so.7"))]
        told = self.load("ask", images, nehalem)
        self.assertEqual(len(told), len(images))
        for image, (name, verdict) in zip(images, told):
            with self.subTest(image=image):
                too_new = name in ("x86-64-v3", "x86-64-v4")
                self.assertEqual(verdict, "does not run" if too_new else "runs")
                # The emulated processor really lacks what the image needs (illegal instruction: 128 + 4), or has it.
                self.load("call", [image], nehalem, status=132 if too_new else 0)
                for program in (f"{BUILD}/examples/convert/qelconv --help", f"{BUILD}/tests/test_tiff",
                                f"{BUILD}/tests/compare_images --only PackBits {image} {image}"):
                    output = self.run_here(f"LD_LIBRARY_PATH={os.path.dirname(image)} {nehalem} {program}",
                                           status=1 if too_new else 0)
                    if too_new:
                        who = os.path.basename(program.split()[0])
                        self.assertRegex(output, rf"\A{who}: [^\n]* {name}[^\n]*\n\Z")


if __name__ == "__main__":
    unittest.main()
