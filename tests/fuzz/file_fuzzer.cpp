// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "commif/commif.h"
#include "fuzz/Bytes.h"
#include "fuzz/TwoFolders.h"
#include "fuzz/loop.h"

namespace {

const TwoFolders& folders() {
    static const TwoFolders lFolders;
    return lFolders;
}

/// @return the flags that an open mode stands for.
int flagsOf(unsigned int aMode) {
    constexpr std::array<std::pair<unsigned int, int>, 6> kFlags{{{0x1, O_WRONLY},
                                                                  {0x2, O_RDWR},
                                                                  {0x8, O_APPEND},
                                                                  {0x100, O_CREAT},
                                                                  {0x200, O_TRUNC},
                                                                  {0x400, O_EXCL}}};
    int lFlags = O_CLOEXEC;
    for (const auto& [lBit, lFlag] : kFlags) {
        lFlags |= (aMode & lBit) != 0 ? lFlag : 0;
    }
    return lFlags;
}

/// A file, open through the library and, in the other folder, without it.
struct Pair {
    int ours;
    int plain;
};

/// What an input does, in both folders alike.
class Play {
public:
    explicit Play(Bytes aBytes) : mBytes(aBytes) {}

    void run() {
        while (!mBytes.empty()) {
            step(mBytes.upTo(9));
        }
        while (!mOpen.empty()) {
            closeOne();
        }
        folders().requireAlike();
        requireListed();
        folders().empty();
    }

private:
    static constexpr std::size_t kMostOpen = 4;

    void step(unsigned int aStep) {
        if (aStep < 2) {
            open();
        } else if (aStep == 2) {
            rename();
        } else if (aStep == 3) {
            remove();
        } else if (aStep == 4) {
            copy();
        } else if (!mOpen.empty()) {
            use(aStep, mOpen[mBytes.upTo(255) % mOpen.size()]);
        }
    }

    void use(unsigned int aStep, const Pair& aPair) {
        switch (aStep) {
            case 5:
                read(aPair, mBytes.upTo(3000));
                break;
            case 6:
                write(aPair, mBytes.text());
                break;
            case 7:
                seek(aPair, mBytes.upTo(4), mBytes.value<std::int16_t>());
                break;
            case 8:
                control(aPair, mBytes.value<unsigned char>());
                break;
            default:
                closeOne();
        }
    }

    /// @return a name within the folder, often one of a few.
    std::string name() {
        const unsigned int lKind = mBytes.upTo(5);
        if (lKind < 4) {
            return std::string(1, static_cast<char>('a' + lKind));
        }
        std::string lName = mBytes.text();
        lName.resize(std::min(lName.size(), std::strlen(lName.c_str())));
        std::replace(lName.begin(), lName.end(), '/', '_');
        if (!lName.empty() && lName.front() == '.') {
            lName.front() = '_';
        }
        return lKind == 5 ? lName + std::string(256, 'n') : lName;
    }

    void open() {
        if (mOpen.size() == kMostOpen) {
            closeOne();
        }
        const std::string lName = name().substr(0, COMMIF_FILE_NAME_LEN);
        commIfDevParams_t lParams{};
        lParams.devType = eFILE;
        lParams.file.openMode = mBytes.value<std::uint16_t>();
        std::memcpy(lParams.file.fileName, lName.data(), lName.size());
        Pair lPair{-1, ::openat(folders().plainDescriptor(), lName.c_str(),
                                flagsOf(lParams.file.openMode), 0644)};
        const int lStatus = commIfOpen(&lPair.ours, &lParams, nullptr);
        require(lStatus == (lPair.plain >= 0 ? COMMIF_OK : COMMIF_ERR_FILE_OPEN));
        require((lPair.ours >= COMMIF_FIRST_DESC) == (lPair.plain >= 0));
        if (lPair.plain >= 0) {
            mOpen.push_back(lPair);
        }
    }

    static void read(const Pair& aPair, std::size_t aSize) {
        std::vector<unsigned char> lOurs(aSize);
        std::vector<unsigned char> lPlain(aSize);
        unsigned long lCame = 0;
        const int lStatus = commIfRead(aPair.ours, lOurs.data(), aSize, &lCame);
        const ssize_t lExpected = ::read(aPair.plain, lPlain.data(), aSize);
        require(static_cast<ssize_t>(lCame) == lExpected && lOurs == lPlain);
        require(lStatus ==
                (lExpected == static_cast<ssize_t>(aSize) ? COMMIF_OK : COMMIF_ERR_SHORT_READ));
    }

    static void write(const Pair& aPair, std::string aData) {
        auto* const lBytes = reinterpret_cast<unsigned char*>(aData.data());
        unsigned long lWritten = 0;
        const int lStatus = commIfWrite(aPair.ours, lBytes, aData.size(), &lWritten);
        const ssize_t lExpected = ::write(aPair.plain, aData.data(), aData.size());
        require(static_cast<ssize_t>(lWritten) == lExpected);
        require(lStatus ==
                (lExpected == static_cast<ssize_t>(aData.size()) ? COMMIF_OK : COMMIF_ERR_FILE_IO));
    }

