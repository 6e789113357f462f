# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

"""Waiting for what must come."""

import time


def wait_until(condition, limit, pause=0.02):
    """Asks until the condition holds. @return its true answer, or its last one after the limit."""
    end = time.monotonic() + limit
    while True:
        answer = condition()
        if answer or time.monotonic() > end:
            return answer
        time.sleep(pause)
