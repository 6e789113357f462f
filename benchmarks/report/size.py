"""Weighs programs that do nothing but run their event loop."""

import json
import pathlib
import re
import resource
import shlex
import statistics
import subprocess
import tempfile
import time

# Program, role, subject.
PROGRAMS = {"idle_osx": ("osx", "osx"), "idle_ace": ("floor", "plain ACE"),
            "idle_poco": ("peer", "POCO"), "idle_glib": ("peer", "GLib"),
            "idle_qt": ("peer", "Qt Core"), "idle_uv": ("other", "libuv"),
            "idle_apr": ("other", "APR")}
# What every C++ program loads.
COMMON = re.compile(r"/(libc|libm|libstdc\+\+|libgcc_s|ld-linux[^/]*|libpthread|libdl|librt)\.so")


def libraries(program):
    """@return the paths of the shared libraries that only this program's interface brings."""
    listed = subprocess.run(["ldd", program], capture_output=True, text=True, check=True).stdout
    paths = [pathlib.Path(path).resolve() for path in re.findall(r"=> (\S+)", listed)]
    return [path for path in paths if not COMMON.search(str(path))]


def stripped_size(path):
    with tempfile.NamedTemporaryFile() as copy:
        subprocess.run(["strip", "--strip-unneeded", "-o", copy.name, path], check=True)
        return pathlib.Path(copy.name).stat().st_size


def memory(program):
    """@return resident bytes, those that are not shared, and threads of the program at rest."""
    process = subprocess.Popen([program], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        time.sleep(0.7)
        rollup = pathlib.Path(f"/proc/{process.pid}/smaps_rollup").read_text()
        kilobytes = {key: int(value) for key, value in re.findall(r"(\w+): +(\d+) kB", rollup)}
        threads = len(list(pathlib.Path(f"/proc/{process.pid}/task").iterdir()))
    finally:
        process.kill()
        process.wait()
    return (kilobytes["Rss"] * 1024,
            (kilobytes["Private_Clean"] + kilobytes["Private_Dirty"]) * 1024, threads)


def compile_time(build, name, repetitions):
    """@return nanoseconds of processor time to compile the program, which is little but its
    includes."""
    commands = json.loads((build / "compile_commands.json").read_text())
    entry = next(e for e in commands if e["file"].endswith(f"/{name}.cpp"))
    words = shlex.split(entry["command"])
    if words[0].endswith("ccache"):
        words = words[1:]
    words[words.index("-o") + 1] = "/dev/null"
    times = []
    for _ in range(repetitions):
        before = resource.getrusage(resource.RUSAGE_CHILDREN)
        subprocess.run(words, cwd=entry["directory"], check=True)
        after = resource.getrusage(resource.RUSAGE_CHILDREN)
        times.append((after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime) * 1e9)
    return statistics.median(times)


def measure(build, quick):
    results = []

    def add(row, name, unit, value, **extra):
        role, subject = PROGRAMS[name]
        results.append({"group": "size", "row": row, "role": role, "subject": subject,
                        "unit": unit, "value": value, "spread": 0, "extra": extra})

    figures = {name: memory(build / "benchmarks" / name) for name in PROGRAMS}
    for name in PROGRAMS:
        add("libraries, stripped", name, "bytes",
            sum(stripped_size(path) for path in libraries(build / "benchmarks" / name)))
    for name, (resident, own, _) in figures.items():
        add("resident memory, idle", name, "bytes", resident)
        add("of it the program's own", name, "bytes", own)
    for name, (_, _, threads) in figures.items():
        add("threads, idle", name, "", threads)
    for name in PROGRAMS:
        add("compile time with the chief header", name, "ns",
            compile_time(build, name, 1 if quick else 3))
    results.sort(key=lambda result: result["row"] != "libraries, stripped")
    return results
