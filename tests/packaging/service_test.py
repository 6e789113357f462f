#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT
"""Starts the gateway's unit under a systemd of its own, and looks at what it does there.

    service_test.py SOURCE GATEWAY LIBRARY TEST...

A container of its own mounts, processes and network is made for it: systemd is its first process,
and the folders that a service writes to are empty and in memory. That needs root.
"""
import os
import pathlib
import re
import select
import shutil
import signal
import socket
import subprocess
import sys
import threading
import time
import unittest
import uuid

LIMIT_S = 60  # what has not come by then is lost
FENCED_S = 5  # a connection that nothing holds up takes no time
LOGS = pathlib.Path("/var/log/osx-gateway")
UNIT = "osx-gateway.service"
CGROUPS = "/sys/fs/cgroup"
CONTAINER = ["unshare", "--mount", "--pid", "--fork", "--kill-child", "--net", "--ipc", "--uts"]
RESULT = "result of the container: "


# --- the container ----------------------------------------------------------------------------

def run(*command, **options):
    return subprocess.run(command, check=True, capture_output=True, text=True, **options).stdout


def read_only(folder):
    run("mount", "--bind", folder, folder)
    run("mount", "-o", "remount,bind,ro", folder)


def own_cgroup(name):
    """Mounts the control groups. @return the one of that name below that of this process."""
    run("mount", "-t", "proc", "proc", "/proc")
    subprocess.run(["umount", "-R", CGROUPS], check=False, capture_output=True)
    run("mount", "-t", "cgroup2", "cgroup2", CGROUPS)
    own = re.search(r"^0::/(.*)$", pathlib.Path("/proc/self/cgroup").read_text(), re.MULTILINE)
    return pathlib.Path(CGROUPS, own[1], name)


def join(name, *arguments):
    """Another systemd may be at work in the same control group: this one gets one of its own."""
    cgroup = own_cgroup(name)
    cgroup.mkdir()
    (cgroup / "cgroup.procs").write_text("0")
    os.execvp("unshare", ["unshare", "--cgroup", sys.executable, __file__, "inside", *arguments])


def clear(name):
    """Removes the control groups of a container."""
    cgroup = own_cgroup(name)
    (cgroup / "cgroup.kill").write_text("1")

    def removed():
        try:
            for folder, _, _ in os.walk(cgroup, topdown=False):
                os.rmdir(folder)
            return True
        except OSError:
            return False

    wait_until(removed, "the end of the container's processes")


def make_container(source, gateway, library):
    """Leaves the machine's folders alone, and puts the files into /opt and /run."""
    files = source / "packaging/gateway"
    unit = (files / UNIT).read_text()
    kept = {name: (files / name).read_bytes() for name in
            ("osx-gateway.default", "osx-gateway.logrotate", "osx-gateway.nft")}
    page = (source / "docs/deployment.md").read_text()
    site = re.search(r"<!-- site.conf -->\n```ini\n(.*?)```", page, re.DOTALL).group(1)
    programs = {"osx-gateway": gateway.read_bytes(), library.name: library.read_bytes()}

    run("umount", CGROUPS)
    for folder in ("/sys", "/proc/sys", "/etc"):
        read_only(folder)
    run("mount", "-t", "cgroup2", "cgroup2", CGROUPS)
    for folder in ("/run", "/tmp", "/opt", "/var/lib", "/var/log", "/var/tmp"):
        run("mount", "-t", "tmpfs", "-o", "mode=755", "tmpfs", folder)
    run("ip", "link", "set", "lo", "up")

    for name, content in (kept | programs).items():
        pathlib.Path("/opt", name).write_bytes(content)
    os.chmod("/opt/osx-gateway", 0o755)
    os.chmod("/opt/osx-gateway.logrotate", 0o644)
    pathlib.Path("/opt/site.conf").write_text(site)
    drop_ins = pathlib.Path("/run/systemd/system", UNIT + ".d")
    drop_ins.mkdir(parents=True)
    assert unit.count("/usr/bin/osx-gateway") == 1
    (drop_ins.parent / UNIT).write_text(unit.replace("/usr/bin/", "/opt/"))
    # The machine's own start-up stays out of it.
    (drop_ins / "test.conf").write_text(
        "[Unit]\nDefaultDependencies=no\n[Service]\nEnvironment=LD_LIBRARY_PATH=/opt\n"
        "EnvironmentFile=\nEnvironmentFile=-/opt/osx-gateway.default\n")


