"""Recipe for Conan 2. It packs the source tree that it lies in:

    conan create packaging/conan
"""

import os
import re

from conan import ConanFile
from conan.errors import ConanInvalidConfiguration
from conan.tools.cmake import CMake, CMakeDeps, CMakeToolchain, cmake_layout
from conan.tools.files import copy, load, rmdir

required_conan_version = ">=2.0"


class KivsduRecipe(ConanFile):
    name = "kivsdu"
    description = "Operating-system layer and memory manager of a database server"
    license = "MIT"
    package_type = "shared-library"
    settings = "os", "arch", "compiler", "build_type"

    @property
    def _root(self):
        return os.path.join(self.recipe_folder, os.pardir, os.pardir)

    def set_version(self):
        text = load(self, os.path.join(self._root, "CMakeLists.txt"))
        self.version = re.search(r"project\(kivsdu VERSION ([0-9.]+)", text).group(1)

    def export_sources(self):
        for folder in ("cmake", "include", "kivutlu", "packaging", "sd", "status", "docs", "examples"):
            copy(self, f"{folder}/*", self._root, self.export_sources_folder)
        for file in ("CMakeLists.txt", "LICENSE", "README.md", "CHANGELOG.md", "SECURITY.md"):
            copy(self, file, self._root, self.export_sources_folder)

    def layout(self):
        self.folders.root = os.path.join(os.pardir, os.pardir)
        cmake_layout(self)

    def validate(self):
        if self.settings.os not in ("Linux", "Windows") or self.settings.arch != "x86_64":
            raise ConanInvalidConfiguration("kivsdu is for 64-bit x86, Linux and Windows")

    def requirements(self):
        if self.settings.os == "Linux":
            self.requires("liburing/[>=2.3 <3]", options={"shared": False})

    def generate(self):
        toolchain = CMakeToolchain(self)
        for option in ("KIVSDU_TESTS", "KIVSDU_EXAMPLES", "KIVSDU_TOOLS"):
            toolchain.cache_variables[option] = False
        toolchain.generate()
        CMakeDeps(self).generate()

    def build(self):
        cmake = CMake(self)
        cmake.configure()
        cmake.build()

    def package(self):
        copy(self, "LICENSE", self.source_folder, os.path.join(self.package_folder, "licenses"))
        CMake(self).install()
        for folder in ("lib/cmake", "lib/pkgconfig", "share"):  # Conan writes its own
            rmdir(self, os.path.join(self.package_folder, folder))

    def package_info(self):
        self.cpp_info.set_property("cmake_file_name", "kivsdu")
        self._component("kivutlu", "kivsdu::kivutlu", ["kivutlu"])
        self._component("kivsdu", "kivsdu::kivsdu", ["kivsdu"], ["kivutlu"])
        self._component("status", "kivsdu::status", ["kivsdu_status"])
        self._component("cpp", "kivsdu::cpp", [], ["status"])

    def _component(self, name, target, libraries, requires=()):
        component = self.cpp_info.components[name]
        component.set_property("cmake_target_name", target)
        component.libs = libraries
        component.requires = list(requires)
        if name == "kivsdu" and self.settings.os == "Linux":
            component.requires.append("liburing::liburing")
