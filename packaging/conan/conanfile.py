"""Conan recipe; `conan create packaging/conan` from the top folder builds the sources around it."""

import os

from conan import ConanFile
from conan.tools.cmake import CMake, CMakeToolchain, cmake_layout
from conan.tools.files import copy, load

import re


class QRTVirtualMemMgmtConan(ConanFile):
    name = "qrtvirtualmemmgmt"
    package_type = "library"
    description = "Pageable object store, trees, strings and scratch files larger than memory"
    settings = "os", "arch", "compiler", "build_type"
    options = {"shared": [True, False]}
    default_options = {"shared": True}
    generators = ("CMakeDeps",)

    @property
    def _root(self):
        return os.path.join(self.recipe_folder, "..", "..")

    def set_version(self):
        text = load(self, os.path.join(self._root, "CMakeLists.txt"))
        self.version = re.search(r"QRTVirtualMemMgmt VERSION ([0-9.]+)", text).group(1)

    def export_sources(self):
        for pattern in ("CMakeLists.txt", "cmake/*", "include/*", "platform/*", "src/*",
                        "packaging/licence.txt", "packaging/debian/*"):
            copy(self, pattern, self._root, self.export_sources_folder)

    def layout(self):
        cmake_layout(self)

    def requirements(self):
        self.requires("zlib/[>=1.2.11 <2]")
        self.requires("xxhash/[>=0.8]")
        self.requires("utfcpp/[>=3]")

    def generate(self):
        toolchain = CMakeToolchain(self)
        toolchain.variables["QRT_BUILD_SHARED"] = bool(self.options.shared)
        toolchain.variables["QRT_BUILD_TESTS"] = False
        toolchain.variables["QRT_BUILD_EXAMPLES"] = False
        toolchain.generate()

    def build(self):
        cmake = CMake(self)
        cmake.configure()
        cmake.build()

    def package(self):
        copy(self, "licence.txt", os.path.join(self.source_folder, "packaging"),
             os.path.join(self.package_folder, "licenses"))
        CMake(self).install()

    def package_info(self):
        self.cpp_info.libs = ["QRTVirtualMemMgmt"]
        self.cpp_info.includedirs = ["include/QRTVirtualMemMgmt"]
        self.cpp_info.set_property("cmake_file_name", "QRTVirtualMemMgmt")
        self.cpp_info.set_property("cmake_target_name", "QRT::VirtualMemMgmt")
        self.cpp_info.set_property("pkg_config_name", "QRTVirtualMemMgmt")
        if not self.options.shared:
            self.cpp_info.defines = ["QRT_STATIC_LIBRARY"]
