"""Conan 2: conan create packaging/conan"""

import os
import re

from conan import ConanFile
from conan.tools.cmake import CMake, CMakeToolchain
from conan.tools.files import copy, load


class Vx(ConanFile):
    name = "vx"
    description = "The foundation library of a video-editing application"
    package_type = "shared-library"
    settings = "os", "arch", "compiler", "build_type"

    def set_version(self):
        project = load(self, os.path.join(self.recipe_folder, "..", "..", "CMakeLists.txt"))
        self.version = re.search(r"project\(Vx VERSION ([0-9.]+)", project).group(1)

    def export_sources(self):
        copy(self, "*", src=os.path.join(self.recipe_folder, "..", ".."),
             dst=self.export_sources_folder, excludes=("build*", ".git*"))

    def layout(self):
        self.folders.root = os.path.join("..", "..")
        self.folders.source = "."
        self.folders.build = os.path.join("build", "conan")
        self.folders.generators = os.path.join("build", "conan", "generators")

    def generate(self):
        toolchain = CMakeToolchain(self, generator="Ninja")
        for part in ("TESTS", "TOOLS", "EXAMPLES"):
            toolchain.cache_variables["VX_BUILD_" + part] = False
        toolchain.generate()

    def build(self):
        cmake = CMake(self)
        cmake.configure()
        cmake.build()

    def package(self):
        CMake(self).install()

    def package_info(self):
        # The installed CMake and pkg-config files know more than Conan could generate.
        self.cpp_info.set_property("cmake_find_mode", "none")
        self.cpp_info.builddirs = [os.path.join("lib", "cmake", "Vx")]
        self.cpp_info.libs = ["Vx", "OS"]
