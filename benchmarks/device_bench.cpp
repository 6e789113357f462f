// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Device I/O: a file is read, written and copied, a descriptor opened and closed, a serial port
// read. Reads and writes of every subject begin at the file's start, by a seek of its own. What
// differs: APR and libuv are used without their buffers and threads. The serial port is a pseudo
// terminal, which holds all that is read before the reading begins; the library asks the driver for
// its error counters at each read, the floor does not.
#include <Poco/File.h>
#include <apr_file_io.h>
#include <apr_general.h>
#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>
#include <uv.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "commif/commif.h"
#include "support/SerialPair.h"
#include "support/bench.h"

namespace {

constexpr char kFile[] = "/dev/shm/osx-bench-file";
constexpr char kCopy[] = "/dev/shm/osx-bench-copy";
constexpr std::size_t kCopySize = std::size_t{1024} * 1024;

void makeFile() {
    std::ofstream(kFile, std::ios::trunc | std::ios::binary) << std::string(kCopySize, 'x');
}

// --- the subjects: open, seek to the start, read, write, close, copy ---

class OsxFile {
public:
    OsxFile() {
        commIfDevParams_t lParams{};
        lParams.devType = eFILE;
        std::snprintf(lParams.file.fileName, sizeof lParams.file.fileName, "%s", kFile);
        lParams.file.openMode = 0x2;
        commIfOpen(&mDescriptor, &lParams, nullptr);
    }
    ~OsxFile() { commIfClose(mDescriptor); }
    OsxFile(const OsxFile&) = delete;
    OsxFile& operator=(const OsxFile&) = delete;
    void rewind() {
        std::array<std::int32_t, 2> lStart{0, 0};
        commIfIoctl(mDescriptor, 50, lStart.data());
    }
    void read(std::vector<char>& aBytes) {
        unsigned long lCount = 0;
        commIfRead(mDescriptor, bytes(aBytes), aBytes.size(), &lCount);
    }
    void write(std::vector<char>& aBytes) {
        unsigned long lCount = 0;
        commIfWrite(mDescriptor, bytes(aBytes), aBytes.size(), &lCount);
    }
    static void copy() { commIfFileCopy(kFile, kCopy); }

private:
    static unsigned char* bytes(std::vector<char>& aBytes) {
        return reinterpret_cast<unsigned char*>(aBytes.data());
    }
    int mDescriptor = -1;
};

class SystemFile {
public:
    SystemFile() : mDescriptor(::open(kFile, O_RDWR | O_CLOEXEC)) {}
    ~SystemFile() { ::close(mDescriptor); }
    SystemFile(const SystemFile&) = delete;
    SystemFile& operator=(const SystemFile&) = delete;
    void rewind() { ::lseek(mDescriptor, 0, SEEK_SET); }
    void read(std::vector<char>& aBytes) {
        benchmark::DoNotOptimize(::read(mDescriptor, aBytes.data(), aBytes.size()));
    }
    void write(std::vector<char>& aBytes) {
        benchmark::DoNotOptimize(::write(mDescriptor, aBytes.data(), aBytes.size()));
    }
    static void copy() {
        const int lFrom = ::open(kFile, O_RDONLY | O_CLOEXEC);
        const int lTo = ::open(kCopy, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        static std::array<char, 65536> lBuffer;
        ssize_t lSize = 0;
        while ((lSize = ::read(lFrom, lBuffer.data(), lBuffer.size())) > 0) {
            benchmark::DoNotOptimize(::write(lTo, lBuffer.data(), static_cast<std::size_t>(lSize)));
        }
        ::close(lFrom);
        ::close(lTo);
    }

private:
    int mDescriptor;
};

class AprFile {
public:
    AprFile() {
        static const bool lReady = apr_initialize() == APR_SUCCESS;
        benchmark::DoNotOptimize(lReady);
        apr_pool_create(&mPool, nullptr);
        apr_file_open(&mFile, kFile, APR_FOPEN_READ | APR_FOPEN_WRITE, APR_FPROT_OS_DEFAULT, mPool);
    }
    ~AprFile() { apr_pool_destroy(mPool); }
    AprFile(const AprFile&) = delete;
    AprFile& operator=(const AprFile&) = delete;
    void rewind() {
        apr_off_t lStart = 0;
        apr_file_seek(mFile, APR_SET, &lStart);
    }
    void read(std::vector<char>& aBytes) {
        apr_size_t lSize = aBytes.size();
        apr_file_read(mFile, aBytes.data(), &lSize);
    }
    void write(std::vector<char>& aBytes) {
        apr_size_t lSize = aBytes.size();
        apr_file_write(mFile, aBytes.data(), &lSize);
    }
    static void copy() {
        apr_pool_t* lPool = nullptr;
        apr_initialize();
        apr_pool_create(&lPool, nullptr);
        apr_file_copy(kFile, kCopy, APR_FPROT_FILE_SOURCE_PERMS, lPool);
        apr_pool_destroy(lPool);
    }

private:
    apr_pool_t* mPool = nullptr;
    apr_file_t* mFile = nullptr;
};

/// libuv's calls without a callback run at once on the calling thread.
class UvFile {
public:
    UvFile() { mFile = done(uv_fs_open(nullptr, &mRequest, kFile, UV_FS_O_RDWR, 0, nullptr)); }
    ~UvFile() { done(uv_fs_close(nullptr, &mRequest, mFile, nullptr)); }
    UvFile(const UvFile&) = delete;
    UvFile& operator=(const UvFile&) = delete;
    /// libuv has no seek; its calls take the position.
    void rewind() {}
    void read(std::vector<char>& aBytes) {
        const uv_buf_t lBuffer = uv_buf_init(aBytes.data(), static_cast<unsigned>(aBytes.size()));
        done(uv_fs_read(nullptr, &mRequest, mFile, &lBuffer, 1, 0, nullptr));
    }
    void write(std::vector<char>& aBytes) {
        const uv_buf_t lBuffer = uv_buf_init(aBytes.data(), static_cast<unsigned>(aBytes.size()));
        done(uv_fs_write(nullptr, &mRequest, mFile, &lBuffer, 1, 0, nullptr));
    }
    static void copy() {
        uv_fs_t lRequest;
        uv_fs_copyfile(nullptr, &lRequest, kFile, kCopy, 0, nullptr);
        uv_fs_req_cleanup(&lRequest);
    }

private:
    int done(int aResult) {
        uv_fs_req_cleanup(&mRequest);
        return aResult;
    }
    uv_fs_t mRequest{};
    uv_file mFile = -1;
};

// --- serial ports ---

constexpr unsigned int kNoLimit = 0xFFFFFFFF;

class OsxPort {
public:
    OsxPort(const bench::SerialPair& aPair, unsigned int aTimeoutMs) {
        commIfDevParams_t lParams{};
        lParams.devType = eSERIAL;
        lParams.serial.portNr = aPair.port();
        lParams.serial.readTimeout = aTimeoutMs;
        lParams.serial.baudRate = 115200;
        lParams.serial.dataBits = 8;
        commIfOpen(&mDescriptor, &lParams, nullptr);
    }
    ~OsxPort() { commIfClose(mDescriptor); }
    OsxPort(const OsxPort&) = delete;
    OsxPort& operator=(const OsxPort&) = delete;
    bool isOpen() const { return mDescriptor != -1; }
    std::size_t read(std::vector<char>& aBytes) {
        unsigned long lCount = 0;
        commIfRead(mDescriptor, reinterpret_cast<unsigned char*>(aBytes.data()), aBytes.size(),
                   &lCount);
        return lCount;
    }

private:
    int mDescriptor = -1;
};

class SystemPort {
public:
    SystemPort(const bench::SerialPair& aPair, unsigned int aTimeoutMs)
        : mDescriptor(::open(aPair.terminal().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC)),
          mTimeoutMs(static_cast<int>(aTimeoutMs)) {
        termios lSettings{};
        ::tcgetattr(mDescriptor, &lSettings);
        ::cfmakeraw(&lSettings);
        ::tcsetattr(mDescriptor, TCSANOW, &lSettings);
    }
    ~SystemPort() { ::close(mDescriptor); }
    SystemPort(const SystemPort&) = delete;
    SystemPort& operator=(const SystemPort&) = delete;
    bool isOpen() const { return mDescriptor != -1; }
    std::size_t read(std::vector<char>& aBytes) {
        std::size_t lCount = 0;
        while (lCount < aBytes.size()) {
            pollfd lPoll{mDescriptor, POLLIN, 0};
            if (mTimeoutMs >= 0 && ::poll(&lPoll, 1, mTimeoutMs) != 1) {
                break;
            }
            const ssize_t lSize =
                ::read(mDescriptor, aBytes.data() + lCount, aBytes.size() - lCount);
            if (lSize <= 0) {
                break;
            }
            lCount += static_cast<std::size_t>(lSize);
        }
        return lCount;
    }

private:
    int mDescriptor;
    int mTimeoutMs;
};

// --- the work ---

/// What a terminal holds at most.
constexpr std::size_t kSerialBytes = 4095;

double threadSeconds() {
    timespec lTime{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &lTime);
    return static_cast<double>(lTime.tv_sec) + static_cast<double>(lTime.tv_nsec) * 1e-9;
}

template <class Port>
void readPort(benchmark::State& aState, unsigned int aTimeoutMs) {
    const bench::SerialPair lPair;
    Port lPort(lPair, aTimeoutMs);
    if (lPair.port() == 0 || !lPort.isOpen()) {
        aState.SkipWithError("no link in /dev");
        return;
    }
    std::vector<char> lBytes(kSerialBytes, 's');
    for (auto lOnce : aState) {
        lPair.send(lBytes.data(), lBytes.size());
        const double lStart = threadSeconds();
        const std::size_t lCount = lPort.read(lBytes);
        aState.SetIterationTime(threadSeconds() - lStart);
        if (lCount != lBytes.size()) {
            aState.SkipWithError("a short read");
            return;
        }
    }
}

template <class File>
void read(benchmark::State& aState, std::size_t aSize) {
    makeFile();
    File lFile;
    std::vector<char> lBytes(aSize);
    for (auto lOnce : aState) {
        lFile.rewind();
        lFile.read(lBytes);
    }
}

template <class File>
void write(benchmark::State& aState, std::size_t aSize) {
    makeFile();
    File lFile;
    std::vector<char> lBytes(aSize, 'y');
    for (auto lOnce : aState) {
        lFile.rewind();
        lFile.write(lBytes);
    }
}

template <class File>
void openAndClose(benchmark::State& aState) {
    makeFile();
    for (auto lOnce : aState) {
        const File lFile;
    }
}

/// Each copy is a new file.
template <class Copy>
void copy(benchmark::State& aState, Copy aCopy) {
    makeFile();
    for (auto lOnce : aState) {
        aCopy();
        ::unlink(kCopy);
    }
}

template <class Port>
void enterPort(const char* aRole, const char* aSubject) {
    bench::add("serial read 4 KiB", aRole, aSubject, [](benchmark::State& aState) {
        readPort<Port>(aState, kNoLimit);
    }).measuringItself();
    bench::add("serial read 4 KiB, time-out", aRole, aSubject, [](benchmark::State& aState) {
        readPort<Port>(aState, 1000);
    }).measuringItself();
}

template <class File>
void enter(const char* aRole, const char* aSubject) {
    for (const std::size_t lSize : {64, 4096, 65536, 1048576}) {
        const std::string lBytes = std::to_string(lSize) + " bytes";
        bench::add("read " + lBytes, aRole, aSubject,
                   [=](benchmark::State& aState) { read<File>(aState, lSize); });
        bench::add("write " + lBytes, aRole, aSubject,
                   [=](benchmark::State& aState) { write<File>(aState, lSize); });
    }
    bench::add("open and close", aRole, aSubject, openAndClose<File>);
    bench::add("copy 1 MiB", aRole, aSubject,
               [](benchmark::State& aState) { copy(aState, File::copy); });
}

}  // namespace

void bench::enterSubjects() {
    enter<OsxFile>(kOsx, "osx");
    enter<SystemFile>(kFloor, "system calls");
    enter<AprFile>(kPeer, "APR");
    enter<UvFile>(kPeer, "libuv");
    if (::access("/dev", W_OK) == 0) {
        enterPort<OsxPort>(kOsx, "osx");
        enterPort<SystemPort>(kFloor, "system calls");
    }
    add("copy 1 MiB", kPeer, "POCO",
        [](benchmark::State& aState) { copy(aState, [] { Poco::File(kFile).copyTo(kCopy); }); });
}
