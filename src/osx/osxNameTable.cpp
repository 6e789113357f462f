// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The table of names.
//
// It is an array that the application may read as if it were sorted anew by each registration. As
// sorting costs most, it is not done: free entries have empty names and so stand at the front, and
// a new entry is moved to its place among the named ones behind them.
//
//     | free, and used ones without a name | named, sorted; gaps where entries were cleared |
//                                            ^ gFirstNamed
#include <strings.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>

#include "base/Mutex.h"
#include "base/diagnosticLine.h"
#include "base/sparse.h"
#include "osx/osx.h"
#include "process/atFork.h"

using osx::DiagnosticLine;

namespace {

constexpr char kModule[] = "osxNameTable.cpp";

using NameTable = std::array<NameTableEntry, OSX_NAME_TABLE_SIZE>;

// Nothing here has a destructor to run: threads may still use the table while the process ends.
osx::Mutex gMutex;
OSX_SPARSE NameTable gTable OSX_GUARDED_BY(gMutex);
const osx::process::AtFork gAtFork(osx::process::ForkOrder::kLeaf,
                                   osx::process::kKeepAcrossFork<gMutex>);
/// Whether the table has been cleared once, as the first registration does.
bool gInitialized OSX_GUARDED_BY(gMutex) = false;
/// All entries before it have an empty name, none after it that is used.
NameTableEntry* gFirstNamed OSX_GUARDED_BY(gMutex) = gTable.end();
/// Whether there may be free entries after `gFirstNamed`.
bool gHasGaps OSX_GUARDED_BY(gMutex) = false;
/// Whether a used entry may have an empty name, and stand among the free ones.
bool gHasNameless OSX_GUARDED_BY(gMutex) = false;

bool isUsed(const NameTableEntry& aEntry) {
    return aEntry.handle != nullptr;
}

bool isNamed(const NameTableEntry& aEntry) {
    return aEntry.name[0] != '\0';
}

bool precedes(const NameTableEntry& aLeft, const NameTableEntry& aRight) {
    return cmp_names(&aLeft, &aRight) < 0;
}

void clearTable() OSX_REQUIRES(gMutex) {
    gTable = {};
    gInitialized = true;
    gFirstNamed = gTable.end();
    gHasGaps = false;
    gHasNameless = false;
}

/// @return the first entry of a handle; null if there is none. A null handle finds a free entry.
NameTableEntry* findEntry(const void* aHandle) OSX_REQUIRES(gMutex) {
    auto* const lEntry = std::find_if(
        aHandle == nullptr || gHasNameless ? gTable.begin() : gFirstNamed, gTable.end(),
        [aHandle](const NameTableEntry& aEntry) { return aEntry.handle == aHandle; });
    return lEntry == gTable.end() ? nullptr : lEntry;
}

NameTableEntry makeEntry(void* aHandle, const char* aName) {
    NameTableEntry lEntry;
    lEntry.handle = aHandle;
    std::strncpy(lEntry.name, aName, OSX_NAME_LEN);
    lEntry.name[OSX_NAME_LEN - 1] = '\0';
    return lEntry;
}

/// Moves the named entries to the end, in the order they have.
void closeGaps() OSX_REQUIRES(gMutex) {
    auto* lTarget = gTable.end();
    for (auto* lEntry = gTable.end(); lEntry != gFirstNamed;) {
        --lEntry;
        if (isUsed(*lEntry) && lEntry != --lTarget) {
            *lTarget = *lEntry;
        }
    }
    std::fill(gFirstNamed, lTarget, NameTableEntry{});
    gFirstNamed = lTarget;
    gHasGaps = false;
}

/// Moves a new entry from among the free ones to its place among the named ones: before those of
/// the same name.
void moveToItsPlace(NameTableEntry* aEntry) OSX_REQUIRES(gMutex) {
    const NameTableEntry lEntry = *aEntry;
    if (gHasNameless) {
        std::move(aEntry + 1, gFirstNamed, aEntry);
    } else {
        *aEntry = {};
    }
    auto* const lEnd = std::lower_bound(gFirstNamed, gTable.end(), lEntry, precedes);
    std::move(gFirstNamed, lEnd, gFirstNamed - 1);
    *(lEnd - 1) = lEntry;
    --gFirstNamed;
}

/// Gives the same order as sorting the table anew.
/// @param aEntry the new entry, which stands before all named ones.
void putInOrder(NameTableEntry* aEntry) OSX_REQUIRES(gMutex) {
    if (gHasGaps) {
        closeGaps();
    }
    if (isNamed(*aEntry)) {
        moveToItsPlace(aEntry);
    } else if (isUsed(*aEntry)) {
        gHasNameless = true;
    }
}

void sort() OSX_REQUIRES(gMutex) {
    std::qsort(gTable.data(), gTable.size(), sizeof(NameTableEntry), cmp_names);
    gFirstNamed = std::find_if(gTable.begin(), gTable.end(), isNamed);
    gHasNameless = std::any_of(gTable.begin(), gFirstNamed, isUsed);
    gHasGaps = false;
}

/// @return false when the table is full.
bool store(const NameTableEntry& aEntry) {
    const osx::MutexLock lLock(gMutex);
    if (!gInitialized) {
        clearTable();
    }
    NameTableEntry* const lFree = findEntry(nullptr);
    if (lFree == nullptr) {
        return false;
    }
    *lFree = aEntry;
    if (lFree < gFirstNamed) {
        putInOrder(lFree);
    } else {
        sort();
    }
    return true;
}

void clearEntry(NameTableEntry& aEntry) OSX_REQUIRES(gMutex) {
    if (&aEntry == gFirstNamed) {
        ++gFirstNamed;
    } else if (isNamed(aEntry)) {
        gHasGaps = true;
    }
    aEntry = {};
}

int countUsed(const NameTable& aTable) {
    return static_cast<int>(std::count_if(aTable.begin(), aTable.end(), isUsed));
}

NameTable copyOfTable() {
    const osx::MutexLock lLock(gMutex);
    return gTable;
}

}  // namespace

int cmp_names(const void* aLeft, const void* aRight) {
    return ::strcasecmp(static_cast<const NameTableEntry*>(aLeft)->name,
                        static_cast<const NameTableEntry*>(aRight)->name);
}

void osxNameTableInit() {
    const osx::MutexLock lLock(gMutex);
    clearTable();
}

bool osxNameTableRegister(void* aHandle, const char* aName) {
    const char* const lName = aName == nullptr ? "" : aName;
    const bool lStored = store(makeEntry(aHandle, aHandle == nullptr ? "" : lName));
    if (!lStored) {
        // Written outside the lock: a log back end may call anything, this table included.
        DiagnosticLine(kModule).failure(
            LM_ERROR, "Error: Cannot register %s, the name table is full!\n", lName);
    }
    return lStored;
}

bool osxNameTableUnRegister(void* aHandle) {
    const osx::MutexLock lLock(gMutex);
    NameTableEntry* const lEntry = findEntry(aHandle);
    if (lEntry == nullptr) {
        return false;
    }
    clearEntry(*lEntry);
    return true;
}

const char* osxNameTableGetName(void* aHandle) {
    const osx::MutexLock lLock(gMutex);
    const NameTableEntry* const lEntry = findEntry(aHandle);
    return lEntry == nullptr ? "name not found" : lEntry->name;
}

int osxNameTableCount() {
    const osx::MutexLock lLock(gMutex);
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
