// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <uv.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "echo/service.h"

namespace {

Service gService;
std::array<char, 65536> gBuffer;

struct Write {
    uv_write_t request;
    char* data;
};

void written(uv_write_t* aRequest, int) {
    auto* lWrite = reinterpret_cast<Write*>(aRequest);
    std::free(lWrite->data);
    delete lWrite;
}

void writeLater(uv_stream_t* aStream, std::string_view aBytes) {
    auto* lWrite = new Write{{}, static_cast<char*>(std::malloc(aBytes.size()))};
    std::memcpy(lWrite->data, aBytes.data(), aBytes.size());
    const uv_buf_t lBuffer = uv_buf_init(lWrite->data, static_cast<unsigned>(aBytes.size()));
    uv_write(&lWrite->request, aStream, &lBuffer, 1, written);
}

void closed(uv_handle_t* aHandle) {
    delete reinterpret_cast<uv_tcp_t*>(aHandle);
}

void write(uv_stream_t* aStream, std::string_view aBytes) {
    const uv_buf_t lBuffer =
        uv_buf_init(const_cast<char*>(aBytes.data()), static_cast<unsigned>(aBytes.size()));
    const int lResult = uv_try_write(aStream, &lBuffer, 1);
    const auto lWritten = static_cast<std::size_t>(lResult < 0 ? 0 : lResult);
    if (lWritten < aBytes.size()) {
        writeLater(aStream, aBytes.substr(lWritten));
    }
}

/// Unbuffered, as standard error is.
void writeLine(uv_stream_t* aClient) {
    sockaddr_in lAddress{};
    int lSize = sizeof lAddress;
    std::array<char, INET_ADDRSTRLEN> lHost{};
    uv_tcp_getpeername(reinterpret_cast<uv_tcp_t*>(aClient), reinterpret_cast<sockaddr*>(&lAddress),
                       &lSize);
    uv_ip4_name(&lAddress, lHost.data(), lHost.size());
    std::fprintf(stderr, "Remote connection from: %s:%d\n", lHost.data(), ntohs(lAddress.sin_port));
}

void came(uv_stream_t* aStream, ssize_t aSize, const uv_buf_t* aBuffer) {
    if (aSize < 0) {
        if (gService.is("lines")) {
            std::fprintf(stderr, "Connection closed\n");
        }
        uv_close(reinterpret_cast<uv_handle_t*>(aStream), closed);
        return;
    }
    const std::string_view lAnswer =
        gService.answer({aBuffer->base, static_cast<std::size_t>(aSize)});
    if (!lAnswer.empty()) {
        write(aStream, lAnswer);
    }
}

void giveBuffer(uv_handle_t*, std::size_t, uv_buf_t* aBuffer) {
    *aBuffer =
        uv_buf_init(gBuffer.data(), static_cast<unsigned>(gService.readSize(gBuffer.size())));
}

void connected(uv_stream_t* aServer, int) {
    auto* lClient = new uv_tcp_t;
    uv_tcp_init(aServer->loop, lClient);
    uv_accept(aServer, reinterpret_cast<uv_stream_t*>(lClient));
    uv_os_fd_t lDescriptor = -1;
    if (uv_fileno(reinterpret_cast<uv_handle_t*>(lClient), &lDescriptor) == 0) {
        gService.prepare(lDescriptor);
    }
    if (gService.is("lines")) {
        writeLine(reinterpret_cast<uv_stream_t*>(lClient));
    }
    uv_read_start(reinterpret_cast<uv_stream_t*>(lClient), giveBuffer, came);
}

}  // namespace

int main(int, char** aArguments) {
    gService = Service(aArguments);
    uv_tcp_t lServer;
    sockaddr_in lAddress{};
    uv_tcp_init(uv_default_loop(), &lServer);
    uv_ip4_addr("0.0.0.0", gService.port(), &lAddress);
    uv_tcp_bind(&lServer, reinterpret_cast<const sockaddr*>(&lAddress), 0);
    uv_listen(reinterpret_cast<uv_stream_t*>(&lServer), 1024, connected);
    return uv_run(uv_default_loop(), UV_RUN_DEFAULT);
}
