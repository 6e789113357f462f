// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// The table of identifiers. ACE's map owns the pairs, as it always did; they are found by an index
// beside it, because ACE's number of buckets is fixed and it would search a large table pair by
// pair. What a look-up costs is what it reads of memory that is in no cache: one place of the
// index, and one pair.
#include "types/ObjectIDMap.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <memory>
#include <new>
#include <utility>

#include "base/ErrnoKeeper.h"
#include "base/allocate.h"
#include "base/diagnosticLine.h"

namespace {

constexpr char kModule[] = "ObjectIDMap.cpp";
constexpr std::size_t kBuckets = 2999;
constexpr std::size_t kPairsOfAPage = 63;
constexpr unsigned int kUsualBits = 12;  // of a place's number, in an index that was allocated
// At least so many: a pair that is not its place's first costs a look-up a branch foretold wrong.
constexpr std::size_t kPlacesOfAPair = 2;
// From this size on an index does not fit what a processor keeps of the usual pages' addresses.
constexpr std::size_t kLargeIndex = std::size_t{8} << 20;

/// A large index is read all over: with pages of the usual size most look-ups would wait for the
/// page's address as well. A kernel that knows no larger ones refuses.
void askForLargePages(void* aMemory, std::size_t aSize) noexcept {
    const auto lPageSize = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    const auto lStart = reinterpret_cast<std::uintptr_t>(aMemory);
    const std::uintptr_t lBefore = (lPageSize - lStart % lPageSize) % lPageSize;
    madvise(static_cast<char*>(aMemory) + lBefore, aSize - lBefore, MADV_HUGEPAGE);
}

/// @return an index of so many places, all without a pair; null if there is no memory.
template <class Entry>
std::unique_ptr<Entry*[]> makePlaces(std::size_t aCount) noexcept {
    std::unique_ptr<Entry*[]> lPlaces(new (std::nothrow) Entry*[aCount]);
    if (lPlaces != nullptr) {
        if (aCount * sizeof(Entry*) >= kLargeIndex) {
            askForLargePages(lPlaces.get(), aCount * sizeof(Entry*));
        }
        std::fill_n(lPlaces.get(), aCount, nullptr);
    }
    return lPlaces;
}

/// A separate function, so that a successful look-up saves no registers for it.
[[gnu::noinline, gnu::cold]] void reportUnknown(const ObjectID& aObjectID, std::size_t aCount) {
    osx::DiagnosticLine(kModule).failure(LM_ERROR,
                                         "ObjectIDMap::translate: failed, aObjectID[%s] size[%d]\n",
                                         aObjectID.toString().c_str(), aCount);
}

}  // namespace

/// Holds the table's mutex, which is ACE's. Calls the system itself: the way through ACE took a
/// third of a look-up. To clang it always has the mutex; whether it does is to be asked.
class OSX_SCOPED_CAPABILITY ObjectIDMap::Lock {
public:
    explicit Lock(Table& aTable) noexcept OSX_ACQUIRE(aTable)
        : mMutex(aTable.mutex().lock()), mIsHeld(pthread_mutex_lock(&mMutex) == 0) {}
    ~Lock() OSX_RELEASE() {
        if (mIsHeld) {
            pthread_mutex_unlock(&mMutex);
        }
    }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;
    bool isHeld() const noexcept { return mIsHeld; }

private:
    ACE_thread_mutex_t& mMutex;
    const bool mIsHeld;
};

// The memory of the pairs.

void* ObjectIDMap::Pool::malloc(std::size_t aSize) {
    if (mFree == nullptr) {
        addPage(aSize);
    }
    Link* const lPiece = mFree;
    if (lPiece != nullptr) {
        mFree = lPiece->next;
    }
    return lPiece;
}

void ObjectIDMap::Pool::free(void* aPiece) {
    addToFree(aPiece);
}

void ObjectIDMap::Pool::addToFree(void* aPiece) noexcept {
    mFree = new (aPiece) Link{mFree};
}

void ObjectIDMap::Pool::addPage(std::size_t aSize) noexcept {
    std::unique_ptr<char[]> lPage = osx::allocateBytes((kPairsOfAPage + 1) * aSize);
    if (lPage == nullptr) {
        return;
    }
    for (std::size_t lPiece = kPairsOfAPage; lPiece > 0; --lPiece) {
        addToFree(lPage.get() + lPiece * aSize);
    }
    mPages = new (lPage.release()) Link{mPages};
}

void ObjectIDMap::Pool::releaseAll() noexcept {
    while (mPages != nullptr) {
        const std::unique_ptr<char[]> lPage(reinterpret_cast<char*>(mPages));
        mPages = mPages->next;
    }
    mFree = nullptr;
}

// The table.

/// Identifiers that were generated one after the other differ by multiples of few numbers; the
/// factor, the golden ratio's, spreads those well.
inline ObjectIDMap::Map::ENTRY*& ObjectIDMap::Table::placeOf(std::uint32_t aHash) noexcept {
    constexpr std::uint32_t kSpread = 0x9E3779B9;
    return mPlaces[aHash * kSpread >> mShift];
}

/// @return the next pair of the same place; null after the last. The list ends at its bucket.
ObjectIDMap::Map::ENTRY* ObjectIDMap::Table::nextOfPlace(const ENTRY& aEntry) noexcept {
    ENTRY* const lNext = aEntry.next_;
    const bool lIsPair = lNext < table() || lNext >= table() + total_size();
    return lIsPair && &placeOf(*lNext) == &placeOf(aEntry) ? lNext : nullptr;
}

