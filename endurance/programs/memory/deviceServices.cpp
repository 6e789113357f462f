// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The descriptor table and its channels.
#include <fcntl.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "commif/commif.h"
#include "memory/Service.h"
#include "osx/osx.h"

namespace memory {

namespace {

unsigned int serialNumber() {
    return 1000U + ownPort(0);
}

class File : public Service {
public:
    const char* name() const override { return "file"; }
    bool start() override {
        std::snprintf(mPath, sizeof mPath, "%s", ownPath("file"));
        std::snprintf(mCopy, sizeof mCopy, "%s", ownPath("copy"));
        commIfDevParams_t lParams{};
        lParams.devType = eFILE;
        std::snprintf(lParams.file.fileName, sizeof lParams.file.fileName, "%s", mPath);
        lParams.file.openMode = 0x2 | 0x100 | 0x200;
        return commIfOpen(&mDescriptor, &lParams, nullptr) == 0 && write() && copy();
    }
    bool works() override { return write() && copy(); }
    void stop() override {
        commIfClose(mDescriptor);
        mDescriptor = -1;
    }

private:
    bool write() const {
        unsigned char lText[] = "text";
        unsigned long lWritten = 0;
        return commIfWrite(mDescriptor, lText, 4, &lWritten) == 0 && lWritten == 4 &&
               commIffprintf(mDescriptor, "%d\n", 1) == 1;
    }
    bool copy() const {
        return commIfFileCopy(mPath, mCopy) == 0 && commIfFileRename(mCopy, mPath) == 0 &&
               commIfFileCopy(mPath, mCopy) == 0 && commIfFileDelete(mCopy) == 0;
    }
    char mPath[256] = "";
    char mCopy[256] = "";
    int mDescriptor = -1;
};

class Directory : public Service {
public:
    const char* name() const override { return "directory"; }
    const char* line() const override { return "commIfDir"; }
    bool start() override { return list(); }
    bool works() override { return list(); }
    void stop() override {}

private:
    static bool list() {
        char lName[512] = "";
        void* lListing = nullptr;
        const int lResult = commIfDirOpen(const_cast<char*>("/proc/self"), lName, &lListing);
        int lNumber = 0;
        while (lResult == 0 && commIfDirEntryGet(lListing, lName) == 0) {
            ++lNumber;
        }
        if (lListing != nullptr) {
            commIfDirClose(lListing);
        }
        return lResult == 0 && lNumber > 10;
    }
};

class Messages : public Service {
public:
    const char* name() const override { return "message channel"; }
    bool start() override {
        commIfDevParams_t lParams{};
        lParams.devType = eMSG;
        lParams.msg.size = 100000;
        lParams.msg.maxMsgs = 10;
        lParams.msg.readTimeout = 1;
        if (commIfOpen(&mDescriptor, &lParams, "endured") != 0) {
            return false;
        }
        return pass();
    }
    bool works() override { return pass(); }
    void stop() override {
        commIfClose(mDescriptor);
        mDescriptor = -1;
    }

private:
    bool pass() const {
        static unsigned char lMessage[1000];
        unsigned long lCount = 0;
        errno = 0;
        commIfWrite(mDescriptor, lMessage, sizeof lMessage, &lCount);
        if (errno == ENOMEM) {
            return false;  // the message is lost, as this says
        }
        lCount = 0;
        return commIfRead(mDescriptor, lMessage, sizeof lMessage, &lCount) == 0 && lCount == 1000;
    }
    int mDescriptor = -1;
};

class Serial : public Service {
public:
    const char* name() const override { return "serial port"; }
    bool start() override {
        mFarEnd = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
        char lTerminal[64] = "";
        ::grantpt(mFarEnd);
        ::unlockpt(mFarEnd);
        ::ptsname_r(mFarEnd, lTerminal, sizeof lTerminal);
        ::unlink(serialPath());
        if (::symlink(lTerminal, serialPath()) != 0) {
            return false;
        }
        commIfDevParams_t lParams{};
        lParams.devType = eSERIAL;
        lParams.serial.portNr = serialNumber() + 1;
        lParams.serial.readTimeout = 10000;
        lParams.serial.baudRate = 115200;
        lParams.serial.dataBits = 8;
        // Success without memory is documented; the channel then refuses everything.
        return commIfOpen(&mDescriptor, &lParams, nullptr) == 0 && passes();
    }
    bool works() override { return passes(); }
    void stop() override {
        commIfClose(mDescriptor);
        mDescriptor = -1;
        ::close(mFarEnd);
        ::unlink(serialPath());
    }

private:
    bool passes() const {
        unsigned char lByte = 'x';
        unsigned long lCount = 0;
        return commIfWrite(mDescriptor, &lByte, 1, &lCount) == 0 && lCount == 1 &&
               awaitsInput(mFarEnd) && ::read(mFarEnd, &lByte, 1) == 1 &&
               ::write(mFarEnd, &lByte, 1) == 1 &&
               commIfRead(mDescriptor, &lByte, 1, &lCount) == 0 && lCount == 1;
    }
    int mDescriptor = -1;
    int mFarEnd = -1;
};

/// A network channel over a connection of its own, and the console.
class Net : public Service {
public:
    const char* name() const override { return "network channel"; }
    bool start() override {
        commIfDevParams_t lConsole{};
        lConsole.devType = eVGA;
        if (commIfOpen(&mConsole, &lConsole, nullptr) != 0) {
            return false;
        }
        char lText[] = ".";
        commIffputs(lText, mConsole);
        commfprintf(0, "%d", 1);
        char lAddress[32];
        std::snprintf(lAddress, sizeof lAddress, "127.0.0.1:%u", ownPort(3));
        void* lPort = nullptr;
        if (osxRegisterPort(lPort, ownPort(3), nullptr, nullptr, nullptr, nullptr, nullptr) != 0) {
            return false;
        }
        const unsigned long lOpened = osxOpenSocket(mSocket, lAddress);
        osxUnregisterPort(lPort);
        if (lOpened != 0) {
            mSocket = nullptr;
            return false;
        }
        commIfDevParams_t lParams{};
        lParams.devType = eNET;
        lParams.net.netKind = COMMIF_NET_TCP;
        lParams.net.socket = mSocket;
        lParams.net.textMode = 1;
        return commIfOpen(&mDescriptor, &lParams, nullptr) == 0;
    }
    bool works() override {
        unsigned long lCount = 0;
        unsigned char lText[] = "text\n";
        return commIfWrite(mDescriptor, lText, 5, &lCount) == 0 && lCount == 5;
    }
    void stop() override {
        commIfClose(mDescriptor);
        commIfClose(mConsole);
        mDescriptor = mConsole = -1;
        if (mSocket != nullptr) {
            osxCloseSocketAndRelease(mSocket);
        }
    }

private:
    int mConsole = -1;
    int mDescriptor = -1;
    void* mSocket = nullptr;
};

}  // namespace

const char* serialPath() {
    static char lPath[64];
    std::snprintf(lPath, sizeof lPath, "/dev/ttyS%u", serialNumber());
    return lPath;
}

Services deviceServices() {
    Services lServices;
    lServices.push_back(std::make_unique<File>());
    lServices.push_back(std::make_unique<Directory>());
    lServices.push_back(std::make_unique<Messages>());
    lServices.push_back(std::make_unique<Serial>());
    lServices.push_back(std::make_unique<Net>());
    return lServices;
}

}  // namespace memory
