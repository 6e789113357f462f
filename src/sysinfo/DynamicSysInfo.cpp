#include "sysinfo/DynamicSysInfo.h"

#include <ext/stdio_filebuf.h>

#include <cstdio>
#include <functional>
#include <istream>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "ace/Guard_T.h"
#include "base/diagnosticLine.h"
#include "sysinfo/procFiles.h"

namespace {

constexpr char kModule[] = "DynamicSysInfo.cpp";
constexpr std::size_t kBuckets = 29;

#ifdef OSX_PROC_LAYOUT_CURRENT
constexpr osx::ProcLayout kLayout = osx::ProcLayout::kCurrent;
#else
constexpr osx::ProcLayout kLayout = osx::ProcLayout::kTarget;
#endif

struct CloseFile {
    void operator()(FILE* aFile) const { std::fclose(aFile); }
};

/// Hands a file to a reader; one that cannot be opened as a stream that has failed.
void readFile(const char* aPath, const std::function<void(std::istream&)>& aReader) {
    try {
        // A standard file stream would leave its descriptor to the programs that are run meanwhile.
        const std::unique_ptr<FILE, CloseFile> lFile(std::fopen(aPath, "re"));
        std::istream lStream(nullptr);
        if (lFile == nullptr) {
            aReader(lStream);
            return;
        }
        __gnu_cxx::stdio_filebuf<char> lBuffer(lFile.get(), std::ios::in);
        lStream.rdbuf(&lBuffer);
        aReader(lStream);
    } catch (const std::bad_alloc&) {
        // What was not read keeps its former value.
    }
}

/// @return a key that borrows the text, so that looking it up takes no memory.
ACE_CString key(const char* aName) {
    return ACE_CString(aName, nullptr, false);
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
    readFile("/proc/meminfo", [this](std::istream& aStream) {
        osx::readMemInfo(aStream, kLayout, [this](const char* aName, std::int32_t aValue) {
            store(aName, FlexVar(static_cast<long>(aValue)));
        });
    });
}

void DynamicSysInfo::readLoadAvg() {
    readFile("/proc/loadavg", [this](std::istream& aStream) {
        const osx::LoadAverage lLoad = osx::readLoadAvg(aStream);
        store(kKeyAvgCPU1, FlexVar(lLoad.oneMinute));
        store(kKeyAvgCPU5, FlexVar(lLoad.fiveMinutes));
        store(kKeyAvgCPU15, FlexVar(lLoad.fifteenMinutes));
        store(kKeyNrRunning, FlexVar(static_cast<long>(lLoad.running)));
        store(kKeyNrProcesses, FlexVar(static_cast<long>(lLoad.processes)));
        store(kKeyHighestPid, FlexVar(static_cast<long>(lLoad.highestPid)));
    });
}

void DynamicSysInfo::readPartitions() {
    readFile("/proc/partitions", [this](std::istream& aStream) {
        osx::readPartitions(aStream, kLayout, [this](const char* aName, std::int32_t aValue) {
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
        // ACE's iterators need buckets.
        for (auto lEntry = mMap.begin(); mMap.total_size() > 0 && lEntry != mMap.end(); ++lEntry) {
            lFigures.emplace_back(lEntry->key(), lEntry->item());
        }
    } catch (const std::bad_alloc&) {
        // Those that were copied are shown.
    }
    // A log back end may come back to these figures, so their lock is free again.
    for (const auto& [lKey, lValue] : lFigures) {
        showFigure(lKey, lValue);
    }
}

void DynamicSysInfo::store(const char* aName, const FlexVar& aValue) {
    const ACE_CString lKey = key(aName);
    const ACE_Guard<ACE_Thread_Mutex> lGuard(mMap.mutex());
    if (!lGuard.locked() || mMap.total_size() == 0) {
        return;
    }
    Map::ENTRY* lEntry = nullptr;
    if (mMap.find_i(lKey, lEntry) == 0) {
        lEntry->item() = aValue;
    } else if (mMap.bind_i(lKey, aValue, lEntry) == 0 && lEntry->key() != lKey) {
        mMap.unbind_i(lEntry);  // There was no memory for the copy of the name.
    }
}

FlexVar DynamicSysInfo::find(const char* aName) const {
    FlexVar lValue;
    mMap.find(key(aName), lValue);
    return lValue;
}
