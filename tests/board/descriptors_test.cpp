// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// What the library opens on the device: closed with what it belongs to, and never inherited.
#include <dirent.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iterator>
#include <set>
#include <string>

#include "commif/commif.h"
#include "osx/OSX_Reactor.h"
#include "osx/osx.h"

using testing::IsEmpty;

namespace {

using Descriptors = std::set<int>;

Descriptors openDescriptors() {
    Descriptors lDescriptors;
    DIR* const lDirectory = ::opendir("/proc/self/fd");
    while (const dirent* lEntry = ::readdir(lDirectory)) {
        const int lNumber = std::atoi(lEntry->d_name);
        if (lEntry->d_name[0] != '.' && lNumber != ::dirfd(lDirectory)) {
            lDescriptors.insert(lNumber);
        }
    }
    ::closedir(lDirectory);
    return lDescriptors;
}

Descriptors without(const Descriptors& aAll, const Descriptors& aSome) {
    Descriptors lRest;
    std::set_difference(aAll.begin(), aAll.end(), aSome.begin(), aSome.end(),
                        std::inserter(lRest, lRest.end()));
    return lRest;
}

Descriptors inheritable(const Descriptors& aDescriptors) {
    Descriptors lFound;
    for (const int lDescriptor : aDescriptors) {
        if ((::fcntl(lDescriptor, F_GETFD) & FD_CLOEXEC) == 0) {
            lFound.insert(lDescriptor);
        }
    }
    return lFound;
}

/// Opens something, and gives what closes it again.
using Opener = std::function<std::function<void()>()>;

std::function<void()> openChannel(commIfDevParams_t& aParams) {
    int lDesc = -1;
    EXPECT_EQ(COMMIF_OK, commIfOpen(&lDesc, &aParams, nullptr));
    return [lDesc] { EXPECT_EQ(COMMIF_OK, commIfClose(lDesc)); };
}

std::function<void()> openUart() {
    commIfDevParams_t lParams{};
    lParams.devType = eSERIAL;
    lParams.serial.portNr = 2;
    lParams.serial.baudRate = 9600;
    lParams.serial.dataBits = 8;
    return openChannel(lParams);
}

std::function<void()> openFile() {
    commIfDevParams_t lParams{};
    lParams.devType = eFILE;
    std::strcpy(lParams.file.fileName, "/osx/results/descriptors.txt");
    lParams.file.openMode = 0x102;
    return openChannel(lParams);
}

std::function<void()> openDirectory() {
    std::array<char, 10> lPath{"/etc"};
    std::array<char, COMMIF_FILE_NAME_LEN> lFirst{};
    void* lHandle = nullptr;
    EXPECT_EQ(COMMIF_OK, commIfDirOpen(lPath.data(), lFirst.data(), &lHandle));
    return [lHandle] { commIfDirClose(lHandle); };
}

std::function<void()> openPort() {
    void* lPort = nullptr;
    EXPECT_EQ(0U, osxRegisterPort(lPort, 7002, nullptr, nullptr, nullptr, nullptr, nullptr));
    return [lPort]() mutable { osxUnregisterPort(lPort); };
}

std::function<void()> openConnection() {
    void* lSocket = nullptr;
    for (int lTry = 0; lTry < 50 && lSocket == nullptr; ++lTry) {
        osxOpenSocket(lSocket, std::getenv("OSX_BOARD_HOST"));
    }
    EXPECT_NE(nullptr, lSocket);
    return [lSocket]() mutable { osxCloseSocketAndRelease(lSocket); };
}

struct Case {
    const char* name;
    Opener open;
};

void PrintTo(const Case& aCase, std::ostream* aStream) {
    *aStream << aCase.name;
}

class DeviceDescriptors : public testing::TestWithParam<Case> {
protected:
    static void SetUpTestSuite() {
        ACE_Unmanaged_Singleton<OSX_Reactor, ACE_Thread_Mutex>::instance()->initReactor();
    }
};

}  // namespace

TEST_P(DeviceDescriptors, AreNotInheritedAndGoWithWhatTheyBelongTo) {
    const Descriptors lBefore = openDescriptors();
    for (int lRound = 0; lRound < 20; ++lRound) {
        const auto lClose = GetParam().open();
        const Descriptors lOpened = without(openDescriptors(), lBefore);
        ASSERT_FALSE(lOpened.empty());
        ASSERT_THAT(inheritable(lOpened), IsEmpty());
        lClose();
        ASSERT_EQ(lBefore, openDescriptors());
    }
}

INSTANTIATE_TEST_SUITE_P(Of, DeviceDescriptors,
                         testing::Values(Case{"Uart", openUart}, Case{"File", openFile},
                                         Case{"Directory", openDirectory}, Case{"Port", openPort},
                                         Case{"Connection", openConnection}),
                         [](const testing::TestParamInfo<Case>& aInfo) -> std::string {
                             return aInfo.param.name;
                         });

TEST(ReactorDescriptors, AreNotInherited) {
    ACE_Unmanaged_Singleton<OSX_Reactor, ACE_Thread_Mutex>::instance()->initReactor();
    EXPECT_THAT(inheritable(without(openDescriptors(), {0, 1, 2})), IsEmpty());
}
