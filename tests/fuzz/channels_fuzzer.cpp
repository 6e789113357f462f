// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <deque>
#include <map>
#include <string>

#include "commif/commif.h"
#include "fuzz/Bytes.h"
#include "fuzz/loop.h"

namespace {

/// A channel that is open, as far as its type lets it be foretold.
struct Open {
    unsigned int type;
    std::deque<std::string> messages;
};

/// The table of descriptors, and what is to be in it.
class Play {
public:
    explicit Play(Bytes aBytes) : mBytes(aBytes) {}

    void run() {
        while (!mBytes.empty()) {
            step(mBytes.upTo(5));
        }
        while (!mOpen.empty()) {
            close(mOpen.begin()->first);
        }
    }

private:
    static constexpr std::size_t kMostMessages = 20;

    void step(unsigned int aStep) {
        const int lDesc = descriptor();
        switch (aStep) {
            case 0:
            case 1:
                open();
                break;
            case 2:
                close(lDesc);
                break;
            case 3:
                control(lDesc, mBytes.value<unsigned char>());
                break;
            case 4:
                write(lDesc, mBytes.text());
                break;
            default:
                read(lDesc, mBytes.upTo(300));
        }
    }

    /// @return any number, most often one that may be open.
    int descriptor() {
        const auto lNumber = mBytes.value<unsigned char>();
        return lNumber < 250 ? COMMIF_FIRST_DESC + lNumber % 8 : lNumber * 1000 - 252000;
    }

    int lowestFree() const {
        int lDesc = COMMIF_FIRST_DESC;
        while (mOpen.count(lDesc) != 0) {
            ++lDesc;
        }
        return lDesc;
    }

    /// @return the status of a call on a descriptor that is not open.
    static int notOpen(int aDesc) {
        return aDesc < 0 || aDesc >= COMMIF_MAX_DESC ? COMMIF_ERR_BAD_DESCRIPTOR
                                                     : COMMIF_ERR_NOT_OPEN;
    }

    /// @return a type's parameters, and, by the argument, what the open is to return.
    commIfDevParams_t parameters(int& aStatus) {
        commIfDevParams_t lParams{};
        lParams.devType = mBytes.upTo(7);
        const bool lIsGood = mBytes.flag();
        aStatus = COMMIF_OK;
        switch (lParams.devType) {
            case eVGA:
                break;
            case eNET:
                lParams.net = {lIsGood ? COMMIF_NET_TCP : 1, nullptr, 0, mBytes.upTo(1)};
                aStatus = lIsGood ? COMMIF_OK : COMMIF_ERR_NOT_IMPLEMENTED;
                break;
            case eSERIAL:
                aStatus = COMMIF_ERR_NO_DEVICE;  // port 0: there is none
                break;
            case eFILE:
                std::snprintf(lParams.file.fileName, sizeof lParams.file.fileName, "%s",
                              lIsGood ? "/dev/null" : "/dev/null/none");
                lParams.file.openMode = 0x2;
                aStatus = lIsGood ? COMMIF_OK : COMMIF_ERR_FILE_OPEN;
                break;
            case eMSG:
                lParams.msg = {65536, mBytes.value<unsigned int>(), 1};
                break;
            default:
                aStatus = COMMIF_ERR_BAD_DEVTYPE;
        }
        return lParams;
    }

    void open() {
        int lExpected = 0;
        commIfDevParams_t lParams = parameters(lExpected);
        int lDesc = 0;
        const int lStatus = commIfOpen(&lDesc, &lParams, mBytes.flag() ? "fuzz" : nullptr);
        require(lStatus == lExpected);
        if (lStatus == COMMIF_OK) {
            require(lDesc == lowestFree() && commIfDesc[lDesc].used == 1);
            mOpen[lDesc] = {lParams.devType, {}};
        } else {
            require(lDesc == -1 && commIfDesc[lowestFree()].used == 0);
        }
        if (mOpen.size() > 8) {
            close(mOpen.rbegin()->first);
        }
    }

    void close(int aDesc) {
        const bool lIsOpen = mOpen.erase(aDesc) != 0;
        require(commIfClose(aDesc) == (lIsOpen ? COMMIF_OK : notOpen(aDesc)));
    }