/// Most pairs are the first of their place.
inline ObjectIDMap::Map::ENTRY* ObjectIDMap::Table::find(const ObjectID& aKey) noexcept {
    ENTRY* const lFirst = placeOf(aKey.hash());
    return lFirst == nullptr || lFirst->ext_id_.areThoseOf(aKey) ? lFirst
                                                                 : findBehind(*lFirst, aKey);
}

ObjectIDMap::Map::ENTRY* ObjectIDMap::Table::findBehind(const ENTRY& aFirst,
                                                        const ObjectID& aKey) noexcept {
    ENTRY* lEntry = nextOfPlace(aFirst);
    while (lEntry != nullptr && !lEntry->ext_id_.areThoseOf(aKey)) {
        lEntry = nextOfPlace(*lEntry);
    }
    return lEntry;
}

void ObjectIDMap::Table::addOrReplace(const ObjectID& aKey, const ObjectID& aValue) noexcept {
    if (ENTRY* const lEntry = find(aKey)) {
        lEntry->int_id_ = Words(aValue);
    } else if (addNew(aKey, aValue) && current_size() > places() / kPlacesOfAPair) {
        grow();
    }
}

/// ACE would search the bucket for the key, pair by pair. So it is shown an empty one.
bool ObjectIDMap::Table::addNew(const ObjectID& aKey, const ObjectID& aValue) noexcept {
    if (total_size() == 0) {  // ACE enters a pair even into a table without buckets.
        errno = ENOMEM;
        return false;
    }
    ENTRY& lBucket = table()[aKey.hash() % total_size()];
    ENTRY* const lFirst = lBucket.next_;
    ENTRY* const lLast = lBucket.prev_;
    lBucket.next_ = lBucket.prev_ = &lBucket;
    ENTRY* lEntry = nullptr;
    const bool lIsBound = bind_i(Words(aKey), Words(aValue), lEntry) == 0;
    lBucket.next_ = lFirst;
    lBucket.prev_ = lLast;
    if (lIsBound) {
        linkIn(*lEntry, lBucket);
    }
    return lIsBound;
}

/// Puts a pair behind the first one of its place; into the bucket if there is none.
void ObjectIDMap::Table::linkIn(ENTRY& aEntry, ENTRY& aBucket) noexcept {
    ENTRY*& lFirst = placeOf(aEntry);
    ENTRY& lBefore = lFirst == nullptr ? aBucket : *lFirst;
    aEntry.next_ = lBefore.next_;
    aEntry.prev_ = &lBefore;
    aEntry.next_->prev_ = &aEntry;
    lBefore.next_ = &aEntry;
    if (lFirst == nullptr) {
        lFirst = &aEntry;
    }
}

bool ObjectIDMap::Table::remove(const ObjectID& aKey) noexcept {
    ENTRY* const lEntry = find(aKey);
    if (lEntry == nullptr) {
        return false;
    }
    ENTRY*& lFirst = placeOf(aKey.hash());
    if (lFirst == lEntry) {
        lFirst = nextOfPlace(*lEntry);
    }
    unbind_i(lEntry);
    return true;
}

void ObjectIDMap::Table::removeAll() noexcept {
    unbind_all_i();
    std::fill_n(mPlaces, places(), nullptr);
}

/// Doubles the index. Without memory for it, pairs share the places that there are.
void ObjectIDMap::Table::grow() noexcept {
    const osx::ErrnoKeeper lErrno;  // the pair that is to be added is in
    const unsigned int lBits = std::max(kUsualBits, kHashBits - mShift + 1);
    if (auto lPlaces = makePlaces<ENTRY>(std::size_t(1) << lBits)) {
        mManyPlaces = std::move(lPlaces);
        mPlaces = mManyPlaces.get();
        mShift = kHashBits - lBits;
        linkAllInAgain();
    }
}

void ObjectIDMap::Table::linkAllInAgain() noexcept {
    for (ENTRY* lBucket = table(); lBucket != table() + total_size(); ++lBucket) {
        ENTRY* lEntry = lBucket->next_;
        lBucket->next_ = lBucket->prev_ = lBucket;
        while (lEntry != lBucket) {
            ENTRY& lMoved = *lEntry;
            lEntry = lEntry->next_;
            linkIn(lMoved, *lBucket);
        }
    }
}

// The map.

ObjectIDMap::ObjectIDMap() : mMap(kBuckets, nullptr, &mPool) {}

ObjectIDMap::~ObjectIDMap() {
    mMap.close();
}

void ObjectIDMap::add(const ObjectID& aKey, const ObjectID& aValue) {
    const Lock lLock(mMap);
    if (lLock.isHeld()) {
        mMap.addOrReplace(aKey, aValue);
    }
}

void ObjectIDMap::unregisterObjectID(const ObjectID& aKey) {
    const Lock lLock(mMap);
    if (lLock.isHeld() && !mMap.remove(aKey)) {
        errno = ENOENT;
    }
}

void ObjectIDMap::translate(ObjectID& aObjectID) const {
    if (aObjectID.isEmpty()) {
        return;
    }
    std::size_t lCount = 0;
    {
        const Lock lLock(mMap);
        if (const Map::ENTRY* const lEntry = lLock.isHeld() ? mMap.find(aObjectID) : nullptr) {
            lEntry->int_id_.copyTo(aObjectID);
            return;
        }
        lCount = mMap.current_size();
    }
    // A log back end may come back to this table, so its lock is free again.
    reportUnknown(aObjectID, lCount);
}

void ObjectIDMap::clear() {
    const Lock lLock(mMap);
    if (lLock.isHeld()) {
        mMap.removeAll();
        mPool.releaseAll();
    }
}
