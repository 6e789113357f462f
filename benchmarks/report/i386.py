# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

"""The idle programs of the library and of plain ACE, and the library's server, as 32-bit ones.

They are built in the tree of device/root, and run on this machine's own kernel by its loader.
"""

import functools
import subprocess

PROGRAMS = {"size": ("idle_osx", "idle_ace"), "echo": ("echo_osx",)}  # by folder
ALL = {name: folder for folder, names in PROGRAMS.items() for name in names}
LIMIT = 600


def device_root(root, *arguments):
    """@return what the command prints."""
    return subprocess.run([root / "device/root", *arguments], capture_output=True, text=True,
                          check=True, timeout=LIMIT).stdout


def build(root):
    """Builds the programs. @return why that failed; empty if it did not."""
    for name in ALL:
        program(root, name).unlink(missing_ok=True)
    try:
        device_root(root, "build", "osx")
        for name, folder in ALL.items():
            device_root(root, "run", "c++", "-std=c++17", "-O3", "-DNDEBUG",
                        "-D_FILE_OFFSET_BITS=64", "-I/src/src", "-I/src/benchmarks", "-o", name,
                        f"/src/benchmarks/{folder}/{name}.cpp", "-Lsrc", "-Wl,--as-needed",
                        "-losx", "-lACE")
    except subprocess.CalledProcessError as error:
        lines = (error.stderr or error.stdout).strip().splitlines()
        return lines[-1] if lines else str(error)
    except (OSError, subprocess.TimeoutExpired) as error:
        return str(error)
    return ""


def build_tree(root):
    return root / "build/i386"


def program(root, name):
    return build_tree(root) / name


def exists(root, name):
    return name in ALL and program(root, name).exists()


@functools.cache
def loader(root):
    """@return the words that start a 32-bit program."""
    tree = device_root(root, "path").strip()
    places = (f"{tree}/lib/i386-linux-gnu", f"{tree}/usr/lib/i386-linux-gnu",
              f"{build_tree(root)}/src")
    return [f"{tree}/lib/ld-linux.so.2", "--library-path", ":".join(places)]