def inside(source, gateway, library, *tests):
    """The first process: becomes systemd; its child looks."""
    make_container(*map(pathlib.Path, (source, gateway, library)))
    if os.fork() != 0:
        os.execve("/lib/systemd/systemd",
                  ["systemd", "--system", "--unit=" + UNIT, "--log-target=console",
                   "--show-status=0"],
                  {"container": "osx", "PATH": "/usr/sbin:/usr/bin:/sbin:/bin"})
    passed = unittest.main(argv=[sys.argv[0], *tests], exit=False, verbosity=2).result
    for name in sorted(LOGS.glob("*")) if not passed.wasSuccessful() else []:
        print(f"--- {name}\n{name.read_text(errors='replace')[-2000:]}")
    print(f"{RESULT}{passed.testsRun} run, {'passed' if passed.wasSuccessful() else 'failed'}",
          flush=True)


def outside(arguments):
    """Runs the container until it tells its result. @return whether all tests passed."""
    name = f"osx-service-{uuid.uuid4()}"
    command = [*CONTAINER, sys.executable, __file__, "join", name, *arguments]
    with subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          stdin=subprocess.DEVNULL, start_new_session=True) as container:
        result = ""
        for line in container.stdout:
            print(line, end="", flush=True)
            if line.startswith(RESULT):
                result = line
                break
        container.kill()  # unshare holds SIGTERM back; the container goes with it
    subprocess.run(["unshare", "--mount", sys.executable, __file__, "clear", name], check=True)
    return result.endswith("1 run, passed\n")


# --- what the tests are made of ---------------------------------------------------------------

def wait_until(condition, what):
    end = time.monotonic() + LIMIT_S
    while not condition():
        if time.monotonic() > end:
            raise AssertionError(f"never came: {what}")
        time.sleep(0.05)


def state(name):
    shown = subprocess.run(["systemctl", "show", "--value", "-p", name, UNIT], check=False,
                           capture_output=True, text=True)
    return shown.stdout.strip()


def connect(port, limit=LIMIT_S, host="127.0.0.1"):
    return socket.create_connection((host, port), limit)


def reaches(host, port):
    try:
        connect(port, FENCED_S, host).close()
        return True
    except OSError:
        return False


def lines_of(client, instrument):
    """@return what the client reads, from the first sentence that comes on."""
    while not select.select([client], [], [], 0.1)[0]:
        instrument.send("are you there")
    return client.makefile()


def serves():
    """Whether it has come so far that a client is taken."""
    try:
        connect(10111, 5).close()
        return True
    except OSError:
        return False


def read_to(peer, text):
    """What a peer sends, up to a text."""
    received = ""
    while text not in received:
        piece = peer.recv(4096).decode()
        if not piece:
            break
        received += piece
    return received


class Instrument:
    """Where the gateway looks for one."""

    def __init__(self):
        with socket.create_server(("127.0.0.1", 10110)) as listener:
            listener.settimeout(LIMIT_S)
            self.gateway, _ = listener.accept()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.gateway.close()

    def send(self, text):
        body = f"GPTXT,{text}"
        total = 0
        for character in body.encode():
            total ^= character
        self.gateway.sendall(f"${body}*{total:02X}\r\n".encode())


