#include <gio/gio.h>

#include <array>
#include <cstdlib>

namespace {

std::array<char, 65536> gBuffer;

gboolean echo(GSocket* aSocket, GIOCondition, void* aConnection) {
    const gssize lSize =
        g_socket_receive(aSocket, gBuffer.data(), gBuffer.size(), nullptr, nullptr);
    gssize lSent = 0;
    while (lSent < lSize) {
        const gssize lPart = g_socket_send(aSocket, gBuffer.data() + lSent,
                                           static_cast<gsize>(lSize - lSent), nullptr, nullptr);
        if (lPart <= 0) {
            break;
        }
        lSent += lPart;
    }
    if (lSize <= 0) {
        g_object_unref(aConnection);
        return G_SOURCE_REMOVE;
    }
    return G_SOURCE_CONTINUE;
}

gboolean connected(GSocketService*, GSocketConnection* aConnection, GObject*, void*) {
    GSource* lSource =
        g_socket_create_source(g_socket_connection_get_socket(aConnection), G_IO_IN, nullptr);
    g_source_set_callback(lSource, G_SOURCE_FUNC(echo), g_object_ref(aConnection), nullptr);
    g_source_attach(lSource, nullptr);
    g_source_unref(lSource);
    return TRUE;
}

}  // namespace

int main(int, char** aArguments) {
    GSocketService* lService = g_socket_service_new();
    g_socket_listener_set_backlog(G_SOCKET_LISTENER(lService), 1024);
    g_socket_listener_add_inet_port(G_SOCKET_LISTENER(lService),
                                    static_cast<guint16>(std::atoi(aArguments[1])), nullptr,
                                    nullptr);
    g_signal_connect(lService, "incoming", G_CALLBACK(connected), nullptr);
    g_socket_service_start(lService);
    g_main_loop_run(g_main_loop_new(nullptr, FALSE));
    return 0;
}
