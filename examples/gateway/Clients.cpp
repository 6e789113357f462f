// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "Clients.h"

namespace gateway {

namespace {
unsigned char* bytesOf(std::string& aText) {
    return reinterpret_cast<unsigned char*>(aText.data());
}
}  // namespace

Clients::Clients(unsigned short aTextPort, unsigned short aFramePort)
    : mHasFrames(aFramePort != 0) {
    mText.init(aTextPort);
    if (mHasFrames) {
        mFrames.init(aFramePort);
    }
}

Clients::~Clients() {
    mText.deinit();
    if (mHasFrames) {
        mFrames.deinit();
    }
}

void Clients::send(const std::string& aLine) {
    std::string lText = aLine + "\r\n";
    mText.send(lText.size(), bytesOf(lText));
    if (mHasFrames) {
        std::string lBlock = aLine;
        mFrames.sendBlock(lBlock.size(), bytesOf(lBlock));
    }
}

int Clients::count() const {
    return mText.getNrOfConnections() + mFrames.getNrOfConnections();
}

}  // namespace gateway
