#include <strings.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "base/diagnosticLine.h"
#include "osx/osx.h"

using osx::DiagnosticLine;

namespace {

constexpr char kModule[] = "osxNameTable.cpp";

using NameTable = std::array<NameTableEntry, OSX_NAME_TABLE_SIZE>;

// Neither has a destructor to run: threads may still use the table while the process ends.
NameTable gTable;
std::mutex gMutex;
bool gInitialized = false;

using Guard = std::lock_guard<std::mutex>;

void clearTable() {
    gTable = {};
    gInitialized = true;
}

/// @return the first entry of a handle; null if there is none. Null finds a free entry.
NameTableEntry* findEntry(const void* aHandle) {
    auto* const lEntry =
        std::find_if(gTable.begin(), gTable.end(),
                     [aHandle](const NameTableEntry& aEntry) { return aEntry.handle == aHandle; });
    return lEntry == gTable.end() ? nullptr : lEntry;
}

void fillEntry(NameTableEntry& aEntry, void* aHandle, const char* aName) {
    aEntry.handle = aHandle;
    std::strncpy(aEntry.name, aName, OSX_NAME_LEN);
    aEntry.name[OSX_NAME_LEN - 1] = '\0';
}

/// @return false when the table is full.
bool store(void* aHandle, const char* aName) {
    const Guard lGuard(gMutex);
    if (!gInitialized) {
        clearTable();
    }
    NameTableEntry* const lFree = findEntry(nullptr);
    if (lFree == nullptr) {
        return false;
    }
    fillEntry(*lFree, aHandle, aHandle == nullptr ? "" : aName);
    std::qsort(gTable.data(), gTable.size(), sizeof(NameTableEntry), cmp_names);
    return true;
}

bool isUsed(const NameTableEntry& aEntry) {
    return aEntry.handle != nullptr;
}

int countUsed(const NameTable& aTable) {
    return static_cast<int>(std::count_if(aTable.begin(), aTable.end(), isUsed));
}

NameTable copyOfTable() {
    const Guard lGuard(gMutex);
    return gTable;
}

}  // namespace

int cmp_names(const void* aLeft, const void* aRight) {
    return ::strcasecmp(static_cast<const NameTableEntry*>(aLeft)->name,
                        static_cast<const NameTableEntry*>(aRight)->name);
}

void osxNameTableInit() {
    const Guard lGuard(gMutex);
    clearTable();
}

bool osxNameTableRegister(void* aHandle, const char* aName) {
    const char* const lName = aName == nullptr ? "" : aName;
    const bool lStored = store(aHandle, lName);
    if (!lStored) {
        // Written outside the lock: a log back end may call anything, this table included.
        DiagnosticLine(kModule).failure(
            LM_ERROR, "Error: Cannot register %s, the name table is full!\n", lName);
    }
    return lStored;
}

bool osxNameTableUnRegister(void* aHandle) {
    const Guard lGuard(gMutex);
    NameTableEntry* const lEntry = findEntry(aHandle);
    if (lEntry == nullptr) {
        return false;
    }
    *lEntry = {};
    return true;
}

const char* osxNameTableGetName(void* aHandle) {
    const Guard lGuard(gMutex);
    const NameTableEntry* const lEntry = findEntry(aHandle);
    return lEntry == nullptr ? "name not found" : lEntry->name;
}

int osxNameTableCount() {
    const Guard lGuard(gMutex);
    return countUsed(gTable);
}

int osxNameTableList() {
    const NameTable lTable = copyOfTable();
    for (std::size_t lIndex = 0; lIndex < lTable.size(); ++lIndex) {
        const NameTableEntry& lEntry = lTable[lIndex];
        if (isUsed(lEntry)) {
            DiagnosticLine(kModule).failure(LM_ERROR, "name = %s, handle = %x, index = %d.\n",
                                            lEntry.name, lEntry.handle, lIndex);
        }
    }
    const int lCount = countUsed(lTable);
    DiagnosticLine(kModule).failure(LM_ERROR, "Total number of objects registered: %d.\n", lCount);
    return lCount;
}