    static void seek(const Pair& aPair, unsigned int aOrigin, int aOffset) {
        struct {
            unsigned int origin;
            int offset;
        } lSeek{aOrigin, aOffset};
        const int lStatus = commIfIoctl(aPair.ours, 50, &lSeek);
        if (aOrigin > 2) {
            require(lStatus == COMMIF_ERR_BAD_ARGUMENT);
            return;
        }
        constexpr std::array<int, 3> kOrigins{SEEK_SET, SEEK_CUR, SEEK_END};
        const bool lMoved = ::lseek(aPair.plain, aOffset, kOrigins[aOrigin]) >= 0;
        require(lStatus == (lMoved ? COMMIF_OK : COMMIF_ERR_FILE_IO));
    }

    static void control(const Pair& aPair, unsigned char aCommand) {
        constexpr unsigned char kSeek = 50;
        constexpr unsigned char kSync = 51;
        constexpr unsigned char kSize = 52;
        unsigned long lSize = 0;
        const int lStatus = commIfIoctl(aPair.ours, aCommand, aCommand == kSize ? &lSize : nullptr);
        if (aCommand == kSize) {
            struct stat lExpected{};
            require(lStatus == COMMIF_OK && ::fstat(aPair.plain, &lExpected) == 0);
            require(lSize == static_cast<unsigned long>(lExpected.st_size));
        } else if (aCommand == kSync) {
            require(lStatus == COMMIF_OK);
        } else {
            require(lStatus ==
                    (aCommand == kSeek ? COMMIF_ERR_BAD_ARGUMENT : COMMIF_ERR_BAD_IOCTL));
        }
    }

    void closeOne() {
        require(commIfClose(mOpen.back().ours) == COMMIF_OK);
        require(commIfClose(mOpen.back().ours) == COMMIF_ERR_NOT_OPEN);
        ::close(mOpen.back().plain);
        mOpen.pop_back();
    }

    void rename() {
        const std::string lFrom = name();
        const std::string lTo = name();
        const int lPlain = folders().plainDescriptor();
        const bool lRenamed = ::renameat(lPlain, lFrom.c_str(), lPlain, lTo.c_str()) == 0;
        require(commIfFileRename(lFrom.c_str(), lTo.c_str()) ==
                (lRenamed ? COMMIF_OK : COMMIF_ERR_FILE_IO));
    }

    void remove() {
        const std::string lName = name();
        const bool lRemoved = ::unlinkat(folders().plainDescriptor(), lName.c_str(), 0) == 0;
        require(commIfFileDelete(lName.c_str()) == (lRemoved ? COMMIF_OK : COMMIF_ERR_FILE_OPEN));
    }

    /// The plain copy: over what is there, whose tail stays.
    void copy() {
        const std::string lFrom = name();
        const std::string lTo = name();
        const int lPlain = folders().plainDescriptor();
        const int lSource = ::openat(lPlain, lFrom.c_str(), O_RDONLY | O_CLOEXEC);
        const int lTarget =
            lSource < 0 ? -1 : ::openat(lPlain, lTo.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
        require(commIfFileCopy(lFrom.c_str(), lTo.c_str()) ==
                (lTarget < 0 ? COMMIF_ERR_FILE_OPEN : COMMIF_OK));
        if (lTarget >= 0) {
            struct stat lSize{};
            ::fstat(lSource, &lSize);
            std::vector<char> lData(static_cast<std::size_t>(lSize.st_size));
            require(::read(lSource, lData.data(), lData.size()) == lSize.st_size);
            require(::write(lTarget, lData.data(), lData.size()) == lSize.st_size);
        }
        ::close(lSource);
        ::close(lTarget);
    }

    /// The listing has each entry once.
    static void requireListed() {
        std::multiset<std::string> lListed;
        std::array<char, 300> lName{};
        void* lHandle = nullptr;
        std::array<char, 2> lFolder{'.', '\0'};
        int lStatus = commIfDirOpen(lFolder.data(), lName.data(), &lHandle);
        for (; lStatus == COMMIF_OK; lStatus = commIfDirEntryGet(lHandle, lName.data())) {
            lListed.insert(lName.data());
        }
        require(lStatus == COMMIF_ERR_NO_MORE_ENTRIES);
        commIfDirClose(lHandle);
        std::multiset<std::string> lExpected{".", ".."};
        for (const auto& lEntry : std::filesystem::directory_iterator(folders().plain())) {
            lExpected.insert(lEntry.path().filename().string());
        }
        require(lListed == lExpected);
    }

    Bytes mBytes;
    std::vector<Pair> mOpen;
};

}  // namespace

// Files are opened with any name and mode, used and closed, renamed, copied and deleted: each call
// gives what the system's own gives, and the folders have the same files in the end.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* aData, std::size_t aSize) {
    quietReactor();
    folders();
    Play(Bytes(aData, aSize)).run();
    return 0;
}
