#!/usr/bin/env python3
"""What meson.build needs of the tree: `native.py version`, `native.py build FOLDER OUTPUT...`."""

import pathlib
import re
import shutil
import subprocess
import sys

TREE = pathlib.Path(__file__).resolve().parent.parent


def version():
    match = re.search(r"^project\(vxcamiface VERSION ([0-9.]+)", (TREE / "CMakeLists.txt").read_text(), re.M)
    return match[1]


def build(folder, outputs):
    """Builds the extension and its libraries with CMake, and copies them to where they shall be."""
    at = pathlib.Path(folder) / "native"
    options = {
        "CMAKE_BUILD_TYPE": "Release",
        "CMAKE_BUILD_WITH_INSTALL_RPATH": "ON",
        "VX_BUILD_PYTHON": "ON",
        "VX_BUILD_TESTS": "OFF",
        "VX_BUILD_TOOLS": "OFF",
        "VX_PYTHON": sys.executable,
        "VX_PYTHON_BUNDLE": "ON",
    }
    given = [f"-D{name}={value}" for name, value in options.items()]
    if shutil.which("ccache"):
        given += [f"-DCMAKE_{language}_COMPILER_LAUNCHER=ccache" for language in ("C", "CXX")]
    subprocess.run(["cmake", "-S", TREE, "-B", at, "-G", "Ninja", "-Wno-dev", *given], check=True)
    subprocess.run(["cmake", "--build", at, "--target", "_vxcam"], check=True)
    for output in map(pathlib.Path, outputs):
        found = [path for path in at.rglob(output.name)]
        shutil.copyfile(found[0], output)  # what a link leads to


if __name__ == "__main__":
    if sys.argv[1] == "version":
        print(version())
    else:
        build(sys.argv[2], sys.argv[3:])
