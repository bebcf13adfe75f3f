import re
from pathlib import Path

from conan import ConanFile
from conan.tools.cmake import CMake, CMakeDeps, CMakeToolchain, cmake_layout


class AlgFactoryConan(ConanFile):
    name = "alg_factory"
    description = "Stereo optical tracking: device packets in, smoothed 3D positions out"
    package_type = "shared-library"
    settings = "os", "arch", "compiler", "build_type"
    exports = "CMakeLists.txt"
    exports_sources = "CMakeLists.txt", "alg_factory/*", "cmake/*"

    def set_version(self):
        # The project's version stands in one place.
        project = Path(self.recipe_folder, "CMakeLists.txt").read_text(encoding="utf-8")
        self.version = re.search(r"project\(alg_factory\s+VERSION\s+([0-9.]+)", project).group(1)

    def build_requirements(self):
        self.tool_requires("cmake/[>=3.25]")

    def requirements(self):
        # A header library that no host sees.
        self.requires("eigen/3.4.0", visible=False)

    def layout(self):
        cmake_layout(self)

    def generate(self):
        toolchain = CMakeToolchain(self)
        toolchain.cache_variables["ALG_FACTORY_DEVELOPER"] = False
        toolchain.generate()
        CMakeDeps(self).generate()

    def build(self):
        cmake = CMake(self)
        cmake.configure()
        cmake.build()

    def package(self):
        CMake(self).install()

    def package_info(self):
        self.cpp_info.libs = ["alg_factory"]
        self.cpp_info.set_property("cmake_file_name", "alg_factory")
        self.cpp_info.set_property("cmake_target_name", "alg_factory::alg_factory")
        self.cpp_info.set_property("pkg_config_name", "alg_factory")
