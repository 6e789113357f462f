// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <uv.h>

int main() {
    uv_async_t lKeepsLoopAlive;
    uv_async_init(uv_default_loop(), &lKeepsLoopAlive, nullptr);
    return uv_run(uv_default_loop(), UV_RUN_DEFAULT);
}
