import os
import re

from conan import ConanFile
from conan.errors import ConanInvalidConfiguration
from conan.tools.cmake import CMake, CMakeDeps, CMakeToolchain, cmake_layout
from conan.tools.files import copy, load, rmdir
from conan.tools.scm import Version

required_conan_version = ">=2.0"


class QeljConan(ConanFile):
    name = "qelj"
    description = "Image-compression primitives: the inner building blocks of codecs"
    license = "MIT"
    topics = ("image", "compression", "jpeg", "jpeg2000", "jpeg-xr", "texture-compression")
    package_type = "library"
    settings = "os", "arch", "compiler", "build_type"
    options = {
        "shared": [True, False],
        "tools": [True, False],
        # QELJ_CPU. None is every image in a shared library, and in a static one the image that runs everywhere.
        "cpu": [None, "portable", "x86-64-v2", "x86-64-v3", "x86-64-v4", "armv8-a"],
    }
    default_options = {"shared": True, "tools": False, "cpu": None}

    @property
    def _root(self):
        return os.path.join(self.recipe_folder, "..", "..")

    def set_version(self):
        text = load(self, os.path.join(self._root, "CMakeLists.txt"))
        self.version = re.search(r"project\(qelj VERSION ([0-9.]+)", text)[1]

    def export_sources(self):
        for pattern in ("CMakeLists.txt", "LICENSE", "README.md", "CHANGELOG.md", "SECURITY.md", "cmake/*", "docs/*",
                        "examples/*", "include/*", "qelcore/*", "src/*", "tests/*"):
            copy(self, pattern, src=self._root, dst=self.export_sources_folder)

    def configure(self):
        # The interface is one of C.
        self.settings.rm_safe("compiler.cppstd")
        self.settings.rm_safe("compiler.libcxx")

    def requirements(self):
        if self.options.tools:
            self.requires("libpng/[>=1.6 <2]")
            self.requires("libtiff/[>=4.5 <5]")

    def validate(self):
        if self.settings.os != "Linux" or self.settings.arch not in ("x86_64", "armv8"):
            raise ConanInvalidConfiguration("qelj is served on Linux, on x86-64 and AArch64")
        if self.options.cpu and str(self.options.cpu).startswith("x86") and self.settings.arch != "x86_64":
            raise ConanInvalidConfiguration(f"no image for {self.options.cpu} on {self.settings.arch}")
        oldest = {"gcc": "12", "clang": "14"}.get(str(self.settings.compiler))
        if oldest and Version(self.settings.compiler.version) < oldest:
            raise ConanInvalidConfiguration(f"qelj needs {self.settings.compiler} {oldest} or later")

    def layout(self):
        cmake_layout(self)

    def generate(self):
        toolchain = CMakeToolchain(self)
        toolchain.cache_variables["QELJ_CPU"] = str(self.options.cpu or "")
        toolchain.cache_variables["QELJ_TESTS"] = False
        toolchain.cache_variables["QELJ_EXAMPLES"] = bool(self.options.tools)
        toolchain.cache_variables["QELJ_SELFTEST"] = bool(self.options.tools)
        toolchain.generate()
        CMakeDeps(self).generate()

    def build(self):
        cmake = CMake(self)
        cmake.configure()
        cmake.build()

    def package(self):
        CMake(self).install()
        copy(self, "LICENSE", src=self.source_folder, dst=os.path.join(self.package_folder, "licenses"))
        for folder in ("share", os.path.join("lib", "cmake"), os.path.join("lib", "pkgconfig")):
            rmdir(self, os.path.join(self.package_folder, folder))

    def package_info(self):
        self.cpp_info.set_property("cmake_file_name", "qelj")
        qelcore = self.cpp_info.components["qelcore"]
        qelcore.set_property("cmake_target_name", "qelj::qelcore")
        qelcore.set_property("pkg_config_name", "qelcore")
        qelcore.libs = ["qelcore"]
        qelj = self.cpp_info.components["qelj"]
        qelj.set_property("cmake_target_name", "qelj::qelj")
        qelj.set_property("pkg_config_name", "qelj")
        qelj.libs = ["qelj"]
        qelj.requires = ["qelcore"]
        if self.options.tools:
            qelj.requires.append("libpng::libpng")
            qelj.requires.append("libtiff::libtiff")
        if not self.options.shared:
            qelcore.system_libs = ["pthread"]
            qelj.system_libs = ["omp" if self.settings.compiler == "clang" else "gomp", "m"]
