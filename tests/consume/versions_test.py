"""The version stands in CMakeLists.txt; whatever else carries one agrees with it.

usage: versions_test.py SOURCE PREFIX LIBDIR READELF
"""

import importlib.util
import json
import re
import subprocess
import sys
import types
import unittest
from pathlib import Path

SOURCE, PREFIX, LIBDIR, READELF = sys.argv.pop(1), sys.argv.pop(1), sys.argv.pop(1), sys.argv.pop(1)
LIBRARIES = Path(PREFIX, LIBDIR)


def project_version():
    text = Path(SOURCE, "CMakeLists.txt").read_text(encoding="utf-8")
    (version,) = re.findall(r"^project\(\w+ VERSION (\d+\.\d+\.\d+)", text, re.MULTILINE)
    return version


def load_conanfile():
    """The recipe as a module. Conan itself is not needed: the base class and the helpers that the
    recipe imports are stood in for, its own code runs."""
    conan = types.ModuleType("conan")
    conan.ConanFile = object
    cmake = types.ModuleType("conan.tools.cmake")
    for name in ("CMake", "CMakeDeps", "CMakeToolchain", "cmake_layout"):
        setattr(cmake, name, None)
    sys.modules.update({"conan": conan, "conan.tools": types.ModuleType("conan.tools"),
                        "conan.tools.cmake": cmake})
    sys.dont_write_bytecode = True
    location = importlib.util.spec_from_file_location("conanfile", Path(SOURCE, "conanfile.py"))
    module = importlib.util.module_from_spec(location)
    location.loader.exec_module(module)
    return module


class VersionsTest(unittest.TestCase):
    def test_public_header(self):
        header = Path(PREFIX, "include", "alg_factory", "api", "Version.h").read_text()
        self.assertIn(f'#define ALG_FACTORY_VERSION "{project_version()}"\n', header)

    def test_header_in_c(self):
        header = Path(PREFIX, "include", "alg_factory_c.h").read_text(encoding="ascii")
        self.assertIn(f'#define ALG_C_VERSION "{project_version()}"\n', header)

    def test_vcpkg_manifest(self):
        manifest = json.loads(Path(SOURCE, "vcpkg.json").read_text(encoding="utf-8"))
        self.assertEqual(manifest["version-semver"], project_version())
        self.assertRegex(manifest["name"], r"^[a-z0-9]+(-[a-z0-9]+)*$")
        names = [d if isinstance(d, str) else d["name"] for d in manifest["dependencies"]]
        self.assertIn("eigen3", names)

    def test_conan_recipe(self):
        recipe = load_conanfile().AlgFactoryConan()
        recipe.recipe_folder = SOURCE
        recipe.set_version()
        self.assertEqual(recipe.version, project_version())

    def test_conan_recipe_takes_along_what_the_library_is_made_of(self):
        recipe = load_conanfile().AlgFactoryConan
        self.assertEqual(recipe.exports, "CMakeLists.txt")
        lines = Path(__file__).with_name("library_sources.txt").read_text().splitlines()
        self.assertEqual({pattern.removesuffix("/*") for pattern in recipe.exports_sources},
                         {line for line in lines if not line.startswith("#")})

    def test_pkg_config_files(self):
        for name in ("alg_factory.pc", "alg_factory_c.pc"):
            text = (LIBRARIES / "pkgconfig" / name).read_text(encoding="utf-8")
            self.assertIn(f"\nVersion: {project_version()}\n", text)

    def test_cmake_package(self):
        text = (LIBRARIES / "cmake" / "alg_factory" / "alg_factory-config-version.cmake").read_text()
        self.assertIn(f'set(PACKAGE_VERSION "{project_version()}")', text)

    def test_shared_libraries_are_named_after_the_version_and_their_sonames_after_the_major(self):
        version = project_version()
        for name in ("libalg_factory.so", "libalg_factory_c.so"):
            library = LIBRARIES / f"{name}.{version}"
            self.assertTrue(library.is_file() and not library.is_symlink())
            dynamic = subprocess.run([READELF, "-d", library], check=True, capture_output=True,
                                     text=True).stdout
            soname = f"{name}.{version.split('.')[0]}"
            self.assertIn(f"[{soname}]", dynamic)
            self.assertEqual((LIBRARIES / soname).resolve(), library.resolve())
            self.assertEqual((LIBRARIES / name).resolve(), library.resolve())


if __name__ == "__main__":
    unittest.main()