    void control(int aDesc, unsigned char aCommand) {
        const auto lFound = mOpen.find(aDesc);
        constexpr unsigned char kFlush = 5;
        constexpr unsigned char kTimeout = 6;
        constexpr unsigned char kSeek = 50;
        unsigned int lData[2] = {3, 0};
        const auto* const lOne = reinterpret_cast<const unsigned char*>(1);
        void* const lArgument =
            aCommand == kTimeout ? const_cast<unsigned char*>(lOne) : static_cast<void*>(lData);
        const int lStatus = commIfIoctl(aDesc, aCommand, lArgument);
        if (lFound == mOpen.end()) {
            require(lStatus == notOpen(aDesc));
        } else if (lFound->second.type == eMSG) {
            const bool lIsKnown = aCommand == kFlush || aCommand == kTimeout;
            require(lStatus == (lIsKnown ? COMMIF_OK : COMMIF_ERR_BAD_IOCTL));
            if (aCommand == kFlush) {
                lFound->second.messages.clear();
            }
        } else if (lFound->second.type == eFILE) {
            require(aCommand != kSeek || lStatus == COMMIF_ERR_BAD_ARGUMENT);
            require((aCommand >= kSeek && aCommand <= 52) || lStatus == COMMIF_ERR_BAD_IOCTL);
        } else {
            require(lStatus == COMMIF_ERR_NOT_IMPLEMENTED);
        }
    }

    void write(int aDesc, std::string aText) {
        const auto lFound = mOpen.find(aDesc);
        if (lFound != mOpen.end() && lFound->second.messages.size() == kMostMessages) {
            return;
        }
        unsigned long lWritten = 0;
        const int lStatus = commIfWrite(aDesc, reinterpret_cast<unsigned char*>(aText.data()),
                                        aText.size(), &lWritten);
        if (lFound == mOpen.end()) {
            require(lStatus == notOpen(aDesc) && lWritten == 0);
        } else if (lFound->second.type == eMSG) {
            require(lStatus == COMMIF_OK && lWritten == aText.size());
            lFound->second.messages.push_back(aText);
        } else if (lFound->second.type != eNET) {  // which has no socket here
            require(lStatus == COMMIF_OK && lWritten == aText.size());
        }
    }

    void read(int aDesc, std::size_t aSize) {
        const auto lFound = mOpen.find(aDesc);
        std::string lCame(aSize, ' ');
        unsigned long lCount = 0;
        const int lStatus =
            commIfRead(aDesc, reinterpret_cast<unsigned char*>(lCame.data()), aSize, &lCount);
        if (lFound == mOpen.end()) {
            require(lStatus == notOpen(aDesc));
        } else if (lFound->second.type == eVGA) {
            require(lStatus == COMMIF_ERR_NOT_IMPLEMENTED);
        } else if (lFound->second.type == eFILE) {
            require(lCount == 0 && lStatus == (aSize == 0 ? COMMIF_OK : COMMIF_ERR_SHORT_READ));
        } else if (lFound->second.type == eMSG) {
            requireNext(lFound->second.messages, lStatus, lCame.substr(0, lCount));
        }
    }

    /// The oldest message, cut to the room for it; or none within a millisecond.
    static void requireNext(std::deque<std::string>& aMessages, int aStatus,
                            const std::string& aCame) {
        if (aMessages.empty()) {
            require(aStatus == COMMIF_ERR_TIMEOUT);
            return;
        }
        require(aStatus == COMMIF_OK && aMessages.front().compare(0, aCame.size(), aCame) == 0);
        aMessages.pop_front();
    }

    Bytes mBytes;
    std::map<int, Open> mOpen;
};

/// What is written to the console goes nowhere.
bool silenceConsole() {
    quietReactor();
    return ::dup2(::open("/dev/null", O_WRONLY | O_CLOEXEC), STDOUT_FILENO) == STDOUT_FILENO;
}

}  // namespace

// Channels of all types, opened with good and bad parameters, used by any number and closed in any
// order: the table has what it is to have, and each call its status.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* aData, std::size_t aSize) {
    static const bool gIsSilent = silenceConsole();
    require(gIsSilent);
    Play(Bytes(aData, aSize)).run();
    return 0;
}
