"""Builds the package from the tree that it lies in: the declarations are those of the headers.

With QELJ_CARRY naming the `lib` folder of an installation, a wheel carries its images, and is one for this kind of
machine; else it loads the system's library, and is for any.
"""
import glob
import os
import re
import shutil
import sys

from setuptools import Distribution, setup
from setuptools.command.build_py import build_py
from wheel.bdist_wheel import bdist_wheel

HERE = os.path.dirname(os.path.abspath(__file__))
CARRIED = os.environ.get("QELJ_CARRY")
sys.path.insert(0, HERE)


def version():
    with open(os.path.join(HERE, "..", "CMakeLists.txt"), encoding="utf-8") as file:
        return re.search(r"project\(qelj VERSION (\S+)", file.read())[1]


class Assemble(build_py):
    """In place of copying the sources."""

    def run(self):
        from assemble import assemble
        package = assemble(self.build_lib)
        for path in CARRIED and (glob.glob(f"{CARRIED}/libqel*.so.7") + glob.glob(f"{CARRIED}/*/*/libqelj.so.7")) or ():
            target = os.path.join(package, "lib", os.path.relpath(path, CARRIED))
            os.makedirs(os.path.dirname(target), exist_ok=True)
            shutil.copy(path, target)


class Wheel(bdist_wheel):
    """For any Python, and with images for one kind of machine."""

    def finalize_options(self):
        super().finalize_options()
        self.root_is_pure = not CARRIED

    def get_tag(self):
        return ("py3", "none", super().get_tag()[2])


class Binary(Distribution):
    def has_ext_modules(self):
        return bool(CARRIED)


setup(version=version(), packages=["qelj"], package_dir={"": "src"}, package_data={"qelj": ["py.typed", "*.pyi"]},
      distclass=Binary, cmdclass={"build_py": Assemble, "bdist_wheel": Wheel})
