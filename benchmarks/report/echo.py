"""Runs the echo servers against the load generator, in turns."""

import pathlib
import re
import resource
import socket
import statistics
import subprocess
import time

# Program, role, subject, and whether it can run its loop on several threads.
SERVERS = [("echo_osx", "osx", "osx", True), ("echo_ace", "peer", "plain ACE", True),
           ("echo_uv", "peer", "libuv", False), ("echo_asio", "peer", "Asio", True),
           ("echo_glib", "peer", "GLib", False)]
CONNECTIONS = (1, 20, 200, 900)
SIZES = (("64 bytes", 64), ("16 KiB", 16384))
PROGRAMS = [server[0] for server in SERVERS] + ["echo_load"]
DESCRIPTORS = 4096


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def processor_time(pid):
    """@return nanoseconds that the threads of a process have run."""
    return sum(int(path.read_text().split()[0])
               for path in pathlib.Path(f"/proc/{pid}/task").glob("*/schedstat"))


def wait_until_listening(port, process):
    wanted = f":{port:04X} "
    for _ in range(500):
        tables = "".join(pathlib.Path(f"/proc/net/{name}").read_text() for name in ("tcp", "tcp6"))
        if re.search(wanted + r"\S+ 0A", tables):
            return
        if process.poll() is not None:
            break
        time.sleep(0.01)
    raise RuntimeError(f"{process.args[0]} does not listen")


def run_once(programs, program, connections, size, threads, milliseconds):
    """@return processor time and elapsed time a message, connects a second, 99th percentile."""
    port = free_port()
    server = subprocess.Popen([programs / program, str(port), str(threads)],
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        wait_until_listening(port, server)
        load = subprocess.Popen([programs / "echo_load", str(port), str(connections), str(size),
                                 str(milliseconds)], stdout=subprocess.PIPE, text=True)
        load.stdout.readline()  # it is connected
        before = processor_time(server.pid)
        figures = load.communicate(timeout=60)[0]
        used = processor_time(server.pid) - before
    finally:
        server.kill()
        server.wait()
    if load.returncode != 0:
        return None
    messages, seconds, connecting, slow = (float(field) for field in figures.split())
    return used / messages, seconds * 1e9 / messages, connections / connecting, slow


def result(row, role, subject, runs):
    processor, elapsed, connects, slow = (statistics.median(column) for column in zip(*runs))
    return {"group": "echo", "row": row, "role": role, "subject": subject, "unit": "ns",
            "value": processor, "spread": 0,
            "extra": {"elapsed": elapsed, "connects/s": connects, "p99": slow}}


def measure(programs, quick):
    """@return the results of all rows. In a quick run, of fewer."""
    soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    resource.setrlimit(resource.RLIMIT_NOFILE, (min(max(soft, DESCRIPTORS), hard), hard))
    results = []
    for connections in (1, 200) if quick else CONNECTIONS:
        for size_name, size in SIZES[:1] if quick else SIZES:
            for threads in (1, 2):
                row = f"{size_name}, connections: {connections}, threads: {threads}"
                servers = [server for server in SERVERS if threads == 1 or server[3]]
                runs = {server: [] for server in servers}
                for _ in range(1 if quick else 5):
                    for server in servers:
                        figures = run_once(programs, server[0], connections, size, threads,
                                           200 if quick else 500)
                        if figures is not None:
                            runs[server].append(figures)
                results += [result(row, server[1], server[2], figures)
                            for server, figures in runs.items() if figures]
    return results
