"""Builds and runs the consumers of tests/consumer with the package."""

import os

from conan import ConanFile
from conan.tools.build import can_run
from conan.tools.cmake import CMake, cmake_layout


class KivsduTestPackage(ConanFile):
    settings = "os", "arch", "compiler", "build_type"
    generators = "CMakeDeps", "CMakeToolchain"

    def requirements(self):
        self.requires(self.tested_reference_str)

    def layout(self):
        cmake_layout(self)

    def build(self):
        cmake = CMake(self)
        cmake.configure(build_script_folder=os.path.join(
            self.recipe_folder, os.pardir, os.pardir, os.pardir, "tests", "consumer"))
        cmake.build()

    def test(self):
        if can_run(self):
            for program in ("c_shared", "cpp_shared", "c_utility"):
                self.run(os.path.join(self.cpp.build.bindir, program), env="conanrun")
