"""The headers as documents and as an ABI; an installed tree that was moved, used in every way that README shows; its
images on an old processor."""
import filecmp
import glob
import os
import platform
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

from PIL import Image

import abi

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "..", "site"))
from header import alternatives  # noqa: E402

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

# A program with a core library of its own.
OWN_CORE = os.path.join(SOURCE, "examples", "guides", "own_core.c")


# A function that gives nothing, to be loaded in front of the library's.
SPOILT = "int qeliAdd128_JPEG_16s8u_C1R(void) { return 0; }\n"


def readme_blocks(language):
    """README's blocks of code in one language."""
    with open(os.path.join(SOURCE, "README.md")) as file:
        return re.findall(rf"^```{language}\n(.*?)^```$", file.read(), re.DOTALL | re.MULTILINE)


def write(path, text):
    with open(path, "w") as file:
        file.write(text)
    return path


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
        headers = [self.path, *glob.glob(os.path.join(SOURCE, "qelcore", "qel[cj]*.h"))]
        self.assertEqual(len(headers), 4)
        for command in ("cc -x c -std=c11", "c++ -x c++ -std=c++17"):
            subprocess.run([*command.split(), "-pedantic", "-Wall", "-Wextra", "-Werror", "-fsyntax-only",
                            f"-I{SOURCE}/include", *headers], check=True)

    def printed(self, statements):
        """What a program of these statements prints, with the headers beside qelcore.h."""
        with tempfile.TemporaryDirectory() as directory:
            program = os.path.join(directory, "program")
            source = write(f"{program}.c", '#include <stdio.h>\n#include "qelj_status.h"\n#include "qelj_typical.h"\n'
                           f"int main(void) {{ {statements} }}\n")
            subprocess.run(["cc", source, f"-I{SOURCE}/include", f"-I{SOURCE}/qelcore", "-o", program], check=True)
            return subprocess.run([program], check=True, stdout=subprocess.PIPE).stdout.decode()

    def test_every_status_has_its_text(self):
        statuses = re.findall(r"^  (qelStatus\w+) = -?[0-9]+", self.text, re.MULTILINE)
        self.assertEqual(len(statuses), 18)
        texts = self.printed("".join(f"puts(qelStatusText({status}));" for status in [*statuses, "1", "-1"]))
        self.assertEqual(len(set(texts.splitlines())), 20)
        self.assertEqual(texts.splitlines()[-2:], ["unknown warning", "unknown failure"])

    def test_typical_tables(self):
        # Another encoder writes them at quality 50.
        with tempfile.TemporaryFile() as file:
            Image.new("YCbCr", (16, 16)).save(file, "JPEG", quality=50)
            file.seek(0)
            jpeg = file.read().hex()
        lists = [f"qelTypical{kind}[{i}]" for kind in ("Quantisers", "DcBits", "AcBits", "AcVals") for i in (0, 1)]
        tables = self.printed("".join(
            f"for (unsigned i = 0; i < sizeof {name}; ++i) printf(\"%02x\", {name}[i]); puts(\"\");"
            for name in [*lists, "qelTypicalDcVals"])).splitlines()
        quantisers, dc_bits, ac_bits, ac_vals, (dc_vals,) = (tables[i:i + 2] for i in range(0, 10, 2))
        for i in (0, 1):
            for text in (quantisers[i], dc_bits[i] + dc_vals, ac_bits[i] + ac_vals[i]):
                self.assertIn(text, jpeg)

    def test_packages_have_the_version_and_the_names(self):
        def found(path, pattern):
            with open(os.path.join(SOURCE, path)) as file:
                return re.findall(pattern, file.read(), re.MULTILINE)
        version = found("CMakeLists.txt", r"^project\(qelj VERSION (\S+)")
        self.assertEqual(found("debian/changelog", r"\Aqelj \((\S+)\)"), version)
        self.assertEqual(found("packaging/vcpkg/qelj/vcpkg.json", r'"version": "(.*)"'), version)
        self.assertEqual(set(found("debian/libqelj7.symbols", r"^ (\w+)@Base")), set(self.declared))
        self.assertEqual(set(found("debian/libqelcore7.symbols", r"^ (\w+)@Base")),
                         set(found("qelcore/qelcore.h", r"^QELCORE_API .*?(\w+)\(")))

    @unittest.skipUnless(shutil.which("abidiff"), "needs abigail-tools")
    def test_abi_is_the_kept_one(self):
        self.maxDiff = None
        for name in abi.HEADERS:
            self.assertEqual(abi.difference(name), "", "see tests/install/abi.py")


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
        block, cls.by_pkg_config = readme_blocks("sh")
        build, cls.compile, cls.convert = block.splitlines()
        configure, build, install = build.split(" && ")
        assert (configure, build) == ("cmake --preset release", "cmake --build build/release")
        cls.run_in(SOURCE, install.replace("build/release", BUILD).replace("/qelj", "/first/place"))
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

    def run_here(self, command, status=0):
        return self.run_in(self.work, command, status)

    def assert_encodes(self, output):
        self.assertRegex(output, r"(?m)^success: 64 samples in [1-9][0-9]* bytes$")

    def test_compiler_line_and_converter(self):
        self.run_here(self.compile)
        self.assert_encodes(self.run_here("./program"))
        shutil.copy(os.path.join(SOURCE, "examples", "images", "coffee.png"),
                    os.path.join(self.work, "photograph.png"))
        self.run_here(self.convert)
        self.assertIn("JPEG", self.run_here("$HOME/qelj/bin/qelconv --info photograph.jpg"))

    def test_pkg_config_and_self_test(self):
        for compiler in ("cc -std=c11", "c++ -x c++ -std=c++17"):
            # Behind -x, the compiler would take libraries for sources, too.
            strict = f"\n{compiler} -pedantic -Wall -Wextra -Werror program.c -x none"
            output = self.run_here(self.by_pkg_config.replace("\ncc program.c", strict))
            self.assertIn("\n300 exports give what they should\n", output)
            self.assert_encodes(self.run_here("./program"))
        write(os.path.join(self.work, "spoilt.c"), SPOILT)
        self.run_here("cc -shared -fPIC spoilt.c -o spoilt.so")
        output = self.run_here("LD_PRELOAD=./spoilt.so $HOME/qelj/bin/qelj-selftest", status=1)
        self.assertRegex(output, "(?m)^qeliAdd128_JPEG_16s8u_C1R: ")
        self.assertIn("\n1 of 300 exports do NOT give what they should\n", output)

    def test_components(self):
        def files(component, *options):
            prefix = os.path.join(self.work, component)
            self.run_here(f"cmake --install {BUILD} --prefix {prefix} {' '.join(options)}")
            return {os.path.relpath(os.path.join(folder, name), prefix)
                    for folder, _, names in os.walk(prefix) for name in names}
        kinds = {"runtime": ("lib/libqelcore.so.7", "share/doc/qelj/LICENSE"),
                 "development": ("include/qelj_status.h", "lib/libqelj.so", "lib/cmake/qelj/qeljConfig.cmake",
                                 "share/man/man3/qelj.3", "share/man/man3/qeliSub128_JPEG_8u16s_C1R.3"),
                 "tools": ("bin/qelconv", "bin/qelj-selftest", "share/man/man1/qelj-selftest.1"),
                 "documentation": ("share/doc/qelj/CHANGELOG.md", "share/doc/qelj/docs/porting.md")}
        parts = {kind: files(kind, "--component", kind) for kind in kinds}
        for kind, some in kinds.items():
            self.assertLessEqual(set(some), parts[kind])
        self.assertEqual(sorted(name for part in parts.values() for name in part), sorted(files("all")))

    def test_manual_page_has_every_option(self):
        def by_format(text, heading, option):
            parts = re.split(heading, text, flags=re.MULTILINE)
            return dict(zip(["all", *parts[1::2]], (sorted(re.findall(option, part)) for part in parts[::2])))
        text = self.run_here("$HOME/qelj/bin/qelconv --help").partition("\n\n")[2]
        told = by_format(text, r"^(\S.* \(\..*\))$", r" --(\S+(?: [^ \n]+)?)")
        with open(f"{self.prefix}/share/man/man1/qelconv.1") as file:
            page = re.sub(r" (?:Ar|Cm) ", " ", file.read().replace(" | ", "|").partition(".Sh SCAN")[0])
        self.assertEqual(by_format(page, r"^\.Ss (.*)$", r"\n\.It Fl (?:\w , )?-(.+)"), told)
        self.assertGreater(len(told), 5)

    def test_needs_nothing_but_c_and_openmp(self):
        for name, needed in (("qelcore", "c|ld-linux.*"), ("qelj", "c|m|ld-linux.*|qelcore|gomp|omp|omp5")):
            section = self.run_here(f"readelf -dW $HOME/qelj/lib/lib{name}.so")
            for library in re.findall(r"\(NEEDED\) .*\[(?:lib)?(.*)\.so[.0-9]*\]", section):
                self.assertRegex(library, rf"\A({needed})\Z", name)
            self.assertIn("BIND_NOW", section)

    def configure(self, block, build, options=""):
        """Configures a project of one of README's blocks."""
        write(os.path.join(self.work, "CMakeLists.txt"),
              f"cmake_minimum_required(VERSION 3.25)\nproject(recipe C)\nadd_executable(program program.c)\n{block}")
        self.run_here(f"cmake -G Ninja -B {build} -DCMAKE_PREFIX_PATH=$HOME/qelj -DQELJ_CPU=portable {options}")

    def recipe(self, block, build, options=""):
        """The same, and builds it and runs its program."""
        self.configure(block, build, options)
        # A part of another project leaves that one's settings alone, and builds what is linked only.
        with open(os.path.join(self.work, build, "CMakeCache.txt")) as file:
            cache = file.read()
        self.assertRegex(cache, "(?m)^CMAKE_BUILD_TYPE:STRING=$")
        self.assertRegex(cache, "(?m)^CMAKE_C_FLAGS_RELEASE:STRING=-O3 -DNDEBUG$")
        targets = self.run_here(f"ninja -C {build} -t targets all")
        self.assertNotRegex(targets, "qelconv|selftest|test_|tiny_|guide_|manual|bench_")
        self.run_here(f"cmake --build {build} --parallel 2")
        self.assert_encodes(self.run_here(f"{build}/program"))

    def test_cmake(self):
        blocks = readme_blocks("cmake")
        self.assertEqual([re.match(r"\w+", block)[0] for block in blocks],
                         ["find_package", "add_subdirectory", "include"])
        os.symlink(SOURCE, os.path.join(self.work, "qelj"))
        self.recipe(blocks[0], "build")
        self.recipe(blocks[1], "shared")
        self.recipe(blocks[2], "static", "-DBUILD_SHARED_LIBS=OFF")
        # The static libraries, installed and moved: the same lines link them.
        self.run_here("cmake --install static --prefix moving && mv moving $HOME/static")
        visible = [line.split() for line in self.run_here("nm -g --defined-only $HOME/static/lib/lib*.a").splitlines()]
        names = {kind: {word[2] for word in visible if len(word) == 3 and word[1] == kind} for kind in "TW"}
        self.assertEqual(sum(len(word) == 3 for word in visible), len(names["T"]) + len(names["W"]))
        self.assertEqual(names["T"], set(HeaderTest.declared))
        with open(os.path.join(SOURCE, "qelcore", "qelcore.h")) as file:
            self.assertEqual(names["W"], set(re.findall(r"^QELCORE_API .*?(\w+)\(", file.read(), re.MULTILINE)))
        self.recipe(blocks[0], "static_package", "-DCMAKE_PREFIX_PATH=$HOME/static")
        compile = self.by_pkg_config.splitlines()[1]
        self.run_here(f"PKG_CONFIG_PATH=$HOME/static/lib/pkgconfig; export PKG_CONFIG_PATH; {compile}")
        self.assert_encodes(self.run_here("./program"))
        self.assertNotIn("qel", self.run_here("readelf -dW program | grep NEEDED"))
        self.run_here(self.compile.replace("$HOME/qelj", "$HOME/static").replace("program.c", OWN_CORE)
                      .replace("-lqelcore", "-lqelcore -lgomp -lm"))
        self.run_here("./program")  # ends with 1 if it is not its own functions that were used
        # The sources in another place, built in another place, give the same bytes: one library, and a few objects of
        # the other, which take less time than all.
        first = os.path.join(self.work, "shared")
        objects = [os.path.relpath(path, first) for folder in ("frame", "tiff") for path in
                   glob.glob(f"{first}/qelj/CMakeFiles/qelj.dir/src/{folder}/*.o")]
        self.assertGreater(len(objects), 4)
        self.setUp()
        shutil.copytree(SOURCE, os.path.join(self.work, "qelj"),
                        ignore=shutil.ignore_patterns("build", "out", ".*", "tests"))
        self.configure(blocks[1], "quite/another/place",
                       "-DCMAKE_C_COMPILER_LAUNCHER= -DCMAKE_CXX_COMPILER_LAUNCHER=")
        self.run_here(f"ninja -C quite/another/place qelcore {' '.join(objects)}")
        for name in ("qelj/libqelcore.so.7", *objects):
            self.assertTrue(filecmp.cmp(os.path.join(first, name), f"{self.work}/quite/another/place/{name}",
                                        shallow=False), name)

    def test_no_place_stays_in_what_is_installed(self):
        for path in glob.glob(f"{self.prefix}/lib/**/*.so.7", recursive=True) + glob.glob(f"{self.prefix}/bin/*"):
            with open(path, "rb") as file:
                self.assertNotIn(SOURCE.encode(), file.read(), path)

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
        self.run_here(self.compile.replace("program.c", OWN_CORE))
        self.run_here("./program")
        # As a library in front of the others, of which the loader tells what it binds.
        self.run_here(f"cc -shared -fPIC -Dmain=unused -I$HOME/qelj/include {OWN_CORE} -o libcore.so")
        self.run_here(self.compile.replace("program.c", "program.c -L. -Wl,--no-as-needed -lcore -Wl,--as-needed "
                                           "-Wl,-rpath,$PWD"))
        output = self.run_here("LD_DEBUG=bindings ./program")
        for name in ("qelMalloc", "qelFree", "ownGetNumThreads", "qelGetMaxCacheSizeB", "qelGetEnabledCpuFeatures"):
            self.assertRegex(output, rf"binding file \S*/libqelj\.so\.7 \[0\] to \S*/libcore\.so \[0\]: .*`{name}'")
        self.assert_encodes(output)

    def load(self, how, images, emulator="", status=0):
        write(os.path.join(self.work, "load.c"), LOADER)
        self.run_here("cc load.c -I$HOME/qelj/include -L$HOME/qelj/lib -lqelcore -Wl,-rpath,$HOME/qelj/lib -o load")
        lines = self.run_here(f"{emulator} ./load {how} {' '.join(images)}", status).splitlines()
        return [line.split(" ", 3)[2:] for line in lines if line.startswith("7.1.0 (r36264) ")]

    def test_installed_images(self):
        with open(os.path.join(BUILD, "CMakeCache.txt")) as file:
            names = re.search(r"(?m)^QELJ_IMAGES:INTERNAL=(.*)$", file.read())[1].split(";")
        folders = ["lib"] + [f"lib/glibc-hwcaps/{name}" for name in names[1:]]
        images = [f"{self.prefix}/{folder}/libqelj.so.7" for folder in folders]
        self.assertEqual([name for name, _ in self.load("ask", images)], names)
        for image in images:  # in a process that has no libqelcore yet
            self.run_here(f"{sys.executable} -c 'import ctypes; ctypes.CDLL(\"{image}\")'")
        # By its name, each processor gets the latest that it can run.
        processors = ("qemu64", "Nehalem", "Haswell") if platform.machine() == "x86_64" else ()
        for level, processor in enumerate(processors, 1):
            best = max((name for name in names[1:] if name <= f"x86-64-v{level}"), default=names[0])
            told = self.load("ask", ["libqelj.so.7"], f"qemu-x86_64 -cpu {processor}")
            self.assertEqual([name for name, _ in told], [best], processor)

    @unittest.skipUnless(platform.machine() == "x86_64", "elsewhere there is one")
    def test_every_image_unless_told_otherwise(self):
        self.run_here(f"cmake -G Ninja -S {SOURCE} -B every -DQELJ_TESTS=OFF")
        rules = self.run_here("ninja -C every -t targets all")
        for level in ("v2", "v3", "v4"):
            self.assertIn(f"\nimages/x86-64-{level}/libqelj.so.7:", rules)
        commands = self.run_here("ninja -C every -t commands libqelj.so.7")
        self.assertIn("-DQELJ_PORTABLE=1", commands)
        self.assertNotIn("-march", commands)

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
