"""What the recipe imports; building with it takes the real tool."""

CMake = CMakeToolchain = cmake_layout = None