class Service(unittest.TestCase):
    def setUp(self):
        wait_until(serves, "the service")

    def log(self):
        return (LOGS / "gateway.log").read_text()

    def set_level(self, level):
        with connect(12311) as port:
            port.sendall(str(level).encode())
            wait_until(lambda: f"set the debug level to [{level}]" in self.log(), "the level")

    def restart(self):
        run("systemctl", "daemon-reload")
        run("systemctl", "restart", UNIT)
        wait_until(serves, "the service again")

    def drop_in(self, name, text):
        pathlib.Path("/run/systemd/system", UNIT + ".d", name).write_text(text)

    def test_PassesSentencesOnWithoutAnyRight(self):
        with connect(2324) as watcher, connect(10111) as client:
            self.set_level(3)
            with Instrument() as instrument:
                self.assertIn("$GPTXT,are you there*", lines_of(client, instrument).readline())
            traced = "gateway: [$GPTXT,are you there*"
            wait_until(lambda: traced in self.log(), "the sentence in the log")
            self.assertIn(traced, read_to(watcher, traced))
        status = pathlib.Path("/proc", state("MainPID"), "status").read_text()
        fields = dict(re.findall(r"^(\w+):\s*(.*)$", status, re.MULTILINE))
        self.assertNotIn("0", fields["Uid"].split())
        self.assertEqual("0" * 16, fields["CapEff"])
        self.assertEqual("0" * 16, fields["CapBnd"])
        self.assertEqual(("1", "2"), (fields["NoNewPrivs"], fields["Seccomp"]))
        dialout = run("getent", "group", "dialout").split(":")[2]
        self.assertIn(dialout, fields["Groups"].split())
        self.assertNotIn("not permitted", self.log())

    def test_ServesTheSiteAndKeepsTheDiagnosticsToItself(self):
        peers = {"192.0.2": "in the site", "198.51.100": "elsewhere"}
        for index, net in enumerate(peers):
            run("ip", "netns", "add", f"peer{index}")
            run("ip", "link", "add", f"here{index}", "type", "veth", "peer", "name", "there",
                "netns", f"peer{index}")
            run("ip", "address", "add", f"{net}.1/24", "dev", f"here{index}")
            run("ip", "link", "set", f"here{index}", "up")
            run("ip", "-n", f"peer{index}", "address", "add", f"{net}.2/24", "dev", "there")
            run("ip", "-n", f"peer{index}", "link", "set", "there", "up")

        def connecting(index, net, port):
            return subprocess.Popen(
                ["ip", "netns", "exec", f"peer{index}", sys.executable, "-c",
                 "import socket\n"
                 f"socket.create_connection(('{net}.1', {port}), {FENCED_S})"],
                stderr=subprocess.DEVNULL)

        def reached():
            """The ports that each peer reaches."""
            tries = [{port: connecting(index, net, port) for port in (10111, 2324, 12311)}
                     for index, net in enumerate(peers)]
            return [[port for port, peer in ports.items() if peer.wait() == 0] for ports in tries]

        self.assertEqual([[], []], reached(), "the unit alone")
        self.drop_in("site.conf", pathlib.Path("/opt/site.conf").read_text())
        self.restart()
        self.assertEqual([[10111, 2324, 12311], []], reached(), "with the site's addresses")
        for _ in range(2):  # again, as after a change
            run("nft", "-f", "/opt/osx-gateway.nft")
        self.assertEqual([[10111], []], reached(), "with the packet filter")
        self.assertTrue(reaches("127.0.0.1", 2324) and reaches("127.0.0.1", 12311))

    def test_StartsAgainAfterACrashAndKeepsTheLog(self):
        self.set_level(1)
        before = state("MainPID")
        os.kill(int(before), signal.SIGABRT)
        wait_until(lambda: state("MainPID") not in (before, "0", "") and serves(), "another one")
        self.assertEqual("1", state("NRestarts"))
        self.assertIn("set the debug level to [1]", (LOGS / "gateway.log.before").read_text())
        self.assertNotIn("set the debug level to [1]", self.log())

    def test_StopsCleanlyAndStaysDownOnAWrongCommandLine(self):
        run("systemctl", "stop", UNIT)
        self.assertEqual(("inactive", "success"), (state("ActiveState"), state("Result")))
        pathlib.Path("/opt/osx-gateway.default").write_text("OSX_GATEWAY_OPTIONS=--port x\n")
        # It may have failed before systemctl hears that it was started.
        subprocess.run(["systemctl", "start", UNIT], check=False, capture_output=True)
        wait_until(lambda: state("ActiveState") == "failed", "the failure")
        self.assertEqual(("2", "0"), (state("ExecMainStatus"), state("NRestarts")))

    def test_LosesNoLineWhenItsLogIsRotated(self):
        self.set_level(3)
        numbers = iter(range(1_000_000))
        sent = []
        rotated = threading.Event()
        with Instrument() as instrument, connect(10111) as client:
            lines = lines_of(client, instrument)

            def exchange():
                sent.append(next(numbers))
                instrument.send(sent[-1])
                self.assertTrue(any(f"$GPTXT,{sent[-1]}*" in line for line in lines))

            def rotate():
                run("logrotate", "--force", "--state", "/run/logrotate",
                    "/opt/osx-gateway.logrotate")
                rotated.set()

            for _ in range(3):
                rotated.clear()
                rotation = threading.Thread(target=rotate)
                rotation.start()
                # Lines come before, during and after it, until the new file has some.
                exchange()
                wait_until(lambda: exchange() or rotated.is_set() and
                           (LOGS / "gateway.log").exists(), "the new file")
                rotation.join()
            exchange()
        run("systemctl", "stop", UNIT)
        files = [LOGS / f"gateway.log.{index}" for index in (3, 2, 1)] + [LOGS / "gateway.log"]
        text = "".join(file.read_text() for file in files)
        self.assertEqual(sent, [int(number) for number in re.findall(r"\[\$GPTXT,(\d+)\*", text)])


def main():
    if os.geteuid() != 0:
        os.execvp("sudo", ["sudo", "-n", sys.executable, *sys.argv])
    for tool in ("unshare", "logrotate", "nft", "systemctl"):
        if shutil.which(tool, path=os.environ["PATH"] + ":/usr/sbin:/sbin") is None:
            sys.exit(f"{tool} is not installed; tools/install-packages check does it")
    stages = {"join": join, "inside": inside, "clear": clear}
    if sys.argv[1] in stages:
        stages[sys.argv[1]](*sys.argv[2:])
    else:
        sys.exit(0 if outside(sys.argv[1:]) else 1)


if __name__ == "__main__":
    main()
