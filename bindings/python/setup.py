"""Builds a wheel with what the system has: pip wheel --no-build-isolation --no-deps bindings/python

CMake builds the extension, in a folder of its own, or in the one that ALG_FACTORY_BUILD names.
ALG_FACTORY_SOURCE names the source tree where this folder is not in it.
"""
import glob
import os
import re
import shutil
import subprocess
import sys

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

HERE = os.path.dirname(os.path.abspath(__file__))
SOURCE = os.environ.get("ALG_FACTORY_SOURCE", os.path.join(HERE, "..", ".."))


def version():
    with open(os.path.join(SOURCE, "CMakeLists.txt")) as file:
        return re.search(r"project\(alg_factory VERSION (\S+)", file.read()).group(1)


class CMakeBuild(build_ext):
    def build_extension(self, extension):
        build = os.environ.get("ALG_FACTORY_BUILD")
        if build is None:
            build = os.path.abspath(os.path.join(self.build_temp, "cmake"))
            subprocess.run(["cmake", "-S", SOURCE, "-B", build, "-DCMAKE_BUILD_TYPE=Release",
                            "-DBUILD_TESTING=OFF", f"-DPython_EXECUTABLE={sys.executable}"],
                           check=True)
        subprocess.run(["cmake", "--build", build, "--target", "alg_python"], check=True)
        made, = glob.glob(os.path.join(build, "bindings", "python", "alg_factory", "_core*.so"))
        target = os.path.join(os.path.dirname(self.get_ext_fullpath(extension.name)),
                              os.path.basename(made))
        os.makedirs(os.path.dirname(target), exist_ok=True)
        shutil.copyfile(made, target)


setup(version=version(), ext_modules=[Extension("alg_factory._core", [])],
      cmdclass={"build_ext": CMakeBuild})
