// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The figures, in ACE's map under ACE's lock. What the kernel's files mean is in procFiles; here
// they are read and kept. No line is written under the lock, because a log back end may ask for a
// figure.
#include "sysinfo/DynamicSysInfo.h"

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ace/Guard_T.h"
#include "base/Descriptor.h"
#include "base/diagnosticLine.h"
#include "sysinfo/procFiles.h"

namespace {

constexpr char kModule[] = "DynamicSysInfo.cpp";
constexpr std::size_t kBuckets = 29;

constexpr std::size_t kPiece = 4096;            // most files have less
constexpr std::size_t kMostOfAFile = 0x100000;  // all files have less

#ifdef OSX_PROC_LAYOUT_CURRENT
constexpr osx::ProcLayout kLayout = osx::ProcLayout::kCurrent;
#else
constexpr osx::ProcLayout kLayout = osx::ProcLayout::kTarget;
#endif

/// The same as `read`, which a signal does not end.
ssize_t readPiece(int aFile, char* aPiece) {
    ssize_t lCount = 0;
    do {
        lCount = ::read(aFile, aPiece, kPiece);
    } while (lCount == -1 && errno == EINTR);
    return lCount;
}

/// @return what is in a file; nothing if it cannot be opened. By the system's calls: a standard
///         stream leaves its descriptor to programs that are run meanwhile, and compilers hold that
///         no thread is cancelled in `fopen`.
std::string textOf(const char* aPath) {
    std::string lText;
    const osx::Descriptor lFile(::open(aPath, O_RDONLY | O_CLOEXEC));
    char lPiece[kPiece];
    ssize_t lCount = lFile ? readPiece(lFile.get(), lPiece) : 0;
    while (lCount > 0 && lText.size() < kMostOfAFile) {
        lText.append(lPiece, static_cast<std::size_t>(lCount));
        lCount = readPiece(lFile.get(), lPiece);
    }
    return lText;
}

/// Hands a file's text to a reader. Without memory, what was not read keeps its former value.
template <class Reader>
void readFile(const char* aPath, const Reader& aReader) {
    try {
        aReader(textOf(aPath));
    } catch (const std::bad_alloc&) {
    }
}

/// @return a key that borrows the text, so that looking it up takes no memory.
ACE_CString borrowedKey(std::string_view aName) {
    return ACE_CString(aName.data(), aName.size(), nullptr, false);
}

double toDouble(const FlexVar& aValue) {
    double lNumber = 0;
    return aValue.getDouble(lNumber) == 0 ? lNumber : -1.0;
}

long toLong(const FlexVar& aValue) {
    long lNumber = 0;
    return aValue.getLong(lNumber) == 0 ? lNumber : -1;
}

void showFigure(const ACE_CString& aKey, const FlexVar& aValue) {
    osx::DiagnosticLine(kModule).failure(LM_ERROR, "Key:%s,", aKey.c_str());
    if (aValue.getType() == FlexVar::FlexVar_Long) {
        osx::DiagnosticLine(kModule).failure(LM_ERROR, "Value:%d\n", aValue.getLong());
    } else if (aValue.getType() == FlexVar::FlexVar_Double) {
        osx::DiagnosticLine(kModule).failure(LM_ERROR, "Value:%f\n", aValue.getDouble());
    }
}

}  // namespace

DynamicSysInfo::DynamicSysInfo() : mMap(kBuckets) {}

DynamicSysInfo::~DynamicSysInfo() {
    mMap.close();
}

void DynamicSysInfo::refresh() {
    readMemInfo();
    readLoadAvg();
    readPartitions();
}

void DynamicSysInfo::readMemInfo() {
    readFile("/proc/meminfo", [this](std::string_view aText) {
        osx::readMemInfo(aText, kLayout, [this](std::string_view aName, std::int32_t aValue) {
            store(aName, FlexVar(static_cast<long>(aValue)));
        });
    });
}

void DynamicSysInfo::readLoadAvg() {
    readFile("/proc/loadavg", [this](std::string_view aText) {
        const osx::LoadAverage lLoad = osx::readLoadAvg(aText);
        store(kKeyAvgCPU1, FlexVar(lLoad.oneMinute));
        store(kKeyAvgCPU5, FlexVar(lLoad.fiveMinutes));
        store(kKeyAvgCPU15, FlexVar(lLoad.fifteenMinutes));
        store(kKeyNrRunning, FlexVar(static_cast<long>(lLoad.running)));
        store(kKeyNrProcesses, FlexVar(static_cast<long>(lLoad.processes)));
        store(kKeyHighestPid, FlexVar(static_cast<long>(lLoad.highestPid)));
    });
}

void DynamicSysInfo::readPartitions() {
    readFile("/proc/partitions", [this](std::string_view aText) {
        osx::readPartitions(aText, kLayout, [this](std::string_view aName, std::int32_t aValue) {
            store(aName, FlexVar(static_cast<long>(aValue)));
        });
    });
}

double DynamicSysInfo::getAvgCPU1() const {
    return toDouble(find(kKeyAvgCPU1));
}

double DynamicSysInfo::getAvgCPU5() const {
    return toDouble(find(kKeyAvgCPU5));
}

double DynamicSysInfo::getAvgCPU15() const {
    return toDouble(find(kKeyAvgCPU15));
}

long DynamicSysInfo::getTotalMem() const {
    return toLong(find(kKeyMemTotal));
}

long DynamicSysInfo::getTotalMemFree() const {
    return toLong(find(kKeyMemFree));
}

long DynamicSysInfo::getDiscSize() const {
    const FlexVar lIdeDisc = find(kKeyIdeDisc);
    return toLong(lIdeDisc.getType() != FlexVar::FlexVar_NoType ? lIdeDisc : find(kKeySda));
}

void DynamicSysInfo::dump() const {
    std::vector<std::pair<ACE_CString, FlexVar>> lFigures;
    try {
        const ACE_Guard<ACE_Thread_Mutex> lGuard(mMap.mutex());
        lFigures.reserve(mMap.current_size());
        // ACE's iterators fault on a map that got no memory for its buckets.
        for (auto lEntry = mMap.begin(); mMap.total_size() > 0 && lEntry != mMap.end(); ++lEntry) {
            lFigures.emplace_back(lEntry->key(), lEntry->item());
        }
    } catch (const std::bad_alloc&) {
        // Those that were copied are shown.
    }
    for (const auto& [lKey, lValue] : lFigures) {
        showFigure(lKey, lValue);
    }
}

/// Keeps a figure. A new name is copied into the map; without memory for the copy the entry has an
/// empty key, and is taken out again. Buckets for which there was no memory are asked for again.
void DynamicSysInfo::store(std::string_view aName, const FlexVar& aValue) {
    const ACE_CString lKey = borrowedKey(aName);
    const ACE_Guard<ACE_Thread_Mutex> lGuard(mMap.mutex());
    if (!lGuard.locked() || (mMap.total_size() == 0 && mMap.create_buckets(kBuckets) != 0)) {
        return;
    }
    Map::ENTRY* lEntry = nullptr;
    if (mMap.find_i(lKey, lEntry) == 0) {
        lEntry->item() = aValue;
    } else if (mMap.bind_i(lKey, aValue, lEntry) == 0 && lEntry->key() != lKey) {
        mMap.unbind_i(lEntry);  // There was no memory for the copy of the name.
    }
}

FlexVar DynamicSysInfo::find(std::string_view aName) const {
    FlexVar lValue;
    mMap.find(borrowedKey(aName), lValue);
    return lValue;
}
