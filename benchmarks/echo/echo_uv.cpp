#include <uv.h>

#include <array>
#include <cstdlib>
#include <cstring>

namespace {

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

void writeLater(uv_stream_t* aStream, const char* aData, std::size_t aSize) {
    auto* lWrite = new Write{{}, static_cast<char*>(std::malloc(aSize))};
    std::memcpy(lWrite->data, aData, aSize);
    const uv_buf_t lBuffer = uv_buf_init(lWrite->data, static_cast<unsigned>(aSize));
    uv_write(&lWrite->request, aStream, &lBuffer, 1, written);
}

void closed(uv_handle_t* aHandle) {
    delete reinterpret_cast<uv_tcp_t*>(aHandle);
}

void echo(uv_stream_t* aStream, ssize_t aSize, const uv_buf_t* aBuffer) {
    if (aSize < 0) {
        uv_close(reinterpret_cast<uv_handle_t*>(aStream), closed);
        return;
    }
    const uv_buf_t lBuffer = uv_buf_init(aBuffer->base, static_cast<unsigned>(aSize));
    const int lResult = uv_try_write(aStream, &lBuffer, 1);
    const ssize_t lWritten = lResult < 0 ? 0 : lResult;
    if (lWritten < aSize) {
        writeLater(aStream, aBuffer->base + lWritten, static_cast<std::size_t>(aSize - lWritten));
    }
}

void giveBuffer(uv_handle_t*, std::size_t, uv_buf_t* aBuffer) {
    *aBuffer = uv_buf_init(gBuffer.data(), gBuffer.size());
}

void connected(uv_stream_t* aServer, int) {
    auto* lClient = new uv_tcp_t;
    uv_tcp_init(aServer->loop, lClient);
    uv_accept(aServer, reinterpret_cast<uv_stream_t*>(lClient));
    uv_read_start(reinterpret_cast<uv_stream_t*>(lClient), giveBuffer, echo);
}

}  // namespace

int main(int, char** aArguments) {
    uv_tcp_t lServer;
    sockaddr_in lAddress{};
    uv_tcp_init(uv_default_loop(), &lServer);
    uv_ip4_addr("0.0.0.0", std::atoi(aArguments[1]), &lAddress);
    uv_tcp_bind(&lServer, reinterpret_cast<const sockaddr*>(&lAddress), 0);
    uv_listen(reinterpret_cast<uv_stream_t*>(&lServer), 1024, connected);
    return uv_run(uv_default_loop(), UV_RUN_DEFAULT);
}
