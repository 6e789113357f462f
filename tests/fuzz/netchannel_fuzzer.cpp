// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <cstdint>
#include <string>

#include "commif/commif.h"
#include "fuzz/Bytes.h"
#include "fuzz/loop.h"
#include "osx/osx.h"
#include "support/TcpPeer.h"

namespace {

/// The library's end of a connection, and the other one.
struct Connection {
    Connection() {
        quietReactor();
        test::TcpListener lListener;
        for (int lTry = 0; lTry < 100 && socket == nullptr; ++lTry) {
            osxOpenSocket(socket, lListener.address().c_str());
        }
        peer = lListener.accept();
        require(socket != nullptr && peer.connected());
    }

    void* socket = nullptr;
    test::TcpPeer peer;
};

unsigned char* bytes(std::string& aText) {
    return reinterpret_cast<unsigned char*>(aText.data());
}

std::string withCarriageReturns(const std::string& aText) {
    std::string lText;
    for (const char lCharacter : aText) {
        lText += lCharacter == '\n' ? "\r\n" : std::string(1, lCharacter);
    }
    return lText;
}

void write(int aDesc, bool aAsText, std::string aText, Connection& aConnection) {
    unsigned long lWritten = 0;
    require(commIfWrite(aDesc, bytes(aText), aText.size(), &lWritten) == COMMIF_OK);
    require(lWritten == aText.size());
    const std::string lExpected = aAsText ? withCarriageReturns(aText) : aText;
    require(aConnection.peer.receive(lExpected.size()) == lExpected);
}

void read(int aDesc, const std::string& aText, Connection& aConnection) {
    std::string lRead(aText.size(), ' ');
    unsigned long lCame = 0;
    require(aConnection.peer.send(aText));
    require(commIfRead(aDesc, bytes(lRead), lRead.size(), &lCame) == COMMIF_OK);
    require(lCame == aText.size() && lRead == aText);
}

/// @param aRoom how many bytes the line may have.
/// @param aText what is sent: as much of it as the call takes.
void readLine(int aDesc, std::size_t aRoom, const std::string& aText, Connection& aConnection) {
    std::string lWhole = aText.substr(0, aText.find('\n'));
    lWhole = lWhole.size() < aRoom ? lWhole + "\n" : lWhole.substr(0, aRoom);
    std::string lLine(aRoom + 1, ' ');
    lLine.back() = '\0';
    require(aConnection.peer.send(lWhole));
    require(commifNetfgets(lLine.data(), aDesc) == 1);
    const bool lHasEnd = lWhole.back() == '\n';
    const std::string lEcho = lWhole + (lHasEnd ? "\r" : "");
    require(aConnection.peer.receive(lEcho.size()) == lEcho);
    const std::size_t lLength = lWhole.size() - (lHasEnd ? 1 : 0);
    require(lLine.compare(0, lLength, lWhole, 0, lLength) == 0 && lLine[lLength] == '\0');
}

}  // namespace

// A network channel with any parameters; texts, blocks and edited lines that pass through it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* aData, std::size_t aSize) {
    static Connection gConnection;
    Bytes lBytes(aData, aSize);
    commIfDevParams_t lParams{};
    lParams.devType = eNET;
    lParams.net = {lBytes.upTo(3), gConnection.socket, lBytes.value<unsigned int>(),
                   lBytes.upTo(2)};
    int lDesc = 0;
    const bool lIsKnown = lParams.net.netKind == COMMIF_NET_TCP;
    require(commIfOpen(&lDesc, &lParams, nullptr) ==
            (lIsKnown ? COMMIF_OK : COMMIF_ERR_NOT_IMPLEMENTED));
    require(lDesc == (lIsKnown ? COMMIF_FIRST_DESC : -1));
    while (lIsKnown && !lBytes.empty()) {
        switch (lBytes.upTo(3)) {
            case 0:
                write(lDesc, lParams.net.textMode == 1, lBytes.text(), gConnection);
                break;
            case 1:
                read(lDesc, lBytes.text(), gConnection);
                break;
            case 2:
                readLine(lDesc, 1 + lBytes.upTo(80), lBytes.text(), gConnection);
                break;
            default:
                require(commIfIoctl(lDesc, lBytes.value<unsigned int>(), nullptr) ==
                        COMMIF_ERR_NOT_IMPLEMENTED);
        }
    }
    require(commIfClose(lDesc) == (lIsKnown ? COMMIF_OK : COMMIF_ERR_BAD_DESCRIPTOR));
    return 0;
}
