// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <gio/gio.h>

#include <array>
#include <string_view>

#include "echo/service.h"

namespace {

Service gService;
std::array<char, 65536> gBuffer;

void send(GSocket* aSocket, std::string_view aBytes) {
    while (!aBytes.empty()) {
        const gssize lPart = g_socket_send(aSocket, aBytes.data(), aBytes.size(), nullptr, nullptr);
        if (lPart <= 0) {
            return;
        }
        aBytes.remove_prefix(static_cast<std::size_t>(lPart));
    }
}

gboolean readable(GSocket* aSocket, GIOCondition, void* aConnection) {
    const gssize lSize = g_socket_receive(aSocket, gBuffer.data(),
                                          gService.readSize(gBuffer.size()), nullptr, nullptr);
    if (lSize <= 0) {
        g_object_unref(aConnection);
        return G_SOURCE_REMOVE;
    }
    send(aSocket, gService.answer({gBuffer.data(), static_cast<std::size_t>(lSize)}));
    return G_SOURCE_CONTINUE;
}

gboolean connected(GSocketService*, GSocketConnection* aConnection, GObject*, void*) {
    GSocket* lSocket = g_socket_connection_get_socket(aConnection);
    gService.prepare(g_socket_get_fd(lSocket));
    GSource* lSource = g_socket_create_source(lSocket, G_IO_IN, nullptr);
    g_source_set_callback(lSource, G_SOURCE_FUNC(readable), g_object_ref(aConnection), nullptr);
    g_source_attach(lSource, nullptr);
    g_source_unref(lSource);
    return TRUE;
}

}  // namespace

int main(int, char** aArguments) {
    gService = Service(aArguments);
    GSocketService* lService = g_socket_service_new();
    g_socket_listener_set_backlog(G_SOCKET_LISTENER(lService), 1024);
    g_socket_listener_add_inet_port(G_SOCKET_LISTENER(lService), gService.port(), nullptr, nullptr);
    g_signal_connect(lService, "incoming", G_CALLBACK(connected), nullptr);
    g_socket_service_start(lService);
    g_main_loop_run(g_main_loop_new(nullptr, FALSE));
    return 0;
}
