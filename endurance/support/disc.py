# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

"""A small file system that can be filled and freed again."""

import contextlib
import pathlib
import subprocess
import tempfile

import pytest

_PAGE = 4096


@contextlib.contextmanager
def small_disc(figures):
    """Gives the place of a file system of 1 MiB, in memory. Skips the test where none can be."""
    place = pathlib.Path(tempfile.mkdtemp(prefix="osx-disc-"))
    try:
        mounted = subprocess.run(["mount", "-t", "tmpfs", "-o", "size=1m", "tmpfs", place],
                                 capture_output=True, check=False)
        if mounted.returncode != 0:
            figures.not_tried("a disc that is full: no file system can be mounted here")
            pytest.skip("no file system can be mounted here")
        yield place
    finally:
        subprocess.run(["umount", "-l", place], capture_output=True, check=False)
        place.rmdir()


def fill(disc, pages_left=0):
    """Takes all room but for some pages, of which each file takes its own."""
    with open(disc / "ballast", "wb", buffering=0) as ballast:
        with contextlib.suppress(OSError):
            while ballast.write(b"x" * _PAGE):
                pass
        ballast.truncate(max(0, ballast.tell() - pages_left * _PAGE))


def free(disc):
    """Gives back what `fill` took."""
    (disc / "ballast").unlink()
