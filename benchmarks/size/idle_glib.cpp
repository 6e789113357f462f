// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <gio/gio.h>

int main() {
    GSocketService* lService = g_socket_service_new();
    g_main_loop_run(g_main_loop_new(nullptr, FALSE));
    g_object_unref(lService);
    return 0;
}
