# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

"""Weighs programs that do nothing but run their event loop."""

import dataclasses
import json
import pathlib
import re
import resource
import shlex
import statistics
import subprocess
import tempfile
import time

from report import i386
from report.rounds import result

# Program, role, subject.
PROGRAMS = {"idle_osx": ("osx", "osx"), "idle_ace": ("floor", "plain ACE"),
            "idle_poco": ("peer", "POCO"), "idle_glib": ("peer", "GLib"),
            "idle_qt": ("peer", "Qt Core"), "idle_asio": ("other", "Asio"),
            "idle_uv": ("other", "libuv"), "idle_apr": ("other", "APR")}
# What every C++ program loads.
COMMON = re.compile(r"/(libc|libm|libstdc\+\+|libgcc_s|ld-linux[^/]*|libpthread|libdl|librt)\.so")


@dataclasses.dataclass(frozen=True)
class Program:
    """An idle program: how it is run, how its libraries are listed, and where it is shown."""

    role: str
    subject: str
    command: list
    listing: list


def programs(root, build):
    """@return all that there are; those for i386 follow their namesakes."""
    found = []
    for name, (role, subject) in PROGRAMS.items():
        path = build / "benchmarks" / name
        found.append(Program(role, subject, [path], ["ldd", path]))
        if i386.exists(root, name):
            loader, path = i386.loader(root), i386.program(root, name)
            found.append(Program("beside", f"{subject}, i386", [*loader, path],
                                 [*loader, "--list", path]))
    return found


def libraries(program):
    """@return the paths of the shared libraries that only this program's interface brings."""
    listed = subprocess.run(program.listing, capture_output=True, text=True, check=True).stdout
    paths = [pathlib.Path(path).resolve() for path in re.findall(r"=> (\S+)", listed)]
    return [path for path in paths if not COMMON.search(str(path))]


def stripped_size(path):
    with tempfile.NamedTemporaryFile() as copy:
        subprocess.run(["strip", "--strip-unneeded", "-o", copy.name, path], check=True)
        return pathlib.Path(copy.name).stat().st_size


def memory(program):
    """@return resident bytes, those that it has written, and threads of the program at rest."""
    process = subprocess.Popen(program.command, stdout=subprocess.DEVNULL,
                               stderr=subprocess.DEVNULL)
    try:
        time.sleep(0.7)
        rollup = pathlib.Path(f"/proc/{process.pid}/smaps_rollup").read_text()
        kilobytes = {key: int(value) for key, value in re.findall(r"(\w+): +(\d+) kB", rollup)}
        threads = len(list(pathlib.Path(f"/proc/{process.pid}/task").iterdir()))
    finally:
        process.kill()
        process.wait()
    return kilobytes["Rss"] * 1024, kilobytes["Private_Dirty"] * 1024, threads


def compile_time(build, name):
    """@return nanoseconds of processor time to compile the program, which is little but its
    includes."""
    commands = json.loads((build / "compile_commands.json").read_text())
    entry = next(e for e in commands if e["file"].endswith(f"/{name}.cpp"))
    words = shlex.split(entry["command"])
    if words[0].endswith("ccache"):
        words = words[1:]
    words[words.index("-o") + 1] = "/dev/null"
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    subprocess.run(words, cwd=entry["directory"], check=True)
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    return (after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime) * 1e9


def compile_times(build, repetitions):
    """@return the medians of all programs, compiled in turns."""
    times = [[compile_time(build, name) for name in PROGRAMS] for _ in range(repetitions)]
    return [statistics.median(column) for column in zip(*times)]


def of_library(root, build):
    """@return what the library weighs, here and, where it is built, on i386: a row each."""
    found = {"": build}
    if i386.exists(root, "idle_osx"):
        found[", i386"] = i386.build_tree(root)
    return [result("size", f"the library alone, stripped{where}", "osx", "osx",
                   stripped_size(tree / "src/libosx.so.1") / 1024, "KiB")
            for where, tree in found.items()]


def measure(root, build, quick):
    found = programs(root, build)
    figures = [(sum(map(stripped_size, libraries(program))), *memory(program))
               for program in found]
    rows = (("libraries, stripped", "bytes"), ("resident memory, idle", "bytes"),
            ("of it the program's own", "bytes"), ("threads, idle", ""))
    results = [result("size", row, program.role, program.subject, value, unit)
               for (row, unit), column in zip(rows, zip(*figures))
               for program, value in zip(found, column)]
    results += of_library(root, build)
    times = compile_times(build, 1 if quick else 3)
    return results + [result("size", "compile time with the chief header", role, subject, value)
                      for (role, subject), value in zip(PROGRAMS.values(), times)]
