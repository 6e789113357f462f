#include <strings.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "base/diagnosticLine.h"
#include "osx/osx.h"
#include "process/atFork.h"

using osx::DiagnosticLine;

namespace {

constexpr char kModule[] = "osxNameTable.cpp";

using NameTable = std::array<NameTableEntry, OSX_NAME_TABLE_SIZE>;

// None has a destructor to run: threads may still use the table while the process ends.
NameTable gTable;
std::mutex gMutex;
const osx::process::AtFork gAtFork(osx::process::ForkOrder::kLeaf,
                                   osx::process::kKeepAcrossFork<gMutex>);
bool gInitialized = false;
/// All entries before it have an empty name, none after it that is used.
NameTableEntry* gFirstNamed = gTable.end();
/// Whether there may be free entries after it.
bool gHasGaps = false;
/// Whether a used entry may have an empty name, and stand among the free ones.
bool gHasNameless = false;

using Guard = std::lock_guard<std::mutex>;

bool isUsed(const NameTableEntry& aEntry) {
    return aEntry.handle != nullptr;
}

bool isNamed(const NameTableEntry& aEntry) {
    return aEntry.name[0] != '\0';
}

bool precedes(const NameTableEntry& aLeft, const NameTableEntry& aRight) {
    return cmp_names(&aLeft, &aRight) < 0;
}

void clearTable() {
    gTable = {};
    gInitialized = true;
    gFirstNamed = gTable.end();
    gHasGaps = false;
    gHasNameless = false;
}

/// @return the first entry of a handle; null if there is none. Null finds a free entry.
NameTableEntry* findEntry(const void* aHandle) {
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
void closeGaps() {
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

void moveToItsPlace(NameTableEntry* aEntry) {
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

/// What sorting the table anew gives when the new entry stands before all named ones: it comes
/// before those of the same name.
void putInOrder(NameTableEntry* aEntry) {
    if (gHasGaps) {
        closeGaps();
    }
    if (isNamed(*aEntry)) {
        moveToItsPlace(aEntry);
    } else if (isUsed(*aEntry)) {
        gHasNameless = true;
    }
}

void sort() {
    std::qsort(gTable.data(), gTable.size(), sizeof(NameTableEntry), cmp_names);
    gFirstNamed = std::find_if(gTable.begin(), gTable.end(), isNamed);
    gHasNameless = std::any_of(gTable.begin(), gFirstNamed, isUsed);
    gHasGaps = false;
}

/// @return false when the table is full.
bool store(const NameTableEntry& aEntry) {
    const Guard lGuard(gMutex);
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

void clearEntry(NameTableEntry& aEntry) {
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
    const bool lStored = store(makeEntry(aHandle, aHandle == nullptr ? "" : lName));
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
    clearEntry(*lEntry);
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
