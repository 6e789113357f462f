// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "commif/Fixtures.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "osx/osx.h"

namespace test {

TempDir::TempDir() {
    mName = (std::filesystem::temp_directory_path() / "osx-commif-XXXXXX").string();
    if (::mkdtemp(mName.data()) == nullptr) {
        std::perror("mkdtemp");
        std::abort();
    }
}

TempDir::~TempDir() {
    std::error_code lIgnored;
    std::filesystem::remove_all(mName, lIgnored);
}

std::string TempDir::file(const std::string& aEntry, const std::string& aContent) const {
    std::ofstream(path(aEntry), std::ios::binary) << aContent;
    return path(aEntry);
}

std::string contentOf(const std::string& aPath) {
    std::ifstream lFile(aPath, std::ios::binary);
    return {std::istreambuf_iterator<char>(lFile), std::istreambuf_iterator<char>()};
}

ConsoleCapture::ConsoleCapture() {
    std::fflush(stdout);
    mFormer = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    const Descriptor lFile(::open(mDir.path("out").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    ::dup2(lFile.get(), STDOUT_FILENO);
}

ConsoleCapture::~ConsoleCapture() {
    std::fflush(stdout);
    ::dup2(mFormer, STDOUT_FILENO);
    ::close(mFormer);
}

std::string ConsoleCapture::text() const {
    std::fflush(stdout);
    return written();
}

std::string ConsoleCapture::written() const {
    return contentOf(mDir.path("out"));
}

Redirection::Redirection(int aDescriptor, int aBy)
    : mDescriptor(aDescriptor), mFormer(::fcntl(aDescriptor, F_DUPFD_CLOEXEC, 3)) {
    ::dup2(aBy, mDescriptor);
}

Redirection::~Redirection() {
    ::dup2(mFormer, mDescriptor);
    ::close(mFormer);
}

commIfDevParams_t consoleParams() {
    commIfDevParams_t lParams;
    std::memset(&lParams, 0, sizeof lParams);
    lParams.devType = eVGA;
    return lParams;
}

commIfDevParams_t fileParams(const std::string& aName, unsigned int aOpenMode) {
    commIfDevParams_t lParams = consoleParams();
    lParams.devType = eFILE;
    std::memcpy(lParams.file.fileName, aName.data(),
                std::min(aName.size(), sizeof lParams.file.fileName));
    lParams.file.openMode = aOpenMode;
    return lParams;
}

commIfDevParams_t msgParams(unsigned int aSize, unsigned int aReadTimeout) {
    commIfDevParams_t lParams = consoleParams();
    lParams.devType = eMSG;
    lParams.msg = {aSize, 10, aReadTimeout};
    return lParams;
}

commIfDevParams_t netParams(void* aSocket, unsigned int aTextMode) {
    commIfDevParams_t lParams = consoleParams();
    lParams.devType = eNET;
    lParams.net = {COMMIF_NET_TCP, aSocket, 0, aTextMode};
    return lParams;
}

Channel::Channel(commIfDevParams_t aParams, const char* aQueueName)
    : mStatus(commIfOpen(&mDesc, &aParams, aQueueName)) {}

Channel::~Channel() {
    if (mDesc >= 0) {
        close();
    }
}

int Channel::close() {
    const int lStatus = commIfClose(mDesc);
    mDesc = -1;
    return lStatus;
}

Connection::Connection() {
    // The library gives a connection 100 ms, which a busy machine may exceed.
    for (int lTry = 0; lTry < 100 && mSocket == nullptr; ++lTry) {
        osxOpenSocket(mSocket, mListener.address().c_str());
    }
    mPeer = mListener.accept();
}

Connection::~Connection() {
    osxCloseSocketAndRelease(mSocket);
}

unsigned char* bytes(std::string& aText) {
    return reinterpret_cast<unsigned char*>(aText.data());
}

std::vector<int> descriptorsInUse() {
    std::vector<int> lDescriptors;
    DIR* lDir = ::opendir("/proc/self/fd");
    while (const dirent* lEntry = ::readdir(lDir)) {
        const int lDescriptor = std::atoi(lEntry->d_name);
        if (lEntry->d_name[0] != '.' && lDescriptor != ::dirfd(lDir)) {
            lDescriptors.push_back(lDescriptor);
        }
    }
    ::closedir(lDir);
    std::sort(lDescriptors.begin(), lDescriptors.end());
    return lDescriptors;
}

}  // namespace test
